// Loading synthetic datasets through the dataset loader, against reading the
// same tables' rows with plain SELECTs, and the peak memory of a load.
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <cstring>
#include <filesystem>
#include <map>
#include <fstream>
#include <string>

#include "MSyntheticDataset.h"
#include "support/SyntheticData.h"
#include "dataset/MDatasetLoader.h"
#include "dataset/MXmlReader.h"

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

long statusKb(const char* field) {
  std::ifstream in("/proc/self/status");
  std::string line;
  while (std::getline(in, line))
    if (line.rfind(field, 0) == 0) return std::stol(line.substr(std::strlen(field)));
  return 0;
}

void resetPeak() { std::ofstream("/proc/self/clear_refs") << "5"; }

void BM_LoadDataset(benchmark::State& state) {
  TSyntheticCounts counts;
  const std::string file = datasetFor(sizeOf(state), &counts);
  double peakBytes = 0.0;
  for (auto _ : state) {
    const long before = statusKb("VmRSS:");
    resetPeak();
    {
      TDatabase db(file);
      auto loader = std::make_shared<TDatasetLoader>();
      loader->postCreate();
      loader->readDatabase(db);
      benchmark::DoNotOptimize(loader->m_Edges->getData().get());
      peakBytes = std::max(peakBytes, 1024.0 * static_cast<double>(statusKb("VmHWM:") - before));
      loader->destroy();
    }
  }
  const double budget =
      150.0 * counts.nodes + 60.0 * counts.edges + 40.0 * static_cast<double>(counts.nodeValues + counts.edgeValues);
  state.counters["peak_MB"] = peakBytes / 1e6;
  state.counters["budget_MB"] = budget / 1e6;
  state.counters["peak_of_budget"] = peakBytes / budget;
}

// Every row of the four tables stepped through, every column read.
void BM_PlainSelect(benchmark::State& state) {
  const std::string file = datasetFor(sizeOf(state));
  for (auto _ : state) {
    sqlite3* db = nullptr;
    sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
    int64_t sum = 0;
    for (const char* q : {"SELECT hid,nid,parentnid,childorder FROM hierarchy", "SELECT nid,key,value FROM nodeattr",
                          "SELECT eid,key,value FROM edgeattr", "SELECT eid,fromnid,tonid FROM edges"}) {
      sqlite3_stmt* stmt = nullptr;
      sqlite3_prepare_v2(db, q, -1, &stmt, nullptr);
      while (sqlite3_step(stmt) == SQLITE_ROW) {
        for (int c = 0; c < sqlite3_column_count(stmt); ++c) {
          if (sqlite3_column_type(stmt, c) == SQLITE_TEXT)
            sum += sqlite3_column_bytes(stmt, c);
          else
            sum += sqlite3_column_int64(stmt, c);
        }
      }
      sqlite3_finalize(stmt);
    }
    sqlite3_close_v2(db);
    benchmark::DoNotOptimize(sum);
  }
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
BENCHMARK(BM_LoadDataset)->Args({100000, 300000})->Args({1000000, 3000000})->Unit(benchmark::kMillisecond)->Iterations(3);
