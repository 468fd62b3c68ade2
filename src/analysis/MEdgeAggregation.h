// Edges folded onto the visible nodes, their colours, and the translation
// between edge ids and records of aggregated edges.
#pragma once

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

class TEdgeColorProcessor : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TEdgeColorProcessor)
  TPinPtr m_EdgeCollapsed, m_ColorAttr, m_ColorAttrOrd, m_ColorMap, m_Aggregation, m_Output;
  void postCreate() override;
  std::string getTypeName() override { return "edge colors"; }
  void process() override;
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

// Two colours per record of aggregated edges.
std::shared_ptr<TEdgeColorData> colorEdges(const TEdgeCollapsedData& collapsed, const TAttributeData& attribute,
                                           const TFloatAttributeData& ord, const TColorMapData& map,
                                           const std::string& aggregation);

void registerEdgeAggregationProcessors();

}  // namespace quorvel
