#include <gtest/gtest.h>

#include <random>
#include <set>
#include <unordered_map>

#include "support/TestHelpers.h"

#include "data/MHierarchy.h"

using namespace quorvel;
using quorvel::test::errorOf;

namespace {

using Ids = std::vector<uint32_t>;

// r(10) with children a(11) and b(12), and c(13) below a:
// r 2..9, a 3..6, c 4..5, b 7..8; the synthetic root 1..10.
std::shared_ptr<THierarchyData> sample(bool withC = true) {
  auto h = std::make_shared<THierarchyData>("hierarchy 1");
  h->addRow(0, 1, 10);
  h->addRow(10, 2, 9);
  h->addRow(11, 3, 6);
  if (withC) h->addRow(13, 4, 5);
  h->addRow(12, 7, 8);
  return h;
}


}  // namespace

TEST(Hierarchy, RowLookups) {
  auto h = sample();
  const size_t n = h->getRowCount();
  EXPECT_EQ(errorOf([&] { h->getNidByRow(n); }), "getNidByRow():  p_RowId >= m_Rows.size() ");
  EXPECT_EQ(errorOf([&] { h->getLftByRow(n); }), "getNidByRow():  p_RowId >= m_Rows.size() ");
  EXPECT_EQ(h->getAllByRow(n), nullptr);
  EXPECT_EQ(h->getAllByRow(2)->nid, 11u);
  bool found = true;
  EXPECT_EQ(h->getRowByNid(99, found), 0u);
  EXPECT_FALSE(found);
  EXPECT_EQ(h->getRowByNid(0, found), 0u);
  EXPECT_TRUE(found) << "row 0 is the synthetic root";
  EXPECT_EQ(h->getLftByNid(13, found), 4u);
  EXPECT_EQ(h->getNidByLft(7, found), 12u);
  EXPECT_EQ(h->getNidByLft(5, found), 0u);
  EXPECT_FALSE(found) << "5 is a rgt";
  EXPECT_EQ(h->toString(), "#items: 5:\nnid,lft,rgt\n0,1,10\n10,2,9\n11,3,6\n13,4,5\n12,7,8\n");
}

TEST(Hierarchy, SubtreeQueriesOnFullAndCollapsedTables) {
  for (bool ascending : {true, false}) {
    // The same rows once in lft order, once added out of order.
    std::shared_ptr<THierarchyData> h;
    if (ascending) {
      h = sample();
    } else {
      h = std::make_shared<THierarchyData>();
      h->addRow(0, 1, 10);
      h->addRow(12, 7, 8);
      h->addRow(10, 2, 9);
      h->addRow(13, 4, 5);
      h->addRow(11, 3, 6);
    }
    EXPECT_EQ(h->getNidsBelowNid(0), (Ids{0, 10, 11, 13, 12}));
    EXPECT_EQ(h->getNidsBelowNid(11), (Ids{11, 13}));
    EXPECT_EQ(h->getNidsBelowNid(13), (Ids{13}));
    EXPECT_TRUE(h->getNidsBelowNid(99).empty());
  }
  auto h = sample();
  EXPECT_EQ(h->getNidsAboveNid(13), (Ids{13, 11, 10}));
  EXPECT_EQ(h->getNidsAboveNid(11), (Ids{11, 10})) << "a child of the real root";
  EXPECT_TRUE(h->getNidsAboveNid(0).empty());
  EXPECT_TRUE(h->getNidsAboveNid(99).empty());

  // A collapsed form keeps the numbers and drops rows: the folded node a
  // answers alone.
  auto collapsed = sample(false);
  EXPECT_EQ(collapsed->getNidsBelowNid(11), (Ids{11}));
  EXPECT_EQ(collapsed->getNidsBelowNid(0), (Ids{0, 10, 11, 12}));
}

TEST(Hierarchy, BelowNidsInOnePass) {
  auto h = sample();
  TIntegerSetData set;
  set.add(0);
  EXPECT_EQ(h->getNidsBelowNids(set), (Ids{10, 11, 13, 12})) << "all real nodes, not 0";
  TIntegerSetData some;
  some.add(11);
  some.add(13);
  EXPECT_EQ(h->getNidsBelowNids(some), (Ids{11, 13})) << "each once";
  TIntegerSetData all;
  all.m_ContainsAll = true;
  EXPECT_EQ(h->getNidsBelowNids(all).size(), 4u);
  EXPECT_TRUE(h->getNidsBelowNids(TIntegerSetData()).empty());
}

TEST(Edges, IndexesAndNeighbours) {
  TEdgeData e;
  e.addRow(100, 1, 2);
  e.addRow(101, 1, 2);  // parallel
  e.addRow(102, 2, 1);
  e.addRow(103, 3, 3);  // self-edge
  e.addRow(104, 1, 4);
  uint32_t from = 9;
  uint32_t to = 9;
  bool found = true;
  e.getFromToNidByEid(999, from, to, found);
  EXPECT_EQ(std::make_tuple(from, to, found), std::make_tuple(0u, 0u, false));
  e.getFromToNidByEid(102, from, to, found);
  EXPECT_EQ(std::make_tuple(from, to, found), std::make_tuple(2u, 1u, true));

  TIntegerSetData selection;
  for (uint32_t eid : {100, 102, 103, 104}) selection.add(eid);
  TIntegerSetData nodes;
  TIntegerSetData edges;
  e.addForwardNeighbours(1, selection, nodes, &edges);
  EXPECT_EQ(nodes.m_Set, (TIdSet{2, 4}));
  EXPECT_EQ(edges.m_Set, (TIdSet{100, 104})) << "101 is not selected";
  TIntegerSetData back;
  e.addBackwardNeighbours(1, selection, back, nullptr);
  EXPECT_EQ(back.m_Set, (TIdSet{2}));
  TIntegerSetData self;
  e.addForwardNeighbours(3, selection, self, nullptr);
  EXPECT_EQ(self.m_Set, (TIdSet{3}));
  std::vector<uint32_t> rows;
  e.forEachForwardRow(1, [&](uint32_t r) { rows.push_back(r); });
  EXPECT_EQ(rows, (std::vector<uint32_t>{0, 1, 4}));
  e.addRow(105, 4, 1);
  e.addRow(106, 1, 3);
  rows.clear();
  e.forEachForwardRow(1, [&](uint32_t r) { rows.push_back(r); });
  EXPECT_EQ(rows, (std::vector<uint32_t>{0, 1, 4, 6})) << "a row added after a walk";
  rows.clear();
  e.forEachBackwardRow(1, [&](uint32_t r) { rows.push_back(r); });
  EXPECT_EQ(rows, (std::vector<uint32_t>{2, 5}));
  rows.clear();
  e.forEachForwardRow(1000000, [&](uint32_t r) { rows.push_back(r); });
  EXPECT_TRUE(rows.empty()) << "a node above every end";

  // Node ids far apart: the same lists, found through a map.
  TEdgeData sparse;
  for (const TEdgeRow& r : e.m_Rows) sparse.addRow(r.eid, r.fromnid * 1000003u, r.tonid * 1000003u);
  rows.clear();
  sparse.forEachForwardRow(1000003u, [&](uint32_t r) { rows.push_back(r); });
  EXPECT_EQ(rows, (std::vector<uint32_t>{0, 1, 4, 6}));
  rows.clear();
  sparse.forEachBackwardRow(3u * 1000003u, [&](uint32_t r) { rows.push_back(r); });
  EXPECT_EQ(rows, (std::vector<uint32_t>{3, 6}));
  sparse.forEachForwardRow(2, [&](uint32_t r) { rows.push_back(r); });
  EXPECT_EQ(rows.size(), 2u);
}

TEST(Edges, CollapsedRecordsAndAggLft) {
  TEdgeCollapsedData d;
  d.addEdge(1, 3, 7);
  d.addEdge(2, 7, 3);
  d.addEdge(3, 5, 5);
  d.addEdge(4, 3, 7);
  ASSERT_EQ(d.getRecordCount(), 2u);
  const auto& r = d.getRecord(3, 7);
  EXPECT_EQ(r.forward.ids(), (std::vector<uint32_t>{1, 4}));
  EXPECT_EQ(r.backward.ids(), (std::vector<uint32_t>{2})) << "swapped ends land in one record";
  bool found = true;
  EXPECT_TRUE(d.getForwardEids(7, 3, found).empty());
  EXPECT_FALSE(found) << "the pair is not reordered";
  EXPECT_EQ(d.getRecord(5, 5).forward.ids(), (std::vector<uint32_t>{3})) << "equal ends are forward";
  EXPECT_EQ(errorOf([&] { d.getRecord(1, 2); }), "TEdgeCollapsedData: cannot find pair");

  TIntegerPairSetData pairs;
  d.addLftPairsOfEid(2, pairs);
  d.addLftPairsOfEid(4, pairs);
  d.addLftPairsOfEid(99, pairs);
  EXPECT_EQ(pairs.m_Set.size(), 1u);
  using P = TEdgeCollapsedData::Pair;
  EXPECT_EQ(d.getPairsOfSource(3), (std::vector<P>{{3, 7}}));
  EXPECT_EQ(d.getPairsOfSource(7), (std::vector<P>{{3, 7}}));
  EXPECT_EQ(d.getPairsOfTarget(5), (std::vector<P>{{5, 5}}));
  EXPECT_EQ(d.toString(), "#items: 2:\nsmallerlft,largerlft,#forward,#backward\n3,7,2,1\n5,5,1,0\n\n");

  TAggLftData agg;
  agg.addRow(4, 3);
  EXPECT_EQ(agg.getAggLftByLft(4, found), 3u);
  EXPECT_EQ(agg.getAggLftByLft(5, found), 0u);
  EXPECT_FALSE(found);
  agg.m_Rows[0].second = 2;
  agg.rebuildIndex();
  EXPECT_EQ(agg.getAggLftByLft(4, found), 2u);
}

// Records made all at once equal those made edge by edge: the same pairs
// in the same order with the same eids each way, and the same answers.
// Few pairs are looked up in a table, many are sorted; the last four
// cases have more pairs than the table takes, with many edges to one end,
// dense ends, sparse ends, and half the edges at one hub (a folded
// subtree), both ways.
TEST(Edges, CollapsedRecordsInOneGoEqualThoseEdgeByEdge) {
  std::mt19937 rng(3);
  for (const auto& [ends, count, hub] :
       {std::tuple{3u, 5000u, false}, {50u, 5000u, false}, {100000u, 5000u, false}, {3000000u, 5000u, false},
        {1000u, 150001u, false}, {200000u, 150001u, false}, {3000000u, 150001u, false}, {100000u, 150001u, true}}) {
    std::vector<TEdgeCollapsedData::Edge> edges;
    for (uint32_t eid = 1; eid <= count; ++eid) {
      uint32_t source = static_cast<uint32_t>(rng() % ends);
      uint32_t target = static_cast<uint32_t>(rng() % ends);
      if (hub && eid % 2 == 0) (eid % 4 == 0 ? source : target) = 3;
      edges.push_back({eid * 7u % (count + 3), source, target});
    }
    TEdgeCollapsedData one;
    TEdgeCollapsedData each;
    one.addEdges(edges);
    for (const auto& e : edges) each.addEdge(e.eid, e.source, e.target);
    ASSERT_EQ(one.getRecordCount(), each.getRecordCount()) << ends;
    for (size_t r = 0; r < each.m_Records.size(); ++r) {
      const auto& a = one.m_Records[r];
      const auto& b = each.m_Records[r];
      ASSERT_EQ(std::tie(a.smallerlft, a.largerlft), std::tie(b.smallerlft, b.largerlft)) << r;
      ASSERT_EQ(a.forward, b.forward);
      ASSERT_EQ(a.backward, b.backward);
    }
    const auto& e = edges[4321];
    EXPECT_EQ(one.getRecordIndexOfEid(e.eid), each.getRecordIndexOfEid(e.eid));
    EXPECT_EQ(one.getPairsOfSource(e.source), each.getPairsOfSource(e.source));
    const auto [lo, hi] = std::minmax(e.source, e.target);
    EXPECT_EQ(&one.getRecord(lo, hi), &one.m_Records[static_cast<size_t>(one.getRecordIndexOfEid(e.eid))]);
    one.addEdge(99999, hi, lo);
    EXPECT_TRUE(one.getRecord(lo, hi).forward.contains(99999) || one.getRecord(lo, hi).backward.contains(99999))
        << "edges added after the bulk land in the same record";
  }
  TEdgeCollapsedData empty;
  empty.addEdges({});
  EXPECT_EQ(empty.getRecordCount(), 0u);
}

TEST(Edges, HashIndexStaysWithinLoadFactorOne) {
  TIdHashMap<uint32_t> map;
  for (uint32_t i = 0; i < 100000; ++i) {
    map.assign(i * 1024u, i);
    ASSERT_LE(map.loadFactor(), 1.0f);
  }
  EXPECT_EQ(*map.find(1024u * 777u), 777u);
  EXPECT_EQ(map.find(1), nullptr);
}

// Keys that start dense, turn sparse and fill in again: the map answers as
// a reference map does through each change of its table.
TEST(Edges, IdMapAgreesWithReferenceAcrossDenseAndSparseKeys) {
  TIdHashMap<uint32_t> map;
  std::unordered_map<uint32_t, uint32_t> reference;
  std::mt19937 rng(11);
  auto put = [&](uint32_t key, uint32_t value) {
    map.assign(key, value);
    reference[key] = value;
  };
  for (uint32_t i = 1; i <= 3000; ++i) put(i, i);
  EXPECT_TRUE(map.isDense());
  put(4000000000u, 1);
  EXPECT_FALSE(map.isDense()) << "one far key makes the keys sparse";
  for (uint32_t i = 0; i < 20000; ++i) put(rng() % 9000000u, i);
  for (uint32_t i = 0; i < 9000000u && map.size() < 1000000; ++i) put(i, i + 1);
  EXPECT_FALSE(map.isDense()) << "the far key still stands";
  TIdHashMap<uint32_t> refilled;
  for (uint32_t i = 0; i < 2000; ++i) refilled.assign(1000000u + i * 500u, i);
  for (uint32_t i = 0; i < 1100000u; ++i) refilled.assign(i, i);
  EXPECT_TRUE(refilled.isDense()) << "filled in below the largest key";
  EXPECT_EQ(*refilled.find(1000000u + 7 * 500u), 1000000u + 7 * 500u);
  EXPECT_EQ(refilled.find(1000000u + 1999 * 500u + 1), nullptr);
  EXPECT_EQ(refilled.size(), 1100000u + 2000u - 200u);
  ASSERT_EQ(map.size(), reference.size());
  for (const auto& [key, value] : reference) ASSERT_EQ(*map.find(key), value) << key;
  for (uint32_t i = 0; i < 1000; ++i) {
    const uint32_t key = rng();
    EXPECT_EQ(map.find(key) != nullptr, reference.count(key) != 0) << key;
  }
  // The value that marks an empty slot of the direct table is a value too.
  TIdHashMap<uint32_t> marks;
  marks.assign(5, 1);
  marks.assign(5, 0xffffffffu);
  marks.assign(6, 0xffffffffu);
  marks.assign(7, 2);
  EXPECT_EQ(*marks.find(5), 0xffffffffu);
  EXPECT_EQ(*marks.find(6), 0xffffffffu);
  EXPECT_EQ(*marks.find(7), 2u);
  EXPECT_EQ(marks.size(), 3u);
  EXPECT_EQ(marks.find(4), nullptr);
}

// The eid sets of aggregated edges: one id inline, more in a block. Every
// operation agrees with an ordered set, across the step from inline to block
// and through copies and moves of either form.
TEST(Edges, SmallIdSetsAgreeWithAnOrderedSet) {
  static_assert(sizeof(TSmallIdSet) == 8);
  std::mt19937 rng(11);
  for (int round = 0; round < 200; ++round) {
    TSmallIdSet set;
    std::set<uint32_t> reference;
    const int inserts = static_cast<int>(rng() % 12);
    for (int i = 0; i < inserts; ++i) {
      const uint32_t id = round % 3 == 0 ? static_cast<uint32_t>(i) : rng() % 20 + (rng() % 2 ? 0xfffffff0u : 0u);
      ASSERT_EQ(set.insert(id), reference.insert(id).second);
    }
    ASSERT_EQ(set.ids(), std::vector<uint32_t>(reference.begin(), reference.end()));
    ASSERT_EQ(set.size(), reference.size());
    EXPECT_EQ(set.empty(), reference.empty());
    for (uint32_t id : {0u, 5u, 19u, 0xfffffff5u}) EXPECT_EQ(set.contains(id), reference.count(id) == 1);
    TSmallIdSet copy(set);
    EXPECT_EQ(copy, set);
    TSmallIdSet moved(std::move(copy));
    EXPECT_EQ(moved, set);
    EXPECT_TRUE(copy.empty());  // NOLINT: a moved-from set is empty
    copy = moved;
    copy = copy;
    moved = std::move(copy);
    EXPECT_EQ(moved, set);
    moved.insert(7);
    EXPECT_EQ(set.contains(7), reference.count(7) == 1) << "a copy has ids of its own";
    moved.clear();
    EXPECT_TRUE(moved.empty());
    moved.insert(3);
    EXPECT_EQ(moved.ids(), std::vector<uint32_t>{3});
  }
}
