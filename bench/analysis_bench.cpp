// The collapse processor, edge aggregation and edge colours on a dataset of
// a million nodes and three million edges, after a collapse near the root
// and near a leaf; ordnorm of a large text column.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <random>

#include "analysis/MAttributeDerivation.h"
#include "analysis/MCollapse.h"
#include "analysis/MEdgeAggregation.h"
#include "support/SyntheticData.h"

using namespace quorvel;

namespace {

struct Loaded {
  std::shared_ptr<THierarchyData> hierarchy;
  std::shared_ptr<TEdgeData> edges;
  std::shared_ptr<TIntegerSetData> allEdges;
  std::shared_ptr<TAttributeData> weight;
};

const Loaded& loaded(uint32_t nodes) {
  static std::map<uint32_t, Loaded> cache;
  auto it = cache.find(nodes);
  if (it != cache.end()) return it->second;
  const bench::TLoadedDataset d = bench::loadSyntheticDataset(nodes, nodes * 3);
  return cache[nodes] = Loaded{d.hierarchy, d.edges, d.allEdges, d.edgeAttributes->itemByKeyAs<TAttributeData>("weight")};
}

// Nothing folded but one node: a child of the root (a large subtree), or the
// parent of the deepest leaf (a small one).
std::shared_ptr<TBoolAttributeData> foldedState(const THierarchyData& h, bool nearRoot) {
  auto state = std::make_shared<TBoolAttributeData>("collapsed");
  state->reserve(h.getRowCount());
  for (const auto& r : h.m_Rows) state->addRow(r.nid, false);
  uint32_t target = h.m_Rows[2].nid;
  if (!nearRoot) {
    size_t deepest = 1;
    size_t depthOfDeepest = 0;
    for (size_t i = 1; i < h.getRowCount(); ++i) {
      const size_t depth = h.getNidsAboveNid(h.m_Rows[i].nid).size();
      if (depth > depthOfDeepest) {
        depthOfDeepest = depth;
        deepest = i;
      }
      if (i > 20000) break;  // the first deep node is deep enough
    }
    target = h.getNidsAboveNid(h.m_Rows[deepest].nid)[1];
  }
  state->setValueById(target, true);
  return state;
}

// The floor of work that must read these rows: one pass that sums every
// word of them, best of five.
template <class... Rows>
double passSeconds(const Rows&... rows) {
  double best = 1e9;
  for (int i = 0; i < 5; ++i) {
    const auto start = std::chrono::steady_clock::now();
    uint64_t sum = 0;
    auto add = [&sum](const auto& v) {
      const auto* words = reinterpret_cast<const uint32_t*>(v.data());
      const size_t n = v.size() * sizeof(v[0]) / sizeof(uint32_t);
      for (size_t w = 0; w < n; ++w) sum += words[w];
    };
    (add(rows), ...);
    benchmark::DoNotOptimize(sum);
    best = std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  }
  return best;
}

// Runs `work` as the timed body and reports its time against the pass over
// its input rows, as of_pass.
template <class F>
void timeAgainstPass(benchmark::State& state, double floor, F&& work) {
  double total = 0.0;
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    work();
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    state.SetIterationTime(seconds);
    total += seconds;
  }
  state.counters["pass_ms"] = floor * 1e3;
  state.counters["of_pass"] = total / static_cast<double>(state.iterations()) / floor;
}

void BM_Collapse(benchmark::State& state) {
  const Loaded& l = loaded(static_cast<uint32_t>(state.range(0)));
  auto folded = foldedState(*l.hierarchy, state.range(1) != 0);
  size_t visible = 0;
  timeAgainstPass(state, passSeconds(l.hierarchy->m_Rows, folded->m_Rows), [&] {
    auto r = collapseHierarchy(*l.hierarchy, *folded, "c");
    visible = r.hierarchy->getRowCount();
    benchmark::DoNotOptimize(r.agglft.get());
  });
  state.counters["visible"] = static_cast<double>(visible);
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(l.hierarchy->getRowCount()));
}

void BM_EdgeAggregation(benchmark::State& state) {
  const Loaded& l = loaded(static_cast<uint32_t>(state.range(0)));
  auto folded = foldedState(*l.hierarchy, state.range(1) != 0);
  auto agglft = collapseHierarchy(*l.hierarchy, *folded, "c").agglft;
  size_t records = 0;
  timeAgainstPass(state, passSeconds(l.hierarchy->m_Rows, agglft->m_Rows, l.edges->m_Rows), [&] {
    auto out = aggregateEdges(*l.hierarchy, *agglft, *l.edges, *l.allEdges);
    records = out->getRecordCount();
  });
  state.counters["records"] = static_cast<double>(records);
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(l.edges->getRowCount()));
}

void BM_EdgeColors(benchmark::State& state) {
  const Loaded& l = loaded(static_cast<uint32_t>(state.range(0)));
  auto folded = foldedState(*l.hierarchy, state.range(1) != 0);
  auto agglft = collapseHierarchy(*l.hierarchy, *folded, "c").agglft;
  auto collapsed = aggregateEdges(*l.hierarchy, *agglft, *l.edges, *l.allEdges);
  auto ord = ordnorm(*l.weight);
  TColorMapData map("Rainbow", std::make_shared<TColorMap_Rainbow>(), ord->getMinimumValue(), ord->getMaximumValue());
  for (auto _ : state) benchmark::DoNotOptimize(colorEdges(*collapsed, *l.weight, *ord, map, "avg").get());
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(l.edges->getRowCount()));
}

void BM_OrdnormStrings(benchmark::State& state) {
  TStringAttributeData column("name");
  std::mt19937 rng(5);
  std::vector<uint32_t> order(static_cast<size_t>(state.range(0)));
  for (uint32_t i = 0; i < order.size(); ++i) order[i] = i;
  std::shuffle(order.begin(), order.end(), rng);
  column.reserve(order.size());
  for (uint32_t id : order) column.addRow(id + 1, "name_" + std::to_string(id % 10000));
  for (auto _ : state) benchmark::DoNotOptimize(ordnorm(column).get());
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

}  // namespace

// Arguments: nodes (with three times as many edges), and 1 for a collapse
// near the root, 0 for one near a leaf.
static void foldCases(benchmark::internal::Benchmark* b) {
  b->Args({100000, 1})->Args({1000000, 1})->Args({1000000, 0})->Unit(benchmark::kMillisecond);
}
BENCHMARK(BM_Collapse)->Apply(foldCases)->UseManualTime();
BENCHMARK(BM_EdgeAggregation)->Apply(foldCases)->UseManualTime();
BENCHMARK(BM_EdgeColors)->Apply(foldCases);
BENCHMARK(BM_OrdnormStrings)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);
