#include "MEdgeAggregation.h"

#include <algorithm>

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
  std::vector<TEdgeCollapsedData::Edge> folded;
  folded.reserve(edges.m_Rows.size());
  for (const TEdgeRow& e : edges.m_Rows) {
    if (!selection.contains(e.eid)) continue;
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

std::shared_ptr<TEdgeColorData> colorEdges(const TEdgeCollapsedData& collapsed, const TAttributeData& attribute,
                                           const TFloatAttributeData& ord, const TColorMapData& map,
                                           const std::string& aggregation) {
  auto out = std::make_shared<TEdgeColorData>();
  out->m_Records.reserve(collapsed.m_Records.size());
  const bool nominal = attribute.getAttributeType() == "string";
  std::vector<float> forward;
  std::vector<float> backward;
  auto distinctValues = [&ord](const TSmallIdSet& eids, std::vector<float>& values) {
    values.clear();
    for (uint32_t eid : eids) {
      bool found = false;
      const float v = ord.getValueById(eid, found);
      if (found) values.push_back(v);
    }
    std::sort(values.begin(), values.end());
    values.erase(std::unique(values.begin(), values.end()), values.end());
  };
  for (const auto& record : collapsed.m_Records) {
    distinctValues(record.forward, forward);
    distinctValues(record.backward, backward);
    const size_t f = forward.size();
    const size_t b = backward.size();
    TVector4 fc = kGrey;
    TVector4 bc = kGrey;
    if (f == 0 && b == 0) {
    } else if (f == 0 && b == 1) {
      map.getColor(backward[0], bc);
    } else if (f == 1 && b == 0) {
      map.getColor(forward[0], fc);
    } else if (nominal) {
      // Magenta marks texts that disagree. The values are distinct, so
      // texts agree only with one value each way, the same on both sides.
      if (f == 1 && b == 1 && forward[0] == backward[0]) {
        map.getColor(forward[0], fc);
        bc = fc;
      } else {
        fc = kMagenta;
        bc = kMagenta;
      }
    } else {
      float lo = FLT_MAX;
      float hi = -FLT_MAX;
      double sum = 0.0;
      for (const auto* values : {&forward, &backward}) {
        for (float v : *values) {
          lo = std::min(lo, v);
          hi = std::max(hi, v);
          sum += v;
        }
      }
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
  m_Output->setData(colorEdges(*dataAs<TEdgeCollapsedData>(m_EdgeCollapsed), *dataAs<TAttributeData>(m_ColorAttr),
                               *dataAs<TFloatAttributeData>(m_ColorAttrOrd), *map,
                               dataAs<TStringData>(m_Aggregation)->getValue()));
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
