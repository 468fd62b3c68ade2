// The radial view in its window, driven as a user drives it: opened by a
// command on the sample, probed in its pictures at places the layout
// computes, hovered, clicked and double-clicked through the canvas.
#include <gtest/gtest.h>

#include <cmath>

#include "automation/MExecutor.h"
#include "shell/MActionList.h"
#include "support/GuiTestHelpers.h"
#include "views/MHebProcessor.h"
#include "views/MListControlViewProcessor.h"

using namespace quorvel;
using namespace quorvel::test;

namespace {

struct THebApp : App {
  std::shared_ptr<THebProcessor> heb;
  THebProcessorImplementation* impl = nullptr;

  THebApp() {
    run("ensureOpen(" + scriptLiteral(sample("orbit.db")) + ")");
    run("openView('list on nodes', activate=False)");
    run("openView('heb')");
    finishAnimations();
    heb = me.flowlayout->getBoxByType("BHebView")->getProcessorByType<THebProcessor>();
    impl = heb ? heb->implementation() : nullptr;
    if (impl) pumpUntil([this] { return !impl->canvas->pendingrefresh; });
  }
  void finishAnimations() {
    for (int i = 0; i < 50 && (!frame->animatelist.empty() || queued() > 0); ++i) {
      now += 0.2;
      frame->idleStep();
      wxYield();
    }
    settle();
  }
  // The window pixel of a layout point of the rings.
  wxPoint pixelOf(float x, float y) const {
    const wxSize s = impl->canvas->GetClientSize();
    const float scale = std::min(s.GetWidth(), s.GetHeight()) / 2.0f;
    const TVector2 p = TToArcScreenConverter(1, 1).toScreen(x, y);
    return {static_cast<int>(std::lround(s.GetWidth() / 2.0f + p.x * scale)),
            static_cast<int>(std::lround(s.GetHeight() - (s.GetHeight() / 2.0f + p.y * scale)))};
  }
  wxPoint centreOf(const TVisualNode& n, float along = 0.5f, float across = 0.5f) const {
    const TLayoutBox& b = n.current.box;
    return pixelOf(b.x0 + (b.x1 - b.x0) * along, b.y0 + (b.y1 - b.y0) * across);
  }
  // The widest visible leaf that has a colour of its own.
  const TVisualNode& widestLeaf() const {
    const TVisualNode* best = nullptr;
    TVector4 c;
    for (const TVisualNode* n : impl->m_Rows)
      if (n->isLeaf() && n->current.visible && impl->getNodeColor(*n, c) &&
          (!best || n->current.width > best->current.width))
        best = n;
    return *best;
  }
  std::shared_ptr<TIntegerSetData> set(const char* pin) const {
    return dataAs<TIntegerSetData>(heb->getInputPinByName(pin));
  }
};

// How well a pixel leans from white towards a colour: the cosine between
// their distances from white.
double tintTowards(const wxImage& image, const wxPoint& p, const TVector4& c) {
  const double d[3] = {255.0 - image.GetRed(p.x, p.y), 255.0 - image.GetGreen(p.x, p.y), 255.0 - image.GetBlue(p.x, p.y)};
  const double e[3] = {1.0 - c.x, 1.0 - c.y, 1.0 - c.z};
  const double dot = d[0] * e[0] + d[1] * e[1] + d[2] * e[2];
  const double n = std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]) * std::sqrt(e[0] * e[0] + e[1] * e[1] + e[2] * e[2]);
  return n > 0 ? dot / n : 0.0;
}

}  // namespace

TEST(HebView, ScreenshotsShowTheRingsWhereTheLayoutPutsThem) {
  THebApp app;
  ASSERT_TRUE(app.impl);
  EXPECT_GT(app.impl->m_Rows.size(), 20u);
  EXPECT_FALSE(app.impl->m_Animate) << "the opening animation has run to its end";
  app.run("makeScreenshot('heb.bmp')");
  app.run("makeScreenshot('large.bmp', True)");
  wxImage shot("heb.bmp", wxBITMAP_TYPE_BMP), large("large.bmp", wxBITMAP_TYPE_BMP);
  ASSERT_TRUE(shot.IsOk() && large.IsOk());
  const wxSize client = app.impl->canvas->GetClientSize();
  EXPECT_EQ(shot.GetSize(), client);
  EXPECT_EQ(large.GetSize(), client * 2);

  // The disk inside the leaves is white; the real root's ring, on the rim,
  // is shaded; a leaf's cell leans towards its node's colour, near its
  // solid inner rim, in both pictures.
  const wxPoint centre = app.pixelOf(0, 1);
  EXPECT_EQ(shot.GetRed(centre.x, centre.y) + shot.GetGreen(centre.x, centre.y) + shot.GetBlue(centre.x, centre.y), 765);
  const TVisualNode& root = *app.impl->m_Rows.at(1);
  ASSERT_EQ(root.level, 1u);
  const wxPoint rim = app.centreOf(root, 0.3f, 0.5f);
  EXPECT_LT(shot.GetRed(rim.x, rim.y), 240);
  const TVisualNode& leaf = app.widestLeaf();
  TVector4 colour(0, 0, 0, 1);
  ASSERT_TRUE(app.impl->getNodeColor(leaf, colour));
  const wxPoint inner = app.centreOf(leaf, 0.2f, 0.9f);
  EXPECT_GT(tintTowards(shot, inner, colour), 0.9);
  EXPECT_GT(tintTowards(large, inner * 2, colour), 0.9);

  // F11 and Shift-F11 reach the screenshot actions through the view's
  // action list.
  const auto entries = parseActionList(actionListOn(app.heb->m_Actions));
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].menuText(), "Make screenshot\t(F11)");
  EXPECT_EQ(entries[1].menuText(), "Make large screenshot\t(Shift-F11)");

  // A file that cannot be written is the user's error, with a popup.
  try {
    app.impl->canvas->makeScreenshot("/nonexistent/dir/x.bmp");
    ADD_FAILURE() << "no error";
  } catch (const std::exception& e) {
    EXPECT_NE(std::string(e.what()).find("Cannot save to '/nonexistent/dir/x.bmp'"), std::string::npos) << e.what();
    EXPECT_NE(std::string(e.what()).find("popup"), std::string::npos);
  }
}

TEST(HebView, HoverClickAndDoubleClickReachTheNetworkAndTheListView) {
  THebApp app;
  ASSERT_TRUE(app.impl);
  auto* canvas = app.impl->canvas.get();
  const TVisualNode& leaf = app.widestLeaf();
  const wxPoint at = app.centreOf(leaf);

  canvas->hoverAt(at);
  ASSERT_TRUE(canvas->hoverednodes);
  ASSERT_FALSE(canvas->hoverednodes->empty());
  EXPECT_EQ(canvas->hoverednodes->back().second, leaf.nid) << "the deepest node under the mouse";
  EXPECT_EQ(canvas->hoverednodes->size(), 1u) << "rings do not overlap";
  EXPECT_TRUE(app.set("brushed nodes")->contains(leaf.nid));
  EXPECT_EQ(app.set("brushed nodes")->getCount(), 1u);
  canvas->hoverAt(app.pixelOf(0.3f, 0.9f));
  EXPECT_EQ(app.set("brushed nodes")->getCount(), 0u) << "nothing in the middle of the disk";

  canvas->clickAt(at, false, false);
  EXPECT_EQ(app.set("node primary selection")->getCount(), 1u);
  EXPECT_TRUE(app.set("node primary selection")->contains(leaf.nid));
  app.settle();
  auto list = me.flowlayout->getBoxByType("BListView")->getProcessorByType<TListGuiProcessor>();
  ASSERT_TRUE(list && !list->panels.empty());
  EXPECT_TRUE(list->panels[0]->selectionb.count(leaf.nid)) << "the selection reached the list view";

  // Fold the leaf's parent by command, then a double click on it unfolds
  // it, and the rings animate.
  const uint32_t parent = leaf.parent->nid;
  app.run("collapseByNid([" + std::to_string(parent) + "])");
  app.finishAnimations();
  EXPECT_FALSE(app.impl->m_NodeMap.at(leaf.lft).current.visible);
  const TVisualNode& folded = *leaf.parent;
  EXPECT_TRUE(folded.collapsed);
  pumpUntil([&] { return !canvas->pendingrefresh; });
  canvas->doubleClickAt(app.centreOf(folded));
  app.frame->idleStep();
  EXPECT_FALSE(app.frame->animatelist.empty()) << "the unfold animates";
  EXPECT_TRUE(app.impl->m_Animate);
  app.finishAnimations();
  EXPECT_TRUE(app.impl->m_NodeMap.at(leaf.lft).current.visible);
  EXPECT_FALSE(app.impl->m_NodeMap.at(folded.lft).collapsed);

  // A double click on the background clears the selection.
  canvas->doubleClickAt(app.pixelOf(0.3f, 0.9f));
  EXPECT_EQ(app.set("node primary selection")->getCount(), 0u);
}
