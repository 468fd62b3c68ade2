// Compact containers keyed by 32-bit ids: the indexes of hierarchies, edges
// and attribute columns, and the id sets of selections. A dataset of a
// million nodes has several of each, so they are flat arrays rather than
// node-based standard containers.
#pragma once

#include <algorithm>
#include <bit>
#include <cstring>
#include <cstdint>
#include <iterator>
#include <memory>
#include <set>
#include <stdexcept>
#include <type_traits>
#include <vector>

namespace quorvel {

// Map from an integer key (32-bit ids, or pairs of them packed into 64 bits)
// to a 32-bit value such as a row number. While 32-bit keys are dense (none
// above about twice their count) the map is a table indexed by the key, 4
// bytes a slot, with 0xffffffff for "absent"; sparse keys, and that value,
// go to a hash with separate chaining kept in arrays and below a load
// factor of 1.0. Entries are never removed.
template <class V, class K = uint32_t>
class TIdHashMap {
  static_assert(std::is_same_v<V, uint32_t>, "values are 32-bit numbers");

 public:
  TIdHashMap() = default;

  size_t size() const { return m_Dense ? m_Count : m_Entries.size(); }
  bool empty() const { return size() == 0; }
  // Slots of the table: buckets of the hash, or keys below the largest.
  size_t bucketCount() const { return m_Table.size(); }
  float loadFactor() const { return m_Table.empty() ? 0.0f : float(size()) / float(m_Table.size()); }
  bool isDense() const { return m_Dense; }

  void clear() {
    m_Entries = {};
    m_Table = {};
    m_Dense = kCanBeDense;
    m_Count = 0;
    m_Reserved = 0;
    m_MaxKey = K{};
  }

  // Room for n entries: in the direct table, for the keys up to n, which
  // is where the ids of n rows mostly lie; the table grows within that room
  // before it grows by doubling.
  void reserve(size_t n) {
    m_Reserved = std::max(m_Reserved, n);
    if (m_Dense) {
      m_Table.reserve(n + 1);
      return;
    }
    m_Entries.reserve(n);
    if (n > m_Table.size()) rehash(n);
  }

  // Inserts the key, or gives the existing value a new one.
  void assign(K key, const V& value) {
    if (V* v = find(key)) {
      if (m_Dense && value == kNone) {
        makeSparse();
        *find(key) = value;
        return;
      }
      *v = value;
      return;
    }
    insertNew(key, value);
  }

  // The value for the key, inserted with `value` when the key is new.
  V& findOrInsert(K key, const V& value) {
    if (V* v = find(key)) return *v;
    insertNew(key, value);
    return *find(key);
  }

  V* find(K key) {
    if (m_Dense) {
      if (key >= m_Table.size()) return nullptr;
      V& v = m_Table[static_cast<size_t>(key)];
      return v == kNone ? nullptr : &v;
    }
    if (m_Table.empty()) return nullptr;
    for (uint32_t e = m_Table[slot(key)]; e != kNone; e = m_Entries[e].next)
      if (m_Entries[e].key == key) return &m_Entries[e].value;
    return nullptr;
  }
  const V* find(K key) const { return const_cast<TIdHashMap*>(this)->find(key); }
  bool contains(K key) const { return find(key) != nullptr; }

  size_t memoryBytes() const {
    return m_Entries.capacity() * sizeof(Entry) + m_Table.capacity() * sizeof(uint32_t);
  }

 private:
  static constexpr uint32_t kNone = 0xffffffffu;
  static constexpr bool kCanBeDense = sizeof(K) == 4;
  struct Entry {
    K key;
    uint32_t next;
    V value;
  };

  // Keys below this many stay in a direct table for n entries.
  size_t denseLimit(size_t n) const { return 2 * std::max(n, m_Reserved) + 1024; }

  size_t slot(K key) const {
    // Fibonacci hashing: spreads runs and strides of ids alike.
    if constexpr (sizeof(K) == 8)
      return static_cast<size_t>((static_cast<uint64_t>(key) * 0x9E3779B97F4A7C15ull) >> (m_Shift + 32));
    else
      return static_cast<size_t>((static_cast<uint32_t>(key) * 0x9E3779B1u) >> m_Shift);
  }

  void insertNew(K key, const V& value) {
    if (size() >= kNone) throw std::length_error("TIdHashMap: too many entries");
    m_MaxKey = empty() ? key : std::max(m_MaxKey, key);
    // Keys that became dense again, once the hash would grow.
    if (kCanBeDense && !m_Dense && value != kNone && m_Entries.size() + 1 > m_Table.size() &&
        static_cast<size_t>(m_MaxKey) < denseLimit(m_Entries.size() + 1))
      makeDense();
    if (m_Dense) {
      const size_t k = static_cast<size_t>(key);
      if (value == kNone || k >= denseLimit(m_Count + 1)) {
        makeSparse();
      } else {
        if (k >= m_Table.capacity())
          m_Table.resize(std::min(denseLimit(m_Count + 1), std::max(k + 1, m_Table.size() * 2)), kNone);
        else if (k >= m_Table.size())
          m_Table.resize(std::min(m_Table.capacity(), std::max(k + 1, m_Table.size() * 2)), kNone);
        m_Table[k] = value;
        ++m_Count;
        return;
      }
    }
    if (m_Entries.size() + 1 > m_Table.size()) rehash(std::max<size_t>(16, m_Table.size() * 2));
    const size_t s = slot(key);
    m_Entries.push_back(Entry{key, m_Table[s], value});
    m_Table[s] = static_cast<uint32_t>(m_Entries.size() - 1);
  }

  void makeDense() {
    std::vector<uint32_t> table(static_cast<size_t>(m_MaxKey) + 1, kNone);
    for (const Entry& e : m_Entries) table[static_cast<size_t>(e.key)] = e.value;
    m_Count = m_Entries.size();
    m_Entries = {};
    m_Table.swap(table);
    m_Dense = true;
  }

  void makeSparse() {
    std::vector<Entry> entries;
    entries.reserve(std::max(m_Count + 1, m_Reserved));
    for (size_t k = 0; k < m_Table.size(); ++k)
      if (m_Table[k] != kNone) entries.push_back(Entry{static_cast<K>(k), kNone, m_Table[k]});
    m_Entries.swap(entries);
    m_Dense = false;
    m_Count = 0;
    rehash(std::max<size_t>(16, m_Entries.size() + 1));
  }

  // Rebuilds the hash table for at least `atLeast` entries.
  void rehash(size_t atLeast) {
    size_t n = 16;
    unsigned bits = 4;
    while (n < atLeast) {
      n *= 2;
      ++bits;
    }
    if (bits > 32) throw std::length_error("TIdHashMap: too many entries");
    m_Shift = 32 - bits;
    m_Table.assign(n, kNone);
    for (uint32_t i = 0; i < m_Entries.size(); ++i) {
      const size_t s = slot(m_Entries[i].key);
      m_Entries[i].next = m_Table[s];
      m_Table[s] = i;
    }
  }

  std::vector<uint32_t> m_Table;
  std::vector<Entry> m_Entries;
  size_t m_Count = 0;  // entries of the direct table
  K m_MaxKey{};
  size_t m_Reserved = 0;
  unsigned m_Shift = 28;
  bool m_Dense = kCanBeDense;
};

// The index from id to row of a column, shared by columns whose rows hold
// the same ids in the same order (a column and its numeric form, copies of
// a column). The first change to a shared index copies it.
class TSharedIdIndex {
 public:
  using Map = TIdHashMap<uint32_t>;

  size_t size() const { return m_Map ? m_Map->size() : 0; }
  bool empty() const { return size() == 0; }
  const uint32_t* find(uint32_t id) const { return m_Map ? m_Map->find(id) : nullptr; }
  bool contains(uint32_t id) const { return find(id) != nullptr; }
  void assign(uint32_t id, uint32_t row) { own().assign(id, row); }
  void reserve(size_t n) { own().reserve(n); }
  void clear() { m_Map.reset(); }
  // Takes the other index, without copying it until one of them changes.
  void shareWith(const TSharedIdIndex& other) { m_Map = other.m_Map; }
  bool isSharedWith(const TSharedIdIndex& other) const { return m_Map && m_Map == other.m_Map; }

 private:
  Map& own() {
    if (!m_Map)
      m_Map = std::make_shared<Map>();
    else if (m_Map.use_count() > 1)
      m_Map = std::make_shared<Map>(*m_Map);
    return *m_Map;
  }
  std::shared_ptr<Map> m_Map;
};

// Ordered set of 32-bit ids: a sorted array, plus a small ordered buffer for
// ids that arrive out of order, merged into the array when it grows. Adding
// ids in ascending order costs an append; any read sees one sorted sequence.
class TIdSet {
 public:
  using const_iterator = std::vector<uint32_t>::const_iterator;

  TIdSet() = default;
  TIdSet(std::initializer_list<uint32_t> ids) {
    for (uint32_t id : ids) insert(id);
  }
  TIdSet(const TIdSet& other) : m_Sorted(other.ids()) {}
  TIdSet& operator=(const TIdSet& other) {
    if (this != &other) {
      m_Sorted = other.ids();
      m_Pending.reset();
    }
    return *this;
  }
  TIdSet(TIdSet&&) noexcept = default;
  TIdSet& operator=(TIdSet&&) noexcept = default;

  // True when the id was new.
  bool insert(uint32_t id) {
    if (!hasPending() && (m_Sorted.empty() || id > m_Sorted.back())) {
      m_Sorted.push_back(id);
      return true;
    }
    if (std::binary_search(m_Sorted.begin(), m_Sorted.end(), id)) return false;
    if (!m_Pending) m_Pending = std::make_unique<std::set<uint32_t>>();
    if (!m_Pending->insert(id).second) return false;
    if (m_Pending->size() > std::max<size_t>(4096, m_Sorted.size() / 8)) merge();
    return true;
  }

  // True when the id was present.
  bool erase(uint32_t id) {
    if (m_Pending && m_Pending->erase(id)) return true;
    auto it = std::lower_bound(m_Sorted.begin(), m_Sorted.end(), id);
    if (it == m_Sorted.end() || *it != id) return false;
    m_Sorted.erase(it);
    return true;
  }

  bool contains(uint32_t id) const {
    if (!m_Sorted.empty() && !m_Pending && m_Sorted.back() - m_Sorted.front() + 1 == m_Sorted.size())
      return id >= m_Sorted.front() && id <= m_Sorted.back();  // a run of ids without gaps
    return std::binary_search(m_Sorted.begin(), m_Sorted.end(), id) || (m_Pending && m_Pending->count(id) != 0);
  }
  size_t count(uint32_t id) const { return contains(id) ? 1 : 0; }
  size_t size() const { return m_Sorted.size() + (m_Pending ? m_Pending->size() : 0); }
  bool empty() const { return size() == 0; }
  void clear() {
    m_Sorted.clear();
    m_Pending.reset();
  }
  void reserve(size_t n) { m_Sorted.reserve(n); }
  void shrinkToFit() {
    if (hasPending()) merge();
    m_Sorted.shrink_to_fit();
  }

  // The ids in ascending order.
  const std::vector<uint32_t>& ids() const {
    if (hasPending()) const_cast<TIdSet*>(this)->merge();
    return m_Sorted;
  }
  const_iterator begin() const { return ids().begin(); }
  const_iterator end() const { return ids().end(); }

  bool operator==(const TIdSet& other) const { return ids() == other.ids(); }

 private:
  bool hasPending() const { return m_Pending && !m_Pending->empty(); }

  void merge() {
    std::vector<uint32_t> merged;
    merged.reserve(m_Sorted.size() + m_Pending->size());
    std::merge(m_Sorted.begin(), m_Sorted.end(), m_Pending->begin(), m_Pending->end(), std::back_inserter(merged));
    m_Sorted.swap(merged);
    m_Pending.reset();
  }

  std::vector<uint32_t> m_Sorted;
  // Ids that came out of order, not yet merged.
  std::unique_ptr<std::set<uint32_t>> m_Pending;
};

// A small ordered set of ids, as the records of aggregated edges hold, in
// eight bytes: one id stands inline, so most records need no allocation of
// their own; more ids live in a block of their own.
class TSmallIdSet {
 public:
  TSmallIdSet() = default;
  // The set of id when `present`, else the empty set, without a branch.
  TSmallIdSet(uint32_t id, bool present)
      : m_Word{kEmpty | static_cast<uint32_t>(present) << 1, id & (0u - static_cast<uint32_t>(present))} {}
  TSmallIdSet(const TSmallIdSet& o) { assign(o.begin(), o.end()); }
  TSmallIdSet& operator=(const TSmallIdSet& o) {
    if (this != &o) {
      clear();
      assign(o.begin(), o.end());
    }
    return *this;
  }
  TSmallIdSet(TSmallIdSet&& o) noexcept { take(o); }
  TSmallIdSet& operator=(TSmallIdSet&& o) noexcept {
    if (this != &o) {
      clear();
      take(o);
    }
    return *this;
  }
  ~TSmallIdSet() { clear(); }

  // True when the id was new.
  bool insert(uint32_t id) {
    const size_t n = size();
    const uint32_t* first = begin();
    if (n == 0 || id > first[n - 1]) {
      push(id);
      return true;
    }
    const uint32_t* at = std::lower_bound(first, first + n, id);
    if (at != first + n && *at == id) return false;
    const size_t pos = static_cast<size_t>(at - first);
    push(0);
    uint32_t* ids = data();
    std::copy_backward(ids + pos, ids + n, ids + n + 1);
    ids[pos] = id;
    return true;
  }
  bool contains(uint32_t id) const { return std::binary_search(begin(), end(), id); }
  size_t size() const { return isInline() ? m_Word[0] >> 1 : block()[0]; }
  bool empty() const { return size() == 0; }
  const uint32_t* begin() const { return const_cast<TSmallIdSet*>(this)->data(); }
  const uint32_t* end() const { return begin() + size(); }
  std::vector<uint32_t> ids() const { return std::vector<uint32_t>(begin(), end()); }
  bool operator==(const TSmallIdSet& o) const { return std::equal(begin(), end(), o.begin(), o.end()); }
  void clear() {
    if (!isInline()) delete[] block();
    m_Word[0] = kEmpty;
    m_Word[1] = 0;
  }

 private:
  static_assert(std::endian::native == std::endian::little, "the tag shares the pointer's low word");
  // An odd first word: the ids stand inline, at most one, in the second
  // word, and the first word counts them above its tag bit. Otherwise the
  // two words hold a pointer to a block: size, capacity, then the ids.
  static constexpr uint32_t kEmpty = 1;
  static constexpr uint32_t kHeader = 2;
  bool isInline() const { return (m_Word[0] & 1u) != 0; }
  uint32_t* block() const {
    uint32_t* b;
    std::memcpy(&b, m_Word, sizeof b);
    return b;
  }
  void setBlock(uint32_t* b) { std::memcpy(m_Word, &b, sizeof b); }
  uint32_t* data() { return isInline() ? &m_Word[1] : block() + kHeader; }
  static uint32_t* newBlock(uint32_t capacity, const uint32_t* ids, uint32_t n) {
    auto* b = new uint32_t[kHeader + capacity];
    b[0] = n;
    b[1] = capacity;
    std::copy(ids, ids + n, b + kHeader);
    return b;
  }
  void push(uint32_t id) {
    if (isInline()) {
      if (m_Word[0] == kEmpty) {
        m_Word[0] = kEmpty | 2u;
        m_Word[1] = id;
        return;
      }
      const uint32_t first[2] = {m_Word[1], id};
      setBlock(newBlock(4, first, 2));
      return;
    }
    uint32_t* b = block();
    if (b[0] == b[1]) {
      uint32_t* grown = newBlock(b[1] * 2, b + kHeader, b[0]);
      delete[] b;
      setBlock(grown);
      b = grown;
    }
    b[kHeader + b[0]++] = id;
  }
  void assign(const uint32_t* b, const uint32_t* e) {
    for (; b != e; ++b) push(*b);
  }
  void take(TSmallIdSet& o) {
    m_Word[0] = o.m_Word[0];
    m_Word[1] = o.m_Word[1];
    o.m_Word[0] = kEmpty;
    o.m_Word[1] = 0;
  }

  uint32_t m_Word[2] = {kEmpty, 0};
};

}  // namespace quorvel
