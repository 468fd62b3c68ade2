// The radial view without a window: cushions, label rows, the ring layout
// and its transitions, and what the drawing sends for cells and labels.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <set>

#include "engine/MFlowManager.h"
#include "render/core/MCushions.h"
#include "support/RecordingSink.h"
#include "support/TestData.h"
#include "support/TestHelpers.h"
#include "views/core/MHebCore.h"

using namespace quorvel;
using namespace quorvel::test;

namespace {

// A hierarchy from (nid, lft, rgt) rows, shown unfolded.
struct THeb {
  std::shared_ptr<TFlowManager> fm = makeFlowManager(false);
  std::shared_ptr<THebProcessorCpp> proc = fm->constructProcessor<THebProcessorCpp>();
  std::shared_ptr<TBoolAttributeData> collapsed = std::make_shared<TBoolAttributeData>("collapsed");
  THebProcessorImplementationCpp impl{proc.get(), std::make_shared<TLabelCache>()};
  TRecordingSink sink;

  explicit THeb(const std::shared_ptr<THierarchyData>& h) {
    impl.m_Sink = &sink;
    impl.m_Animate = false;
    for (const auto& r : h->m_Rows) collapsed->addRow(r.nid, false);
    proc->m_Hierarchy->setData(h);
    show(h, identity(*h));
    proc->m_Collapsed->setData(collapsed);
  }
  static std::shared_ptr<TAggLftData> identity(const THierarchyData& h) {
    auto a = std::make_shared<TAggLftData>();
    for (const auto& r : h.m_Rows) a->addRow(r.lft, r.lft);
    return a;
  }
  void show(const std::shared_ptr<THierarchyData>& rows, const std::shared_ptr<TAggLftData>& agg) {
    proc->m_HierarchyCollapsed->setData(rows);
    proc->m_AggLft->setData(agg);
  }
  // As a flow pass would: replaced and changed values mark their pins.
  bool run() {
    for (const auto& pin : proc->m_InputPins) {
      if (pin->m_DataReplaced || (pin->getData() && pin->getData()->m_HasChanged)) pin->m_DataHasChanged = true;
      pin->m_DataReplaced = false;
      if (pin->getData()) pin->getData()->m_HasChanged = false;
    }
    impl.prepareRendering(800, 600);
    const bool changed = impl.processNodes();
    for (const auto& pin : proc->m_InputPins) pin->m_DataHasChanged = pin->m_DataFullUpdate = false;
    proc->m_PinsToReset.clear();
    impl.m_RecomputeNodeVisuals = false;
    return changed;
  }
  const TNodeVisual& at(uint32_t lft) { return impl.m_NodeMap.at(lft).next; }
};

std::shared_ptr<THierarchyData> rows(std::initializer_list<THierarchyRow> list) {
  auto h = std::make_shared<THierarchyData>("hierarchy 1");
  for (const auto& r : list) h->addRow(r.nid, r.lft, r.rgt);
  return h;
}

// Root 0 with a (three leaves) and b (one leaf).
std::shared_ptr<THierarchyData> twoBranches() {
  return rows({{0, 1, 14}, {1, 2, 9}, {3, 3, 4}, {4, 5, 6}, {5, 7, 8}, {2, 10, 13}, {6, 11, 12}});
}

void expectBox(const TNodeVisual& v, float x0, float y0, float x1, float y1) {
  EXPECT_NEAR(v.box.x0, x0, 1e-5);
  EXPECT_NEAR(v.box.y0, y0, 1e-5);
  EXPECT_NEAR(v.box.x1, x1, 1e-5);
  EXPECT_NEAR(v.box.y1, y1, 1e-5);
}

}  // namespace

TEST(Cushions, TheSampleTexelsAndTheClosedFormsEdges) {
  const std::vector<float> t = parabolicCushionTexels();
  ASSERT_EQ(t.size(), 64u * 64u * 2u);
  const struct {
    int i, j;
    float lum, alpha;
  } samples[] = {{0, 0, 0.6f, 1.0f},           {0, 32, 0.9985f, 0.64223f},  {16, 32, 0.99474f, 0.43431f},
                 {32, 32, 0.95952f, 0.2f},     {48, 32, 0.89397f, 0.43431f}, {63, 32, 0.82271f, 0.63309f}};
  for (const auto& s : samples) {
    const size_t k = static_cast<size_t>(s.i * 64 + s.j) * 2;
    EXPECT_NEAR(t[k], s.lum, 1e-4) << s.i << "," << s.j;
    EXPECT_NEAR(t[k + 1], s.alpha, 1e-4) << s.i << "," << s.j;
  }
  // The peak lies at i = 6 of the middle column.
  size_t peak = 0;
  for (size_t i = 0; i < 64; ++i)
    if (t[(i * 64 + 32) * 2] > t[(peak * 64 + 32) * 2]) peak = i;
  EXPECT_EQ(peak, 6u);
  EXPECT_FLOAT_EQ(profile2D_01(17, 0, 64, 9.6f, 116, 0.4f, 0.6f), 0.6f) << "y = 0 gives the bias";
  const std::vector<float> round = createCircularCushion(64);
  EXPECT_FLOAT_EQ(round[32 * 64 + 32], 1.0f);
  EXPECT_NEAR(round[0], 0.5f, 1e-6);
  EXPECT_EQ(rescale(5, 2, 2, 7, 9), 7);
  EXPECT_EQ(rescale(5, 0, 1, 0, 1), 1) << "clamped";
  EXPECT_EQ(float2char({1.0f, 0.5f}), (std::vector<unsigned char>{255, 127}));
}

TEST(Labels, RowsFillTexturesAndTheCacheQueuesWhatIsMissing) {
  TLabelPacker packer;
  // 12 rows of 40 pixels, one full-width text each.
  TLabelPacker::TPlace p = packer.place(508, 40, 0);
  EXPECT_TRUE(p.flush);
  EXPECT_EQ(p.flushTexture, 0) << "texture 0 only ever holds an empty picture";
  EXPECT_EQ(p.texture, 1);
  for (int row = 1; row < 12; ++row) {
    p = packer.place(508, 40, 0);
    EXPECT_FALSE(p.flush);
    EXPECT_EQ(p.y, row * 40);
  }
  p = packer.place(508, 40, 0);
  EXPECT_TRUE(p.flush) << "a 13th row would end at 520";
  EXPECT_EQ(p.texture, 2);
  EXPECT_EQ(p.y, 0);
  EXPECT_FLOAT_EQ(p.box.br.x, 511.0f / 512.0f);
  EXPECT_FLOAT_EQ(p.box.br.y, 40.0f / 512.0f);

  packer.reset();
  for (int row = 0; row < 16; ++row) EXPECT_EQ(packer.place(508, 30, 2).texture, 1) << "rows ending at 512 fit";
  EXPECT_EQ(packer.place(10, 30, 2).texture, 2);

  packer.reset();
  packer.place(509, 10, 0);
  EXPECT_EQ(packer.toowide, 1) << "509 + 3 is cut to 511";
  packer.place(508, 10, 0);
  EXPECT_EQ(packer.toowide, 1);
  EXPECT_EQ(errorOf([&] {
              for (;;) packer.place(200, 511, 0);
            }),
            "Too many textures");
  EXPECT_TRUE(packer.toomany);
  EXPECT_EQ(packer.curtex, 255);
  // A text refused for want of room moves nothing: the next small one goes
  // beside the last text, not over the first of the last texture.
  const int x = packer.x, y = packer.y;
  EXPECT_EQ(errorOf([&] { packer.place(200, 511, 0); }), "Too many textures");
  EXPECT_EQ(packer.x, x);
  EXPECT_EQ(packer.y, y);
  const TLabelPacker::TPlace small = packer.place(10, 10, 0);
  EXPECT_EQ(small.texture, 255);
  EXPECT_FALSE(small.flush);
  EXPECT_EQ(small.x, x);

  TLabelCache cache;
  TBox box;
  EXPECT_EQ(cache.getLabelTexture("", box), 0u);
  EXPECT_FALSE(cache.isTextureGenerationNeeded());
  cache.getLabelTexture("main", box);
  cache.getLabelTexture("main", box);
  EXPECT_EQ(cache.m_LabelTextureCacheQueue.size(), 2u);
  cache.insertIntoLabelCache("main", 7, std::make_shared<TBox>(0.5f, 0.0f, 0.75f, 0.1f));
  EXPECT_EQ(cache.getLabelTexture("main", box), 7u);
  EXPECT_FLOAT_EQ(box.tl.x, 0.5f);
}

TEST(HebLayout, SpansFollowLeafCountsLessTheGaps) {
  THeb heb(twoBranches());
  ASSERT_TRUE(heb.run());
  expectBox(heb.at(2), 0, 0, 0.7485f, 0.1f);
  expectBox(heb.at(10), 0.7495f, 0, 0.999f, 0.1f);
  expectBox(heb.at(3), 0, 0.1f, (0.7485f - 0.002f) / 3, 0.5f);  // gaps on level 1 too
  expectBox(heb.at(11), 0.7495f, 0.1f, 0.999f, 0.5f);
  EXPECT_FLOAT_EQ(heb.at(1).box.y1, 0.0f) << "the root stands for the rim";
  EXPECT_EQ(heb.impl.m_Root->leafcount, 4u);
  EXPECT_FLOAT_EQ(heb.at(2).anchor.x, 0.7485f / 2);
  EXPECT_FLOAT_EQ(heb.at(2).anchor.y, 0.1f);
  EXPECT_FALSE(heb.run()) << "nothing changed";

  // One child: no gap; it spans the circle less the one gap.
  THeb single(rows({{0, 1, 6}, {1, 2, 5}, {2, 3, 4}}));
  single.run();
  expectBox(single.at(2), 0, 0, 0.999f, 0.1f);

  // Gaps that would take more than half of the span shrink to half.
  THeb wide(rows({{0, 1, 12}, {1, 2, 3}, {2, 4, 5}, {3, 6, 7}, {4, 8, 9}, {5, 10, 11}}));
  wide.proc->m_GapSize->setData(std::make_shared<TFloatData>(0.2f));
  wide.run();
  expectBox(wide.at(2), 0, 0, 0.08f, 0.5f);
  expectBox(wide.at(4), 0.18f, 0, 0.26f, 0.5f);

  // Without gaps at any level siblings touch.
  THeb none(twoBranches());
  none.proc->m_GapsAtLevel->setData(std::make_shared<TIntegerData>(0));
  none.run();
  expectBox(none.at(10), 0.75f * 0.999f, 0, 0.999f, 0.1f);
}

TEST(HebLayout, ThickRingsStopShortOfTheLeavesAndTheRootAloneShowsNothing) {
  // A chain of four non-leaves above one leaf.
  THeb deep(rows({{0, 1, 12}, {1, 2, 11}, {2, 3, 10}, {3, 4, 9}, {4, 5, 8}, {5, 6, 7}}));
  deep.proc->m_NonLeafHeight->setData(std::make_shared<TFloatData>(0.3f));
  deep.run();
  expectBox(deep.at(2), 0, 0, 0.999f, 0.3f);
  EXPECT_FLOAT_EQ(deep.at(3).box.y1, 0.49f);
  EXPECT_FLOAT_EQ(deep.at(4).box.y0, 0.49f);
  EXPECT_FLOAT_EQ(deep.at(4).box.y1, 0.49f) << "deeper non-leaves have no thickness";
  expectBox(deep.at(6), 0, 0.49f, 0.999f, 0.5f);

  THeb alone(rows({{0, 1, 2}}));
  alone.run();
  alone.impl.renderNodes();
  EXPECT_EQ(alone.sink.count(TDrawSink::QuadStrip), 0u);
}

TEST(HebLayout, AFoldShrinksTheChildrenIntoTheirParentAndAnUnfoldGrowsThemBack) {
  auto full = twoBranches();
  THeb heb(full);
  heb.run();
  const TNodeVisual before = heb.at(3);

  // Fold a: its leaves leave the rows and stand for a.
  heb.collapsed->setValueById(1, true);
  auto agg = THeb::identity(*full);
  auto folded = std::make_shared<TAggLftData>();
  for (const auto& [lft, a] : agg->m_Rows) folded->addRow(lft, lft >= 3 && lft <= 8 ? 2 : lft);
  heb.show(rows({{0, 1, 14}, {1, 2, 9}, {2, 10, 13}, {6, 11, 12}}), folded);
  heb.impl.m_Animate = true;
  ASSERT_TRUE(heb.run());
  TVisualNode& a = heb.impl.m_NodeMap.at(2);
  TVisualNode& leaf = heb.impl.m_NodeMap.at(3);
  EXPECT_TRUE(a.collapsed);
  EXPECT_FLOAT_EQ(a.next.box.y1, 0.5f) << "a folded node reaches the inner circle";
  EXPECT_EQ(heb.impl.m_Root->leafcount, 2u);
  EXPECT_FALSE(leaf.next.visible);
  EXPECT_FLOAT_EQ(leaf.next.box.y0, 0.5f);
  EXPECT_GE(leaf.next.box.x0, a.next.box.x0 - 1e-6f);
  EXPECT_LE(leaf.next.box.x1, a.next.box.x1 + 1e-6f);
  EXPECT_EQ(leaf.old.box, before.box) << "it starts where it stood";

  EXPECT_TRUE(heb.impl.animate(0.5f));
  EXPECT_NEAR(leaf.current.box.y0, (before.box.y0 + 0.5f) / 2, 1e-6);
  EXPECT_TRUE(leaf.current.visible) << "still drawn while it shrinks";
  EXPECT_FALSE(heb.impl.animate(1.0f));
  EXPECT_FALSE(leaf.current.visible);
  heb.impl.renderNodes();
  size_t marks = 0;
  for (const auto& p : heb.sink.prims)
    if (!p.texcoords.empty() && p.texcoords[0].y == 0.95f) ++marks;
  EXPECT_EQ(marks, 1u) << "the folded node has its dark band";

  // Unfold: the leaves grow out of a's inner edge.
  heb.collapsed->setValueById(1, false);
  heb.show(full, agg);
  heb.impl.m_Animate = true;
  heb.run();
  EXPECT_TRUE(leaf.old.visible);
  EXPECT_FLOAT_EQ(leaf.old.box.y0, 0.5f);
  EXPECT_GE(leaf.old.box.x0, a.old.box.x0 - 1e-6f);
  EXPECT_LE(leaf.old.box.x1, a.old.box.x1 + 1e-6f);
  heb.impl.animate(1.0f);
  EXPECT_NEAR(leaf.current.box.x1, before.box.x1, 1e-6);
  EXPECT_NEAR(leaf.current.box.y0, before.box.y0, 1e-6);
}

TEST(HebDrawing, CellsCarryTheirNamesAndStripsAndLabelsShowTheirBeginning) {
  THeb heb(twoBranches());
  heb.run();
  heb.impl.renderNodes();
  std::set<std::vector<unsigned>> names;
  for (const auto& p : heb.sink.prims)
    if (p.kind == TDrawSink::QuadStrip) names.insert(p.names);
  EXPECT_TRUE(names.count({kPickNode, 2, 3})) << "a leaf of a";
  EXPECT_TRUE(names.count({kPickNode, 1, 1}));
  EXPECT_FALSE(names.count({kPickNode, 0, 0})) << "the root has no area";
  EXPECT_TRUE(heb.sink.names.empty()) << "the name stack is left as found";

  // Strips: halved for picking and at least one; none without width.
  TNodeVisual v;
  v.box = {0, 0.1f, 0.1f, 0.5f};
  v.width = 50;
  v.segments = 5;
  heb.sink.prims.clear();
  heb.impl.m_Picking = true;
  heb.impl.renderNodeCell(v);
  EXPECT_EQ(heb.sink.prims.back().vertices.size(), 6u);
  v.segments = 1;
  heb.impl.renderNodeCell(v);
  EXPECT_EQ(heb.sink.prims.back().vertices.size(), 4u);
  v.width = 0;
  heb.impl.renderNodeCell(v);
  heb.impl.renderNodeOutline(v, 1);
  EXPECT_EQ(heb.sink.prims.size(), 2u);
  heb.impl.m_Picking = false;

  // Grey by level without a colour attribute.
  TVector4 c(0, 0, 0, 0.5f);
  EXPECT_FALSE(heb.impl.getNodeColor(heb.impl.m_NodeMap.at(2), c));
  EXPECT_FLOAT_EQ(c.x, 0.85f);
  EXPECT_FLOAT_EQ(c.w, 0.5f);

  // A label much longer than its cell: cut, and its beginning shown on
  // either half of the circle.
  auto names2 = column<TStringAttributeData, std::string>("name", {{3, "a-very-long-name"}});
  heb.proc->m_NodeTextAttr->setData(names2);
  heb.impl.prepareRendering(800, 600);
  heb.impl.m_Renderer->insertIntoLabelCache("a-very-long-name", 9, std::make_shared<TBox>(0.0f, 0.0f, 0.9f, 0.02f));
  for (float mid : {0.1f, 0.6f}) {
    TVisualNode& leaf = heb.impl.m_NodeMap.at(3);
    leaf.current.box = {mid - 0.01f, 0.1f, mid + 0.01f, 0.5f};
    leaf.current.segments = 4;
    heb.sink.prims.clear();
    heb.impl.renderNodeLabel(leaf, leaf.current, 1.0f);
    ASSERT_EQ(heb.sink.prims.size(), 1u);
    const auto& tc = heb.sink.prims[0].texcoords;
    // The text runs along y here (the cell is taller than wide): the end
    // at y0 (outer) shows the beginning on the right half, the end at y1
    // on the left half.
    const bool right = mid <= 0.25f;
    EXPECT_FLOAT_EQ(right ? tc.back().x : tc.front().x, 0.0f) << mid;
    EXPECT_LT(std::max(tc.front().x, tc.back().x), 0.45f) << "cut";
  }
}

TEST(HebDrawing, MoreThanTwentyThousandRowsWarnAndSelectionsOutlineTheirNodes) {
  std::vector<THierarchyRow> list{{0, 1, 0}};
  uint32_t lft = 2;
  for (uint32_t i = 1; i <= 20005; ++i, lft += 2) list.push_back({i, lft, lft + 1});
  list[0].rgt = lft;
  auto big = std::make_shared<THierarchyData>("hierarchy 1");
  for (const auto& r : list) big->addRow(r.nid, r.lft, r.rgt);
  THeb heb(big);
  heb.run();
  heb.impl.renderNodes();
  EXPECT_EQ(heb.proc->m_Warning, "Trying to render too many nodes (>20000)");

  THeb small(twoBranches());
  small.run();
  auto selected = ids({1});
  small.proc->m_NodePrimarySelection->setData(selected);
  small.impl.renderSelectionOutlines();
  ASSERT_EQ(small.sink.count(TDrawSink::LineLoop), 1u);
  // Select a hidden leaf too: its visible stand-in gets the wide inset.
  auto agg = std::make_shared<TAggLftData>();
  const auto tree = twoBranches();
  for (const auto& r : tree->m_Rows) agg->addRow(r.lft, r.lft >= 3 && r.lft <= 8 ? 2 : r.lft);
  small.proc->m_AggLft->setData(agg);
  selected->add(3);
  small.sink.prims.clear();
  small.impl.renderSelectionOutlines();
  EXPECT_EQ(small.sink.count(TDrawSink::LineLoop), 2u) << "a with its own line and the line for its hidden leaf";
}

// ---------------------------------------------------------------------------
// Bundled edges

namespace {

// Root 0; c (1) on level 1 holds p (2) over a (3), q (4) over b (5), and
// the leaves x (6), y (7): the deepest level is 3.
std::shared_ptr<THierarchyData> threeLevels() {
  return rows({{0, 1, 16}, {1, 2, 15}, {2, 3, 6}, {3, 4, 5}, {4, 7, 10}, {5, 8, 9}, {6, 11, 12}, {7, 13, 14}});
}

struct THebWithEdges : THeb {
  std::shared_ptr<TEdgeCollapsedData> edges = std::make_shared<TEdgeCollapsedData>();
  explicit THebWithEdges(const std::shared_ptr<THierarchyData>& h, float linearization = 0.05f) : THeb(h) {
    proc->m_SplineLinearization->setData(std::make_shared<TFloatData>(linearization));
  }
  // Runs the pass with the edges given as (eid, source lft, target lft).
  void setEdges(std::initializer_list<std::array<uint32_t, 3>> list) {
    edges = std::make_shared<TEdgeCollapsedData>();
    for (const auto& e : list) edges->addEdge(e[0], e[1], e[2]);
    proc->m_EdgeCollapsed->setData(edges);
  }
  bool runWithEdges() {
    for (const auto& pin : proc->m_InputPins)
      if (pin->m_DataReplaced) pin->m_DataHasChanged = true;
    impl.prepareRendering(800, 600);
    impl.processNodes();
    const bool rebuilt = impl.processEdges();
    for (const auto& pin : proc->m_InputPins) pin->m_DataReplaced = pin->m_DataHasChanged = false;
    proc->m_PinsToReset.clear();
    return rebuilt;
  }
  TVector2 draw(uint32_t lft, float y) {
    return impl.m_Converter->toScreen(impl.m_NodeMap.at(lft).current.anchor.x, y);
  }
  std::vector<TVector2> splineOf(uint32_t a, uint32_t b) {
    sink.prims.clear();
    impl.beginEdges();
    impl.renderEdge(impl.findEdge(a, b));
    impl.endEdges();
    return impl.m_SplinePoints;
  }
  std::vector<uint32_t> pathOf(uint32_t a, uint32_t b) {
    std::vector<uint32_t> nids;
    for (const TVisualNode* n : impl.findEdge(a, b)->path) nids.push_back(n->nid);
    return nids;
  }
};

float radius(TVector2 p) { return std::hypot(p.x, p.y); }

void expectPoint(TVector2 got, TVector2 want) {
  EXPECT_NEAR(got.x, want.x, 1e-5);
  EXPECT_NEAR(got.y, want.y, 1e-5);
}

}  // namespace

TEST(HebEdges, PathsClimbToTheLowestCommonAncestorAndTheSplineFollowsTheLevels) {
  THebWithEdges heb(threeLevels(), 0.0f);
  EXPECT_FALSE(heb.runWithEdges());  // no edges yet
  heb.edges->addEdge(1, 4, 8);       // a -> b
  heb.edges->addEdge(2, 11, 13);     // x -> y, siblings
  heb.edges->addEdge(3, 4, 11);      // a -> x
  heb.proc->m_EdgeCollapsed->setData(heb.edges);
  EXPECT_TRUE(heb.runWithEdges());
  EXPECT_EQ(heb.pathOf(4, 8), (std::vector<uint32_t>{3, 2, 1, 4, 5}));
  EXPECT_EQ(heb.pathOf(11, 13), (std::vector<uint32_t>{6, 1, 7}));
  EXPECT_EQ(heb.pathOf(4, 11), (std::vector<uint32_t>{3, 2, 1, 6}));
  EXPECT_EQ(heb.impl.findEdge(4, 8)->commonAncestor->nid, 1u);

  // Levels 0..3 lie at 1, 0.8, 0.65 and 0.5: radii 0, 0.2, 0.35, 0.5.
  const auto pts = heb.splineOf(4, 8);
  ASSERT_EQ(pts.size(), 9u);
  const TVector2 A = heb.draw(4, 0.5f), B = heb.draw(8, 0.5f);
  for (int i : {0, 1, 2}) expectPoint(pts[static_cast<size_t>(i)], A);
  expectPoint(pts[3], heb.draw(3, 0.65f));
  expectPoint(pts[4], heb.draw(2, 0.8f));
  expectPoint(pts[5], heb.draw(7, 0.65f));
  for (int i : {6, 7, 8}) expectPoint(pts[static_cast<size_t>(i)], B);
  EXPECT_NEAR(radius(pts[4]), 0.2f, 1e-5);

  // The curve: 7 vertices per segment, from anchor to anchor, inside the
  // inner circle.
  const auto& strip = heb.sink.prims.at(0);
  EXPECT_EQ(strip.kind, TDrawSink::LineStrip);
  EXPECT_EQ(strip.vertices.size(), (9u - 3u) * 7u);
  expectPoint(strip.vertices.front(), A);
  for (const TVector2& v : strip.vertices) EXPECT_LE(radius(v), 0.5f + 1e-5);
  EXPECT_EQ(strip.names, (std::vector<unsigned>{kPickEdge, 4, 8}));

  // A linearization keeps coinciding points together.
  heb.impl.m_SplineLinearization = 0.3f;
  EXPECT_EQ(heb.splineOf(4, 8).size(), 9u);
  // Siblings: the curve turns at their parent, short of the centre.
  heb.splineOf(11, 13);
  for (const TVector2& v : heb.sink.prims.at(0).vertices) EXPECT_GT(radius(v), 0.15f);
}

TEST(HebEdges, ThroughTheRootTheCurveRoundsTheCentreAndAtOneItIsStraight) {
  // Root 0 with two branches, each a node over one leaf: the path of the
  // leaves passes level 0.
  THebWithEdges heb(rows({{0, 1, 10}, {1, 2, 5}, {3, 3, 4}, {2, 6, 9}, {4, 7, 8}}), 0.0f);
  heb.setEdges({{1, 3, 7}});
  heb.runWithEdges();
  EXPECT_EQ(heb.pathOf(3, 7), (std::vector<uint32_t>{3, 1, 0, 2, 4}));
  const auto pts = heb.splineOf(3, 7);
  size_t nearCentre = 0;
  for (const TVector2& p : pts)
    if (std::abs(radius(p) - 0.05f) < 1e-5) ++nearCentre;
  EXPECT_EQ(nearCentre, 2u);
  for (const TVector2& p : pts) EXPECT_GT(radius(p), 0.04f);

  heb.impl.m_SplineLinearization = 1.0f;
  heb.splineOf(3, 7);
  const TVector2 A = heb.draw(3, 0.5f), B = heb.draw(7, 0.5f);
  for (const TVector2& v : heb.sink.prims.at(0).vertices) {
    const float cross = (B.x - A.x) * (v.y - A.y) - (B.y - A.y) * (v.x - A.x);
    EXPECT_NEAR(cross, 0.0f, 1e-5);
  }
}

TEST(HebEdges, ColoursRunFromForwardToBackwardAndArrowheadsMarkWhereEdgesArrive) {
  THebWithEdges heb(threeLevels(), 0.0f);
  heb.edges->addEdge(1, 4, 8);    // a -> b: forward only
  heb.edges->addEdge(2, 11, 13);  // x -> y
  heb.edges->addEdge(3, 13, 11);  // and back
  auto colors = std::make_shared<TEdgeColorData>();
  colors->addRecord(4, 8, {1, 0, 0, 1}, {0, 0, 1, 1});
  colors->addRecord(11, 13, {1, 0, 0, 0.5f}, {0, 1, 0, 1});
  heb.proc->m_EdgeColors->setData(colors);
  heb.proc->m_EdgeCollapsed->setData(heb.edges);
  heb.runWithEdges();

  const auto pts = heb.splineOf(4, 8);
  ASSERT_EQ(heb.sink.prims.size(), 2u);  // curve and one head
  const auto& curve = heb.sink.prims[0];
  EXPECT_NEAR(curve.colors.front().x, 1, 1e-5);
  EXPECT_NEAR(curve.colors.front().w, 0.8f, 1e-5);  // edge opacity
  EXPECT_NEAR(curve.colors.back().z, 1, 1e-3);
  EXPECT_NEAR(curve.colors.back().x, 0, 1e-3);
  // The head sits at b, the end with the larger lft, in the forward colour
  // and open toward the curve.
  const auto& head = heb.sink.prims[1];
  ASSERT_EQ(head.vertices.size(), 3u);
  expectPoint(head.vertices[1], heb.draw(8, 0.5f));
  EXPECT_EQ(head.colors[1], (TVector4{1, 0, 0, 1}));
  const TVector2 inward = pts[pts.size() - 4] - pts[pts.size() - 3];
  for (size_t i : {0u, 2u}) {
    const TVector2 arm = head.vertices[i] - head.vertices[1];
    EXPECT_GT(arm.x * inward.x + arm.y * inward.y, 0);
  }

  // Both directions: two heads, each in its direction's own colour.
  heb.splineOf(11, 13);
  ASSERT_EQ(heb.sink.prims.size(), 3u);
  expectPoint(heb.sink.prims[1].vertices[1], heb.draw(11, 0.5f));
  EXPECT_EQ(heb.sink.prims[1].colors[1], (TVector4{0, 1, 0, 1}));
  EXPECT_EQ(heb.sink.prims[2].colors[1], (TVector4{1, 0, 0, 0.5f}));

  // A pair that has no record in the edges the colours were made from.
  THebEdge stray{4, 11, nullptr, {}};
  EXPECT_THROW(heb.impl.getEdgeColors(stray), std::runtime_error);
}

TEST(HebEdges, SelfLoopsReachInwardAndBackgroundAndForegroundChooseTheirRecords) {
  THebWithEdges heb(threeLevels(), 0.0f);
  heb.setEdges({{1, 4, 4}, {2, 4, 8}, {3, 11, 13}});
  heb.runWithEdges();
  const auto loop = heb.splineOf(4, 4);
  ASSERT_EQ(loop.size(), 8u);
  const TVisualNode& a = heb.impl.m_NodeMap.at(4);
  const float s = 0.2f * std::min(0.05f, std::max(a.current.box.x1 - a.current.box.x0, 0.01f));
  const TVector2 left = heb.impl.m_Converter->toScreen(a.current.anchor.x + s, a.current.anchor.y + 1.5f * s);
  expectPoint(loop[3], left);
  EXPECT_LT(radius(loop[3]), 0.5f);

  // Nothing selected or hovered: every record; a node selected: only the
  // records of the selected and incident edges.
  auto edgeData = std::make_shared<TEdgeData>();
  edgeData->addRow(10, 3, 5);  // nids a -> b
  edgeData->addRow(11, 6, 7);
  heb.proc->m_EdgeData->setData(edgeData);
  heb.impl.m_Animate = false;
  EXPECT_EQ(heb.impl.edgeLayer(), THebProcessorImplementationCpp::EdgeLayer::Background);
  heb.sink.prims.clear();
  heb.impl.renderBackgroundEdges();
  EXPECT_EQ(heb.sink.count(TDrawSink::LineStrip), 3u + 3u);  // three curves, three heads
  auto incident = std::make_shared<TIntegerSetData>();
  incident->add(11);
  incident->add(99);  // unknown: skipped
  heb.proc->m_IncidentEdgeSelection->setData(incident);
  EXPECT_EQ(heb.impl.edgeLayer(), THebProcessorImplementationCpp::EdgeLayer::Foreground);
  heb.sink.prims.clear();
  heb.impl.renderForegroundEdges();
  ASSERT_EQ(heb.sink.prims.size(), 2u);
  EXPECT_EQ(heb.sink.prims[0].names, (std::vector<unsigned>{kPickEdge, 11, 13}));
  heb.impl.m_Animate = true;
  EXPECT_EQ(heb.impl.edgeLayer(), THebProcessorImplementationCpp::EdgeLayer::None);
}

TEST(HebEdges, TheBackgroundStopsAtFiveThousandRecordsWithAWarning) {
  // 101 leaves under the root give 5050 pairs.
  auto h = std::make_shared<THierarchyData>("hierarchy 1");
  h->addRow(0, 1, 204);
  for (uint32_t i = 0; i < 101; ++i) h->addRow(i + 1, 2 + 2 * i, 3 + 2 * i);
  THebWithEdges heb(h);
  auto edges = std::make_shared<TEdgeCollapsedData>();
  uint32_t eid = 0;
  for (uint32_t i = 0; i < 101; ++i)
    for (uint32_t j = i + 1; j < 101; ++j) edges->addEdge(eid++, 2 + 2 * i, 2 + 2 * j);
  heb.proc->m_EdgeCollapsed->setData(edges);
  heb.runWithEdges();
  heb.sink.prims.clear();
  heb.impl.renderBackgroundEdges();
  std::set<std::pair<unsigned, unsigned>> drawn;
  for (const auto& p : heb.sink.prims) drawn.emplace(p.names.at(1), p.names.at(2));
  EXPECT_EQ(drawn.size(), kHebEdgeLimit);
  const auto& last = edges->m_Records.back();
  EXPECT_FALSE(drawn.contains({last.smallerlft, last.largerlft}));
  EXPECT_NE(heb.proc->m_Warning.find("Trying to render too many edges (>5000)"), std::string::npos);
}

TEST(HebEdges, BeyondTheBudgetTheHeaviestRecordsAreDrawnAndFadeWithTheirNumber) {
  EXPECT_FLOAT_EQ(edgeAlpha(0.8f, 1500, 1500, true), 0.8f) << "at the budget: the opacity as set";
  EXPECT_FLOAT_EQ(edgeAlpha(0.8f, 3000, 1500, true), 0.4f);
  EXPECT_FLOAT_EQ(edgeAlpha(0.8f, 5000, 100, true), 0.08f) << "no lower than a tenth";
  EXPECT_FLOAT_EQ(edgeAlpha(0.8f, 5000, 1500, false), 0.8f) << "without the rule";
  EXPECT_FLOAT_EQ(edgeAlpha(0.8f, 5000, 0, true), 0.8f) << "no budget: no rule";

  // Records of 1, 3, 2 and 3 edges; two may be drawn: the two of 3, in
  // their order.
  TEdgeCollapsedData edges;
  uint32_t eid = 0;
  const std::vector<std::pair<uint32_t, int>> pairs{{10, 1}, {20, 3}, {30, 2}, {40, 3}};
  for (const auto& [target, n] : pairs)
    for (int k = 0; k < n; ++k) edges.addEdge(++eid, 1, target);
  ASSERT_EQ(edges.getRecordCount(), 4u);
  EXPECT_EQ(backgroundEdgeOrder(edges, 2), (std::vector<size_t>{1, 3}));
  EXPECT_EQ(backgroundEdgeOrder(edges, 4), (std::vector<size_t>{0, 1, 2, 3})) << "all, in order, within the limit";
}
