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

// What a processor derived from each column of its last input, kept while
// the column stands unchanged: a network that delivers an array again with
// some columns new derives only those.
template <class Result>
class TColumnMemo {
 public:
  // Starts a run.
  void begin() { m_Next.clear(); }
  void forget() { m_Last.clear(); }
  // The result for `column`, from the last run when the same column object
  // under the same key name has not changed since, else made by `derive`.
  template <class F>
  Result get(const TDataPtr& column, F&& derive) {
    if (const Entry* e = find(column)) {
      m_Next.push_back(*e);
      return e->result;
    }
    m_Next.push_back({column, column->m_KeyName, column->m_HasChanged.generation(), derive()});
    return m_Next.back().result;
  }
  // True when get() would give the last run's result for `column`.
  bool holds(const TDataPtr& column) const { return find(column) != nullptr; }
  // Ends a run: what it did not ask for is forgotten.
  void finish() {
    m_Last.swap(m_Next);
    m_Next.clear();
  }

 private:
  struct Entry {
    std::weak_ptr<TAbstractData> column;
    std::string key;
    uint64_t generation;
    Result result;
  };
  const Entry* find(const TDataPtr& column) const {
    const uint64_t generation = column->m_HasChanged.generation();
    for (const Entry& e : m_Last)
      if (e.generation == generation && e.key == column->m_KeyName && e.column.lock() == column) return &e;
    return nullptr;
  }
  std::vector<Entry> m_Last, m_Next;
};

class TAttributeNormalizerProcessor : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TAttributeNormalizerProcessor)
  TPinPtr m_In, m_Out;
  void postCreate() override;
  std::string getTypeName() override { return "attr normalizer"; }
  void process() override;

 private:
  TColumnMemo<std::shared_ptr<TFloatAttributeData>> m_Memo;
};

class TAttributeArrayNormalizerProcessor : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TAttributeArrayNormalizerProcessor)
  TPinPtr m_In, m_Out;
  void postCreate() override;
  std::string getTypeName() override { return "attr array norm"; }
  void process() override;
  // Columns are made on two threads when those to make hold this many rows.
  size_t m_RowsForTwoThreads = 200000;

 private:
  TColumnMemo<std::shared_ptr<TFloatAttributeData>> m_Memo;
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

 private:
  // Columns of icons by text column, for one icon map.
  TColumnMemo<std::shared_ptr<TIntegerAttributeData>> m_Memo;
  std::weak_ptr<TAbstractData> m_MemoIcons;
  uint64_t m_MemoIconsGeneration = 0;
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
