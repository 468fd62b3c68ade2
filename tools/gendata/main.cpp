// quorvel-gendata: writes a deterministic synthetic dataset.
//   quorvel-gendata [--nodes N] [--fanout F] [--depth D] [--edges E]
//                   [--locality L] [--attributes A] [--edge-attributes B]
//                   [--seed S] <out.db>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>

#include "MSyntheticDataset.h"

using namespace quorvel;

namespace {

int usage() {
  std::cerr << "usage: quorvel-gendata [--nodes N] [--fanout F] [--depth D] [--edges E] [--locality L]\n"
               "                       [--attributes A] [--edge-attributes B] [--seed S] <out.db>\n";
  return 2;
}

bool number(const char* text, double& out) {
  char* end = nullptr;
  out = std::strtod(text, &end);
  return end && *end == '\0' && end != text;
}

}  // namespace

int main(int argc, char** argv) {
  TSyntheticParams p;
  std::string out;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg.rfind("--", 0) != 0) {
      if (!out.empty()) return usage();
      out = arg;
      continue;
    }
    double v = 0.0;
    if (i + 1 >= argc || !number(argv[i + 1], v) || v < 0) return usage();
    ++i;
    if (arg == "--nodes" && v >= 1) p.nodes = static_cast<uint32_t>(v);
    else if (arg == "--fanout" && v >= 1) p.fanout = static_cast<uint32_t>(v);
    else if (arg == "--depth" && v >= 1) p.depth = static_cast<uint32_t>(v);
    else if (arg == "--edges") p.edges = static_cast<uint32_t>(v);
    else if (arg == "--locality" && v <= 1) p.locality = v;
    else if (arg == "--attributes" && v <= 16) p.attributes = static_cast<uint32_t>(v);
    else if (arg == "--edge-attributes" && v <= 3) p.edgeAttributes = static_cast<uint32_t>(v);
    else if (arg == "--seed") p.seed = static_cast<uint64_t>(v);
    else return usage();
  }
  if (out.empty()) return usage();
  try {
    const TSyntheticCounts c = writeSyntheticDataset(p, out);
    std::cout << out << ": " << c.nodes << " nodes, " << c.edges << " edges, " << c.nodeValues
              << " node attribute values, " << c.edgeValues << " edge attribute values\n";
  } catch (const std::exception& e) {
    std::cerr << "quorvel-gendata: " << e.what() << "\n";
    return 1;
  }
  return 0;
}
