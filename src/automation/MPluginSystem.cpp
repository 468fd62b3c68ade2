#include "automation/MPluginSystem.h"

namespace quorvel {

std::vector<TPluginMenuRow> pluginMenuRows() { return {}; }

}  // namespace quorvel
