// Assembles MQuorvel and MStlWraps, for the embedded interpreter and for the
// extension module alike.
#include <pybind11/embed.h>

#include <cstring>
#include <iostream>

#include "PyCommon.h"
#include "data/MIdContainers.h"
#include "engine/MPython.h"
#include "python/MCoreClasses.h"
#include "engine/MRegistry.h"

namespace quorvel::py_bindings {

namespace {

// Iterates by position and looks at the container at every step, so that a
// container changed during the loop ends or shortens the loop instead of
// leaving the iterator on freed memory.
template <class C>
struct TIndexIterator {
  py::object owner;
  size_t next = 0;
};

template <class C, class At>
void bindIndexIterator(py::module_& m, const char* name, At at) {
  using It = TIndexIterator<C>;
  py::class_<It>(m, name)
      .def("__iter__", [](It& it) -> It& { return it; })
      .def("__next__", [at](It& it) {
        const C& c = it.owner.template cast<const C&>();
        if (it.next >= c.size()) throw py::stop_iteration();
        return at(c, it.next++);
      });
}

}  // namespace

void bindStlWraps(py::module_& m) {
  bindIndexIterator<std::vector<uint32_t>>(m, "VectorUInt32Iterator",
                                           [](const std::vector<uint32_t>& v, size_t i) { return v[i]; });
  bindIndexIterator<TIdSet>(m, "SetUInt32Iterator", [](const TIdSet& s, size_t i) { return s.ids()[i]; });
  auto vector = py::bind_vector<std::vector<uint32_t>>(m, "VectorUInt32");
  // In place of the iterator bind_vector gives, not as a second overload.
  vector.attr("__iter__") = py::cpp_function(
      [](py::object self) { return TIndexIterator<std::vector<uint32_t>>{self, 0}; }, py::is_method(vector));
  py::class_<TIdSet>(m, "SetUInt32")
      .def(py::init<>())
      .def("__len__", &TIdSet::size)
      .def("__contains__", &TIdSet::contains)
      .def("__iter__", [](py::object self) { return TIndexIterator<TIdSet>{self, 0}; })
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

namespace {

// Methods bound from member pointers take `self` as a pointer, and a pointer
// argument takes None: `Class.method(None)` would run on a null object. The
// interpreter checks None against an argument record, which such methods
// lack; give them one for self.
void rejectNoneSelf(py::handle function) {
  py::handle f = py::detail::get_function(function);
  if (!f || !PyCFunction_Check(f.ptr())) return;
  py::handle capsule = PyCFunction_GET_SELF(f.ptr());
  if (!capsule || !py::isinstance<py::capsule>(capsule)) return;
  auto cap = py::reinterpret_borrow<py::capsule>(capsule);
  if (!py::detail::is_function_record_capsule(cap)) return;
  for (auto* rec = cap.get_pointer<py::detail::function_record>(); rec; rec = rec->next) {
    if (rec->is_method && rec->args.empty())
      // The record frees its names with free().
      rec->args.emplace_back(strdup("self"), nullptr, py::handle(), /*convert=*/true, /*none=*/false);
  }
}

void rejectNoneSelfInClasses(py::module_& m) {
  for (auto item : py::reinterpret_borrow<py::dict>(m.attr("__dict__"))) {
    if (!PyType_Check(item.second.ptr())) continue;
    py::dict members = item.second.attr("__dict__");
    for (auto member : members) {
      py::handle value = member.second;
      if (py::isinstance(value, py::module_::import("builtins").attr("property"))) {
        rejectNoneSelf(value.attr("fget"));
        rejectNoneSelf(value.attr("fset"));
      } else {
        rejectNoneSelf(value);
      }
    }
  }
}

}  // namespace

void defineModules(py::module_& quorvel, py::module_& stlwraps) {
  registerCoreClasses();
  bindStlWraps(stlwraps);
  quorvel.attr("MStlWraps") = stlwraps;
  bindEngine(quorvel);
  bindData(quorvel);
  bindDataset(quorvel);
  bindAnalysis(quorvel);
  bindViews(quorvel);
  for (auto bind : addedScriptBindings()) bind(&quorvel);
  rejectNoneSelfInClasses(quorvel);
  rejectNoneSelfInClasses(stlwraps);
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
