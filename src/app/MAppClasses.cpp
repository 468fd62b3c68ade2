#include "MAppClasses.h"

#include "automation/MExecutor.h"
#include "automation/MMessageServer.h"
#include "automation/MPluginSystem.h"
#include "engine/MMediator.h"
#include "python/MCoreClasses.h"
#include "shell/wx/MGuiClasses.h"
#include "shell/wx/MMainFrame.h"

namespace quorvel {

void registerApplicationClasses() {
  registerCoreClasses();
  registerGuiClasses();
  registerAutomationClasses();
}

void wireApplication() {
  registerExecutor();
  TShellHooks& hooks = shellHooks();
  hooks.execute = [](const std::string& command) { execute(command); };
  hooks.runScript = [](const std::optional<std::string>& f) { runScript(f); };
  hooks.openPerspective = [](const std::optional<std::string>& f) { openPerspective(f); };
  hooks.pluginRows = [] {
    std::vector<TShellHooks::TMenuRow> rows;
    for (auto& row : pluginMenuRows()) rows.push_back({row.name, row.help, row.run});
    return rows;
  };
  hooks.started = [] {
    if (TMessageServer* server = messageServer())
      server->sendMessageToListener("OnQuorvelStarted(" + std::to_string(server->windowHandle()) + ")");
  };
  hooks.closing = [] {
    if (TMessageServer* server = messageServer()) server->close();
    setMessageServer(nullptr);
    me.server = TPyRef::none();
  };
}

}  // namespace quorvel
