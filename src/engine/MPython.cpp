#include "MPython.h"

#include <pybind11/embed.h>

#include <cstdint>

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

namespace {

// Walks the parsed expression and builds only what a repr of plain data can
// hold. Kept as a module in sys.modules so that it lives and dies with the
// interpreter.
const char* kLiteralModule = R"(
import ast, math
_NAMES = {'None': None, 'True': True, 'False': False, 'inf': math.inf, 'nan': math.nan}
_NUMBERS = (int, float, complex)
# The geometry classes whose reprs stand in stored settings, by argument count.
_VECTORS = {'TVector2': 2, 'TVector4': 4}

def _fail(node):
    raise ValueError('not a stored value: %s' % type(node).__name__)

def _value(node):
    if isinstance(node, ast.Constant):
        return node.value
    if isinstance(node, ast.Tuple):
        return tuple(_value(e) for e in node.elts)
    if isinstance(node, ast.List):
        return [_value(e) for e in node.elts]
    if isinstance(node, ast.Set):
        return {_value(e) for e in node.elts}
    if isinstance(node, ast.Dict):
        if any(k is None for k in node.keys):
            _fail(node)
        return {_value(k): _value(v) for k, v in zip(node.keys, node.values)}
    if isinstance(node, ast.Name) and node.id in _NAMES:
        return _NAMES[node.id]
    if isinstance(node, ast.UnaryOp) and isinstance(node.op, (ast.USub, ast.UAdd)):
        v = _value(node.operand)
        if isinstance(v, _NUMBERS) and not isinstance(v, bool):
            return -v if isinstance(node.op, ast.USub) else v
    if isinstance(node, ast.BinOp) and isinstance(node.op, (ast.Add, ast.Sub)):
        left, right = _value(node.left), _value(node.right)
        if isinstance(left, (int, float)) and isinstance(right, complex):
            return left + right if isinstance(node.op, ast.Add) else left - right
    if (isinstance(node, ast.Call) and isinstance(node.func, ast.Name) and not node.keywords
            and node.func.id in _VECTORS):
        args = [_value(a) for a in node.args]
        if len(args) == _VECTORS[node.func.id] and all(isinstance(a, (int, float)) for a in args):
            import MQuorvel
            return getattr(MQuorvel, node.func.id)(*args)
    if (isinstance(node, ast.Call) and isinstance(node.func, ast.Name) and not node.keywords
            and node.func.id in ('set', 'frozenset', 'float')):
        args = [_value(a) for a in node.args]
        if node.func.id == 'float':
            if len(args) == 1 and isinstance(args[0], str) and args[0].strip().lower().lstrip('+-') in ('inf', 'nan', 'infinity'):
                return float(args[0])
        elif not args:
            return set() if node.func.id == 'set' else frozenset()
        elif len(args) == 1 and isinstance(args[0], (list, tuple, set)):
            return set(args[0]) if node.func.id == 'set' else frozenset(args[0])
    _fail(node)

def literal(text):
    if not isinstance(text, str):
        raise ValueError('not a stored value')
    return _value(ast.parse(text.strip(), mode='eval').body)
)";

}  // namespace

PyObject* evalStoredLiteral(const std::string& text) {
  py::dict modules = py::module_::import("sys").attr("modules");
  py::object mod;
  if (modules.contains("_quorvel_literal")) {
    mod = modules["_quorvel_literal"];
  } else {
    py::module_ made = py::module_::import("types").attr("ModuleType")("_quorvel_literal");
    py::exec(kLiteralModule, made.attr("__dict__"));
    modules["_quorvel_literal"] = made;
    mod = made;
  }
  return mod.attr("literal")(py::str(text)).release().ptr();
}

std::string utf8Safe(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  const size_t n = text.size();
  size_t i = 0;
  while (i < n) {
    const unsigned char c = p[i];
    size_t len = 0;
    uint32_t cp = 0;
    if (c < 0x80) {
      out += static_cast<char>(c);
      ++i;
      continue;
    }
    if (c >= 0xC2 && c <= 0xDF) len = 2, cp = c & 0x1F;
    else if (c >= 0xE0 && c <= 0xEF) len = 3, cp = c & 0x0F;
    else if (c >= 0xF0 && c <= 0xF4) len = 4, cp = c & 0x07;
    bool ok = len != 0 && i + len <= n;
    for (size_t k = 1; ok && k < len; ++k) {
      if ((p[i + k] & 0xC0) != 0x80) ok = false;
      else cp = (cp << 6) | (p[i + k] & 0x3F);
    }
    // Overlong forms, surrogates and code points beyond the range.
    if (ok && ((len == 3 && cp < 0x800) || (len == 4 && (cp < 0x10000 || cp > 0x10FFFF)) ||
               (cp >= 0xD800 && cp <= 0xDFFF)))
      ok = false;
    if (ok) {
      out.append(text.substr(i, len));
      i += len;
    } else {
      static const char* hex = "0123456789abcdef";
      out += "\\x";
      out += hex[c >> 4];
      out += hex[c & 15];
      ++i;
    }
  }
  return out;
}

std::string pyReprString(const std::string& text) {
  return py::repr(py::str(text)).cast<std::string>();
}

namespace {

// A text from the interpreter that may hold bytes that are not UTF-8 (a
// surrogate escape from a file name, say): replaced, never raised.
std::string safeText(py::handle obj) {
  if (!obj) return {};
  try {
    py::object s = py::str(obj);
    py::bytes b = s.attr("encode")("utf-8", "backslashreplace");
    return b.cast<std::string>();
  } catch (...) {
    PyErr_Clear();
    return "<unprintable " + std::string(Py_TYPE(obj.ptr())->tp_name) + ">";
  }
}

void describeScriptError(py::error_already_set& err, TExceptionText& out) {
  py::object type = err.type() ? err.type() : py::object(py::none());
  py::object value = err.value() ? err.value() : py::object(py::none());
  py::object trace = err.trace() ? err.trace() : py::object(py::none());
  out.text = safeText(value);
  py::module_ tb = py::module_::import("traceback");
  py::list only = tb.attr("format_exception_only")(type, value);
  if (py::len(only) > 0) {
    out.lastLine = safeText(only[py::len(only) - 1]);
    while (!out.lastLine.empty() && (out.lastLine.back() == '\n' || out.lastLine.back() == '\r'))
      out.lastLine.pop_back();
  }
  py::list lines = tb.attr("format_exception")(type, value, trace);
  for (auto line : lines) out.traceback += safeText(line);
}

}  // namespace

TExceptionText describeException(std::exception_ptr e) {
  TExceptionText out;
  try {
    std::rethrow_exception(e);
  } catch (py::error_already_set& err) {
    try {
      describeScriptError(err, out);
    } catch (...) {
      // Describing must never fail: the bare texts are enough.
      PyErr_Clear();
      out.text = err.what();
      out.lastLine = out.text.substr(0, out.text.find('\n'));
      out.traceback = out.text + "\n";
    }
  } catch (const TUserException& err) {
    out.text = utf8Safe(err.what());
    out.lastLine = std::string("TUserException: ") + err.what();
    out.traceback = err.traceback + out.lastLine + "\n";
  } catch (const std::exception& err) {
    out.text = utf8Safe(err.what());
    out.lastLine = std::string("RuntimeError: ") + err.what();
    out.traceback = "Traceback (most recent call last):\n  (C++ core)\n" + out.lastLine + "\n";
  } catch (...) {
    out.text = "unknown exception";
    out.lastLine = "RuntimeError: unknown exception";
    out.traceback = out.lastLine + "\n";
  }
  return out;
}

namespace {
std::vector<void (*)(void*)>& scriptBindingList() {
  static std::vector<void (*)(void*)> list;
  return list;
}
}  // namespace

void addScriptBindings(void (*bind)(void* quorvelModule)) { scriptBindingList().push_back(bind); }
const std::vector<void (*)(void*)>& addedScriptBindings() { return scriptBindingList(); }

std::string scriptLiteral(const std::string& text) {
  std::string out = "'";
  for (char c : text) {
    if (c == '\\' || c == '\'') out += '\\';
    if (c == '\n') {
      out += "\\n";
      continue;
    }
    out += c;
  }
  return out + "'";
}

}  // namespace quorvel
