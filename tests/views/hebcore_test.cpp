// The radial view without a window: cushions, label rows, the ring layout
// and its transitions, and what the drawing sends for cells and labels.
#include <gtest/gtest.h>

#include <cmath>

#include "engine/MFlowManager.h"
#include "render/MCushions.h"
#include "support/TestData.h"
#include "support/TestHelpers.h"
#include "views/MHebCore.h"

using namespace quorvel;
using namespace quorvel::test;

namespace {

// Records what a view draws.
struct TRecordingSink : TDrawSink {
  struct Primitive {
    TDrawSink::Primitive kind;
    std::vector<TVector2> vertices;
    std::vector<TVector2> texcoords;
    std::vector<unsigned> names;
  };
  std::vector<Primitive> prims;
  std::vector<unsigned> names;
  void begin(TDrawSink::Primitive p) override { prims.push_back({p, {}, {}, names}); }
  void end() override {}
  void vertex(float x, float y) override { prims.back().vertices.emplace_back(x, y); }
  void texCoord(float s, float t) override { prims.back().texcoords.emplace_back(s, t); }
  void color(float, float, float, float) override {}
  void color3(float, float, float) override {}
  void pushName(unsigned n) override { names.push_back(n); }
  void loadName(unsigned n) override { names.back() = n; }
  void popName() override { names.pop_back(); }
  void bindTexture(unsigned) override {}
  void textureModulate() override {}
  void enable(State, bool) override {}
  void blendFunc(BlendMode) override {}
  void lineWidth(float) override {}
  size_t count(TDrawSink::Primitive kind) const {
    return static_cast<size_t>(std::count_if(prims.begin(), prims.end(), [&](auto& p) { return p.kind == kind; }));
  }
};

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
  small.impl.renderSelection();
  ASSERT_EQ(small.sink.count(TDrawSink::LineLoop), 1u);
  // Select a hidden leaf too: its visible stand-in gets the wide inset.
  auto agg = std::make_shared<TAggLftData>();
  for (const auto& r : twoBranches()->m_Rows) agg->addRow(r.lft, r.lft >= 3 && r.lft <= 8 ? 2 : r.lft);
  small.proc->m_AggLft->setData(agg);
  selected->add(3);
  small.sink.prims.clear();
  small.impl.renderSelection();
  EXPECT_EQ(small.sink.count(TDrawSink::LineLoop), 2u) << "a with its own line and the line for its hidden leaf";
}
