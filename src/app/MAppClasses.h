// The root of registration: every library's classes and script bindings,
// and the wiring between the main window and the command interface, which
// know nothing of each other.
#pragma once

namespace quorvel {

// The classes and bindings of every library, before the script modules are
// made (registerScriptModules).
void registerApplicationClasses();
// The command module, and the main window's commands, scripts, perspectives,
// plug-in menu rows and message channel through it; after the toolkit
// started. Calling it again does nothing more.
void wireApplication();

}  // namespace quorvel
