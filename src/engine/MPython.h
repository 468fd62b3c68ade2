// The embedded interpreter: starting it once per process, and describing
// exceptions of both worlds in the interpreter's terms.
#pragma once

#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "MPyRef.h"

namespace quorvel {

// Starts the interpreter if it is not running yet, and gives it argv. In an
// extension module the interpreter runs already and this does nothing.
void startInterpreter(const std::vector<std::string>& argv = {});
bool interpreterRunning();
// Ends the interpreter if this process started it.
void stopInterpreter();

// Makes the modules MQuorvel and MStlWraps importable in the running
// interpreter. Raises "Failed to register module with Python interpreter".
// Defined by the bindings library (python/), which every program links.
void registerScriptModules();

// A library above the core adds its own bindings to MQuorvel: each function
// given here runs, in order, once the core's bindings stand. Register before
// registerScriptModules.
void addScriptBindings(void (*bind)(void* quorvelModule));
// Those functions, in the order given.
const std::vector<void (*)(void*)>& addedScriptBindings();

struct TExceptionText {
  // The exception's own text: what str() of it gives.
  std::string text;
  // The last line of its traceback: type and text.
  std::string lastLine;
  // The whole traceback, as the interpreter prints it.
  std::string traceback;
};

// Describes an exception, whether it came from a script or from C++. Called
// with the interpreter running.
TExceptionText describeException(std::exception_ptr e);

// The text with every byte that is not part of valid UTF-8 written as the
// escape "\xNN": what the logger, messages and windows show of texts from
// files, whose bytes the program does not choose.
std::string utf8Safe(std::string_view text);

// Python's repr of a text.
std::string pyReprString(const std::string& text);

// Reads back the text form the program writes for script objects: reprs of
// literals, lists, tuples, dicts and sets (also set(), inf, nan and vectors
// of numbers). Nothing is run: any other expression raises ValueError.
PyObject* evalStoredLiteral(const std::string& text);

// Escapes a text as a literal of the script language: quotes and
// backslashes, so that a file name reaches a command whole.
std::string scriptLiteral(const std::string& text);

}  // namespace quorvel
