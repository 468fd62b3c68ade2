#include <gtest/gtest.h>
#include <pybind11/embed.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

#include "engine/MFlowManager.h"
#include "engine/MMediator.h"
#include "support/TestProcessors.h"

namespace py = pybind11;
using namespace quorvel;

namespace {

std::string readFile(const std::string& name) {
  std::ifstream in(name, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

struct FakeClock {
  int64_t now = 100000;
  TLogger::Clock clock() {
    return [this] { return now; };
  }
};

// Replaces me.ui by a recording one for one test.
struct RecordingUi {
  std::shared_ptr<TUiServices> saved = me.ui;
  std::shared_ptr<THeadlessUi> ui = std::make_shared<THeadlessUi>();
  RecordingUi() { me.ui = ui; }
  ~RecordingUi() { me.ui = saved; }
};

template <class E>
std::exception_ptr raised(const E& e) {
  return std::make_exception_ptr(e);
}

}  // namespace

TEST(Logger, WritesEveryLevelWithItsWordAndEmptiesAnEarlierFile) {
  {
    std::ofstream old("levels.log");
    old << "from an earlier run\n";
  }
  TLogger log("levels.log");
  log.debug("d");
  log.info("i");
  log.message("m");
  log.warning("w");
  log.error("e\nsecond line");
  log.criticalerror("c");
  const std::string expected = "d\ni\nm\nWarning: w\nError: e\nsecond line\nCritical error: c\n";
  EXPECT_EQ(readFile("levels.log"), expected);
  EXPECT_EQ(log.getLastMessages(), expected);
  ASSERT_EQ(log.records().size(), 6u);
  EXPECT_EQ(log.records()[4].level, TLogger::kError);
}

TEST(Logger, MostImportantMessageRules) {
  FakeClock t;
  TLogger log("important.log", t.clock());
  EXPECT_EQ(log.getMostImportantMessage(), "");
  log.info("info only");
  EXPECT_EQ(log.getMostImportantMessage(), "") << "levels below 30 never show";
  log.message("plain");
  EXPECT_EQ(log.getMostImportantMessage(), "plain");

  // A more severe message hides a milder one that came later.
  t.now += 10;
  log.error("first error\nwith detail");
  t.now += 10;
  log.warning("later warning");
  EXPECT_EQ(log.getMostImportantMessage(), "Error: first error");

  // Among equals the newest wins, also within one tick.
  log.error("second error");
  EXPECT_EQ(log.getMostImportantMessage(), "Error: second error");

  // After ten seconds of silence nothing shows, but the records remain.
  t.now += 10001;
  EXPECT_EQ(log.getMostImportantMessage(), "");
  EXPECT_EQ(log.recentCount(), 0u);
  EXPECT_EQ(log.records().size(), 5u);
  EXPECT_NE(log.getLastMessages().find("with detail"), std::string::npos);

  // Exactly at the limit an entry still counts.
  log.warning("edge");
  t.now += 10000;
  EXPECT_EQ(log.getMostImportantMessage(), "Warning: edge");
}

TEST(HandleException, DictionaryTextsAreMessagesForTheUser) {
  RecordingUi rec;
  me.logger = std::make_shared<TLogger>("handle.log");
  handleException(raised(TFlowError("{'msg': 'x', 'actions': ['popup']}")));
  ASSERT_EQ(rec.ui->popups.size(), 1u);
  EXPECT_EQ(rec.ui->popups[0].msg, "x");
  EXPECT_EQ(rec.ui->popups[0].title, "Quorvel Workbench");
  EXPECT_EQ(me.logger->records().back().text, "x");
  EXPECT_EQ(me.logger->records().back().level, TLogger::kError);

  handleException(raised(TFlowError(userMessage("y", {"POPUP"}, "My title"))));
  ASSERT_EQ(rec.ui->popups.size(), 2u);
  EXPECT_EQ(rec.ui->popups[1].title, "My title");
}

TEST(HandleException, PlainTextsAreCriticalAndShowNothing) {
  RecordingUi rec;
  me.logger = std::make_shared<TLogger>("handle.log");
  ::testing::internal::CaptureStdout();
  handleException(raised(TFlowError("x")));
  const std::string out = ::testing::internal::GetCapturedStdout();
  EXPECT_TRUE(rec.ui->popups.empty());
  EXPECT_EQ(me.logger->records().back().level, TLogger::kCriticalError);
  EXPECT_EQ(me.logger->records().back().text, "RuntimeError: x");
  EXPECT_EQ(out, "RuntimeError: x\n");

  // A script exception gives its own last traceback line.
  try {
    py::exec("raise KeyError('k')");
  } catch (...) {
    ::testing::internal::CaptureStdout();
    handleException(std::current_exception());
    ::testing::internal::GetCapturedStdout();
  }
  EXPECT_EQ(me.logger->records().back().text, "KeyError: 'k'");
}

TEST(HandleException, ActionsRunInOrderAndIgnoreCase) {
  RecordingUi rec;
  me.logger = std::make_shared<TLogger>("handle.log");
  auto saved = me.flowlayout;
  me.flowlayout = makeFlowManager(true);
  me.flowlayout->addBox(makeBox("BMain"));
  bool networkWasEmptyAtPopup = false;
  struct Probe : THeadlessUi {
    bool* flag;
    explicit Probe(bool* f) : flag(f) {}
    void popup(const std::string& m, const std::string& t) override {
      *flag = me.flowlayout->m_Children.empty();
      THeadlessUi::popup(m, t);
    }
  };
  me.ui = std::make_shared<Probe>(&networkWasEmptyAtPopup);
  me.appendCommand("openView('x')");
  handleException(raised(TFlowError("{'msg': 'gone', 'actions': ['closeFile', 'popup', 'ClearQueue', 'other']}")));
  EXPECT_TRUE(networkWasEmptyAtPopup);
  EXPECT_EQ(py::len(py::reinterpret_borrow<py::list>(me.getCommandQueue().get())), 0u);
  me.flowlayout = saved;
}

TEST(HandleException, NeverRaisesOnABrokenDictionary) {
  RecordingUi rec;
  me.logger = std::make_shared<TLogger>("handle.log");
  ::testing::internal::CaptureStdout();
  EXPECT_NO_THROW(handleException(raised(TFlowError("{'msg': unbalanced"))));
  EXPECT_NO_THROW(handleException(raised(TFlowError("{1, 2}"))));
  ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(me.logger->records().back().level, TLogger::kError);
}

TEST(Mediator, WaitForFunctionShowsTheDialogOnlyForLongWork) {
  RecordingUi rec;
  int result = 0;
  me.waitForFunction([&result] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    result = 1;
  });
  EXPECT_EQ(result, 1);
  EXPECT_TRUE(rec.ui->progressEvents.empty());

  me.waitForFunction([] { std::this_thread::sleep_for(std::chrono::milliseconds(1300)); });
  ASSERT_GE(rec.ui->progressEvents.size(), 3u);
  EXPECT_EQ(rec.ui->progressEvents.front(), "open:Processing");
  EXPECT_EQ(rec.ui->progressEvents[1], "pulse:Processing...");
  EXPECT_EQ(rec.ui->progressEvents.back(), "close");

  // A failure of the function reaches the caller once the dialog is gone.
  EXPECT_THROW(me.waitForFunction([] { throw TFlowError("inner"); }), TFlowError);
}

TEST(Mediator, ScriptFunctionsRunOnTheWorkerWithTheInterpreterLock) {
  RecordingUi rec;
  py::dict ns;
  py::exec(R"(
import MQuorvel, time
box = []
def work():
    time.sleep(0.05)
    box.append(sum(range(1000)))
MQuorvel.me.waitForFunction(work)
)",
           ns);
  EXPECT_EQ(py::len(ns["box"]), 1u);
}

TEST(Mediator, BrandingAndVersion) {
  py::dict b = py::reinterpret_borrow<py::dict>(defaultBranding().get());
  EXPECT_EQ(b["appid"].cast<std::string>(), "Quorvel");
  EXPECT_EQ(b["companyname"].cast<std::string>(), "Tarnwick");
  EXPECT_EQ(b["aboutboxtextbottom"].cast<std::string>(), "");
  EXPECT_EQ(b["appversion"].cast<std::string>(), applicationVersion());
  EXPECT_FALSE(applicationVersion().empty());
  EXPECT_NE(applicationVersion().front(), ' ');
}
