// Engine pieces the other binding units build on: the trampoline through
// which processor classes written in a script override the core, and the
// binding of the processor base.
#pragma once

#include <typeinfo>

#include "PyCommon.h"
#include "engine/MFlowManager.h"
#include "engine/MScriptBindings.h"

namespace quorvel::py_bindings {

// The script object of a C++ object, if one exists.
py::object scriptSelfOf(const void* obj, const std::type_info& type);

// A factory that calls a script class and keeps the made object's script
// side alive with the processor.
TProcessorFactory scriptFactory(py::object ctor);

void bindMediator(py::module_& m);

using quorvel::bindDerived;

// Processor classes derived in a script reach the core through this class:
// virtual operations go to the script's methods, and the hooks are whatever
// methods of those names the script class defines.
template <class Base>
class PyProcessor : public Base {
 public:
  using Base::Base;

  py::object scriptSelf() const { return scriptSelfOf(static_cast<const Base*>(this), typeid(Base)); }

  void keepScriptSelf() override {
    if (this->m_PySelf) return;
    py::gil_scoped_acquire gil;
    py::object self = scriptSelf();
    if (self) this->m_PySelf = fromObject(self);
  }

  std::string getClassName() const override {
    py::gil_scoped_acquire gil;
    py::object self = scriptSelf();
    if (self) return py::str(py::type::handle_of(self).attr("__name__"));
    return Base::getClassName();
  }

  std::string getTypeName() override { PYBIND11_OVERRIDE(std::string, Base, getTypeName); }
  std::string getKeyName() override { PYBIND11_OVERRIDE(std::string, Base, getKeyName); }
  std::string toString() override { PYBIND11_OVERRIDE(std::string, Base, toString); }
  std::string getKeyText() override { PYBIND11_OVERRIDE(std::string, Base, getKeyText); }
  bool isDataSource() override { PYBIND11_OVERRIDE(bool, Base, isDataSource); }
  bool isIdentity() override { PYBIND11_OVERRIDE(bool, Base, isIdentity); }
  void createImplementation() override { PYBIND11_OVERRIDE(void, Base, createImplementation); }
  void process() override { PYBIND11_OVERRIDE(void, Base, process); }
  void postCreate() override {
    keepScriptSelf();
    PYBIND11_OVERRIDE(void, Base, postCreate);
  }

  unsigned hookMask() override {
    if (m_ScriptHooks < 0) {
      py::gil_scoped_acquire gil;
      const Base* self = this;
      unsigned mask = 0;
      if (py::get_override(self, "beforeprocess_python")) mask |= TAbstractProcessor::kHookBeforeProcess;
      if (py::get_override(self, "process_python")) mask |= TAbstractProcessor::kHookProcess;
      if (py::get_override(self, "createImplementation_python"))
        mask |= TAbstractProcessor::kHookCreateImplementation;
      if (py::get_override(self, "destroy_python")) mask |= TAbstractProcessor::kHookDestroy;
      m_ScriptHooks = static_cast<int>(mask);
    }
    return Base::hookMask() | static_cast<unsigned>(m_ScriptHooks);
  }
  void beforeprocess_python() override { callHook("beforeprocess_python", &Base::beforeprocess_python); }
  void process_python() override { callHook("process_python", &Base::process_python); }
  void createImplementation_python() override {
    callHook("createImplementation_python", &Base::createImplementation_python);
  }
  void destroy_python() override { callHook("destroy_python", &Base::destroy_python); }

 protected:
  template <class F>
  void callHook(const char* name, F base) {
    {
      py::gil_scoped_acquire gil;
      py::function f = py::get_override(static_cast<const Base*>(this), name);
      if (f) {
        f();
        return;
      }
    }
    (this->*base)();
  }

 private:
  int m_ScriptHooks = -1;
};

// Data sources written in a script may also give their own value.
template <class Base>
class PyDataSource : public PyProcessor<Base> {
 public:
  using PyProcessor<Base>::PyProcessor;
  TDataPtr getData() override { PYBIND11_OVERRIDE(TDataPtr, Base, getData); }
  void setData(const TDataPtr& data) override { PYBIND11_OVERRIDE(void, Base, setData, data); }
  void ensureDataExists() override { PYBIND11_OVERRIDE(void, Base, ensureDataExists); }
};

// Binds the operations every processor class offers to scripts.
template <class Cls>
void bindProcessorBase(Cls& cls) {
  using P = TAbstractProcessor;
  auto pinList = [](const py::handle& obj, bool mustBeList) {
    if (mustBeList && !py::isinstance<py::list>(obj)) throw TFlowError("python_reset(): obj is not a list");
    TPinList list;
    for (auto item : obj) {
      if (py::isinstance<py::str>(item))
        list.emplace_back(item.template cast<std::string>());
      else if (py::isinstance<TAbstractInputPin>(item))
        list.emplace_back(item.template cast<TPinPtr>());
      else
        throw TFlowError("obj is neither a string or input pin");
    }
    return list;
  };
  cls.def(py::init<>())
      .def_readwrite("m_Area", &P::m_Area)
      .def_property_readonly("m_InputPins", [](const P& p) { return p.m_InputPins; })
      .def_property_readonly("m_OutputPins", [](const P& p) { return p.m_OutputPins; })
      .def_property_readonly("m_PinsToReset", [](const P& p) { return p.m_PinsToReset; })
      .def_property_readonly("m_InputPinsByName", [](const P& p) { return p.m_InputPinsByName; })
      .def_readonly("m_Box", &P::m_Box)
      .def_readwrite("m_KeyName", &P::m_KeyName)
      .def_readwrite("m_Error", &P::m_Error)
      .def_readwrite("m_Warning", &P::m_Warning)
      .def("getClassName", &P::getClassName)
      .def("getKeyName", &P::getKeyName)
      .def("getTypeName", &P::getTypeName)
      .def("isDataSource", &P::isDataSource)
      .def("isIdentity", &P::isIdentity)
      .def("createImplementation", &P::createImplementation)
      .def("process", &P::process)
      .def("postCreate", [](P& p, const py::args&) { p.postCreate(); })
      .def("addInputPin", [](P& p, const std::string& type, const std::string& name) { return p.addInputPin(type, name); })
      .def("addOutputPin",
           [](P& p, const std::string& type, const std::string& name) { return p.addOutputPin(type, name); })
      .def("getOnlyInputPin", &P::getOnlyInputPin)
      .def("getOnlyOutputPin", &P::getOnlyOutputPin)
      .def("getInputPinByName", &P::getInputPinByName)
      .def("getOutputPinByName", &P::getOutputPinByName)
      .def("getConnectedProcessor", &P::getConnectedProcessor)
      .def("reparent", [](P& p, const py::args& args) {
        if (args.size() != 1 && args.size() != 2) throw py::type_error("reparent(newbox)");
        p.reparent(args[args.size() - 1].template cast<TBoxPtr>());
      })
      .def("getInputChanged", &P::getInputChanged)
      .def("getInputPinChanged", &P::getInputPinChanged)
      // Both stop at the first pin that settles the answer: an element behind
      // it is not looked at.
      .def("requireData",
           [pinList](P& p, const py::object& list) {
             for (auto item : list)
               if (!p.requireData(pinList(py::make_tuple(item), false))) return false;
             return true;
           })
      .def("haveChanged",
           [pinList](P& p, const py::object& list) {
             for (auto item : list)
               if (p.haveChanged(pinList(py::make_tuple(item), false))) return true;
             return false;
           })
      .def("resetPins", [pinList](P& p, const py::object& list) { p.resetPins(pinList(list, true)); })
      .def("touchPins", &P::touchPins)
      .def("setError", &P::setError)
      .def("hasError", &P::hasError)
      .def("getError", &P::getError);
}

}  // namespace quorvel::py_bindings
