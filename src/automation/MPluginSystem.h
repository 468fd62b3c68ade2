// Plug-ins: folders beside the program, each offering an entry in the File
// menu, and the dialogs that the program lends them.
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

// Loads the plug-ins from the "plugins" folder (once; me.pluginsystem) and
// gives the File menu's entries, in the order of the plug-ins.
std::vector<TPluginMenuRow> pluginMenuRows();

// The dialogs and the progress dialog of plug-ins, as script functions.
void bindPluginUi(void* quorvelModule);

}  // namespace quorvel
