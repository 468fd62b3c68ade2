// quorvel-import: a dataset from a source tree.
//   quorvel-import [--ctags PROGRAM | --no-ctags] [--git | --no-git]
//                  [--since DATE] [--external] <folder> <out.db>
// The output speaks the plug-in line protocol: "***QUORVEL" first, then
// "***STATUS: " and "***ERROR: " lines. Exit code 0 on success, 1 when the
// import failed (nothing is written then), 2 for a wrong command line.
#include <iostream>
#include <string>

#include "MSourceImporter.h"

using namespace quorvel;

int main(int argc, char** argv) {
  std::cout << "***QUORVEL" << std::endl;
  TImportOptions options;
  options.report = [](const std::string& line) { std::cout << line << std::endl; };
  std::string folder;
  std::string output;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--no-ctags") {
      options.ctags.clear();
    } else if (arg == "--ctags" && i + 1 < argc) {
      options.ctags = argv[++i];
    } else if (arg == "--git") {
      options.history = TImportOptions::History::On;
    } else if (arg == "--no-git") {
      options.history = TImportOptions::History::Off;
    } else if (arg == "--since" && i + 1 < argc) {
      options.since = argv[++i];
    } else if (arg == "--external") {
      options.keepExternal = true;
    } else if (arg.rfind("--", 0) == 0 || !output.empty()) {
      folder.clear();
      break;
    } else if (folder.empty()) {
      folder = arg;
    } else {
      output = arg;
    }
  }
  if (folder.empty() || output.empty()) {
    std::cout << "***ERROR: usage: quorvel-import [--ctags PROGRAM | --no-ctags] [--git | --no-git] [--since DATE] "
                 "[--external] <folder> <out.db>"
              << std::endl;
    return 2;
  }
  try {
    importSourceTree(folder, output, options);
  } catch (const std::exception& e) {
    std::cout << protocolLine("***ERROR: ", e.what()) << std::endl;
    return 1;
  }
  return 0;
}
