#include "MMediator.h"

#include <pybind11/pybind11.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <thread>

#include "MFlowManager.h"
#include "MPython.h"
#include "MVersion.h"
#include "base/MTextForm.h"

namespace py = pybind11;

namespace quorvel {

// ---------------------------------------------------------------------------
// TLogger

int64_t TLogger::defaultClock() {
  using namespace std::chrono;
  return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

TLogger::TLogger(const std::string& filename, Clock clock)
    : m_File(std::make_shared<std::ofstream>(filename, std::ios::out | std::ios::trunc | std::ios::binary)),
      m_Clock(clock ? std::move(clock) : Clock(&TLogger::defaultClock)) {}

const char* TLogger::levelWord(unsigned char level) {
  switch (level) {
    case kWarning:
      return "Warning: ";
    case kError:
      return "Error: ";
    case kCriticalError:
      return "Critical error: ";
    default:
      return "";
  }
}

void TLogger::log(unsigned char level, const std::string& text, const TProcessorPtr& proc) {
  const int64_t now = m_Clock();
  const size_t index = m_Records.size();
  m_Records.push_back(Record{now, level, utf8Safe(text), proc});
  const std::string& kept = m_Records.back().text;
  m_Recent.emplace(std::make_pair(now, index), index);
  if (m_File && *m_File) {
    *m_File << levelWord(level) << kept << '\n';
    m_File->flush();
  }
}

std::string TLogger::getMostImportantMessage() {
  const int64_t limit = m_Clock() - 10000;
  // The oldest entries stand at the end.
  while (!m_Recent.empty() && std::prev(m_Recent.end())->first.first < limit) m_Recent.erase(std::prev(m_Recent.end()));
  if (m_Recent.empty()) return "";
  const Record* kept = nullptr;
  for (const auto& [key, index] : m_Recent) {
    const Record& r = m_Records[index];
    if (!kept || r.level > kept->level) kept = &r;
  }
  if (kept->level < kMessage) return "";
  const size_t newline = kept->text.find('\n');
  return std::string(levelWord(kept->level)) + kept->text.substr(0, newline);
}

std::string TLogger::getLastMessages() const {
  std::string out;
  for (const auto& r : m_Records) {
    out += levelWord(r.level);
    out += r.text;
    out += '\n';
  }
  return out;
}

// ---------------------------------------------------------------------------
// TMediator

namespace {
std::string findApplicationFolder() {
  std::error_code ec;
  std::filesystem::path exe = std::filesystem::read_symlink("/proc/self/exe", ec);
  if (ec) return std::filesystem::current_path(ec).string();
  return exe.parent_path().parent_path().string();
}
}  // namespace

TMediator::TMediator() : applicationfolder(findApplicationFolder()), ui(std::make_shared<THeadlessUi>()) {}

TMediator& me = *new TMediator();

TPyRef TMediator::getCommandQueue() {
  if (!m_CommandQueue) m_CommandQueue = TPyRef::steal(py::list().release().ptr());
  return m_CommandQueue;
}

void TMediator::setCommandQueue(TPyRef list) { m_CommandQueue = std::move(list); }

void TMediator::appendCommand(const std::string& command) {
  TPyRef queue = getCommandQueue();
  py::reinterpret_borrow<py::object>(queue.get()).attr("append")(command);
}

void TMediator::startBusy(const std::string& text) {
  ui->setBusy(true);
  if (ui->hasStatusBar()) ui->setStatusText(text);
}

void TMediator::stopBusy(const std::string& text) {
  ui->setBusy(false);
  if (ui->hasStatusBar() && !text.empty()) ui->setStatusText(text);
}

void TMediator::showInfo(const std::string& text) { ui->showInfo(text); }

void TMediator::waitForFunction(const std::function<void()>& f) {
  std::atomic<bool> done{false};
  std::exception_ptr error;
  std::thread worker([&] {
    try {
      f();
    } catch (...) {
      error = std::current_exception();
    }
    done = true;
  });
  int count = 0;
  bool dialog = false;
  while (!done) {
    // The worker may need the interpreter's lock; the wait gives it up.
    if (Py_IsInitialized() && PyGILState_Check()) {
      py::gil_scoped_release release;
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    } else {
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    if (done) break;
    ++count;
    if (count == 10) {
      ui->openProgress("Processing");
      dialog = true;
    }
    if (dialog) ui->pulseProgress("Processing...");
    ui->yield();
  }
  if (Py_IsInitialized() && PyGILState_Check()) {
    py::gil_scoped_release release;
    worker.join();
  } else {
    worker.join();
  }
  if (dialog) ui->closeProgress();
  if (error) std::rethrow_exception(error);
}

void TMediator::printException() {
  std::string text;
  try {
    text = describeException(std::current_exception()).traceback;
    if (!logger) throw std::runtime_error("no logger");
    logger->criticalerror(text);
  } catch (...) {
    std::cout << text << std::flush;
  }
}

void TMediator::closeFile() {
  if (onCloseFile) {
    onCloseFile();
  } else if (flowlayout) {
    flowlayout->destroy();
  }
}

std::string TMediator::appNameLong() const {
  if (branding && !branding.isNone()) {
    py::dict d = py::reinterpret_borrow<py::dict>(branding.get());
    if (d.contains("appnamelong")) return py::str(d["appnamelong"]).cast<std::string>();
  }
  return "Quorvel Workbench";
}

void TMediator::releaseAll() {
  if (flowlayout) flowlayout->release();
  if (flowlib) flowlib->release();
  flowlayout.reset();
  flowlib.reset();
  for (TPyRef* ref : {&pluginsystem, &statusbar, &imagelist, &mainwindow, &branding, &server, &cmdoptions,
                      &imagelistmap, &guimgr, &menubar, &m_CommandQueue})
    ref->reset();
  m_IconImageBuilder.reset();
}

// ---------------------------------------------------------------------------

void logDebug(const std::string& text) {
  if (me.logger) me.logger->debug(text);
}
void logInfo(const std::string& text) {
  if (me.logger) me.logger->info(text);
}
void logMessage(const std::string& text) {
  if (me.logger) me.logger->message(text);
}
void logWarning(const std::string& text) {
  if (me.logger) me.logger->warning(text);
}
void logError(const std::string& text) {
  if (me.logger) me.logger->error(text);
}
void logCriticalError(const std::string& text) {
  if (me.logger) me.logger->criticalerror(text);
}

// ---------------------------------------------------------------------------
// The central handler

namespace {
std::string lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}
}  // namespace

void handleException(std::exception_ptr e) noexcept {
  try {
    const TExceptionText info = describeException(e);
    std::string msg = info.text;
    std::vector<std::string> actions;
    std::string title;
    if (trimmed(msg).starts_with('{')) {
      py::object parsed = py::module_::import("ast").attr("literal_eval")(std::string(trimmed(msg)));
      py::dict d = parsed.cast<py::dict>();
      if (d.contains("msg")) msg = py::str(d["msg"]).cast<std::string>();
      if (d.contains("actions")) {
        for (auto a : d["actions"]) actions.push_back(py::str(a).cast<std::string>());
      }
      if (d.contains("title")) title = py::str(d["title"]).cast<std::string>();
      logError(msg);
    } else {
      msg = info.lastLine;
      std::cout << msg << std::endl;
      logCriticalError(msg);
    }
    for (const auto& action : actions) {
      const std::string a = lower(action);
      if (a == "closefile") {
        me.closeFile();
      } else if (a == "popup") {
        me.ui->popup(msg, title.empty() ? me.appNameLong() : title);
      } else if (a == "clearqueue") {
        me.setCommandQueue(TPyRef::steal(py::list().release().ptr()));
      }
    }
  } catch (...) {
    try {
      const std::string tb = describeException(std::current_exception()).traceback;
      std::cout << tb << std::flush;
      logError(tb);
    } catch (...) {
    }
  }
}

std::string userMessage(const std::string& msg, const std::vector<std::string>& actions, const std::string& title) {
  py::dict d;
  d["msg"] = py::str(utf8Safe(msg));
  py::list a;
  for (const auto& action : actions) a.append(action);
  d["actions"] = a;
  d["title"] = py::str(utf8Safe(title));
  return py::repr(d).cast<std::string>();
}

TPyRef defaultBranding() {
  py::dict d;
  d["appid"] = "Quorvel";
  d["appnamelong"] = "Quorvel Workbench";
  d["appnameshort"] = "Quorvel";
  d["appversion"] = applicationVersion();
  d["companyname"] = "Tarnwick";
  d["website"] = "https://tarnwick.example/quorvel";
  d["aboutboxtexttop"] =
      "Quorvel Workbench explores the structure of large software systems through linked views.";
  d["aboutboxtextbottom"] = "";
  return TPyRef::steal(d.release().ptr());
}

std::string applicationVersion() {
  // The version comes from the build, the way a version resource would
  // give it, and is shown stripped of blanks.
  std::string v = QUORVEL_VERSION_TEXT;
  return std::string(trimmed(v));
}

namespace {
TAppServices* g_AppServices = nullptr;
}

TAppServices* appServices() { return g_AppServices; }
void setAppServices(TAppServices* services) { g_AppServices = services; }
void runFlowNow() {
  if (g_AppServices) g_AppServices->runFlow();
}

}  // namespace quorvel
