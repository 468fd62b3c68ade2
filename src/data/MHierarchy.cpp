#include "MHierarchy.h"

#include <algorithm>
#include <bit>

#include "data/MAttributes.h"
#include "engine/MRegistry.h"

namespace quorvel {

// ---------------------------------------------------------------------------
// THierarchyData

void THierarchyData::addRow(uint32_t nid, uint32_t lft, uint32_t rgt) {
  if (!m_Rows.empty() && lft <= m_Rows.back().lft) m_Ascending = false;
  m_Rows.push_back({nid, lft, rgt});
  const uint32_t row = static_cast<uint32_t>(m_Rows.size() - 1);
  m_LftIndex.assign(lft, row);
  m_NidIndex.assign(nid, row);
}

void THierarchyData::reserve(size_t n) {
  m_Rows.reserve(n);
  m_LftIndex.reserve(n);
  m_NidIndex.reserve(n);
}

void THierarchyData::rebuildIndex() {
  m_LftIndex.clear();
  m_NidIndex.clear();
  m_Ascending = true;
  for (size_t i = 0; i < m_Rows.size(); ++i) {
    if (i > 0 && m_Rows[i].lft <= m_Rows[i - 1].lft) m_Ascending = false;
    m_LftIndex.assign(m_Rows[i].lft, static_cast<uint32_t>(i));
    m_NidIndex.assign(m_Rows[i].nid, static_cast<uint32_t>(i));
  }
}

uint32_t THierarchyData::getNidByRow(size_t row) const {
  if (row >= m_Rows.size()) throw TFlowError("getNidByRow():  p_RowId >= m_Rows.size() ");
  return m_Rows[row].nid;
}

uint32_t THierarchyData::getLftByRow(size_t row) const {
  if (row >= m_Rows.size()) throw TFlowError("getNidByRow():  p_RowId >= m_Rows.size() ");
  return m_Rows[row].lft;
}

size_t THierarchyData::getRowByNid(uint32_t nid, bool& found) const {
  const uint32_t* row = m_NidIndex.find(nid);
  found = row != nullptr;
  return found ? *row : 0;
}

size_t THierarchyData::getRowByLft(uint32_t lft, bool& found) const {
  const uint32_t* row = m_LftIndex.find(lft);
  found = row != nullptr;
  return found ? *row : 0;
}

uint32_t THierarchyData::getLftByNid(uint32_t nid, bool& found) const {
  const uint32_t* row = m_NidIndex.find(nid);
  found = row != nullptr;
  return found ? m_Rows[*row].lft : 0;
}

uint32_t THierarchyData::getNidByLft(uint32_t lft, bool& found) const {
  const uint32_t* row = m_LftIndex.find(lft);
  found = row != nullptr;
  return found ? m_Rows[*row].nid : 0;
}

std::vector<uint32_t> THierarchyData::getNidsBelowNid(uint32_t nid) const {
  std::vector<uint32_t> out;
  const uint32_t* rowp = m_NidIndex.find(nid);
  if (!rowp) return out;
  const THierarchyRow& node = m_Rows[*rowp];
  if (m_Ascending) {
    // Rows in lft order: the interval is one run of rows.
    for (size_t i = *rowp; i < m_Rows.size() && m_Rows[i].lft < node.rgt; ++i) out.push_back(m_Rows[i].nid);
    return out;
  }
  for (uint32_t i = node.lft; i < node.rgt; ++i)
    if (const uint32_t* r = m_LftIndex.find(i)) out.push_back(m_Rows[*r].nid);
  return out;
}

std::vector<uint32_t> THierarchyData::getNidsAboveNid(uint32_t nid) const {
  std::vector<uint32_t> out;
  const uint32_t* rowp = m_NidIndex.find(nid);
  if (!rowp || *rowp == 0) return out;
  const THierarchyRow& node = m_Rows[*rowp];
  for (size_t k = *rowp; k >= 1; --k) {
    const THierarchyRow& r = m_Rows[k];
    if (r.lft <= node.lft && r.rgt >= node.rgt) out.push_back(r.nid);
  }
  return out;
}

std::vector<uint32_t> THierarchyData::getNidsBelowNids(const TIntegerSetData& set) const {
  std::vector<uint32_t> out;
  if (m_Rows.empty()) return out;
  struct Open {
    uint32_t lft;
    uint32_t rgt;
    bool covered;
  };
  std::vector<Open> stack;
  stack.push_back({m_Rows[0].lft, m_Rows[0].rgt, set.contains(m_Rows[0].nid)});
  for (size_t i = 1; i < m_Rows.size(); ++i) {
    const THierarchyRow& row = m_Rows[i];
    while (!stack.empty() && !(stack.back().lft < row.lft && row.rgt < stack.back().rgt)) stack.pop_back();
    const bool covered = (!stack.empty() && stack.back().covered) || set.contains(row.nid);
    stack.push_back({row.lft, row.rgt, covered});
    if (covered) out.push_back(row.nid);
  }
  return out;
}

std::string THierarchyData::toString() const {
  std::string out = "#items: " + std::to_string(m_Rows.size()) + ":\nnid,lft,rgt\n";
  for (size_t i = 0; i < m_Rows.size() && i < 50; ++i)
    out += std::to_string(m_Rows[i].nid) + "," + std::to_string(m_Rows[i].lft) + "," + std::to_string(m_Rows[i].rgt) +
           "\n";
  return out;
}

// ---------------------------------------------------------------------------
// TEdgeData

template <class End>
void TEdgeData::TRowsByNode::build(const std::vector<TEdgeRow>& edges, End end) {
  uint32_t maxNid = 0;
  for (const TEdgeRow& e : edges) maxNid = std::max(maxNid, end(e));
  direct = static_cast<size_t>(maxNid) < 4 * edges.size() + 1024;
  std::vector<uint32_t> slotOfRow;
  size_t slots = static_cast<size_t>(maxNid) + 1;
  if (!direct) {
    slotOfRow.resize(edges.size());
    slotOf.reserve(std::min<size_t>(edges.size(), 1u << 20));
    for (size_t r = 0; r < edges.size(); ++r)
      slotOfRow[r] = slotOf.findOrInsert(end(edges[r]), static_cast<uint32_t>(slotOf.size()));
    slots = slotOf.size();
  }
  auto slotAt = [&](size_t r) -> size_t { return direct ? end(edges[r]) : slotOfRow[r]; };
  // Counting sort of the rows by slot, which keeps rows ascending.
  start.assign(slots + 1, 0);
  for (size_t r = 0; r < edges.size(); ++r) ++start[slotAt(r) + 1];
  for (size_t i = 1; i < start.size(); ++i) start[i] += start[i - 1];
  rows.resize(edges.size());
  std::vector<uint32_t> fill(start.begin(), start.end() - 1);
  for (size_t r = 0; r < edges.size(); ++r) rows[fill[slotAt(r)]++] = static_cast<uint32_t>(r);
}

const TEdgeData::TAdjacency& TEdgeData::adjacency() const {
  if (!m_Adjacency) {
    auto a = std::make_unique<TAdjacency>();
    a->forward.build(m_Rows, [](const TEdgeRow& e) { return e.fromnid; });
    a->backward.build(m_Rows, [](const TEdgeRow& e) { return e.tonid; });
    m_Adjacency = std::move(a);
  }
  return *m_Adjacency;
}

void TEdgeData::addRow(uint32_t eid, uint32_t fromnid, uint32_t tonid) {
  m_Rows.push_back({eid, fromnid, tonid});
  m_EidIndex.assign(eid, static_cast<uint32_t>(m_Rows.size() - 1));
  m_Adjacency.reset();
}

void TEdgeData::reserve(size_t n) {
  m_Rows.reserve(n);
  m_EidIndex.reserve(n);
}

void TEdgeData::rebuildIndex() {
  m_EidIndex = {};
  m_EidIndex.reserve(m_Rows.size());
  for (size_t i = 0; i < m_Rows.size(); ++i) m_EidIndex.assign(m_Rows[i].eid, static_cast<uint32_t>(i));
  m_Adjacency.reset();
}

void TEdgeData::getFromToNidByEid(uint32_t eid, uint32_t& fromnid, uint32_t& tonid, bool& found) const {
  const uint32_t* row = m_EidIndex.find(eid);
  found = row != nullptr;
  fromnid = found ? m_Rows[*row].fromnid : 0;
  tonid = found ? m_Rows[*row].tonid : 0;
}

void TEdgeData::addForwardNeighbours(uint32_t nid, const TIntegerSetData& selection, TIntegerSetData& nodes,
                                     TIntegerSetData* edges) const {
  forEachForwardRow(nid, [&](uint32_t row) {
    const TEdgeRow& e = m_Rows[row];
    if (!selection.contains(e.eid)) return;
    nodes.add(e.tonid);
    if (edges) edges->add(e.eid);
  });
}

void TEdgeData::addBackwardNeighbours(uint32_t nid, const TIntegerSetData& selection, TIntegerSetData& nodes,
                                      TIntegerSetData* edges) const {
  forEachBackwardRow(nid, [&](uint32_t row) {
    const TEdgeRow& e = m_Rows[row];
    if (!selection.contains(e.eid)) return;
    nodes.add(e.fromnid);
    if (edges) edges->add(e.eid);
  });
}

std::string TEdgeData::toString() const {
  std::string out = "#edges: " + std::to_string(m_Rows.size()) + "\neid,fromnid,tonid\n";
  for (size_t i = 0; i < m_Rows.size() && i < 50; ++i)
    out += std::to_string(m_Rows[i].eid) + "," + std::to_string(m_Rows[i].fromnid) + "," +
           std::to_string(m_Rows[i].tonid) + "\n";
  return out;
}

// ---------------------------------------------------------------------------
// TAggLftData

void TAggLftData::addRow(uint32_t lft, uint32_t agglft) {
  m_Rows.emplace_back(lft, agglft);
  m_Index.assign(lft, static_cast<uint32_t>(m_Rows.size() - 1));
}

void TAggLftData::reserve(size_t n) {
  m_Rows.reserve(n);
  m_Index.reserve(n);
}

uint32_t TAggLftData::getAggLftByLft(uint32_t lft, bool& found) const {
  const uint32_t* row = m_Index.find(lft);
  found = row != nullptr;
  return found ? m_Rows[*row].second : 0;
}

void TAggLftData::rebuildIndex() {
  m_Index.clear();
  m_Index.reserve(m_Rows.size());
  for (size_t i = 0; i < m_Rows.size(); ++i) m_Index.assign(m_Rows[i].first, static_cast<uint32_t>(i));
}

std::string TAggLftData::toString() const {
  std::string out = "#items: " + std::to_string(m_Rows.size()) + ":\nlft,agglft\n";
  for (size_t i = 0; i < m_Rows.size() && i < 50; ++i)
    out += std::to_string(m_Rows[i].first) + "," + std::to_string(m_Rows[i].second) + "\n";
  return out;
}

// ---------------------------------------------------------------------------
// TEdgeCollapsedData

void TEdgeCollapsedData::addEdge(uint32_t eid, uint32_t source, uint32_t target) {
  pairIndex();
  uint32_t a = source;
  uint32_t b = target;
  const bool backward = a > b;
  if (backward) std::swap(a, b);
  const uint32_t fresh = static_cast<uint32_t>(m_Records.size());
  const uint32_t record = m_PairIndex.findOrInsert(key(a, b), fresh);
  if (record == fresh) m_Records.push_back(Record{a, b, {}, {}});
  Record& rec = m_Records[record];
  (backward ? rec.backward : rec.forward).insert(eid);
  m_LookupsBuilt = false;
}

void TEdgeCollapsedData::buildLookups() const {
  if (m_LookupsBuilt) return;
  m_SourceLists = {};
  m_TargetLists = {};
  m_Lists.clear();
  m_EidIndex = {};
  auto note = [this](TIdHashMap<uint32_t>& byNode, uint32_t node, uint32_t record) {
    const uint32_t list = byNode.findOrInsert(node, static_cast<uint32_t>(m_Lists.size()));
    if (list == m_Lists.size()) m_Lists.emplace_back();
    auto& l = m_Lists[list];
    if (l.empty() || l.back() != record) l.push_back(record);
  };
  for (uint32_t r = 0; r < m_Records.size(); ++r) {
    const Record& rec = m_Records[r];
    // Forward edges leave the smaller number, backward ones the larger.
    if (!rec.forward.empty()) {
      note(m_SourceLists, rec.smallerlft, r);
      note(m_TargetLists, rec.largerlft, r);
    }
    if (!rec.backward.empty()) {
      note(m_SourceLists, rec.largerlft, r);
      note(m_TargetLists, rec.smallerlft, r);
    }
    for (uint32_t eid : rec.forward) m_EidIndex.assign(eid, r);
    for (uint32_t eid : rec.backward) m_EidIndex.assign(eid, r);
  }
  m_LookupsBuilt = true;
}

const TIdHashMap<uint32_t, uint64_t>& TEdgeCollapsedData::pairIndex() const {
  if (!m_PairIndexBuilt) {
    m_PairIndex.clear();
    m_PairIndex.reserve(m_Records.size());
    for (uint32_t r = 0; r < m_Records.size(); ++r)
      m_PairIndex.assign(key(m_Records[r].smallerlft, m_Records[r].largerlft), r);
    m_PairIndexBuilt = true;
  }
  return m_PairIndex;
}

namespace {

// More edges than rows numbered in 31 bits are refused.
constexpr uint32_t kMostEdges = 0x80000000u;

// The ends of an edge without a branch: edges run either way at random, so
// a branch would miss half the time.
inline uint32_t lowerEnd(const TEdgeCollapsedData::Edge& e) {
  return e.source ^ ((e.source ^ e.target) & (0u - static_cast<uint32_t>(e.target < e.source)));
}
inline uint32_t upperEnd(const TEdgeCollapsedData::Edge& e) { return e.source ^ e.target ^ lowerEnd(e); }

// An edge joins its record's set of the way it runs.
void addToRecord(TEdgeCollapsedData::Record& rec, const TEdgeCollapsedData::Edge& e) {
  (e.source > e.target ? rec.backward : rec.forward).insert(e.eid);
}

}  // namespace

// Records of the edges looked up by pair in a table that stays in cache:
// the way when many edges fold onto few pairs, as on a picture of the upper
// levels. False, and no records, when the pairs outgrow the table.
bool TEdgeCollapsedData::addEdgesByTable(std::span<const Edge> edges) {
  constexpr unsigned kBits = 17;
  constexpr size_t kSlots = size_t{1} << kBits;
  constexpr size_t kMaxRecords = kSlots / 2;
  constexpr uint64_t kFree = ~uint64_t{0};
  std::vector<uint64_t> keys(kSlots, kFree);
  std::vector<uint32_t> numbers(kSlots);
  for (const Edge& e : edges) {
    const uint32_t a = lowerEnd(e);
    const uint32_t b = upperEnd(e);
    const uint64_t k = key(a, b);
    size_t slot = static_cast<size_t>((k * 0x9E3779B97F4A7C15ull) >> (64 - kBits));
    while (keys[slot] != k && keys[slot] != kFree) slot = (slot + 1) & (kSlots - 1);
    if (keys[slot] == kFree) {
      if (m_Records.size() == kMaxRecords) {
        m_Records.clear();
        return false;
      }
      keys[slot] = k;
      numbers[slot] = static_cast<uint32_t>(m_Records.size());
      Record& rec = m_Records.emplace_back();
      rec.smallerlft = a;
      rec.largerlft = b;
    }
    addToRecord(m_Records[numbers[slot]], e);
  }
  return true;
}

void TEdgeCollapsedData::addEdges(std::span<const Edge> edges) {
  if (!m_Records.empty()) throw TFlowError("TEdgeCollapsedData: addEdges needs an empty value");
  if (edges.size() >= kMostEdges) throw TFlowError("TEdgeCollapsedData: too many edges");
  m_PairIndexBuilt = false;
  m_LookupsBuilt = false;
  if (addEdgesByTable(edges)) return;
  // The edges by groups of pairs, each group's edges in their order: one
  // pass that counts, one that places. Groups of some ten thousand edges
  // keep a group's table in cache, however the edges share their ends.
  struct Item {
    uint64_t pair;
    uint32_t row;
  };
  const uint32_t n = static_cast<uint32_t>(edges.size());
  unsigned groupBits = 1;
  while ((size_t{8192} << groupBits) < n && groupBits < 16) ++groupBits;
  // Another hash of the pair than the table's, so that a group's pairs
  // spread over its table.
  auto groupOf = [groupBits](uint64_t pair) {
    return static_cast<size_t>((pair * 0xD6E8FEB86659FD93ull) >> (64 - groupBits));
  };
  auto pairOf = [](const Edge& e) { return key(lowerEnd(e), upperEnd(e)); };
  const size_t groups = size_t{1} << groupBits;
  std::vector<uint32_t> groupStart(groups + 1, 0);
  for (const Edge& e : edges) ++groupStart[groupOf(pairOf(e)) + 1];
  for (size_t g = 0; g < groups; ++g) groupStart[g + 1] += groupStart[g];
  std::vector<Item, TLargePageAllocator<Item>> byGroup(n);
  {
    std::vector<uint32_t> next(groupStart.begin(), groupStart.end() - 1);
    for (uint32_t i = 0; i < n; ++i) {
      const uint64_t pair = pairOf(edges[i]);
      byGroup[next[groupOf(pair)]++] = {pair, i};
    }
  }

  // Each group's edges in their order: the first edge of each pair is
  // marked, as the one where its record is made, and the later ones note
  // that first edge. The group's pairs are looked up in a table that stays
  // in cache, and a stamp a group spares clearing it.
  std::vector<uint64_t> first(size_t{n} / 64 + 1, 0);
  using TRowPairs = std::vector<std::pair<uint32_t, uint32_t>, TLargePageAllocator<std::pair<uint32_t, uint32_t>>>;
  TRowPairs later;  // (row, row of its record's first edge)
  struct Slot {
    uint64_t pair;
    uint32_t row;
    uint32_t stamp;
  };
  std::vector<Slot> table;
  for (size_t g = 0; g < groups; ++g) {
    const Item* s = byGroup.data() + groupStart[g];
    const Item* e = byGroup.data() + groupStart[g + 1];
    if (e == s) continue;
    unsigned bits = 6;
    while ((size_t{1} << bits) < 2 * static_cast<size_t>(e - s)) ++bits;
    if (table.size() < (size_t{1} << bits)) table.assign(size_t{1} << bits, Slot{0, 0, 0});
    const size_t mask = (size_t{1} << bits) - 1;
    const uint32_t stamp = static_cast<uint32_t>(g) + 1;
    for (const Item* i = s; i < e; ++i) {
      size_t slot = static_cast<size_t>((i->pair * 0x9E3779B97F4A7C15ull) >> (64 - bits));
      while (table[slot].stamp == stamp && table[slot].pair != i->pair) slot = (slot + 1) & mask;
      if (table[slot].stamp == stamp) {
        later.emplace_back(i->row, table[slot].row);
      } else {
        table[slot] = {i->pair, i->row, stamp};
        first[i->row / 64] |= uint64_t{1} << (i->row % 64);
      }
    }
  }
  byGroup = {};

  // Records in the order of their first edges, as addEdge makes them.
  std::vector<uint32_t> before(first.size());
  uint32_t records = 0;
  for (size_t w = 0; w < first.size(); ++w) {
    before[w] = records;
    records += static_cast<uint32_t>(std::popcount(first[w]));
  }
  m_Records.resize(records);
  Record* out = m_Records.data();
  for (uint32_t i = 0; i < n; ++i) {
    if (!(first[i / 64] >> (i % 64) & 1)) continue;
    const Edge& e = edges[i];
    const bool backward = e.source > e.target;
    out->smallerlft = lowerEnd(e);
    out->largerlft = upperEnd(e);
    out->forward = TSmallIdSet(e.eid, !backward);
    out->backward = TSmallIdSet(e.eid, backward);
    ++out;
  }
  // The later edges by record, each record's in their order, so that the
  // records are visited once each, in order, and grow as addEdge grows
  // them. Many later edges are counted into place; a few are sorted.
  TRowPairs byRecord(later.size());  // (record, row)
  auto recordOf = [&](uint32_t row) {
    const uint64_t earlier = first[row / 64] & ((uint64_t{1} << (row % 64)) - 1);
    return before[row / 64] + static_cast<uint32_t>(std::popcount(earlier));
  };
  if (later.size() < records / 8) {
    for (size_t i = 0; i < later.size(); ++i) byRecord[i] = {recordOf(later[i].second), later[i].first};
    std::sort(byRecord.begin(), byRecord.end());
  } else {
    std::vector<uint32_t> start(size_t{records} + 1, 0);
    for (auto& [row, of] : later) ++start[(of = recordOf(of)) + 1];
    for (size_t r = 0; r < records; ++r) start[r + 1] += start[r];
    for (const auto& [row, record] : later) byRecord[start[record]++] = {record, row};
  }
  later = {};
  for (const auto& [record, row] : byRecord) addToRecord(m_Records[record], edges[row]);
}

const TEdgeCollapsedData::Record* TEdgeCollapsedData::findRecord(uint32_t smallerlft, uint32_t largerlft) const {
  const uint32_t* r = pairIndex().find(key(smallerlft, largerlft));
  return r ? &m_Records[*r] : nullptr;
}

namespace {
const TSmallIdSet& emptyIdSet() {
  static const TSmallIdSet empty;
  return empty;
}
}  // namespace

const TSmallIdSet& TEdgeCollapsedData::getForwardEids(uint32_t smallerlft, uint32_t largerlft, bool& found) const {
  const Record* r = findRecord(smallerlft, largerlft);
  found = r != nullptr;
  return r ? r->forward : emptyIdSet();
}

const TSmallIdSet& TEdgeCollapsedData::getBackwardEids(uint32_t smallerlft, uint32_t largerlft, bool& found) const {
  const Record* r = findRecord(smallerlft, largerlft);
  found = r != nullptr;
  return r ? r->backward : emptyIdSet();
}

const TEdgeCollapsedData::Record& TEdgeCollapsedData::getRecord(uint32_t smallerlft, uint32_t largerlft) const {
  const Record* r = findRecord(smallerlft, largerlft);
  if (!r) throw TFlowError("TEdgeCollapsedData: cannot find pair");
  return *r;
}

long TEdgeCollapsedData::getRecordIndexOfEid(uint32_t eid) const {
  buildLookups();
  const uint32_t* r = m_EidIndex.find(eid);
  return r ? static_cast<long>(*r) : -1;
}

void TEdgeCollapsedData::addLftPairsOfEid(uint32_t eid, TIntegerPairSetData& pairs) const {
  const long r = getRecordIndexOfEid(eid);
  if (r < 0) return;
  pairs.addPair(m_Records[static_cast<size_t>(r)].smallerlft, m_Records[static_cast<size_t>(r)].largerlft);
}

std::vector<TEdgeCollapsedData::Pair> TEdgeCollapsedData::pairsOf(const TIdHashMap<uint32_t>& byNode,
                                                                  uint32_t node) const {
  std::vector<Pair> out;
  const uint32_t* list = byNode.find(node);
  if (!list) return out;
  for (uint32_t record : m_Lists[*list]) out.emplace_back(m_Records[record].smallerlft, m_Records[record].largerlft);
  std::sort(out.begin(), out.end());
  out.erase(std::unique(out.begin(), out.end()), out.end());
  return out;
}

std::vector<TEdgeCollapsedData::Pair> TEdgeCollapsedData::getPairsOfSource(uint32_t agglft) const {
  buildLookups();
  return pairsOf(m_SourceLists, agglft);
}

std::vector<TEdgeCollapsedData::Pair> TEdgeCollapsedData::getPairsOfTarget(uint32_t agglft) const {
  buildLookups();
  return pairsOf(m_TargetLists, agglft);
}

std::string TEdgeCollapsedData::toString() const {
  std::string out = "#items: " + std::to_string(m_Records.size()) + ":\nsmallerlft,largerlft,#forward,#backward\n";
  for (size_t i = 0; i < m_Records.size() && i < 50; ++i) {
    const Record& r = m_Records[i];
    out += std::to_string(r.smallerlft) + "," + std::to_string(r.largerlft) + "," + std::to_string(r.forward.size()) +
           "," + std::to_string(r.backward.size()) + "\n";
  }
  return out + "\n";
}

// ---------------------------------------------------------------------------

void registerStructureClasses() {
  auto& reg = TDataRegistry::instance();
  reg.addAbstract("TAttributeData", "TAbstractData");
  reg.add<TBoolAttributeData>("TAttributeData");
  reg.add<TIntegerAttributeData>("TAttributeData");
  reg.add<TFloatAttributeData>("TAttributeData");
  reg.add<TStringAttributeData>("TAttributeData");
  reg.add<TVariantAttributeData>("TAttributeData");
  reg.add<THierarchyData>("TAbstractData");
  reg.add<TEdgeData>("TAbstractData");
  reg.add<TAggLftData>("TAbstractData");
  reg.add<TEdgeCollapsedData>("TAbstractData");
  reg.add<TEdgeColorData>("TAbstractData");
}

}  // namespace quorvel
