// Bindings of the mediator `me`, the logger and the central handler.
#include <pybind11/eval.h>

#include "PyEngine.h"
#include "engine/MMediator.h"
#include "engine/MPython.h"

namespace quorvel::py_bindings {

namespace {

// The script class of TUserException: an exception with the field traceback.
TPyRef& userExceptionClass() {
  static TPyRef* cls = new TPyRef();
  return *cls;
}

std::exception_ptr capture(const py::object& e) {
  py::object type = py::type::of(e);
  py::object tb = py::getattr(e, "__traceback__", py::none());
  PyErr_Restore(type.release().ptr(), py::object(e).release().ptr(), tb.release().ptr());
  return std::make_exception_ptr(py::error_already_set());
}

}  // namespace

void bindMediator(py::module_& m) {
  auto logger = py::class_<TLogger, std::shared_ptr<TLogger>>(m, "TLogger")
                    .def(py::init([](const std::string& filename) { return std::make_shared<TLogger>(filename); }),
                         py::arg("filename") = "Quorvel.log")
                    .def("getMostImportantMessage", &TLogger::getMostImportantMessage)
                    .def("getLastMessages", &TLogger::getLastMessages);
  // Each level takes the text and a processor or None, both required.
  using Level = void (TLogger::*)(const std::string&, const TProcessorPtr&);
  const std::pair<const char*, Level> levels[] = {
      {"debug", &TLogger::debug},     {"info", &TLogger::info},   {"message", &TLogger::message},
      {"warning", &TLogger::warning}, {"error", &TLogger::error}, {"criticalerror", &TLogger::criticalerror},
      {"status", &TLogger::status}};
  for (const auto& [name, level] : levels) {
    logger.def(
        name,
        [level = level](TLogger& l, const std::string& text, const py::object& proc) {
          (l.*level)(text, processorOrNone(proc));
        },
        py::arg("text"), py::arg("proc"));
  }

  py::class_<TMediator>(m, "TMediator", py::dynamic_attr())
      .def_readwrite("RELEASEMODE", &TMediator::RELEASEMODE)
      .def_readwrite("PUBLICMODE", &TMediator::PUBLICMODE)
      .def_readwrite("manualupdate", &TMediator::manualupdate)
      .def_readwrite("pluginsystem", &TMediator::pluginsystem)
      .def_readwrite("statusbar", &TMediator::statusbar)
      .def_readwrite("imagelist", &TMediator::imagelist)
      .def_readwrite("mainwindow", &TMediator::mainwindow)
      .def_readwrite("mainframe", &TMediator::mainwindow)
      .def_readwrite("applicationfolder", &TMediator::applicationfolder)
      .def_readwrite("logger", &TMediator::logger)
      .def_readwrite("branding", &TMediator::branding)
      .def_readwrite("server", &TMediator::server)
      .def_readwrite("cmdoptions", &TMediator::cmdoptions)
      .def_readwrite("imagelistmap", &TMediator::imagelistmap)
      .def_readwrite("guimgr", &TMediator::guimgr)
      .def_readwrite("menubar", &TMediator::menubar)
      .def_readwrite("flowlib", &TMediator::flowlib)
      .def_readwrite("flowlayout", &TMediator::flowlayout)
      .def_property("commandqueue", &TMediator::getCommandQueue, &TMediator::setCommandQueue)
      .def("startBusy", &TMediator::startBusy)
      .def("stopBusy", &TMediator::stopBusy)
      .def("showInfo", &TMediator::showInfo)
      .def("waitForFunction",
           [](TMediator& self, py::function f) {
             self.waitForFunction([f] {
               py::gil_scoped_acquire gil;
               f();
             });
           })
      .def("printException", [](TMediator& self) {
        // Called inside an except block: the exception being handled.
        py::object exc = py::module_::import("sys").attr("exc_info")()[py::int_(1)];
        if (exc.is_none()) return;
        try {
          std::rethrow_exception(capture(exc));
        } catch (...) {
          self.printException();
        }
      });
  m.attr("me") = py::cast(&me, py::return_value_policy::reference);

  // TUserException(msg, tb) with the field `traceback`.
  py::dict ns;
  py::exec(R"(
class TUserException(Exception):
    def __init__(self, msg, tb=''):
        Exception.__init__(self, msg)
        self.traceback = tb
)",
           ns);
  py::object cls = ns["TUserException"];
  cls.attr("__module__") = "MQuorvel";
  m.attr("TUserException") = cls;
  userExceptionClass() = fromObject(cls);
  py::register_exception_translator([](std::exception_ptr p) {
    try {
      if (p) std::rethrow_exception(p);
    } catch (const TUserException& e) {
      py::object c = toObject(userExceptionClass());
      py::object inst = c(py::str(e.what()), py::str(e.traceback));
      PyErr_SetObject(c.ptr(), inst.ptr());
    }
  });

  m.def("handleException", [](py::object e) { handleException(capture(e)); });
  m.def("userMessage", &userMessage, py::arg("msg"), py::arg("actions") = std::vector<std::string>{},
        py::arg("title") = "");
  m.def("defaultBranding", &defaultBranding);
  m.def("applicationVersion", &applicationVersion);
  m.def("getHeadlessPopups", [] {
    py::list out;
    if (auto* ui = dynamic_cast<THeadlessUi*>(me.ui.get()))
      for (const auto& p : ui->popups) out.append(py::make_tuple(p.msg, p.title));
    return out;
  });
}

}  // namespace quorvel::py_bindings
