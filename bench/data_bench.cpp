// Building hierarchies and edge tables, subtree queries and column sorts at
// a million rows.
#include <benchmark/benchmark.h>

#include <random>
#include <unordered_map>

#include "data/MAttributes.h"
#include "data/MHierarchy.h"

using namespace quorvel;

namespace {

// Nested-set rows of a tree with the given fan-out, in lft order, with the
// synthetic root first.
std::vector<THierarchyRow> treeRows(uint32_t nodes, uint32_t fanout) {
  // Parent of node i (1-based, breadth-first numbering) is (i - 2) / fanout + 1.
  std::vector<std::vector<uint32_t>> children(nodes + 1);
  for (uint32_t i = 2; i <= nodes; ++i) children[(i - 2) / fanout + 1].push_back(i);
  std::vector<THierarchyRow> rows;
  rows.reserve(nodes + 1);
  rows.push_back({0, 1, 0});
  struct Frame {
    uint32_t nid;
    size_t row;
    size_t next;
  };
  uint32_t counter = 2;
  std::vector<Frame> stack;
  rows.push_back({1, counter++, 0});
  stack.push_back({1, 1, 0});
  while (!stack.empty()) {
    Frame& f = stack.back();
    if (f.next < children[f.nid].size()) {
      const uint32_t child = children[f.nid][f.next++];
      rows.push_back({child, counter++, 0});
      stack.push_back({child, rows.size() - 1, 0});
    } else {
      rows[f.row].rgt = counter++;
      stack.pop_back();
    }
  }
  rows[0].rgt = counter;
  return rows;
}

const std::vector<THierarchyRow>& millionRows() {
  static const auto rows = treeRows(1000000, 10);
  return rows;
}

void BM_HierarchyBuild(benchmark::State& state) {
  const auto& rows = millionRows();
  for (auto _ : state) {
    THierarchyData h("h");
    h.reserve(rows.size());
    for (const auto& r : rows) h.addRow(r.nid, r.lft, r.rgt);
    benchmark::DoNotOptimize(h.getRowCount());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(rows.size()));
}

// The yardstick: a vector fill of the same rows plus one hash insert per
// index, with the standard containers.
void BM_HierarchyBaseline(benchmark::State& state) {
  const auto& rows = millionRows();
  for (auto _ : state) {
    std::vector<THierarchyRow> v;
    std::unordered_map<uint32_t, uint32_t> byLft;
    std::unordered_map<uint32_t, uint32_t> byNid;
    v.reserve(rows.size());
    byLft.reserve(rows.size());
    byNid.reserve(rows.size());
    for (const auto& r : rows) {
      v.push_back(r);
      byLft[r.lft] = static_cast<uint32_t>(v.size() - 1);
      byNid[r.nid] = static_cast<uint32_t>(v.size() - 1);
    }
    benchmark::DoNotOptimize(v.data());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(rows.size()));
}

std::vector<TEdgeRow> edgeRows(uint32_t edges, uint32_t nodes) {
  std::mt19937 rng(7);
  std::uniform_int_distribution<uint32_t> pick(1, nodes);
  std::vector<TEdgeRow> out;
  out.reserve(edges);
  for (uint32_t e = 1; e <= edges; ++e) out.push_back({e, pick(rng), pick(rng)});
  return out;
}

const std::vector<TEdgeRow>& threeMillionEdges() {
  static const auto rows = edgeRows(3000000, 1000000);
  return rows;
}

void BM_EdgeTableBuild(benchmark::State& state) {
  const auto& rows = threeMillionEdges();
  for (auto _ : state) {
    TEdgeData e;
    e.reserve(rows.size());
    for (const auto& r : rows) e.addRow(r.eid, r.fromnid, r.tonid);
    benchmark::DoNotOptimize(e.getRowCount());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(rows.size()));
}

void BM_EdgeTableBaseline(benchmark::State& state) {
  const auto& rows = threeMillionEdges();
  for (auto _ : state) {
    std::vector<TEdgeRow> v;
    std::unordered_map<uint32_t, uint32_t> byEid;
    std::unordered_map<uint32_t, uint32_t> byFrom;
    std::unordered_map<uint32_t, uint32_t> byTo;
    v.reserve(rows.size());
    byEid.reserve(rows.size());
    for (const auto& r : rows) {
      v.push_back(r);
      const uint32_t row = static_cast<uint32_t>(v.size() - 1);
      byEid[r.eid] = row;
      byFrom[r.fromnid] = row;
      byTo[r.tonid] = row;
    }
    benchmark::DoNotOptimize(v.data());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(rows.size()));
}

std::shared_ptr<THierarchyData> millionHierarchy() {
  static auto h = [] {
    auto out = std::make_shared<THierarchyData>("h");
    for (const auto& r : millionRows()) out->addRow(r.nid, r.lft, r.rgt);
    return out;
  }();
  return h;
}

// Arg: how many node ids of a million are selected, in tenths of a percent.
void BM_NidsBelowNids(benchmark::State& state) {
  auto h = millionHierarchy();
  TIntegerSetData set;
  std::mt19937 rng(3);
  std::uniform_int_distribution<uint32_t> pick(1, 1000000);
  const int64_t n = state.range(0) * 1000;
  for (int64_t i = 0; i < n; ++i) set.add(pick(rng));
  if (n == 0) set.add(0);
  size_t out = 0;
  for (auto _ : state) {
    auto ids = h->getNidsBelowNids(set);
    out = ids.size();
    benchmark::DoNotOptimize(ids.data());
  }
  state.counters["result"] = static_cast<double>(out);
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(h->getRowCount()));
}

template <class Column, class MakeValue>
void sortBench(benchmark::State& state, MakeValue make) {
  Column column("c");
  std::mt19937 rng(11);
  std::vector<uint32_t> ids;
  for (uint32_t id = 1; id <= 1000000; ++id) {
    ids.push_back(id);
    if (id % 10 != 0) column.addRow(id, make(rng));  // one id in ten has no value
  }
  std::shuffle(ids.begin(), ids.end(), rng);
  for (auto _ : state) {
    state.PauseTiming();
    std::vector<uint32_t> work = ids;
    state.ResumeTiming();
    column.stable_sort(work, state.range(0) != 0);
    benchmark::DoNotOptimize(work.data());
  }
  state.SetItemsProcessed(state.iterations() * 1000000);
}

void BM_StableSortFloat(benchmark::State& state) {
  std::uniform_real_distribution<float> dist(0.0f, 1000.0f);
  sortBench<TFloatAttributeData>(state, [&dist](std::mt19937& rng) { return dist(rng); });
}

void BM_StableSortString(benchmark::State& state) {
  std::uniform_int_distribution<int> dist(0, 99999);
  sortBench<TStringAttributeData>(state,
                                  [&dist](std::mt19937& rng) { return "name_" + std::to_string(dist(rng)); });
}

}  // namespace

BENCHMARK(BM_HierarchyBuild)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_HierarchyBaseline)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_EdgeTableBuild)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_EdgeTableBaseline)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_NidsBelowNids)->Arg(0)->Arg(1)->Arg(100)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StableSortFloat)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StableSortString)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);
