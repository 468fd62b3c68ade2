#include "MHookProcessor.h"

#include <pybind11/pybind11.h>

#include "engine/MMediator.h"
#include "engine/MPython.h"

namespace py = pybind11;

namespace quorvel {

void THookProcessor::process_python() {
  resetPins({});
  if (hookfunc.isNone()) return;
  try {
    py::reinterpret_borrow<py::object>(hookfunc.get())(py::cast(selfPtr()));
  } catch (...) {
    logError("Error in hook function: " + describeException(std::current_exception()).traceback);
  }
}

}  // namespace quorvel
