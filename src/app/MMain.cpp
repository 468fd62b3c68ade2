#include "MMain.h"

#include <pybind11/pybind11.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <wx/progdlg.h>
#include <wx/wx.h>

#include <cstdlib>
#include <ctime>
#include <iostream>

#include "app/MAppClasses.h"
#include "automation/MExecutor.h"
#include "automation/MMessageServer.h"
#include "engine/MLibrary.h"
#include "engine/MMediator.h"
#include "engine/MOptions.h"
#include "engine/MPython.h"
#include "shell/wx/MGuiClasses.h"
#include "shell/wx/MMainFrame.h"

namespace py = pybind11;

namespace quorvel {

namespace {

std::string platformVersion() {
  struct utsname u {};
  if (uname(&u) != 0) return "unknown";
  return std::string(u.sysname) + " " + u.release;
}

std::string executableModificationTime() {
  struct stat st {};
  if (stat("/proc/self/exe", &st) != 0) return "unknown";
  std::string t = std::ctime(&st.st_mtime);
  while (!t.empty() && t.back() == '\n') t.pop_back();
  return t;
}

class TQuorvelApp : public wxApp {
 public:
  bool OnInit() override { return true; }
  // An exception that a handler let through ends in the central handler,
  // not in the end of the program.
  bool OnExceptionInMainLoop() override {
    handleException(std::current_exception());
    return true;
  }
  void OnUnhandledException() override { handleException(std::current_exception()); }
};

// Message boxes, the busy cursor, the status bar and the progress dialog of
// the window library. With QUORVEL_POPUPS=log in the environment, message
// boxes only go to the log, so that unattended runs never wait for a click.
class TWxUi : public TUiServices {
 public:
  void popup(const std::string& msg, const std::string& title) override {
    if (quiet()) {
      logInfo("Message box '" + title + "': " + msg);
      return;
    }
    wxMessageBox(wxText(msg), wxText(title), wxOK | wxICON_ERROR, mainFrame());
  }
  void showInfo(const std::string& text) override {
    if (quiet()) {
      logInfo("Message box: " + text);
      return;
    }
    wxMessageBox(wxText(text), "", wxOK, mainFrame());
  }
  void setBusy(bool busy) override {
    if (busy)
      wxBeginBusyCursor();
    else if (wxIsBusy())
      wxEndBusyCursor();
  }
  bool hasStatusBar() const override { return mainFrame() && mainFrame()->statusbar; }
  void setStatusText(const std::string& text) override {
    if (hasStatusBar()) mainFrame()->statusbar->SetStatusText(wxText(text));
  }
  void openProgress(const std::string& title) override {
    m_Progress = new wxProgressDialog(wxText(title), "", 100, mainFrame(),
                                      wxPD_CAN_ABORT | wxPD_APP_MODAL | wxPD_ELAPSED_TIME);
  }
  bool pulseProgress(const std::string& text) override { return !m_Progress || m_Progress->Pulse(wxText(text)); }
  void closeProgress() override {
    if (m_Progress) m_Progress->Destroy();
    m_Progress = nullptr;
  }
  void yield() override { wxYield(); }

 private:
  static bool quiet() {
    const char* v = std::getenv("QUORVEL_POPUPS");
    return v && std::string(v) == "log";
  }
  wxProgressDialog* m_Progress = nullptr;
};

bool haveDisplay() {
  const char* x = std::getenv("DISPLAY");
  const char* w = std::getenv("WAYLAND_DISPLAY");
  return (x && *x) || (w && *w);
}

}  // namespace

void run2(const std::vector<std::string>& args) {
  const std::string pyver = py::module_::import("sys").attr("version").cast<std::string>();
  logDebug("Pyver: " + pyver + ", Winver: " + platformVersion());

  me.branding = defaultBranding();
  py::dict branding = py::reinterpret_borrow<py::dict>(me.branding.get());
  logInfo(py::str(branding["appnamelong"]).cast<std::string>() + " " +
          py::str(branding["appversion"]).cast<std::string>());
  logDebug("Executable mod. time: " + executableModificationTime());

  me.cmdoptions = parseCommandLine(std::vector<std::string>(args.begin() + (args.empty() ? 0 : 1), args.end()));
  const TCmdOptions options = readCmdOptions(me.cmdoptions);
  if (options.quit && !options.run) throw TProcessExit(0);

  // The application object of the window library needs a display.
  if (!haveDisplay()) {
    std::cout << "Quorvel Workbench needs a display: start it on a desktop, or under a virtual X server, "
                 "for instance: xvfb-run -a quorvel"
              << std::endl;
    logCriticalError("No display: DISPLAY is not set");
    throw TProcessExit(1);
  }
  static int argc = 1;
  static char name[] = "quorvel";
  static char* argv[] = {name, nullptr};
  wxApp::SetInstance(new TQuorvelApp());
  if (!wxEntryStart(argc, argv)) {
    std::cout << "Quorvel Workbench cannot open the display '" << std::getenv("DISPLAY")
              << "': start it on a desktop, or under a virtual X server, for instance: xvfb-run -a quorvel"
              << std::endl;
    throw TProcessExit(1);
  }
  wxTheApp->CallOnInit();
  wxInitAllImageHandlers();
  logToolkitAsserts();
  me.ui = std::make_shared<TWxUi>();
  wireApplication();

  if (options.listento) startMessageChannel(options.sendto);

  logDebug("Initializing UI...");
  auto* frame = new TMainFrame();
  publishGuiObjects();
  me.onCloseFile = [frame] { frame->OnCloseFile(); };

  if (options.run) {
    try {
      runScript(*options.run);
    } catch (...) {
      handleException(std::current_exception());
    }
  }
  wxTheApp->OnRun();

  // The windows are gone; the networks go before the window library does.
  me.onCloseFile = nullptr;
  if (me.flowlayout) me.flowlayout->release();
  if (me.flowlib) me.flowlib->release();
  me.flowlayout.reset();
  me.flowlib.reset();
  me.mainwindow.reset();
  me.guimgr.reset();
  setGuiMgr(nullptr);
  me.ui = std::make_shared<THeadlessUi>();
  wxTheApp->OnExit();
  wxEntryCleanup();
}

void run(const std::vector<std::string>& args) {
  try {
    run2(args);
  } catch (const TProcessExit&) {
    throw;
  } catch (...) {
    const TExceptionText info = describeException(std::current_exception());
    std::cout << info.traceback << std::flush;
    logCriticalError(info.traceback);
  }
}

}  // namespace quorvel
