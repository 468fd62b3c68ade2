#include "PyCommon.h"

namespace quorvel::py_bindings {

void bindData(py::module_&) {}

}  // namespace quorvel::py_bindings
