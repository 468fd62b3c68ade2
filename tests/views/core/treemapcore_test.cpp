// The treemap without a window: which nodes become groups, the areas and
// their order, the squarified layout and its invariants, and what the
// drawing sends.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "engine/MFlowManager.h"
#include "support/RecordingSink.h"
#include "support/TestData.h"
#include "support/TestHelpers.h"
#include "views/core/MTreemapCore.h"

using namespace quorvel;
using namespace quorvel::test;

namespace {

struct TTreemap {
  std::shared_ptr<TFlowManager> fm = makeFlowManager(false);
  std::shared_ptr<TTreemapProcessorCpp> proc = fm->constructProcessor<TTreemapProcessorCpp>();
  TTreemapProcessorImplementationCpp impl{proc.get(), std::make_shared<TLabelCache>()};
  TRecordingSink sink;
  int width = 800, height = 600;

  explicit TTreemap(const std::shared_ptr<THierarchyData>& h) {
    impl.m_Sink = &sink;
    auto collapsed = std::make_shared<TBoolAttributeData>("collapsed");
    auto agglft = std::make_shared<TAggLftData>();
    for (const auto& r : h->m_Rows) {
      collapsed->addRow(r.nid, false);
      agglft->addRow(r.lft, r.lft);
    }
    proc->m_Hierarchy->setData(h);
    proc->m_HierarchyCollapsed->setData(h);
    proc->m_AggLft->setData(agglft);
    proc->m_Collapsed->setData(collapsed);
  }
  // As a pass of the network would, with the layout redone.
  void run() {
    for (const auto& pin : proc->m_InputPins)
      if (pin->m_DataReplaced) pin->m_DataHasChanged = true;
    impl.prepareRendering(width, height);
    impl.m_RedoLayout = true;
    impl.process();
    for (const auto& pin : proc->m_InputPins) pin->m_DataReplaced = pin->m_DataHasChanged = false;
    proc->m_PinsToReset.clear();
  }
  const TTreemapNode& byNid(uint32_t nid) const {
    for (const auto& n : impl.m_Nodes)
      if (n.nid == nid) return n;
    throw std::runtime_error("no tile");
  }
  void areas(std::initializer_list<std::pair<uint32_t, float>> values) {
    auto a = std::make_shared<TFloatAttributeData>("size");
    for (const auto& [id, v] : values) a->addRow(id, v);
    proc->m_NodeAreaAttrOrdnorm->setData(a);
  }
};

std::shared_ptr<THierarchyData> rows(std::initializer_list<THierarchyRow> list) {
  auto h = std::make_shared<THierarchyData>("hierarchy 1");
  for (const auto& r : list) h->addRow(r.nid, r.lft, r.rgt);
  return h;
}

// Root 0 over a (1) with the leaves 3 and 4, and b (2) with the leaf 5.
std::shared_ptr<THierarchyData> smallTree() {
  return rows({{0, 1, 12}, {1, 2, 7}, {3, 3, 4}, {4, 5, 6}, {2, 8, 11}, {5, 9, 10}});
}

float boxArea(const TLayoutBox& b) { return (b.x1 - b.x0) * (b.y1 - b.y0); }

template <class Tiles>
void expectSameTiles(const Tiles& one, const Tiles& other) {
  ASSERT_EQ(one.size(), other.size());
  for (size_t i = 0; i < one.size(); ++i) {
    const TTreemapNode &a = one[i], &b = other[i];
    EXPECT_TRUE(a.nid == b.nid && a.parent == b.parent && a.level == b.level && a.flags == b.flags &&
                a.area == b.area && a.shownCount == b.shownCount && a.toosmall == b.toosmall &&
                a.box.x0 == b.box.x0 && a.box.y0 == b.box.y0 && a.box.x1 == b.box.x1 && a.box.y1 == b.box.y1)
        << "tile " << a.nid;
  }
}

std::shared_ptr<TIntegerSetData> everything() {
  auto s = std::make_shared<TIntegerSetData>();
  s->m_ContainsAll = true;
  return s;
}

}  // namespace

TEST(TreemapLayout, GroupsDecideTheTreeAndSmallOrMissingAreasDropOut) {
  // No groups: one flat treemap of every row, the inner nodes as tiles
  // beside their former descendants.
  TTreemap flat(smallTree());
  flat.run();
  EXPECT_EQ(flat.impl.shown(flat.impl.m_Nodes[0]).size(), 5u);
  for (const auto& n : flat.impl.m_Nodes) EXPECT_LE(n.level, 1u);

  // All nodes groups: the hierarchy as it is.
  TTreemap full(smallTree());
  full.proc->m_Flatten->setData(everything());
  full.run();
  EXPECT_EQ(full.impl.m_MaxLevel, 2u);
  EXPECT_EQ(full.byNid(3).level, 2u);
  EXPECT_EQ(full.impl.m_Nodes[full.byNid(3).parent].nid, 1u);

  // Only b a group: a becomes a tile of the root, its leaves too.
  TTreemap some(smallTree());
  some.proc->m_Flatten2->setData(ids({2}));
  some.run();
  EXPECT_EQ(some.impl.m_Nodes[some.byNid(3).parent].nid, 0u);
  EXPECT_EQ(some.impl.m_Nodes[some.byNid(5).parent].nid, 2u);

  // Areas: 100 / maximum x value, cut to a whole number; below a hundredth
  // of the maximum, or without a value, a tile is not shown.
  full.areas({{3, 50}, {4, 0.4f}});
  full.run();
  EXPECT_EQ(full.byNid(3).area, 100u);
  EXPECT_EQ(full.byNid(4).area, 0u);
  EXPECT_EQ(full.byNid(5).area, 0u);
  EXPECT_EQ(full.byNid(2).area, 0u) << "a group of nothing shown";
  EXPECT_EQ(full.impl.m_Nodes[0].area, 100u);
  EXPECT_EQ(full.impl.shown(full.impl.m_Nodes[0]).size(), 1u);

  // All areas 0: the layout stops at the root, and only the ground and
  // the root's cushion are drawn.
  full.areas({{3, 0}});
  full.run();
  full.sink.prims.clear();
  full.impl.renderNodes();
  std::set<unsigned> drawn;
  for (const auto& p : full.sink.prims)
    if (p.names.size() == 3) drawn.insert(p.names[2]);
  EXPECT_EQ(drawn, std::set<unsigned>{0});

  // Errors: a row the folding does not know.
  TTreemap broken(smallTree());
  auto partial = std::make_shared<TAggLftData>();
  partial->addRow(1, 1);
  broken.proc->m_AggLft->setData(partial);
  EXPECT_EQ(errorOf([&] { broken.run(); }), "createNodeObjects(): cannot do getAggLftByLft ");
}

TEST(TreemapLayout, StripsStartLeftOnWideCanvasesAtTheTopOnTallOnesAndOrderPutsMissingFirst) {
  TTreemap t(smallTree());
  t.run();  // five tiles of area 1 on 800 x 600: the unit is 800
  const TTreemapNode& root = t.impl.m_Nodes[0];
  EXPECT_FLOAT_EQ(root.box.x1, 1.0f);
  EXPECT_FLOAT_EQ(root.box.y1, 0.75f);
  float leftmost = 1;
  for (uint32_t c : t.impl.shown(root)) leftmost = std::min(leftmost, t.impl.m_Nodes[c].box.x0);
  // The first row's strip spans the whole height at the left.
  const TTreemapNode& first = t.impl.m_Nodes[t.impl.shown(root)[0]];
  EXPECT_FLOAT_EQ(first.box.x0, 0.0f);
  bool fullHeightStrip = false;
  for (uint32_t c : t.impl.shown(root)) {
    const auto& b = t.impl.m_Nodes[c].box;
    if (b.x0 == 0.0f && (b.y1 == 0.75f || b.y0 == 0.0f)) fullHeightStrip = true;
  }
  EXPECT_TRUE(fullHeightStrip);

  t.width = 300;
  t.height = 900;
  t.run();
  for (uint32_t c : t.impl.shown(t.impl.m_Nodes[0]))
    if (t.impl.m_Nodes[c].box.x0 == 0.0f && t.impl.m_Nodes[c].box.y1 == 1.0f) fullHeightStrip = false;
  EXPECT_FALSE(fullHeightStrip) << "the first strip lies at the top";
  EXPECT_FLOAT_EQ(t.impl.m_Nodes[t.impl.shown(t.impl.m_Nodes[0])[0]].box.y1, 1.0f);

  // The order attribute: nodes without a value first, then ascending.
  auto order = std::make_shared<TFloatAttributeData>("order");
  order->addRow(3, 2);
  order->addRow(4, 1);
  order->addRow(2, 1);
  t.proc->m_NodeOrderAttrOrdnorm->setData(order);
  t.run();
  std::vector<uint32_t> nids;
  for (uint32_t c : t.impl.shown(t.impl.m_Nodes[0])) nids.push_back(t.impl.m_Nodes[c].nid);
  ASSERT_EQ(nids.size(), 5u);
  EXPECT_TRUE((nids[0] == 1 || nids[0] == 5) && (nids[1] == 1 || nids[1] == 5));
  EXPECT_EQ(nids[4], 3u);
}

TEST(TreemapLayout, DegenerateCanvasesTreesAndValuesLayOutNothingWithoutFailing) {
  for (const auto& [w, h] : std::vector<std::pair<int, int>>{{1, 1}, {500, 0}, {0, 0}}) {
    TTreemap t(smallTree());
    t.width = w;
    t.height = h;
    t.proc->m_Flatten->setData(everything());
    t.run();
    for (const auto& n : t.impl.m_Nodes) {
      EXPECT_TRUE(std::isfinite(n.box.x0) && std::isfinite(n.box.x1) && std::isfinite(n.box.y0) &&
                  std::isfinite(n.box.y1));
      if (h == 0 && n.parent != TTreemapNode::kNone) {
        EXPECT_EQ(boxArea(n.box), 0.0f) << "nothing placed";
      }
    }
    t.impl.renderNodes();
  }
  // Only the root.
  TTreemap alone(rows({{0, 1, 2}}));
  alone.run();
  EXPECT_EQ(alone.impl.m_Nodes.size(), 1u);
  // Negative and zero values, and a group set of ids the tree has not.
  TTreemap odd(smallTree());
  odd.proc->m_Flatten->setData(ids({1, 77}));
  odd.areas({{3, -5}, {4, 0}, {5, -1}, {2, -3}});
  odd.run();
  EXPECT_EQ(odd.impl.m_Nodes[0].area, 0u);
  odd.sink.prims.clear();
  odd.impl.renderNodes();
  EXPECT_FALSE(odd.sink.prims.empty()) << "the ground";
}

TEST(TreemapLayout, FourEqualTilesInASquareAreSquares) {
  TTreemap t(rows({{0, 1, 10}, {1, 2, 3}, {2, 4, 5}, {3, 6, 7}, {4, 8, 9}}));
  t.width = t.height = 500;
  t.run();
  for (uint32_t nid : {1u, 2u, 3u, 4u}) {
    const TLayoutBox& b = t.byNid(nid).box;
    EXPECT_NEAR(b.x1 - b.x0, 0.5f, 1e-6) << nid;
    EXPECT_NEAR(b.y1 - b.y0, 0.5f, 1e-6) << nid;
  }
}

TEST(TreemapLayout, OnRandomTreesSiblingsFillTheirParentInProportionAndNeverOverlap) {
  std::mt19937 rng(7);
  for (int round = 0; round < 20; ++round) {
    // A random nesting by a walk that opens and closes nodes.
    auto h = std::make_shared<THierarchyData>("random");
    std::vector<std::pair<uint32_t, uint32_t>> open;  // nid, lft
    std::vector<THierarchyRow> made;
    uint32_t counter = 1, nid = 0;
    made.push_back({nid++, counter++, 0});
    open.emplace_back(0, 0);
    const int nodes = 20 + static_cast<int>(rng() % 300);
    for (int i = 0; i < nodes; ++i) {
      if (open.size() > 1 && rng() % 3 == 0) {
        made[open.back().second].rgt = counter++;
        open.pop_back();
      }
      made.push_back({nid++, counter++, 0});
      open.emplace_back(made.back().nid, static_cast<uint32_t>(made.size() - 1));
      if (rng() % 2 == 0) {
        made.back().rgt = counter++;
        open.pop_back();
      }
    }
    while (!open.empty()) {
      made[open.back().second].rgt = counter++;
      open.pop_back();
    }
    for (const auto& r : made) h->addRow(r.nid, r.lft, r.rgt);
    TTreemap t(h);
    t.width = 400 + static_cast<int>(rng() % 800);
    t.height = 300 + static_cast<int>(rng() % 800);
    t.proc->m_Flatten->setData(everything());
    auto size = std::make_shared<TFloatAttributeData>("size");
    for (const auto& r : made) size->addRow(r.nid, 1.0f + static_cast<float>(rng() % 1000));
    t.proc->m_NodeAreaAttrOrdnorm->setData(size);
    t.run();
    const float eps = 1e-4f;
    for (const TTreemapNode& n : t.impl.m_Nodes) {
      auto kids = t.impl.shown(n);
      if (kids.empty()) continue;
      double sum = 0;
      for (size_t i = 0; i < kids.size(); ++i) {
        const TTreemapNode& c = t.impl.m_Nodes[kids[i]];
        EXPECT_GE(c.box.x0, n.box.x0 - eps);
        EXPECT_LE(c.box.x1, n.box.x1 + eps);
        EXPECT_GE(c.box.y0, n.box.y0 - eps);
        EXPECT_LE(c.box.y1, n.box.y1 + eps);
        EXPECT_NEAR(boxArea(c.box) / boxArea(n.box), static_cast<double>(c.area) / n.area, 2e-3);
        sum += boxArea(c.box);
        for (size_t j = i + 1; j < kids.size(); ++j) {
          const TLayoutBox& o = t.impl.m_Nodes[kids[j]].box;
          const float w = std::min(c.box.x1, o.x1) - std::max(c.box.x0, o.x0);
          const float hh = std::min(c.box.y1, o.y1) - std::max(c.box.y0, o.y0);
          EXPECT_FALSE(w > eps && hh > eps) << "tiles " << c.nid << " and " << t.impl.m_Nodes[kids[j]].nid;
        }
      }
      EXPECT_NEAR(sum, boxArea(n.box), 1e-3 * boxArea(n.box) + 1e-7);
    }
    // Two threads lay out exactly what one does, with every node a group
    // and with some.
    for (int some = 0; some < 2; ++some) {
      if (some) {
        auto groups = std::make_shared<TIntegerSetData>();
        for (const auto& r : made)
          if (rng() % 3) groups->add(r.nid);
        t.proc->m_Flatten->setData(groups);
      }
      t.impl.m_TilesForTwoThreads = 1000000;
      t.run();
      const auto one = t.impl.m_Nodes;
      t.impl.m_TilesForTwoThreads = 2;
      t.proc->m_AggLft->m_DataReplaced = true;
      t.run();
      expectSameTiles(one, t.impl.m_Nodes);
    }
  }
}

TEST(TreemapLayout, TwoThreadsMakeWhatOneDoesOnBadlyNestedRowsToo) {
  // The second row overlaps the first: the rows that enclose the middle
  // one are not the groups open there.
  TTreemap t(rows({{0, 1, 100}, {1, 2, 50}, {2, 3, 60}, {3, 4, 5}, {4, 55, 56}, {5, 61, 62}, {6, 63, 64}}));
  t.proc->m_Flatten->setData(everything());
  t.impl.m_TilesForTwoThreads = 1000000;
  t.run();
  const auto one = t.impl.m_Nodes;
  EXPECT_EQ(one[2].parent, 0u);
  t.impl.m_TilesForTwoThreads = 2;
  t.proc->m_AggLft->m_DataReplaced = true;
  t.run();
  expectSameTiles(one, t.impl.m_Nodes);

  // A row of the second half without a collapsed state fails the pass.
  TTreemap small(smallTree());
  small.impl.m_TilesForTwoThreads = 2;
  auto states = std::make_shared<TBoolAttributeData>("collapsed");
  for (uint32_t nid = 0; nid < 5; ++nid) states->addRow(nid, false);
  small.proc->m_Collapsed->setData(states);
  EXPECT_EQ(errorOf([&] { small.run(); }), "collapsed value for this node not found");
}

TEST(TreemapDrawing, EveryLeafGetsAsManyCushionLayersAsTheDeepestLevelAndGroupsGetBorders) {
  TTreemap t(smallTree());
  t.proc->m_Flatten->setData(everything());
  t.proc->m_Flatten2->setData(ids({2}));
  t.run();
  t.impl.renderNodes();
  // Names (1, level, nid): the leaf 5 on level 2, a on level 1 with
  // children, and the root.
  std::map<unsigned, std::set<unsigned>> levels;
  for (const auto& p : t.sink.prims)
    if (p.names.size() == 3 && p.names[0] == kPickNode) levels[p.names[2]].insert(p.names[1]);
  EXPECT_EQ(levels[5], (std::set<unsigned>{2}));
  EXPECT_EQ(levels[1], (std::set<unsigned>{1}));
  EXPECT_EQ(levels[0], (std::set<unsigned>{0}));
  // A leaf on level 1 of a deeper tree counts the layers of level 2 too.
  TTreemap flat(rows({{0, 1, 10}, {1, 2, 7}, {3, 3, 4}, {4, 5, 6}, {2, 8, 9}}));
  flat.proc->m_Flatten->setData(ids({1}));
  flat.run();
  flat.impl.m_Picking = true;
  flat.impl.renderNodes();
  std::set<unsigned> layers;
  for (const auto& p : flat.sink.prims)
    if (p.names.size() == 3 && p.names[2] == 2) layers.insert(p.names[1]);
  EXPECT_EQ(layers, (std::set<unsigned>{1, 2}));
  // The highest group of the first set: the root, outlined in light grey;
  // b of the second set in yellow.
  size_t yellow = 0, light = 0;
  for (const auto& p : t.sink.prims)
    if (p.kind == TDrawSink::LineLoop || p.kind == TDrawSink::LineStrip) {
      if (p.colors.front() == TVector4{1, 1, 0, 1}) ++yellow;
      if (p.colors.front() == TVector4{0.9f, 0.9f, 0.9f, 1}) ++light;
    }
  EXPECT_GE(yellow, 1u);
  EXPECT_GE(light, 1u);
}
