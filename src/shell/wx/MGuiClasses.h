// The window library's classes: registration and script bindings.
#pragma once

namespace quorvel {

// Enters the core's and the window library's classes in the registries and
// adds the window library's bindings to MQuorvel. Call before the script
// modules are registered; calling it again does nothing.
void registerGuiClasses();

// Makes the main window and the GUI manager known to scripts as
// me.mainwindow, me.mainframe and me.guimgr.
void publishGuiObjects();

}  // namespace quorvel
