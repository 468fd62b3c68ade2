// Deterministic synthetic datasets with the shape of real code: a tree of
// folders, files and definitions with varying fan-out, edges mostly between
// nearby subtrees, and attributes of every column type.
#pragma once

#include <cstdint>
#include <string>

namespace quorvel {

struct TSyntheticParams {
  uint32_t nodes = 1000;
  // Mean number of children of an inner node.
  uint32_t fanout = 8;
  // Deepest level below the root.
  uint32_t depth = 12;
  uint32_t edges = 3000;
  // Share of edges whose ends lie close together in the tree, 0 to 1.
  double locality = 0.8;
  // Node attributes: name, type, lines, complexity, size, then more of the
  // same kinds; 0 to 16.
  uint32_t attributes = 5;
  // Edge attributes: kind, weight, strength; 0 to 3.
  uint32_t edgeAttributes = 2;
  uint64_t seed = 1;
};

struct TSyntheticCounts {
  uint64_t nodes = 0;
  uint64_t edges = 0;
  uint64_t nodeValues = 0;
  uint64_t edgeValues = 0;
};

// Writes the dataset to `filename`, replacing a file that is there once the
// new one is complete.
TSyntheticCounts writeSyntheticDataset(const TSyntheticParams& params, const std::string& filename);

}  // namespace quorvel
