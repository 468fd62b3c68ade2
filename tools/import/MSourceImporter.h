// Turns a source tree into a dataset: folders, files and the definitions in
// them as hierarchy 1; includes, imports and inheritance as edges.
#pragma once

#include <cstdint>
#include <functional>
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
  bool ctags = false;
};

struct TImportOptions {
  // The ctags program; empty to leave definitions out.
  std::string ctags = "ctags";
  // Receives the protocol lines: "***STATUS: ..." and "***ERROR: ...".
  std::function<void(const std::string&)> report;
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
