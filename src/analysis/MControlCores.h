// The steps of the picker and range controls that need no window: which
// item a picker gives, and the range a range control keeps. Widgets attach
// to them as panels.
#pragma once

#include "analysis/MSelection.h"
#include "data/MValues.h"
#include "engine/MFlowObjects.h"

namespace quorvel {

// Picks one item of an array by key.
class TArrayPickerCpp : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TArrayPickerCpp)
  TPinPtr m_Array, m_Key, m_Settings, m_Out;
  void postCreate() override;
  std::string getTypeName() override { return "picker"; }
  // The core step, which needs `array` to have data.
  void pick();
  void process() override;
};

class TArrayPicker : public TArrayPickerCpp {
 public:
  QV_CLASS_NAME(TArrayPicker)
  bool initialized = false;
  std::vector<std::shared_ptr<TProcessorPanel>> panels;
  unsigned hookMask() override { return kHookProcess; }
  void process_python() override;
};

// Picks an ordered list of items of an array, by the keys in `keys`.
class TSubArrayPickerCpp : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TSubArrayPickerCpp)
  TPinPtr m_Array, m_Keys, m_Dynamic, m_Settings, m_Out;
  void postCreate() override;
  std::string getTypeName() override { return "subarray pck"; }
};

class TSubArrayPicker : public TSubArrayPickerCpp {
 public:
  QV_CLASS_NAME(TSubArrayPicker)
  std::vector<std::shared_ptr<TProcessorPanel>> panels;
  unsigned hookMask() override { return kHookProcess; }
  void process_python() override;
};

// A pair of bounds within min and max.
class TFloatRangeControlCpp : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TFloatRangeControlCpp)
  TPinPtr m_In, m_Min, m_Max, m_Colormap, m_Settings, m_ResetInvoke, m_Normalized;
  void postCreate() override;
  std::string getTypeName() override { return "f pair ctrl"; }
};

class TFloatRangeControl : public TFloatRangeControlCpp {
 public:
  QV_CLASS_NAME(TFloatRangeControl)
  std::vector<std::shared_ptr<TProcessorPanel>> panels;
  unsigned hookMask() override { return kHookProcess; }
  void process_python() override;
};

void registerControlCores();

}  // namespace quorvel
