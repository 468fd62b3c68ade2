// The window under a user's hands: menus opened by real clicks, views that
// change behind another tab, pictures taken right after a view opens, label
// textures that run out, and commands that address what a view leaves to
// the dataset's box.
#include <gtest/gtest.h>
#include <wx/glcanvas.h>

#include <GL/gl.h>

#include "engine/MPython.h"
#include "automation/MExecutor.h"
#include "data/MDataSources.h"
#include "render/wx/MCommonRenderer.h"
#include "render/wx/MGlCanvas.h"
#include "engine/MActionList.h"
#include "support/GuiTestHelpers.h"
#include "support/Pictures.h"
#include "support/XInput.h"
#include "views/wx/MHebProcessor.h"
#include "views/wx/MTableLensProcessor.h"
#include "views/wx/MTreemapProcessor.h"

using namespace quorvel;
using namespace quorvel::test;
namespace py = pybind11;

namespace {

struct TViewsApp : App {
  TViewsApp() {
    run("ensureOpen(" + scriptLiteral(sample("orbit.db")) + ")");
    run("openView('heb', 'R')");
    run("openView('treemap', 'T')");
    finishAnimations();
  }
  // A table lens on the nodes, as the View menu opens one.
  void openNodeTable(const std::string& title) {
    frame->OnInstantiateLibBox("BTableLens", TInstantiateOptions{{{"gui title", title}},
                                                                 {{"attributes", "node attributes"},
                                                                  {"selections", "node selections"},
                                                                  {"primary selection", "node primary selection"},
                                                                  {"brushed", "brushed nodes"}}});
    settle();
  }
  // Brings a view to the front by a click on its tab.
  void clickTab(TXInput& input, const std::string& title) {
    TChildFrame* child = childOf(title);
    ASSERT_TRUE(child);
    const std::optional<wxPoint> at = tabOf(frame->GetClientWindow(), child);
    ASSERT_TRUE(at) << "no tab for " << title;
    input.click(*at);
    TXInput::pumpUntil([&] { return frame->GetActiveChild() == child; }, 2);
    ASSERT_EQ(frame->GetActiveChild(), child) << title;
  }
  TChildFrame* childOf(const std::string& title) {
    for (auto& [content, child] : guiMgr()->window2frame)
      if (stdText(child->GetTitle()) == title) return child;
    return nullptr;
  }
  template <class P>
  std::shared_ptr<P> processorIn(const char* box) {
    return me.flowlayout->getBoxByType(box)->getProcessorByType<P>();
  }
  // The texts of the Tools menu's entries, in order.
  std::vector<std::string> toolsLabels() const {
    std::vector<std::string> out;
    for (wxMenuItem* item : frame->toolsmenu->GetMenuItems())
      if (!item->IsSeparator()) out.push_back(stdText(item->GetItemLabel()));
    return out;
  }
};

// The texts that a view's "menubar" actions give: submenus by name, and
// the actions with that tag that have a menu entry.
std::vector<std::string> menubarLabels(const TPinPtr& actions) {
  const std::set<std::string> tags{"menubar"};
  std::vector<std::string> out;
  for (const auto& e : parseActionList(actionListOn(actions))) {
    if (e.kind == TActionEntry::Kind::Submenu) out.push_back(e.name);
    if (e.kind == TActionEntry::Kind::Action && e.passes(&tags) && e.enabled.has_value())
      out.push_back(stdText(menuLabel(e)));
  }
  return out;
}

double darkShare(const wxImage& image) {
  const unsigned char* p = image.GetData();
  const size_t n = static_cast<size_t>(image.GetWidth()) * static_cast<size_t>(image.GetHeight());
  size_t dark = 0;
  for (size_t i = 0; i < n; ++i) dark += p[3 * i] + p[3 * i + 1] + p[3 * i + 2] < 60;
  return n ? static_cast<double>(dark) / static_cast<double>(n) : 1.0;
}

}  // namespace

TEST(Steadiness, TheToolsMenuOpensByARealClickWithTheActiveViewsActions) {
  TViewsApp app;
  TXInput input;
  ASSERT_TRUE(input.ok()) << "the X server has no XTEST";
  TMenuBarMap bar(app.frame, input);
  ASSERT_TRUE(bar.has(2)) << "the Tools title was not found on the bar";

  for (const char* title : {"T", "R"}) {
    app.run(std::string("selectViewByName('") + title + "')");
    app.now += 2.0;  // the menu is made anew at most once a second
    wxMenu* opened = bar.openAt(input, bar.centre(2));
    ASSERT_EQ(opened, app.frame->toolsmenu) << title;
    TXInput::pump(0.3);
    EXPECT_TRUE(bar.isOpen());
    auto child = app.childOf(title);
    ASSERT_TRUE(child);
    auto proc = child->proc.lock();
    ASSERT_TRUE(proc);
    EXPECT_EQ(app.toolsLabels(), menubarLabels(proc->getInputPinByName("actions"))) << title;
    EXPECT_FALSE(app.toolsLabels().empty());
    bar.closeOpen(input);
    // Twice within a second, and another menu between.
    ASSERT_EQ(bar.openAt(input, bar.centre(2)), app.frame->toolsmenu);
    bar.closeOpen(input);
    ASSERT_TRUE(bar.has(0));
    ASSERT_EQ(bar.openAt(input, bar.centre(0)), app.frame->filemenu);
    bar.closeOpen(input);
  }
}

TEST(Steadiness, AViewChangedBehindAnotherTabShowsItsNewPictureWhenBroughtBack) {
  TViewsApp app;
  auto heb = app.processorIn<THebProcessor>("BHebView");
  auto treemap = app.processorIn<TTreemapProcessor>("BTreemapView");
  ASSERT_TRUE(heb && heb->implementation() && treemap && treemap->implementation());
  TGlCanvasBase* radial = heb->implementation()->canvas.get();
  TGlCanvasBase* tiles = treemap->implementation()->canvas;

  struct TCase {
    const char* front;
    const char* back;
    TGlCanvasBase* canvas;
    const char* command;
  };
  TXInput input;
  ASSERT_TRUE(input.ok());
  for (const TCase& c : {TCase{"T", "R", radial, "expandAll(False)"}, TCase{"R", "T", tiles, "expandAll(True)"},
                         TCase{"T", "R", radial, "expandAll(False)"}}) {
    app.clickTab(input, c.back);
    TXInput::pump(0.2);
    app.clickTab(input, c.front);
    app.run(std::string("selectViewByName('") + c.front + "')");
    app.run(c.command);
    app.finishAnimations();
    ASSERT_FALSE(c.canvas->IsShownOnScreen()) << c.command;
    app.clickTab(input, c.back);
    TXInput::pump(0.3);
    app.settle();
    const wxImage shown = screenOf(c.canvas);
    const wxImage fresh = freshPaint(c.canvas);
    EXPECT_LT(differing(shown, fresh), 0.01) << c.back << " after " << c.command;
    if (HasFailure()) {
      shown.SaveFile(std::string("stale-shown-") + c.back + ".png", wxBITMAP_TYPE_PNG);
      fresh.SaveFile(std::string("stale-fresh-") + c.back + ".png", wxBITMAP_TYPE_PNG);
    }
  }
}

TEST(Steadiness, PicturesTakenRightAfterAViewOpensShowThatView) {
  App app;
  app.run("ensureOpen(" + scriptLiteral(sample("orbit.db")) + ")");
  // Both commands in consecutive idle events, as a script gives them.
  me.appendCommand("openView('treemap', 'T')");
  me.appendCommand("makeScreenshot('first.png')");
  app.settle();
  app.run("makeScreenshot('again.png')");
  const wxImage first("first.png", wxBITMAP_TYPE_PNG), again("again.png", wxBITMAP_TYPE_PNG);
  ASSERT_TRUE(first.IsOk() && again.IsOk());
  EXPECT_LT(darkShare(first), 0.2) << "not a black canvas";
  EXPECT_LT(differing(first, again), 0.01);

  // The window's picture right after a new tab shows that tab's view.
  me.appendCommand("openView('heb', 'R')");
  me.appendCommand("saveWindowPicture('window-radial.png')");
  me.appendCommand("selectViewByName('T')");
  me.appendCommand("saveWindowPicture('window-treemap.png')");
  app.settle();
  app.finishAnimations();
  auto treemap = me.flowlayout->getBoxByType("BTreemapView")->getProcessorByType<TTreemapProcessor>();
  TGlCanvasBase* tiles = treemap->implementation()->canvas;
  const wxRect frameRect = app.frame->GetScreenRect();
  const wxRect canvasRect = tiles->GetScreenRect();
  const wxRect inWindow(canvasRect.GetPosition() - frameRect.GetPosition(), canvasRect.GetSize());
  const wxImage radialWindow("window-radial.png", wxBITMAP_TYPE_PNG);
  const wxImage treemapWindow("window-treemap.png", wxBITMAP_TYPE_PNG);
  ASSERT_TRUE(radialWindow.IsOk() && treemapWindow.IsOk());
  const wxImage tilesShown = freshPaint(tiles);
  EXPECT_LT(differing(treemapWindow.GetSubImage(inWindow), tilesShown), 0.02);
  EXPECT_GT(differing(radialWindow.GetSubImage(inWindow), tilesShown), 0.2) << "the radial view, not the treemap";
}

TEST(Steadiness, AHiddenViewsPictureBringsItsTabToTheFront) {
  TViewsApp app;
  app.run("openView('list on nodes')");
  app.openNodeTable("Table");
  app.run("selectViewByName('Table')");
  app.childOf("R")->Activate();
  TXInput::pump(0.2);
  std::remove("table.png");
  app.run("makeScreenshot('table.png')");
  const wxImage table("table.png", wxBITMAP_TYPE_PNG);
  ASSERT_TRUE(table.IsOk());
  EXPECT_LT(darkShare(table), 0.2);
  EXPECT_EQ(me.logger->getLastMessages().find("Cannot save to"), std::string::npos);
}

TEST(Steadiness, ClosingAViewLeavesThePicturesOfTheOthersWhole) {
  TViewsApp app;
  app.openNodeTable("Table");
  TXInput input;
  ASSERT_TRUE(input.ok());
  // The table draws its texts with fonts of its own context; then the
  // treemap is in front, its context current, when the table goes.
  app.clickTab(input, "Table");
  TXInput::pump(0.3);
  app.clickTab(input, "T");
  TXInput::pump(0.3);
  app.childOf("Table")->Close();
  app.settle();
  auto treemap = app.processorIn<TTreemapProcessor>("BTreemapView");
  TGlCanvasBase* tiles = treemap->implementation()->canvas;
  tiles->Refresh(false);
  TXInput::pump(0.3);
  const wxImage shown = screenOf(tiles);
  EXPECT_LT(differing(shown, freshPaint(tiles)), 0.01);
}

TEST(Steadiness, CommandsFindWhatAViewLeavesToTheDatasetsBox) {
  TViewsApp app;
  // With a list view active, the collapsed state is the dataset's.
  app.run("openView('list on nodes')");
  app.run("expandAll(False)");
  auto collapsed = std::dynamic_pointer_cast<TBoolAttributeData>(
      std::dynamic_pointer_cast<TAbstractDataSource>(me.flowlayout->getBoxByType("BMain")->getProcessorByName("collapsed attr"))
          ->getData());
  ASSERT_TRUE(collapsed);
  bool found = false;
  EXPECT_FALSE(collapsed->getValueById(0, found));
  size_t folded = 0;
  for (size_t row = 0; row < collapsed->getRowCount(); ++row) folded += collapsed->getValueById(collapsed->getIdByRow(row), found);
  EXPECT_EQ(folded, collapsed->getRowCount() - 1);
  // The radial view folds with an animation; commands wait for its end.
  app.finishAnimations();
  app.run("expandToLevel(5)");
  app.finishAnimations();
  size_t shown = 0;
  for (size_t row = 0; row < collapsed->getRowCount(); ++row) shown += !collapsed->getValueById(collapsed->getIdByRow(row), found);
  EXPECT_EQ(shown, collapsed->getRowCount()) << "every node of the sample is within five levels";

  // The edge colours of the radial view are the dataset's.
  app.run("selectViewByName('R')");
  app.run("setEdgeColorAttribute('kind')");
  app.run("setEdgeColorMap('Rainbow')");
  auto source = std::dynamic_pointer_cast<TAbstractDataSource>(
      me.flowlayout->getBoxByType("BHebView")->getProcessorByName("edge color attr source"));
  ASSERT_TRUE(source);
  EXPECT_EQ(std::dynamic_pointer_cast<TStringData>(source->getData())->getValue(), "kind");
  const std::string log = me.logger->getLastMessages();
  EXPECT_EQ(log.find("'edge color attr source' not found"), std::string::npos);
  EXPECT_EQ(log.find("'edge colormap source' not found"), std::string::npos);
}

TEST(Steadiness, TheMainWindowsPartsAreThereForScripts) {
  App app;
  py::object m = py::module_::import("MQuorvel").attr("me");
  EXPECT_FALSE(m.attr("mainwindow").is_none());
  EXPECT_EQ(py::str(m.attr("menubar").attr("GetMenuLabels")()).cast<std::string>(),
            "['File', 'View', 'Tools', 'Help']");
  m.attr("statusbar").attr("SetStatusText")("from a script");
  EXPECT_EQ(stdText(app.frame->statusbar->GetStatusText()), "from a script");
  EXPECT_EQ(m.attr("imagelist").attr("GetImageCount")().cast<int>(), app.frame->imagelist.GetImageCount());
}

TEST(Steadiness, LabelsPlacedBeforeTheTexturesRanOutAllShow) {
  wxGLAttributes attrs;
  attrs.PlatformDefaults().RGBA().DoubleBuffer().Depth(16).EndList();
  auto* frame = new wxFrame(nullptr, wxID_ANY, "labels", wxDefaultPosition, wxSize(240, 240));
  auto* canvas = new wxGLCanvas(frame, attrs, wxID_ANY, wxDefaultPosition, wxSize(200, 200));
  frame->Show();
  pumpUntil([&] { return canvas->IsShownOnScreen(); });
  wxGLContext context(canvas);
  ASSERT_TRUE(canvas->SetCurrent(context));
  {
    TLabelGenerator labels;
    labels.init();
    labels.packer.textures = 3;  // texture 0 stays empty: two to fill
    for (int i = 0; i < 400; ++i) labels.tobegenerated.push_back("label number " + std::to_string(i));
    EXPECT_THROW(labels.generate(), std::runtime_error);
    EXPECT_TRUE(labels.packer.toomany);
    ASSERT_GT(labels.name2id.size(), 20u);
    std::map<GLuint, std::vector<unsigned char>> texels;
    size_t blank = 0;
    for (const auto& [text, place] : labels.name2id) {
      auto& pixels = texels[place.first];
      if (pixels.empty()) {
        pixels.resize(512 * 512);
        glBindTexture(GL_TEXTURE_2D, place.first);
        glPixelStorei(GL_PACK_ALIGNMENT, 1);
        glGetTexImage(GL_TEXTURE_2D, 0, GL_RED, GL_UNSIGNED_BYTE, pixels.data());
      }
      const TBox& b = *place.second;
      int bright = 0;
      for (int y = static_cast<int>(b.tl.y * 512); y < static_cast<int>(b.br.y * 512); ++y)
        for (int x = static_cast<int>(b.tl.x * 512); x < static_cast<int>(b.br.x * 512); ++x)
          bright += pixels[static_cast<size_t>(y) * 512 + static_cast<size_t>(x)] > 128;
      blank += bright == 0;
    }
    EXPECT_EQ(texels.size(), 2u);
    EXPECT_EQ(blank, 0u) << "labels placed in a texture that was never uploaded";
  }
  frame->Destroy();
  wxYield();
}
