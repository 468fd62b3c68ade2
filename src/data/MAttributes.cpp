#include "MAttributes.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "base/MTextForm.h"

namespace quorvel {

// ---------------------------------------------------------------------------
// Base defaults

float TAttributeData::getFloatValueById(uint32_t, bool&) const {
  throw TFlowError("getFloatValueById() not implemented for this class");
}
void TAttributeData::copyValueFrom(const TAttributeData&, uint32_t) {
  throw TFlowError("copyValueFrom() not implemented");
}
void TAttributeData::copyFrom(const TAttributeData&) { throw TFlowError("copyFrom() not implemented"); }

// ---------------------------------------------------------------------------
// Text arena

std::string& TAttributeStore<std::string>::own() {
  if (m_Arena.use_count() > 1) {
    auto copy = std::make_shared<Arena>();
    copy->bytes = m_Arena->bytes;
    m_Arena = std::move(copy);
  } else {
    // The texts are about to change under the order.
    m_Arena->order.reset();
    m_Arena->ranks = {};
  }
  return m_Arena->bytes;
}

int64_t TAttributeStore<std::string>::TTextOrder::find(const Stored& s) const {
  const size_t word = s.offset >> 6;
  if (word >= starts.size() || !(starts[word] & (uint64_t{1} << (s.offset & 63)))) return -1;
  const uint32_t k = numberAt(s.offset);
  return length[k] == s.length ? int64_t{k} : int64_t{-1};
}

void TAttributeStore<std::string>::noteOrigin(const std::shared_ptr<const TStringAttributeData>& origin) {
  if (m_Arena->origin.expired()) m_Arena->origin = origin;
}

namespace {

// The rank of each text among the distinct texts, in byte order: one pass
// through an open-addressing table of the distinct texts, then a sort of
// those alone.
template <class ViewOf>
std::vector<uint32_t> rankTexts(size_t n, ViewOf viewOf, uint32_t& distinct) {
  std::vector<uint32_t> ofText(n);
  std::vector<std::string_view> texts;
  std::vector<size_t> hashes;
  size_t capacity = 16;
  while (capacity < 2 * n) capacity *= 2;
  std::vector<uint32_t> table(capacity, 0);  // distinct text + 1, or 0
  const std::hash<std::string_view> hasher;
  for (size_t r = 0; r < n; ++r) {
    const std::string_view text = viewOf(r);
    const size_t h = hasher(text);
    size_t slot = h & (capacity - 1);
    while (true) {
      const uint32_t t = table[slot];
      if (t == 0) {
        texts.push_back(text);
        hashes.push_back(h);
        table[slot] = static_cast<uint32_t>(texts.size());
        ofText[r] = static_cast<uint32_t>(texts.size() - 1);
        break;
      }
      if (hashes[t - 1] == h && texts[t - 1] == text) {
        ofText[r] = t - 1;
        break;
      }
      slot = (slot + 1) & (capacity - 1);
    }
  }
  std::vector<uint32_t> order(texts.size());
  for (uint32_t i = 0; i < order.size(); ++i) order[i] = i;
  std::sort(order.begin(), order.end(), [&texts](uint32_t a, uint32_t b) { return texts[a] < texts[b]; });
  std::vector<uint32_t> rank(texts.size());
  for (uint32_t i = 0; i < order.size(); ++i) rank[order[i]] = i;
  for (uint32_t& t : ofText) t = rank[t];
  distinct = static_cast<uint32_t>(texts.size());
  return ofText;
}

using TTextOrder = TAttributeStore<std::string>::TTextOrder;

// The texts that `rows` hold in `bytes`, numbered in the order of their
// offsets, with their lengths and without ranks; `offsets` gets each one's
// offset. Null when two rows hold texts of different lengths at one offset.
template <class Rows>
std::shared_ptr<TTextOrder> markTexts(std::string_view bytes, const Rows& rows, std::vector<uint32_t>& offsets) {
  auto order = std::make_shared<TTextOrder>();
  order->starts.assign(bytes.size() / 64 + 1, 0);
  for (const auto& row : rows) order->starts[row.value.offset >> 6] |= uint64_t{1} << (row.value.offset & 63);
  order->before.resize(order->starts.size());
  uint32_t count = 0;
  for (size_t w = 0; w < order->starts.size(); ++w) {
    order->before[w] = count;
    count += static_cast<uint32_t>(__builtin_popcountll(order->starts[w]));
  }
  constexpr uint32_t kUnset = UINT32_MAX;
  order->length.assign(count, kUnset);
  offsets.assign(count, 0);
  for (const auto& row : rows) {
    const auto& s = row.value;
    const uint32_t k = order->numberAt(s.offset);
    if (order->length[k] == kUnset) {
      order->length[k] = s.length;
      offsets[k] = s.offset;
    } else if (order->length[k] != s.length) {
      return nullptr;
    }
  }
  return order;
}

// The order of the texts that `rows` hold in `bytes`, or null as above.
template <class Rows>
std::shared_ptr<const TTextOrder> makeTextOrder(std::string_view bytes, const Rows& rows) {
  std::vector<uint32_t> offsets;
  auto order = markTexts(bytes, rows, offsets);
  if (!order) return nullptr;
  order->rank = rankTexts(
      offsets.size(), [&](size_t k) { return std::string_view(bytes.data() + offsets[k], order->length[k]); },
      order->distinct);
  return order;
}

// The same order from ranks already known: `ranks` by row of `rows`, among
// `distinct` texts.
template <class Rows>
std::shared_ptr<const TTextOrder> orderOfRanks(std::string_view bytes, const Rows& rows,
                                               const std::vector<uint32_t>& ranks, uint32_t distinct) {
  std::vector<uint32_t> offsets;
  auto order = markTexts(bytes, rows, offsets);
  if (!order) return nullptr;
  order->rank.resize(offsets.size());
  for (size_t r = 0; r < rows.size(); ++r) order->rank[order->numberAt(rows[r].value.offset)] = ranks[r];
  order->distinct = distinct;
  return order;
}

}  // namespace

const TTextOrder* TAttributeStore<std::string>::order(size_t rows) const {
  const std::lock_guard<std::mutex> hold(m_Arena->orderLock);
  if (!m_Arena->order) {
    auto origin = m_Arena->origin.lock();
    if (!origin || !origin->store().isSharedWith(*this) || origin->m_Rows.size() > rows) return nullptr;
    Arena::Ranks& known = m_Arena->ranks;
    if (known.column == origin->m_DataId && known.rows == origin->m_Rows.size() &&
        known.generation == origin->m_HasChanged.generation())
      m_Arena->order = orderOfRanks(m_Arena->bytes, origin->m_Rows, known.ranks, known.distinct);
    else
      m_Arena->order = makeTextOrder(m_Arena->bytes, origin->m_Rows);
    known = {};
  }
  return m_Arena->order.get();
}

void TAttributeStore<std::string>::keepRanks(uint32_t column, size_t rows, uint64_t generation,
                                             std::vector<uint32_t> ranks, uint32_t distinct) const {
  const std::lock_guard<std::mutex> hold(m_Arena->orderLock);
  if (!m_Arena->order) m_Arena->ranks = {column, rows, generation, std::move(ranks), distinct};
}

TAttributeStore<std::string>::Stored TAttributeStore<std::string>::put(std::string_view v) {
  std::string& arena = own();
  if (arena.size() + v.size() > std::numeric_limits<uint32_t>::max())
    throw TFlowError("string column too large");
  Stored s{static_cast<uint32_t>(arena.size()), static_cast<uint32_t>(v.size())};
  arena.append(v);
  return s;
}

void TAttributeStore<std::string>::replace(Stored& s, std::string_view v) {
  if (v.size() <= s.length) {
    // Fits in place.
    std::string& arena = own();
    std::copy(v.begin(), v.end(), arena.begin() + s.offset);
    s.length = static_cast<uint32_t>(v.size());
    return;
  }
  s = put(v);
}

// ---------------------------------------------------------------------------
// Comparison with the missing-value rule. NaN sorts above every number so
// that the order stays strict and weak.

namespace {

template <class V>
bool lessValue(const V& a, const V& b) {
  if constexpr (std::is_floating_point_v<V>) {
    if (std::isnan(a)) return false;
    if (std::isnan(b)) return true;
  }
  return a < b;
}

template <class V>
struct SortKey {
  bool has;
  V value;
  uint32_t id;
};

template <class V>
bool ascendingLess(const SortKey<V>& a, const SortKey<V>& b) {
  if (a.has && b.has) return lessValue(a.value, b.value);
  return !a.has && b.has;
}

template <class V>
bool descendingLess(const SortKey<V>& a, const SortKey<V>& b) {
  if (a.has && b.has) return lessValue(b.value, a.value);
  return a.has && !b.has;
}

template <class Column>
void sortIds(const Column& column, std::vector<uint32_t>& ids, bool ascending, bool stable) {
  using View = typename Column::View;
  std::vector<SortKey<View>> keys;
  keys.reserve(ids.size());
  for (uint32_t id : ids) {
    const auto* stored = column.findStored(id);
    keys.push_back(stored ? SortKey<View>{true, column.viewOf(*stored), id} : SortKey<View>{false, View{}, id});
  }
  auto cmp = ascending ? &ascendingLess<View> : &descendingLess<View>;
  if (stable)
    std::stable_sort(keys.begin(), keys.end(), cmp);
  else
    std::sort(keys.begin(), keys.end(), cmp);
  for (size_t i = 0; i < ids.size(); ++i) ids[i] = keys[i].id;
}

int32_t truncateToInt(float f) {
  if (std::isnan(f)) return 0;
  if (f >= 2147483647.0f) return std::numeric_limits<int32_t>::max();
  if (f <= -2147483648.0f) return std::numeric_limits<int32_t>::min();
  return static_cast<int32_t>(f);
}

bool isNumericType(const std::string& t) { return t == "float" || t == "int"; }

}  // namespace

// ---------------------------------------------------------------------------
// TTypedAttributeBase

template <class T>
TTypedAttributeBase<T>::TTypedAttributeBase() {
  resetExtremes();
}

template <class T>
void TTypedAttributeBase<T>::resetExtremes() {
  if constexpr (std::is_same_v<T, float>) {
    m_Minimum = FLT_MAX;
    m_Maximum = -FLT_MAX;
  } else if constexpr (std::is_same_v<T, int32_t>) {
    m_Minimum = 2147483647;
    m_Maximum = -2147483647;
  } else if constexpr (std::is_same_v<T, bool>) {
    m_Minimum = true;
    m_Maximum = false;
  } else {
    m_Minimum.clear();
    m_Maximum.clear();
  }
}

template <class T>
void TTypedAttributeBase<T>::noteExtremes(View v) {
  if constexpr (std::is_same_v<T, std::string>) {
    if (m_Rows.size() == 1) {
      m_Minimum = std::string(v);
      m_Maximum = std::string(v);
      return;
    }
    if (v < m_Minimum) m_Minimum = std::string(v);
    if (v > m_Maximum) m_Maximum = std::string(v);
  } else {
    if (v < m_Minimum) m_Minimum = v;
    if (v > m_Maximum) m_Maximum = v;
  }
}

template <class T>
void TTypedAttributeBase<T>::addRow(uint32_t id, const T& value) {
  m_Rows.push_back(Row{id, m_Store.put(value)});
  m_Index.assign(id, static_cast<uint32_t>(m_Rows.size() - 1));
  noteExtremes(m_Store.view(m_Rows.back().value));
  m_HasChanged = true;
}

template <class T>
void TTypedAttributeBase<T>::setValueById(uint32_t id, const T& value) {
  if (const uint32_t* row = m_Index.find(id)) {
    m_Store.replace(m_Rows[*row].value, value);
    m_HasChanged = true;
    return;
  }
  addRow(id, value);
}

template <class T>
T TTypedAttributeBase<T>::getValueById(uint32_t id, bool& found) const {
  const auto* stored = findStored(id);
  found = stored != nullptr;
  if (!found) return T{};
  return T(m_Store.view(*stored));
}

template <class T>
void TTypedAttributeBase<T>::sort(std::vector<uint32_t>& ids, bool ascending) const {
  sortIds(*this, ids, ascending, false);
}

template <class T>
void TTypedAttributeBase<T>::stable_sort(std::vector<uint32_t>& ids, bool ascending) const {
  sortIds(*this, ids, ascending, true);
}

template <class T>
std::string TTypedAttributeBase<T>::textOf(View v) {
  if constexpr (std::is_same_v<T, float>)
    return formatFloat9(v);
  else if constexpr (std::is_same_v<T, int32_t>)
    return std::to_string(v);
  else if constexpr (std::is_same_v<T, bool>)
    return v ? "1" : "0";
  else
    return std::string(v);
}

template <class T>
std::string TTypedAttributeBase<T>::scriptTextOf(View v) {
  if constexpr (std::is_same_v<T, float>)
    return formatScriptFloat(static_cast<double>(v));
  else if constexpr (std::is_same_v<T, int32_t>)
    return std::to_string(v);
  else if constexpr (std::is_same_v<T, bool>)
    return v ? "True" : "False";
  else
    return std::string(v);
}

template <class T>
std::string TTypedAttributeBase<T>::getTextValueById(uint32_t id, bool& found) const {
  const auto* stored = findStored(id);
  found = stored != nullptr;
  return found ? textOf(m_Store.view(*stored)) : std::string();
}

template <class T>
std::string TTypedAttributeBase<T>::getStringValueById(uint32_t id, bool& found) const {
  const auto* stored = findStored(id);
  found = stored != nullptr;
  return found ? scriptTextOf(m_Store.view(*stored)) : std::string();
}

template <class T>
std::string TTypedAttributeBase<T>::toString() const {
  std::string out = "#items: " + std::to_string(m_Rows.size()) + "\n";
  for (size_t i = 0; i < m_Rows.size() && i < 50; ++i)
    out += std::to_string(m_Rows[i].id) + " " + textOf(m_Store.view(m_Rows[i].value)) + "\n";
  return out;
}

template <class T>
std::string TTypedAttributeBase<T>::stringify() const {
  std::string out;
  for (const Row& row : m_Rows) {
    const View v = m_Store.view(row.value);
    out += ' ';
    out += std::to_string(row.id);
    out += ' ';
    if constexpr (std::is_same_v<T, float>) {
      out += formatFloat6(v);
    } else if constexpr (std::is_same_v<T, std::string>) {
      out += std::to_string(v.size());
      out += ' ';
      out += v;
      out += ' ';
    } else {
      out += textOf(v);
    }
  }
  return out;
}

template <class T>
void TTypedAttributeBase<T>::unstringify(const std::string& text) {
  m_Rows.clear();
  m_Store.clear();
  TTextReader r(text);
  while (!r.atEnd()) {
    uint32_t id = 0;
    if (!r.readUInt32(id)) break;
    if constexpr (std::is_same_v<T, float>) {
      float v = 0.0f;
      if (!r.readFloat(v)) break;
      m_Rows.push_back(Row{id, m_Store.put(v)});
    } else if constexpr (std::is_same_v<T, int32_t>) {
      int32_t v = 0;
      if (!r.readInt32(v)) break;
      m_Rows.push_back(Row{id, m_Store.put(v)});
    } else if constexpr (std::is_same_v<T, bool>) {
      uint32_t v = 0;
      if (!r.readUInt32(v) || v > 1) break;
      m_Rows.push_back(Row{id, m_Store.put(v == 1)});
    } else {
      uint32_t length = 0;
      if (!r.readUInt32(length)) break;
      r.skipSpace();
      std::string bytes;
      if (!r.readBytes(length, bytes)) break;
      m_Rows.push_back(Row{id, m_Store.put(bytes)});
    }
  }
  rebuildIndex();
  recomputeExtremes();
}

template <class T>
void TTypedAttributeBase<T>::recomputeExtremes() {
  resetExtremes();
  for (size_t i = 0; i < m_Rows.size(); ++i) {
    if constexpr (std::is_same_v<T, std::string>) {
      const View v = m_Store.view(m_Rows[i].value);
      if (i == 0 || v < m_Minimum) m_Minimum = std::string(v);
      if (i == 0 || v > m_Maximum) m_Maximum = std::string(v);
    } else {
      noteExtremes(m_Store.view(m_Rows[i].value));
    }
  }
}

template <class T>
void TTypedAttributeBase<T>::rebuildIndex() {
  m_Index.clear();
  m_Index.reserve(m_Rows.size());
  for (size_t i = 0; i < m_Rows.size(); ++i) m_Index.assign(m_Rows[i].id, static_cast<uint32_t>(i));
}

template <class T>
bool TTypedAttributeBase<T>::sameRows(const TTypedAttributeBase& other) const {
  if (m_Rows.size() != other.m_Rows.size()) return false;
  for (size_t i = 0; i < m_Rows.size(); ++i) {
    if (m_Rows[i].id != other.m_Rows[i].id) return false;
    if (!(m_Store.view(m_Rows[i].value) == other.m_Store.view(other.m_Rows[i].value))) return false;
  }
  return true;
}

template class TTypedAttributeBase<bool>;
template class TTypedAttributeBase<int32_t>;
template class TTypedAttributeBase<float>;
template class TTypedAttributeBase<std::string>;

// ---------------------------------------------------------------------------
// Bool

TAttributePtr TBoolAttributeData::createEmptyLike() const { return std::make_shared<TBoolAttributeData>(m_KeyName); }
void TBoolAttributeData::copyValueFrom(const TAttributeData&, uint32_t) {
  throw TFlowError("copyValueFrom() not implemented");
}
void TBoolAttributeData::copyFrom(const TAttributeData&) { throw TFlowError("copyFrom() not implemented"); }

void TBoolAttributeData::setAllValues(bool value) {
  for (Row& row : m_Rows) row.value = value;
  rebuildIndex();
  resetExtremes();
  if (!m_Rows.empty()) {
    m_Minimum = value;
    m_Maximum = value;
  }
  m_HasChanged = true;
}

size_t TBoolAttributeData::countValues(bool value) const {
  return static_cast<size_t>(
      std::count_if(m_Rows.begin(), m_Rows.end(), [value](const Row& r) { return r.value == value; }));
}

std::shared_ptr<TBoolAttributeData> TBoolAttributeData::clone() const {
  return std::make_shared<TBoolAttributeData>(*this);
}

// ---------------------------------------------------------------------------
// Integer

float TIntegerAttributeData::getFloatValueById(uint32_t id, bool& found) const {
  return static_cast<float>(getValueById(id, found));
}

TAttributePtr TIntegerAttributeData::createEmptyLike() const {
  return std::make_shared<TIntegerAttributeData>(m_KeyName);
}

void TIntegerAttributeData::copyValueFrom(const TAttributeData& source, uint32_t id) {
  if (!isNumericType(source.getAttributeType())) throw TFlowError("copyValueFrom(): cannot convert type");
  bool found = false;
  const float v = source.getFloatValueById(id, found);
  if (!found) return;
  if (source.getAttributeType() == "int") {
    setValueById(id, static_cast<const TIntegerAttributeData&>(source).getValueById(id, found));
    return;
  }
  setValueById(id, truncateToInt(v));
}

void TIntegerAttributeData::copyFrom(const TAttributeData& source) {
  if (!isNumericType(source.getAttributeType())) throw TFlowError("copyFrom(): cannot convert type");
  if (source.getAttributeType() == "int") {
    const auto& s = static_cast<const TIntegerAttributeData&>(source);
    for (size_t r = 0; r < s.getRowCount(); ++r) setValueById(s.getIdByRow(r), s.valueByRow(r));
    return;
  }
  const auto& s = static_cast<const TFloatAttributeData&>(source);
  for (size_t r = 0; r < s.getRowCount(); ++r) setValueById(s.getIdByRow(r), truncateToInt(s.valueByRow(r)));
}

std::vector<uint32_t> TIntegerAttributeData::getIdsWhereValueIs(int32_t value) const {
  std::vector<uint32_t> out;
  for (const Row& row : m_Rows)
    if (row.value == value) out.push_back(row.id);
  return out;
}

std::shared_ptr<std::map<int32_t, uint32_t>> TIntegerAttributeData::getUniqueValues() const {
  auto out = std::make_shared<std::map<int32_t, uint32_t>>();
  for (const Row& row : m_Rows) out->emplace(row.value, row.id);
  return out;
}

// ---------------------------------------------------------------------------
// Float

float TFloatAttributeData::getFloatValueById(uint32_t id, bool& found) const { return getValueById(id, found); }

TAttributePtr TFloatAttributeData::createEmptyLike() const {
  return std::make_shared<TFloatAttributeData>(m_KeyName);
}

void TFloatAttributeData::copyValueFrom(const TAttributeData& source, uint32_t id) {
  if (!isNumericType(source.getAttributeType())) throw TFlowError("copyValueFrom(): cannot convert type");
  bool found = false;
  const float v = source.getFloatValueById(id, found);
  if (found) setValueById(id, v);
}

void TFloatAttributeData::copyFrom(const TAttributeData& source) {
  if (!isNumericType(source.getAttributeType())) throw TFlowError("copyFrom(): cannot convert type");
  for (size_t r = 0; r < source.getRowCount(); ++r) {
    const uint32_t id = source.getIdByRow(r);
    bool found = false;
    const float v = source.getFloatValueById(id, found);
    if (found) setValueById(id, v);
  }
}

// ---------------------------------------------------------------------------
// String

TAttributePtr TStringAttributeData::createEmptyLike() const {
  return std::make_shared<TStringAttributeData>(m_KeyName);
}

void TStringAttributeData::copyValueFrom(const TAttributeData& source, uint32_t id) {
  bool found = false;
  const std::string text = source.getTextValueById(id, found);
  if (found) setValueById(id, text);
}

void TStringAttributeData::copyFrom(const TAttributeData& source) {
  if (source.getAttributeType() != "string") throw TFlowError("copyFrom(): cannot convert type");
  const auto& s = static_cast<const TStringAttributeData&>(source);
  for (size_t r = 0; r < s.getRowCount(); ++r) setValueById(s.getIdByRow(r), std::string(s.viewByRow(r)));
}

std::shared_ptr<std::map<std::string, uint32_t>> TStringAttributeData::getUniqueValues() const {
  auto out = std::make_shared<std::map<std::string, uint32_t>>();
  for (const Row& row : m_Rows) out->emplace(std::string(m_Store.view(row.value)), row.id);
  return out;
}

// ---------------------------------------------------------------------------
// Variant

void TVariantAttributeData::appendRow(uint32_t id, Kind kind, Value v) {
  m_Ids.push_back(id);
  m_Kinds.push_back(kind);
  m_Values.push_back(v);
  m_HasChanged = true;
}

void TVariantAttributeData::addText(uint32_t id, std::string_view text) {
  Value v{};
  v.s = m_Texts.put(text);
  appendRow(id, Kind::Text, v);
}

void TVariantAttributeData::addInt(uint32_t id, int32_t value) {
  Value v{};
  v.i = value;
  appendRow(id, Kind::Int, v);
  m_Minimum = std::min(m_Minimum, static_cast<float>(value));
  m_Maximum = std::max(m_Maximum, static_cast<float>(value));
}

void TVariantAttributeData::addFloat(uint32_t id, float value) {
  Value v{};
  v.f = value;
  appendRow(id, Kind::Float, v);
  if (!std::isnan(value)) {
    m_Minimum = std::min(m_Minimum, value);
    m_Maximum = std::max(m_Maximum, value);
  }
}

std::string TVariantAttributeData::rowText(size_t row) const {
  switch (m_Kinds[row]) {
    case Kind::Text:
      return std::string(m_Texts.view(m_Values[row].s));
    case Kind::Int:
      return std::to_string(m_Values[row].i);
    case Kind::Float:
      return formatFloat6(m_Values[row].f);
  }
  return {};
}

// ---------------------------------------------------------------------------
// Ranks of texts

std::vector<uint32_t> TStringAttributeData::textRanks(uint32_t& distinct) const {
  const size_t n = m_Rows.size();
  if (const TTextOrder* order = m_Store.order(n)) {
    // The ranks in the order, taken down to those of the texts used here.
    std::vector<uint32_t> ofRow(n);
    std::vector<uint32_t> dense(order->distinct, 0);
    bool held = true;
    for (size_t r = 0; r < n && held; ++r) {
      const int64_t k = order->find(m_Rows[r].value);
      held = k >= 0;
      if (held) {
        ofRow[r] = order->rank[static_cast<size_t>(k)];
        dense[ofRow[r]] = 1;
      }
    }
    if (held) {
      distinct = 0;
      for (uint32_t& d : dense) {
        const uint32_t used = d;
        d = distinct;
        distinct += used;
      }
      for (uint32_t& t : ofRow) t = dense[t];
      return ofRow;
    }
  }
  std::vector<uint32_t> ranks = rankTexts(n, [this](size_t r) { return viewByRow(r); }, distinct);
  // Columns drawn from this one later, the end captions of edges drawn
  // from node names, rank theirs through an order made from these ranks
  // instead of sorting the same texts again. Few texts over many rows rank
  // quickly anyway.
  if (2 * size_t{distinct} >= n) m_Store.keepRanks(m_DataId, n, m_HasChanged.generation(), ranks, distinct);
  return ranks;
}

void TStringAttributeData::drawTextsFrom(const std::shared_ptr<const TStringAttributeData>& source) {
  m_Store.shareWith(source->m_Store);
  m_Store.noteOrigin(source);
}

TAttributePtr TVariantAttributeData::convertToSpecific() const {
  return decide({this}, [](size_t) {});
}

TAttributePtr TVariantAttributeData::convertToSpecific(std::vector<std::shared_ptr<TVariantAttributeData>> parts) {
  std::vector<const TVariantAttributeData*> each;
  for (const auto& part : parts) each.push_back(part.get());
  return decide(each, [&parts](size_t k) { parts[k].reset(); });
}

// release(k) is called once part k is no longer read.
template <class Release>
TAttributePtr TVariantAttributeData::decide(const std::vector<const TVariantAttributeData*>& parts, Release release) {
  size_t texts = 0;
  size_t floats = 0;
  size_t ints = 0;
  size_t textBytes = 0;
  for (const TVariantAttributeData* part : parts) {
    for (Kind k : part->m_Kinds) {
      if (k == Kind::Text) ++texts;
      else if (k == Kind::Float) ++floats;
      else ++ints;
    }
    textBytes += part->m_Texts.bytes().size();
  }
  const size_t n = texts + floats + ints;
  if (n == 0) return nullptr;
  const std::string key = parts.front()->m_KeyName;
  // Calls f(part, row) for every row of every part, in order.
  auto eachRow = [&parts, &release](auto f) {
    for (size_t k = 0; k < parts.size(); ++k) {
      for (size_t i = 0; i < parts[k]->m_Ids.size(); ++i) f(*parts[k], i);
      release(k);
    }
  };
  if (texts == n) {
    // Only texts: a single part's arena is kept as it is; the arenas of
    // parts are joined into one, each part's texts moved by the bytes
    // before them.
    auto out = std::make_shared<TStringAttributeData>(key);
    TAttributeStore<std::string> store;
    if (parts.size() == 1)
      store = parts.front()->m_Texts;
    else
      store.reserve(textBytes);
    out->m_Rows.resize(n);
    size_t r = 0;
    for (size_t k = 0; k < parts.size(); ++k) {
      const TVariantAttributeData& part = *parts[k];
      const std::string_view bytes = part.m_Texts.bytes();
      const uint32_t shift = parts.size() == 1 || bytes.empty() ? 0 : store.put(bytes).offset;
      for (size_t i = 0; i < part.m_Ids.size(); ++i, ++r) {
        out->m_Rows[r] = {part.m_Ids[i], part.m_Values[i].s};
        out->m_Rows[r].value.offset += shift;
      }
      release(k);
    }
    out->shareStore(store);
    out->finishRows();
    return out;
  }
  if (texts > 0) {
    auto out = std::make_shared<TStringAttributeData>(key);
    out->reserve(n);
    eachRow([&out](const TVariantAttributeData& p, size_t i) { out->addRow(p.m_Ids[i], p.rowText(i)); });
    return out;
  }
  if (floats > 0) {
    auto out = std::make_shared<TFloatAttributeData>(key);
    out->reserve(n);
    eachRow([&out](const TVariantAttributeData& p, size_t i) {
      out->addRow(p.m_Ids[i], p.m_Kinds[i] == Kind::Float ? p.m_Values[i].f : static_cast<float>(p.m_Values[i].i));
    });
    return out;
  }
  auto out = std::make_shared<TIntegerAttributeData>(key);
  out->reserve(n);
  eachRow([&out](const TVariantAttributeData& p, size_t i) { out->addRow(p.m_Ids[i], p.m_Values[i].i); });
  return out;
}

std::map<std::string, size_t> TVariantAttributeData::getTextCounts() const {
  std::map<std::string, size_t> out;
  for (size_t i = 0; i < m_Ids.size(); ++i)
    if (m_Kinds[i] == Kind::Text) ++out[std::string(m_Texts.view(m_Values[i].s))];
  return out;
}

const uint32_t* TVariantAttributeData::findRow(uint32_t id) const {
  for (; m_Indexed < m_Ids.size(); ++m_Indexed) m_Index.assign(m_Ids[m_Indexed], static_cast<uint32_t>(m_Indexed));
  return m_Index.find(id);
}

void TVariantAttributeData::sort(std::vector<uint32_t>& ids, bool ascending) const {
  stable_sort(ids, ascending);
}

void TVariantAttributeData::stable_sort(std::vector<uint32_t>& ids, bool ascending) const {
  // Numbers before texts; numbers by value, texts by bytes.
  struct Key {
    int rank;
    float number;
    std::string text;
  };
  auto keyOf = [this](uint32_t id) {
    const uint32_t* row = findRow(id);
    if (!row) return Key{0, 0.0f, {}};
    switch (m_Kinds[*row]) {
      case Kind::Int:
        return Key{1, static_cast<float>(m_Values[*row].i), {}};
      case Kind::Float:
        return Key{1, m_Values[*row].f, {}};
      case Kind::Text:
        break;
    }
    return Key{2, 0.0f, std::string(m_Texts.view(m_Values[*row].s))};
  };
  std::vector<std::pair<Key, uint32_t>> keys;
  keys.reserve(ids.size());
  for (uint32_t id : ids) keys.emplace_back(keyOf(id), id);
  auto less = [](const Key& a, const Key& b) {
    if (a.rank != b.rank) return a.rank < b.rank;
    if (a.rank == 1) return lessValue(a.number, b.number);
    return a.text < b.text;
  };
  std::stable_sort(keys.begin(), keys.end(), [&](const auto& a, const auto& b) {
    const bool hasA = a.first.rank != 0;
    const bool hasB = b.first.rank != 0;
    if (ascending) return hasA && hasB ? less(a.first, b.first) : !hasA && hasB;
    return hasA && hasB ? less(b.first, a.first) : hasA && !hasB;
  });
  for (size_t i = 0; i < ids.size(); ++i) ids[i] = keys[i].second;
}

std::string TVariantAttributeData::getTextValueById(uint32_t id, bool& found) const {
  const uint32_t* row = findRow(id);
  found = row != nullptr;
  if (!found) return {};
  if (m_Kinds[*row] == Kind::Float) return formatFloat9(m_Values[*row].f);
  return rowText(*row);
}

std::string TVariantAttributeData::getStringValueById(uint32_t id, bool& found) const {
  const uint32_t* row = findRow(id);
  found = row != nullptr;
  if (!found) return {};
  if (m_Kinds[*row] == Kind::Float) return formatScriptFloat(static_cast<double>(m_Values[*row].f));
  return rowText(*row);
}

TAttributePtr TVariantAttributeData::createEmptyLike() const {
  return std::make_shared<TVariantAttributeData>(m_KeyName);
}
void TVariantAttributeData::copyValueFrom(const TAttributeData&, uint32_t) {
  throw TFlowError("copyValueFrom() not implemented");
}
void TVariantAttributeData::copyFrom(const TAttributeData&) { throw TFlowError("copyFrom() not implemented"); }

std::string TVariantAttributeData::toString() const {
  std::string out = "#items: " + std::to_string(m_Ids.size()) + "\n";
  for (size_t i = 0; i < m_Ids.size() && i < 50; ++i) {
    bool found = false;
    out += std::to_string(m_Ids[i]) + " " + getTextValueById(m_Ids[i], found) + "\n";
  }
  return out;
}

}  // namespace quorvel
