// The structure of a dataset: nested-set hierarchies, directed edges, the
// map of folded nodes and the edges aggregated onto visible nodes.
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "data/MIdContainers.h"
#include "data/MValues.h"
#include "engine/MFlowObjects.h"
#include "engine/MLargePages.h"

namespace quorvel {

struct THierarchyRow {
  uint32_t nid;
  uint32_t lft;
  uint32_t rgt;
  bool operator==(const THierarchyRow&) const = default;
};

// A tree over node ids as a flat table of nested-set numbers, rows in
// ascending lft order; row 0 is the synthetic root (nid 0, lft 1).
class THierarchyData : public TAbstractData {
 public:
  QV_CLASS_NAME(THierarchyData)
  THierarchyData() = default;
  explicit THierarchyData(const std::string& name) { m_KeyName = name; }

  std::vector<THierarchyRow> m_Rows;

  // Appends without sorting; a later row with the same nid or lft takes over
  // the index entry.
  void addRow(uint32_t nid, uint32_t lft, uint32_t rgt);
  void reserve(size_t n);
  size_t getRowCount() const { return m_Rows.size(); }
  uint32_t getNidByRow(size_t row) const;
  uint32_t getLftByRow(size_t row) const;
  // Null beyond the end.
  const THierarchyRow* getAllByRow(size_t row) const { return row < m_Rows.size() ? &m_Rows[row] : nullptr; }
  size_t getRowByNid(uint32_t nid, bool& found) const;
  size_t getRowByLft(uint32_t lft, bool& found) const;
  uint32_t getLftByNid(uint32_t nid, bool& found) const;
  uint32_t getNidByLft(uint32_t lft, bool& found) const;
  // The node and its descendants, ascending lft; empty for an unknown node.
  std::vector<uint32_t> getNidsBelowNid(uint32_t nid) const;
  // The node, then its ancestors upward, without the synthetic root.
  std::vector<uint32_t> getNidsAboveNid(uint32_t nid) const;
  // Every node of the set and every descendant of one, in row order, once,
  // without the synthetic root. One pass.
  std::vector<uint32_t> getNidsBelowNids(const TIntegerSetData& set) const;

  bool sameRows(const THierarchyData& other) const { return m_Rows == other.m_Rows; }
  void rebuildIndex() override;
  std::string toString() const override;

 private:
  TIdHashMap<uint32_t> m_LftIndex;
  TIdHashMap<uint32_t> m_NidIndex;
  // Stays true while rows arrive in ascending lft order; subtree queries
  // then read one run of rows.
  bool m_Ascending = true;
};

struct TEdgeRow {
  uint32_t eid;
  uint32_t fromnid;
  uint32_t tonid;
  bool operator==(const TEdgeRow&) const = default;
};

// Directed edges in the order added, with an index by eid and lists of the
// edges leaving and entering each node.
class TEdgeData : public TAbstractData {
 public:
  QV_CLASS_NAME(TEdgeData)
  std::vector<TEdgeRow> m_Rows;

  void addRow(uint32_t eid, uint32_t fromnid, uint32_t tonid);
  void reserve(size_t n);
  size_t getRowCount() const { return m_Rows.size(); }
  // 0, 0 and found false for an unknown edge.
  void getFromToNidByEid(uint32_t eid, uint32_t& fromnid, uint32_t& tonid, bool& found) const;
  // For each edge leaving nid that is in the selection: its target into
  // nodes, its eid into edges (when given).
  void addForwardNeighbours(uint32_t nid, const TIntegerSetData& selection, TIntegerSetData& nodes,
                            TIntegerSetData* edges) const;
  void addBackwardNeighbours(uint32_t nid, const TIntegerSetData& selection, TIntegerSetData& nodes,
                             TIntegerSetData* edges) const;
  // Row numbers of the edges leaving / entering a node, ascending.
  template <class F>
  void forEachForwardRow(uint32_t nid, F&& f) const {
    adjacency().forward.walk(nid, f, m_Rows.data());
  }
  template <class F>
  void forEachBackwardRow(uint32_t nid, F&& f) const {
    adjacency().backward.walk(nid, f, m_Rows.data());
  }
  void rebuildIndex() override;
  std::string toString() const override;

 private:
  // The rows of the edges at each node, grouped by node in ascending row
  // order. Nodes are the slots themselves while their ids are dense, else
  // a map gives each node its slot.
  struct TRowsByNode {
    bool direct = true;
    TIdHashMap<uint32_t> slotOf;
    std::vector<uint32_t> start;  // slots + 1
    std::vector<uint32_t> rows;
    // The edges of the rows a few places on are fetched ahead: a walk
    // over nodes in ascending order reads the rows in their order, and
    // their edges stand anywhere.
    template <class F>
    void walk(uint32_t nid, F& f, const TEdgeRow* edges) const {
      size_t slot = nid;
      if (!direct) {
        const uint32_t* s = slotOf.find(nid);
        if (!s) return;
        slot = *s;
      } else if (slot + 1 >= start.size()) {
        return;
      }
      constexpr size_t kAhead = 16;
      const size_t ahead = rows.size() - std::min(kAhead, rows.size());
      for (uint32_t i = start[slot]; i < start[slot + 1]; ++i) {
        if (i < ahead) __builtin_prefetch(edges + rows[i + kAhead]);
        f(rows[i]);
      }
    }
    template <class End>
    void build(const std::vector<TEdgeRow>& edges, End end);
  };
  struct TAdjacency {
    TRowsByNode forward;
    TRowsByNode backward;
  };
  // Built on the first walk after the rows changed: loading only appends.
  const TAdjacency& adjacency() const;

  TIdHashMap<uint32_t> m_EidIndex;
  mutable std::unique_ptr<TAdjacency> m_Adjacency;
};

// For each lft, the lft of the visible node that stands for it.
class TAggLftData : public TAbstractData {
 public:
  QV_CLASS_NAME(TAggLftData)
  std::vector<std::pair<uint32_t, uint32_t>> m_Rows;

  void addRow(uint32_t lft, uint32_t agglft);
  void reserve(size_t n);
  size_t getRowCount() const { return m_Rows.size(); }
  // 0 and found false for an unknown lft.
  uint32_t getAggLftByLft(uint32_t lft, bool& found) const;
  void rebuildIndex() override;
  bool sameRows(const TAggLftData& other) const { return m_Rows == other.m_Rows; }
  std::string toString() const override;

 private:
  TIdHashMap<uint32_t> m_Index;
};

// Dataset edges aggregated per pair of visible nodes: one record per pair
// (smaller lft, larger lft), with the edges that run each way. The maps from
// nodes to pairs and from eids to records are built on the first question
// that needs them.
class TEdgeCollapsedData : public TAbstractData {
 public:
  QV_CLASS_NAME(TEdgeCollapsedData)
  struct Record {
    uint32_t smallerlft;
    uint32_t largerlft;
    TSmallIdSet forward;
    TSmallIdSet backward;
  };
  using Pair = std::pair<uint32_t, uint32_t>;

  std::vector<Record, TLargePageAllocator<Record>> m_Records;

  void addEdge(uint32_t eid, uint32_t source, uint32_t target);
  struct Edge {
    uint32_t eid;
    uint32_t source;
    uint32_t target;
  };
  // The records of these edges, as addEdge in their order would make them,
  // into an empty value: grouped by pair in parts that stay in cache
  // instead of looked up one by one.
  void addEdges(std::span<const Edge> edges);
  size_t getRecordCount() const { return m_Records.size(); }
  // The eids of the pair, or an empty set and found false. The pair is not
  // reordered.
  const TSmallIdSet& getForwardEids(uint32_t smallerlft, uint32_t largerlft, bool& found) const;
  const TSmallIdSet& getBackwardEids(uint32_t smallerlft, uint32_t largerlft, bool& found) const;
  // Raises "TEdgeCollapsedData: cannot find pair".
  const Record& getRecord(uint32_t smallerlft, uint32_t largerlft) const;
  // Null for an unknown pair.
  const Record* findRecord(uint32_t smallerlft, uint32_t largerlft) const;
  // The record number of the record holding eid, or -1.
  long getRecordIndexOfEid(uint32_t eid) const;
  void addLftPairsOfEid(uint32_t eid, TIntegerPairSetData& pairs) const;
  // The pairs in which edges leave / enter a visible node, ordered.
  std::vector<Pair> getPairsOfSource(uint32_t agglft) const;
  std::vector<Pair> getPairsOfTarget(uint32_t agglft) const;
  std::string toString() const override;

 private:
  static uint64_t key(uint32_t a, uint32_t b) { return (uint64_t(a) << 32) | b; }
  bool addEdgesByTable(std::span<const Edge> edges);
  void buildLookups() const;
  std::vector<Pair> pairsOf(const TIdHashMap<uint32_t>& byNode, uint32_t node) const;

  const TIdHashMap<uint32_t, uint64_t>& pairIndex() const;

  // Pair to record number. The key is the pair packed into 64 bits. After
  // addEdges, built on the first question that needs it.
  mutable TIdHashMap<uint32_t, uint64_t> m_PairIndex;
  mutable bool m_PairIndexBuilt = true;
  // Built on demand: per node the records in which edges leave (enter) it,
  // as runs of a shared array, and the record of each eid.
  mutable bool m_LookupsBuilt = false;
  mutable TIdHashMap<uint32_t> m_SourceLists;
  mutable TIdHashMap<uint32_t> m_TargetLists;
  mutable std::vector<std::vector<uint32_t>> m_Lists;
  mutable TIdHashMap<uint32_t> m_EidIndex;
};

class TEdgeColorData : public TAbstractData {
 public:
  QV_CLASS_NAME(TEdgeColorData)
  struct Record {
    uint32_t smallerlft;
    uint32_t largerlft;
    TVector4 forward;
    TVector4 backward;
  };
  std::vector<Record> m_Records;
  void addRecord(uint32_t smallerlft, uint32_t largerlft, const TVector4& forward, const TVector4& backward) {
    m_Records.push_back({smallerlft, largerlft, forward, backward});
  }
  size_t getRecordCount() const { return m_Records.size(); }
  std::string toString() const override { return "#items: " + std::to_string(m_Records.size()) + ":\n"; }
};

// Enters the classes of this Part, the attribute columns included, in the
// value registry.
void registerStructureClasses();

}  // namespace quorvel
