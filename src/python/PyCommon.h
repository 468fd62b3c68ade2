// Shared pieces of the MQuorvel bindings: casters, opaque containers and the
// per-subsystem binding functions.
#pragma once

#include <pybind11/functional.h>
#include <pybind11/operators.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>
#include <pybind11/stl_bind.h>

#include <cstdint>
#include <vector>

#include "engine/MPyRef.h"

// Id vectors and id sets travel to scripts as sequences over the C++
// containers, without copying.
PYBIND11_MAKE_OPAQUE(std::vector<uint32_t>)

namespace pybind11::detail {

// A script object held by the core is the script object itself.
template <>
struct type_caster<quorvel::TPyRef> {
  PYBIND11_TYPE_CASTER(quorvel::TPyRef, const_name("object"));
  bool load(handle src, bool) {
    value = quorvel::TPyRef::borrow(src.ptr());
    return true;
  }
  static handle cast(const quorvel::TPyRef& src, return_value_policy, handle) {
    PyObject* p = src.get() ? src.get() : Py_None;
    Py_INCREF(p);
    return p;
  }
};

}  // namespace pybind11::detail

namespace quorvel::py_bindings {

namespace py = pybind11;

inline py::object toObject(const TPyRef& ref) {
  return ref ? py::reinterpret_borrow<py::object>(ref.get()) : py::none();
}
inline TPyRef fromObject(const py::handle& h) { return TPyRef::borrow(h.ptr()); }

void bindStlWraps(py::module_& m);
void bindEngine(py::module_& m);
void bindData(py::module_& m);
void bindDataset(py::module_& m);
void bindAnalysis(py::module_& m);

// Defines the whole of MQuorvel (and MStlWraps) on the given modules.
void defineModules(py::module_& quorvel, py::module_& stlwraps);

}  // namespace quorvel::py_bindings
