// The steps of the picker and range controls that need no window: which
// item a picker gives, and the range a range control keeps. Widgets attach
// to them as panels.
#pragma once

#include <functional>

#include "analysis/MSelection.h"
#include "data/MValues.h"
#include "engine/MFlowObjects.h"
#include "engine/MActionInterfaces.h"

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

class TSubArrayPicker : public TSubArrayPickerCpp, public TSettingsFrameOwner {
 public:
  QV_CLASS_NAME(TSubArrayPicker)
  std::vector<std::shared_ptr<TProcessorPanel>> panels;
  unsigned hookMask() override { return kHookProcess; }
  void process_python() override;
  // The dialog of the keys, made by the window library.
  void constructSettingsFrame(void* parent) override;
  // What "Ok" in that dialog does: the keys as a new list on `keys`, and at
  // once the items found under them on `out`.
  void applyKeys(const std::vector<std::string>& keys);
  using TFrameMaker = std::function<void(TSubArrayPicker&, void* parent)>;
  static TFrameMaker& frameMaker();
};

// The two lists of the column dialog: the chosen keys in their order, and
// all keys that may be chosen. Positions are those of the lists.
class TKeyListEditor {
 public:
  std::vector<std::string> selected;
  std::vector<std::string> available;
  // From the keys given and the array's keys but the internal ones, sorted.
  TKeyListEditor(std::vector<std::string> keys, const TDataArray* array);
  void add(const std::vector<size_t>& availableRows);
  void remove(std::vector<size_t> selectedRows);
  // Moves the row by one place; gives its new row, or the old one at an end.
  size_t up(size_t row);
  size_t down(size_t row);
  void clear() { selected.clear(); }
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
