// Plug-ins: folders beside the program, each offering an entry in the File
// menu.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace quorvel {

struct TPluginMenuRow {
  std::string name;
  std::string help;
  std::function<void()> run;
};

// The File menu's plug-in entries, in the order of the plug-ins.
std::vector<TPluginMenuRow> pluginMenuRows();

}  // namespace quorvel
