// Synthetic datasets for benchmarks, generated once and kept beside the
// benchmark programs.
#pragma once

#include <sqlite3.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include "MSyntheticDataset.h"
#include "dataset/MDatasetLoader.h"

namespace quorvel::bench {

// The file of a synthetic dataset with five node and two edge attributes,
// with its indexes in place as after a first load. A file of the same name
// from an earlier run is the same dataset: the generator is deterministic.
inline std::string syntheticDataset(uint32_t nodes, uint32_t edges, TSyntheticCounts* counts = nullptr,
                                    uint32_t attributes = 5) {
  const std::string file = "synthetic-" + std::to_string(nodes) + "-" + std::to_string(edges) +
                           (attributes == 5 ? "" : "-a" + std::to_string(attributes)) + ".db";
  const std::string countsFile = file + ".counts";
  TSyntheticCounts c;
  std::ifstream in(countsFile);
  if (!(in >> c.nodes >> c.edges >> c.nodeValues >> c.edgeValues) || !std::filesystem::exists(file)) {
    TSyntheticParams p;
    p.nodes = nodes;
    p.edges = edges;
    p.attributes = attributes;
    p.edgeAttributes = 2;
    c = writeSyntheticDataset(p, file);
    TDatabase db(file);
    auto loader = std::make_shared<TDatasetLoader>();
    loader->postCreate();
    loader->readDatabase(db);
    loader->destroy();
    std::ofstream(countsFile) << c.nodes << " " << c.edges << " " << c.nodeValues << " " << c.edgeValues << "\n";
  }
  if (counts) *counts = c;
  return file;
}

// What the loader reads from a synthetic dataset: the first hierarchy, the
// edges, the selection of all edges and the edge columns.
struct TLoadedDataset {
  std::shared_ptr<THierarchyData> hierarchy;
  std::shared_ptr<TEdgeData> edges;
  std::shared_ptr<TIntegerSetData> allEdges;
  std::shared_ptr<TAttributeDataArray> edgeAttributes;
  std::shared_ptr<TAttributeDataArray> nodeAttributes;
  std::shared_ptr<TIntegerSetData> allNodes;
};

inline TLoadedDataset loadDataset(const std::string& file) {
  TDatabase db(file);
  auto loader = std::make_shared<TDatasetLoader>();
  loader->postCreate();
  loader->readDatabase(db);
  TLoadedDataset l;
  l.hierarchy = dataAs<THierarchyDataArray>(loader->m_Hierarchies)->itemAs<THierarchyData>(0);
  l.edges = dataAs<TEdgeData>(loader->m_Edges);
  l.allEdges = dataAs<TIntegerSetDataArray>(loader->m_EdgeSelections)->itemAs<TIntegerSetData>(0);
  l.edgeAttributes = dataAs<TAttributeDataArray>(loader->m_EdgeAttributes);
  l.nodeAttributes = dataAs<TAttributeDataArray>(loader->m_NodeAttributes);
  l.allNodes = dataAs<TIntegerSetDataArray>(loader->m_NodeSelections)->itemAs<TIntegerSetData>(0);
  loader->destroy();
  return l;
}

// The system's C headers as the importer reads them, imported once beside
// the benchmark programs.
inline std::string headersDataset() {
  const std::string file = "datasets/usr-include.db";
  if (!std::filesystem::exists(file)) {
    std::filesystem::create_directories("datasets");
    if (std::system(("./quorvel-import /usr/include " + file + ".part >/dev/null 2>&1").c_str()) != 0)
      throw std::runtime_error("cannot import /usr/include");
    std::filesystem::rename(file + ".part", file);
  }
  return file;
}

// Rows of a dataset's four tables, as a budget counts them.
inline TSyntheticCounts countRows(const std::string& file) {
  TSyntheticCounts c;
  sqlite3* db = nullptr;
  sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, nullptr);
  for (auto [q, n] : {std::pair{"SELECT count(*) FROM hierarchy WHERE hid=1", &c.nodes},
                      std::pair{"SELECT count(*) FROM edges", &c.edges},
                      std::pair{"SELECT count(*) FROM nodeattr", &c.nodeValues},
                      std::pair{"SELECT count(*) FROM edgeattr", &c.edgeValues}}) {
    sqlite3_stmt* stmt = nullptr;
    sqlite3_prepare_v2(db, q, -1, &stmt, nullptr);
    if (sqlite3_step(stmt) == SQLITE_ROW) *n = static_cast<uint64_t>(sqlite3_column_int64(stmt, 0));
    sqlite3_finalize(stmt);
  }
  sqlite3_close_v2(db);
  return c;
}

// Peak memory a dataset may take: 150 bytes a node, 60 an edge, 40 a value.
inline double memoryBudget(const TSyntheticCounts& c) {
  return 150.0 * static_cast<double>(c.nodes) + 60.0 * static_cast<double>(c.edges) +
         40.0 * static_cast<double>(c.nodeValues + c.edgeValues);
}

// The floor of reading a dataset: every row of the four tables stepped
// through with the C API, every column read. Gives a checksum.
inline int64_t plainScan(const std::string& file) {
  sqlite3* db = nullptr;
  // One thread reads: no locking inside SQLite, as the loader opens it.
  sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, nullptr);
  int64_t sum = 0;
  for (const char* q : {"SELECT hid,nid,parentnid,childorder FROM hierarchy", "SELECT nid,key,value FROM nodeattr",
                        "SELECT eid,key,value FROM edgeattr", "SELECT eid,fromnid,tonid FROM edges"}) {
    sqlite3_stmt* stmt = nullptr;
    sqlite3_prepare_v2(db, q, -1, &stmt, nullptr);
    while (sqlite3_step(stmt) == SQLITE_ROW) {
      for (int c = 0; c < sqlite3_column_count(stmt); ++c) {
        if (sqlite3_column_type(stmt, c) == SQLITE_TEXT)
          sum += sqlite3_column_bytes(stmt, c);
        else
          sum += sqlite3_column_int64(stmt, c);
      }
    }
    sqlite3_finalize(stmt);
  }
  sqlite3_close_v2(db);
  return sum;
}

// Resident memory of this process in kB: "VmRSS:" now, "VmHWM:" its peak
// since resetPeakMemory.
inline long statusKb(const char* field) {
  std::ifstream in("/proc/self/status");
  std::string line;
  while (std::getline(in, line))
    if (line.rfind(field, 0) == 0) return std::stol(line.substr(std::strlen(field)));
  return 0;
}

inline void resetPeakMemory() { std::ofstream("/proc/self/clear_refs") << "5"; }

inline TLoadedDataset loadSyntheticDataset(uint32_t nodes, uint32_t edges) {
  return loadDataset(syntheticDataset(nodes, edges));
}

}  // namespace quorvel::bench
