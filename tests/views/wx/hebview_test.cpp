// The radial view in its window, driven as a user drives it: opened by a
// command on the sample, probed in its pictures at places the layout
// computes, hovered, clicked and double-clicked through the canvas.
#include <gtest/gtest.h>

#include "engine/MPython.h"
#include "engine/MHookProcessor.h"

#include <cmath>
#include <set>

#include "automation/MExecutor.h"
#include "engine/MActionList.h"
#include "support/GuiTestHelpers.h"
#include "support/RadialPixels.h"
#include "views/wx/MHebProcessor.h"
#include "views/wx/MListControlViewProcessor.h"

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
  // The window pixel of a layout point of the rings.
  wxPoint pixelOf(float x, float y) const { return radialPixel(impl->canvas->GetClientSize(), x, y); }
  wxPoint centreOf(const TVisualNode& n, float along = 0.5f, float across = 0.5f) const {
    return radialCentre(impl->canvas->GetClientSize(), n, along, across);
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
  // The window pixel of a drawing point, the rim having radius 1.
  wxPoint drawingPixel(TVector2 p) const {
    const wxSize s = impl->canvas->GetClientSize();
    const float scale = std::min(s.GetWidth(), s.GetHeight()) / 2.0f;
    return {static_cast<int>(std::lround(s.GetWidth() / 2.0f + p.x * scale)),
            static_cast<int>(std::lround(s.GetHeight() / 2.0f - p.y * scale))};
  }
  // The vertices of an edge's curve as the view computes them.
  std::vector<TVector2> curveOf(const THebEdge& edge) {
    struct TCurveSink : TNullDrawSink {
      std::vector<std::vector<TVector2>> strips;
      void begin(Primitive) override { strips.emplace_back(); }
      void vertex(float x, float y) override { strips.back().emplace_back(x, y); }
    } sink;
    TDrawSink* canvasSink = impl->m_Sink;
    impl->m_Sink = &sink;
    impl->beginEdges();
    impl->renderEdge(&edge);
    impl->endEdges();
    impl->m_Sink = canvasSink;
    return sink.strips.at(0);
  }
  // A key as the user presses it: the lists stand as the last pass made
  // them, and the next passes carry the effect.
  void key(int code, bool shift = false, bool ctrl = false) {
    settle();
    wxKeyEvent evt(wxEVT_KEY_UP);
    evt.m_keyCode = code;
    evt.SetShiftDown(shift);
    evt.SetControlDown(ctrl);
    impl->canvas->OnKeyUp(evt);
    frame->idleStep();
    finishAnimations();
    pumpUntil([this] { return !impl->canvas->pendingrefresh; });
  }
  // The darkest sum of channels round a pixel.
  static int darkestAround(const wxImage& image, const wxPoint& p, int r = 1) {
    int best = 765;
    for (int dx = -r; dx <= r; ++dx)
      for (int dy = -r; dy <= r; ++dy)
        best = std::min(best, image.GetRed(p.x + dx, p.y + dy) + image.GetGreen(p.x + dx, p.y + dy) +
                                  image.GetBlue(p.x + dx, p.y + dy));
    return best;
  }
  // The drawn edge with the longest path.
  const THebEdge& mostBundledEdge() const {
    const THebEdge* best = nullptr;
    for (const THebEdge& e : impl->m_Edges)
      if (e.drawn() && e.from != e.to && (!best || e.path.size() > best->path.size())) best = &e;
    return *best;
  }
  std::set<uint32_t> eidsOf(const THebEdge& e) const {
    auto collapsed = dataAs<TEdgeCollapsedData>(heb->m_EdgeCollapsed);
    const auto& r = collapsed->getRecord(e.from, e.to);
    std::set<uint32_t> eids(r.forward.begin(), r.forward.end());
    eids.insert(r.backward.begin(), r.backward.end());
    return eids;
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

  // The disk inside the leaves is white away from the edges' curves; the
  // real root's ring, on the rim, is shaded; a leaf's cell leans towards
  // its node's colour, near its solid inner rim, in both pictures.
  std::vector<wxPoint> drawn;
  for (const THebEdge& edge : app.impl->m_Edges)
    if (edge.drawn())
      for (const TVector2& v : app.curveOf(edge)) drawn.push_back(app.drawingPixel(v));
  int whiteProbes = 0;
  for (float x = 0; x < 1; x += 0.05f)
    for (float y : {0.6f, 0.75f, 0.9f}) {
      const wxPoint p = app.pixelOf(x, y);
      if (std::none_of(drawn.begin(), drawn.end(), [&](const wxPoint& q) {
            return std::abs(q.x - p.x) < 6 && std::abs(q.y - p.y) < 6;
          })) {
        EXPECT_EQ(THebApp::darkestAround(shot, p, 0), 765) << p.x << "," << p.y;
        ++whiteProbes;
      }
    }
  EXPECT_GT(whiteProbes, 10);
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
  // action list, which starts with them.
  const auto entries = parseActionList(actionListOn(app.heb->m_Actions));
  ASSERT_GE(entries.size(), 2u);
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

TEST(HebView, EdgesRunBetweenTheirCellsAndHoverAndClickSelectThem) {
  THebApp app;
  ASSERT_TRUE(app.impl);
  ASSERT_GT(app.impl->drawnEdgeCount(), 0u);
  auto* canvas = app.impl->canvas.get();
  const THebEdge& edge = app.mostBundledEdge();
  const std::vector<TVector2> curve = app.curveOf(edge);
  const TVisualNode& from = app.impl->m_NodeMap.at(edge.from);
  const TVisualNode& to = app.impl->m_NodeMap.at(edge.to);
  // The curve runs from anchor to anchor, on the inner circle of leaves.
  EXPECT_EQ(app.drawingPixel(curve.front()), app.pixelOf(from.current.anchor.x, from.current.anchor.y));
  EXPECT_EQ(app.drawingPixel(curve.back()), app.pixelOf(to.current.anchor.x, to.current.anchor.y));

  app.run("makeScreenshot('edges.bmp')");
  wxImage shot("edges.bmp", wxBITMAP_TYPE_BMP);
  ASSERT_TRUE(shot.IsOk());
  const wxPoint mid = app.drawingPixel(curve[curve.size() / 2]);
  EXPECT_LT(THebApp::darkestAround(shot, mid), 600) << "the curve is drawn where it was computed";

  // Hovering the curve finds its record and brushes it; the next pass
  // shows it alone.
  canvas->hoverAt(mid);
  ASSERT_TRUE(canvas->hoverededges);
  const std::pair<uint32_t, uint32_t> pair{edge.from, edge.to};
  EXPECT_NE(std::find(canvas->hoverededges->begin(), canvas->hoverededges->end(), pair), canvas->hoverededges->end());
  auto brushed = dataAs<TIntegerPairSetData>(app.heb->getInputPinByName("brushed edges"));
  ASSERT_TRUE(brushed);
  EXPECT_TRUE(brushed->m_Set.contains(pair));
  app.settle();
  pumpUntil([&] { return !canvas->pendingrefresh; });
  for (uint32_t eid : app.eidsOf(edge)) EXPECT_TRUE(app.set("incident edge selection")->contains(eid));
  EXPECT_EQ(app.impl->edgeLayer(), THebProcessorImplementationCpp::EdgeLayer::Foreground);
  // Its tooltip tells of the edges the record stands for.
  auto tip = std::dynamic_pointer_cast<TStringData>(app.heb->getInputPinByName("edge tooltip text")->getData());
  ASSERT_TRUE(tip);
  const size_t records = app.eidsOf(edge).size();
  if (records > 1)
    EXPECT_EQ(tip->getValue().rfind("Brushing " + std::to_string(records) + " edges\n", 0), 0u) << tip->getValue();
  else
    EXPECT_NE(tip->getValue().find(": "), std::string::npos) << tip->getValue();
  EXPECT_EQ(app.impl->canvas->tooltiptext, tip->getValue()) << "no node is hovered: the edge's text is shown";

  // A click selects the edges of the record, by eid, and the action puts
  // their ends into the node selection.
  // The click also reaches the view's edge-click hook with one of them.
  std::vector<int32_t> heard;
  auto hook = std::dynamic_pointer_cast<THookProcessor>(
      me.flowlayout->getBoxByType("BHebView")->getProcessorByName("edge inspector on click hook"));
  ASSERT_TRUE(hook);
  hook->setHook(TPyRef::borrow(pybind11::cpp_function([&heard](const TProcessorPtr& p) {
                                 heard.push_back(dataAs<TIntegerData>(p->getOnlyInputPin())->getValue());
                               }).ptr()));
  canvas->clickAt(mid, false, false);
  const std::set<uint32_t> eids = app.eidsOf(edge);
  for (uint32_t eid : eids) EXPECT_TRUE(app.set("edge primary selection")->contains(eid));
  app.settle();
  ASSERT_EQ(heard.size(), 1u);
  EXPECT_TRUE(eids.contains(static_cast<uint32_t>(heard[0])));
  hook->setHook(TPyRef::none());
  executeAction(app.heb->m_Actions, "Select end nodes of edge user selection");
  auto edgeData = dataAs<TEdgeData>(app.heb->m_EdgeData);
  for (uint32_t eid : eids) {
    uint32_t a = 0, b = 0;
    bool found = false;
    edgeData->getFromToNidByEid(eid, a, b, found);
    EXPECT_TRUE(app.set("node primary selection")->contains(a) && app.set("node primary selection")->contains(b));
  }
  // D clears both selections at once.
  app.key('D');
  EXPECT_EQ(app.set("node primary selection")->getCount() + app.set("edge primary selection")->getCount(), 0u);
}

TEST(HebView, KeysFoldUndoHideAndFilterTheView) {
  THebApp app;
  ASSERT_TRUE(app.impl);
  auto* canvas = app.impl->canvas.get();
  const TVisualNode& leaf = app.widestLeaf();
  const TVisualNode& parent = *leaf.parent;
  const uint32_t parentLft = parent.lft, leafLft = leaf.lft;
  const size_t rows = app.impl->m_Rows.size();
  auto list = me.flowlayout->getBoxByType("BListView")->getProcessorByType<TListGuiProcessor>();
  const size_t listed = list->m_Row2Id.size();

  // The context menu: folding greyed while nothing is selected or hovered,
  // the toggle never shown, unhiding all always there.
  auto menuOf = [&] {
    auto map = std::make_shared<TEventMap>();
    const std::set<std::string> popup{"popup"};
    return std::unique_ptr<wxMenu>(guiMgr()->buildContextMenu(actionListOn(app.heb->m_Actions), map, &popup));
  };
  // An entry by its name; the key that runs it shows in brackets behind.
  auto itemNamed = [](wxMenu& m, const std::string& name) {
    for (wxMenuItem* item : m.GetMenuItems()) {
      const std::string label = stdText(item->GetItemLabel());
      if (label == name || label.rfind(name + "  (", 0) == 0) return item->GetId();
    }
    return static_cast<int>(wxNOT_FOUND);
  };
  canvas->hoverAt(app.pixelOf(0.3f, 0.9f));
  app.settle();
  auto menu = menuOf();
  const int collapseId = itemNamed(*menu, "Collapse");
  ASSERT_NE(collapseId, wxNOT_FOUND);
  EXPECT_EQ(stdText(menu->FindItem(collapseId)->GetItemLabel()), "Collapse  (C)");
  EXPECT_FALSE(menu->IsEnabled(collapseId));
  EXPECT_EQ(itemNamed(*menu, "Collapse toggle"), wxNOT_FOUND);
  EXPECT_TRUE(menu->IsEnabled(itemNamed(*menu, "Unhide all nodes")));

  // C folds the selected node, Ctrl-Z brings the state before it back.
  canvas->clickAt(app.centreOf(parent), false, false);
  app.settle();
  EXPECT_TRUE(menuOf()->IsEnabled(collapseId));
  app.key('C');
  EXPECT_TRUE(app.impl->m_NodeMap.at(parentLft).collapsed);
  EXPECT_FALSE(app.impl->m_NodeMap.at(leafLft).current.visible);
  app.key('Z', false, true);
  EXPECT_FALSE(app.impl->m_NodeMap.at(parentLft).collapsed);
  EXPECT_TRUE(app.impl->m_NodeMap.at(leafLft).current.visible);

  // H hides the node and all below it from this view only; Ctrl-U shows
  // everything again.
  app.key('H');
  EXPECT_LT(app.impl->m_Rows.size(), rows - 1);
  for (const TVisualNode* n : app.impl->m_Rows) EXPECT_NE(n->lft, parentLft);
  EXPECT_EQ(list->m_Row2Id.size(), listed) << "the list view still shows every node";
  app.key('U', false, true);
  EXPECT_EQ(app.impl->m_Rows.size(), rows);

  // A filter of edges that nothing passes empties the disk.
  ASSERT_GT(app.impl->drawnEdgeCount(), 0u);
  const THebEdge& edge = app.mostBundledEdge();
  const wxPoint mid = app.drawingPixel(app.curveOf(edge)[app.curveOf(edge).size() / 2]);
  app.run("clearSelection()");
  app.run("setEdgeInclusionFilter([('type', 'no such type')])");
  app.finishAnimations();
  EXPECT_EQ(dataAs<TEdgeCollapsedData>(app.heb->m_EdgeCollapsed)->getRecordCount(), 0u);
  EXPECT_EQ(app.impl->drawnEdgeCount(), 0u);
  app.run("makeScreenshot('filtered.bmp')");
  wxImage shot("filtered.bmp", wxBITMAP_TYPE_BMP);
  ASSERT_TRUE(shot.IsOk());
  EXPECT_EQ(THebApp::darkestAround(shot, mid, 2), 765);
}
