#include "MAttributeDerivation.h"

#include <algorithm>
#include <array>
#include <cfloat>
#include <functional>
#include <string_view>

#include "base/MParallel.h"
#include "engine/MRegistry.h"

namespace quorvel {

// ---------------------------------------------------------------------------
// ordnorm

namespace {

// A float column with the rows of `c`, each value made by `value(row)`.
template <class Column, class F>
std::shared_ptr<TFloatAttributeData> sameRowsAs(const Column& c, F value) {
  auto out = std::make_shared<TFloatAttributeData>(c.m_KeyName);
  out->m_Rows.resize(c.m_Rows.size());
  for (size_t r = 0; r < c.m_Rows.size(); ++r) out->m_Rows[r] = {c.m_Rows[r].id, value(r)};
  out->finishRowsLike(c);
  return out;
}

}  // namespace

// The numeric form has the column's rows in the column's order, so it
// shares the column's index.
std::shared_ptr<TFloatAttributeData> ordnorm(const TAttributeData& column) {
  const std::string type = column.getAttributeType();
  if (type == "string") {
    const auto& c = static_cast<const TStringAttributeData&>(column);
    uint32_t distinct = 0;
    const std::vector<uint32_t> ranks = c.textRanks(distinct);
    return sameRowsAs(c, [&ranks](size_t r) { return static_cast<float>(ranks[r]); });
  }
  if (type == "float") {
    const auto& c = static_cast<const TFloatAttributeData&>(column);
    return sameRowsAs(c, [&c](size_t r) { return c.m_Rows[r].value; });
  }
  if (type == "int") {
    const auto& c = static_cast<const TIntegerAttributeData&>(column);
    return sameRowsAs(c, [&c](size_t r) { return static_cast<float>(c.m_Rows[r].value); });
  }
  throw TFlowError("Unknown type");
}

void TAttributeNormalizerProcessor::postCreate() {
  m_In = addInputPin<TAttributeData>("in");
  m_Out = addOutputPin<TFloatAttributeData>("out");
}

void TAttributeNormalizerProcessor::process() {
  if (!haveChanged({m_In})) return;
  resetPins({m_In});
  auto in = dataAs<TAttributeData>(m_In);
  m_Memo.begin();
  m_Out->setData(in ? m_Memo.get(in, [&] { return ordnorm(*in); }) : nullptr);
  m_Memo.finish();
}

void TAttributeArrayNormalizerProcessor::postCreate() {
  m_In = addInputPin<TAttributeDataArray>("in");
  m_Out = addOutputPin<TFloatAttributeDataArray>("out");
}

void TAttributeArrayNormalizerProcessor::process() {
  if (!haveChanged({m_In})) return;
  resetPins({m_In});
  auto out = std::make_shared<TFloatAttributeDataArray>();
  m_Memo.begin();
  if (auto in = dataAs<TDataArray>(m_In)) {
    const auto& items = in->m_Items;
    std::vector<std::shared_ptr<TAttributeData>> columns;
    for (const auto& item : items) {
      columns.push_back(std::dynamic_pointer_cast<TAttributeData>(item));
      if (!columns.back()) throw TFlowError("Unknown type");
    }
    // The columns not kept from the last run are made first, on two
    // threads when they are large.
    std::vector<size_t> missing;
    size_t rows = 0;
    for (size_t i = 0; i < items.size(); ++i)
      if (!m_Memo.holds(items[i])) {
        missing.push_back(i);
        rows += columns[i]->getRowCount();
      }
    std::vector<std::shared_ptr<TFloatAttributeData>> made(items.size());
    auto make = [&](size_t k) { made[missing[k]] = ordnorm(*columns[missing[k]]); };
    if (missing.size() > 1 && rows >= m_RowsForTwoThreads) {
      runTasks(missing.size(), [&](size_t k, unsigned) { make(k); });
      returnFreedMemory();
    } else {
      for (size_t k = 0; k < missing.size(); ++k) make(k);
    }
    for (size_t i = 0; i < items.size(); ++i)
      out->add(m_Memo.get(items[i], [&] { return made[i]; }));
  }
  m_Memo.finish();
  m_Out->setData(out);
}

// ---------------------------------------------------------------------------
// Aggregates up the hierarchy

void TAttributeAggregator::postCreate() {
  m_In = addInputPin<TAttributeData>("in");
  m_Hierarchy = addInputPin<THierarchyData>("hierarchy");
  m_Function = addInputPin<TStringData>("aggregation function");
  m_Out = addOutputPin<TAttributeData>("out");
}

void TAttributeAggregator::process() {
  if (!m_In->getData() && m_Out->getData()) m_Out->setData(nullptr);
  if (requireData({m_In, m_Hierarchy})) {
    auto in = dataAs<TAttributeData>(m_In);
    auto h = dataAs<THierarchyData>(m_Hierarchy);
    auto fn = dataAs<TStringData>(m_Function);
    const std::string function = fn ? fn->getValue() : std::string();
    const std::string type = in->getAttributeType();
    if (type == "string") {
      m_Out->setData(nullptr);
    } else if (type == "float" || type == "int") {
      auto out = std::make_shared<TFloatAttributeData>(in->m_KeyName);
      m_Out->setData(out);
      for (const auto& row : h->m_Rows) {
        if (in->hasValueById(row.nid)) continue;
        float lo = FLT_MAX;
        float hi = -FLT_MAX;
        double sum = 0.0;
        size_t count = 0;
        for (uint32_t nid : h->getNidsBelowNid(row.nid)) {
          bool found = false;
          const float v = in->getFloatValueById(nid, found);
          if (!found) continue;
          lo = std::min(lo, v);
          hi = std::max(hi, v);
          sum += v;
          ++count;
        }
        if (count == 0) continue;
        float value = lo;
        if (function == "max") value = hi;
        else if (function == "sum") value = static_cast<float>(sum);
        else if (function == "avg") value = static_cast<float>(sum / static_cast<double>(count));
        out->addRow(row.nid, value);
      }
    }
  }
  resetPins({});
}

// ---------------------------------------------------------------------------
// Degrees, ids and edge captions

namespace {
// Sets `column` on `pin` unless the pin holds a column with the same rows.
template <class Column>
void setIfChanged(const TPinPtr& pin, const std::shared_ptr<Column>& column) {
  auto old = std::dynamic_pointer_cast<Column>(pin->getData());
  if (!old || !old->sameRows(*column)) pin->setData(column);
}
}  // namespace

void TFanAttributeProcessor::postCreate() {
  m_NodeSelection = addInputPin<TIntegerSetData>("node selection");
  m_EdgeSelection = addInputPin<TIntegerSetData>("edge selection");
  m_EdgeData = addInputPin<TEdgeData>("edge data");
  m_FanOut = addOutputPin<TIntegerAttributeData>("fan out");
  m_FanIn = addOutputPin<TIntegerAttributeData>("fan in");
}

void TFanAttributeProcessor::process() {
  resetPins({});
  if (!requireAllElseReset({m_NodeSelection, m_EdgeSelection, m_EdgeData})) return;
  auto nodes = dataAs<TIntegerSetData>(m_NodeSelection);
  const TIdSetBits edgeSelection(*dataAs<TIntegerSetData>(m_EdgeSelection));
  auto edges = dataAs<TEdgeData>(m_EdgeData);
  auto fanOut = std::make_shared<TIntegerAttributeData>("fan out (*)");
  auto fanIn = std::make_shared<TIntegerAttributeData>("fan in (*)");
  // Distinct neighbours over selected edges; nodes come in ascending order,
  // each once.
  std::vector<uint32_t> ends;
  auto count = [&](uint32_t nid, bool forward, TIntegerAttributeData& out) {
    ends.clear();
    auto note = [&](uint32_t row) {
      const TEdgeRow& e = edges->m_Rows[row];
      if (edgeSelection.contains(e.eid)) ends.push_back(forward ? e.tonid : e.fromnid);
    };
    if (forward)
      edges->forEachForwardRow(nid, note);
    else
      edges->forEachBackwardRow(nid, note);
    if (ends.empty()) return;
    std::sort(ends.begin(), ends.end());
    out.addRow(nid, static_cast<int32_t>(std::unique(ends.begin(), ends.end()) - ends.begin()));
  };
  for (uint32_t nid : nodes->m_Set) {
    count(nid, true, *fanOut);
    count(nid, false, *fanIn);
  }
  setIfChanged(m_FanOut, fanOut);
  setIfChanged(m_FanIn, fanIn);
}

void TIdAttributeProcessor::postCreate() {
  m_Selection = addInputPin<TIntegerSetData>("selection");
  m_Out = addOutputPin<TIntegerAttributeData>("out");
}

void TIdAttributeProcessor::process() {
  if (!requireAllElseReset({m_Selection})) return;
  resetPins({m_Selection});
  auto ids = std::make_shared<TIntegerAttributeData>("id (*)");
  const auto& set = dataAs<TIntegerSetData>(m_Selection)->m_Set;
  ids->reserve(set.size());
  for (uint32_t id : set) ids->addRow(id, static_cast<int32_t>(id));
  setIfChanged(m_Out, ids);
}

void TFromToAttributeCreator::postCreate() {
  m_Caption = addInputPin<TStringAttributeData>("caption attr");
  m_EdgeData = addInputPin<TEdgeData>("edge data");
  m_FromOut = addOutputPin<TStringAttributeData>("from out");
  m_ToOut = addOutputPin<TStringAttributeData>("to out");
}

void TFromToAttributeCreator::process() {
  if (!requireAllElseReset({m_Caption, m_EdgeData})) return;
  resetPins({m_Caption, m_EdgeData});
  // Captions are texts; a column of another type gives its values' texts.
  auto caption = dataAs<TAttributeData>(m_Caption);
  auto from = std::make_shared<TStringAttributeData>("from node");
  auto to = std::make_shared<TStringAttributeData>("to node");
  const auto& edges = dataAs<TEdgeData>(m_EdgeData)->m_Rows;
  if (auto texts = std::dynamic_pointer_cast<TStringAttributeData>(caption)) {
    // The captions' own texts, shared rather than copied, and ranked
    // through the captions' order.
    from->drawTextsFrom(texts);
    to->drawTextsFrom(texts);
    from->m_Rows.reserve(edges.size());
    to->m_Rows.reserve(edges.size());
    for (const TEdgeRow& e : edges) {
      if (const auto* s = texts->findStored(e.fromnid)) from->m_Rows.push_back({e.eid, *s});
      if (const auto* s = texts->findStored(e.tonid)) to->m_Rows.push_back({e.eid, *s});
    }
    from->finishRows();
    const bool sameIds = std::equal(from->m_Rows.begin(), from->m_Rows.end(), to->m_Rows.begin(), to->m_Rows.end(),
                                    [](const auto& a, const auto& b) { return a.id == b.id; });
    if (sameIds)
      to->finishRowsLike(*from);
    else
      to->finishRows();
  } else {
    bool found = false;
    for (const TEdgeRow& e : edges) {
      std::string text = caption->getTextValueById(e.fromnid, found);
      if (found) from->addRow(e.eid, text);
      text = caption->getTextValueById(e.tonid, found);
      if (found) to->addRow(e.eid, text);
    }
  }
  m_FromOut->setData(from);
  m_ToOut->setData(to);
}

// ---------------------------------------------------------------------------
// Icons

void TIconAttributeCreator::postCreate() {
  m_Icons = addInputPin<TMapStringToIntegerData>("icons");
  m_Attributes = addInputPin<TAttributeDataArray>("attributes");
  m_Output = addOutputPin<TIntegerAttributeDataArray>("output");
}

void TIconAttributeCreator::process() {
  if (!requireAllElseReset({m_Icons, m_Attributes})) return;
  {
    auto icons = dataAs<TMapStringToIntegerData>(m_Icons);
    auto out = std::make_shared<TIntegerAttributeDataArray>();
    // Columns made for another icon map are not kept.
    m_Memo.begin();
    if (m_MemoIcons.lock() != icons || m_MemoIconsGeneration != icons->m_HasChanged.generation()) m_Memo.forget();
    m_MemoIcons = icons;
    m_MemoIconsGeneration = icons->m_HasChanged.generation();
    // The lengths of the icons' names by their first byte, as bits: most
    // texts of a column of millions name no icon, and are passed over
    // without a look-up.
    std::array<uint64_t, 256> lengths{};
    for (const auto& [name, icon] : icons->m_Map) {
      const unsigned firstByte = name.empty() ? 0 : static_cast<unsigned char>(name[0]);
      lengths[firstByte] |= uint64_t{1} << std::min<size_t>(name.size(), 63);
    }
    auto mayName = [&lengths](std::string_view v) {
      return lengths[v.empty() ? 0 : static_cast<unsigned char>(v[0])] >> std::min<size_t>(v.size(), 63) & 1;
    };
    for (const auto& item : dataAs<TDataArray>(m_Attributes)->m_Items) {
      auto column = std::dynamic_pointer_cast<TStringAttributeData>(item);
      if (!column) continue;
      auto iconColumn = m_Memo.get(item, [&] {
        std::shared_ptr<TIntegerAttributeData> made;
        std::string text;
        for (size_t r = 0; r < column->getRowCount(); ++r) {
          const std::string_view v = column->viewByRow(r);
          if (!mayName(v)) continue;
          text.assign(v);
          auto it = icons->m_Map.find(text);
          if (it == icons->m_Map.end()) continue;
          if (!made) made = std::make_shared<TIntegerAttributeData>("icon for '" + column->m_KeyName + "'");
          made->addRow(column->getIdByRow(r), it->second);
        }
        return made;
      });
      if (iconColumn) out->add(iconColumn);
    }
    m_Memo.finish();
    m_Output->setData(out);
  }
  resetPins({});
}

// ---------------------------------------------------------------------------
// Union

void TAttributeUnion::postCreate() {
  m_In1 = addInputPin<TAttributeData>("in1");
  m_In2 = addInputPin<TAttributeData>("in2");
  m_Out = addOutputPin<TAttributeData>("out");
}

void TAttributeUnion::process() {
  resetPins({});
  auto in1 = dataAs<TAttributeData>(m_In1);
  auto in2 = dataAs<TAttributeData>(m_In2);
  if (!in1) {
    m_Out->setData(nullptr);
    return;
  }
  const std::string t1 = in1->getAttributeType();
  const std::string t2 = in2 ? in2->getAttributeType() : std::string();
  if (t1 == "string" && !in2) {
    m_Out->setData(in1);
    return;
  }
  std::shared_ptr<TAttributeData> out;
  if (t1 == "float" || t2 == "float")
    out = std::make_shared<TFloatAttributeData>(in1->m_KeyName);
  else if (t1 == "int" || t2 == "int")
    out = std::make_shared<TIntegerAttributeData>(in1->m_KeyName);
  else
    throw TFlowError(" TAttributeUnion::process(): Unsupported types");
  out->copyFrom(*in1);
  if (in2) out->copyFrom(*in2);
  m_Out->setData(out);
}

void registerDerivationProcessors() {
  auto& reg = TProcessorRegistry::instance();
  reg.add<TAttributeNormalizerProcessor>();
  reg.add<TAttributeArrayNormalizerProcessor>();
  reg.add<TAttributeAggregator>();
  reg.add<TFanAttributeProcessor>();
  reg.add<TIdAttributeProcessor>();
  reg.add<TFromToAttributeCreator>();
  reg.add<TIconAttributeCreator>();
  reg.add<TAttributeUnion>();
}

}  // namespace quorvel
