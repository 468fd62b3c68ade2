#include "MPython.h"

#include <pybind11/embed.h>

#include "MMediator.h"

namespace py = pybind11;

namespace quorvel {

namespace {
bool g_StartedHere = false;
}

void startInterpreter(const std::vector<std::string>& argv) {
  if (Py_IsInitialized()) return;
  std::vector<const char*> args;
  for (const auto& a : argv) args.push_back(a.c_str());
  py::initialize_interpreter(true, static_cast<int>(args.size()), args.empty() ? nullptr : args.data(), false);
  g_StartedHere = true;
}

bool interpreterRunning() { return Py_IsInitialized() != 0; }

void stopInterpreter() {
  if (!g_StartedHere || !Py_IsInitialized()) return;
  me.releaseAll();
  py::finalize_interpreter();
  g_StartedHere = false;
}

std::string pyReprString(const std::string& text) {
  return py::repr(py::str(text)).cast<std::string>();
}

TExceptionText describeException(std::exception_ptr e) {
  TExceptionText out;
  try {
    std::rethrow_exception(e);
  } catch (py::error_already_set& err) {
    py::module_ tb = py::module_::import("traceback");
    py::object type = err.type();
    py::object value = err.value();
    py::object trace = err.trace();
    out.text = py::str(value).cast<std::string>();
    py::list only = tb.attr("format_exception_only")(type, value);
    if (py::len(only) > 0) {
      out.lastLine = only[py::len(only) - 1].cast<std::string>();
      while (!out.lastLine.empty() && (out.lastLine.back() == '\n' || out.lastLine.back() == '\r'))
        out.lastLine.pop_back();
    }
    py::list lines = tb.attr("format_exception")(type, value, trace);
    for (auto line : lines) out.traceback += line.cast<std::string>();
  } catch (const TUserException& err) {
    out.text = err.what();
    out.lastLine = std::string("TUserException: ") + err.what();
    out.traceback = err.traceback + out.lastLine + "\n";
  } catch (const std::exception& err) {
    out.text = err.what();
    out.lastLine = std::string("RuntimeError: ") + err.what();
    out.traceback = "Traceback (most recent call last):\n  (C++ core)\n" + out.lastLine + "\n";
  } catch (...) {
    out.text = "unknown exception";
    out.lastLine = "RuntimeError: unknown exception";
    out.traceback = out.lastLine + "\n";
  }
  return out;
}

}  // namespace quorvel
