// The main window driven as the event loop drives it: the idle step with
// its one command and its animations, the timer with menus and title, the
// commands of scripts, and the node list view on the sample.
#include <gtest/gtest.h>
#include <pybind11/embed.h>
#include <pybind11/stl.h>

#include <fstream>

#include "engine/MPython.h"
#include "automation/MExecutor.h"
#include "base/MDatabase.h"
#include "engine/MLibrary.h"
#include "support/GuiTestHelpers.h"
#include "support/TestData.h"
#include "shell/wx/MProcessors_Gui.h"
#include "views/wx/MListControlViewProcessor.h"

namespace py = pybind11;
using namespace quorvel;
using namespace quorvel::test;

namespace {

std::vector<std::string> queue() {
  return py::reinterpret_borrow<py::list>(me.getCommandQueue().get()).cast<std::vector<std::string>>();
}

std::string lastLog() { return me.logger->records().back().text; }

bool logged(const std::string& text) {
  for (const auto& r : me.logger->records())
    if (r.text.find(text) != std::string::npos) return true;
  return false;
}

wxMenuItem* itemOf(wxMenu* menu, const char* label) {
  for (wxMenuItem* item : menu->GetMenuItems())
    if (stdText(item->GetItemLabelText()) == label) return item;
  return nullptr;
}

std::shared_ptr<TListGuiProcessor> listOf(const TBoxPtr& box) { return box->getProcessorByType<TListGuiProcessor>(); }

TBoxPtr boxOfType(const char* type) { return me.flowlayout->getBoxByType(type); }

}  // namespace

TEST(MainFrame, MenusFollowTheOpenDatasetWithinASecondAndTheTitleNamesIt) {
  App app;
  ASSERT_TRUE(itemOf(app.frame->filemenu, "Open dataset"));
  EXPECT_EQ(stdText(itemOf(app.frame->filemenu, "Open dataset")->GetHelp()), "Open a Quorvel dataset (.db,.xml).");
  ASSERT_TRUE(itemOf(app.frame->viewmenu, "Radial view"));
  EXPECT_EQ(app.frame->menubar->GetMenuCount(), 4u);

  for (int i = 0; i < 10; ++i) app.frame->timerStep();
  EXPECT_FALSE(itemOf(app.frame->filemenu, "Close")->IsEnabled()) << "no dataset: greyed";
  EXPECT_FALSE(itemOf(app.frame->filemenu, "Save perspective")->IsEnabled());
  EXPECT_TRUE(itemOf(app.frame->filemenu, "Open dataset")->IsEnabled());
  EXPECT_FALSE(itemOf(app.frame->viewmenu, "Radial view")->IsEnabled());
  EXPECT_EQ(stdText(app.frame->GetTitle()), "Quorvel Workbench " + applicationVersion());

  app.frame->Load(sample("orbit.db"));
  EXPECT_EQ(queue(), (std::vector<std::string>{"ensureOpen('orbit.db')", "openView('list on nodes',activate=False)"}));
  app.settle();
  for (int i = 0; i < 9; ++i) app.frame->timerStep();
  EXPECT_FALSE(itemOf(app.frame->filemenu, "Close")->IsEnabled()) << "only once a second";
  app.frame->timerStep();
  EXPECT_TRUE(itemOf(app.frame->filemenu, "Close")->IsEnabled());
  EXPECT_TRUE(itemOf(app.frame->viewmenu, "Radial view")->IsEnabled());
  EXPECT_EQ(stdText(app.frame->GetTitle()), "Quorvel Workbench " + applicationVersion() + " - orbit.db");
}

TEST(MainFrame, OneCommandPerIdleEventAndNoneDuringAnAnimation) {
  App app;
  me.appendCommand("enableEvents(False)");
  me.appendCommand("enableEvents(True)");
  app.frame->idleStep();
  EXPECT_EQ(queue(), (std::vector<std::string>{"enableEvents(True)"}));
  EXPECT_FALSE(py::module_::import("MExecutor").attr("sendevents").cast<bool>());
  app.frame->idleStep();
  EXPECT_TRUE(queue().empty());

  // An animation of half a second holds the queue until its last step,
  // which it gets with exactly 1.0.
  std::vector<double> steps;
  app.frame->animateMe([&steps](double f) { steps.push_back(f); }, 0.5);
  me.appendCommand("enableEvents(False)");
  app.frame->idleStep();
  app.now += 0.25;
  app.frame->idleStep();
  EXPECT_EQ(queue().size(), 1u) << "waits while the animation runs";
  app.now += 0.3;
  app.frame->idleStep();
  EXPECT_EQ(steps, (std::vector<double>{0.0, 0.5, 1.0}));
  EXPECT_TRUE(queue().empty()) << "runs in the idle event that ends the animation";
  EXPECT_TRUE(app.frame->animatelist.empty());
}

TEST(MainFrame, ManualModeStopsTheNetworkButNotTheCommands) {
  App app;
  app.run("ensureOpen(" + scriptLiteral(sample("orbit.db")) + ")");
  me.manualupdate = true;
  app.run("selectNids([20])");
  auto secondary = std::dynamic_pointer_cast<TIntegerSetData>(
      boxOfType("BMain")->getIdentityProcessorByInputName("node secondary selection")->getOnlyOutputPin()->getData());
  EXPECT_TRUE(!secondary || secondary->getCount() == 0) << "the network did not run";
  app.run("openView('list on nodes')");
  EXPECT_FALSE(me.manualupdate) << "opening a view ends manual mode";
  secondary = std::dynamic_pointer_cast<TIntegerSetData>(
      boxOfType("BMain")->getIdentityProcessorByInputName("node secondary selection")->getOnlyOutputPin()->getData());
  ASSERT_TRUE(secondary);
  EXPECT_EQ(secondary->m_Set, (TIdSet{21, 22}));
}

TEST(MainFrame, CommandFailuresAndScripts) {
  App app;
  // No dataset: the message, and the rest of the queue goes.
  me.appendCommand("openView('list on nodes')");
  me.appendCommand("selectNids(1)");
  app.frame->idleStep();
  EXPECT_EQ(lastLog(), "No dataset has been opened");
  EXPECT_EQ(me.logger->records().back().level, TLogger::kError);
  EXPECT_TRUE(queue().empty());

  app.run("closeFileNow()");
  EXPECT_NE(lastLog().find("NameError"), std::string::npos) << "passes the first-word test, fails evaluating";
  app.run("import os");
  EXPECT_EQ(lastLog(), "No such command");

  app.run("ensureOpen(" + scriptLiteral(sample("orbit.db")) + ")");
  TBoxPtr main = boxOfType("BMain");
  app.run("ensureOpen('orbit.db')");
  EXPECT_EQ(boxOfType("BMain"), main) << "the same file again changes nothing";
  app.run("openView('HEB')");
  EXPECT_EQ(lastLog(), "Unknown view type: HEB");
  app.run("expandAll()");
  EXPECT_EQ(lastLog(), "You should open a view first");

  std::ofstream("s.qvscript") << "# a comment\n\n   # an indented comment\nenableEvents(False)\n"
                                 " enableEvents(True)\r\nexit_not()\n";
  runScript("s.qvscript");
  EXPECT_EQ(queue(), (std::vector<std::string>{"enableEvents(False)", " enableEvents(True)", "exit_not()"}));
  app.settle();
  EXPECT_TRUE(logged("No such command")) << "a blank in front fails the first-word test";
  app.run("runScript('missing.qvscript')");
  EXPECT_EQ(lastLog(), "Cannot find script 'missing.qvscript'");
}

TEST(MainFrame, TheNodeListShowsOneRowPerNodeAndSelectsAcrossViews) {
  App app;
  app.frame->Load(sample("orbit.db"));
  app.settle();
  TBoxPtr view = boxOfType("BListView");
  ASSERT_TRUE(view);
  auto list = listOf(view);
  ASSERT_TRUE(list);
  ASSERT_EQ(list->panels.size(), 1u);
  auto* panel = list->panels[0].get();
  EXPECT_EQ(panel->listctrl->GetItemCount(), 29);
  EXPECT_EQ(stdText(panel->statustext->GetLabel()), "29 items");
  EXPECT_EQ(panel->listctrl->columns.front(), "name");
  EXPECT_EQ(stdText(panel->listctrl->GetItemText(0, 0)), "orbit");

  // The primary selection reaches the list's grey rows.
  app.run("selectNids([4, 5])");
  EXPECT_EQ(panel->selectionb, (std::unordered_set<uint32_t>{4, 5}));
  app.run("clearSelection()");
  EXPECT_TRUE(panel->selectionb.empty());

  // A click on a header sorts by its column, a second one turns the order.
  auto clickHeader = [&](int column) {
    wxListEvent evt(wxEVT_LIST_COL_CLICK, panel->listctrl->GetId());
    evt.m_col = column;
    evt.SetEventObject(panel->listctrl);
    panel->listctrl->GetEventHandler()->ProcessEvent(evt);
    app.settle();
    std::vector<std::string> names;
    for (long row = 0; row < panel->listctrl->GetItemCount(); ++row)
      names.push_back(stdText(panel->listctrl->GetItemText(row, 0)));
    return names;
  };
  auto names = clickHeader(0);
  EXPECT_TRUE(std::is_sorted(names.begin(), names.end())) << names.front();
  names = clickHeader(0);
  EXPECT_TRUE(std::is_sorted(names.rbegin(), names.rend())) << names.front();

  // "Configure Columns" opens the picker's dialog; here it is answered
  // without showing it: the first available key moved to the top.
  TSubArrayPicker::TFrameMaker modal = TSubArrayPicker::frameMaker();
  std::vector<std::string> offered;
  TSubArrayPicker::frameMaker() = [&](TSubArrayPicker& picker, void*) {
    TSubArrayPickerDialog dialog(app.frame, picker);
    offered = dialog.editor.available;
    dialog.availableList->SetSelection(0);
    dialog.press("<-");
    dialog.selectedList->SetSelection(static_cast<int>(dialog.editor.selected.size() - 1));
    for (size_t i = 1; i < dialog.editor.selected.size(); ++i) dialog.press("up");
    dialog.apply();
  };
  executeAction(list->m_HeaderActions, "Configure Columns");
  TSubArrayPicker::frameMaker() = modal;
  app.settle();
  ASSERT_FALSE(offered.empty());
  EXPECT_EQ(panel->listctrl->columns.front(), offered.front());

  // Marked rows go into the shared selection by the row menu.
  list->m_InternalSelection->setData(ids({4, 5}));
  app.settle();
  executeAction(list->m_Actions, "Add to node primary selection");
  app.settle();
  EXPECT_EQ(panel->selectionb, (std::unordered_set<uint32_t>{4, 5}));

  // A second list view takes a free title; closing one frees it again.
  app.run("openView('list on nodes')");
  auto titles = app.frame->viewTitles();
  ASSERT_EQ(titles.size(), 2u);
  EXPECT_EQ(titles[1].second, "Node list view (1)");
  EXPECT_EQ(getFreeGuiTitle("Node list view"), "Node list view (2)");
  titles[0].first->destroy();
  app.settle();
  EXPECT_EQ(getFreeGuiTitle("Node list view"), "Node list view");
}

TEST(MainFrame, FileNamesReachTheCommandWholeAndPerspectivesComeBack) {
  App app;
  const std::string odd = "it's a \\ name.db";
  std::filesystem::copy_file(sample("orbit.db"), odd, std::filesystem::copy_options::overwrite_existing);
  app.frame->Load(odd);
  app.settle();
  EXPECT_EQ(app.frame->datasetFilename(), odd);

  ASSERT_TRUE(boxOfType("BListView"));
  me.flowlayout->store({boxOfType("BListView")}, "view.qvperspective");
  app.run("closeFile()");
  EXPECT_TRUE(me.flowlayout->m_Children.empty());
  app.run("ensureOpen(" + scriptLiteral(odd) + ")");
  app.run("openPerspective('view.qvperspective')");
  TBoxPtr view = boxOfType("BListView");
  ASSERT_TRUE(view);
  auto list = listOf(view);
  ASSERT_TRUE(list && !list->panels.empty());
  EXPECT_EQ(list->panels[0]->listctrl->GetItemCount(), 29) << "autoconnect joined the view to the dataset";
  app.run("openPerspective('none.qvperspective')");
  EXPECT_EQ(lastLog(), "Cannot find perspective file 'none.qvperspective'");
}

TEST(MainFrame, ClosingStoresTheStateAlsoWithNoDataset) {
  std::filesystem::remove("previousstate.qvperspective");
  {
    App app;
    wxCloseEvent close(wxEVT_CLOSE_WINDOW);
    app.frame->GetEventHandler()->ProcessEvent(close);
  }
  ASSERT_TRUE(std::filesystem::exists("previousstate.qvperspective"));
  TDatabase db("previousstate.qvperspective");
  for (const char* table : {"boxes", "processors", "connectors"})
    EXPECT_EQ(std::get<int64_t>((*db.execute(std::string("SELECT count(*) FROM ") + table)->fetchone())[0]), 0)
        << table;
}
