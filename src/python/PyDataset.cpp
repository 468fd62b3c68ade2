#include "PyCommon.h"

namespace quorvel::py_bindings {

void bindDataset(py::module_&) {}

}  // namespace quorvel::py_bindings
