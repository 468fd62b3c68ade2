// Assembles MQuorvel and MStlWraps, for the embedded interpreter and for the
// extension module alike.
#include <pybind11/embed.h>

#include <iostream>

#include "PyCommon.h"
#include "data/MIdContainers.h"
#include "engine/MPython.h"
#include "engine/MRegistry.h"

namespace quorvel::py_bindings {

void bindStlWraps(py::module_& m) {
  py::bind_vector<std::vector<uint32_t>>(m, "VectorUInt32");
  py::class_<TIdSet>(m, "SetUInt32")
      .def(py::init<>())
      .def("__len__", &TIdSet::size)
      .def("__contains__", &TIdSet::contains)
      .def(
          "__iter__", [](const TIdSet& s) { return py::make_iterator(s.begin(), s.end()); }, py::keep_alive<0, 1>())
      .def("__repr__", [](const TIdSet& s) {
        std::string out = "SetUInt32([";
        bool first = true;
        for (uint32_t v : s) {
          if (!first) out += ", ";
          out += std::to_string(v);
          first = false;
        }
        return out + "])";
      });
}

void defineModules(py::module_& quorvel, py::module_& stlwraps) {
  registerCoreClasses();
  bindStlWraps(stlwraps);
  quorvel.attr("MStlWraps") = stlwraps;
  bindEngine(quorvel);
  bindData(quorvel);
  bindDataset(quorvel);
  bindAnalysis(quorvel);
}

}  // namespace quorvel::py_bindings

namespace quorvel {

void registerScriptModules() {
  namespace py = pybind11;
  try {
    py::dict modules = py::module_::import("sys").attr("modules");
    if (modules.contains("MQuorvel")) return;
    static PyModuleDef quorvelDef;
    static PyModuleDef stlDef;
    py::module_ quorvel = py::module_::create_extension_module("MQuorvel", nullptr, &quorvelDef);
    py::module_ stl = py::module_::create_extension_module("MStlWraps", nullptr, &stlDef);
    py_bindings::defineModules(quorvel, stl);
    modules["MStlWraps"] = stl;
    modules["MQuorvel"] = quorvel;
    // What the application's modules import, scripts and stored values see.
    py::exec("from MQuorvel import *", py::module_::import("__main__").attr("__dict__"));
  } catch (const std::exception& e) {
    std::cerr << e.what() << std::endl;
    throw std::runtime_error("Failed to register module with Python interpreter");
  }
}

}  // namespace quorvel
