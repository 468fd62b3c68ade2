// Turns a source tree into a dataset: folders, files and the definitions in
// them as hierarchy 1; includes, imports and inheritance as edges.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace quorvel {

struct TImportCounts {
  uint64_t folders = 0;
  uint64_t files = 0;
  uint64_t definitions = 0;
  uint64_t edges = 0;
  uint64_t unreadable = 0;
  uint64_t includesResolved = 0;
  uint64_t includesUnresolved = 0;
  uint64_t importsResolved = 0;
  uint64_t importsUnresolved = 0;
  uint64_t inheritsResolved = 0;
  uint64_t inheritsUnresolved = 0;
  // Names of modules, packages and namespaces read from the files.
  uint64_t references = 0;
  bool ctags = false;
  // Per kind of edge ("include", "import", "using", ...): resolved and left
  // out.
  struct Kind {
    uint64_t resolved = 0;
    uint64_t leftOut = 0;
  };
  std::map<std::string, Kind> kinds;
  // The history: commits read, and the commit the dataset was made at.
  uint64_t commits = 0;
  std::string head;
};

struct TImportOptions {
  // The ctags program; empty to leave definitions out.
  std::string ctags = "ctags";
  // Receives the protocol lines: "***STATUS: ..." and "***ERROR: ...".
  std::function<void(const std::string&)> report;
  // The history of a git work tree: read when the folder lies in one
  // (Auto), asked for (On: a status line says why it cannot be), or not.
  enum class History { Auto, On, Off } history = History::Auto;
  // Only commits after this date, in a form git takes ("2 years ago").
  std::string since;
  std::string git = "git";
  // Bare package names of scripts as nodes of a folder "external".
  bool keepExternal = false;
};

// The failure of an import as a whole; nothing is written then.
class TImportError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// One line of the protocol: the prefix and the text, with line breaks,
// other control characters and backslashes escaped, so that a file name can
// never start a line of its own.
std::string protocolLine(const std::string& prefix, const std::string& text);

// Imports `folder` into the dataset database `output`, written under a
// temporary name and renamed when complete.
TImportCounts importSourceTree(const std::string& folder, const std::string& output, const TImportOptions& options);

}  // namespace quorvel
