// Cost of a pass over networks of 1 000 to 100 000 processors.
#include <benchmark/benchmark.h>

#include <cstdio>

#include "support/TestProcessors.h"

using namespace quorvel;
using namespace quorvel::test;

namespace {

// Processors in boxes of 100, joined in chains of 10, each with one input
// and one output pin; every chain starts at a source.
struct BenchNet {
  Net net;
  std::vector<std::shared_ptr<TSource>> sources;
  size_t pins = 0;

  explicit BenchNet(int processors) {
    TBoxPtr box;
    TPinPtr prev;
    for (int i = 0; i < processors; ++i) {
      if (i % 100 == 0) box = net.box(net.fm);
      if (i % 10 == 0) {
        auto s = net.add<TSource>(box, static_cast<float>(i % 100));
        sources.push_back(s);
        prev = s->out;
        ++pins;
      }
      auto r = net.add<TRelay>(box, static_cast<float>(i % 100) + 1.0f);
      net.fm->createConnection(prev, r->in);
      prev = r->out;
      pins += 2;
    }
    for (auto& s : sources) s->out->setData(std::make_shared<TTestValue>(0));
    net.settle(100);
  }
};

// Time per pin, besides the time per pass.
void reportPins(benchmark::State& state, size_t pins) {
  state.counters["pins"] = static_cast<double>(pins);
  state.counters["per_pin"] =
      benchmark::Counter(static_cast<double>(pins),
                         benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_QuietPass(benchmark::State& state) {
  BenchNet b(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    b.net.fm->stage1();
    benchmark::DoNotOptimize(b.net.fm->stage2());
  }
  reportPins(state, b.pins);
}

void BM_PassSpreadingOneChange(benchmark::State& state) {
  BenchNet b(static_cast<int>(state.range(0)));
  auto value = std::make_shared<TTestValue>(1);
  for (auto _ : state) {
    b.sources[b.sources.size() / 2]->out->setData(value);
    b.net.fm->stage1();
    benchmark::DoNotOptimize(b.net.fm->stage2());
  }
  reportPins(state, b.pins);
}

// Loading a flow file whose one box holds many processors: linear in them.
void BM_LoadFlowFileOneBox(benchmark::State& state) {
  const std::string file = "one-box-" + std::to_string(state.range(0)) + ".qvperspective";
  {
    Net net;
    TBoxPtr box = net.box(net.fm);
    for (int64_t i = 0; i < state.range(0); ++i) net.add<TRelay>(box, static_cast<float>(i));
    net.fm->store(box, file);
  }
  for (auto _ : state) {
    Net net;
    benchmark::DoNotOptimize(net.fm->load(net.fm, file));
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
  std::remove(file.c_str());
}

}  // namespace

BENCHMARK(BM_LoadFlowFileOneBox)->Arg(10000)->Arg(40000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_QuietPass)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_PassSpreadingOneChange)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMicrosecond);
