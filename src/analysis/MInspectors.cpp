#include "analysis/MInspectors.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <unordered_map>

#include "engine/MRegistry.h"

namespace quorvel {

namespace {

std::string format2(const char* form, double a, double b) {
  char buffer[128];
  std::snprintf(buffer, sizeof buffer, form, a, b);
  return buffer;
}

// Counts the texts of a column in an open-addressed table of 16-byte
// slots: a summary of a million ids reads a few thousand distinct texts
// over and over, and the table stays in the cache where a node-based map
// would miss it for each id.
class TTextCounter {
 public:
  using Stored = TAttributeStore<std::string>::Stored;
  explicit TTextCounter(const TStringAttributeData& column) : m_Column(column) {}
  void add(const Stored& stored) {
    if (4 * (m_Used + 1) > 3 * m_Slots.size()) grow();
    const std::string_view text = m_Column.viewOf(stored);
    const uint32_t h = hash(text);
    const size_t mask = m_Slots.size() - 1;
    for (size_t i = h & mask;; i = (i + 1) & mask) {
      Slot& slot = m_Slots[i];
      if (slot.count == 0) {
        slot = {stored, h, 1};
        ++m_Used;
        return;
      }
      if (slot.hash == h && slot.stored.length == stored.length &&
          (slot.stored.offset == stored.offset || same(m_Column.viewOf(slot.stored), text))) {
        ++slot.count;
        return;
      }
    }
  }
  void moveTo(std::vector<std::pair<std::string, size_t>>& out) const {
    for (const Slot& slot : m_Slots)
      if (slot.count) out.emplace_back(std::string(m_Column.viewOf(slot.stored)), slot.count);
  }

 private:
  struct Slot {
    Stored stored{0, 0};
    uint32_t hash = 0;
    uint32_t count = 0;
  };
  const TStringAttributeData& m_Column;
  std::vector<Slot> m_Slots;
  size_t m_Used = 0;

  // A text of up to eight bytes as one word, so that short texts of equal
  // length compare without a call.
  static uint64_t word(const char* p, size_t n) {
    uint64_t w = 0;
    if (n >= 8) {
      std::memcpy(&w, p, 8);
      return w;
    }
    for (size_t i = 0; i < n; ++i) w |= static_cast<uint64_t>(static_cast<unsigned char>(p[i])) << (8 * i);
    return w;
  }
  static uint32_t hash(std::string_view text) {
    uint64_t h = 1469598103934665603ull;  // FNV-1a
    for (unsigned char c : text) h = (h ^ c) * 1099511628211ull;
    return static_cast<uint32_t>(h ^ (h >> 32));
  }
  static bool same(std::string_view a, std::string_view b) {
    if (a.size() <= 8) return word(a.data(), a.size()) == word(b.data(), b.size());
    return a == b;
  }
  void grow() {
    std::vector<Slot> old = std::move(m_Slots);
    m_Slots.assign(std::max<size_t>(64, old.size() * 2), Slot{});
    const size_t mask = m_Slots.size() - 1;
    for (const Slot& slot : old)
      if (slot.count)
        for (size_t i = slot.hash & mask;; i = (i + 1) & mask)
          if (m_Slots[i].count == 0) {
            m_Slots[i] = slot;
            break;
          }
  }
};

// Counts the texts of a column over the ids. A column whose texts have an
// order counts by rank; any other by its stored texts.
void countTexts(const TStringAttributeData& column, const TIdSet& ids, TAttributeSummary& s) {
  const auto* order = column.store().order(column.getRowCount());
  if (order) {
    std::vector<size_t> byRank(order->distinct, 0);
    std::vector<TAttributeStore<std::string>::Stored> sample(order->distinct, {0, 0});
    for (uint32_t id : ids) {
      const auto* stored = column.findStored(id);
      if (!stored) {
        ++s.hasnotcount;
        continue;
      }
      ++s.hascount;
      const int64_t number = order->find(*stored);
      if (number < 0) {
        order = nullptr;  // a text the order does not know: count the slow way
        break;
      }
      const uint32_t rank = order->rank[static_cast<size_t>(number)];
      if (byRank[rank]++ == 0) sample[rank] = *stored;
    }
    if (order) {
      for (size_t r = 0; r < byRank.size(); ++r)
        if (byRank[r] != 0) s.strings.emplace_back(std::string(column.viewOf(sample[r])), byRank[r]);
      return;
    }
    s.hascount = s.hasnotcount = 0;
  }
  // The rows and their texts lie scattered: each id's row is fetched two
  // steps, and its text one step, ahead of its counting, so that the
  // fetches of many ids overlap. Each step reads its slot before the step
  // behind it fills that slot again.
  constexpr size_t kStep = 8;
  using Stored = TAttributeStore<std::string>::Stored;
  std::array<long, kStep> rows{};
  std::array<const Stored*, kStep> texts{};
  TTextCounter counts(column);
  const std::vector<uint32_t>& list = ids.ids();
  for (size_t i = 0; i < list.size() + 2 * kStep; ++i) {
    const size_t slot = i % kStep;
    if (i >= 2 * kStep) {
      if (const Stored* stored = texts[slot]) {
        ++s.hascount;
        counts.add(*stored);
      } else {
        ++s.hasnotcount;
      }
    }
    if (i >= kStep && i - kStep < list.size()) {
      const long row = rows[slot];
      const Stored* stored = row >= 0 ? &column.m_Rows[static_cast<size_t>(row)].value : nullptr;
      if (stored) __builtin_prefetch(column.viewOf(*stored).data());
      texts[slot] = stored;
    }
    if (i < list.size()) {
      const long row = column.getRowById(list[i]);
      if (row >= 0) __builtin_prefetch(&column.m_Rows[static_cast<size_t>(row)]);
      rows[slot] = row;
    }
  }
  counts.moveTo(s.strings);
}

template <class Column>
void countNumbers(const Column& column, const TIdSet& ids, TAttributeSummary& s) {
  for (uint32_t id : ids) {
    const auto* stored = column.findStored(id);
    if (!stored) {
      ++s.hasnotcount;
      continue;
    }
    ++s.hascount;
    const float v = static_cast<float>(*stored);
    s.min = std::min(s.min, v);
    s.max = std::max(s.max, v);
  }
}

void countOther(const TAttributeData& column, const TIdSet& ids, TAttributeSummary& s) {
  std::unordered_map<std::string, size_t> counts;
  for (uint32_t id : ids) {
    bool found = false;
    std::string text = column.getTextValueById(id, found);
    if (!found) {
      ++s.hasnotcount;
      continue;
    }
    ++s.hascount;
    ++counts[std::move(text)];
  }
  for (auto& [text, n] : counts) s.strings.emplace_back(text, n);
}

const TIdSet* idsOn(const TPinPtr& pin) {
  if (!pin) return nullptr;
  auto set = std::dynamic_pointer_cast<TIntegerSetData>(pin->getData());
  return set ? &set->m_Set : nullptr;
}

const TDataArray* arrayOn(const TPinPtr& pin) {
  return pin ? dynamic_cast<const TDataArray*>(pin->getData().get()) : nullptr;
}

}  // namespace

std::vector<TAttributeSummary> computeAggregation(const TDataArray& attributes, const TIdSet& selection) {
  std::vector<TAttributeSummary> out;
  out.reserve(attributes.getItemCount());
  for (const TDataPtr& item : attributes.m_Items) {
    auto* column = dynamic_cast<const TAttributeData*>(item.get());
    if (!column) continue;
    TAttributeSummary s;
    s.key = column->m_KeyName;
    if (auto* text = dynamic_cast<const TStringAttributeData*>(column)) {
      s.isString = true;
      countTexts(*text, selection, s);
    } else if (auto* f = dynamic_cast<const TFloatAttributeData*>(column)) {
      countNumbers(*f, selection, s);
    } else if (auto* i = dynamic_cast<const TIntegerAttributeData*>(column)) {
      countNumbers(*i, selection, s);
    } else if (auto* b = dynamic_cast<const TBoolAttributeData*>(column)) {
      countNumbers(*b, selection, s);
    } else {
      s.isString = true;
      countOther(*column, selection, s);
    }
    out.push_back(std::move(s));
  }
  return out;
}

std::string makeText(const std::string& nodeoredge, const TIdSet& selection, const TDataArray& attrs,
                     const TDataArray* aggattrs) {
  const size_t count = selection.size();
  if (count == 0) return {};
  std::string text;
  if (count == 1) {
    const uint32_t id = *selection.begin();
    size_t lines = 0;
    for (const TDataPtr& item : attrs.m_Items) {
      if (lines == 5) break;
      auto* column = dynamic_cast<const TAttributeData*>(item.get());
      if (!column) continue;
      ++lines;
      std::optional<std::string> value;
      if (aggattrs)
        for (const TDataPtr& agg : aggattrs->m_Items) {
          auto* a = dynamic_cast<const TAttributeData*>(agg.get());
          if (!a || a->m_KeyName != column->m_KeyName) continue;
          bool found = false;
          std::string v = a->getTextValueById(id, found);
          value = found ? std::optional<std::string>(v + "(aggregated)") : std::nullopt;
        }
      if (!value) {
        bool found = false;
        std::string v = column->getTextValueById(id, found);
        if (found) value = std::move(v);
      }
      text += column->m_KeyName + ": " + value.value_or("None") + "\n";
    }
    return text;
  }
  text = "Brushing " + std::to_string(count) + " " + nodeoredge + "s\n";
  for (TAttributeSummary& s : computeAggregation(attrs, selection)) {
    text += s.key + " (" + std::to_string(s.hascount) + "): ";
    if (s.hascount == 0) {
      text += "<none>\n";
    } else if (s.isString) {
      // The most frequent first; among equal counts by text, so that a
      // summary reads the same each time.
      std::sort(s.strings.begin(), s.strings.end(),
                [](const auto& a, const auto& b) { return a.second != b.second ? a.second > b.second : a.first < b.first; });
      const size_t shown = std::min<size_t>(s.strings.size(), 11);
      for (size_t i = 0; i < shown; ++i) text += s.strings[i].first + " (" + std::to_string(s.strings[i].second) + "), ";
      text += "\n";
    } else {
      text += format2("min: %.2f, max: %.2f\n", s.min, s.max);
    }
  }
  return text;
}

// ---------------------------------------------------------------------------

void TTooltipGeneratorBase::addPins(bool aggregated) {
  m_Attributes = addInputPin<TAttributeDataArray>("attributes");
  if (aggregated) m_AggregatedAttributes = addInputPin<TAttributeDataArray>("aggregated attributes");
  m_Selection = addInputPin<TIntegerSetData>("selection");
  m_TextOut = addOutputPin<TStringData>("text out");
}

std::vector<TAttributeSummary> TTooltipGeneratorBase::computeAggregation() const {
  const TDataArray* attrs = arrayOn(m_Attributes);
  const TIdSet* ids = idsOn(m_Selection);
  return attrs && ids ? quorvel::computeAggregation(*attrs, *ids) : std::vector<TAttributeSummary>{};
}

void TTooltipGeneratorBase::generate(const char* word) {
  if (!m_Attributes || !m_Selection || !m_TextOut) return;  // made without its pins
  const TDataArray* attrs = arrayOn(m_Attributes);
  const TIdSet* ids = idsOn(m_Selection);
  const bool changed = haveChanged({m_Attributes, m_Selection}) || (m_AggregatedAttributes && m_AggregatedAttributes->hasChanged());
  if (attrs && ids && changed)
    m_TextOut->setData(std::make_shared<TStringData>(
        makeText(word, *ids, *attrs, m_AggregatedAttributes ? arrayOn(m_AggregatedAttributes) : nullptr)));
  resetPins({});
}

// ---------------------------------------------------------------------------

std::vector<std::pair<std::string, std::string>> inspectorLines(const TIdSet& brushed, const TDataArray& attributes) {
  std::vector<std::pair<std::string, std::string>> lines;
  if (brushed.empty()) return lines;
  const uint32_t id = *brushed.begin();
  for (const TDataPtr& item : attributes.m_Items) {
    auto* column = dynamic_cast<const TAttributeData*>(item.get());
    if (!column) continue;
    bool found = false;
    std::string text = column->getTextValueById(id, found);
    lines.emplace_back(column->m_KeyName, found ? std::move(text) : "<none>");
  }
  return lines;
}

void TAttributeInspectorViewProcessorCpp::postCreate() {
  m_GuiParent = addInputPin<TPythonData>("gui parent");
  m_Brushed = addInputPin<TIntegerSetData>("brushed");
  m_Attributes = addInputPin<TAttributeDataArray>("attributes");
  // Where the inspector stands in a settings pane: its name and group.
  m_Settings = addInputPin<TPythonData>("settings");
}

// ---------------------------------------------------------------------------

std::vector<TLegendEntry> legendEntries(const TAttributeData* colorAttr, const TFloatAttributeData* ordnorm,
                                        const TColorMapData* colormap) {
  std::vector<TLegendEntry> out;
  if (!colorAttr || !colormap || !colormap->getColorMap()) return out;
  const TVector4 white{1, 1, 1, 1};
  if (auto* text = dynamic_cast<const TStringAttributeData*>(colorAttr)) {
    const auto unique = text->getUniqueValues();
    for (const auto& [value, id] : *unique) {
      if (out.size() == 50) break;
      TLegendEntry e{value, white};
      if (colormap->acceptsNominalValues()) {
        colormap->getColorForNominal(value, e.color);
      } else if (ordnorm) {
        bool found = false;
        const float v = ordnorm->getFloatValueById(id, found);
        if (found) colormap->getColor(v, e.color);
      }
      out.push_back(std::move(e));
    }
    return out;
  }
  float span = 0.0f;
  if (auto* f = dynamic_cast<const TFloatAttributeData*>(colorAttr))
    span = f->getMaximumValue() - f->getMinimumValue();
  else if (auto* i = dynamic_cast<const TIntegerAttributeData*>(colorAttr))
    span = static_cast<float>(i->getMaximumValue()) - static_cast<float>(i->getMinimumValue());
  else
    return out;
  for (int k = 0; k < 10; ++k) {
    float v = static_cast<float>(k) / 10.0f;
    if (span != 0.0f) v *= span;
    TLegendEntry e{format2("%g", v, 0), white};
    colormap->getColor(v, e.color);
    out.push_back(std::move(e));
  }
  return out;
}

void TColorMapInspectorCpp::postCreate() {
  m_Selection = addInputPin<TIntegerSetData>("selection");
  m_ColorAttr = addInputPin<TAttributeData>("color attr");
  m_ColorAttrOrdnorm = addInputPin<TFloatAttributeData>("color attr ordnorm");
  m_Colormap = addInputPin<TColorMapData>("colormap");
  m_Settings = addInputPin<TPythonData>("settings");
}

std::vector<TLegendEntry> TColorMapInspectorCpp::entries() const {
  if (!m_ColorAttr || !m_ColorAttrOrdnorm || !m_Colormap) return {};
  return legendEntries(dynamic_cast<const TAttributeData*>(m_ColorAttr->getData().get()),
                       dynamic_cast<const TFloatAttributeData*>(m_ColorAttrOrdnorm->getData().get()),
                       dynamic_cast<const TColorMapData*>(m_Colormap->getData().get()));
}

void TColorMapInspector::process_python() {
  const bool changed = m_Colormap->hasChanged() || m_Selection->hasChanged() || m_ColorAttr->hasChanged() ||
                       m_ColorAttrOrdnorm->hasChanged();
  if (changed && m_Selection->getData()) updatePanels();
  resetPins({});
}

void registerInspectorCores() {
  auto& reg = TProcessorRegistry::instance();
  reg.add<TTooltipTextGenerator>();
  reg.add<TEdgeTooltipTextGenerator>();
  reg.add<TAttributeInspectorViewProcessorCpp>();
  reg.add<TColorMapInspector>();
}

}  // namespace quorvel
