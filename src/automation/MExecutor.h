// The command interface: the module MExecutor, whose functions are the
// commands that scripts, the message channel and menus queue, and execute(),
// through which every queued command runs.
#pragma once

#include <optional>
#include <string>

namespace quorvel {

// Makes the module MExecutor importable; calling it again does nothing.
void registerExecutor();
// The script bindings of this library (the message server, the dialogs of
// plug-ins); before the script modules are made.
void registerAutomationClasses();

// Runs one command in the module's namespace. Never raises: failures go to
// the central handler.
void execute(const std::string& command);

// Queues the command lines of a script; with no name, asks for one.
void runScript(const std::optional<std::string>& filename);
void openPerspective(const std::optional<std::string>& filename);

}  // namespace quorvel
