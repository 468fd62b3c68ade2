// The steps of the picker and range controls that need no window: which
// item a picker gives, and the range a range control keeps. Widgets attach
// to them as panels.
#pragma once

#include <functional>
#include <optional>
#include <pybind11/pybind11.h>

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

class TArrayPicker : public TArrayPickerCpp, public TControl {
 public:
  QV_CLASS_NAME(TArrayPicker)
  bool initialized = false;
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

class TSubArrayPicker : public TSubArrayPickerCpp, public TSettingsFrameOwner, public TControl {
 public:
  QV_CLASS_NAME(TSubArrayPicker)
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

class TFloatRangeControl : public TFloatRangeControlCpp, public TControl {
 public:
  QV_CLASS_NAME(TFloatRangeControl)
  unsigned hookMask() override { return kHookProcess; }
  void process_python() override;
  // What a click on the strip does at the value v: the left button sets the
  // lower bound, no higher than the upper one; the right button the upper
  // bound, no lower than the lower one; a double click the whole span. The
  // bounds go on `in` as a new pair.
  void setLower(float v);
  void setUpper(float v);
  void resetRange();
  // The strip's mapping of pixels and values over `width` pixels.
  static float valueAt(int x, int width, float min, float max);
  static int xOf(float v, int width, float min, float max);
};

// A number the user edits, within `min` and `max`.
class TIntegerControlCpp : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TIntegerControlCpp)
  TPinPtr m_In, m_Min, m_Max, m_Settings;
  void postCreate() override;
  std::string getTypeName() override { return "i ctrl"; }
};

class TFloatControlCpp : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TFloatControlCpp)
  TPinPtr m_In, m_Min, m_Max, m_Settings;
  void postCreate() override;
  std::string getTypeName() override { return "f ctrl"; }
};

// What the two number controls share: a value pulled into its bounds, and
// the value a widget sets.
class TNumberControl : public TControl {
 public:
  // The number on a pin of the control's own type, or none.
  static std::optional<double> numberOn(const TPinPtr& pin);
  virtual bool isInteger() const = 0;
  // A value of the control's type, through `conversion` (int or float).
  virtual TDataPtr makeValue(double v) const = 0;
  // Sets the value of `in` in place, as the slider does.
  virtual void setInPlace(double v) = 0;

 protected:
  void numberPass(TAbstractProcessor& self, const TPinPtr& in, const TPinPtr& min, const TPinPtr& max,
                  const TPinPtr& settings);
};

class TIntegerControl : public TIntegerControlCpp, public TNumberControl {
 public:
  QV_CLASS_NAME(TIntegerControl)
  unsigned hookMask() override { return kHookProcess; }
  void process_python() override { numberPass(*this, m_In, m_Min, m_Max, m_Settings); }
  bool isInteger() const override { return true; }
  TDataPtr makeValue(double v) const override;
  void setInPlace(double v) override;
};

class TFloatControl : public TFloatControlCpp, public TNumberControl {
 public:
  QV_CLASS_NAME(TFloatControl)
  unsigned hookMask() override { return kHookProcess; }
  void process_python() override { numberPass(*this, m_In, m_Min, m_Max, m_Settings); }
  bool isInteger() const override { return false; }
  TDataPtr makeValue(double v) const override;
  void setInPlace(double v) override;
};

// A check box: `out` carries the value of `in`, the same object.
class TBooleanControlCpp : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TBooleanControlCpp)
  TPinPtr m_In, m_Settings, m_Out;
  void postCreate() override;
  std::string getTypeName() override { return "b ctrl"; }
  void process() override;
};

class TBooleanControl : public TBooleanControlCpp, public TControl {
 public:
  QV_CLASS_NAME(TBooleanControl)
  unsigned hookMask() override { return kHookProcess; }
  void process_python() override;
};

// A button: each press is a new value on `out`, whatever it holds.
class TInvokeControlCpp : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TInvokeControlCpp)
  TPinPtr m_Settings, m_Out;
  void postCreate() override;
  std::string getTypeName() override { return "invoker"; }
};

class TInvokeControl : public TInvokeControlCpp, public TControl {
 public:
  QV_CLASS_NAME(TInvokeControl)
  unsigned hookMask() override { return kHookProcess; }
  void process_python() override { resetPins({}); }
  void invoke();
};

// The controls of a box tree, found once, at the first pass: the box of
// this processor and the boxes below it, breadth first.
class TControlGatherer : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TControlGatherer)
  TPinPtr m_Out;
  void postCreate() override;
  std::string getTypeName() override { return "ctrl gath"; }
  unsigned hookMask() override { return kHookBeforeProcess; }
  void beforeprocess_python() override;

 private:
  bool m_Gathered = false;
};

// A key of a `settings` pin's dictionary, or none; a missing dictionary
// counts as all keys absent.
pybind11::object setting(const TPinPtr& settings, const char* key);
// The name a control's settings give it, or the fallback.
std::string controlName(TAbstractProcessor& control, const std::string& fallback);

// The filter dialog's work on a deep copy of a filter dictionary: the
// attributes that can be filtered, and the checks of attributes and values.
// Only `filter` is the result; the dictionary given is never touched.
class TNominalFilterModel {
 public:
  TNominalFilterModel(const TDataArray* attributes, const pybind11::handle& filter);
  pybind11::dict filter;
  // The keys of string and integer attributes, sorted, without those that
  // begin with "_".
  std::vector<std::string> keys;
  int pass() const;
  void setPass(int pass);
  void setKeyOp(const std::string& op);
  bool attributeChecked(const std::string& key) const;
  void setAttributeChecked(const std::string& key, bool checked);
  // The unique values of an attribute, as the values themselves.
  std::vector<pybind11::object> values(const std::string& key) const;
  bool valueChecked(const std::string& key, const pybind11::handle& value) const;
  void setValueChecked(const std::string& key, const pybind11::handle& value, bool checked);

 private:
  const TDataArray* m_Attributes;
  pybind11::dict condition(const std::string& key);
};

void registerControlCores();

}  // namespace quorvel
