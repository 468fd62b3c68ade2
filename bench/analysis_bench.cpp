// The collapse processor, edge aggregation and edge colours on a dataset of
// a million nodes and three million edges, after a collapse near the root
// and near a leaf; ordnorm of a large text column.
#include <benchmark/benchmark.h>
#include <pybind11/eval.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <random>

#include "analysis/MAttributeDerivation.h"
#include "analysis/MCollapse.h"
#include "analysis/MEdgeAggregation.h"
#include "analysis/MInspectors.h"
#include "analysis/MSelection.h"
#include "engine/MFlowManager.h"
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

// Folded states by the second argument of a case: 1 nothing folded but a
// child of the root (a large subtree), 0 nothing but the parent of the
// deepest leaf (a small one), 2 every node below the level a dataset first
// opens at (a first picture of at most 1,000 nodes).
std::shared_ptr<TBoolAttributeData> foldedState(const THierarchyData& h, int64_t fold) {
  auto state = std::make_shared<TBoolAttributeData>("collapsed");
  state->reserve(h.getRowCount());
  if (fold == 2) {
    auto levels = extractLevels(h);
    const int32_t level = chooseExpandLevel(nodesPerLevel(*levels), 1000);
    bool found = false;
    for (const auto& r : h.m_Rows) state->addRow(r.nid, levels->getValueById(r.nid, found) > level);
    return state;
  }
  const bool nearRoot = fold != 0;
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
  auto folded = foldedState(*l.hierarchy, state.range(1));
  size_t visible = 0;
  timeAgainstPass(state, passSeconds(l.hierarchy->m_Rows, folded->m_Rows), [&] {
    auto r = collapseHierarchy(*l.hierarchy, *folded, "c");
    visible = r.hierarchy->getRowCount();
    benchmark::DoNotOptimize(r.agglft.get());
  });
  state.counters["visible"] = static_cast<double>(visible);
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(l.hierarchy->getRowCount()));
}

// The automatic first level: the count of nodes on each level and the
// choice, against the collapse pass that follows it in the same run.
void BM_AutoExpandLevel(benchmark::State& state) {
  const Loaded& l = loaded(static_cast<uint32_t>(state.range(0)));
  auto levels = extractLevels(*l.hierarchy);
  int32_t level = 0;
  double chosen = 0;
  for (auto _ : state) {
    const auto t = std::chrono::steady_clock::now();
    level = chooseExpandLevel(nodesPerLevel(*levels), 1000);
    benchmark::DoNotOptimize(level);
    const double spent = std::chrono::duration<double>(std::chrono::steady_clock::now() - t).count();
    state.SetIterationTime(spent);
    chosen += spent;
  }
  auto folded = std::make_shared<TBoolAttributeData>("collapsed");
  bool found = false;
  for (const auto& row : l.hierarchy->m_Rows) folded->addRow(row.nid, levels->getValueById(row.nid, found) > level);
  const auto start = std::chrono::steady_clock::now();
  const int passes = 5;
  size_t visible = 0;
  for (int i = 0; i < passes; ++i) visible = collapseHierarchy(*l.hierarchy, *folded, "c").hierarchy->getRowCount();
  const double collapse = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() / passes;
  state.counters["level"] = level;
  state.counters["visible"] = static_cast<double>(visible);
  state.counters["collapse_ms"] = collapse * 1000;
  state.counters["share_of_collapse"] = chosen / static_cast<double>(state.iterations()) / collapse;
}

void BM_EdgeAggregation(benchmark::State& state) {
  const Loaded& l = loaded(static_cast<uint32_t>(state.range(0)));
  auto folded = foldedState(*l.hierarchy, state.range(1));
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
  auto folded = foldedState(*l.hierarchy, state.range(1));
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

// A million ids with a text column of ten kinds and an integer column of
// a hundred sizes, and a float column, in shuffled row order.
struct FilterData {
  std::shared_ptr<TIntegerSetData> ids = std::make_shared<TIntegerSetData>();
  std::shared_ptr<TStringAttributeData> kind = std::make_shared<TStringAttributeData>("kind");
  std::shared_ptr<TIntegerAttributeData> size = std::make_shared<TIntegerAttributeData>("size");
  std::shared_ptr<TFloatAttributeData> weight = std::make_shared<TFloatAttributeData>("weight");
  std::shared_ptr<TAttributeDataArray> attributes = std::make_shared<TAttributeDataArray>();
  explicit FilterData(uint32_t n) {
    std::mt19937 rng(7);
    std::vector<uint32_t> order(n);
    for (uint32_t i = 0; i < n; ++i) order[i] = i + 1;
    std::shuffle(order.begin(), order.end(), rng);
    kind->reserve(n);
    size->reserve(n);
    weight->reserve(n);
    for (uint32_t id : order) {
      kind->addRow(id, "kind" + std::to_string(id % 10));
      size->addRow(id, static_cast<int32_t>(id % 100));
      weight->addRow(id, static_cast<float>(id % 1000) / 10.0f);
    }
    for (uint32_t i = 1; i <= n; ++i) ids->add(i);
    attributes->add(kind);
    attributes->add(size);
    attributes->add(weight);
  }
};

const FilterData& filterData() {
  static const FilterData data(1000000);
  return data;
}

// TSelector1 with two checked attributes, three kinds and fifty sizes.
void BM_NodeFilter(benchmark::State& state) {
  const FilterData& d = filterData();
  auto fm = makeFlowManager(true);
  auto selector = fm->constructProcessor<TSelector1Cpp>();
  fm->addProcessor(selector);
  selector->m_Selection->setData(d.ids);
  selector->m_Attributes->setData(d.attributes);
  selector->m_Settings->setData(std::make_shared<TPythonData>(TPyRef::steal(pybind11::dict().release().ptr())));
  std::string filter = "{'pass': 2, 'key_op': 'and', 'attributes': {'kind': {'checked': True, 'values': "
                       "{'kind1': True, 'kind4': True, 'kind7': True}}, 'size': {'checked': True, 'values': {";
  for (int v = 0; v < 100; v += 2) filter += std::to_string(v) + ": True, ";
  filter += "}}}}";
  selector->m_Filter->setData(std::make_shared<TPythonData>(TPyRef::steal(pybind11::eval(filter).release().ptr())));
  for (auto _ : state) {
    selector->process();
    benchmark::DoNotOptimize(selector->m_Output->getData().get());
  }
  state.counters["passed"] = static_cast<double>(dataAs<TIntegerSetData>(selector->m_Output)->getCount());
  state.SetItemsProcessed(state.iterations() * d.ids->getCount());
  fm->release();
}

// The floor: every id's two values read, the same test made by hand.
void BM_NodeFilterBareLoop(benchmark::State& state) {
  const FilterData& d = filterData();
  for (auto _ : state) {
    auto out = std::make_shared<TIntegerSetData>();
    out->m_Set.reserve(d.ids->getCount());
    for (uint32_t id : d.ids->m_Set) {
      const auto* stored = d.kind->findStored(id);
      bool found = false;
      const int32_t size = d.size->getValueById(id, found);
      if (!stored || !found) continue;
      const auto text = d.kind->viewOf(*stored);
      if ((text == "kind1" || text == "kind4" || text == "kind7") && size % 2 == 0) out->m_Set.insert(id);
    }
    benchmark::DoNotOptimize(out.get());
  }
  state.SetItemsProcessed(state.iterations() * d.ids->getCount());
}

// TSelector2 on the float column, and its floor.
void BM_RangeFilter(benchmark::State& state) {
  const FilterData& d = filterData();
  auto fm = makeFlowManager(true);
  auto selector = fm->constructProcessor<TSelector2>();
  fm->addProcessor(selector);
  selector->m_Selection->setData(d.ids);
  selector->m_Attribute->setData(d.weight);
  selector->m_Range->setData(std::make_shared<TFloatPairData>(20.0f, 60.0f));
  for (auto _ : state) {
    selector->m_Selection->touch();
    selector->process();
    benchmark::DoNotOptimize(selector->m_Output->getData().get());
  }
  state.SetItemsProcessed(state.iterations() * d.ids->getCount());
  fm->release();
}

void BM_RangeFilterBareLoop(benchmark::State& state) {
  const FilterData& d = filterData();
  for (auto _ : state) {
    auto out = std::make_shared<TIntegerSetData>();
    for (uint32_t id : d.ids->m_Set) {
      bool found = false;
      const float v = d.weight->getFloatValueById(id, found);
      if (found && v >= 20.0f && v <= 60.0f) out->m_Set.insert(id);
    }
    benchmark::DoNotOptimize(out.get());
  }
  state.SetItemsProcessed(state.iterations() * d.ids->getCount());
}

// Eight attributes over the million ids of the filter data: three texts
// (ten kinds, fifty owners, ten thousand names), three integers and two
// floats, as hovering the root of a large dataset with Shift brushes them.
struct TooltipData {
  std::shared_ptr<TAttributeDataArray> attributes = std::make_shared<TAttributeDataArray>();
  TooltipData() {
    const FilterData& d = filterData();
    auto owner = std::make_shared<TStringAttributeData>("owner");
    auto name = std::make_shared<TStringAttributeData>("name");
    auto lines = std::make_shared<TIntegerAttributeData>("lines");
    auto depth = std::make_shared<TIntegerAttributeData>("depth");
    auto ratio = std::make_shared<TFloatAttributeData>("ratio");
    for (uint32_t id : d.ids->m_Set) {
      owner->addRow(id, "owner" + std::to_string(id % 50));
      name->addRow(id, "name_" + std::to_string(id % 10000));
      lines->addRow(id, static_cast<int32_t>(id % 3000));
      depth->addRow(id, static_cast<int32_t>(id % 12));
      ratio->addRow(id, static_cast<float>(id % 997) / 997.0f);
    }
    for (const TDataPtr& c : std::initializer_list<TDataPtr>{d.kind, d.size, d.weight, owner, name, lines, depth, ratio})
      attributes->add(c);
  }
};

const TooltipData& tooltipData() {
  static const TooltipData data;
  return data;
}

// The summary text of a million brushed ids.
void BM_TooltipSummary(benchmark::State& state) {
  const TooltipData& t = tooltipData();
  const TIdSet& ids = filterData().ids->m_Set;
  for (auto _ : state) benchmark::DoNotOptimize(makeText("node", ids, *t.attributes, nullptr));
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(ids.size()));
}

// The floor: each attribute's value read for each id, texts by their bytes.
void BM_TooltipSummaryBareLoop(benchmark::State& state) {
  const TooltipData& t = tooltipData();
  const TIdSet& ids = filterData().ids->m_Set;
  for (auto _ : state) {
    double sum = 0;
    for (const TDataPtr& item : t.attributes->m_Items) {
      if (auto* text = dynamic_cast<const TStringAttributeData*>(item.get())) {
        for (uint32_t id : ids)
          if (const auto* s = text->findStored(id)) sum += static_cast<double>(text->viewOf(*s).front());
      } else if (auto* i = dynamic_cast<const TIntegerAttributeData*>(item.get())) {
        for (uint32_t id : ids)
          if (const auto* v = i->findStored(id)) sum += *v;
      } else if (auto* f = dynamic_cast<const TFloatAttributeData*>(item.get())) {
        for (uint32_t id : ids)
          if (const auto* v = f->findStored(id)) sum += *v;
      }
    }
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(ids.size()));
}

// One hovered id: from the brushed set to the text.
void BM_TooltipSingle(benchmark::State& state) {
  const TooltipData& t = tooltipData();
  const TIdSet one{424242};
  for (auto _ : state) benchmark::DoNotOptimize(makeText("node", one, *t.attributes, nullptr));
}

}  // namespace

BENCHMARK(BM_NodeFilter)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_NodeFilterBareLoop)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RangeFilter)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RangeFilterBareLoop)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_TooltipSummary)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_TooltipSummaryBareLoop)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_TooltipSingle)->Unit(benchmark::kMicrosecond);

// Arguments: nodes (with three times as many edges), and the folded state
// of foldedState.
static void foldCases(benchmark::internal::Benchmark* b) {
  b->Args({100000, 1})->Args({1000000, 1})->Args({1000000, 0})->Args({1000000, 2})->Unit(benchmark::kMillisecond);
}
BENCHMARK(BM_Collapse)->Apply(foldCases)->UseManualTime();
BENCHMARK(BM_EdgeAggregation)->Apply(foldCases)->UseManualTime();
BENCHMARK(BM_AutoExpandLevel)->Arg(1000000)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_EdgeColors)->Apply(foldCases);
BENCHMARK(BM_OrdnormStrings)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);
