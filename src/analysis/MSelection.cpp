#include "MSelection.h"

#include <pybind11/pybind11.h>

#include <algorithm>
#include <cstdio>

#include "engine/MRegistry.h"

namespace py = pybind11;

namespace quorvel {

namespace {

// The dictionary a TPythonData holds, or none.
std::optional<py::dict> dictOf(const TPinPtr& pin) {
  auto value = std::dynamic_pointer_cast<TPythonData>(pin->getData());
  if (!value || !value->getValue()) return std::nullopt;
  py::handle h(value->getValue().get());
  if (!py::isinstance<py::dict>(h)) return std::nullopt;
  return py::reinterpret_borrow<py::dict>(h);
}

bool truthy(py::handle h) { return PyObject_IsTrue(h.ptr()) == 1; }

}  // namespace

// ---------------------------------------------------------------------------
// TSelector1

TCompiledFilter::TCompiledFilter(const TPyRef& filterRef, const TDataArray& attributes) {
  py::dict filter = py::reinterpret_borrow<py::dict>(filterRef.get());
  m_Pass = filter.contains("pass") ? py::int_(filter["pass"]).cast<int>() : 2;
  const bool andMode = !filter.contains("key_op") || py::str(filter["key_op"]).cast<std::string>() == "and";
  std::vector<ColumnTest> single;
  if (filter.contains("attributes") && py::isinstance<py::dict>(filter["attributes"])) {
    for (auto [key, spec] : py::reinterpret_borrow<py::dict>(filter["attributes"])) {
      if (!py::isinstance<py::dict>(spec)) continue;
      py::dict s = py::reinterpret_borrow<py::dict>(spec);
      if (!s.contains("checked") || !truthy(s["checked"])) continue;
      if (!py::isinstance<py::str>(key)) continue;
      bool found = false;
      auto column = std::dynamic_pointer_cast<TAttributeData>(attributes.getItemByKey(key.cast<std::string>(), found));
      if (!column) continue;
      const std::string type = column->getAttributeType();
      ColumnTest test{column, type == "string", {}, {}};
      if (s.contains("values") && py::isinstance<py::dict>(s["values"])) {
        for (auto [value, chosen] : py::reinterpret_borrow<py::dict>(s["values"])) {
          if (!truthy(chosen)) continue;
          if (type == "string" && py::isinstance<py::str>(value))
            test.texts.push_back(value.cast<std::string>());
          else if (type == "int" && py::isinstance<py::int_>(value))
            test.numbers.push_back(value.cast<int32_t>());
        }
      }
      std::sort(test.numbers.begin(), test.numbers.end());
      if (test.texts.empty() && test.numbers.empty()) continue;
      if (andMode)
        m_Clauses.push_back({std::move(test)});
      else
        single.push_back(std::move(test));
    }
  }
  if (!andMode && !single.empty()) m_Clauses.push_back(std::move(single));
}

bool TCompiledFilter::ColumnTest::passes(uint32_t id) const {
  if (isText) {
    const auto& c = static_cast<const TStringAttributeData&>(*column);
    const auto* stored = c.findStored(id);
    if (!stored) return false;
    const auto text = c.viewOf(*stored);
    return std::any_of(texts.begin(), texts.end(), [&](const std::string& t) { return text == t; });
  }
  const auto& c = static_cast<const TIntegerAttributeData&>(*column);
  bool found = false;
  const int32_t v = c.getValueById(id, found);
  return found && std::binary_search(numbers.begin(), numbers.end(), v);
}

bool TCompiledFilter::verdict(uint32_t id) const {
  if (m_Pass == 0) return false;
  if (m_Pass == 1) return true;
  if (m_Clauses.empty()) return false;
  for (const auto& clause : m_Clauses)
    if (std::none_of(clause.begin(), clause.end(), [id](const ColumnTest& t) { return t.passes(id); })) return false;
  return true;
}

void TSelector1Cpp::postCreate() {
  m_Selection = addInputPin<TIntegerSetData>("selection");
  m_Attributes = addInputPin<TAttributeDataArray>("attributes");
  m_Filter = addInputPin<TPythonData>("filter");
  m_Settings = addInputPin<TPythonData>("settings");
  m_Output = addOutputPin<TIntegerSetData>("output");
}

void TSelector1Cpp::process() {
  if (!requireAllElseReset({m_Selection, m_Settings, m_Attributes})) return;
  resetPins({});
  bool inverse = false;
  auto filter = dictOf(m_Filter);
  if (filter && filter->contains("inverse")) {
    const int t = PyObject_IsTrue((*filter)["inverse"].ptr());
    if (t < 0) PyErr_Clear();  // a failed lookup leaves no error behind
    inverse = t == 1;
  }
  auto out = std::make_shared<TIntegerSetData>();
  if (filter) {
    auto value = dataAs<TPythonData>(m_Filter);
    const TCompiledFilter compiled(value->getValue(), *dataAs<TDataArray>(m_Attributes));
    // Filters mostly pass most ids: room for all of them, given back when
    // far fewer passed.
    const auto& in = dataAs<TIntegerSetData>(m_Selection)->m_Set;
    out->m_Set.reserve(in.size());
    for (uint32_t id : in)
      if (compiled.verdict(id) != inverse) out->m_Set.insert(id);
    if (out->m_Set.size() < in.size() / 2) out->m_Set.shrinkToFit();
  }
  m_Output->setData(out);
}

void TControl::updatePanels() {
  panels.erase(std::remove_if(panels.begin(), panels.end(), [](const auto& p) { return !p || !p->alive(); }),
               panels.end());
  // An update may close a window, and so drop panels: update a copy.
  const auto current = panels;
  for (const auto& panel : current) panel->update();
}

void TSelector1::process_python() {
  if (!dictOf(m_Filter)) m_Filter->setData(std::make_shared<TPythonData>(TPyRef::steal(py::dict().release().ptr())));
  py::dict filter = *dictOf(m_Filter);
  if (!filter.contains("pass")) {
    py::object fallback = py::int_(0);
    if (auto settings = dictOf(m_Settings)) {
      if (settings->contains("filterdefault")) fallback = (*settings)["filterdefault"];
    }
    filter["pass"] = fallback;
    m_Filter->setData(std::make_shared<TPythonData>(TPyRef::borrow(filter.ptr())));
  }
  TSelector1Cpp::process();
  updatePanels();
  resetPins({m_Attributes, m_Settings, m_Selection});
}

// ---------------------------------------------------------------------------
// Ranges and bool filters

void TSelector2::postCreate() {
  m_Selection = addInputPin<TIntegerSetData>("selection");
  m_Attribute = addInputPin<TAttributeData>("attribute");
  m_Range = addInputPin<TFloatPairData>("range");
  m_Output = addOutputPin<TIntegerSetData>("output");
}

void TSelector2::process() {
  if (!requireAllElseReset({m_Selection})) return;
  resetPins({});
  auto attribute = dataAs<TAttributeData>(m_Attribute);
  auto range = dataAs<TFloatPairData>(m_Range);
  if (!attribute || !range) {
    m_Output->setData(m_Selection->getData());
    return;
  }
  auto out = std::make_shared<TIntegerSetData>();
  for (uint32_t id : dataAs<TIntegerSetData>(m_Selection)->m_Set) {
    bool found = false;
    const float v = attribute->getFloatValueById(id, found);
    if (found && v >= range->getFirst() && v <= range->getSecond()) out->m_Set.insert(id);
  }
  m_Output->setData(out);
}

void TFilterProcessor::postCreate() {
  m_Selection = addInputPin<TIntegerSetData>("selection");
  m_Filter = addInputPin<TBoolAttributeData>("filter");
  m_Output = addOutputPin<TIntegerSetData>("output");
}

void TFilterProcessor::process() {
  if (!requireAllElseReset({m_Selection})) return;
  resetPins({m_Selection, m_Filter});
  auto filter = dataAs<TBoolAttributeData>(m_Filter);
  if (!filter) {
    m_Output->setData(m_Selection->getData());
    return;
  }
  auto out = std::make_shared<TIntegerSetData>();
  for (uint32_t id : dataAs<TIntegerSetData>(m_Selection)->m_Set) {
    bool found = false;
    const bool v = filter->getValueById(id, found);
    if (found && v == m_KeepValue) out->m_Set.insert(id);
  }
  m_Output->setData(out);
}

// ---------------------------------------------------------------------------
// Neighbours of the primary selection

void TSecondarySelectionComputer::postCreate() {
  m_Primary = addInputPin<TIntegerSetData>("node primary selection");
  m_EdgeSelection = addInputPin<TIntegerSetData>("edge selection");
  m_EdgeData = addInputPin<TEdgeData>("edge data");
  m_Direction = addInputPin<TStringData>("direction");
  m_FullHierarchy = addInputPin<THierarchyData>("full hierarchy");
  m_BoolAttribute = addInputPin<TBoolAttributeData>("boolattribute");
  m_Secondary = addOutputPin<TIntegerSetData>("node secondary selection");
  m_IncidentEdges = addOutputPin<TIntegerSetData>("incident edge selection");
}

void TSecondarySelectionComputer::process() {
  if (!requireAllElseReset({m_Primary, m_EdgeSelection, m_EdgeData, m_Direction, m_FullHierarchy, m_BoolAttribute})) return;
  resetPins({});
  const std::string direction = dataAs<TStringData>(m_Direction)->getValue();
  const bool forward = direction != "in";
  const bool backward = direction != "out";
  auto edges = dataAs<TEdgeData>(m_EdgeData);
  auto edgeSelection = dataAs<TIntegerSetData>(m_EdgeSelection);
  auto hierarchy = dataAs<THierarchyData>(m_FullHierarchy);
  auto collapsed = dataAs<TBoolAttributeData>(m_BoolAttribute);
  auto nodes = std::make_shared<TIntegerSetData>();
  auto incident = std::make_shared<TIntegerSetData>();
  for (uint32_t id : dataAs<TIntegerSetData>(m_Primary)->m_Set) {
    bool found = false;
    const bool folded = collapsed->getValueById(id, found) && found;
    const std::vector<uint32_t> members = folded ? hierarchy->getNidsBelowNid(id) : std::vector<uint32_t>{id};
    for (uint32_t nid : members) {
      if (forward) edges->addForwardNeighbours(nid, *edgeSelection, *nodes, incident.get());
      if (backward) edges->addBackwardNeighbours(nid, *edgeSelection, *nodes, incident.get());
    }
  }
  m_Secondary->setData(nodes);
  m_IncidentEdges->setData(incident);
}

// ---------------------------------------------------------------------------
// Set operations

void TSetOperation::postCreate() {
  m_In1 = addInputPin<TIntegerSetData>("in1");
  m_In2 = addInputPin<TIntegerSetData>("in2");
  m_Out = addOutputPin<TIntegerSetData>("out");
}

namespace {
// Intersection or difference of in1 by in2; an empty second operand
// restricts nothing.
void restrictBy(TSetOperation& op, bool keepMembers) {
  if (!op.requireAllElseReset({op.m_In1})) return;
  op.resetPins({});
  auto in1 = dataAs<TIntegerSetData>(op.m_In1);
  auto in2 = dataAs<TIntegerSetData>(op.m_In2);
  if (!in2 || in2->getCount() == 0) {
    op.m_Out->setData(in1);
    return;
  }
  auto out = std::make_shared<TIntegerSetData>();
  for (uint32_t id : in1->m_Set)
    if (in2->contains(id) == keepMembers) out->m_Set.insert(id);
  op.m_Out->setData(out);
}
}  // namespace

void TSetIntersection::process() { restrictBy(*this, true); }

void TSetSubtract::process() { restrictBy(*this, false); }

void TSetOr::process() {
  if (!requireAllElseReset({m_In1, m_In2})) return;
  resetPins({});
  auto in1 = dataAs<TIntegerSetData>(m_In1);
  m_Out->setData(in1->getCount() > 0 ? m_In1->getData() : m_In2->getData());
}

// ---------------------------------------------------------------------------
// Utilities

void TIntegerUnary::postCreate() {
  m_In = addInputPin<TIntegerData>("in");
  m_Out = addOutputPin<TIntegerData>("out");
}

void TIntegerUnary::process() {
  resetPins({});
  auto in = dataAs<TIntegerData>(m_In);
  m_Out->setData(in ? std::make_shared<TIntegerData>(apply(in->getValue())) : nullptr);
}

void TIdentityOrNull::postCreate() {
  m_In = addInputPin<TAbstractData>("in");
  m_IdOr0 = addInputPin<TBooleanData>("id or 0");
  m_Count = addOutputPin<TAbstractData>("count");
}

void TIdentityOrNull::process() {
  resetPins({});
  auto flag = dataAs<TBooleanData>(m_IdOr0);
  m_Count->setData(flag && flag->getValue() ? m_In->getData() : nullptr);
}

void TInputPrintProcessor::process() {
  std::fputs("??? Printing data:\n", stdout);
  if (const TDataPtr& d = m_In->getData())
    std::fputs(d->toString().c_str(), stdout);
  else
    std::fputs("no data on line\n", stdout);
  std::fputs("??? Printing data finished\n", stdout);
  std::fflush(stdout);
  resetPins({});
}

void TGetCountCpp::postCreate() {
  m_In = addInputPin<TAbstractData>("in");
  m_Count = addOutputPin<TIntegerData>("count");
  m_Min = addOutputPin<TFloatData>("min");
  m_Max = addOutputPin<TFloatData>("max");
}

void TGetCount::process_python() {
  const TDataPtr& in = m_In->getData();
  if (auto set = std::dynamic_pointer_cast<TIntegerSetData>(in))
    m_Count->setData(std::make_shared<TIntegerData>(static_cast<int32_t>(set->getCount())));
  else if (auto array = std::dynamic_pointer_cast<TDataArray>(in))
    m_Count->setData(std::make_shared<TIntegerData>(static_cast<int32_t>(array->getItemCount())));
  auto range = [this](float lo, float hi) {
    if (lo > hi) {
      m_Min->setData(nullptr);
      m_Max->setData(nullptr);
    } else {
      m_Min->setData(std::make_shared<TFloatData>(lo));
      m_Max->setData(std::make_shared<TFloatData>(hi));
    }
  };
  if (auto f = std::dynamic_pointer_cast<TFloatAttributeData>(in))
    range(f->getMinimumValue(), f->getMaximumValue());
  else if (auto i = std::dynamic_pointer_cast<TIntegerAttributeData>(in))
    range(static_cast<float>(i->getMinimumValue()), static_cast<float>(i->getMaximumValue()));
  resetPins({});
}

void TKeyNameSetter::postCreate() {
  m_Data = addInputPin<TAbstractData>("data");
  m_KeyName = addInputPin<TStringData>("keyname");
}

void TKeyNameSetter::process() {
  if (!requireAllElseReset({m_Data, m_KeyName})) return;
  resetPins({m_Data, m_KeyName});
  const std::string& name = dataAs<TStringData>(m_KeyName)->getValue();
  const TDataPtr& data = m_Data->getData();
  if (data->getKeyName() != name) {
    data->m_KeyName = name;
    data->setHasChanged();
  }
}

void TAssignWhenInput1IsNotNone::postCreate() {
  m_In1 = addInputPin<TAbstractData>("in1");
  m_In2 = addInputPin<TAbstractData>("in2");
}

void TAssignWhenInput1IsNotNone::process() {
  const TDataPtr in1 = m_In1->getData();
  const TDataPtr in2 = m_In2->getData();
  if (m_In1->hasChanged()) {
    if (in1 && in2 != in1) m_In2->setData(in1);
  } else if (m_In2->hasChanged()) {
    if (in1 && in2 != in1) m_In1->setData(in2);
  }
  resetPins({m_In1, m_In2});
}

void TArrayCreator::postCreate() {
  for (const char* name : {"in1", "in2", "in3", "in4", "in5"}) addInputPin<TAbstractData>(name);
  m_Out = addOutputPin<TDataArray>("out");
}

void TArrayCreator::process() {
  resetPins({});
  auto out = std::make_shared<TDataArray>();
  for (const auto& pin : m_InputPins) {
    const TDataPtr& d = pin->getData();
    if (!d) continue;
    if (const auto* items = d->arrayItems())
      for (const auto& item : *items) out->add(item);
    else
      out->add(d);
  }
  m_Out->setData(out);
}

void TAttributeArrayCreator::postCreate() {
  TArrayCreator::postCreate();
  m_Out->m_AcceptedType = TAttributeDataArray::kClassName;
}

void TAttributeArrayCreator::process() {
  resetPins({});
  auto out = std::make_shared<TAttributeDataArray>();
  auto addColumn = [&out](const TDataPtr& d) {
    if (std::dynamic_pointer_cast<TAttributeData>(d)) out->add(d);
  };
  for (const auto& pin : m_InputPins) {
    const TDataPtr& d = pin->getData();
    if (!d) continue;
    if (const auto* items = d->arrayItems())
      for (const auto& item : *items) addColumn(item);
    else
      addColumn(d);
  }
  m_Out->setData(out);
}

void TIntegerPairSetUnion::postCreate() {
  m_In1 = addInputPin<TIntegerPairSetData>("in1");
  m_In2 = addInputPin<TIntegerPairSetData>("in2");
  m_Out = addOutputPin<TIntegerPairSetData>("out");
}

void TIntegerPairSetUnion::process() {
  if (!requireAllElseReset({m_In1, m_In2})) return;
  resetPins({m_In1, m_In2});
  auto out = std::make_shared<TIntegerPairSetData>();
  out->m_Set = dataAs<TIntegerPairSetData>(m_In1)->m_Set;
  for (const auto& p : dataAs<TIntegerPairSetData>(m_In2)->m_Set) out->m_Set.insert(p);
  m_Out->setData(out);
}

void TStackStore::postCreate() {
  m_In = addInputPin<TAbstractData>("in");
  m_MaxItems = addInputPin<TIntegerData>("max items");
  m_Dummy = addOutputPin("TProcessorData", "dummy");
}

void TStackStore::process() {
  if (m_In->getData() && m_In->hasChanged()) {
    resetPins({m_In});
    m_Stack.push_back(m_In->getData());
  }
  resetPins({m_MaxItems});
  auto max = dataAs<TIntegerData>(m_MaxItems);
  const size_t limit = max ? static_cast<size_t>(std::max(0, max->getValue())) : 5;
  while (m_Stack.size() > limit) m_Stack.pop_front();
}

void TStackStore::pop() {
  if (m_Stack.size() < 2) return;
  m_Stack.pop_back();
  m_In->setDataFromSource(m_Stack.back());
}

void registerSelectionProcessors() {
  auto& reg = TProcessorRegistry::instance();
  reg.add<TSelector1Cpp>();
  reg.add<TSelector1>();
  reg.add<TSelector2>();
  reg.add<TFilterProcessor>();
  reg.add<TExclusionFilterProcessor>();
  reg.add<TSecondarySelectionComputer>();
  reg.add<TSetIntersection>();
  reg.add<TSetSubtract>();
  reg.add<TSetOr>();
  reg.add<TIntegerPlusOne>();
  reg.add<TIntegerMinusOne>();
  reg.add<TInvert>();
  reg.add<TIdentityOrNull>();
  reg.add<TInputPrintProcessor>();
  reg.add<TGetCountCpp>();
  reg.add<TGetCount>();
  reg.add<TKeyNameSetter>();
  reg.add<TAssignWhenInput1IsNotNone>();
  reg.add<TArrayCreator>();
  reg.add<TAttributeArrayCreator>();
  reg.add<TIntegerPairSetUnion>();
  reg.add<TStackStore>();
}

}  // namespace quorvel
