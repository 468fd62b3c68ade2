// The collapsed state: levels, the first folding, and the visible hierarchy
// with the map from every lft to the visible node that stands for it.
#pragma once

#include "data/MAttributes.h"
#include "data/MHierarchy.h"
#include "data/MValues.h"
#include "engine/MFlowObjects.h"

namespace quorvel {

class THierarchyLevelExtractor : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(THierarchyLevelExtractor)
  TPinPtr m_Hierarchy, m_Out;
  void postCreate() override;
  std::string getTypeName() override { return "level extr"; }
  void process() override;
};

// How the first collapsed state is chosen: a fixed expand level (the nodes
// deeper than it start folded), or "auto": the deepest level at which at
// most `budget` nodes are visible.
struct TExpandChoice {
  bool automatic = false;
  int32_t level = 1000;
  int64_t budget = 1000;
  // What was wrong with the settings, for the log; empty when nothing.
  std::string problem;
};
TExpandChoice parseExpandChoice(const TPinPtr& settings);

// The deepest expand level at which at most `budget` nodes are visible,
// from the number of nodes on each level (level 0 the root). At expand
// level L the nodes of levels up to L + 1 are visible. At least 0: the
// root's children show even when they alone exceed the budget.
int32_t chooseExpandLevel(const std::vector<size_t>& nodesPerLevel, int64_t budget);
// The number of nodes on each level, from a level column.
std::vector<size_t> nodesPerLevel(const TIntegerAttributeData& levels);

class TCollapsedStateInitializer : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TCollapsedStateInitializer)
  TPinPtr m_Hierarchy, m_LevelAttr, m_Settings, m_Out, m_HierarchyOut;
  bool m_Initialized = false;
  void postCreate() override;
  std::string getTypeName() override { return "collapsd init"; }
  void process() override;
};

class TCollapseProcessor : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TCollapseProcessor)
  TPinPtr m_FullHierarchy, m_Hierarchy, m_BoolAttribute;
  TPinPtr m_CollapsedHierarchyOut, m_AggLftOut, m_MaxLevel, m_CollapsedMaxLevel;
  void postCreate() override;
  std::string getTypeName() override { return "collapser"; }
  void process() override;
};

class TLevelEqualizer : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TLevelEqualizer)
  TPinPtr m_Hierarchy, m_MaxLevel, m_LevelOut;
  void postCreate() override;
  std::string getTypeName() override { return "level2depth"; }
  void process() override;
};

class TAddAndClamp : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TAddAndClamp)
  TPinPtr m_Attr, m_Add, m_Min, m_Max, m_Out;
  void postCreate() override;
  std::string getTypeName() override { return "add and clamp"; }
  void process() override;
};

class TTreePruner : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TTreePruner)
  TPinPtr m_Hierarchy, m_Selection, m_Out;
  void postCreate() override;
  std::string getTypeName() override { return "tree pruner"; }
  void process() override;
};

// The walks of this Part as plain functions, for tests and benchmarks.
std::shared_ptr<TIntegerAttributeData> extractLevels(const THierarchyData& h);
struct TCollapseResult {
  std::shared_ptr<THierarchyData> hierarchy;
  std::shared_ptr<TAggLftData> agglft;
  int32_t maxLevel = 0;
  int32_t collapsedMaxLevel = 0;
};
TCollapseResult collapseHierarchy(const THierarchyData& h, const TBoolAttributeData& collapsed,
                                  const std::string& name);

void registerCollapseProcessors();

}  // namespace quorvel
