// Attribute columns: named, sparse columns of values over ids. A column has
// no sentinel for "no value": every lookup reports absence through a found
// flag.
#pragma once

#include <cfloat>
#include <climits>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "data/MIdContainers.h"
#include "engine/MFlowObjects.h"

namespace quorvel {

class TAttributeData;
class TStringAttributeData;
using TAttributePtr = std::shared_ptr<TAttributeData>;

class TAttributeData : public TAbstractData {
 public:
  static constexpr const char* kClassName = "TAttributeData";

  // "bool", "int", "float", "string" or "variant".
  virtual std::string getAttributeType() const = 0;
  // Sort ids by this column's values; an id without a value counts as less
  // than every value.
  virtual void sort(std::vector<uint32_t>& ids, bool ascending) const = 0;
  virtual void stable_sort(std::vector<uint32_t>& ids, bool ascending) const = 0;
  // The value in the text form of the stored values; "" when absent.
  virtual std::string getTextValueById(uint32_t id, bool& found) const = 0;
  // Only float and integer columns have it.
  virtual float getFloatValueById(uint32_t id, bool& found) const;
  // The value as the interpreter's str() makes it; "" when absent.
  virtual std::string getStringValueById(uint32_t id, bool& found) const = 0;
  virtual bool hasValueById(uint32_t id) const = 0;
  virtual TAttributePtr createEmptyLike() const = 0;
  virtual void copyValueFrom(const TAttributeData& source, uint32_t id);
  virtual void copyFrom(const TAttributeData& source);
  virtual size_t getRowCount() const = 0;
  virtual uint32_t getIdByRow(size_t row) const = 0;
};

// How a column keeps its values: numbers in the row, texts as references
// into one byte arena per column.
template <class T>
struct TAttributeStore {
  using Stored = T;
  using View = T;
  Stored put(const T& v) { return v; }
  View view(const Stored& s) const { return s; }
  void replace(Stored& s, const T& v) { s = v; }
  void clear() {}
};

// Texts live in an arena that columns holding the same texts share (a
// column decided from a loaded one, the end captions of edges); a column
// copies a shared arena before its first change to it.
template <>
struct TAttributeStore<std::string> {
  struct Stored {
    uint32_t offset;
    uint32_t length;
  };
  using View = std::string_view;

  // The byte order of the texts of one arena: which offsets start a text,
  // with its length and its rank among the distinct texts. Columns that
  // draw their texts from one column rank them through it with integers.
  struct TTextOrder {
    std::vector<uint64_t> starts;  // a bit for each arena offset
    std::vector<uint32_t> before;  // set bits in the words before each word
    std::vector<uint32_t> length;  // of each text, in the order of offsets
    std::vector<uint32_t> rank;
    uint32_t distinct = 0;
    // The number of the text stored at `s`, or -1 when the order does not
    // hold that text.
    int64_t find(const Stored& s) const;
    // The number of the text that starts at a marked offset: the marked
    // offsets below it.
    uint32_t numberAt(uint32_t offset) const {
      const size_t word = offset >> 6;
      const uint64_t below = (uint64_t{1} << (offset & 63)) - 1;
      return before[word] + static_cast<uint32_t>(__builtin_popcountll(starts[word] & below));
    }
  };

  Stored put(std::string_view v);
  View view(const Stored& s) const { return std::string_view(m_Arena->bytes.data() + s.offset, s.length); }
  void replace(Stored& s, std::string_view v);
  void clear() { m_Arena = std::make_shared<Arena>(); }
  // All texts, one after another at the offsets they are stored at.
  std::string_view bytes() const { return m_Arena->bytes; }
  void reserve(size_t bytes) { own().reserve(bytes); }
  // Takes the other store's texts, so that its Stored values are valid here.
  void shareWith(const TAttributeStore& other) { m_Arena = other.m_Arena; }
  bool isSharedWith(const TAttributeStore& other) const { return m_Arena == other.m_Arena; }
  // Notes the column that columns sharing these texts take them from.
  void noteOrigin(const std::shared_ptr<const TStringAttributeData>& origin);
  // The order of the texts, made once from the origin's rows while the
  // origin holds these texts and has no more rows than `rows`, so that
  // making it costs no more than ranking those rows alone; null otherwise.
  const TTextOrder* order(size_t rows) const;
  // Keeps the ranks a column sharing these texts made of its rows (the
  // column `column`, with `rows` rows in the state `generation`), so that
  // the order, when made from that column's rows, need not sort the texts
  // again.
  void keepRanks(uint32_t column, size_t rows, uint64_t generation, std::vector<uint32_t> ranks,
                 uint32_t distinct) const;

 private:
  struct Arena {
    std::string bytes;
    std::weak_ptr<const TStringAttributeData> origin;
    std::shared_ptr<const TTextOrder> order;
    struct Ranks {
      uint32_t column = 0;
      size_t rows = 0;
      uint64_t generation = 0;
      std::vector<uint32_t> ranks;
      uint32_t distinct = 0;
    } ranks;
    // Columns that share the texts may be ranked on two threads at once:
    // one makes the order, the other waits for it.
    std::mutex orderLock;
  };
  std::string& own();
  std::shared_ptr<Arena> m_Arena = std::make_shared<Arena>();
};

template <class T>
class TTypedAttributeBase : public TAttributeData {
 public:
  using Store = TAttributeStore<T>;
  using View = typename Store::View;
  struct Row {
    uint32_t id;
    typename Store::Stored value;
  };

  TTypedAttributeBase();
  explicit TTypedAttributeBase(const std::string& key) : TTypedAttributeBase() { m_KeyName = key; }

  std::vector<Row> m_Rows;
  TSharedIdIndex m_Index;
  T m_Minimum;
  T m_Maximum;

  // Appends a row; a second row of an id takes over the index.
  void addRow(uint32_t id, const T& value);
  // Overwrites the id's value (minimum and maximum stay), or adds a row.
  void setValueById(uint32_t id, const T& value);
  // The type's zero and found false when absent.
  T getValueById(uint32_t id, bool& found) const;
  // The value without copying; valid until the column changes.
  const typename Store::Stored* findStored(uint32_t id) const {
    const uint32_t* row = m_Index.find(id);
    return row ? &m_Rows[*row].value : nullptr;
  }
  View viewOf(const typename Store::Stored& s) const { return m_Store.view(s); }
  View viewByRow(size_t row) const { return m_Store.view(m_Rows[row].value); }
  T valueByRow(size_t row) const { return T(m_Store.view(m_Rows[row].value)); }
  const T& getMinimumValue() const { return m_Minimum; }
  const T& getMaximumValue() const { return m_Maximum; }

  size_t getRowCount() const override { return m_Rows.size(); }
  uint32_t getIdByRow(size_t row) const override { return m_Rows[row].id; }
  bool hasValueById(uint32_t id) const override { return m_Index.contains(id); }
  // The row of the id's value, or -1.
  long getRowById(uint32_t id) const {
    const uint32_t* row = m_Index.find(id);
    return row ? static_cast<long>(*row) : -1;
  }
  // True when no id has a second row, so that a row holds its id's value.
  bool idsUnique() const { return m_Index.size() == m_Rows.size(); }
  void sort(std::vector<uint32_t>& ids, bool ascending) const override;
  void stable_sort(std::vector<uint32_t>& ids, bool ascending) const override;
  std::string getTextValueById(uint32_t id, bool& found) const override;
  std::string getStringValueById(uint32_t id, bool& found) const override;
  std::string toString() const override;
  std::string stringify() const override;
  void unstringify(const std::string& text) override;
  void rebuildIndex() override;

  // After rows were put into m_Rows directly, with the same ids in the same
  // order as `source`'s: takes its index and computes the extremes.
  template <class U>
  void finishRowsLike(const TTypedAttributeBase<U>& source) {
    m_Index.shareWith(source.m_Index);
    recomputeExtremes();
    m_HasChanged = true;
  }
  // After rows were put into m_Rows directly: indexes them and computes the
  // extremes.
  void finishRows() {
    rebuildIndex();
    recomputeExtremes();
    m_HasChanged = true;
  }
  // Takes the texts of `source`, so that its stored values can be put into
  // m_Rows as they are.
  void shareTextsOf(const TTypedAttributeBase& source) { shareStore(source.m_Store); }
  void shareStore(const Store& store) {
    if constexpr (std::is_same_v<T, std::string>) m_Store.shareWith(store);
  }
  bool sharesTextsOf(const TTypedAttributeBase& source) const {
    if constexpr (std::is_same_v<T, std::string>) return m_Store.isSharedWith(source.m_Store);
    return false;
  }
  // The rows hold the same ids and values in the same order.
  bool sameRows(const TTypedAttributeBase& other) const;
  void reserve(size_t n) {
    m_Rows.reserve(n);
    m_Index.reserve(n);
  }

  // The text forms of one value.
  static std::string textOf(View v);
  static std::string scriptTextOf(View v);

 protected:
  void resetExtremes();
  void noteExtremes(View v);
  void recomputeExtremes();
  Store m_Store;
};

class TBoolAttributeData : public TTypedAttributeBase<bool> {
 public:
  QV_CLASS_NAME(TBoolAttributeData)
  using TTypedAttributeBase::TTypedAttributeBase;
  std::string getAttributeType() const override { return "bool"; }
  TAttributePtr createEmptyLike() const override;
  void copyValueFrom(const TAttributeData& source, uint32_t id) override;
  void copyFrom(const TAttributeData& source) override;
  void setAllValues(bool value);
  size_t countValues(bool value) const;
  // A full copy with this column's m_DataId and m_HasChanged.
  std::shared_ptr<TBoolAttributeData> clone() const;
};

class TIntegerAttributeData : public TTypedAttributeBase<int32_t> {
 public:
  QV_CLASS_NAME(TIntegerAttributeData)
  using TTypedAttributeBase::TTypedAttributeBase;
  std::string getAttributeType() const override { return "int"; }
  float getFloatValueById(uint32_t id, bool& found) const override;
  TAttributePtr createEmptyLike() const override;
  void copyValueFrom(const TAttributeData& source, uint32_t id) override;
  void copyFrom(const TAttributeData& source) override;
  std::vector<uint32_t> getIdsWhereValueIs(int32_t value) const;
  // Each distinct value, ascending, with the id of the first row holding it.
  std::shared_ptr<std::map<int32_t, uint32_t>> getUniqueValues() const;
};

class TFloatAttributeData : public TTypedAttributeBase<float> {
 public:
  QV_CLASS_NAME(TFloatAttributeData)
  using TTypedAttributeBase::TTypedAttributeBase;
  std::string getAttributeType() const override { return "float"; }
  float getFloatValueById(uint32_t id, bool& found) const override;
  TAttributePtr createEmptyLike() const override;
  void copyValueFrom(const TAttributeData& source, uint32_t id) override;
  void copyFrom(const TAttributeData& source) override;
};

class TStringAttributeData : public TTypedAttributeBase<std::string> {
 public:
  QV_CLASS_NAME(TStringAttributeData)
  using TTypedAttributeBase::TTypedAttributeBase;
  std::string getAttributeType() const override { return "string"; }
  TAttributePtr createEmptyLike() const override;
  void copyValueFrom(const TAttributeData& source, uint32_t id) override;
  void copyFrom(const TAttributeData& source) override;
  std::shared_ptr<std::map<std::string, uint32_t>> getUniqueValues() const;
  // The rank of each row's text among the column's distinct texts, in byte
  // order, by row; `distinct` gets their number.
  std::vector<uint32_t> textRanks(uint32_t& distinct) const;
  // Takes the texts of `source`, for a column whose rows will hold only
  // values of `source`'s rows: the two rank their texts through one order.
  void drawTextsFrom(const std::shared_ptr<const TStringAttributeData>& source);
  const Store& store() const { return m_Store; }
};

// The column of undecided type that exists while a dataset loads. Values are
// texts, 32-bit integers or 32-bit floats.
class TVariantAttributeData : public TAttributeData {
 public:
  QV_CLASS_NAME(TVariantAttributeData)
  enum class Kind : uint8_t { Text, Int, Float };

  TVariantAttributeData() = default;
  explicit TVariantAttributeData(const std::string& key) { m_KeyName = key; }

  float m_Minimum = FLT_MAX;
  float m_Maximum = -FLT_MAX;

  void addText(uint32_t id, std::string_view text);
  void addInt(uint32_t id, int32_t value);
  void addFloat(uint32_t id, float value);
  // The decided column, or null when there are no rows.
  TAttributePtr convertToSpecific() const;
  // The decided column of the rows of `parts` one after another, as one
  // column that held them all would decide it; null when there are none.
  // Each part goes as soon as its rows are taken, so that the rows are not
  // held twice over.
  static TAttributePtr convertToSpecific(std::vector<std::shared_ptr<TVariantAttributeData>> parts);
  // How many rows hold each text.
  std::map<std::string, size_t> getTextCounts() const;
  Kind kindByRow(size_t row) const { return m_Kinds[row]; }

  std::string getAttributeType() const override { return "variant"; }
  void sort(std::vector<uint32_t>& ids, bool ascending) const override;
  void stable_sort(std::vector<uint32_t>& ids, bool ascending) const override;
  std::string getTextValueById(uint32_t id, bool& found) const override;
  std::string getStringValueById(uint32_t id, bool& found) const override;
  bool hasValueById(uint32_t id) const override { return findRow(id) != nullptr; }
  TAttributePtr createEmptyLike() const override;
  void copyValueFrom(const TAttributeData& source, uint32_t id) override;
  void copyFrom(const TAttributeData& source) override;
  size_t getRowCount() const override { return m_Ids.size(); }
  uint32_t getIdByRow(size_t row) const override { return m_Ids[row]; }
  std::string toString() const override;

 private:
  union Value {
    int32_t i;
    float f;
    TAttributeStore<std::string>::Stored s;
  };
  void appendRow(uint32_t id, Kind kind, Value v);
  template <class Release>
  static TAttributePtr decide(const std::vector<const TVariantAttributeData*>& parts, Release release);
  std::string rowText(size_t row) const;
  // The index is built on the first lookup: loading only appends.
  const uint32_t* findRow(uint32_t id) const;

  std::vector<uint32_t> m_Ids;
  std::vector<Kind> m_Kinds;
  std::vector<Value> m_Values;
  TAttributeStore<std::string> m_Texts;
  mutable TIdHashMap<uint32_t> m_Index;
  mutable size_t m_Indexed = 0;
};

}  // namespace quorvel
