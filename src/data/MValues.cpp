#include "MValues.h"

#include <pybind11/eval.h>
#include <pybind11/pybind11.h>

#include "base/MTextForm.h"
#include "engine/MPython.h"
#include "engine/MRegistry.h"

namespace py = pybind11;

namespace quorvel {

// ---------------------------------------------------------------------------
// Scalars

std::string TIntegerData::stringify() const { return std::to_string(m_Value); }

void TIntegerData::unstringify(const std::string& text) {
  m_Value = parseInt32(text);
  m_HasChanged = true;
}

std::string TFloatData::stringify() const { return formatFloat9(m_Value); }

void TFloatData::unstringify(const std::string& text) {
  m_Value = parseFloat(text);
  m_HasChanged = true;
}

std::string TBooleanData::stringify() const { return m_Value ? "1" : "0"; }

void TBooleanData::unstringify(const std::string& text) {
  m_Value = parseBool(text);
  m_HasChanged = true;
}

std::string TFloatPairData::stringify() const {
  return formatFloat6(m_Value.first) + " " + formatFloat6(m_Value.second);
}

void TFloatPairData::unstringify(const std::string& text) {
  TTextReader r(text);
  float a = 0.0f;
  float b = 0.0f;
  if (!r.readFloat(a) || !r.readFloat(b)) throw TBadLexicalCast();
  m_Value = {a, b};
}

// ---------------------------------------------------------------------------
// TStringListData

void TStringListData::add(const std::string& text) {
  m_List.push_back(text);
  m_HasChanged = true;
}

void TStringListData::removeByValue(const std::string& text) {
  m_List.erase(std::remove(m_List.begin(), m_List.end(), text), m_List.end());
  m_HasChanged = true;
}

void TStringListData::removeByIndex(size_t index) {
  if (index >= m_List.size()) throw TFlowError("removeByIndex(): index out of range");
  m_List.erase(m_List.begin() + static_cast<long>(index));
  m_HasChanged = true;
}

void TStringListData::moveRelative(size_t index, int delta) {
  // The target, taken as an unsigned number, must lie inside the list.
  const size_t target = index + static_cast<size_t>(static_cast<long>(delta));
  if (target >= m_List.size() || index >= m_List.size()) return;
  std::string item = std::move(m_List[index]);
  m_List.erase(m_List.begin() + static_cast<long>(index));
  m_List.insert(m_List.begin() + static_cast<long>(target), std::move(item));
  m_HasChanged = true;
}

std::string TStringListData::stringify() const {
  std::string out;
  for (const auto& item : m_List) {
    out += ' ';
    out += std::to_string(item.size());
    out += ' ';
    out += item;
  }
  return out;
}

void TStringListData::unstringify(const std::string& text) {
  m_List.clear();
  TTextReader r(text);
  while (!r.atEnd()) {
    uint32_t length = 0;
    if (!r.readUInt32(length)) break;
    r.skipSpace();
    std::string item;
    if (!r.readBytes(length, item)) break;
    m_List.push_back(std::move(item));
  }
  m_HasChanged = true;
}

// ---------------------------------------------------------------------------
// TPythonData


TPythonData::TPythonData() : m_Object(TPyRef::none()) {}

TPythonData::TPythonData(TPyRef object) : m_Object(object ? std::move(object) : TPyRef::none()) {}

std::string TPythonData::toString() const {
  py::handle h = m_Object ? py::handle(m_Object.get()) : py::none();
  return py::str(h).cast<std::string>();
}

std::string TPythonData::stringify() const {
  py::handle h = m_Object ? py::handle(m_Object.get()) : py::none();
  return py::repr(h).cast<std::string>();
}

void TPythonData::unstringify(const std::string& text) {
  m_Object = TPyRef::steal(evalStoredLiteral(text));
}

TDatabaseData::TDatabaseData() : m_Database(TPyRef::none()) {}

// ---------------------------------------------------------------------------
// Sets and maps

void TIntegerSetData::setSingle(uint32_t id) {
  if (m_Set.size() == 1 && m_Set.contains(id)) return;
  m_Set.clear();
  m_Set.insert(id);
  m_HasChanged = true;
}

std::string TIntegerSetData::toString() const {
  if (m_ContainsAll) return "special: contains all\n";
  std::string out = "#items: " + std::to_string(m_Set.size()) + "\n";
  size_t n = 0;
  for (uint32_t id : m_Set) {
    if (n++ == 51) break;
    out += std::to_string(id);
    out += ',';
  }
  return out + "\n";
}

std::string TIntegerSetData::stringify() const {
  std::string out;
  for (uint32_t id : m_Set) {
    out += std::to_string(id);
    out += ' ';
  }
  return out;
}

void TIntegerSetData::unstringify(const std::string& text) {
  if (text.empty()) return;
  m_Set.clear();
  TTextReader r(text);
  uint32_t id = 0;
  while (r.readUInt32(id)) m_Set.insert(id);
}

std::string TIntegerPairSetData::toString() const {
  std::string out = "#items: " + std::to_string(m_Set.size()) + "\n";
  size_t n = 0;
  for (const auto& [a, b] : m_Set) {
    if (n++ == 51) break;
    out += std::to_string(a) + "," + std::to_string(b) + "\n";
  }
  return out;
}

int32_t TMapStringToIntegerData::get(const std::string& key, bool& found) const {
  auto it = m_Map.find(key);
  found = it != m_Map.end();
  return found ? it->second : 0;
}

std::string TMapStringToIntegerData::toString() const {
  std::string out;
  size_t n = 0;
  for (const auto& [key, value] : m_Map) {
    if (n++ == 51) break;
    out += key + "=" + std::to_string(value) + "\n";
  }
  return out + "\n";
}

// ---------------------------------------------------------------------------
// Arrays

void TDataArray::add(const TDataPtr& item) {
  m_HasChanged = true;
  const std::string key = item ? item->getKeyName() : std::string();
  m_KeyMap.emplace(key, item);
  m_Items.push_back(item);
}

TDataPtr TDataArray::getItemByIndex(size_t index, bool& found) const {
  found = index < m_Items.size();
  return found ? m_Items[index] : nullptr;
}

TDataPtr TDataArray::getItemByKey(const std::string& key, bool& found) const {
  for (const auto& item : m_Items) {
    if (item && item->getKeyName() == key) {
      found = true;
      return item;
    }
  }
  found = false;
  return nullptr;
}

size_t TDataArray::getIndexByKey(const std::string& key) const {
  for (size_t i = 0; i < m_Items.size(); ++i)
    if (m_Items[i] && m_Items[i]->getKeyName() == key) return i;
  throw TFlowError("Key not found");
}

std::string TDataArray::toString() const {
  std::string out = "Array contains " + std::to_string(m_Items.size()) + " items:\n";
  size_t n = 0;
  for (const auto& item : m_Items) {
    if (n++ == 50) break;
    out += item ? item->getKeyName() : std::string();
    out += ',';
  }
  return out + "\n";
}

std::string TStringDataArray::stringify() const {
  std::string out;
  for (const auto& item : m_Items) {
    std::string text = item ? item->stringify() : std::string();
    std::replace(text.begin(), text.end(), ' ', '\\');
    out += text;
    out += ' ';
  }
  return out;
}

void TStringDataArray::unstringify(const std::string& text) {
  m_Items.clear();
  m_KeyMap.clear();
  TTextReader r(text);
  std::string word;
  while (r.readWord(word)) {
    std::replace(word.begin(), word.end(), '\\', ' ');
    add(std::make_shared<TStringData>(word));
  }
}

std::string TFloatDataArray::stringify() const {
  std::string out;
  for (const auto& item : m_Items) {
    auto f = std::dynamic_pointer_cast<TFloatData>(item);
    out += formatFloat6(f ? f->m_Value : 0.0f);
    out += ' ';
  }
  return out;
}

void TFloatDataArray::unstringify(const std::string& text) {
  m_Items.clear();
  m_KeyMap.clear();
  TTextReader r(text);
  float v = 0.0f;
  while (r.readFloat(v)) add(std::make_shared<TFloatData>(v));
}

// ---------------------------------------------------------------------------

void registerValueClasses() {
  auto& reg = TDataRegistry::instance();
  reg.add<TAbstractData>("");
  reg.add<TIntegerData>("TAbstractData");
  reg.add<TFloatData>("TAbstractData");
  reg.add<TBooleanData>("TAbstractData");
  reg.add<TFloatPairData>("TAbstractData");
  reg.add<TStringData>("TAbstractData");
  reg.add<TStringListData>("TAbstractData");
  reg.add<TPythonData>("TAbstractData");
  reg.add<TIntegerSetData>("TAbstractData");
  reg.add<TIntegerPairSetData>("TAbstractData");
  reg.add<TMapStringToIntegerData>("TAbstractData");
  reg.addAbstract("TProcessorData", "TAbstractData");
  reg.add<TDatabaseData>("TAbstractData");
  reg.addAbstract("TInvocationData", "TAbstractData");
  reg.add<TSettingData>("TAbstractData");
  reg.add<TFloatSettingDataCpp>("TSettingData");
  reg.add<TFloatSettingData>("TFloatSettingDataCpp");
  reg.add<TDataArray>("TAbstractData");
  reg.add<TStringDataArray>("TDataArray");
  reg.add<TFloatDataArray>("TDataArray");
  reg.add<TPythonDataArray>("TDataArray");
  reg.add<TIntegerSetDataArray>("TDataArray");
  reg.add<TProcessorDataArray>("TDataArray");
  reg.add<THierarchyDataArray>("TDataArray");
  reg.add<TColorMapDataArray>("TDataArray");
  reg.add<TSettingDataArray>("TDataArray");
  reg.add<TAttributeDataArray>("TDataArray");
  reg.add<TBoolAttributeDataArray>("TDataArray");
  reg.add<TIntegerAttributeDataArray>("TDataArray");
  reg.add<TFloatAttributeDataArray>("TDataArray");
}

}  // namespace quorvel
