// Test entry for the window library, under a virtual X server: the
// interpreter with the GUI classes and the command module, the toolkit
// started once, and a scratch folder holding the library and the icons the
// program reads from its working folder.
#include <gtest/gtest.h>
#include <wx/wx.h>

#include <cstdlib>
#include <filesystem>

#include "automation/MExecutor.h"
#include "engine/MFlowManager.h"
#include "engine/MMediator.h"
#include "engine/MPython.h"
#include "shell/MGui.h"
#include "shell/MGuiClasses.h"

namespace fs = std::filesystem;

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  const fs::path scratch = fs::current_path() / "scratch";
  fs::remove_all(scratch);
  fs::create_directories(scratch);
  const fs::path bin = fs::path(std::getenv("QUORVEL_BINARY_DIR")) / "bin";
  fs::copy_file(bin / "library", scratch / "library");
  fs::copy(bin / "icons", scratch / "icons", fs::copy_options::recursive);
  fs::current_path(scratch);

  quorvel::startInterpreter({"quorvel-gui-tests"});
  quorvel::registerGuiClasses();
  quorvel::registerScriptModules();
  quorvel::me.logger = std::make_shared<quorvel::TLogger>("Quorvel.log");
  quorvel::me.branding = quorvel::defaultBranding();

  static int wxArgc = 1;
  static char name[] = "quorvel-gui-tests";
  static char* wxArgv[] = {name, nullptr};
  wxApp::SetInstance(new wxApp());
  if (!wxEntryStart(wxArgc, wxArgv)) {
    std::fprintf(stderr, "no display: run under xvfb-run\n");
    return 1;
  }
  wxTheApp->CallOnInit();
  wxInitAllImageHandlers();
  // A failed toolkit assertion fails the test that caused it.
  quorvel::logToolkitAsserts([](const std::string& text) { ADD_FAILURE() << text; });
  quorvel::registerExecutor();

  const int result = RUN_ALL_TESTS();
  if (quorvel::me.flowlayout) quorvel::me.flowlayout->release();
  if (quorvel::me.flowlib) quorvel::me.flowlib->release();
  quorvel::me.flowlayout.reset();
  quorvel::me.flowlib.reset();
  wxTheApp->OnExit();
  wxEntryCleanup();
  quorvel::stopInterpreter();
  return result;
}
