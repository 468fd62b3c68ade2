// libFuzzer target: any text as the stored text form of any value class.
// The first byte picks the class; the rest is what a flow file would hold.
#include <pybind11/pybind11.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "engine/MMediator.h"
#include "engine/MPython.h"
#include "engine/MRegistry.h"

using namespace quorvel;

namespace {
struct Interpreter {
  std::vector<std::string> classes;
  Interpreter() {
    startInterpreter({"textform_fuzz"});
    registerScriptModules();
    me.logger = std::make_shared<TLogger>("/dev/null");
    for (const auto& name : TDataRegistry::instance().names())
      if (TDataRegistry::instance().create(name)) classes.push_back(name);
  }
};
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Interpreter interpreter;
  if (size == 0 || interpreter.classes.empty()) return 0;
  const std::string& cls = interpreter.classes[data[0] % interpreter.classes.size()];
  const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
  try {
    TDataPtr value = TDataRegistry::instance().create(cls);
    value->unstringify(text);
    // What was read can be written again and read back.
    TDataPtr again = TDataRegistry::instance().create(cls);
    again->unstringify(value->stringify());
  } catch (const pybind11::error_already_set&) {
  } catch (const std::exception&) {
  }
  return 0;
}
