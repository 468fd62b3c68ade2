// Benchmark entry: the interpreter and the modules come up as in the program.
#include <benchmark/benchmark.h>

#include "engine/MMediator.h"
#include "engine/MPython.h"

int main(int argc, char** argv) {
  quorvel::startInterpreter({"quorvel-bench"});
  quorvel::registerScriptModules();
  quorvel::me.logger = std::make_shared<quorvel::TLogger>("Quorvel-bench.log");
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  quorvel::stopInterpreter();
  return 0;
}
