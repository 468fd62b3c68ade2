#include "MSyntheticDataset.h"

#include <algorithm>
#include <random>
#include <vector>

#include "base/MDatabase.h"
#include "dataset/MXmlReader.h"

namespace quorvel {

namespace {

const char* kLeafKinds[] = {"function", "method", "field", "variable", "macro", "typedef"};
const char* kInnerKinds[] = {"folder", "folder", "file", "namespace", "class", "struct"};
const char* kEdgeKinds[] = {"calls", "uses", "include", "inherits"};

struct Node {
  uint32_t nid;
  uint32_t parent;  // 0 for the root
  uint32_t order;
  uint32_t depth;
  bool leaf;
};

// The tree in depth-first order: ids of a subtree are one run of numbers,
// which is what gives edges their locality.
std::vector<Node> makeTree(const TSyntheticParams& p, std::mt19937_64& rng) {
  struct Item {
    uint32_t parent;
    uint32_t size;
    uint32_t depth;
    uint32_t order;
  };
  std::vector<Node> out;
  out.reserve(p.nodes);
  std::vector<Item> stack{{0, p.nodes, 0, 0}};
  uint32_t next = 1;
  while (!stack.empty()) {
    const Item item = stack.back();
    stack.pop_back();
    const uint32_t id = next++;
    const uint32_t rest = item.size - 1;
    out.push_back({id, item.parent, item.order, item.depth, rest == 0});
    if (rest == 0) continue;
    uint32_t k = rest;
    if (item.depth + 1 < p.depth) {
      std::uniform_int_distribution<uint32_t> fan(1, std::max<uint32_t>(1, 2 * p.fanout - 1));
      k = std::min(rest, fan(rng));
    }
    // Each child gets one node, and the rest is shared out by random weights.
    std::vector<double> weights(k);
    std::exponential_distribution<double> w(1.0);
    double total = 0.0;
    for (auto& x : weights) total += (x = w(rng));
    std::vector<uint32_t> sizes(k, 1);
    uint32_t extra = rest - k;
    uint32_t given = 0;
    for (uint32_t i = 0; i < k && given < extra; ++i) {
      const uint32_t share = std::min(extra - given, static_cast<uint32_t>(extra * (weights[i] / total)));
      sizes[i] += share;
      given += share;
    }
    sizes[0] += extra - given;
    std::shuffle(sizes.begin(), sizes.end(), rng);
    for (uint32_t i = k; i-- > 0;) stack.push_back({id, sizes[i], item.depth + 1, i + 1});
  }
  return out;
}

void fill(const TSyntheticParams& p, TDatabase& db, TSyntheticCounts& counts) {
  std::mt19937_64 rng(p.seed);
  TXmlReader::createDatasetTables(db);

  const std::vector<Node> tree = makeTree(p, rng);
  counts.nodes = tree.size();
  std::uniform_int_distribution<int> lines(1, 400);
  std::gamma_distribution<float> complexity(2.0f, 1.5f);
  for (const Node& n : tree) {
    db.execute2("INSERT INTO hierarchy (hid,nid,parentnid,childorder) VALUES (?,?,?,?)",
                {int64_t(1), int64_t(n.nid), n.parent ? TDbValue{int64_t(n.parent)} : TDbValue{}, int64_t(n.order)});
    for (uint32_t a = 0; a < p.attributes; ++a) {
      const uint32_t kind = a % 5;
      const std::string suffix = a < 5 ? "" : "_" + std::to_string(a / 5);
      TDbValue value;
      std::string key;
      switch (kind) {
        case 0:
          key = "name" + suffix;
          value = std::string(n.leaf ? "item_" : "group_") + std::to_string(n.nid);
          break;
        case 1:
          key = "type" + suffix;
          value = std::string(n.leaf ? kLeafKinds[n.nid % 6] : kInnerKinds[std::min<uint32_t>(n.depth, 5)]);
          break;
        case 2:
          key = "lines" + suffix;
          value = int64_t(lines(rng));
          break;
        case 3:
          key = "complexity" + suffix;
          value = static_cast<double>(complexity(rng)) + 0.5;
          break;
        default:
          key = "size" + suffix;
          value = int64_t(lines(rng) * 37);
          break;
      }
      db.execute2("INSERT INTO nodeattr (nid,key,value) VALUES (?,?,?)", {int64_t(n.nid), key, value});
      ++counts.nodeValues;
    }
  }

  std::uniform_int_distribution<uint32_t> anyNode(1, static_cast<uint32_t>(tree.size()));
  std::uniform_real_distribution<double> coin(0.0, 1.0);
  std::geometric_distribution<uint32_t> near(0.02);
  std::uniform_real_distribution<float> strength(0.0f, 4.0f);
  for (uint32_t eid = 1; eid <= p.edges; ++eid) {
    const uint32_t from = anyNode(rng);
    uint32_t to = anyNode(rng);
    if (coin(rng) < p.locality) {
      const int64_t offset = static_cast<int64_t>(near(rng)) * (coin(rng) < 0.5 ? -1 : 1);
      to = static_cast<uint32_t>(std::clamp<int64_t>(int64_t(from) + offset, 1, int64_t(tree.size())));
    }
    db.execute2("INSERT INTO edges (eid,fromnid,tonid) VALUES (?,?,?)", {int64_t(eid), int64_t(from), int64_t(to)});
    if (p.edgeAttributes > 0)
      db.execute2("INSERT INTO edgeattr (eid,key,value) VALUES (?,?,?)",
                  {int64_t(eid), std::string("kind"), std::string(kEdgeKinds[(from ^ to) % 4])});
    if (p.edgeAttributes > 1)
      db.execute2("INSERT INTO edgeattr (eid,key,value) VALUES (?,?,?)",
                  {int64_t(eid), std::string("weight"), int64_t(1 + (from + to) % 9)});
    if (p.edgeAttributes > 2)
      db.execute2("INSERT INTO edgeattr (eid,key,value) VALUES (?,?,?)",
                  {int64_t(eid), std::string("strength"), static_cast<double>(strength(rng))});
    counts.edgeValues += std::min<uint32_t>(p.edgeAttributes, 3);
  }
  counts.edges = p.edges;
}

}  // namespace

TSyntheticCounts writeSyntheticDataset(const TSyntheticParams& p, const std::string& filename) {
  TSyntheticCounts counts;
  writeDatabaseReplacing(filename, [&](TDatabase& db) { fill(p, db, counts); });
  return counts;
}

}  // namespace quorvel
