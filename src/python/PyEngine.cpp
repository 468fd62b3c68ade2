// Bindings of the flow engine: geometry, values, pins, processors, boxes,
// managers, the mediator and the logger.
#include "PyEngine.h"

#include "engine/MFlowManager.h"
#include "engine/MHookProcessor.h"
#include "engine/MLibrary.h"
#include "engine/MMediator.h"
#include "engine/MPython.h"
#include "engine/MRegistry.h"

namespace quorvel::py_bindings {

py::object scriptSelfOf(const void* obj, const std::type_info& type) {
  auto* tinfo = py::detail::get_type_info(type);
  if (!tinfo) return py::object();
  py::handle h = py::detail::get_object_handle(obj, tinfo);
  return py::reinterpret_borrow<py::object>(h);
}

namespace {

// ---------------------------------------------------------------------------
// Value classes written in a script.

class PyData : public TAbstractData {
 public:
  using TAbstractData::TAbstractData;
  std::string getClassName() const override {
    py::gil_scoped_acquire gil;
    py::object self = scriptSelfOf(static_cast<const TAbstractData*>(this), typeid(TAbstractData));
    if (self) return py::str(py::type::handle_of(self).attr("__name__"));
    return TAbstractData::getClassName();
  }
  std::string getKeyName() const override { PYBIND11_OVERRIDE(std::string, TAbstractData, getKeyName); }
  std::string toString() const override { PYBIND11_OVERRIDE(std::string, TAbstractData, toString); }
  void rebuildIndex() override { PYBIND11_OVERRIDE(void, TAbstractData, rebuildIndex); }
  std::string stringify() const override { PYBIND11_OVERRIDE(std::string, TAbstractData, stringify); }
  void unstringify(const std::string& text) override { PYBIND11_OVERRIDE(void, TAbstractData, unstringify, text); }
};

// Accepts both call forms of the box operations: box.addProcessor(proc) and
// box.addProcessor(box, proc).
py::handle lastArg(const py::args& args, size_t expected) {
  if (args.size() != expected && args.size() != expected + 1)
    throw py::type_error("wrong number of arguments");
  return args[args.size() - 1];
}

// A pin flag as scripts see it. Writing one may give the next pass work, so
// the network is told as the engine's own writers tell it.
template <bool TAbstractPin::*Flag>
struct pinFlag {
  static bool get(const TAbstractPin& p) { return p.*Flag; }
  static void set(TAbstractPin& p, bool value) {
    p.*Flag = value;
    TFlowEpoch::advance();
  }
};

py::object newObjectsToList(const std::optional<std::vector<std::shared_ptr<TFlowObject>>>& objs) {
  if (!objs) return py::none();
  py::list out;
  for (const auto& o : *objs) {
    if (auto box = std::dynamic_pointer_cast<TAbstractBox>(o))
      out.append(py::cast(box));
    else
      out.append(py::cast(std::static_pointer_cast<TAbstractProcessor>(o)));
  }
  return out;
}

TProcessorFactory factoryFromScript(py::object ctor) {
  if (!PyCallable_Check(ctor.ptr())) throw py::type_error("a processor class or factory must be callable");
  // The registry outlives the interpreter: it holds the class through a
  // reference that is safe to drop after the interpreter ended.
  return [ref = fromObject(ctor)]() -> TProcessorPtr {
    py::object obj = toObject(ref)();
    if (obj.is_none()) throw py::type_error("the processor factory gave None");
    auto proc = obj.cast<TProcessorPtr>();
    if (!proc->m_PySelf) proc->m_PySelf = fromObject(obj);
    return proc;
  };
}

}  // namespace

bool isScriptData(const TAbstractData* d) { return dynamic_cast<const PyData*>(d) != nullptr; }

TProcessorFactory scriptFactory(py::object ctor) { return factoryFromScript(std::move(ctor)); }

void bindEngine(py::module_& m) {
  // -------------------------------------------------------------------------
  // Geometry
  py::class_<TVector2>(m, "TVector2")
      .def(py::init<>())
      .def(py::init<float, float>())
      .def_readwrite("x", &TVector2::x)
      .def_readwrite("y", &TVector2::y)
      .def("copy", &TVector2::copy)
      .def("__getitem__",
           [](const TVector2& v, int i) {
             if (i < 0 || i > 1) throw py::index_error();
             return v[i];
           })
      .def("__setitem__",
           [](TVector2& v, int i, float f) {
             if (i < 0 || i > 1) throw py::index_error();
             v[i] = f;
           })
      .def(py::self + py::self)
      .def(py::self - py::self)
      .def(py::self == py::self)
      .def("__repr__", [](const TVector2& v) {
        return "TVector2(" + py::repr(py::float_(v.x)).cast<std::string>() + ", " +
               py::repr(py::float_(v.y)).cast<std::string>() + ")";
      });

  py::class_<TVector4>(m, "TVector4")
      .def(py::init<>())
      .def(py::init<float, float, float, float>())
      .def_readwrite("x", &TVector4::x)
      .def_readwrite("y", &TVector4::y)
      .def_readwrite("z", &TVector4::z)
      .def_readwrite("w", &TVector4::w)
      .def("__getitem__",
           [](const TVector4& v, int i) {
             if (i < 0 || i > 3) throw py::index_error();
             return v[i];
           })
      .def("__setitem__",
           [](TVector4& v, int i, float f) {
             if (i < 0 || i > 3) throw py::index_error();
             v[i] = f;
           })
      .def(py::self == py::self)
      .def("__repr__", [](const TVector4& v) {
        std::string out = "TVector4(";
        for (int i = 0; i < 4; ++i) out += (i ? ", " : "") + py::repr(py::float_(v[i])).cast<std::string>();
        return out + ")";
      });

  py::class_<TBox>(m, "TBox")
      .def(py::init<>())
      .def(py::init<TVector2, TVector2>())
      .def(py::init<float, float, float, float>())
      .def_readwrite("tl", &TBox::tl)
      .def_readwrite("br", &TBox::br)
      .def("move", &TBox::move)
      .def("moveTo", &TBox::moveTo)
      .def("getWidth", &TBox::getWidth)
      .def("getHeight", &TBox::getHeight)
      .def(py::self == py::self);

  // -------------------------------------------------------------------------
  // Values
  py::class_<TAbstractData, PyData, TDataPtr>(m, "TAbstractData")
      .def(py::init<>())
      .def_readonly("m_DataId", &TAbstractData::m_DataId)
      .def_property(
          "m_HasChanged", [](const TAbstractData& d) { return static_cast<bool>(d.m_HasChanged); },
          [](TAbstractData& d, bool changed) { d.m_HasChanged = changed; })
      .def_readwrite("m_KeyName", &TAbstractData::m_KeyName)
      .def("isArray", &TAbstractData::isArray)
      .def("getKeyName", &TAbstractData::getKeyName)
      .def("toString", &TAbstractData::toString)
      .def("rebuildIndex", &TAbstractData::rebuildIndex)
      .def("stringify", &TAbstractData::stringify)
      .def("unstringify", &TAbstractData::unstringify)
      .def("setHasChanged", &TAbstractData::setHasChanged)
      .def("getChangedRowCount", &TAbstractData::getChangedRowCount)
      .def("getClassName", &TAbstractData::getClassName)
      .def("__str__", &TAbstractData::toString);

  // -------------------------------------------------------------------------
  // Flow objects
  py::class_<TFlowObject, std::shared_ptr<TFlowObject>>(m, "TFlowObject")
      .def_readonly("m_Id", &TFlowObject::m_Id)
      .def("getFlowManager", &TFlowObject::getFlowManager)
      .def("destroy", &TFlowObject::destroy)
      .def("flowobject_destroy", &TFlowObject::flowobject_destroy)
      .def("toString", &TFlowObject::toString)
      .def("getKeyText", &TFlowObject::getKeyText);

  py::class_<TAbstractPin, TFlowObject, TPinPtr>(m, "TAbstractPin")
      .def_readwrite("m_Name", &TAbstractPin::m_Name)
      .def_readwrite("m_AcceptedType", &TAbstractPin::m_AcceptedType)
      .def_readonly("m_Processor", &TAbstractPin::m_Processor)
      .def_property(
          "m_Data", [](const TAbstractPin& p) { return p.m_Data; },
          [](TAbstractPin& p, TDataPtr d) {
            p.m_Data = std::move(d);
            TFlowEpoch::advance();
          })
      .def_property_readonly("m_Connectors", [](const TAbstractPin& p) { return p.m_Connectors; })
      .def_property("m_DataReplaced", pinFlag<&TAbstractPin::m_DataReplaced>::get,
                    pinFlag<&TAbstractPin::m_DataReplaced>::set)
      .def_property("m_DataHasChanged", pinFlag<&TAbstractPin::m_DataHasChanged>::get,
                    pinFlag<&TAbstractPin::m_DataHasChanged>::set)
      .def_property("m_DataFullUpdate", pinFlag<&TAbstractPin::m_DataFullUpdate>::get,
                    pinFlag<&TAbstractPin::m_DataFullUpdate>::set)
      .def_readwrite("m_DataSetHere", &TAbstractPin::m_DataSetHere)
      .def_property_readonly("m_ArrayKeysChanged",
                             [](const TAbstractPin& p) -> py::object {
                               if (!p.m_ArrayKeysChanged) return py::none();
                               py::set s;
                               for (const auto& k : *p.m_ArrayKeysChanged) s.add(py::str(k));
                               return s;
                             })
      .def_readonly("m_Self", &TAbstractPin::m_Self)
      .def("getData", &TAbstractPin::getData)
      .def("setData", &TAbstractPin::setData, py::arg("data").none(true))
      .def("touch", &TAbstractPin::touch)
      .def("setDataFromSource", &TAbstractPin::setDataFromSource, py::arg("data").none(true))
      .def("hasChanged", &TAbstractPin::hasChanged)
      .def("hasConnector", &TAbstractPin::hasConnector)
      .def("isInputPin", &TAbstractPin::isInputPin)
      .def("getAcceptedType", &TAbstractPin::getAcceptedType)
      .def("attach", &TAbstractPin::attach)
      .def("getConnectedTo", &TAbstractPin::getConnectedTo);
  py::class_<TAbstractInputPin, TAbstractPin, std::shared_ptr<TAbstractInputPin>>(m, "TAbstractInputPin");
  py::class_<TAbstractOutputPin, TAbstractPin, std::shared_ptr<TAbstractOutputPin>>(m, "TAbstractOutputPin");

  py::class_<TAbstractConnector, TFlowObject, TConnectorPtr>(m, "TAbstractConnector")
      .def("getInputPin", &TAbstractConnector::getInputPin)
      .def("getOutputPin", &TAbstractConnector::getOutputPin)
      .def("getOtherPin", [](const TAbstractConnector& c, const TPinPtr& pin) -> TPinPtr {
        TAbstractPin* other = c.getOtherPin(pin.get());
        return other ? other->m_Self : nullptr;
      });

  auto processor = py::class_<TAbstractProcessor, TFlowObject, PyProcessor<TAbstractProcessor>, TProcessorPtr>(
      m, "TAbstractProcessor");
  bindProcessorBase(processor);

  py::class_<TAbstractBox, TFlowObject, TBoxPtr>(m, "TAbstractBox")
      .def(py::init<>())
      .def_readwrite("m_Area", &TAbstractBox::m_Area)
      .def_readwrite("m_Type", &TAbstractBox::m_Type)
      .def_property_readonly("m_Processors", [](const TAbstractBox& b) { return b.m_Processors; })
      .def_property_readonly("m_Children", [](const TAbstractBox& b) { return b.m_Children; })
      .def_readonly("m_Self", &TAbstractBox::m_Self)
      .def("getTypeName", &TAbstractBox::getTypeName)
      .def("postCreate", [](TAbstractBox& b, const py::args&) { b.postCreate(); })
      .def("addProcessor",
           [](TAbstractBox& b, const py::args& args) { b.addProcessor(lastArg(args, 1).cast<TProcessorPtr>()); })
      .def("addBox", [](TAbstractBox& b, const py::args& args) { b.addBox(lastArg(args, 1).cast<TBoxPtr>()); })
      .def("getParent", &TAbstractBox::getParent)
      .def("createConnection", &TAbstractBox::createConnection)
      .def("computeSize", &TAbstractBox::computeSize)
      .def("getBoxByType", &TAbstractBox::getBoxByType)
      .def("getIdentityProcessorByInputName", &TAbstractBox::getIdentityProcessorByInputName)
      .def("getProcessorByName", &TAbstractBox::getProcessorByName)
      .def("getProcessorByType",
           [](TAbstractBox& b, py::object cls) -> py::object {
             TProcessorPtr found =
                 b.findProcessor([&cls](const TProcessorPtr& p) { return py::isinstance(py::cast(p), cls); });
             return found ? py::cast(found) : py::none();
           })
      .def("getProcessorsHavingAttribute", &TAbstractBox::getProcessorsHavingAttribute);

  py::class_<TCppFlowManager, TAbstractBox, std::shared_ptr<TCppFlowManager>>(m, "TCppFlowManager")
      .def_readwrite("m_IsProgram", &TCppFlowManager::m_IsProgram)
      .def_readonly("m_NextId", &TCppFlowManager::m_NextId)
      .def_property_readonly("m_Objects", [](const TCppFlowManager& fm) { return fm.m_Objects; })
      .def("getFlowObject", &TCppFlowManager::getFlowObject)
      .def("stage1", &TCppFlowManager::stage1)
      .def("stage2", &TCppFlowManager::stage2)
      .def("activateProcessor", [](TCppFlowManager& fm, const TProcessorPtr& p) { return fm.activateProcessor(p); })
      .def("getErroneousProcessor", &TCppFlowManager::getErroneousProcessor)
      .def("autoconnect", &TCppFlowManager::autoconnect)
      .def("findProcessorsInRange", &TCppFlowManager::findProcessorsInRange);

  py::class_<TFlowManager, TCppFlowManager, std::shared_ptr<TFlowManager>>(m, "TFlowManager")
      .def(py::init<bool>(), py::arg("isprogram"))
      .def_readwrite("freespot", &TFlowManager::freespot)
      .def_readwrite("exceptions", &TFlowManager::exceptions)
      .def("constructProcessor",
           [](TFlowManager& fm, py::object ctor) {
             if (py::isinstance<py::str>(ctor)) return fm.constructProcessor(ctor.cast<std::string>());
             return fm.constructProcessor(factoryFromScript(ctor));
           })
      .def("destroyObject", &TFlowManager::destroyObject)
      .def("store",
           [](TFlowManager& fm, py::object boxes, const std::string& filename) {
             std::vector<TBoxPtr> list;
             if (py::isinstance<py::list>(boxes) || py::isinstance<py::tuple>(boxes))
               list = boxes.cast<std::vector<TBoxPtr>>();
             else
               list.push_back(boxes.cast<TBoxPtr>());
             fm.store(list, filename);
           })
      .def("load",
           [](TFlowManager& fm, const TBoxPtr& topbox, const std::string& filename) {
             return newObjectsToList(fm.load(topbox, filename));
           })
      .def("copy", [](TFlowManager& fm, const std::shared_ptr<TFlowObject>& obj) { fm.copy(obj); })
      .def(
          "paste",
          [](TFlowManager& fm, const std::shared_ptr<TFlowObject>& obj, std::optional<TVector2> pos) {
            return newObjectsToList(fm.paste(obj, pos));
          },
          py::arg("obj"), py::arg("pos") = py::none());

  py::class_<THookProcessorCpp, TAbstractProcessor, std::shared_ptr<THookProcessorCpp>>(m, "THookProcessorCpp")
      .def(py::init<>());
  py::class_<THookProcessor, THookProcessorCpp, std::shared_ptr<THookProcessor>>(m, "THookProcessor")
      .def(py::init<>())
      .def_readwrite("hookfunc", &THookProcessor::hookfunc)
      .def("setHook", &THookProcessor::setHook)
      .def("process_python", &THookProcessor::process_python);

  // The library and instantiation of its boxes.
  m.def("buildLibrary", [](TFlowManager& lib) { buildLibrary(lib); });
  m.def(
      "loadLibrary", [](TFlowManager& lib, const std::string& f) { return loadLibrary(lib, f); }, py::arg("lib"),
      py::arg("filename") = "library");
  m.def("setUpNetworks", &setUpNetworks, py::arg("libraryfile") = "library");
  m.def(
      "instantiateLibBox",
      [](const std::string& name, py::object options) {
        TInstantiateOptions o;
        if (!options.is_none()) {
          py::dict d = options.cast<py::dict>();
          if (d.contains("assign")) o.assign = d["assign"].cast<std::vector<std::pair<std::string, std::string>>>();
          if (d.contains("rename")) o.rename = d["rename"].cast<std::vector<std::pair<std::string, std::string>>>();
        }
        return instantiateLibBox(name, o);
      },
      py::arg("name"), py::arg("options") = py::none());
  m.def("getFreeGuiTitle", &getFreeGuiTitle);

  m.def("doflow", [](TCppFlowManager& fm) { return doflow(fm); });
  m.def(
      "makeFlowManager", [](bool isprogram) { return makeFlowManager(isprogram); }, py::arg("isprogram"));

  // -------------------------------------------------------------------------
  // Registries
  m.def(
      "registerProcessorClass",
      [](py::object cls, std::optional<std::string> name) {
        std::string n = name ? *name : py::str(cls.attr("__name__")).cast<std::string>();
        TProcessorRegistry::instance().add(n, factoryFromScript(cls));
      },
      py::arg("cls"), py::arg("name") = py::none());
  m.def("getProcessorClassNames", [] { return TProcessorRegistry::instance().names(); });
  m.def("getDataClassNames", [] { return TDataRegistry::instance().names(); });
  m.def("isDataSubclass", [](const std::string& a, const std::string& b) {
    return TDataRegistry::instance().isSubclass(a, b);
  });
  m.def("canConnect", [](const TPinPtr& a, const TPinPtr& b) { return canConnect(*a, *b); });

  bindMediator(m);
}

}  // namespace quorvel::py_bindings
