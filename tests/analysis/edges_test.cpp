#include <gtest/gtest.h>

#include "analysis/MCollapse.h"
#include "analysis/MEdgeAggregation.h"
#include "support/TestData.h"
#include "support/TestProcessors.h"

using namespace quorvel;
using namespace quorvel::test;

namespace {

// A map that returns v in the red channel.
class Identity : public TColorMap {
 public:
  int calls = 0;
  void getColor(float v, TVector4& c) override {
    ++calls;
    c = TVector4(v, 0.0f, 0.0f, 1.0f);
  }
  std::string getName() override { return "identity"; }
};

// r(1) with a(2) and b(3); a with c(4). lft: r 2, a 3, c 4, b 7.
std::shared_ptr<THierarchyData> small() { return tree({{1, 0}, {2, 1}, {3, 1}, {4, 2}}); }

std::shared_ptr<TAggLftData> identityMap(const THierarchyData& h) {
  auto m = std::make_shared<TAggLftData>();
  for (const auto& r : h.m_Rows) m->addRow(r.lft, r.lft);
  return m;
}

}  // namespace

TEST(EdgeAggregation, RecordsPerPairOfVisibleNodes) {
  auto h = small();
  TEdgeData edges;
  edges.addRow(10, 4, 3);  // c -> b
  edges.addRow(11, 3, 2);  // b -> a
  edges.addRow(12, 2, 3);  // a -> b
  edges.addRow(13, 2, 3);  // a -> b, parallel
  edges.addRow(14, 4, 99); // an end outside the hierarchy
  edges.addRow(15, 4, 2);  // c -> a
  auto all = ids({10, 11, 12, 13, 14, 15});
  auto open = aggregateEdges(*h, *identityMap(*h), edges, *all);
  EXPECT_EQ(open->getRecordCount(), 3u) << "parallel edges share a record, the outside one is skipped";
  EXPECT_EQ(open->getRecord(3, 7).forward.ids(), (std::vector<uint32_t>{12, 13}));
  EXPECT_EQ(open->getRecord(3, 7).backward.ids(), (std::vector<uint32_t>{11}));

  // a folded: c's edges land on a; c -> a becomes a record with equal ends.
  TBoolAttributeData state("collapsed");
  state.addRow(0, false);
  state.addRow(2, true);
  auto collapsed = collapseHierarchy(*h, state, "c");
  auto folded = aggregateEdges(*h, *collapsed.agglft, edges, *ids({10, 11, 12, 13, 15}));
  EXPECT_EQ(folded->getRecord(3, 7).forward.ids(), (std::vector<uint32_t>{10, 12, 13}));
  EXPECT_EQ(folded->getRecord(3, 3).forward.ids(), (std::vector<uint32_t>{15}));
  // An edge outside the selection counts for nothing.
  auto some = aggregateEdges(*h, *collapsed.agglft, edges, *ids({11}));
  EXPECT_EQ(some->getRecordCount(), 1u);
}

// A record of hundreds of edges with few values, its values read through
// the column's index (few look-ups against a long column) and laid out by
// id (many): the same distinct values either way, -0 and 0 as one.
TEST(EdgeAggregation, ColoursOfManyEdgesCountEachValueOnce) {
  TEdgeCollapsedData d;
  std::vector<std::pair<uint32_t, float>> rows;
  for (uint32_t eid = 1; eid <= 300; ++eid) {
    d.addEdge(eid, eid % 3 == 0 ? 7 : 3, eid % 3 == 0 ? 3 : 7);
    rows.push_back({eid, eid % 5 == 0 ? -0.0f : 0.25f * static_cast<float>(eid % 4)});  // 0, .25, .5, .75
  }
  TColorMapData colors("id", std::make_shared<Identity>());
  auto dense = colorEdges(d, *column<TFloatAttributeData, float>("w", rows), *column<TFloatAttributeData, float>("w", rows),
                          colors, "avg");
  EXPECT_FLOAT_EQ(dense->m_Records[0].forward.x, 0.375f) << "four values forward, the same four backward";
  for (uint32_t id = 1000; id < 5000; ++id) rows.push_back({id, 0.9f});
  auto indexed = colorEdges(d, *column<TFloatAttributeData, float>("w", rows),
                            *column<TFloatAttributeData, float>("w", rows), colors, "avg");
  EXPECT_EQ(indexed->m_Records[0].forward, dense->m_Records[0].forward);
}

// The map of nodes onto visible ones is read in one walk when the collapse's
// rows follow the hierarchy's, and by look-up when they do not.
TEST(EdgeAggregation, FoldingMapInAnyRowOrder) {
  auto h = small();
  TEdgeData edges;
  edges.addRow(10, 4, 3);  // c -> b
  edges.addRow(11, 3, 2);  // b -> a
  TAggLftData shuffled;
  for (auto it = h->m_Rows.rbegin(); it != h->m_Rows.rend(); ++it) shuffled.addRow(it->lft, it->lft == 4 ? 3 : it->lft);
  shuffled.rebuildIndex();
  auto folded = aggregateEdges(*h, shuffled, edges, *ids({10, 11}));
  EXPECT_EQ(folded->getRecord(3, 7).forward.ids(), (std::vector<uint32_t>{10}));
  EXPECT_EQ(folded->getRecord(3, 7).backward.ids(), (std::vector<uint32_t>{11}));
  TAggLftData partial;  // an agglft row of an lft the hierarchy lacks
  partial.addRow(3, 3);
  partial.addRow(5, 5);
  partial.addRow(7, 7);
  EXPECT_EQ(aggregateEdges(*h, partial, edges, *ids({10, 11}))->getRecordCount(), 1u) << "c has no visible node";
}

TEST(EdgeAggregation, ColoursByDirection) {
  TEdgeCollapsedData d;
  d.addEdge(1, 3, 7);  // forward only, one value
  d.addEdge(2, 7, 3);  // and backward, another value
  d.addEdge(3, 4, 8);  // no values
  d.addEdge(4, 5, 9);  // two forward edges with one value
  d.addEdge(5, 5, 9);
  d.addEdge(6, 6, 10);  // avg over 0.2, 0.4 and backward 0.6
  d.addEdge(7, 6, 10);
  d.addEdge(8, 10, 6);
  auto values = column<TFloatAttributeData, float>(
      "w", {{1, 0.1f}, {2, 0.9f}, {4, 0.5f}, {5, 0.5f}, {6, 0.2f}, {7, 0.4f}, {8, 0.6f}});
  auto map = std::make_shared<Identity>();
  TColorMapData colors("id", map);
  auto out = colorEdges(d, *values, *values, colors, "avg");
  ASSERT_EQ(out->getRecordCount(), 4u);
  const auto& r0 = out->m_Records[0];
  EXPECT_FLOAT_EQ(r0.forward.x, 0.5f) << "f = 1, b = 1: the average of 0.1 and 0.9 for both";
  EXPECT_FLOAT_EQ(r0.backward.x, 0.5f);
  const auto& r1 = out->m_Records[1];
  EXPECT_EQ(r1.forward, TVector4(0.7f, 0.7f, 0.7f, 1.0f)) << "no values: grey";
  const auto& r2 = out->m_Records[2];
  EXPECT_FLOAT_EQ(r2.forward.x, 0.5f) << "equal values count once";
  EXPECT_EQ(r2.backward, TVector4(0.7f, 0.7f, 0.7f, 1.0f));
  EXPECT_NEAR(out->m_Records[3].forward.x, 0.4f, 1e-6f);
  EXPECT_LE(map->calls, 2 * 4) << "at most once per direction and record";

  // The two directions of a record take their own colours with one value each.
  TEdgeCollapsedData twoWays;
  twoWays.addEdge(1, 3, 7);
  twoWays.addEdge(2, 7, 3);
  auto onlyForward = column<TFloatAttributeData, float>("w", {{1, 0.25f}});
  auto one = colorEdges(twoWays, *onlyForward, *onlyForward, colors, "max");
  EXPECT_FLOAT_EQ(one->m_Records[0].forward.x, 0.25f);
  EXPECT_EQ(one->m_Records[0].backward, TVector4(0.7f, 0.7f, 0.7f, 1.0f));

  // Texts that disagree are magenta; texts that agree take their colour.
  auto kinds = column<TStringAttributeData, std::string>("kind", {{1, "calls"}, {2, "uses"}});
  auto ranks = column<TFloatAttributeData, float>("kind", {{1, 0.0f}, {2, 1.0f}});
  auto text = colorEdges(twoWays, *kinds, *ranks, colors, "max");
  EXPECT_EQ(text->m_Records[0].forward, TVector4(1, 0, 1, 1));
  auto same = column<TFloatAttributeData, float>("kind", {{1, 0.0f}, {2, 0.0f}});
  auto agreed = colorEdges(twoWays, *kinds, *same, colors, "max");
  EXPECT_EQ(agreed->m_Records[0].forward, TVector4(0, 0, 0, 1));
  EXPECT_EQ(colorEdges(twoWays, *onlyForward, *onlyForward, colors, "median")->m_Records[0].forward.x, 0.25f)
      << "f = 1, b = 0 is not aggregated";

  // Texts on one side only: two edges b -> a with different kinds and
  // nothing forward, or the same the other way round.
  for (const bool backwardOnly : {true, false}) {
    TEdgeCollapsedData oneSide;
    oneSide.addEdge(1, backwardOnly ? 7 : 3, backwardOnly ? 3 : 7);
    oneSide.addEdge(2, backwardOnly ? 7 : 3, backwardOnly ? 3 : 7);
    auto mixed = colorEdges(oneSide, *kinds, *ranks, colors, "max");
    ASSERT_EQ(mixed->getRecordCount(), 1u);
    EXPECT_EQ(mixed->m_Records[0].forward, TVector4(1, 0, 1, 1)) << "backward only: " << backwardOnly;
    EXPECT_EQ(mixed->m_Records[0].backward, TVector4(1, 0, 1, 1));
  }
}

TEST(EdgeAggregation, ProcessorsAndTranslations) {
  Net net;
  auto colorer = net.add<TEdgeColorProcessor>(net.fm);
  auto d = std::make_shared<TEdgeCollapsedData>();
  d->addEdge(1, 3, 7);
  auto values = column<TFloatAttributeData, float>("w", {{1, 0.5f}});
  colorer->m_EdgeCollapsed->setData(d);
  colorer->m_ColorAttr->setData(values);
  colorer->m_ColorAttrOrd->setData(values);
  colorer->m_Aggregation->setData(std::make_shared<TStringData>("max"));
  net.pass();
  auto empty = dataAs<TEdgeColorData>(colorer->m_Output);
  ASSERT_TRUE(empty);
  EXPECT_EQ(empty->getRecordCount(), 0u) << "no colour map: no records";
  colorer->m_ColorMap->setData(std::make_shared<TColorMapData>("id", std::make_shared<Identity>()));
  net.pass();
  EXPECT_EQ(dataAs<TEdgeColorData>(colorer->m_Output)->getRecordCount(), 1u);
  // The values it keeps laid out by id between passes follow a new column,
  // and a column changed in place, instead of colouring from the old ones.
  auto forwardRed = [&] { return dataAs<TEdgeColorData>(colorer->m_Output)->m_Records.at(0).forward.x; };
  EXPECT_EQ(forwardRed(), 0.5f);
  auto other = column<TFloatAttributeData, float>("w", {{1, 0.25f}});
  colorer->m_ColorAttr->setData(other);
  colorer->m_ColorAttrOrd->setData(other);
  net.pass();
  EXPECT_EQ(forwardRed(), 0.25f);
  other->setValueById(1, 0.75f);
  colorer->m_ColorAttrOrd->m_DataHasChanged = true;
  net.pass();
  EXPECT_EQ(forwardRed(), 0.75f);
  colorer->m_ColorAttrOrd->setData(values);
  net.pass();
  EXPECT_EQ(forwardRed(), 0.5f);

  auto toEids = net.add<TLftPairsToEids>(net.fm);
  d->addEdge(2, 7, 3);
  toEids->m_EdgeCollapsed->setData(d);
  net.pass();
  EXPECT_EQ(dataAs<TIntegerSetData>(toEids->m_Out)->getCount(), 0u) << "no pairs: an empty set";
  auto pairs = std::make_shared<TIntegerPairSetData>();
  pairs->addPair(3, 7);
  pairs->addPair(1, 2);
  toEids->m_LftPairs->setData(pairs);
  net.pass();
  EXPECT_EQ(dataAs<TIntegerSetData>(toEids->m_Out)->m_Set, (TIdSet{1, 2}));

  auto toPairs = net.add<TEidsToLftPairs>(net.fm);
  toPairs->m_Eids->setData(ids({2, 99}));
  toPairs->m_EdgeCollapsed->setData(d);
  net.pass();
  auto back = dataAs<TIntegerPairSetData>(toPairs->m_Out);
  EXPECT_EQ(back->m_Set.size(), 1u);
  EXPECT_EQ(back->m_Set.begin()->first, 3u);
}
