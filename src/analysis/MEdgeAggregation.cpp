#include "MEdgeAggregation.h"

#include <algorithm>
#include <cfloat>
#include <cstring>

#include "engine/MRegistry.h"

namespace quorvel {

namespace {

// Node id to the agglft of its visible node, as a flat array when the ids
// are dense enough and a hash map otherwise.
class TNodeToAggLft {
 public:
  TNodeToAggLft(const THierarchyData& h, const TAggLftData& agglft) {
    uint32_t maxNid = 0;
    for (const auto& row : h.m_Rows) maxNid = std::max(maxNid, row.nid);
    m_Dense = maxNid < 4 * h.m_Rows.size() + 1024;
    if (m_Dense) m_Array.assign(static_cast<size_t>(maxNid) + 1, kNone);
    else m_Map.reserve(h.m_Rows.size());
    if (fillInLftOrder(h, agglft)) return;
    // A later row of a nid answers, as the hierarchy's own index does.
    for (const auto& row : h.m_Rows) {
      bool found = false;
      const uint32_t agg = agglft.getAggLftByLft(row.lft, found);
      const uint32_t value = found ? agg : kNone;
      if (m_Dense) m_Array[row.nid] = value;
      else m_Map.assign(row.nid, value);
    }
  }
  // kNone when the node is not in the hierarchy or its lft has no entry.
  uint32_t operator()(uint32_t nid) const {
    if (m_Dense) return nid < m_Array.size() ? m_Array[nid] : kNone;
    const uint32_t* v = m_Map.find(nid);
    return v ? *v : kNone;
  }
  static constexpr uint32_t kNone = 0xffffffffu;

 private:
  // The collapse makes agglft rows in the order of the hierarchy's rows,
  // both by ascending lft: then one walk through both fills a dense array.
  // False, and nothing filled, when either is out of that order.
  bool fillInLftOrder(const THierarchyData& h, const TAggLftData& agglft) {
    if (!m_Dense) return false;
    const auto& aggRows = agglft.m_Rows;
    size_t next = 0;
    uint32_t previous = 0;
    for (size_t i = 0; i < h.m_Rows.size(); ++i) {
      const THierarchyRow& row = h.m_Rows[i];
      if (i > 0 && row.lft <= previous) break;
      previous = row.lft;
      if (next < aggRows.size() && aggRows[next].first == row.lft) {
        if (next > 0 && aggRows[next].first <= aggRows[next - 1].first) break;
        m_Array[row.nid] = aggRows[next++].second;
      } else {
        m_Array[row.nid] = kNone;
      }
      if (i + 1 == h.m_Rows.size() && next == aggRows.size()) return true;
    }
    std::fill(m_Array.begin(), m_Array.end(), kNone);
    return false;
  }

  bool m_Dense = true;
  std::vector<uint32_t> m_Array;
  TIdHashMap<uint32_t> m_Map;
};

const TVector4 kGrey(0.7f, 0.7f, 0.7f, 1.0f);
const TVector4 kMagenta(1.0f, 0.0f, 1.0f, 1.0f);

}  // namespace

// ---------------------------------------------------------------------------
// Aggregation

std::shared_ptr<TEdgeCollapsedData> aggregateEdges(const THierarchyData& hierarchy, const TAggLftData& agglft,
                                                   const TEdgeData& edges, const TIntegerSetData& selection) {
  auto out = std::make_shared<TEdgeCollapsedData>();
  const TNodeToAggLft aggOf(hierarchy, agglft);
  const TIdSetBits selected(selection);
  std::vector<TEdgeCollapsedData::Edge, TLargePageAllocator<TEdgeCollapsedData::Edge>> folded;
  folded.reserve(edges.m_Rows.size());
  for (const TEdgeRow& e : edges.m_Rows) {
    if (!selected.contains(e.eid)) continue;
    const uint32_t from = aggOf(e.fromnid);
    const uint32_t to = aggOf(e.tonid);
    if (from == TNodeToAggLft::kNone || to == TNodeToAggLft::kNone) continue;
    folded.push_back({e.eid, from, to});
  }
  out->addEdges(folded);
  return out;
}

void TEdgeCollapsedProcessor::postCreate() {
  m_Hierarchy = addInputPin<THierarchyData>("hierarchy");
  m_AggLft = addInputPin<TAggLftData>("agglft");
  m_Edges = addInputPin<TEdgeData>("edges");
  m_EdgeSelection = addInputPin<TIntegerSetData>("edge selection");
  m_Out = addOutputPin<TEdgeCollapsedData>("out");
}

void TEdgeCollapsedProcessor::process() {
  if (!requireAllElseReset({m_Hierarchy, m_AggLft, m_Edges, m_EdgeSelection})) return;
  resetPins({m_Hierarchy, m_AggLft, m_Edges, m_EdgeSelection});
  m_Out->setData(aggregateEdges(*dataAs<THierarchyData>(m_Hierarchy), *dataAs<TAggLftData>(m_AggLft),
                                *dataAs<TEdgeData>(m_Edges), *dataAs<TIntegerSetData>(m_EdgeSelection)));
}

// ---------------------------------------------------------------------------
// Colours

namespace {

// The distinct values of a record's edges one way: how many, their sum,
// least and greatest, and the first. Few values are sorted; many go
// through a hash set, so that a record of thousands of edges costs one
// look-up per edge rather than a sort.
struct TDistinctValues {
  size_t count = 0;
  double sum = 0.0;
  float lo = FLT_MAX;
  float hi = -FLT_MAX;
  float first = 0.0f;
};

class TDistinctCounter {
 public:
  // `byId`: the values laid out by id, or null to ask the column.
  TDistinctCounter(const TFloatAttributeData& ord, const TValuesById* byId)
      : m_Ord(ord), m_ById(byId && !byId->empty() ? byId : nullptr) {}

  TDistinctValues operator()(const TSmallIdSet& eids) {
    // Most records hold one edge each way, or none.
    if (eids.size() <= 1) {
      TDistinctValues d;
      float v = 0.0f;
      if (eids.size() == 1 && value(*eids.begin(), v)) {
        d.count = 1;
        d.first = v;
        d.lo = std::min(d.lo, v);
        d.hi = std::max(d.hi, v);
        d.sum = v;
      }
      return d;
    }
    m_Values.clear();
    for (uint32_t eid : eids) {
      float v = 0.0f;
      if (value(eid, v)) m_Values.push_back(v);
    }
    if (m_Values.size() <= kSortedUpTo) {
      std::sort(m_Values.begin(), m_Values.end());
      m_Values.erase(std::unique(m_Values.begin(), m_Values.end()), m_Values.end());
    } else {
      keepFirstOfEach();
    }
    TDistinctValues d;
    d.count = m_Values.size();
    if (d.count > 0) d.first = m_Values[0];
    for (float v : m_Values) {
      d.lo = std::min(d.lo, v);
      d.hi = std::max(d.hi, v);
      d.sum += v;
    }
    return d;
  }

 private:
  static constexpr size_t kSortedUpTo = 64;

  // The value of an edge, -0 and 0 as one value; false for none.
  bool value(uint32_t eid, float& v) const {
    bool found = false;
    if (m_ById) {
      found = m_ById->find(eid, v);
    } else {
      v = m_Ord.getValueById(eid, found);
    }
    if (found && v == 0.0f) v = 0.0f;
    return found;
  }

  // Leaves in m_Values the first of each distinct value, by bit pattern.
  void keepFirstOfEach() {
    size_t slots = 1;
    while (slots < 2 * m_Values.size()) slots <<= 1;
    if (m_Slots.size() < slots) {
      m_Slots.assign(slots, 0);
      m_Stamps.assign(slots, 0);
      m_Stamp = 0;
    }
    if (++m_Stamp == 0) {
      std::fill(m_Stamps.begin(), m_Stamps.end(), 0);
      m_Stamp = 1;
    }
    const size_t mask = slots - 1;
    size_t kept = 0;
    for (float v : m_Values) {
      uint32_t bits;
      std::memcpy(&bits, &v, sizeof bits);
      size_t slot = (bits * 0x9E3779B1u) & mask;
      while (m_Stamps[slot] == m_Stamp && m_Slots[slot] != bits) slot = (slot + 1) & mask;
      if (m_Stamps[slot] == m_Stamp) continue;
      m_Stamps[slot] = m_Stamp;
      m_Slots[slot] = bits;
      m_Values[kept++] = v;
    }
    m_Values.resize(kept);
    std::sort(m_Values.begin(), m_Values.end());  // the sum in the order of the few-value case
  }

  const TFloatAttributeData& m_Ord;
  const TValuesById* m_ById;
  std::vector<float> m_Values;
  std::vector<uint32_t> m_Slots;
  std::vector<uint32_t> m_Stamps;
  uint32_t m_Stamp = 0;
};

}  // namespace

TValuesById::TValuesById(const TFloatAttributeData& column) {
  const size_t rows = column.getRowCount();
  if (rows == 0) return;
  uint32_t largest = 0;
  for (size_t r = 0; r < rows; ++r) largest = std::max(largest, column.getIdByRow(r));
  if (largest > 4 * rows + 1024) return;
  values.assign(size_t{largest} + 1, 0.0f);
  has.assign(size_t{largest} / 64 + 1, 0);
  // A later row of an id answers, as the column's index does.
  for (size_t r = 0; r < rows; ++r) {
    const uint32_t id = column.getIdByRow(r);
    values[id] = column.valueByRow(r);
    has[id / 64] |= uint64_t{1} << (id % 64);
  }
}

bool worthLayingOutById(const TEdgeCollapsedData& collapsed, const TFloatAttributeData& ord) {
  size_t lookups = 0;
  for (const auto& record : collapsed.m_Records) lookups += record.forward.size() + record.backward.size();
  return ord.getRowCount() > 0 && lookups >= ord.getRowCount() / 4;
}

std::shared_ptr<TEdgeColorData> colorEdges(const TEdgeCollapsedData& collapsed, const TAttributeData& attribute,
                                           const TFloatAttributeData& ord, const TColorMapData& map,
                                           const std::string& aggregation, const TValuesById* byId) {
  auto out = std::make_shared<TEdgeColorData>();
  out->m_Records.reserve(collapsed.m_Records.size());
  const bool nominal = attribute.getAttributeType() == "string";
  std::unique_ptr<TValuesById> own;
  if (!byId && worthLayingOutById(collapsed, ord)) byId = (own = std::make_unique<TValuesById>(ord)).get();
  TDistinctCounter distinct(ord, byId);
  for (const auto& record : collapsed.m_Records) {
    const TDistinctValues forward = distinct(record.forward);
    const TDistinctValues backward = distinct(record.backward);
    const size_t f = forward.count;
    const size_t b = backward.count;
    TVector4 fc = kGrey;
    TVector4 bc = kGrey;
    if (f == 0 && b == 0) {
    } else if (f == 0 && b == 1) {
      map.getColor(backward.first, bc);
    } else if (f == 1 && b == 0) {
      map.getColor(forward.first, fc);
    } else if (nominal) {
      // Magenta marks texts that disagree. The values are distinct, so
      // texts agree only with one value each way, the same on both sides.
      if (f == 1 && b == 1 && forward.first == backward.first) {
        map.getColor(forward.first, fc);
        bc = fc;
      } else {
        fc = kMagenta;
        bc = kMagenta;
      }
    } else {
      const float lo = std::min(forward.lo, backward.lo);
      const float hi = std::max(forward.hi, backward.hi);
      const double sum = forward.sum + backward.sum;
      float v = 0.0f;
      if (aggregation == "max") v = hi;
      else if (aggregation == "min") v = lo;
      else if (aggregation == "avg") v = static_cast<float>(sum / static_cast<double>(f + b));
      map.getColor(v, fc);
      bc = fc;
    }
    out->addRecord(record.smallerlft, record.largerlft, fc, bc);
  }
  return out;
}

void TEdgeColorProcessor::postCreate() {
  m_EdgeCollapsed = addInputPin<TEdgeCollapsedData>("edge collapsed");
  m_ColorAttr = addInputPin<TAttributeData>("edge colorattr");
  m_ColorAttrOrd = addInputPin<TFloatAttributeData>("edge colorattr ord");
  m_ColorMap = addInputPin<TColorMapData>("edge colormap");
  m_Aggregation = addInputPin<TStringData>("aggregation");
  m_Output = addOutputPin<TEdgeColorData>("output");
}

void TEdgeColorProcessor::process() {
  resetPins({});
  if (!requireAllElseReset({m_EdgeCollapsed, m_ColorAttr, m_ColorAttrOrd, m_Aggregation})) return;
  auto map = dataAs<TColorMapData>(m_ColorMap);
  if (!map) {
    m_Output->setData(std::make_shared<TEdgeColorData>());
    return;
  }
  auto collapsed = dataAs<TEdgeCollapsedData>(m_EdgeCollapsed);
  auto ord = dataAs<TFloatAttributeData>(m_ColorAttrOrd);
  if (ord != m_LaidOutColumn || haveChanged({m_ColorAttrOrd})) {
    m_LaidOutColumn.reset();
    m_ById.reset();
  }
  if (!m_ById && worthLayingOutById(*collapsed, *ord)) {
    m_ById = std::make_unique<TValuesById>(*ord);
    m_LaidOutColumn = ord;
  }
  m_Output->setData(colorEdges(*collapsed, *dataAs<TAttributeData>(m_ColorAttr), *ord, *map,
                               dataAs<TStringData>(m_Aggregation)->getValue(), m_ById.get()));
}

// ---------------------------------------------------------------------------
// Records and edge ids

void TLftPairsToEids::postCreate() {
  m_LftPairs = addInputPin<TIntegerPairSetData>("lft pairs");
  m_EdgeCollapsed = addInputPin<TEdgeCollapsedData>("edge collapsed");
  m_Out = addOutputPin<TIntegerSetData>("out");
}

void TLftPairsToEids::process() {
  if (!requireAllElseReset({m_EdgeCollapsed})) return;
  resetPins({});
  auto collapsed = dataAs<TEdgeCollapsedData>(m_EdgeCollapsed);
  auto out = std::make_shared<TIntegerSetData>();
  if (auto pairs = dataAs<TIntegerPairSetData>(m_LftPairs)) {
    for (const auto& [a, b] : pairs->m_Set) {
      if (const auto* record = collapsed->findRecord(a, b)) {
        for (uint32_t eid : record->forward) out->m_Set.insert(eid);
        for (uint32_t eid : record->backward) out->m_Set.insert(eid);
      }
    }
  }
  m_Out->setData(out);
}

void TEidsToLftPairs::postCreate() {
  m_Eids = addInputPin<TIntegerSetData>("eids");
  m_EdgeCollapsed = addInputPin<TEdgeCollapsedData>("edge collapsed");
  m_Out = addOutputPin<TIntegerPairSetData>("out");
}

void TEidsToLftPairs::process() {
  if (!requireAllElseReset({m_Eids, m_EdgeCollapsed})) return;
  resetPins({m_Eids, m_EdgeCollapsed});
  auto collapsed = dataAs<TEdgeCollapsedData>(m_EdgeCollapsed);
  auto out = std::make_shared<TIntegerPairSetData>();
  for (uint32_t eid : dataAs<TIntegerSetData>(m_Eids)->m_Set) collapsed->addLftPairsOfEid(eid, *out);
  m_Out->setData(out);
}

void registerEdgeAggregationProcessors() {
  auto& reg = TProcessorRegistry::instance();
  reg.add<TEdgeCollapsedProcessor>();
  reg.add<TEdgeColorProcessor>();
  reg.add<TLftPairsToEids>();
  reg.add<TEidsToLftPairs>();
}

}  // namespace quorvel
