#include "MControlCores.h"

#include <pybind11/pybind11.h>

#include <algorithm>

#include "data/MAttributes.h"
#include "data/MColorMap.h"
#include "engine/MRegistry.h"

namespace py = pybind11;

namespace quorvel {

py::object setting(const TPinPtr& settings, const char* key) {
  auto value = std::dynamic_pointer_cast<TPythonData>(settings->getData());
  if (!value || !value->getValue()) return py::none();
  py::handle h(value->getValue().get());
  if (!py::isinstance<py::dict>(h)) return py::none();
  py::dict d = py::reinterpret_borrow<py::dict>(h);
  return d.contains(key) ? py::object(d[key]) : py::none();
}

std::string controlName(TAbstractProcessor& control, const std::string& fallback) {
  TPinPtr settings = control.getInputPinByName("settings");
  if (!settings) return fallback;
  py::object name = setting(settings, "name");
  return py::isinstance<py::str>(name) ? name.cast<std::string>() : fallback;
}

namespace {

bool isTrue(const py::object& o) { return !o.is_none() && PyObject_IsTrue(o.ptr()) == 1; }

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
  updatePanels();
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
  if (m_Array->hasChanged() || m_Key->hasChanged()) updatePanels();
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
    // The number columns first, each group in the array's order.
    if (isTrue(setting(m_Settings, "numericfirst")))
      std::stable_partition(keys->m_List.begin(), keys->m_List.end(), [&array](const std::string& k) {
        bool found = false;
        auto column = std::dynamic_pointer_cast<TAttributeData>(array->getItemByKey(k, found));
        const std::string type = column ? column->getAttributeType() : std::string();
        return type == "int" || type == "float";
      });
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
  updatePanels();
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
  updatePanels();
  resetPins({});
}

void TFloatRangeControl::setLower(float v) {
  auto value = dataAs<TFloatPairData>(m_In);
  if (!value) return;
  m_In->setData(std::make_shared<TFloatPairData>(std::min(v, value->getSecond()), value->getSecond()));
}

void TFloatRangeControl::setUpper(float v) {
  auto value = dataAs<TFloatPairData>(m_In);
  if (!value) return;
  m_In->setData(std::make_shared<TFloatPairData>(value->getFirst(), std::max(v, value->getFirst())));
}

void TFloatRangeControl::resetRange() {
  auto lo = dataAs<TFloatData>(m_Min);
  auto hi = dataAs<TFloatData>(m_Max);
  if (lo && hi) m_In->setData(std::make_shared<TFloatPairData>(lo->getValue(), hi->getValue()));
}

float TFloatRangeControl::valueAt(int x, int width, float min, float max) {
  return width > 1 ? min + static_cast<float>(x) / static_cast<float>(width - 1) * (max - min) : min;
}

int TFloatRangeControl::xOf(float v, int width, float min, float max) {
  if (!(max > min)) return 0;
  const double x = static_cast<double>(v - min) / static_cast<double>(max - min) * width;
  return static_cast<int>(std::clamp(x, -1.0e6, 1.0e6));
}

// ---------------------------------------------------------------------------
// Number, check box and button controls

void TIntegerControlCpp::postCreate() {
  m_In = addInputPin<TIntegerData>("in");
  m_Min = addInputPin<TIntegerData>("min");
  m_Max = addInputPin<TIntegerData>("max");
  m_Settings = addInputPin<TPythonData>("settings");
}

void TFloatControlCpp::postCreate() {
  m_In = addInputPin<TFloatData>("in");
  m_Min = addInputPin<TFloatData>("min");
  m_Max = addInputPin<TFloatData>("max");
  m_Settings = addInputPin<TPythonData>("settings");
}

std::optional<double> TNumberControl::numberOn(const TPinPtr& pin) {
  const TDataPtr data = pin ? pin->getData() : nullptr;
  if (auto i = std::dynamic_pointer_cast<TIntegerData>(data)) return i->getValue();
  if (auto f = std::dynamic_pointer_cast<TFloatData>(data)) return f->getValue();
  return std::nullopt;
}

void TNumberControl::numberPass(TAbstractProcessor& self, const TPinPtr& in, const TPinPtr& min, const TPinPtr& max,
                                const TPinPtr& settings) {
  const auto lo = numberOn(min);
  const auto hi = numberOn(max);
  if (self.haveChanged({in, min, max}) && lo && hi && settings->getData()) {
    if (!numberOn(in)) {
      py::object start = setting(settings, "default");
      const bool atMax = py::isinstance<py::str>(start) && start.cast<std::string>() == "max";
      in->setData(makeValue(atMax ? *hi : *lo));
    }
    const double v = *numberOn(in);
    // Bounds that are no numbers (NaN) pull nothing.
    if (*hi > *lo && (v < *lo || v > *hi)) {
      setInPlace(v < *lo ? *lo : *hi);
      self.resetPins({});
      return;
    }
    updatePanels();
  }
  self.resetPins({});
}

TDataPtr TIntegerControl::makeValue(double v) const {
  const double clamped = std::clamp(v, -2147483648.0, 2147483647.0);
  return std::make_shared<TIntegerData>(static_cast<int32_t>(clamped));
}

void TIntegerControl::setInPlace(double v) {
  if (auto value = dataAs<TIntegerData>(m_In))
    value->setValue(static_cast<int32_t>(std::clamp(v, -2147483648.0, 2147483647.0)));
  else
    m_In->setData(makeValue(v));
}

TDataPtr TFloatControl::makeValue(double v) const { return std::make_shared<TFloatData>(static_cast<float>(v)); }

void TFloatControl::setInPlace(double v) {
  if (auto value = dataAs<TFloatData>(m_In))
    value->setValue(static_cast<float>(v));
  else
    m_In->setData(makeValue(v));
}

void TBooleanControlCpp::postCreate() {
  m_In = addInputPin<TBooleanData>("in");
  m_Settings = addInputPin<TPythonData>("settings");
  m_Out = addOutputPin<TBooleanData>("out");
}

void TBooleanControlCpp::process() {
  if (m_Out->getData() != m_In->getData()) m_Out->setData(m_In->getData());
  resetPins({});
}

void TBooleanControl::process_python() {
  updatePanels();
  process();
}

void TInvokeControlCpp::postCreate() {
  m_Settings = addInputPin<TPythonData>("settings");
  m_Out = addOutputPin<TBooleanData>("out");
}

void TInvokeControl::invoke() { m_Out->setData(std::make_shared<TBooleanData>(true)); }

// ---------------------------------------------------------------------------
// TControlGatherer

void TControlGatherer::postCreate() { m_Out = addOutputPin<TProcessorDataArray>("out"); }

void TControlGatherer::beforeprocess_python() {
  if (m_Gathered) return;
  m_Gathered = true;
  auto found = std::make_shared<TProcessorDataArray>();
  std::vector<TAbstractBox*> queue;
  if (m_Box) queue.push_back(m_Box.get());
  for (size_t i = 0; i < queue.size(); ++i) {
    for (const auto& processor : queue[i]->m_Processors)
      if (processor && dynamic_cast<TControl*>(processor.get()))
        found->add(std::make_shared<TProcessorData>(processor, controlName(*processor, "<noname>")));
    for (const auto& child : queue[i]->m_Children)
      if (child) queue.push_back(child.get());
  }
  m_Out->setData(found);
}

// ---------------------------------------------------------------------------
// The filter dialog's model

TNominalFilterModel::TNominalFilterModel(const TDataArray* attributes, const py::handle& given)
    : m_Attributes(attributes) {
  if (py::isinstance<py::dict>(given))
    filter = py::module_::import("copy").attr("deepcopy")(given).cast<py::dict>();
  if (!filter.contains("attributes") || !py::isinstance<py::dict>(filter["attributes"])) filter["attributes"] = py::dict();
  if (!filter.contains("key_op")) filter["key_op"] = py::str("and");
  if (attributes)
    for (const auto& item : attributes->m_Items) {
      auto attr = std::dynamic_pointer_cast<TAttributeData>(item);
      if (!attr) continue;
      const std::string key = attr->getKeyName();
      const std::string type = attr->getAttributeType();
      if ((key.empty() || key[0] != '_') && (type == "string" || type == "int")) keys.push_back(key);
    }
  std::sort(keys.begin(), keys.end());
}

int TNominalFilterModel::pass() const {
  if (!filter.contains("pass")) return 0;
  py::object p = filter["pass"];
  return py::isinstance<py::int_>(p) ? p.cast<int>() : 0;
}

void TNominalFilterModel::setPass(int pass) { filter["pass"] = py::int_(pass); }
void TNominalFilterModel::setKeyOp(const std::string& op) { filter["key_op"] = py::str(op); }

py::dict TNominalFilterModel::condition(const std::string& key) {
  py::dict attributes = filter["attributes"].cast<py::dict>();
  if (!attributes.contains(key.c_str()) || !py::isinstance<py::dict>(attributes[key.c_str()]))
    attributes[key.c_str()] = py::dict();
  py::dict c = attributes[key.c_str()].cast<py::dict>();
  if (!c.contains("values") || !py::isinstance<py::dict>(c["values"])) c["values"] = py::dict();
  return c;
}

bool TNominalFilterModel::attributeChecked(const std::string& key) const {
  py::dict attributes = filter["attributes"].cast<py::dict>();
  if (!attributes.contains(key.c_str())) return false;
  py::object c = attributes[key.c_str()];
  return py::isinstance<py::dict>(c) && c.contains("checked") && isTrue(c["checked"]);
}

void TNominalFilterModel::setAttributeChecked(const std::string& key, bool checked) {
  condition(key)["checked"] = py::bool_(checked);
}

std::vector<py::object> TNominalFilterModel::values(const std::string& key) const {
  std::vector<py::object> out;
  if (!m_Attributes) return out;
  bool found = false;
  TDataPtr item = m_Attributes->getItemByKey(key, found);
  // The maps are made for the call: hold them while reading.
  if (auto s = std::dynamic_pointer_cast<TStringAttributeData>(item)) {
    const auto unique = s->getUniqueValues();
    for (const auto& [value, count] : *unique) out.push_back(py::str(value));
  } else if (auto i = std::dynamic_pointer_cast<TIntegerAttributeData>(item)) {
    const auto unique = i->getUniqueValues();
    for (const auto& [value, count] : *unique) out.push_back(py::int_(value));
  }
  return out;
}

bool TNominalFilterModel::valueChecked(const std::string& key, const py::handle& value) const {
  py::dict attributes = filter["attributes"].cast<py::dict>();
  if (!attributes.contains(key.c_str())) return false;
  py::object c = attributes[key.c_str()];
  if (!py::isinstance<py::dict>(c) || !c.contains("values")) return false;
  py::object values = c["values"];
  return py::isinstance<py::dict>(values) && values.contains(value) && isTrue(values[value]);
}

void TNominalFilterModel::setValueChecked(const std::string& key, const py::handle& value, bool checked) {
  condition(key)["values"].cast<py::dict>()[value] = py::bool_(checked);
}

void registerControlCores() {
  auto& reg = TProcessorRegistry::instance();
  reg.add<TArrayPickerCpp>();
  reg.add<TArrayPicker>();
  reg.add<TSubArrayPickerCpp>();
  reg.add<TSubArrayPicker>();
  reg.add<TFloatRangeControlCpp>();
  reg.add<TFloatRangeControl>();
  reg.add<TIntegerControlCpp>();
  reg.add<TIntegerControl>();
  reg.add<TFloatControlCpp>();
  reg.add<TFloatControl>();
  reg.add<TBooleanControlCpp>();
  reg.add<TBooleanControl>();
  reg.add<TInvokeControlCpp>();
  reg.add<TInvokeControl>();
  reg.add<TControlGatherer>();
}

}  // namespace quorvel
