// The radial view's layout (what a change of the fold state costs) for
// 20,000 visible nodes: a synthetic tree of that size, and the million-node
// tree folded down to about that many. Each run writes the visible tree as
// CSV (peer-N/nodes.csv) so that the peer lays out the same tree;
// scripts/peer-layout runs both and gives the ratio.
#include <benchmark/benchmark.h>
#include <pybind11/pybind11.h>

#include <filesystem>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <map>
#include <set>

#include "analysis/MCollapse.h"
#include "engine/MFlowManager.h"
#include "support/SyntheticData.h"
#include "views/core/MHebCore.h"
#include "views/core/MTableLensCore.h"
#include "views/core/MTreemapCore.h"

using namespace quorvel;
namespace py = pybind11;

namespace {

// A tree for the peer, as id, parent, size 1, beside an empty edge file
// unless one is written later.
void writePeerTree(const std::string& dir, const THierarchyData& tree) {
  std::filesystem::create_directories(dir);
  std::ofstream out(dir + "/nodes.csv");
  std::vector<const THierarchyRow*> stack;
  for (const auto& r : tree.m_Rows) {
    while (!stack.empty() && !(stack.back()->lft < r.lft && stack.back()->rgt > r.rgt)) stack.pop_back();
    out << r.nid << ",";
    if (!stack.empty()) out << stack.back()->nid;
    out << ",1\n";
    stack.push_back(&r);
  }
  if (!std::filesystem::exists(dir + "/edges.csv")) std::ofstream(dir + "/edges.csv") << "";
}

struct TVisibleTree {
  std::shared_ptr<THierarchyData> full, visible;
  std::shared_ptr<TAggLftData> agglft;
  std::shared_ptr<TBoolAttributeData> collapsed;
};

// The first hierarchy of the synthetic dataset, folded at the deepest level
// that leaves at most `limit` nodes visible.
const TVisibleTree& visibleTree(uint32_t nodes, size_t limit) {
  static std::map<uint32_t, TVisibleTree> cache;
  auto it = cache.find(nodes);
  if (it != cache.end()) return it->second;
  TVisibleTree t;
  t.full = bench::loadSyntheticDataset(nodes, nodes * 3).hierarchy;
  auto levels = extractLevels(*t.full);
  std::map<int32_t, size_t> perLevel;
  for (const auto& r : t.full->m_Rows) {
    bool found = false;
    ++perLevel[levels->getValueById(r.nid, found)];
  }
  int32_t fold = 0;
  size_t shown = 0;
  for (const auto& [level, count] : perLevel) {
    if (shown + count > limit) break;
    shown += count;
    fold = level;
  }
  // Then unfold nodes of that level, in row order, while their children
  // still fit.
  std::map<uint32_t, size_t> childCount;
  uint32_t lastAtFold = 0;
  for (const auto& r : t.full->m_Rows) {
    bool found = false;
    const int32_t level = levels->getValueById(r.nid, found);
    if (level == fold) lastAtFold = r.nid;
    if (level == fold + 1) ++childCount[lastAtFold];
  }
  std::set<uint32_t> unfolded;
  for (const auto& [nid, count] : childCount)
    if (shown + count <= limit) {
      shown += count;
      unfolded.insert(nid);
    }
  t.collapsed = std::make_shared<TBoolAttributeData>("collapsed");
  for (const auto& r : t.full->m_Rows) {
    bool found = false;
    t.collapsed->addRow(r.nid, levels->getValueById(r.nid, found) >= fold && !unfolded.count(r.nid));
  }
  auto c = collapseHierarchy(*t.full, *t.collapsed, "visible");
  t.visible = c.hierarchy;
  t.agglft = c.agglft;

  // The same tree for the peer.
  writePeerTree("peer-" + std::to_string(nodes), *t.visible);
  return cache[nodes] = t;
}

void BM_HebLayout(benchmark::State& state) {
  const TVisibleTree& t = visibleTree(static_cast<uint32_t>(state.range(0)), 20000);
  auto fm = makeFlowManager(false);
  auto proc = fm->constructProcessor<THebProcessorCpp>();
  THebProcessorImplementationCpp impl(proc.get(), std::make_shared<TLabelCache>());
  impl.m_Animate = false;
  proc->m_Hierarchy->setData(t.full);
  proc->m_HierarchyCollapsed->setData(t.visible);
  proc->m_Collapsed->setData(t.collapsed);
  proc->m_AggLft->setData(t.agglft);
  for (auto _ : state) {
    // A changed fold state, as the network delivers it.
    proc->m_AggLft->m_DataHasChanged = true;
    impl.prepareRendering(1024, 768);
    benchmark::DoNotOptimize(impl.processNodes());
    proc->m_PinsToReset.clear();
    impl.m_RecomputeNodeVisuals = false;
  }
  // What the node records take: the map's nodes and buckets, the row list
  // and the child list.
  size_t bytes = impl.m_NodeMap.bucket_count() * sizeof(void*) + impl.m_Rows.capacity() * sizeof(void*) +
                 impl.m_ChildList.capacity() * sizeof(void*);
  // A node of the map: the link, the key (padded) and the record.
  bytes += impl.m_NodeMap.size() * (sizeof(void*) + sizeof(std::pair<const uint32_t, TVisualNode>));
  state.counters["visible"] = static_cast<double>(t.visible->getRowCount());
  state.counters["bytes/node"] = static_cast<double>(bytes) / static_cast<double>(impl.m_NodeMap.size());
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(t.visible->getRowCount()));
}
BENCHMARK(BM_HebLayout)->Arg(20000)->Arg(1000000)->Unit(benchmark::kMillisecond);

// Counts what the edge drawing sends.
struct TCountingSink : TNullDrawSink {
  size_t vertices = 0, strips = 0;
  void begin(Primitive) override { ++strips; }
  void vertex(float, float) override { ++vertices; }
  // As OpenGL takes client arrays: one call a primitive.
  void coloredVertices(Primitive, size_t count, const float*, const float*) override {
    ++strips;
    vertices += count;
  }
};

// The system's C headers as the loader reads them.
const bench::TLoadedDataset& headersDataset() {
  static const bench::TLoadedDataset d = bench::loadDataset(bench::headersDataset());
  return d;
}

// Bundled edges on a real source tree, every node shown: the paths of the
// first 5,000 edges through their lowest common ancestors, their splines
// and colours, into a sink that counts the vertices. Writes the tree and
// the same edges for the peer (peer-headers/).
void BM_HebEdges(benchmark::State& state) {
  const auto& d = headersDataset();
  auto fm = makeFlowManager(false);
  auto proc = fm->constructProcessor<THebProcessorCpp>();
  THebProcessorImplementationCpp impl(proc.get(), std::make_shared<TLabelCache>());
  TCountingSink sink;
  impl.m_Sink = &sink;
  impl.m_Animate = false;
  auto collapsed = std::make_shared<TBoolAttributeData>("collapsed");
  auto agglft = std::make_shared<TAggLftData>();
  for (const auto& r : d.hierarchy->m_Rows) {
    collapsed->addRow(r.nid, false);
    agglft->addRow(r.lft, r.lft);
  }
  auto edges = std::make_shared<TEdgeCollapsedData>();
  auto colors = std::make_shared<TEdgeColorData>();
  const size_t limit = static_cast<size_t>(state.range(0));
  std::ofstream peerEdges;
  std::filesystem::create_directories("peer-headers");
  peerEdges.open("peer-headers/edges.csv");
  size_t used = 0;
  for (const TEdgeRow& e : d.edges->m_Rows) {
    if (used == limit) break;
    bool f1 = false, f2 = false;
    const uint32_t a = d.hierarchy->getLftByNid(e.fromnid, f1), b = d.hierarchy->getLftByNid(e.tonid, f2);
    if (!f1 || !f2) continue;
    edges->addEdge(e.eid, a, b);
    peerEdges << e.fromnid << "," << e.tonid << "\n";
    ++used;
  }
  for (const auto& r : edges->m_Records) colors->addRecord(r.smallerlft, r.largerlft, {1, 0, 0, 1}, {0, 0, 1, 1});
  writePeerTree("peer-headers", *d.hierarchy);
  proc->m_Hierarchy->setData(d.hierarchy);
  proc->m_HierarchyCollapsed->setData(d.hierarchy);
  proc->m_Collapsed->setData(collapsed);
  proc->m_AggLft->setData(agglft);
  proc->m_EdgeCollapsed->setData(edges);
  proc->m_EdgeColors->setData(colors);
  proc->m_AggLft->m_DataHasChanged = true;
  impl.prepareRendering(1024, 768);
  impl.processNodes();
  for (auto _ : state) {
    proc->m_EdgeCollapsed->m_DataHasChanged = true;
    benchmark::DoNotOptimize(impl.processEdges());
    sink.vertices = sink.strips = 0;
    impl.renderBackgroundEdges();
  }
  state.counters["edges"] = static_cast<double>(used);
  state.counters["records"] = static_cast<double>(edges->getRecordCount());
  state.counters["vertices"] = static_cast<double>(sink.vertices);
  state.counters["nodes"] = static_cast<double>(d.hierarchy->getRowCount());
}
BENCHMARK(BM_HebEdges)->Arg(5000)->Unit(benchmark::kMillisecond);

// The treemap of the whole synthetic tree, every node a group and every
// leaf of area 1, on a canvas of 1024 x 768: the tiles made and laid out,
// as a change of the tree makes them, by two threads or by one. Writes the
// tree for the peer (peer-treemap-N/).
void BM_TreemapLayout(benchmark::State& state) {
  const uint32_t nodes = static_cast<uint32_t>(state.range(0));
  static std::map<uint32_t, bench::TLoadedDataset> cache;
  if (!cache.count(nodes)) cache[nodes] = bench::loadSyntheticDataset(nodes, nodes * 3);
  const auto& d = cache[nodes];
  const std::string dir = "peer-treemap-" + std::to_string(nodes);
  if (!std::filesystem::exists(dir + "/nodes.csv")) writePeerTree(dir, *d.hierarchy);
  auto fm = makeFlowManager(false);
  auto proc = fm->constructProcessor<TTreemapProcessorCpp>();
  TTreemapProcessorImplementationCpp impl(proc.get(), std::make_shared<TLabelCache>());
  if (state.range(1) == 1) impl.m_TilesForTwoThreads = std::numeric_limits<size_t>::max();
  auto collapsed = std::make_shared<TBoolAttributeData>("collapsed");
  auto agglft = std::make_shared<TAggLftData>();
  for (const auto& r : d.hierarchy->m_Rows) {
    collapsed->addRow(r.nid, false);
    agglft->addRow(r.lft, r.lft);
  }
  auto all = std::make_shared<TIntegerSetData>();
  all->m_ContainsAll = true;
  proc->m_Hierarchy->setData(d.hierarchy);
  proc->m_HierarchyCollapsed->setData(d.hierarchy);
  proc->m_AggLft->setData(agglft);
  proc->m_Collapsed->setData(collapsed);
  proc->m_Flatten->setData(all);
  // One layout before the clock runs, as the view has made one before any
  // change: the tile lists then stand in memory already.
  impl.prepareRendering(1024, 768);
  impl.process();
  for (auto _ : state) {
    proc->m_AggLft->m_DataHasChanged = true;
    impl.prepareRendering(1024, 768);
    impl.process();
    proc->m_PinsToReset.clear();
  }
  const double bytes = static_cast<double>(impl.stateBytes());
  state.counters["nodes"] = static_cast<double>(impl.m_Nodes.size());
  state.counters["bytes/node"] = bytes / static_cast<double>(impl.m_Nodes.size());
}
BENCHMARK(BM_TreemapLayout)->Args({1000000, 2})->Args({1000000, 1})->Unit(benchmark::kMillisecond);

// A table lens on every node of the synthetic tree with its eight columns.
struct TTableBench {
  std::shared_ptr<TFlowManager> fm = makeFlowManager(false);
  std::shared_ptr<TTableLensProcessorCpp> proc = fm->constructProcessor<TTableLensProcessorCpp>();
  std::shared_ptr<TTableLensImplementationCpp> impl = std::make_shared<TTableLensImplementationCpp>(proc.get());
  static const bench::TLoadedDataset& dataset(uint32_t nodes) {
    static std::map<uint32_t, bench::TLoadedDataset> cache;
    if (!cache.count(nodes)) cache[nodes] = bench::loadDataset(bench::syntheticDataset(nodes, nodes, nullptr, 8));
    return cache[nodes];
  }
  explicit TTableBench(uint32_t nodes) {
    const auto& d = dataset(nodes);
    proc->m_Implementation = impl;
    proc->m_Attributes->setData(d.nodeAttributes);
    proc->m_Selection->setData(d.allNodes);
  }
};

// The rows in ascending id order with their lookup, and the value range of
// every column: what a new selection or new columns cost.
void BM_TableRows(benchmark::State& state) {
  TTableBench t(static_cast<uint32_t>(state.range(0)));
  for (auto _ : state) {
    t.impl->buildRow2Id();
    t.impl->computeMinMax();
  }
  const double rows = static_cast<double>(t.impl->m_Row2Id.size());
  const auto& map = t.impl->m_Id2Row;
  const double bytes = static_cast<double>(t.impl->m_Row2Id.capacity() * sizeof(uint32_t) +
                                           map.bucket_count() * sizeof(void*) +
                                           map.size() * (sizeof(std::pair<const uint32_t, uint32_t>) + 2 * sizeof(void*)));
  state.counters["rows"] = rows;
  state.counters["columns"] = static_cast<double>(t.impl->m_MinMax.size());
  state.counters["bytes/row"] = bytes / rows;
}
BENCHMARK(BM_TableRows)->Arg(1000000)->Unit(benchmark::kMillisecond);

// A sort by one column, against std::stable_sort of the same ids by the
// same values read once into an array.
void BM_TableSort(benchmark::State& state) {
  TTableBench t(1000000);
  t.impl->buildRow2Id();
  const std::string key = "lines";
  auto column = t.dataset(1000000).nodeAttributes->itemByKeyAs<TAttributeData>(key);
  if (!column) return state.SkipWithError("no column 'lines'");
  const bool bare = state.range(0) != 0;
  t.proc->m_Sort->setData(std::make_shared<TPythonData>(
      TPyRef::steal(py::make_tuple(py::make_tuple(key, true)).release().ptr())));
  const std::vector<uint32_t> ascending = t.impl->m_Row2Id;
  for (auto _ : state) {
    t.impl->m_Row2Id = ascending;
    if (!bare) {
      t.impl->applySort();
    } else {
      std::vector<std::pair<float, uint32_t>> keyed;
      keyed.reserve(ascending.size());
      for (uint32_t id : ascending) {
        bool found = false;
        const float v = column->getFloatValueById(id, found);
        keyed.emplace_back(found ? v : -std::numeric_limits<float>::infinity(), id);
      }
      std::stable_sort(keyed.begin(), keyed.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
      for (size_t i = 0; i < keyed.size(); ++i) t.impl->m_Row2Id[i] = keyed[i].second;
      t.impl->buildId2Row();
    }
  }
  state.counters["rows"] = static_cast<double>(ascending.size());
}
BENCHMARK(BM_TableSort)->ArgName("bare")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

}  // namespace
