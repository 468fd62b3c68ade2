#include "MControlCores.h"

#include <pybind11/pybind11.h>

#include <algorithm>

#include "data/MColorMap.h"
#include "engine/MRegistry.h"

namespace py = pybind11;

namespace quorvel {

namespace {

// A key of the settings dictionary, or none; a missing dictionary counts as
// all keys absent.
py::object setting(const TPinPtr& settings, const char* key) {
  auto value = std::dynamic_pointer_cast<TPythonData>(settings->getData());
  if (!value || !value->getValue()) return py::none();
  py::handle h(value->getValue().get());
  if (!py::isinstance<py::dict>(h)) return py::none();
  py::dict d = py::reinterpret_borrow<py::dict>(h);
  return d.contains(key) ? py::object(d[key]) : py::none();
}

bool isTrue(const py::object& o) { return !o.is_none() && PyObject_IsTrue(o.ptr()) == 1; }

void updatePanels(std::vector<std::shared_ptr<TProcessorPanel>>& panels) {
  panels.erase(std::remove_if(panels.begin(), panels.end(), [](const auto& p) { return !p || !p->alive(); }),
               panels.end());
  for (const auto& panel : panels) panel->update();
}

std::vector<std::string> keysOf(const TDataArray& array) {
  std::vector<std::string> keys;
  for (const auto& item : array.m_Items) keys.push_back(item ? item->getKeyName() : std::string());
  return keys;
}

}  // namespace

// ---------------------------------------------------------------------------
// TArrayPicker

void TArrayPickerCpp::postCreate() {
  m_Array = addInputPin<TDataArray>("array");
  m_Key = addInputPin<TStringData>("key");
  m_Settings = addInputPin<TPythonData>("settings");
  m_Out = addOutputPin<TAbstractData>("out");
}

void TArrayPickerCpp::process() {
  pick();
  resetPins({});
}

void TArrayPickerCpp::pick() {
  auto array = dataAs<TDataArray>(m_Array);
  if (!array) return;
  if (auto key = dataAs<TStringData>(m_Key)) {
    bool found = false;
    TDataPtr item = array->getItemByKey(key->getValue(), found);
    if (found) {
      if (m_Out->getData() != item) m_Out->setData(item);
      return;
    }
  } else if (isTrue(setting(m_Settings, "allownone"))) {
    if (m_Out->getData()) m_Out->setData(nullptr);
    return;
  }
  // A key the array does not hold, or no key: the first item, through the
  // key, so the next pass gives it.
  if (array->getItemCount() > 0)
    m_Key->setData(std::make_shared<TStringData>(array->m_Items[0]->getKeyName()));
  else if (m_Out->getData())
    m_Out->setData(nullptr);
}

void TArrayPicker::process_python() {
  updatePanels(panels);
  if (!initialized && m_Array->getData() && m_Settings->getData()) {
    initialized = true;
    if (!m_Key->getData()) {
      py::object defaultKey = setting(m_Settings, "defaultkey");
      if (py::isinstance<py::str>(defaultKey)) {
        m_Key->setData(std::make_shared<TStringData>(defaultKey.cast<std::string>()));
        resetPins({});
        return;
      }
      if (py::isinstance<py::list>(defaultKey) || py::isinstance<py::tuple>(defaultKey)) {
        auto array = dataAs<TDataArray>(m_Array);
        for (auto candidate : defaultKey) {
          if (!py::isinstance<py::str>(candidate)) continue;
          bool found = false;
          array->getItemByKey(candidate.cast<std::string>(), found);
          if (found) {
            m_Key->setData(std::make_shared<TStringData>(candidate.cast<std::string>()));
            resetPins({});
            return;
          }
        }
      }
    }
  }
  if (m_Array->hasChanged() || m_Key->hasChanged()) updatePanels(panels);
  pick();
  resetPins({});
}

// ---------------------------------------------------------------------------
// TSubArrayPicker

TSubArrayPicker::TFrameMaker& TSubArrayPicker::frameMaker() {
  static TFrameMaker maker;
  return maker;
}

void TSubArrayPicker::constructSettingsFrame(void* parent) {
  if (!frameMaker()) throw TFlowError("constructSettingsFrame(): there are no windows");
  frameMaker()(*this, parent);
}

void TSubArrayPicker::applyKeys(const std::vector<std::string>& keys) {
  auto list = std::make_shared<TStringListData>();
  list->m_List = keys;
  m_Keys->setData(list);
  auto out = std::make_shared<TDataArray>();
  if (auto array = dataAs<TDataArray>(m_Array))
    for (const auto& k : keys) {
      bool found = false;
      TDataPtr item = array->getItemByKey(k, found);
      if (found) out->add(item);
    }
  m_Out->setData(out);
}

TKeyListEditor::TKeyListEditor(std::vector<std::string> keys, const TDataArray* array) : selected(std::move(keys)) {
  if (array)
    for (const auto& k : keysOf(*array))
      if (k.empty() || k[0] != '_') available.push_back(k);
  std::sort(available.begin(), available.end());
}

void TKeyListEditor::add(const std::vector<size_t>& availableRows) {
  for (size_t row : availableRows)
    if (row < available.size()) selected.push_back(available[row]);
}

void TKeyListEditor::remove(std::vector<size_t> selectedRows) {
  std::sort(selectedRows.rbegin(), selectedRows.rend());
  for (size_t row : selectedRows)
    if (row < selected.size()) selected.erase(selected.begin() + static_cast<std::ptrdiff_t>(row));
}

size_t TKeyListEditor::up(size_t row) {
  if (row == 0 || row >= selected.size()) return row;
  std::swap(selected[row], selected[row - 1]);
  return row - 1;
}

size_t TKeyListEditor::down(size_t row) {
  if (row + 1 >= selected.size()) return row;
  std::swap(selected[row], selected[row + 1]);
  return row + 1;
}

void TSubArrayPickerCpp::postCreate() {
  m_Array = addInputPin<TDataArray>("array");
  m_Keys = addInputPin<TStringListData>("keys");
  m_Dynamic = addInputPin<TDataArray>("dynamic");
  m_Settings = addInputPin<TPythonData>("settings");
  m_Out = addOutputPin<TDataArray>("out");
}

void TSubArrayPicker::process_python() {
  auto array = dataAs<TDataArray>(m_Array);
  if ((m_Array->hasChanged() || m_Settings->hasChanged()) && array && m_Settings->getData() && !m_Keys->getData()) {
    auto keys = std::make_shared<TStringListData>();
    py::object defaults = setting(m_Settings, "defaultkeys");
    const std::vector<std::string> all = keysOf(*array);
    auto internal = [](const std::string& k) { return !k.empty() && k[0] == '_'; };
    if (py::isinstance<py::int_>(defaults) && !py::isinstance<py::bool_>(defaults)) {
      const long n = defaults.cast<long>();
      for (const auto& k : all)
        if (!internal(k) && static_cast<long>(keys->m_List.size()) < n) keys->m_List.push_back(k);
    } else if (py::isinstance<py::str>(defaults) && defaults.cast<std::string>() == "all") {
      for (const auto& k : all)
        if (!internal(k)) keys->m_List.push_back(k);
    } else if (py::isinstance<py::list>(defaults) || py::isinstance<py::tuple>(defaults)) {
      std::vector<std::string> wanted;
      for (auto k : defaults)
        if (py::isinstance<py::str>(k)) wanted.push_back(k.cast<std::string>());
      for (const auto& k : all)
        if (std::find(wanted.begin(), wanted.end(), k) != wanted.end()) keys->m_List.push_back(k);
    }
    m_Keys->setData(keys);
    resetPins({});
    return;
  }
  if (getInputChanged() && array && m_Settings->getData()) {
    auto out = std::make_shared<TDataArray>();
    std::vector<std::string> taken;
    if (auto dynamic = dataAs<TDataArray>(m_Dynamic)) {
      for (const auto& item : dynamic->m_Items) {
        const std::string k = item ? item->getKeyName() : std::string();
        if (std::find(taken.begin(), taken.end(), k) != taken.end()) continue;
        taken.push_back(k);
        out->add(item);
      }
    }
    if (auto keys = dataAs<TStringListData>(m_Keys)) {
      for (const auto& k : keys->m_List) {
        if (std::find(taken.begin(), taken.end(), k) != taken.end()) continue;
        bool found = false;
        TDataPtr item = array->getItemByKey(k, found);
        if (found) out->add(item);
      }
    }
    auto old = dataAs<TDataArray>(m_Out);
    if (!old || keysOf(*old) != keysOf(*out)) m_Out->setData(out);
  }
  updatePanels(panels);
  resetPins({});
}

// ---------------------------------------------------------------------------
// TFloatRangeControl

void TFloatRangeControlCpp::postCreate() {
  m_In = addInputPin<TFloatPairData>("in");
  m_Min = addInputPin<TFloatData>("min");
  m_Max = addInputPin<TFloatData>("max");
  m_Colormap = addInputPin<TColorMapData>("colormap");
  m_Settings = addInputPin<TPythonData>("settings");
  m_ResetInvoke = addInputPin<TAbstractData>("reset range invoke");
  m_Normalized = addOutputPin<TFloatPairData>("normalized");
}

void TFloatRangeControl::process_python() {
  auto lo = dataAs<TFloatData>(m_Min);
  auto hi = dataAs<TFloatData>(m_Max);
  if (haveChanged({m_Min, m_Max, m_In})) {
    if (!lo || !hi) {
      if (m_Normalized->getData()) m_Normalized->setData(nullptr);
    } else {
      auto value = dataAs<TFloatPairData>(m_In);
      const float a = lo->getValue();
      const float b = hi->getValue();
      const bool outside = value && (value->getFirst() < a || value->getFirst() > b || value->getSecond() < a ||
                                     value->getSecond() > b);
      if (haveChanged({m_Min, m_Max}) || !value || outside) {
        value = std::make_shared<TFloatPairData>(a, b);
        m_In->setData(value);
      }
      if (m_Normalized->getData() != value) m_Normalized->setData(value);
    }
  }
  if (haveChanged({m_ResetInvoke}) && lo && hi) {
    auto value = std::make_shared<TFloatPairData>(lo->getValue(), hi->getValue());
    m_In->setData(value);
    m_Normalized->setData(value);
  }
  updatePanels(panels);
  resetPins({});
}

void registerControlCores() {
  auto& reg = TProcessorRegistry::instance();
  reg.add<TArrayPickerCpp>();
  reg.add<TArrayPicker>();
  reg.add<TSubArrayPickerCpp>();
  reg.add<TSubArrayPicker>();
  reg.add<TFloatRangeControlCpp>();
  reg.add<TFloatRangeControl>();
}

}  // namespace quorvel
