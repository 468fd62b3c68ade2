// The command line of the program.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "MPyRef.h"

namespace quorvel {

// The parsed options, read off the script object that me.cmdoptions holds.
struct TCmdOptions {
  std::optional<std::string> inputfile;
  std::optional<int> listento;
  std::optional<int> sendto;
  bool debug = false;
  std::optional<std::string> run;
  bool quit = false;
  bool showflow = false;
  std::optional<std::string> hwnd;
};

// Parses the arguments (without the program name) with the interpreter's
// option parser and gives its result object. An unknown option or a value of
// the wrong kind prints the usage and raises TProcessExit(2); "--help"
// prints the help and raises TProcessExit(0).
TPyRef parseCommandLine(const std::vector<std::string>& args);
TCmdOptions readCmdOptions(const TPyRef& parsed);

}  // namespace quorvel
