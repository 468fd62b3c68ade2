// Loading synthetic datasets through the dataset loader, against reading the
// same tables' rows with plain SELECTs, and the peak memory of a load;
// opening a dataset through BMain until the network is quiet.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>

#include "MSyntheticDataset.h"
#include "support/SyntheticData.h"
#include "dataset/MDatasetLoader.h"
#include "dataset/MXmlReader.h"
#include "engine/MLibrary.h"
#include "engine/MMediator.h"

using namespace quorvel;

namespace {

struct Size {
  uint32_t nodes;
  uint32_t edges;
};

std::string datasetFor(const Size& s, TSyntheticCounts* counts = nullptr) {
  return bench::syntheticDataset(s.nodes, s.edges, counts);
}

Size sizeOf(const benchmark::State& state) {
  return {static_cast<uint32_t>(state.range(0)), static_cast<uint32_t>(state.range(1))};
}

// Times `work` in each iteration as the benchmark's time, and the bare scan
// of the same file after it, outside that time; reports both, their ratio
// and the peak memory `work` added against the budget.
template <class F>
void timeAgainstScan(benchmark::State& state, const std::string& file, const TSyntheticCounts& counts, F work) {
  double peakBytes = 0.0;
  double seconds = 0.0;
  double scanSeconds = 0.0;
  for (auto _ : state) {
    // Freed memory that the allocator kept would count as the baseline of
    // the next iteration and hide its peak.
    malloc_trim(0);
    const long before = bench::statusKb("VmRSS:");
    bench::resetPeakMemory();
    auto t0 = std::chrono::steady_clock::now();
    work([&] { peakBytes = std::max(peakBytes, 1024.0 * static_cast<double>(bench::statusKb("VmHWM:") - before)); });
    const double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    state.SetIterationTime(s);
    seconds += s;
    t0 = std::chrono::steady_clock::now();
    benchmark::DoNotOptimize(bench::plainScan(file));
    scanSeconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  }
  const double budget = bench::memoryBudget(counts);
  state.counters["scan_ms"] = benchmark::Counter(1000.0 * scanSeconds, benchmark::Counter::kAvgIterations);
  state.counters["of_scan"] = seconds / scanSeconds;
  state.counters["peak_MB"] = peakBytes / 1e6;
  state.counters["budget_MB"] = budget / 1e6;
  state.counters["peak_of_budget"] = peakBytes / budget;
}

// A synthetic dataset of the benchmark's size, or the system's C headers
// imported when the size is 0.
std::string datasetOf(const benchmark::State& state, TSyntheticCounts& counts) {
  if (state.range(0) == 0) {
    const std::string file = bench::headersDataset();
    counts = bench::countRows(file);
    return file;
  }
  return datasetFor(sizeOf(state), &counts);
}

void BM_LoadDataset(benchmark::State& state) {
  TSyntheticCounts counts;
  const std::string file = datasetOf(state, counts);
  timeAgainstScan(state, file, counts, [&](auto measurePeak) {
    TDatabase db(file);
    auto loader = std::make_shared<TDatasetLoader>();
    loader->postCreate();
    loader->readDatabase(db);
    benchmark::DoNotOptimize(loader->m_Edges->getData().get());
    measurePeak();
    loader->destroy();
  });
}

// Opening a dataset as the user does: BMain from the library with the file
// name on its port, the network run until it is quiet.
void BM_OpenDataset(benchmark::State& state) {
  TSyntheticCounts counts;
  const std::string file = datasetOf(state, counts);
  auto savedLib = me.flowlib;
  auto savedLayout = me.flowlayout;
  me.flowlib = makeFlowManager(false);
  if (!std::filesystem::exists("library") || !loadLibrary(*me.flowlib, "library")) buildLibrary(*me.flowlib);
  timeAgainstScan(state, file, counts, [&](auto measurePeak) {
    me.flowlayout = makeFlowManager(true);
    instantiateLibBox("BMain", {{{"dataset filename", file}}, {}});
    doflow(*me.flowlayout);
    measurePeak();
    if (me.manualupdate) state.SkipWithError("the network did not come to rest");
    me.flowlayout->destroy();
  });
  me.flowlib->destroy();
  me.flowlib = savedLib;
  me.flowlayout = savedLayout;
}

// Every row of the four tables stepped through, every column read.
void BM_PlainSelect(benchmark::State& state) {
  const std::string file = datasetFor(sizeOf(state));
  for (auto _ : state) benchmark::DoNotOptimize(bench::plainScan(file));
}

// One attribute value of the given size in MiB: converting must stay linear
// in its length.
void BM_XmlLargeAttributeValue(benchmark::State& state) {
  const std::string file = "large-attribute-" + std::to_string(state.range(0)) + ".xml";
  {
    std::ofstream out(file, std::ios::binary);
    out << "<?xml version=\"1.0\"?>\n<dataset><nodes><node nid=\"1\"><attribute key=\"name\" value=\"";
    const std::string block(1 << 20, 'a');
    for (int64_t i = 0; i < state.range(0); ++i) out << block;
    out << "\" type=\"string\"/></node></nodes></dataset>\n";
  }
  for (auto _ : state) benchmark::DoNotOptimize(TXmlReader(file).convertToDatabase().get());
  state.SetBytesProcessed(state.iterations() * state.range(0) * (1 << 20));
  std::filesystem::remove(file);
}

}  // namespace

BENCHMARK(BM_XmlLargeAttributeValue)->Arg(10)->Arg(40)->Arg(200)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(BM_PlainSelect)->Args({100000, 300000})->Args({1000000, 3000000})->Unit(benchmark::kMillisecond)->Iterations(3);
// Nodes and edges of a synthetic dataset, or 0, 0 for the system's C
// headers; timed by hand against the bare scan.
static void datasets(benchmark::internal::Benchmark* b) {
  b->Args({100000, 300000})->Args({1000000, 3000000})->Args({0, 0})->UseManualTime()->Unit(benchmark::kMillisecond);
}
BENCHMARK(BM_LoadDataset)->Apply(datasets)->Iterations(3);
BENCHMARK(BM_OpenDataset)->Apply(datasets)->Iterations(3);
