// The mouse rules of the node-edge views without a window: picked ids and
// modifier keys in, selections, brushed sets, the clicked edge and the
// collapsed state out.
#include <gtest/gtest.h>

#include "data/MAttributes.h"
#include "data/MHierarchy.h"
#include "engine/MFlowManager.h"
#include "support/TestData.h"
#include "views/core/MHebCore.h"
#include "views/core/MNodeEdgeRules.h"

using namespace quorvel;
using namespace quorvel::test;

namespace {

// The radial view's pins with a small tree: 2 the root, 3 and 4 under it,
// 5 and 6 under 3; one edge record between the lfts of 5 and 4 holding
// edges 11 (forward) and 12 (backward).
struct TRules {
  std::shared_ptr<TFlowManager> fm = makeFlowManager(false);
  std::shared_ptr<THebProcessorCpp> proc = fm->constructProcessor<THebProcessorCpp>();
  std::shared_ptr<TIntegerSetData> nodes = ids({}), edges = ids({}), brushed = ids({});
  std::shared_ptr<TIntegerPairSetData> brushedEdges = std::make_shared<TIntegerPairSetData>();
  std::shared_ptr<TBoolAttributeData> collapsed = std::make_shared<TBoolAttributeData>("collapsed");
  std::shared_ptr<TIntegerData> clicked = std::make_shared<TIntegerData>(-1);
  std::shared_ptr<THierarchyData> h = tree({{2, 0}, {3, 2}, {4, 2}, {5, 3}, {6, 3}});
  TNodeEdgeRules rules{proc.get()};
  uint32_t lft5 = 0, lft4 = 0;

  TRules() {
    auto set = [&](const char* pin, const TDataPtr& v) { proc->getInputPinByName(pin)->setData(v); };
    set("hierarchy", h);
    set("node primary selection", nodes);
    set("edge primary selection", edges);
    set("brushed nodes", brushed);
    set("brushed edges", brushedEdges);
    set("clicked edge", clicked);
    for (uint32_t nid : {2u, 3u, 4u, 5u, 6u}) collapsed->addRow(nid, nid == 3);
    set("collapsed", collapsed);
    bool found = false;
    lft5 = h->getLftByNid(5, found);
    lft4 = h->getLftByNid(4, found);
    auto collapsedEdges = std::make_shared<TEdgeCollapsedData>();
    collapsedEdges->addEdge(11, lft5, lft4);
    collapsedEdges->addEdge(12, lft4, lft5);
    set("edge collapsed", collapsedEdges);
  }
  static std::set<uint32_t> of(const TIntegerSetData& s) { return {s.m_Set.begin(), s.m_Set.end()}; }
};

}  // namespace

TEST(NodeEdgeRules, ClicksSelectCtrlAddsShiftTakesTheSubtreeAndEdgesSelectTheirRecords) {
  TRules t;
  // The deepest node picked is the one clicked.
  t.rules.click({{1, 3}, {2, 5}}, {}, false, false);
  EXPECT_EQ(TRules::of(*t.nodes), (std::set<uint32_t>{5}));
  t.rules.click({{1, 4}}, {}, false, false);
  EXPECT_EQ(TRules::of(*t.nodes), (std::set<uint32_t>{4}));
  t.rules.click({{2, 6}}, {}, true, false);
  EXPECT_EQ(TRules::of(*t.nodes), (std::set<uint32_t>{4, 6})) << "Ctrl adds";
  t.rules.click({{1, 3}}, {}, false, true);
  EXPECT_EQ(TRules::of(*t.nodes), (std::set<uint32_t>{3, 5, 6})) << "Shift takes the subtree";
  t.rules.click({}, {}, false, false);
  EXPECT_EQ(TRules::of(*t.nodes), (std::set<uint32_t>{3, 5, 6})) << "nothing picked changes nothing";

  // An edge record wins over nodes and selects its edges both ways; the
  // clicked edge is the first of them.
  t.rules.click({{1, 3}}, {{t.lft5, t.lft4}}, false, false);
  EXPECT_EQ(TRules::of(*t.edges), (std::set<uint32_t>{11, 12}));
  EXPECT_EQ(t.clicked->getValue(), 11);
  EXPECT_EQ(TRules::of(*t.nodes), (std::set<uint32_t>{3, 5, 6}));
}

TEST(NodeEdgeRules, DoubleClicksUnfoldANodeOrEmptyTheSelections) {
  TRules t;
  t.nodes->add(4);
  t.edges->add(11);
  bool found = false;
  t.rules.doubleClick({{1, 3}}, {});
  EXPECT_FALSE(t.collapsed->getValueById(3, found));
  EXPECT_EQ(t.nodes->getCount() + t.edges->getCount(), 2u) << "a double click on a node keeps the selections";
  t.rules.doubleClick({}, {{t.lft5, t.lft4}});
  EXPECT_EQ(t.nodes->getCount() + t.edges->getCount(), 2u) << "nor does one on an edge";
  t.rules.doubleClick({}, {});
  EXPECT_EQ(t.nodes->getCount() + t.edges->getCount(), 0u) << "one on the background empties both";
}

TEST(NodeEdgeRules, HoverBrushesShiftHoverTheSubtreeAndADragSelectsEdges) {
  TRules t;
  t.rules.hover({{1, 3}}, {}, false, false);
  EXPECT_EQ(TRules::of(*t.brushed), (std::set<uint32_t>{3}));
  t.rules.hover({{1, 3}}, {}, true, false);
  EXPECT_EQ(TRules::of(*t.brushed), (std::set<uint32_t>{3, 5, 6}));
  t.rules.hover({}, {{t.lft5, t.lft4}}, false, false);
  EXPECT_EQ(t.brushed->getCount(), 0u);
  EXPECT_TRUE(t.brushedEdges->m_Set.contains({t.lft5, t.lft4}));
  EXPECT_EQ(t.edges->getCount(), 0u) << "hovering alone selects nothing";
  t.rules.hover({}, {{t.lft5, t.lft4}}, false, true);
  EXPECT_EQ(TRules::of(*t.edges), (std::set<uint32_t>{11, 12}));
  t.rules.hover({}, {}, false, false);
  EXPECT_TRUE(t.brushedEdges->m_Set.empty());
}
