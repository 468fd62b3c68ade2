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

#include "data/MColorMap.h"
#include "engine/MFlowObjects.h"
#include "engine/MPyRef.h"

namespace quorvel::py_bindings {
// True for objects of a class derived in a script.
bool isScriptData(const TAbstractData* d);
bool isScriptColorMap(const TColorMap* m);

// A pointer that keeps the script side of the object alive for as long as
// C++ holds it, and lets it go with the last C++ holder.
template <class T>
std::shared_ptr<T> keepScriptSide(std::shared_ptr<T> holder, pybind11::handle script) {
  T* raw = holder.get();
  TPyRef ref = TPyRef::borrow(script.ptr());
  return std::shared_ptr<T>(raw, [h = std::move(holder), ref = std::move(ref)](T*) mutable {
    if (Py_IsInitialized()) {
      pybind11::gil_scoped_acquire gil;
      ref.reset();
      h.reset();
    }
  });
}
}  // namespace quorvel::py_bindings

// Id vectors and id sets travel to scripts as sequences over the C++
// containers, without copying.
PYBIND11_MAKE_OPAQUE(std::vector<uint32_t>)

PYBIND11_NAMESPACE_BEGIN(PYBIND11_NAMESPACE)
PYBIND11_NAMESPACE_BEGIN(detail)

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

// Values and colour maps whose class a script derived travel into C++ with
// their script side kept alive.
template <class T, bool (*IsScript)(const T*)>
class script_side_holder_caster : public copyable_holder_caster<T, std::shared_ptr<T>> {
  using Base = copyable_holder_caster<T, std::shared_ptr<T>>;

 public:
  bool load(handle src, bool convert) {
    if (!Base::load(src, convert)) return false;
    if (this->holder && IsScript(this->holder.get()))
      this->holder = quorvel::py_bindings::keepScriptSide(this->holder, src);
    return true;
  }
};

template <>
class type_caster<std::shared_ptr<quorvel::TAbstractData>>
    : public script_side_holder_caster<quorvel::TAbstractData, &quorvel::py_bindings::isScriptData> {};

template <>
class type_caster<std::shared_ptr<quorvel::TColorMap>>
    : public script_side_holder_caster<quorvel::TColorMap, &quorvel::py_bindings::isScriptColorMap> {};

// Flow objects are never None where an operation takes one: None does not
// match the argument, so the call raises TypeError instead of handing a null
// pointer to the core. An operation that takes "a processor or None" says so
// by taking an object.
template <class T>
class non_null_holder_caster : public copyable_holder_caster<T, std::shared_ptr<T>> {
  using Base = copyable_holder_caster<T, std::shared_ptr<T>>;

 public:
  bool load(handle src, bool convert) {
    if (!src || src.is_none()) return false;
    return Base::load(src, convert);
  }
};

#define QV_NON_NULL_HOLDER(T) \
  template <>                  \
  class type_caster<std::shared_ptr<T>> : public non_null_holder_caster<T> {};

QV_NON_NULL_HOLDER(quorvel::TFlowObject)
QV_NON_NULL_HOLDER(quorvel::TAbstractPin)
QV_NON_NULL_HOLDER(quorvel::TAbstractConnector)
QV_NON_NULL_HOLDER(quorvel::TAbstractProcessor)
QV_NON_NULL_HOLDER(quorvel::TAbstractBox)

#undef QV_NON_NULL_HOLDER

PYBIND11_NAMESPACE_END(detail)
PYBIND11_NAMESPACE_END(PYBIND11_NAMESPACE)

namespace quorvel::py_bindings {

namespace py = pybind11;

// A processor or None, for the operations that take either.
inline TProcessorPtr processorOrNone(const py::object& obj) {
  if (obj.is_none()) return nullptr;
  return obj.cast<TProcessorPtr>();
}

inline py::object toObject(const TPyRef& ref) {
  return ref ? py::reinterpret_borrow<py::object>(ref.get()) : py::none();
}
inline TPyRef fromObject(const py::handle& h) { return TPyRef::borrow(h.ptr()); }

void bindStlWraps(py::module_& m);
void bindEngine(py::module_& m);
void bindData(py::module_& m);
void bindDataset(py::module_& m);
void bindAnalysis(py::module_& m);
void bindViews(py::module_& m);

// Defines the whole of MQuorvel (and MStlWraps) on the given modules.
void defineModules(py::module_& quorvel, py::module_& stlwraps);

}  // namespace quorvel::py_bindings
