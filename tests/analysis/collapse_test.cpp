#include <gtest/gtest.h>
#include <pybind11/embed.h>

#include "analysis/MCollapse.h"
#include "support/TestData.h"
#include "support/TestProcessors.h"

namespace py = pybind11;
using namespace quorvel;
using namespace quorvel::test;

namespace {

// r(1) with a(2) and b(3); a with c(4) and d(5); c with e(6).
// lft: root 1, r 2, a 3, c 4, e 5, d 8, b 11.
std::shared_ptr<THierarchyData> sampleTree() { return tree({{1, 0}, {2, 1}, {3, 1}, {4, 2}, {5, 2}, {6, 4}}); }

std::shared_ptr<TBoolAttributeData> folded(std::initializer_list<uint32_t> nids, bool rootValue = true) {
  auto c = std::make_shared<TBoolAttributeData>("collapsed");
  for (uint32_t nid : {0u, 1u, 2u, 3u, 4u, 5u, 6u}) c->addRow(nid, false);
  for (uint32_t nid : nids) c->setValueById(nid, true);
  if (!rootValue) c->setValueById(0, false);
  return c;
}

std::vector<uint32_t> visibleNids(const THierarchyData& h) {
  std::vector<uint32_t> out;
  for (const auto& r : h.m_Rows) out.push_back(r.nid);
  return out;
}

int32_t valueOf(const TIntegerAttributeData& c, uint32_t id) {
  bool found = false;
  return c.getValueById(id, found);
}

}  // namespace

TEST(Collapse, LevelsFromTheSyntheticRootDown) {
  auto levels = extractLevels(*sampleTree());
  EXPECT_EQ(levels->m_KeyName, "level (*)");
  const std::vector<std::pair<uint32_t, int32_t>> expected{{0, 0}, {1, 1}, {2, 2}, {3, 2}, {4, 3}, {6, 4}};
  for (const auto& [nid, level] : expected) EXPECT_EQ(valueOf(*levels, nid), level) << nid;
}

TEST(Collapse, FirstStateOncePerProcessorLife) {
  Net net;
  auto init = net.add<TCollapsedStateInitializer>(net.fm);
  auto h = sampleTree();
  init->m_Hierarchy->setData(h);
  init->m_LevelAttr->setData(extractLevels(*h));
  init->m_Settings->setData(
      std::make_shared<TPythonData>(TPyRef::steal(py::eval("{'expandlevel': 1}").release().ptr())));
  net.pass();
  auto state = dataAs<TBoolAttributeData>(init->m_Out);
  ASSERT_TRUE(state);
  bool found = false;
  EXPECT_FALSE(state->getValueById(1, found)) << "the root, level 1, is not above 1";
  EXPECT_TRUE(state->getValueById(2, found)) << "level 2 is folded but visible";
  EXPECT_FALSE(state->getValueById(0, found));
  EXPECT_EQ(init->m_HierarchyOut->getData(), h);

  // A new hierarchy passes through and leaves the state alone.
  auto other = tree({{7, 0}});
  init->m_Hierarchy->setData(other);
  net.pass();
  EXPECT_EQ(init->m_Out->getData(), state);
  EXPECT_EQ(init->m_HierarchyOut->getData(), other);

  // Without settings nothing is folded.
  Net fresh;
  auto plain = fresh.add<TCollapsedStateInitializer>(fresh.fm);
  plain->m_Hierarchy->setData(h);
  plain->m_LevelAttr->setData(extractLevels(*h));
  fresh.pass();
  EXPECT_EQ(dataAs<TBoolAttributeData>(plain->m_Out)->countValues(true), 0u);
}

TEST(Collapse, FoldingHidesSubtreesAndMapsThemOnTheFoldedNode) {
  auto h = sampleTree();
  auto open = collapseHierarchy(*h, *folded({}, false), "c");
  EXPECT_EQ(visibleNids(*open.hierarchy), (std::vector<uint32_t>{0, 1, 2, 4, 6, 5, 3}));
  for (const auto& [lft, agg] : open.agglft->m_Rows) EXPECT_EQ(lft, agg) << "identity";
  EXPECT_EQ(open.maxLevel, 4);
  EXPECT_EQ(open.collapsedMaxLevel, 4);

  // A folded leaf changes nothing.
  auto leaf = collapseHierarchy(*h, *folded({6}, false), "c");
  EXPECT_TRUE(leaf.agglft->sameRows(*open.agglft));
  EXPECT_TRUE(leaf.hierarchy->sameRows(*open.hierarchy));

  // a folded: c, e and d hide on a's lft 3; a keeps its numbers.
  auto a = collapseHierarchy(*h, *folded({2}, false), "c");
  EXPECT_EQ(visibleNids(*a.hierarchy), (std::vector<uint32_t>{0, 1, 2, 3}));
  bool found = false;
  EXPECT_EQ(a.agglft->getAggLftByLft(5, found), 3u);
  EXPECT_EQ(a.agglft->getAggLftByLft(8, found), 3u);
  EXPECT_EQ(a.hierarchy->getNidsBelowNid(2), (std::vector<uint32_t>{2}));
  EXPECT_EQ(a.collapsedMaxLevel, 2);
  EXPECT_EQ(a.maxLevel, 4);

  // c folded below a folded r: all on r; opening r shows a, still folded.
  auto both = collapseHierarchy(*h, *folded({1, 4}, false), "c");
  EXPECT_EQ(visibleNids(*both.hierarchy), (std::vector<uint32_t>{0, 1}));
  EXPECT_EQ(both.agglft->getAggLftByLft(4, found), 2u);
  auto cOnly = collapseHierarchy(*h, *folded({4}, false), "c");
  EXPECT_EQ(visibleNids(*cOnly.hierarchy), (std::vector<uint32_t>{0, 1, 2, 4, 5, 3}));

  // The synthetic root without a value counts as folded.
  auto none = collapseHierarchy(*h, TBoolAttributeData("collapsed"), "c");
  EXPECT_EQ(visibleNids(*none.hierarchy), (std::vector<uint32_t>{0}));
  EXPECT_EQ(collapseHierarchy(*tree({{1, 0}, {2, 1}}), *folded({}, false), "c").maxLevel, 2);
}

TEST(Collapse, ProcessorReplacesTheMapOnlyWhenItChanges) {
  Net net;
  auto collapser = net.add<TCollapseProcessor>(net.fm);
  auto h = sampleTree();
  auto state = folded({}, false);
  collapser->m_FullHierarchy->setData(h);
  collapser->m_Hierarchy->setData(h);
  collapser->m_BoolAttribute->setData(state);
  net.pass();
  auto first = collapser->m_AggLftOut->getData();
  ASSERT_TRUE(first);
  EXPECT_EQ(dataAs<TIntegerData>(collapser->m_MaxLevel)->getValue(), 4);
  EXPECT_EQ(collapser->m_CollapsedHierarchyOut->getData()->getKeyName(),
            collapser->m_Hierarchy->getKeyText() + " collapsed");
  state->setValueById(6, true);  // a leaf: the map stays
  net.pass();
  EXPECT_EQ(collapser->m_AggLftOut->getData(), first);
  state->setValueById(2, true);
  net.pass();
  EXPECT_NE(collapser->m_AggLftOut->getData(), first);
  EXPECT_EQ(dataAs<TIntegerData>(collapser->m_CollapsedMaxLevel)->getValue(), 2);
}

TEST(Collapse, HeightsAddAndClampAndPruning) {
  Net net;
  auto heights = net.add<TLevelEqualizer>(net.fm);
  heights->m_Hierarchy->setData(sampleTree());
  heights->m_MaxLevel->setData(std::make_shared<TIntegerData>(1));
  net.pass();
  auto h = dataAs<TIntegerAttributeData>(heights->m_LevelOut);
  EXPECT_EQ(valueOf(*h, 6), 0) << "a leaf";
  EXPECT_EQ(valueOf(*h, 2), 2);
  EXPECT_EQ(valueOf(*h, 1), 3);
  EXPECT_EQ(valueOf(*h, 0), 4) << "the later of the two rows of the root";
  EXPECT_EQ(h->getRowCount(), 8u);

  auto clamp = net.add<TAddAndClamp>(net.fm);
  auto column = test::column<TIntegerAttributeData, int32_t>("k", {{1, 5}, {2, -3}});
  clamp->m_Attr->setData(column);
  net.pass();
  auto copy = dataAs<TIntegerAttributeData>(clamp->m_Out);
  EXPECT_TRUE(copy->sameRows(*column)) << "only attr: a copy";
  EXPECT_EQ(copy->m_KeyName, "<no keyname>");
  clamp->m_Add->setData(std::make_shared<TIntegerData>(10));
  clamp->m_Min->setData(std::make_shared<TIntegerData>(9));
  clamp->m_Max->setData(std::make_shared<TIntegerData>(8));
  net.pass();
  EXPECT_EQ(valueOf(*dataAs<TIntegerAttributeData>(clamp->m_Out), 1), 9) << "min above max: min wins";

  auto pruner = net.add<TTreePruner>(net.fm);
  pruner->m_Hierarchy->setData(sampleTree());
  pruner->m_Selection->setData(ids({}));
  net.pass();
  EXPECT_EQ(visibleNids(*dataAs<THierarchyData>(pruner->m_Out)), (std::vector<uint32_t>{0}));
  pruner->m_Selection->setData(ids({4}));
  net.pass();
  auto pruned = dataAs<THierarchyData>(pruner->m_Out);
  EXPECT_EQ(visibleNids(*pruned), (std::vector<uint32_t>{0, 1, 2, 4})) << "ancestors stay, e goes";
  EXPECT_EQ(pruned->m_KeyName, "pruned hierarchy 1");
  EXPECT_EQ(pruned->getRowByNid(4, *std::make_unique<bool>()), 3u);
  pruner->m_Selection->setData(ids({4}));
  net.pass();
  EXPECT_EQ(pruner->m_Out->getData(), pruned) << "the same rows wake nobody";
  auto all = ids({});
  all->m_ContainsAll = true;
  pruner->m_Selection->setData(all);
  net.pass();
  EXPECT_EQ(dataAs<THierarchyData>(pruner->m_Out)->getRowCount(), 7u);
}

TEST(Collapse, AnAutomaticLevelShowsAtMostTheBudget) {
  // A balanced binary tree: levels of 1, 2, 4, ... 1024 nodes.
  std::vector<size_t> binary;
  for (size_t n = 1; n <= 1024; n *= 2) binary.push_back(n);
  // Expand level L shows levels 0 .. L+1: 2^(L+2) - 1 nodes.
  EXPECT_EQ(chooseExpandLevel(binary, 1023), 8) << "levels 0 to 9, exactly the budget";
  EXPECT_EQ(chooseExpandLevel(binary, 1022), 7) << "one node less: a level less";
  EXPECT_EQ(chooseExpandLevel(binary, 2047), 10) << "the whole tree fits: all unfolded";
  EXPECT_EQ(chooseExpandLevel(binary, 1), 0) << "the first level shows even over the budget";
  // A star of 5,000 leaves: only the first level, whatever the budget.
  EXPECT_EQ(chooseExpandLevel({1, 5000}, 1000), 0);
  EXPECT_EQ(chooseExpandLevel({1, 5000}, 5001), 1);
  // A chain of 10,000 levels: a node a level.
  EXPECT_EQ(chooseExpandLevel(std::vector<size_t>(10000, 1), 1000), 998);
  EXPECT_EQ(chooseExpandLevel({1}, 1000), 0) << "a lone root";

  // Through the processor: 'auto' on the sample tree (levels of 1, 1, 2, 2
  // and 1 nodes). A budget of 5 is one short of the third level's 6.
  auto first = [](const char* settings) {
    Net net;
    auto init = net.add<TCollapsedStateInitializer>(net.fm);
    auto h = sampleTree();
    init->m_Hierarchy->setData(h);
    init->m_LevelAttr->setData(extractLevels(*h));
    init->m_Settings->setData(std::make_shared<TPythonData>(TPyRef::steal(py::eval(settings).release().ptr())));
    net.pass();
    return visibleNids(*collapseHierarchy(*h, *dataAs<TBoolAttributeData>(init->m_Out), "v").hierarchy);
  };
  EXPECT_EQ(first("{'expandlevel': 'auto', 'budget': 4}"), (std::vector<uint32_t>{0, 1, 2, 3}));
  EXPECT_EQ(first("{'expandlevel': 'auto', 'budget': 5}"), (std::vector<uint32_t>{0, 1, 2, 3}));
  EXPECT_EQ(first("{'expandlevel': 'auto', 'budget': 6}"), (std::vector<uint32_t>{0, 1, 2, 4, 5, 3}));
  EXPECT_EQ(first("{'expandlevel': 'auto'}").size(), 7u) << "the default budget of 1000 takes it all";
  // Bad values: the default stands and the log says why.
  EXPECT_EQ(first("{'expandlevel': 'auto', 'budget': 0}").size(), 7u);
  EXPECT_EQ(first("{'expandlevel': 'auto', 'budget': 'many'}").size(), 7u);
  EXPECT_EQ(first("{'expandlevel': 'deep'}").size(), 7u);
  EXPECT_EQ(first("{'expandlevel': 1}"), (std::vector<uint32_t>{0, 1, 2, 3})) << "a number folds as before";
}
