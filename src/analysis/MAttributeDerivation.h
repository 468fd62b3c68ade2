// Columns derived from columns: the numeric form (ordnorm), aggregates up the
// hierarchy, degrees, edge captions, icons, and the union of two columns.
#pragma once

#include "data/MAttributes.h"
#include "data/MHierarchy.h"
#include "data/MValues.h"
#include "engine/MFlowObjects.h"

namespace quorvel {

// The numeric form of a column: a text's rank among the sorted distinct
// texts, a number as it stands. Raises "Unknown type" for other columns.
std::shared_ptr<TFloatAttributeData> ordnorm(const TAttributeData& column);

class TAttributeNormalizerProcessor : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TAttributeNormalizerProcessor)
  TPinPtr m_In, m_Out;
  void postCreate() override;
  std::string getTypeName() override { return "attr normalizer"; }
  void process() override;
};

class TAttributeArrayNormalizerProcessor : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TAttributeArrayNormalizerProcessor)
  TPinPtr m_In, m_Out;
  void postCreate() override;
  std::string getTypeName() override { return "attr array norm"; }
  void process() override;
};

class TAttributeAggregator : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TAttributeAggregator)
  TPinPtr m_In, m_Hierarchy, m_Function, m_Out;
  void postCreate() override;
  std::string getTypeName() override { return "attr aggr"; }
  void process() override;
};

class TFanAttributeProcessor : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TFanAttributeProcessor)
  TPinPtr m_NodeSelection, m_EdgeSelection, m_EdgeData, m_FanOut, m_FanIn;
  void postCreate() override;
  std::string getTypeName() override { return "fan proc"; }
  void process() override;
};

class TIdAttributeProcessor : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TIdAttributeProcessor)
  TPinPtr m_Selection, m_Out;
  void postCreate() override;
  std::string getTypeName() override { return "id attr"; }
  void process() override;
};

class TFromToAttributeCreator : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TFromToAttributeCreator)
  TPinPtr m_Caption, m_EdgeData, m_FromOut, m_ToOut;
  void postCreate() override;
  std::string getTypeName() override { return "from to attr creator"; }
  void process() override;
};

class TIconAttributeCreator : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TIconAttributeCreator)
  TPinPtr m_Icons, m_Attributes, m_Output;
  void postCreate() override;
  std::string getTypeName() override { return "icon attr creator"; }
  void process() override;
};

class TAttributeUnion : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TAttributeUnion)
  TPinPtr m_In1, m_In2, m_Out;
  void postCreate() override;
  std::string getTypeName() override { return "attr union"; }
  void process() override;
};

void registerDerivationProcessors();

}  // namespace quorvel
