// Synthetic datasets for benchmarks, generated once and kept beside the
// benchmark programs.
#pragma once

#include <filesystem>
#include <fstream>
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

inline TLoadedDataset loadSyntheticDataset(uint32_t nodes, uint32_t edges) {
  return loadDataset(syntheticDataset(nodes, edges));
}

}  // namespace quorvel::bench
