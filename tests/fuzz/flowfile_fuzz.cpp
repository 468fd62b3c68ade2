// libFuzzer target: any bytes as a flow file (the library, a perspective,
// the clipboard), loaded into a running network and run until quiet. Only
// the loader's own failures may come out, and nothing in the file runs.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "engine/MFlowManager.h"
#include "engine/MMediator.h"
#include "engine/MPython.h"

using namespace quorvel;

namespace {
struct Interpreter {
  Interpreter() {
    startInterpreter({"flowfile_fuzz"});
    registerScriptModules();
    me.logger = std::make_shared<TLogger>("/dev/null");
  }
};
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Interpreter interpreter;
  static const std::string path = "/tmp/quorvel-flowfuzz-" + std::to_string(::getpid()) + ".qvperspective";
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return 0;
  std::fwrite(data, 1, size, f);
  std::fclose(f);
  auto fm = makeFlowManager(true);
  try {
    fm->load(fm, path);
    fm->autoconnect();
    doflow(*fm);
  } catch (const std::exception&) {
  }
  me.manualupdate = false;
  fm->release();
  std::remove(path.c_str());
  return 0;
}
