#include "MCollapse.h"

#include <pybind11/pybind11.h>

#include <algorithm>
#include <climits>

#include "engine/MMediator.h"
#include "engine/MRegistry.h"

namespace py = pybind11;

namespace quorvel {

// ---------------------------------------------------------------------------
// Levels

std::shared_ptr<TIntegerAttributeData> extractLevels(const THierarchyData& h) {
  auto levels = std::make_shared<TIntegerAttributeData>("level (*)");
  if (h.m_Rows.empty()) return levels;
  levels->reserve(h.m_Rows.size());
  struct Open {
    uint32_t lft;
    uint32_t rgt;
    int32_t level;
  };
  std::vector<Open> stack{{h.m_Rows[0].lft, h.m_Rows[0].rgt, 0}};
  levels->addRow(h.m_Rows[0].nid, 0);
  for (size_t i = 1; i < h.m_Rows.size(); ++i) {
    const THierarchyRow& row = h.m_Rows[i];
    while (!stack.empty() && !(stack.back().lft <= row.lft && row.rgt <= stack.back().rgt)) stack.pop_back();
    const int32_t level = stack.empty() ? 1 : stack.back().level + 1;
    stack.push_back({row.lft, row.rgt, level});
    levels->addRow(row.nid, level);
  }
  return levels;
}

void THierarchyLevelExtractor::postCreate() {
  m_Hierarchy = addInputPin<THierarchyData>("hierarchy");
  m_Out = addOutputPin<TIntegerAttributeData>("out");
}

void THierarchyLevelExtractor::process() {
  if (auto h = dataAs<THierarchyData>(m_Hierarchy)) {
    m_Out->setData(extractLevels(*h));
    resetPins({m_Hierarchy});
  }
}

// ---------------------------------------------------------------------------
// The first collapsed state

void TCollapsedStateInitializer::postCreate() {
  m_Hierarchy = addInputPin<THierarchyData>("hierarchy");
  m_LevelAttr = addInputPin<TIntegerAttributeData>("level attr");
  m_Settings = addInputPin<TPythonData>("settings");
  m_Out = addOutputPin<TBoolAttributeData>("out");
  m_HierarchyOut = addOutputPin<THierarchyData>("hierarchy out");
}

TExpandChoice parseExpandChoice(const TPinPtr& settings) {
  TExpandChoice choice;
  auto value = dataAs<TPythonData>(settings);
  if (!value || !value->getValue()) return choice;
  py::handle dict(value->getValue().get());
  if (!py::isinstance<py::dict>(dict)) return choice;
  py::dict d = py::reinterpret_borrow<py::dict>(dict);
  if (d.contains("expandlevel")) {
    py::object level = d["expandlevel"];
    if (py::isinstance<py::str>(level) && level.cast<std::string>() == "auto") {
      choice.automatic = true;
    } else if (py::isinstance<py::int_>(level) && !py::isinstance<py::bool_>(level)) {
      const long long v = level.cast<long long>();
      choice.level = static_cast<int32_t>(std::clamp<long long>(v, INT_MIN, INT_MAX));
    } else {
      choice.problem = "collapse settings: 'expandlevel' is " + std::string(py::repr(level)) +
                       ", neither a whole number nor 'auto'; every node starts unfolded";
    }
  }
  if (d.contains("budget")) {
    py::object budget = d["budget"];
    const bool number = py::isinstance<py::int_>(budget) && !py::isinstance<py::bool_>(budget);
    const long long v = number ? budget.cast<long long>() : 0;
    if (number && v > 0)
      choice.budget = v;
    else
      choice.problem = "collapse settings: 'budget' is " + std::string(py::repr(budget)) +
                       ", not a positive whole number; the budget is 1000 nodes";
  }
  return choice;
}

int32_t chooseExpandLevel(const std::vector<size_t>& nodesPerLevel, int64_t budget) {
  // At level L the first L + 2 levels show; the count only grows with L.
  size_t visible = nodesPerLevel.empty() ? 0 : nodesPerLevel[0];
  int32_t chosen = 0;
  for (size_t next = 1; next < nodesPerLevel.size(); ++next) {
    visible += nodesPerLevel[next];
    if (visible > static_cast<size_t>(budget)) break;
    chosen = static_cast<int32_t>(next) - 1;
    if (next + 1 == nodesPerLevel.size()) chosen = static_cast<int32_t>(next);  // the whole tree fits
  }
  return chosen;
}

std::vector<size_t> nodesPerLevel(const TIntegerAttributeData& levels) {
  // Four tallies taken in turn, so that runs of one level do not wait on
  // each other's increments.
  const size_t depth = static_cast<size_t>(std::max(levels.getMaximumValue(), 0)) + 1;
  std::vector<uint32_t> tally(4 * depth, 0);
  const auto& rows = levels.m_Rows;
  size_t i = 0;
  auto at = [depth](int32_t v) { return std::min(static_cast<size_t>(std::max(v, 0)), depth - 1); };
  for (; i + 4 <= rows.size(); i += 4) {
    ++tally[at(rows[i].value)];
    ++tally[depth + at(rows[i + 1].value)];
    ++tally[2 * depth + at(rows[i + 2].value)];
    ++tally[3 * depth + at(rows[i + 3].value)];
  }
  for (; i < rows.size(); ++i) ++tally[at(rows[i].value)];
  std::vector<size_t> perLevel(rows.empty() ? 0 : depth, 0);
  for (size_t l = 0; l < perLevel.size(); ++l)
    perLevel[l] = size_t{tally[l]} + tally[depth + l] + tally[2 * depth + l] + tally[3 * depth + l];
  return perLevel;
}

void TCollapsedStateInitializer::process() {
  if (requireAllElseReset({m_Hierarchy, m_LevelAttr})) {
    resetPins({m_Hierarchy, m_LevelAttr, m_Settings});
    if (!m_Initialized) {
      m_Initialized = true;
      const TExpandChoice choice = parseExpandChoice(m_Settings);
      if (!choice.problem.empty()) logWarning(choice.problem);
      auto h = dataAs<THierarchyData>(m_Hierarchy);
      auto levels = dataAs<TIntegerAttributeData>(m_LevelAttr);
      int32_t expand = choice.level;
      if (choice.automatic) {
        expand = chooseExpandLevel(nodesPerLevel(*levels), choice.budget);
        logInfo("First fold: expand level " + std::to_string(expand) + " for a budget of " +
                std::to_string(choice.budget) + " visible nodes");
      }
      auto collapsed = std::make_shared<TBoolAttributeData>("collapsed");
      collapsed->reserve(h->m_Rows.size());
      for (const auto& row : h->m_Rows) {
        bool found = false;
        const int32_t level = levels->getValueById(row.nid, found);
        collapsed->addRow(row.nid, found && level > expand);
      }
      collapsed->setValueById(0, false);
      m_Out->setData(collapsed);
    }
  }
  m_HierarchyOut->setData(m_Hierarchy->getData());
}

// ---------------------------------------------------------------------------
// The visible hierarchy

TCollapseResult collapseHierarchy(const THierarchyData& h, const TBoolAttributeData& collapsed,
                                  const std::string& name) {
  TCollapseResult r;
  r.hierarchy = std::make_shared<THierarchyData>(name);
  r.agglft = std::make_shared<TAggLftData>();
  r.agglft->reserve(h.m_Rows.size());
  struct Open {
    uint32_t lft;
    uint32_t rgt;
    uint32_t agglft;
    bool folded;
  };
  std::vector<Open> stack;
  if (h.m_Rows.empty()) return r;
  const THierarchyRow& root = h.m_Rows[0];
  bool found = false;
  const bool rootValue = collapsed.getValueById(root.nid, found);
  stack.push_back({root.lft, root.rgt, root.lft, found ? rootValue : true});
  r.agglft->addRow(root.lft, root.lft);
  r.hierarchy->addRow(root.nid, root.lft, root.rgt);
  for (size_t i = 1; i < h.m_Rows.size(); ++i) {
    const THierarchyRow& row = h.m_Rows[i];
    const bool value = collapsed.getValueById(row.nid, found) && found;
    while (!stack.empty() && !(stack.back().lft < row.lft && row.rgt < stack.back().rgt)) stack.pop_back();
    const int32_t depth = static_cast<int32_t>(stack.size());
    r.maxLevel = std::max(r.maxLevel, depth);
    if (stack.empty() || !stack.back().folded) {
      r.agglft->addRow(row.lft, row.lft);
      stack.push_back({row.lft, row.rgt, row.lft, value});
      r.hierarchy->addRow(row.nid, row.lft, row.rgt);
      r.collapsedMaxLevel = std::max(r.collapsedMaxLevel, depth);
    } else {
      const uint32_t agg = stack.back().agglft;
      r.agglft->addRow(row.lft, agg);
      stack.push_back({row.lft, row.rgt, agg, true});
    }
  }
  return r;
}

void TCollapseProcessor::postCreate() {
  m_FullHierarchy = addInputPin<THierarchyData>("full hierarchy");
  m_Hierarchy = addInputPin<THierarchyData>("hierarchy");
  m_BoolAttribute = addInputPin<TBoolAttributeData>("boolattribute");
  m_CollapsedHierarchyOut = addOutputPin<THierarchyData>("collapsed hierarchy out");
  m_AggLftOut = addOutputPin<TAggLftData>("agglft out");
  m_MaxLevel = addOutputPin<TIntegerData>("max level");
  m_CollapsedMaxLevel = addOutputPin<TIntegerData>("collapsed max level");
}

void TCollapseProcessor::process() {
  if (!requireAllElseReset({m_FullHierarchy, m_Hierarchy, m_BoolAttribute})) return;
  resetPins({m_FullHierarchy, m_Hierarchy, m_BoolAttribute});
  auto h = dataAs<THierarchyData>(m_Hierarchy);
  if (h->m_Rows.empty()) return;
  TCollapseResult r = collapseHierarchy(*h, *dataAs<TBoolAttributeData>(m_BoolAttribute),
                                        m_Hierarchy->getKeyText() + " collapsed");
  // An unchanged map wakes no edge aggregation.
  auto old = dataAs<TAggLftData>(m_AggLftOut);
  if (!old || !old->sameRows(*r.agglft)) m_AggLftOut->setData(r.agglft);
  m_CollapsedHierarchyOut->setData(r.hierarchy);
  m_MaxLevel->setData(std::make_shared<TIntegerData>(r.maxLevel));
  m_CollapsedMaxLevel->setData(std::make_shared<TIntegerData>(r.collapsedMaxLevel));
}

// ---------------------------------------------------------------------------
// Heights

void TLevelEqualizer::postCreate() {
  m_Hierarchy = addInputPin<THierarchyData>("hierarchy");
  m_MaxLevel = addInputPin<TIntegerData>("max level");
  m_LevelOut = addOutputPin<TIntegerAttributeData>("level out");
}

void TLevelEqualizer::process() {
  if (!requireAllElseReset({m_Hierarchy, m_MaxLevel})) return;
  resetPins({m_Hierarchy, m_MaxLevel});
  auto h = dataAs<THierarchyData>(m_Hierarchy);
  const int32_t maxLevel = dataAs<TIntegerData>(m_MaxLevel)->getValue();
  auto out = std::make_shared<TIntegerAttributeData>();
  if (!h->m_Rows.empty()) {
    struct Open {
      uint32_t nid;
      uint32_t lft;
      uint32_t rgt;
      int32_t value;
    };
    const auto& root = h->m_Rows[0];
    std::vector<Open> stack{{root.nid, root.lft, root.rgt, maxLevel}};
    out->addRow(root.nid, maxLevel);
    // Pops the top into the column and lifts its parent; values compare
    // unsigned.
    auto pop = [&] {
      const Open top = stack.back();
      stack.pop_back();
      out->addRow(top.nid, top.value);
      if (stack.empty()) return;
      const uint32_t lifted = static_cast<uint32_t>(top.value) + 1u;
      stack.back().value = static_cast<int32_t>(std::max(static_cast<uint32_t>(stack.back().value), lifted));
    };
    for (size_t i = 1; i < h->m_Rows.size(); ++i) {
      const THierarchyRow& row = h->m_Rows[i];
      while (!stack.empty() && !(stack.back().lft < row.lft && row.rgt < stack.back().rgt)) pop();
      stack.push_back({row.nid, row.lft, row.rgt, 0});
    }
    while (!stack.empty()) pop();
  }
  m_LevelOut->setData(out);
}

// ---------------------------------------------------------------------------
// Add and clamp

void TAddAndClamp::postCreate() {
  m_Attr = addInputPin<TIntegerAttributeData>("attr");
  m_Add = addInputPin<TIntegerData>("add");
  m_Min = addInputPin<TIntegerData>("min");
  m_Max = addInputPin<TIntegerData>("max");
  m_Out = addOutputPin<TIntegerAttributeData>("out");
}

void TAddAndClamp::process() {
  if (!requireAllElseReset({m_Attr})) return;
  resetPins({});
  auto intOf = [](const TPinPtr& pin, int64_t fallback) {
    auto d = dataAs<TIntegerData>(pin);
    return d ? static_cast<int64_t>(d->getValue()) : fallback;
  };
  const int64_t add = intOf(m_Add, 0);
  const int64_t lo = intOf(m_Min, -2147483647);
  const int64_t hi = intOf(m_Max, 2147483647);
  auto attr = dataAs<TIntegerAttributeData>(m_Attr);
  auto out = std::make_shared<TIntegerAttributeData>();
  out->reserve(attr->getRowCount());
  for (size_t r = 0; r < attr->getRowCount(); ++r) {
    const int64_t v = std::max(std::min(attr->valueByRow(r) + add, hi), lo);
    out->addRow(attr->getIdByRow(r), static_cast<int32_t>(std::clamp<int64_t>(v, INT32_MIN, INT32_MAX)));
  }
  m_Out->setData(out);
}

// ---------------------------------------------------------------------------
// Pruning

void TTreePruner::postCreate() {
  m_Hierarchy = addInputPin<THierarchyData>("hierarchy");
  m_Selection = addInputPin<TIntegerSetData>("selection");
  m_Out = addOutputPin<THierarchyData>("hierarchy");
}

void TTreePruner::process() {
  if (!requireAllElseReset({m_Hierarchy, m_Selection})) return;
  auto h = dataAs<THierarchyData>(m_Hierarchy);
  auto selection = dataAs<TIntegerSetData>(m_Selection);
  auto pruned = std::make_shared<THierarchyData>("pruned " + h->m_KeyName);
  // Stripping the unselected leaves until none is left keeps exactly the
  // selected nodes, their ancestors and the synthetic root; one walk finds
  // them: a node is kept when it is selected or something below it is.
  const size_t n = h->m_Rows.size();
  std::vector<char> keep(n, 0);
  std::vector<size_t> stack;
  for (size_t i = 0; i < n; ++i) {
    const THierarchyRow& row = h->m_Rows[i];
    while (!stack.empty()) {
      const THierarchyRow& top = h->m_Rows[stack.back()];
      if (top.lft <= row.lft && row.rgt <= top.rgt) break;
      const size_t done = stack.back();
      stack.pop_back();
      if (keep[done] && !stack.empty()) keep[stack.back()] = 1;
    }
    if (row.nid == 0 || selection->contains(row.nid)) keep[i] = 1;
    stack.push_back(i);
  }
  while (!stack.empty()) {
    const size_t done = stack.back();
    stack.pop_back();
    if (keep[done] && !stack.empty()) keep[stack.back()] = 1;
  }
  std::vector<THierarchyRow> rows;
  for (size_t i = 0; i < n; ++i)
    if (keep[i]) rows.push_back(h->m_Rows[i]);
  auto old = dataAs<THierarchyData>(m_Out);
  if (!old || old->m_Rows != rows) {
    pruned->reserve(rows.size());
    for (const auto& r : rows) pruned->addRow(r.nid, r.lft, r.rgt);
    m_Out->setData(pruned);
  }
  resetPins({m_Hierarchy, m_Selection});
}

void registerCollapseProcessors() {
  auto& reg = TProcessorRegistry::instance();
  reg.add<THierarchyLevelExtractor>();
  reg.add<TCollapsedStateInitializer>();
  reg.add<TCollapseProcessor>();
  reg.add<TLevelEqualizer>();
  reg.add<TAddAndClamp>();
  reg.add<TTreePruner>();
}

}  // namespace quorvel
