// Selections and the processors that filter and combine them, and the small
// utility processors that networks are wired from.
#pragma once

#include <deque>
#include <functional>

#include "data/MAttributes.h"
#include "data/MHierarchy.h"
#include "data/MValues.h"
#include "engine/MFlowObjects.h"

namespace quorvel {

// Filters by chosen values of nominal attributes; the filter dictionary on
// the pin `filter` says which.
class TSelector1Cpp : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TSelector1Cpp)
  TPinPtr m_Selection, m_Attributes, m_Filter, m_Settings, m_Output;
  void postCreate() override;
  std::string getTypeName() override { return "selector1"; }
  void process() override;
};

// Something that shows a processor's state and is told when it changes:
// the panels of controls and of the filter dialog.
class TProcessorPanel {
 public:
  virtual ~TProcessorPanel() = default;
  // False once the panel's window is gone; such a panel is dropped.
  virtual bool alive() const = 0;
  virtual void update() = 0;
};

// A processor the user edits through widgets, its panels, which the window
// library makes. Any number of panels may stand for one control.
class TControl {
 public:
  virtual ~TControl() = default;
  std::vector<std::shared_ptr<TProcessorPanel>> panels;
  // Drops the panels whose window went, and updates the others.
  void updatePanels();
};

class TSelector1 : public TSelector1Cpp, public TControl {
 public:
  QV_CLASS_NAME(TSelector1)
  unsigned hookMask() override { return kHookProcess; }
  void process_python() override;
};

// The compiled form of a filter dictionary and its verdict for an id.
class TCompiledFilter {
 public:
  // Raises only for a filter that is no dictionary.
  TCompiledFilter(const TPyRef& filter, const TDataArray& attributes);
  bool verdict(uint32_t id) const;
  size_t clauseCount() const { return m_Clauses.size(); }

 private:
  // The chosen values of one column: an id passes when its value is one of
  // them. The value is looked up once, whatever their number.
  struct ColumnTest {
    std::shared_ptr<TAttributeData> column;
    bool isText = false;
    std::vector<std::string> texts;
    std::vector<int32_t> numbers;  // sorted
    bool passes(uint32_t id) const;
  };
  int m_Pass = 2;
  // All clauses must pass; a clause passes when one of its tests does.
  std::vector<std::vector<ColumnTest>> m_Clauses;
};

class TSelector2 : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TSelector2)
  TPinPtr m_Selection, m_Attribute, m_Range, m_Output;
  void postCreate() override;
  std::string getTypeName() override { return "selector2"; }
  void process() override;
};

class TFilterProcessor : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TFilterProcessor)
  TPinPtr m_Selection, m_Filter, m_Output;
  bool m_KeepValue = true;
  void postCreate() override;
  std::string getTypeName() override { return "filter"; }
  void process() override;
};

class TExclusionFilterProcessor : public TFilterProcessor {
 public:
  QV_CLASS_NAME(TExclusionFilterProcessor)
  TExclusionFilterProcessor() { m_KeepValue = false; }
};

class TSecondarySelectionComputer : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TSecondarySelectionComputer)
  TPinPtr m_Primary, m_EdgeSelection, m_EdgeData, m_Direction, m_FullHierarchy, m_BoolAttribute;
  TPinPtr m_Secondary, m_IncidentEdges;
  void postCreate() override;
  std::string getTypeName() override { return "sec sel comp"; }
  void process() override;
};

// The two-set operations share their pins.
class TSetOperation : public TAbstractProcessor {
 public:
  TPinPtr m_In1, m_In2, m_Out;
  void postCreate() override;
};

class TSetIntersection : public TSetOperation {
 public:
  QV_CLASS_NAME(TSetIntersection)
  std::string getTypeName() override { return "intersect"; }
  void process() override;
};

class TSetSubtract : public TSetOperation {
 public:
  QV_CLASS_NAME(TSetSubtract)
  std::string getTypeName() override { return "set -"; }
  void process() override;
};

class TSetOr : public TSetOperation {
 public:
  QV_CLASS_NAME(TSetOr)
  std::string getTypeName() override { return "set or"; }
  void process() override;
};

// ---------------------------------------------------------------------------
// Small utilities

class TIntegerUnary : public TAbstractProcessor {
 public:
  TPinPtr m_In, m_Out;
  void postCreate() override;
  void process() override;

 protected:
  virtual int32_t apply(int32_t v) const = 0;
};

class TIntegerPlusOne : public TIntegerUnary {
 public:
  QV_CLASS_NAME(TIntegerPlusOne)
  std::string getTypeName() override { return "+1"; }

 protected:
  int32_t apply(int32_t v) const override { return static_cast<int32_t>(static_cast<uint32_t>(v) + 1u); }
};

class TIntegerMinusOne : public TIntegerUnary {
 public:
  QV_CLASS_NAME(TIntegerMinusOne)
  std::string getTypeName() override { return "-1"; }

 protected:
  int32_t apply(int32_t v) const override { return static_cast<int32_t>(static_cast<uint32_t>(v) - 1u); }
};

class TInvert : public TIntegerUnary {
 public:
  QV_CLASS_NAME(TInvert)
  std::string getTypeName() override { return "invert"; }

 protected:
  int32_t apply(int32_t v) const override { return static_cast<int32_t>(0u - static_cast<uint32_t>(v)); }
};

class TIdentityOrNull : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TIdentityOrNull)
  TPinPtr m_In, m_IdOr0, m_Count;
  void postCreate() override;
  std::string getTypeName() override { return "id or 0"; }
  void process() override;
};

class TInputPrintProcessor : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TInputPrintProcessor)
  TPinPtr m_In;
  void postCreate() override { m_In = addInputPin<TAbstractData>("in"); }
  std::string getTypeName() override { return "printer"; }
  void process() override;
};

class TGetCountCpp : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TGetCountCpp)
  TPinPtr m_In, m_Count, m_Min, m_Max;
  void postCreate() override;
  std::string getTypeName() override { return "get count"; }
};

class TGetCount : public TGetCountCpp {
 public:
  QV_CLASS_NAME(TGetCount)
  unsigned hookMask() override { return kHookProcess; }
  void process_python() override;
};

class TKeyNameSetter : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TKeyNameSetter)
  TPinPtr m_Data, m_KeyName;
  void postCreate() override;
  std::string getTypeName() override { return "keysetter"; }
  void process() override;
};

class TAssignWhenInput1IsNotNone : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TAssignWhenInput1IsNotNone)
  TPinPtr m_In1, m_In2;
  void postCreate() override;
  std::string getTypeName() override { return "= when not none"; }
  void process() override;
};

class TArrayCreator : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TArrayCreator)
  TPinPtr m_Out;
  void postCreate() override;
  std::string getTypeName() override { return "array creator"; }
  void process() override;
};

// The same joining as TArrayCreator, for attribute columns: the result is a
// TAttributeDataArray and holds only columns.
class TAttributeArrayCreator : public TArrayCreator {
 public:
  QV_CLASS_NAME(TAttributeArrayCreator)
  std::string getTypeName() override { return "attribute array creator"; }
  void postCreate() override;
  void process() override;
};

class TIntegerPairSetUnion : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TIntegerPairSetUnion)
  TPinPtr m_In1, m_In2, m_Out;
  void postCreate() override;
  std::string getTypeName() override { return "int pairset union"; }
  void process() override;
};

// The undo memory of a value: the last values that came in, oldest first.
class TStackStore : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TStackStore)
  TPinPtr m_In, m_MaxItems, m_Dummy;
  std::deque<TDataPtr> m_Stack;
  void postCreate() override;
  std::string getTypeName() override { return "stack store"; }
  void process() override;
  // Drops the newest value and puts the one before it back on `in`.
  void pop();
};

void registerSelectionProcessors();

}  // namespace quorvel
