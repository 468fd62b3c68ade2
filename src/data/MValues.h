// The values that travel on pins: numbers, texts, lists, sets, script
// objects, references to processors and keyed arrays. The stringify texts
// are a file format: flow files store them.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "data/MIdContainers.h"
#include "engine/MFlowObjects.h"
#include "engine/MPyRef.h"

namespace quorvel {

template <class T>
class TTypedDataBase : public TAbstractData {
 public:
  TTypedDataBase() = default;
  explicit TTypedDataBase(const T& v) : m_Value(v) {}
  T m_Value{};
  const T& getValue() const { return m_Value; }
  // Sets the change flag on every call, also with the same value.
  void setValue(const T& v) {
    m_Value = v;
    m_HasChanged = true;
  }
};

class TIntegerData : public TTypedDataBase<int32_t> {
 public:
  QV_CLASS_NAME(TIntegerData)
  using TTypedDataBase::TTypedDataBase;
  std::string toString() const override { return stringify(); }
  std::string stringify() const override;
  void unstringify(const std::string& text) override;
};

class TFloatData : public TTypedDataBase<float> {
 public:
  QV_CLASS_NAME(TFloatData)
  using TTypedDataBase::TTypedDataBase;
  std::string toString() const override { return stringify(); }
  std::string stringify() const override;
  void unstringify(const std::string& text) override;
};

class TBooleanData : public TTypedDataBase<bool> {
 public:
  QV_CLASS_NAME(TBooleanData)
  using TTypedDataBase::TTypedDataBase;
  std::string toString() const override { return stringify(); }
  std::string stringify() const override;
  void unstringify(const std::string& text) override;
};

class TFloatPairData : public TTypedDataBase<std::pair<float, float>> {
 public:
  QV_CLASS_NAME(TFloatPairData)
  TFloatPairData() = default;
  TFloatPairData(float first, float second) : TTypedDataBase(std::make_pair(first, second)) {}
  float getFirst() const { return m_Value.first; }
  float getSecond() const { return m_Value.second; }
  std::string toString() const override { return stringify(); }
  std::string stringify() const override;
  void unstringify(const std::string& text) override;
};

class TStringData : public TAbstractData {
 public:
  QV_CLASS_NAME(TStringData)
  TStringData() = default;
  explicit TStringData(std::string text) : m_Value(std::move(text)) {}
  std::string m_Value;
  const std::string& getValue() const { return m_Value; }
  // An array of texts is searched by content: the key is the text itself.
  std::string getKeyName() const override { return m_Value; }
  std::string toString() const override { return m_Value; }
  std::string stringify() const override { return m_Value; }
  void unstringify(const std::string& text) override {
    m_Value = text;
    m_HasChanged = true;
  }
};

class TStringListData : public TAbstractData {
 public:
  QV_CLASS_NAME(TStringListData)
  std::vector<std::string> m_List;
  void add(const std::string& text);
  void removeByValue(const std::string& text);
  void removeByIndex(size_t index);
  void moveRelative(size_t index, int delta);
  std::string toString() const override { return stringify(); }
  std::string stringify() const override;
  void unstringify(const std::string& text) override;
};

// A script object on a pin. Its text form is the interpreter's repr, read
// back as plain data: nothing in a stored text is ever run.
class TPythonData : public TAbstractData {
 public:
  QV_CLASS_NAME(TPythonData)
  TPythonData();
  explicit TPythonData(TPyRef object);
  TPyRef m_Object;
  const TPyRef& getValue() const { return m_Object; }
  std::string toString() const override;
  std::string stringify() const override;
  void unstringify(const std::string& text) override;
};

class TIntegerSetData : public TAbstractData {
 public:
  QV_CLASS_NAME(TIntegerSetData)
  TIntegerSetData() = default;
  explicit TIntegerSetData(const std::string& keyname) { m_KeyName = keyname; }
  TIdSet m_Set;
  // "Contains all": contains() answers true for every id. No operation
  // turns it on; m_Set, getCount and stringify ignore it.
  bool m_ContainsAll = false;

  void add(uint32_t id) {
    if (m_Set.insert(id)) m_HasChanged = true;
  }
  void remove(uint32_t id) {
    if (m_Set.erase(id)) m_HasChanged = true;
  }
  void clear() {
    if (m_Set.empty()) return;
    m_Set.clear();
    m_HasChanged = true;
  }
  void setSingle(uint32_t id);
  size_t getCount() const { return m_Set.size(); }
  bool contains(uint32_t id) const { return m_ContainsAll || m_Set.contains(id); }
  std::string toString() const override;
  std::string stringify() const override;
  void unstringify(const std::string& text) override;
};

// A set's membership as one bit per id, for many look-ups in a large set:
// a search of millions of ids per look-up would wait on memory. Ids too
// sparse for bits are searched in the set.
class TIdSetBits {
 public:
  explicit TIdSetBits(const TIntegerSetData& set) : m_Set(set) {
    const std::vector<uint32_t>& ids = set.m_Set.ids();
    m_Largest = ids.empty() ? 0 : ids.back();
    m_Dense = !set.m_ContainsAll && m_Largest / 64 <= ids.size() + 1024;
    if (!m_Dense) return;
    m_Bits.assign(size_t{m_Largest} / 64 + 1, 0);
    for (uint32_t id : ids) m_Bits[id / 64] |= uint64_t{1} << (id % 64);
  }
  bool contains(uint32_t id) const {
    if (!m_Dense) return m_Set.contains(id);
    return id <= m_Largest && (m_Bits[id / 64] >> (id % 64) & 1);
  }

 private:
  const TIntegerSetData& m_Set;
  bool m_Dense = false;
  uint32_t m_Largest = 0;
  std::vector<uint64_t> m_Bits;
};

class TIntegerPairSetData : public TAbstractData {
 public:
  QV_CLASS_NAME(TIntegerPairSetData)
  std::set<std::pair<uint32_t, uint32_t>> m_Set;
  void addPair(uint32_t a, uint32_t b) {
    if (m_Set.emplace(a, b).second) m_HasChanged = true;
  }
  void remove(uint32_t a, uint32_t b) {
    if (m_Set.erase(std::make_pair(a, b))) m_HasChanged = true;
  }
  void clear() {
    if (m_Set.empty()) return;
    m_Set.clear();
    m_HasChanged = true;
  }
  std::string toString() const override;
};

class TMapStringToIntegerData : public TAbstractData {
 public:
  QV_CLASS_NAME(TMapStringToIntegerData)
  std::unordered_map<std::string, int32_t> m_Map;
  void put(const std::string& key, int32_t value) { m_Map[key] = value; }
  // 0 and found false for a missing key.
  int32_t get(const std::string& key, bool& found) const;
  void clear() { m_Map.clear(); }
  std::string toString() const override;
};

class TProcessorData : public TAbstractData {
 public:
  QV_CLASS_NAME(TProcessorData)
  TProcessorData(TProcessorPtr processor, const std::string& name) : m_Processor(std::move(processor)) {
    m_KeyName = name;
  }
  TProcessorPtr m_Processor;
  const TProcessorPtr& getValue() const { return m_Processor; }
};

class TDatabaseData : public TAbstractData {
 public:
  QV_CLASS_NAME(TDatabaseData)
  TDatabaseData();
  explicit TDatabaseData(TPyRef database) : m_Database(std::move(database)) {}
  TPyRef m_Database;
  const TPyRef& getValue() const { return m_Database; }
  std::string toString() const override { return "TDatabaseData.toString():\n"; }
};

// Marks a pin that only carries the fact of an invocation.
class TInvocationData : public TAbstractData {
 public:
  QV_CLASS_NAME(TInvocationData)
};

class TSettingData : public TAbstractData {
 public:
  QV_CLASS_NAME(TSettingData)
  TSettingData() = default;
  explicit TSettingData(const std::string& keyname) { m_KeyName = keyname; }
};

class TFloatSettingDataCpp : public TSettingData {
 public:
  QV_CLASS_NAME(TFloatSettingDataCpp)
  TFloatSettingDataCpp() = default;
  TFloatSettingDataCpp(const std::string& name, float value) : TSettingData(name), m_Value(value) {}
  float m_Value = 0.0f;
  float getValue() const { return m_Value; }
  void setValue(float v) {
    m_Value = v;
    m_HasChanged = true;
  }
};

// A float setting with what a settings panel needs: a help text, a range,
// and a script function called on change.
class TFloatSettingData : public TFloatSettingDataCpp {
 public:
  QV_CLASS_NAME(TFloatSettingData)
  TFloatSettingData() = default;
  TFloatSettingData(const std::string& name, std::string help, float value, float minimum, float maximum,
                    TPyRef onchange)
      : TFloatSettingDataCpp(name, value),
        m_HelpString(std::move(help)),
        m_Minimum(minimum),
        m_Maximum(maximum),
        m_OnChange(std::move(onchange)) {}
  std::string m_HelpString;
  float m_Minimum = 0.0f;
  float m_Maximum = 1.0f;
  TPyRef m_OnChange;
};

// ---------------------------------------------------------------------------
// Keyed arrays

class TDataArray : public TAbstractData {
 public:
  QV_CLASS_NAME(TDataArray)
  TDataArray() { m_IsArray = true; }
  std::vector<TDataPtr> m_Items;
  // The first item added under each key name.
  std::unordered_map<std::string, TDataPtr> m_KeyMap;

  virtual std::string getItemTypeName() const { return "TAbstractData"; }
  const std::vector<TDataPtr>* arrayItems() const override { return &m_Items; }

  void add(const TDataPtr& item);
  size_t getItemCount() const { return m_Items.size(); }
  // Null and found false beyond the end.
  TDataPtr getItemByIndex(size_t index, bool& found) const;
  // The first item, from the start, whose getKeyName() equals key.
  TDataPtr getItemByKey(const std::string& key, bool& found) const;
  // Raises "Key not found".
  size_t getIndexByKey(const std::string& key) const;
  std::string toString() const override;

  template <class T>
  std::shared_ptr<T> itemAs(size_t index) const {
    return index < m_Items.size() ? std::dynamic_pointer_cast<T>(m_Items[index]) : nullptr;
  }
  template <class T>
  std::shared_ptr<T> itemByKeyAs(const std::string& key) const {
    bool found = false;
    return std::dynamic_pointer_cast<T>(getItemByKey(key, found));
  }
};

// An array class holding items of one class.
#define QV_DATA_ARRAY(NAME, ITEMTYPE)                                        \
  class NAME : public TDataArray {                                           \
   public:                                                                   \
    QV_CLASS_NAME(NAME)                                                      \
    std::string getItemTypeName() const override { return ITEMTYPE; }       \
  };

class TStringDataArray : public TDataArray {
 public:
  QV_CLASS_NAME(TStringDataArray)
  std::string getItemTypeName() const override { return "TStringData"; }
  std::string stringify() const override;
  void unstringify(const std::string& text) override;
};

class TFloatDataArray : public TDataArray {
 public:
  QV_CLASS_NAME(TFloatDataArray)
  std::string getItemTypeName() const override { return "TFloatDataArray"; }
  std::string stringify() const override;
  void unstringify(const std::string& text) override;
};

QV_DATA_ARRAY(TPythonDataArray, "TPythonDataArray")
QV_DATA_ARRAY(TIntegerSetDataArray, "TIntegerSetData")
QV_DATA_ARRAY(TProcessorDataArray, "TProcessorData")
QV_DATA_ARRAY(THierarchyDataArray, "THierarchyData")
QV_DATA_ARRAY(TColorMapDataArray, "TColorMapData")
QV_DATA_ARRAY(TSettingDataArray, "TSettingData")
QV_DATA_ARRAY(TAttributeDataArray, "TAttributeDataArray")
QV_DATA_ARRAY(TBoolAttributeDataArray, "TBoolAttributeData")
QV_DATA_ARRAY(TIntegerAttributeDataArray, "TIntegerAttributeData")
QV_DATA_ARRAY(TFloatAttributeDataArray, "TFloatAttributeData")

// Enters every value class of this Part in the value registry.
void registerValueClasses();

}  // namespace quorvel
