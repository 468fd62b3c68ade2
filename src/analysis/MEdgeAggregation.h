// Edges folded onto the visible nodes, their colours, and the translation
// between edge ids and records of aggregated edges.
#pragma once

#include <memory>
#include <vector>

#include "data/MAttributes.h"
#include "data/MColorMap.h"
#include "data/MHierarchy.h"
#include "engine/MFlowObjects.h"

namespace quorvel {

class TEdgeCollapsedProcessor : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TEdgeCollapsedProcessor)
  TPinPtr m_Hierarchy, m_AggLft, m_Edges, m_EdgeSelection, m_Out;
  void postCreate() override;
  std::string getTypeName() override { return "edge collapser"; }
  void process() override;
};

// The values of a number column laid out by id, so that a look-up reads
// one array instead of the column's index and then its row. Empty when the
// ids are too sparse for it.
struct TValuesById {
  std::vector<float> values;
  std::vector<uint64_t> has;
  explicit TValuesById(const TFloatAttributeData& column);
  bool empty() const { return values.empty(); }
  bool find(uint32_t id, float& value) const {
    if (id >= values.size() || !(has[id / 64] >> (id % 64) & 1)) return false;
    value = values[id];
    return true;
  }
};

class TEdgeColorProcessor : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TEdgeColorProcessor)
  TPinPtr m_EdgeCollapsed, m_ColorAttr, m_ColorAttrOrd, m_ColorMap, m_Aggregation, m_Output;
  void postCreate() override;
  std::string getTypeName() override { return "edge colors"; }
  void process() override;

 private:
  // The colour column laid out by id, kept while the column stays: a fold
  // changes the records, not the values.
  std::shared_ptr<const TFloatAttributeData> m_LaidOutColumn;
  std::unique_ptr<TValuesById> m_ById;
};

class TLftPairsToEids : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TLftPairsToEids)
  TPinPtr m_LftPairs, m_EdgeCollapsed, m_Out;
  void postCreate() override;
  std::string getTypeName() override { return "lft2eid"; }
  void process() override;
};

class TEidsToLftPairs : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TEidsToLftPairs)
  TPinPtr m_Eids, m_EdgeCollapsed, m_Out;
  void postCreate() override;
  std::string getTypeName() override { return "eid2lft"; }
  void process() override;
};

// Folds the edges of the selection through agglft.
std::shared_ptr<TEdgeCollapsedData> aggregateEdges(const THierarchyData& hierarchy, const TAggLftData& agglft,
                                                   const TEdgeData& edges, const TIntegerSetData& selection);

// Two colours per record of aggregated edges. `byId`, when given, holds
// ord's values laid out by id.
std::shared_ptr<TEdgeColorData> colorEdges(const TEdgeCollapsedData& collapsed, const TAttributeData& attribute,
                                           const TFloatAttributeData& ord, const TColorMapData& map,
                                           const std::string& aggregation, const TValuesById* byId = nullptr);
// Whether colouring these records reads enough of ord's values to lay them
// out by id first.
bool worthLayingOutById(const TEdgeCollapsedData& collapsed, const TFloatAttributeData& ord);

void registerEdgeAggregationProcessors();

}  // namespace quorvel
