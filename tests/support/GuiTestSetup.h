// What every program of GUI tests (and the GUI benchmarks) does first and
// last: the interpreter with the GUI classes and the command module, the
// toolkit started once.
#pragma once

#include <wx/wx.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "app/MAppClasses.h"
#include "automation/MExecutor.h"
#include "engine/MFlowManager.h"
#include "engine/MMediator.h"
#include "engine/MPython.h"
#include "widgets/MGui.h"
#include "shell/wx/MGuiClasses.h"

namespace quorvel::test {

// The process as the program starts it: the interpreter with every
// library's classes and the command module, and the toolkit. False when
// there is no display.
inline bool startGuiProcess(const char* name, void (*onToolkitAssert)(const std::string&) = nullptr) {
  startInterpreter({name});
  registerApplicationClasses();
  registerScriptModules();
  me.logger = std::make_shared<TLogger>("Quorvel.log");
  me.branding = defaultBranding();

  static int wxArgc = 1;
  static std::string program;
  program = name;
  static char* wxArgv[] = {program.data(), nullptr};
  wxApp::SetInstance(new wxApp());
  if (!wxEntryStart(wxArgc, wxArgv)) {
    std::fprintf(stderr, "no display: run under xvfb-run\n");
    return false;
  }
  wxTheApp->CallOnInit();
  wxInitAllImageHandlers();
  logToolkitAsserts(onToolkitAssert);
  wireApplication();
  return true;
}

inline void stopGuiProcess() {
  if (me.flowlayout) me.flowlayout->release();
  if (me.flowlib) me.flowlib->release();
  me.flowlayout.reset();
  me.flowlib.reset();
  wxTheApp->OnExit();
  wxEntryCleanup();
  stopInterpreter();
}

// The same for tests, in a scratch folder holding the library and the
// icons that the program reads from its working folder.
inline bool setUpGuiTests(const char* name, void (*onToolkitAssert)(const std::string&)) {
  namespace fs = std::filesystem;
  const fs::path scratch = fs::current_path() / "scratch";
  fs::remove_all(scratch);
  fs::create_directories(scratch);
  const fs::path bin = fs::path(std::getenv("QUORVEL_BINARY_DIR")) / "bin";
  fs::copy_file(bin / "library", scratch / "library");
  fs::copy(bin / "icons", scratch / "icons", fs::copy_options::recursive);
  fs::current_path(scratch);
  return startGuiProcess(name, onToolkitAssert);
}

inline void tearDownGuiTests() { stopGuiProcess(); }

}  // namespace quorvel::test
