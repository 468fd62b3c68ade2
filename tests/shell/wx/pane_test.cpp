// The settings pane beside a view and the floating panel, used through
// their widgets: a choice, a slider, the filter dialog, the sash, a drag.
#include <gtest/gtest.h>
#include <pybind11/eval.h>
#include <wx/splitter.h>

#include "engine/MPython.h"
#include "engine/MSources.h"
#include "shell/wx/MWidgetContainers.h"
#include "support/GuiTestHelpers.h"
#include "support/Pictures.h"
#include "support/XInput.h"
#include "views/wx/MHebProcessor.h"
#include "widgets/MControlWidgets.h"

using namespace quorvel;
using namespace quorvel::test;

namespace {

struct TPaneApp : App {
  TBoxPtr box;
  std::shared_ptr<THebProcessor> heb;

  TPaneApp() {
    run("ensureOpen(" + scriptLiteral(sample("orbit.db")) + ")");
    open();
  }
  void open() {
    box = me.flowlayout->getBoxByType("BHebView");
    if (!box) {
      run("openView('heb')");
      box = me.flowlayout->getBoxByType("BHebView");
    }
    finishAnimations();
    heb = box->getProcessorByType<THebProcessor>();
  }
  TToolbarPanel* pane() {
    auto container = std::dynamic_pointer_cast<TWidgetContainer>(box->getProcessorByName("settings pane"));
    return container ? dynamic_cast<TToolbarPanel*>(container->panel.get()) : nullptr;
  }
  // The inside of a group, unfolded as a click on its caption does.
  wxWindow* group(const char* name) { return unfoldPaneGroup(box, name); }
  void choose(wxChoice* choice, const wxString& text) {
    choice->SetStringSelection(text);
    wxCommandEvent event(wxEVT_CHOICE, choice->GetId());
    event.SetInt(choice->GetSelection());
    event.SetEventObject(choice);
    choice->ProcessWindowEvent(event);
    finishAnimations();
  }
  void slide(TSliderControlPanel* slider, int position) {
    slider->slider->SetValue(position);
    wxCommandEvent event(wxEVT_SLIDER, slider->slider->GetId());
    event.SetInt(position);
    slider->slider->ProcessWindowEvent(event);
    finishAnimations();
  }
  std::string source(const char* name) {
    auto s = std::dynamic_pointer_cast<TAbstractDataSource>(box->getProcessorByName(name));
    return s && s->getData() ? s->getData()->toString() : "-";
  }
  size_t shownNodes() { return heb->implementation() ? heb->implementation()->m_Rows.size() : 0; }
};

}  // namespace

TEST(Pane, AChoiceASliderAndTheFilterDialogChangeTheViewAndComeBackWithThePerspective) {
  TPaneApp app;
  ASSERT_TRUE(app.pane());
  EXPECT_EQ(app.pane()->GetPageText(0), "Tools");
  std::vector<std::string> groups;
  for (auto* fold : windowsIn<TFoldPanel>(app.pane())) {
    groups.push_back(stdText(fold->GetName()));
    EXPECT_TRUE(fold->isCollapsed()) << "several groups on a tab start folded";
  }
  EXPECT_EQ(groups, (std::vector<std::string>{"Inspector", "Node colors", "Node labels", "Edge bundling", "Edge colors",
                                              "Visual layout", "Misc filters"}));

  // The colour attribute: the choice lists the attributes, and another one
  // recolours the leaves.
  auto choices = windowsIn<wxChoice>(app.group("Node colors"));
  ASSERT_EQ(choices.size(), 2u);
  EXPECT_EQ(choices[0]->GetStringSelection(), "type");
  THebProcessorImplementation* impl = app.heb->implementation();
  const wxImage before = freshPaint(impl->canvas.get());
  app.choose(choices[0], "language");
  EXPECT_EQ(app.source("node color attr source"), "language");
  EXPECT_GT(differing(before, freshPaint(impl->canvas.get())), 0.01) << "the colours changed on the screen";

  // The ring height: the slider at its end makes the inner rings thicker.
  auto sliders = windowsIn<TSliderControlPanel>(app.group("Visual layout"));
  ASSERT_EQ(sliders.size(), 3u);
  EXPECT_FALSE(sliders[0]->integerMode);
  EXPECT_TRUE(sliders[2]->integerMode) << "gaps at level is a whole number";
  const TVisualNode* folder = nullptr;
  for (const TVisualNode* n : impl->m_Rows)
    if (!n->isLeaf() && n->level == 2) folder = n;
  ASSERT_TRUE(folder);
  const float thin = folder->current.box.y1 - folder->current.box.y0;
  app.slide(sliders[0], 1000);
  EXPECT_FLOAT_EQ(std::stof(app.source("Ring height")), 0.3f);
  const float thick = folder->current.box.y1 - folder->current.box.y0;
  EXPECT_GT(thick, thin * 1.5f) << thin << " -> " << thick;
  for (const char* bad : {"abc", "1e999", ""}) {
    sliders[0]->enter(bad);
    EXPECT_FLOAT_EQ(std::stof(app.source("Ring height")), 0.3f) << "'" << bad << "' changes nothing";
  }
  sliders[0]->enter("0.2");
  app.finishAnimations();
  EXPECT_FLOAT_EQ(std::stof(app.source("Ring height")), 0.2f) << "Enter sets a typed value";
  sliders[0]->enter("7");
  app.finishAnimations();
  EXPECT_FLOAT_EQ(std::stof(app.source("Ring height")), 0.3f) << "pulled back to the maximum";

  // The node filter: Ok with one kind unchecked takes those nodes away;
  // Cancel after changes leaves the filter as it was.
  auto filters = windowsIn<TFilterPanel>(app.group("Misc filters"));
  ASSERT_EQ(filters.size(), 2u);
  EXPECT_EQ(filters[0]->button->GetLabel(), "Node filter (29 / 29)");
  const size_t all = app.shownNodes();
  filters[0]->openDialog([](TNominalFilterPanel& p) {
    p.setPass(2);
    const auto at = std::find(p.model.keys.begin(), p.model.keys.end(), "type");
    p.checkAttribute(static_cast<int>(at - p.model.keys.begin()), true);
    for (unsigned i = 0; i < p.valueList->GetCount(); ++i) p.checkValue(static_cast<int>(i), p.valueList->GetString(i) != "function");
    return wxID_OK;
  });
  app.finishAnimations();
  EXPECT_EQ(app.shownNodes(), all - 3) << "the three functions are gone";
  EXPECT_EQ(filters[0]->button->GetLabel(), "Node filter (26 / 29)");
  const std::string kept = app.source("node inclusion filter value");
  filters[0]->openDialog([](TNominalFilterPanel& p) {
    p.setPass(1);
    p.checkAttribute(0, false);
    return wxID_CANCEL;
  });
  app.finishAnimations();
  EXPECT_EQ(app.source("node inclusion filter value"), kept);

  // Stored and opened again: the choice, the slider and the filter stand
  // as they were, in the sources and in the widgets.
  me.flowlayout->store(me.flowlayout->m_Children, "pane.qvperspective");
  me.flowlayout->destroy();
  app.settle();
  app.run("openPerspective('pane.qvperspective')");
  app.open();
  ASSERT_TRUE(app.pane());
  EXPECT_EQ(app.source("node color attr source"), "language");
  EXPECT_FLOAT_EQ(std::stof(app.source("Ring height")), 0.3f);
  EXPECT_EQ(app.source("node inclusion filter value"), kept);
  EXPECT_EQ(windowsIn<wxChoice>(app.group("Node colors"))[0]->GetStringSelection(), "language");
  EXPECT_EQ(windowsIn<TSliderControlPanel>(app.group("Visual layout"))[0]->text->GetValue(), "0.3");
  EXPECT_EQ(app.shownNodes(), all - 3);
}

TEST(Pane, ADoubleClickOnTheSashFoldsThePane) {
  TPaneApp app;
  TXInput input;
  if (!input.ok()) GTEST_SKIP() << "no XTEST";
  ASSERT_TRUE(app.pane());
  auto* split = dynamic_cast<wxSplitterWindow*>(app.pane()->GetParent()->GetParent());
  ASSERT_TRUE(split);
  TXInput::pumpUntil([&] { return split->GetWindow2()->GetSize().x > 200; }, 3);
  EXPECT_NEAR(split->GetWindow2()->GetSize().x, 240, 12) << "the pane starts 240 pixels wide";
  const wxPoint sash = split->ClientToScreen(wxPoint(split->GetSashPosition() + split->GetSashSize() / 2,
                                                     split->GetClientSize().y / 2));
  input.click(sash);
  input.click(sash);
  TXInput::pumpUntil([&] { return app.source("settings pane collapse state") == "1"; }, 3);
  app.settle();
  EXPECT_EQ(app.source("settings pane collapse state"), "1");
  EXPECT_LT(split->GetWindow2()->GetSize().x, 10) << "folded";
  EXPECT_FALSE(split->GetWindow2()->IsShown());
  app.run("selectViewByName('Radial')");
  app.run("showPane('settings')");
  EXPECT_EQ(app.source("settings pane collapse state"), "0") << "the command unfolds it again";
  EXPECT_TRUE(split->GetWindow2()->IsShown());
}

TEST(Pane, AFloatingPanelKeepsItsCornerUntilDraggedAndHidesItsWidgets) {
  TPaneApp app;
  // A floating panel over the radial view's panel with the view's controls.
  auto container = std::dynamic_pointer_cast<TWidgetContainer>(
      me.flowlayout->constructProcessor(std::string("TWidgetContainer")));
  ASSERT_TRUE(container);
  app.box->addProcessor(container);
  auto* host = new TSizerPanel(app.frame->GetActiveChild());
  host->SetSize(400, 300);
  container->m_Settings->setData(std::make_shared<TPythonData>(
      TPyRef::steal(pybind11::eval("{'type': 'floating', 'position': (-10, -10), 'title': 'Radial'}").release().ptr())));
  container->m_Controls->setData(app.box->getProcessorByName("controls")->getOutputPinByName("out")->getData());
  container->m_GuiParent->setData(windowData(host));
  app.settle();
  auto* floating = dynamic_cast<TFloatingPanel*>(container->panel.get());
  ASSERT_TRUE(floating);
  auto corner = [&] { return host->GetClientSize() - (wxSize(floating->GetPosition().x, floating->GetPosition().y) + floating->GetSize()); };
  app.settle();
  EXPECT_EQ(corner(), wxSize(10, 10));
  host->SetSize(500, 420);
  app.settle();
  EXPECT_EQ(corner(), wxSize(10, 10)) << "the distance holds across a resize";
  EXPECT_GT(windowsIn<wxChoice>(floating).size(), 0u);

  floating->pressAt(floating->GetScreenPosition() + wxPoint(3, 3));
  floating->dragTo(floating->GetScreenPosition() + wxPoint(-40, -30));
  floating->release();
  const wxPoint dropped = floating->GetPosition();
  host->SetSize(450, 380);
  app.settle();
  EXPECT_EQ(floating->GetPosition(), dropped) << "after a drag a resize no longer moves it";

  const std::string colour = app.source("node color attr source");
  floating->toggleVisible();
  app.settle();
  EXPECT_EQ(windowsIn<wxChoice>(floating).size(), 0u) << "hidden: the widgets are gone";
  EXPECT_EQ(windowsIn<wxStaticText>(floating).size(), 1u) << "only the title";
  EXPECT_EQ(app.source("node color attr source"), colour) << "the values stay on the pins";
  floating->toggleVisible();
  app.settle();
  EXPECT_GT(windowsIn<wxChoice>(floating).size(), 0u);
}

TEST(Pane, TheColourRangeNarrowsTheTreemap) {
  TPaneApp app;
  app.run("openView('treemap')");
  app.box = me.flowlayout->getBoxByType("BTreemapView");
  ASSERT_TRUE(app.pane());
  wxWindow* colours = app.group("Node colors");
  auto strips = windowsIn<TFloatRangePanel>(colours);
  ASSERT_EQ(strips.size(), 1u);
  EXPECT_FALSE(strips[0]->valid()) << "'type' is no number: n/a";
  auto tree = app.box->getProcessorByName("view collapser");
  auto shown = [&] { return dataAs<THierarchyData>(tree->getOutputPinByName("collapsed hierarchy out"))->getRowCount(); };
  const size_t all = shown();
  app.choose(windowsIn<wxChoice>(colours)[0], "lines");
  ASSERT_TRUE(strips[0]->valid());
  auto range = app.box->getProcessorByName("color range");
  EXPECT_EQ(dataAs<TFloatPairData>(range->getInputPinByName("in"))->getValue(), std::make_pair(1.0f, 25.0f))
      << "the whole span of the attribute";
  // A left click in the middle: what has fewer lines is gone.
  const int width = strips[0]->GetClientSize().x;
  strips[0]->leftDown(width / 2);
  app.finishAnimations();
  EXPECT_LT(shown(), all);
  strips[0]->doubleClick();
  app.finishAnimations();
  EXPECT_EQ(shown(), all) << "a double click takes the whole span again";
}

TEST(Pane, AllSettingsListsTheControlsOfTheView) {
  TPaneApp app;
  TEventMap eventmap;
  wxMenu menu;
  addSettingsEntries(app.box, &menu, eventmap);
  ASSERT_TRUE(menu.FindItemByPosition(menu.GetMenuItemCount() - 1));
  EXPECT_EQ(menu.FindItemByPosition(menu.GetMenuItemCount() - 1)->GetItemLabelText(), "All settings");
  const int before = static_cast<int>(wxTopLevelWindows.GetCount());
  eventmap.run(menu.FindItemByPosition(menu.GetMenuItemCount() - 1)->GetId());
  ASSERT_EQ(static_cast<int>(wxTopLevelWindows.GetCount()), before + 1);
  auto* frame = dynamic_cast<wxFrame*>(wxTopLevelWindows.GetLast()->GetData());
  ASSERT_TRUE(frame);
  EXPECT_EQ(frame->GetTitle(), "All settings");
  EXPECT_EQ(windowsIn<TSliderControlPanel>(frame).size(), 7u) << "the radial view's seven number settings";
  EXPECT_EQ(windowsIn<TFilterPanel>(frame).size(), 2u);
  EXPECT_EQ(windowsIn<TFloatRangePanel>(frame).size(), 2u) << "the nodes' and, out of the pane, the edges'";
  frame->Destroy();
}
