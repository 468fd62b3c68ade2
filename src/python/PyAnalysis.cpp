#include "PyCommon.h"

namespace quorvel::py_bindings {

void bindAnalysis(py::module_&) {}

}  // namespace quorvel::py_bindings
