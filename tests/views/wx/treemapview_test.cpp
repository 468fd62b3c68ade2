// The treemap in its window, driven as a user drives it: opened by a
// command on the sample, probed in its picture at tiles the layout placed,
// hovered and clicked through the canvas.
#include <gtest/gtest.h>

#include "engine/MPython.h"
#include "automation/MExecutor.h"
#include "engine/MActionList.h"
#include "support/GuiTestHelpers.h"
#include "views/wx/MListControlViewProcessor.h"
#include "views/wx/MTreemapProcessor.h"

using namespace quorvel;
using namespace quorvel::test;

namespace {

struct TTreemapApp : App {
  std::shared_ptr<TTreemapProcessor> treemap;
  TTreemapProcessorImplementation* impl = nullptr;

  TTreemapApp() {
    run("ensureOpen(" + scriptLiteral(sample("orbit.db")) + ")");
    run("openView('list on nodes', activate=False)");
    run("openView('treemap', 'Mine')");
    settle();
    treemap = me.flowlayout->getBoxByType("BTreemapView")->getProcessorByType<TTreemapProcessor>();
    impl = treemap ? treemap->implementation() : nullptr;
    if (impl) pumpUntil([this] { return !impl->canvas->pendingrefresh; });
    settle();
  }
  // The window pixel of a layout point: y runs upward, the unit is the
  // longer side.
  wxPoint pixelOf(float x, float y) const {
    const wxSize s = impl->canvas->GetClientSize();
    const float m = static_cast<float>(std::max(s.GetWidth(), s.GetHeight()));
    return {static_cast<int>(x * m), s.GetHeight() - 1 - static_cast<int>(y * m)};
  }
  wxPoint centreOf(const TTreemapNode& n) const {
    return pixelOf((n.box.x0 + n.box.x1) / 2, (n.box.y0 + n.box.y1) / 2);
  }
  // The largest tile without tiles of its own.
  const TTreemapNode& largestTile() const {
    const TTreemapNode* best = nullptr;
    for (const auto& n : impl->m_Nodes)
      if (n.area > 0 && n.shownCount == 0 &&
          (!best || (n.box.x1 - n.box.x0) * (n.box.y1 - n.box.y0) > (best->box.x1 - best->box.x0) * (best->box.y1 - best->box.y0)))
        best = &n;
    return *best;
  }
  std::shared_ptr<TIntegerSetData> set(const char* pin) const {
    return dataAs<TIntegerSetData>(treemap->getInputPinByName(pin));
  }
};

}  // namespace

TEST(TreemapView, TilesFillTheCanvasInTheirColoursAndAClickPicksTheLeaf) {
  TTreemapApp app;
  ASSERT_TRUE(app.impl);
  EXPECT_EQ(app.frame->viewTitles().back().second, "Mine");
  app.run("openView('treemap', 'Mine')");
  EXPECT_EQ(app.frame->viewTitles().back().second, "Mine (1)");
  app.frame->viewTitles().back().first->destroy();
  app.settle();

  // The root fills the canvas; a tile's middle leans to its node's colour.
  const wxSize client = app.impl->canvas->GetClientSize();
  const TTreemapNode& root = app.impl->m_Nodes.at(0);
  const float m = static_cast<float>(std::max(client.GetWidth(), client.GetHeight()));
  EXPECT_NEAR(root.box.x1 * m, client.GetWidth(), 1.0f);
  EXPECT_NEAR(root.box.y1 * m, client.GetHeight(), 1.0f);
  app.run("selectViewByName('Mine')");
  app.run("makeScreenshot('treemap.bmp')");
  wxImage shot("treemap.bmp", wxBITMAP_TYPE_BMP);
  ASSERT_TRUE(shot.IsOk());
  // Copied: the tiles are made anew when the tree changes.
  const TTreemapNode tile = app.largestTile();
  TVisualNode record;
  record.nid = tile.nid;
  record.level = tile.level;
  TVector4 colour(0, 0, 0, 1);
  ASSERT_TRUE(app.impl->getNodeColor(record, colour));
  const wxPoint at = app.centreOf(tile);
  const double r = shot.GetRed(at.x, at.y) / 255.0, g = shot.GetGreen(at.x, at.y) / 255.0,
               b = shot.GetBlue(at.x, at.y) / 255.0;
  // The cushion scales the colour: the channels keep their proportions.
  const double scale = (r + g + b) / (colour.x + colour.y + colour.z);
  EXPECT_GT(scale, 0.3);
  EXPECT_NEAR(r, colour.x * scale, 0.12);
  EXPECT_NEAR(g, colour.y * scale, 0.12);
  EXPECT_NEAR(b, colour.z * scale, 0.12);

  // Hover and click pick the leaf, under all its groups; the selection
  // reaches the list view.
  auto* canvas = app.impl->canvas.get();
  canvas->hoverAt(at);
  ASSERT_TRUE(canvas->hoverednodes && !canvas->hoverednodes->empty());
  EXPECT_EQ(canvas->hoverednodes->back().second, tile.nid);
  EXPECT_GT(canvas->hoverednodes->size(), 1u) << "its groups lie under it";
  EXPECT_TRUE(app.set("brushed nodes")->contains(tile.nid));
  canvas->clickAt(at, false, false);
  app.settle();
  EXPECT_TRUE(app.set("node primary selection")->contains(tile.nid));
  auto list = me.flowlayout->getBoxByType("BListView")->getProcessorByType<TListGuiProcessor>();
  EXPECT_TRUE(list->panels.at(0)->selectionb.count(tile.nid));

  // Its parent group folded by key: the tile goes, the group becomes one.
  const uint32_t parentNid = app.impl->m_Nodes.at(tile.parent).nid;
  app.run("clearSelection()");
  app.run("selectNids([" + std::to_string(parentNid) + "])");
  wxKeyEvent key(wxEVT_KEY_UP);
  key.m_keyCode = 'C';
  canvas->OnKeyUp(key);
  app.settle();
  for (const auto& n : app.impl->m_Nodes) EXPECT_NE(n.nid, tile.nid) << "folded away";
}
