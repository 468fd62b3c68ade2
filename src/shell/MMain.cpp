#include "MMain.h"

#include <pybind11/pybind11.h>
#include <sys/stat.h>
#include <sys/utsname.h>

#include <ctime>
#include <iostream>

#include "engine/MLibrary.h"
#include "engine/MMediator.h"
#include "engine/MOptions.h"
#include "engine/MPython.h"

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

  if (options.listento) {
    // The message channel is not part of this build yet; the start goes on.
    logCriticalError("Could not start listening server: 'the message channel is not available in this build'");
  }

  logDebug("Initializing UI...");
  // What the main window does first that needs no window: the library and
  // the running network.
  setUpNetworks("library");
  const std::string note =
      "The main window is not part of this build yet: start-up stops after the library was read.";
  logInfo(note);
  std::cout << note << std::endl;
  if (options.run) {
    logInfo("Script '" + *options.run + "' not run: the command interface comes with the main window.");
  }
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
