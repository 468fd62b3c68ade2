#include "MOptions.h"

#include <pybind11/eval.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "MMediator.h"

namespace py = pybind11;

namespace quorvel {

namespace {
const char* kParser = R"(
import optparse

def _quorvel_parse(args):
    parser = optparse.OptionParser(prog="quorvel", usage="Usage: %prog [options]")
    parser.add_option("-i", "--input", dest="inputfile", type="string")
    parser.add_option("-l", "--listento", dest="listento", type="int", help="Listen to <port number>")
    parser.add_option("-s", "--sendto", dest="sendto", type="int", help="Send commands to this hwnd")
    parser.add_option("-d", "--debug", dest="debug", action="store_true", help=optparse.SUPPRESS_HELP)
    parser.add_option("-r", "--run", dest="run", type="string", help="Run script after starting.")
    parser.add_option("-q", "--quit", dest="quit", action="store_true", help="Quit after running script.")
    parser.add_option("--showflow", dest="showflow", action="store_true", help=optparse.SUPPRESS_HELP)
    parser.add_option("--hwnd", dest="hwnd", type="string")
    options, positional = parser.parse_args(list(args))
    # Numbers travel on as 32-bit integers.
    for opt, name in (("-l", "listento"), ("-s", "sendto")):
        value = getattr(options, name)
        if value is not None and not -2**31 <= value < 2**31:
            parser.error("option %s: invalid integer value: %r" % (opt, str(value)))
    return options
)";
}  // namespace

TPyRef parseCommandLine(const std::vector<std::string>& args) {
  py::dict ns;
  py::exec(kParser, ns);
  try {
    // Arguments are file names and may hold any bytes: they become texts
    // the way the interpreter reads its own argv, and go back unchanged.
    py::list texts;
    for (const auto& a : args)
      texts.append(py::reinterpret_steal<py::object>(PyUnicode_DecodeFSDefaultAndSize(a.data(), Py_ssize_t(a.size()))));
    py::object options = ns["_quorvel_parse"](texts);
    return TPyRef::borrow(options.ptr());
  } catch (py::error_already_set& e) {
    if (!e.matches(PyExc_SystemExit)) throw;
    py::object code = e.value().attr("code");
    int exitcode = 0;
    if (py::isinstance<py::int_>(code)) exitcode = code.cast<int>();
    else if (!code.is_none()) exitcode = 1;
    throw TProcessExit(exitcode);
  }
}

TCmdOptions readCmdOptions(const TPyRef& parsed) {
  TCmdOptions out;
  if (!parsed || parsed.isNone()) return out;
  py::object o = py::reinterpret_borrow<py::object>(parsed.get());
  auto text = [&o](const char* name) -> std::optional<std::string> {
    py::object v = py::getattr(o, name, py::none());
    if (v.is_none()) return std::nullopt;
    py::object bytes = py::reinterpret_steal<py::object>(PyUnicode_EncodeFSDefault(py::str(v).ptr()));
    if (!bytes) throw py::error_already_set();
    return bytes.cast<std::string>();
  };
  auto integer = [&o](const char* name) -> std::optional<int> {
    py::object v = py::getattr(o, name, py::none());
    if (v.is_none()) return std::nullopt;
    return v.cast<int>();
  };
  auto flag = [&o](const char* name) { return py::bool_(py::getattr(o, name, py::none())).cast<bool>(); };
  out.inputfile = text("inputfile");
  out.listento = integer("listento");
  out.sendto = integer("sendto");
  out.debug = flag("debug");
  out.run = text("run");
  out.quit = flag("quit");
  out.showflow = flag("showflow");
  out.hwnd = text("hwnd");
  return out;
}

}  // namespace quorvel
