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
inline std::string syntheticDataset(uint32_t nodes, uint32_t edges, TSyntheticCounts* counts = nullptr) {
  const std::string file = "synthetic-" + std::to_string(nodes) + "-" + std::to_string(edges) + ".db";
  const std::string countsFile = file + ".counts";
  TSyntheticCounts c;
  std::ifstream in(countsFile);
  if (!(in >> c.nodes >> c.edges >> c.nodeValues >> c.edgeValues) || !std::filesystem::exists(file)) {
    TSyntheticParams p;
    p.nodes = nodes;
    p.edges = edges;
    p.attributes = 5;
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

}  // namespace quorvel::bench
