// The extension module: `import MQuorvel` from a plain interpreter, with the
// build tree on the path.
#include "PyCommon.h"
#include "engine/MMediator.h"

PYBIND11_MODULE(MQuorvel, m) {
  namespace py = pybind11;
  auto stl = py::reinterpret_borrow<py::module_>(py::module_::import("types").attr("ModuleType")("MStlWraps"));
  py::module_::import("sys").attr("modules")["MStlWraps"] = stl;
  quorvel::py_bindings::defineModules(m, stl);
  if (!quorvel::me.logger) quorvel::me.logger = std::make_shared<quorvel::TLogger>();
}
