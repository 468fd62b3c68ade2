// The one mediator through which the subsystems reach each other, the logger,
// and the central handler of exceptions.
#pragma once

#include <cstdint>
#include <exception>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "MFlowObjects.h"
#include "MPyRef.h"

namespace quorvel {

class TFlowManager;

// ---------------------------------------------------------------------------
// Logger

class TLogger {
 public:
  enum Level : unsigned char {
    kDebug = 10,
    kInfo = 20,
    kMessage = 30,
    kWarning = 40,
    kError = 50,
    kCriticalError = 60,
  };

  struct Record {
    int64_t time;
    unsigned char level;
    std::string text;
    TProcessorPtr proc;
  };

  // Milliseconds, like the C library's clock on the platform the log format
  // comes from. Tests pass their own.
  using Clock = std::function<int64_t()>;
  static int64_t defaultClock();

  explicit TLogger(const std::string& filename = "Quorvel.log", Clock clock = nullptr);

  void debug(const std::string& text, const TProcessorPtr& proc = nullptr) { log(kDebug, text, proc); }
  void info(const std::string& text, const TProcessorPtr& proc = nullptr) { log(kInfo, text, proc); }
  void message(const std::string& text, const TProcessorPtr& proc = nullptr) { log(kMessage, text, proc); }
  void warning(const std::string& text, const TProcessorPtr& proc = nullptr) { log(kWarning, text, proc); }
  void error(const std::string& text, const TProcessorPtr& proc = nullptr) { log(kError, text, proc); }
  void criticalerror(const std::string& text, const TProcessorPtr& proc = nullptr) {
    log(kCriticalError, text, proc);
  }
  void status(const std::string&, const TProcessorPtr& = nullptr) {}
  void log(unsigned char level, const std::string& text, const TProcessorPtr& proc = nullptr);

  // The one message that matters now, for the status bar: ten seconds, the
  // highest level, the newest among equals, the first line only.
  std::string getMostImportantMessage();
  std::string getLastMessages() const;

  const std::vector<Record>& records() const { return m_Records; }
  size_t recentCount() const { return m_Recent.size(); }
  static const char* levelWord(unsigned char level);

 private:
  std::shared_ptr<std::ofstream> m_File;
  std::vector<Record> m_Records;
  // Newest first: by time, then by order of arrival.
  std::map<std::pair<int64_t, size_t>, size_t, std::greater<>> m_Recent;
  Clock m_Clock;
};

// ---------------------------------------------------------------------------
// What the mediator asks of the user interface. The GUI fills it with message
// boxes, cursors and dialogs; headless code and tests get the recording
// default.

class TUiServices {
 public:
  virtual ~TUiServices() = default;
  // A message box with an error icon.
  virtual void popup(const std::string& msg, const std::string& title) = 0;
  // A plain message box.
  virtual void showInfo(const std::string& text) = 0;
  virtual void setBusy(bool busy) = 0;
  virtual bool hasStatusBar() const = 0;
  virtual void setStatusText(const std::string& text) = 0;
  // The progress dialog of waitForFunction.
  virtual void openProgress(const std::string& title) = 0;
  // False once the user asked to abort.
  virtual bool pulseProgress(const std::string& text) = 0;
  virtual void closeProgress() = 0;
  // Lets the toolkit handle pending events.
  virtual void yield() = 0;
};

// What views ask of the application's main window: to run the network
// until it is quiet, and to step an animation from the idle loop. Without a
// main window (headless) the network is left to its caller and nothing
// animates.
class TAppServices {
 public:
  virtual ~TAppServices() = default;
  virtual void runFlow() = 0;
  // Calls step with fractions up to 1.0 over so many seconds; false when
  // there is nothing that animates.
  virtual bool animate(std::function<void(double)> step, double seconds) = 0;
};
// The services of the process; null without a main window.
TAppServices* appServices();
void setAppServices(TAppServices* services);
// Runs the network through the main window, if there is one.
void runFlowNow();

class THeadlessUi : public TUiServices {
 public:
  struct Popup {
    std::string msg;
    std::string title;
  };
  std::vector<Popup> popups;
  std::vector<std::string> infos;
  std::vector<std::string> progressEvents;
  bool busy = false;

  void popup(const std::string& msg, const std::string& title) override { popups.push_back({msg, title}); }
  void showInfo(const std::string& text) override { infos.push_back(text); }
  void setBusy(bool b) override { busy = b; }
  bool hasStatusBar() const override { return false; }
  void setStatusText(const std::string&) override {}
  void openProgress(const std::string& title) override { progressEvents.push_back("open:" + title); }
  bool pulseProgress(const std::string& text) override {
    progressEvents.push_back("pulse:" + text);
    return true;
  }
  void closeProgress() override { progressEvents.push_back("close"); }
  void yield() override {}
};

// ---------------------------------------------------------------------------

class TUserException : public std::runtime_error {
 public:
  TUserException(const std::string& msg, std::string tb) : std::runtime_error(msg), traceback(std::move(tb)) {}
  std::string traceback;
};

// Raised to end the process with an exit code, as the option parser and
// "--quit" do; the process entry turns it into the code.
class TProcessExit : public std::exception {
 public:
  explicit TProcessExit(int code) : m_Code(code) {}
  int code() const { return m_Code; }
  const char* what() const noexcept override { return "process exit"; }

 private:
  int m_Code;
};

class TMediator {
 public:
  TMediator();

  bool RELEASEMODE = false;
  bool PUBLICMODE = false;
  bool manualupdate = false;
  TPyRef pluginsystem;
  TPyRef statusbar;
  TPyRef imagelist;
  TPyRef mainwindow;
  std::string applicationfolder;
  std::shared_ptr<TLogger> logger;
  TPyRef branding;
  TPyRef server;
  TPyRef cmdoptions;
  TPyRef imagelistmap;
  TPyRef guimgr;
  TPyRef menubar;
  std::shared_ptr<TFlowManager> flowlib;
  std::shared_ptr<TFlowManager> flowlayout;
  std::shared_ptr<void> m_IconImageBuilder;

  std::shared_ptr<TUiServices> ui;
  // What "closefile" does. The main window puts its OnCloseFile here; the
  // default empties the running network.
  std::function<void()> onCloseFile;

  // Pending command strings, oldest first: a list of the script language, so
  // that scripts and the message channel append to the very same queue.
  TPyRef getCommandQueue();
  void setCommandQueue(TPyRef list);
  void appendCommand(const std::string& command);

  void startBusy(const std::string& text);
  void stopBusy(const std::string& text);
  void showInfo(const std::string& text);
  // Runs f on a second thread and keeps the interface alive meanwhile; a
  // progress dialog appears only after about one second.
  void waitForFunction(const std::function<void()>& f);
  // Inside a handler: writes the current exception's traceback as a
  // critical error, or to standard output when that fails.
  void printException();
  void closeFile();

  // The long application name, also when branding is not set yet.
  std::string appNameLong() const;

  // Drops every script object and both networks, before the interpreter
  // goes down.
  void releaseAll();

 private:
  TPyRef m_CommandQueue;
};

// The one mediator of the process.
extern TMediator& me;

// Logs through me.logger when there is one.
void logDebug(const std::string& text);
void logInfo(const std::string& text);
void logMessage(const std::string& text);
void logWarning(const std::string& text);
void logError(const std::string& text);
void logCriticalError(const std::string& text);

// The central handler of a flow run, a command and a plug-in call. It never
// raises.
void handleException(std::exception_ptr e) noexcept;

// A text in the dictionary form that handleException shows to the user.
std::string userMessage(const std::string& msg, const std::vector<std::string>& actions = {},
                        const std::string& title = "");

// The branding dictionary, as a script object.
TPyRef defaultBranding();

// The version text shown after the program's name.
std::string applicationVersion();

}  // namespace quorvel
