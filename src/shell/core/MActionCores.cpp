#include "MActionCores.h"

#include "analysis/MSelection.h"
#include "data/MAttributes.h"
#include "data/MHierarchy.h"
#include "data/MValues.h"
#include "engine/MRegistry.h"
#include "data/MDataSources.h"

namespace py = pybind11;

namespace quorvel {

namespace {

constexpr const char* kPopup = "popup";

// One entry of an action list. enabled None keeps it out of menus; a key is
// (code, shift, ctrl).
py::dict entry(const std::string& name, const py::cpp_function& func, const py::tuple& args,
               const std::optional<std::string>& help, const py::object& enabled,
               std::optional<std::tuple<int, bool, bool>> key = std::nullopt) {
  py::dict d;
  d["name"] = name;
  d["func"] = func;
  d["args"] = args;
  if (help) d["help"] = *help;
  d["enabled"] = enabled;
  if (key) d["key"] = py::make_tuple(std::get<0>(*key), std::get<1>(*key), std::get<2>(*key));
  d["tags"] = py::make_tuple(kPopup);
  return d;
}

std::tuple<int, bool, bool> letter(char c, bool shift = false, bool ctrl = false) { return {c, shift, ctrl}; }

template <class T>
std::shared_ptr<T> on(const TPinPtr& pin) {
  return pin ? std::dynamic_pointer_cast<T>(pin->getData()) : nullptr;
}

bool notEmpty(const TPinPtr& pin) {
  auto set = on<TIntegerSetData>(pin);
  return set && set->getCount() > 0;
}

py::object flag(bool b) { return py::bool_(b); }

std::optional<std::vector<uint32_t>> idsOf(const py::object& list) {
  if (list.is_none()) return std::nullopt;
  std::vector<uint32_t> ids;
  for (py::handle id : list) ids.push_back(id.cast<uint32_t>());
  return ids;
}

}  // namespace

template <class Self, class F>
py::cpp_function TActionProcessorCpp::handler(F f) {
  std::weak_ptr<TAbstractProcessor> weak = selfPtr();
  return py::cpp_function([weak, f](py::args args) {
    if (auto self = std::dynamic_pointer_cast<Self>(weak.lock())) f(*self, args);
  });
}

void TActionProcessorCpp::publish() {
  resetPins({});
  py::object list = makeActions();
  if (list.is_none()) return;
  m_Actions->setData(std::make_shared<TPythonData>(TPyRef::borrow(list.ptr())));
}

// ---------------------------------------------------------------------------

void TCommonNodeEdgeActionsCpp::postCreate() {
  m_NodeUserSelection = addInputPin<TIntegerSetData>("node user selection");
  m_EdgeUserSelection = addInputPin<TIntegerSetData>("edge user selection");
  m_Actions = addOutputPin<TPythonData>("actions");
}

py::object TCommonNodeEdgeActionsCpp::makeActions() {
  using Self = TCommonNodeEdgeActionsCpp;
  auto clearer = [this](const TPinPtr& pin) {
    return handler<Self>([pin](Self&, py::args) {
      if (auto set = on<TIntegerSetData>(pin)) set->clear();
    });
  };
  py::list list;
  list.append(entry("Deselect all nodes", clearer(m_NodeUserSelection), py::make_tuple(), "Deselect all nodes",
                    flag(notEmpty(m_NodeUserSelection)), letter('D')));
  list.append(entry("Deselect all edges", clearer(m_EdgeUserSelection), py::make_tuple(), "Deselect all edges",
                    flag(notEmpty(m_EdgeUserSelection)), letter('D')));
  return list;
}

// ---------------------------------------------------------------------------

void TNodeEdgeActionsForViewCpp::postCreate() {
  m_NodeUserSelection = addInputPin<TIntegerSetData>("node user selection");
  m_EdgeUserSelection = addInputPin<TIntegerSetData>("edge user selection");
  m_EdgeData = addInputPin<TEdgeData>("edge data");
  m_CollapseStack = addInputPin("TProcessorData", "collapse stack");
  m_Actions = addOutputPin<TPythonData>("actions");
}

py::object TNodeEdgeActionsForViewCpp::makeActions() {
  using Self = TNodeEdgeActionsForViewCpp;
  py::list list;
  auto clear = [](const TPinPtr& pin) {
    return [pin](Self&, py::args) {
      if (auto set = on<TIntegerSetData>(pin)) set->clear();
    };
  };
  if (m_EdgeUserSelection->getData())
    list.append(entry("Select end nodes of edge user selection",
                      handler<Self>([](Self& s, py::args) { s.OnSelectEndNodes(); }), py::make_tuple(),
                      std::string("Select the end nodes of the edge user selection."),
                      flag(notEmpty(m_EdgeUserSelection))));
  if (m_NodeUserSelection->getData())
    list.append(entry("Deselect all nodes", handler<Self>(clear(m_NodeUserSelection)), py::make_tuple(),
                      std::string("Deselect all nodes"), flag(notEmpty(m_NodeUserSelection)), letter('D')));
  if (m_EdgeUserSelection->getData())
    list.append(entry("Deselect all edges", handler<Self>(clear(m_EdgeUserSelection)), py::make_tuple(),
                      std::string("Deselect all edges"), flag(notEmpty(m_EdgeUserSelection)), letter('D')));
  list.append(entry("Undo collapse/expand", handler<Self>([](Self& s, py::args) { s.OnUndoCollapse(); }),
                    py::make_tuple(), std::string("Undo collapse/expand"), flag(true), letter('Z', false, true)));
  return list;
}

void TNodeEdgeActionsForViewCpp::OnSelectEndNodes() {
  auto edges = on<TIntegerSetData>(m_EdgeUserSelection);
  auto nodes = on<TIntegerSetData>(m_NodeUserSelection);
  auto data = on<TEdgeData>(m_EdgeData);
  if (!edges || !nodes || !data) return;
  for (uint32_t eid : std::vector<uint32_t>(edges->m_Set.begin(), edges->m_Set.end())) {
    uint32_t from = 0, to = 0;
    bool found = false;
    data->getFromToNidByEid(eid, from, to, found);
    if (!found) continue;
    nodes->add(from);
    nodes->add(to);
  }
}

void TNodeEdgeActionsForViewCpp::OnUndoCollapse() {
  // The memory may stand behind the ports of boxes.
  auto stack = std::dynamic_pointer_cast<TStackStore>(getConnectedProcessor("collapse stack"));
  if (!stack) stack = std::dynamic_pointer_cast<TStackStore>(findFeedingProcessor(m_CollapseStack));
  if (stack) stack->pop();
}

// ---------------------------------------------------------------------------

void THierarchyActionsCpp::postCreate() {
  m_ActiveNodes = addInputPin<TIntegerSetData>("active nodes");
  m_NodeUserSelection = addInputPin<TIntegerSetData>("node user selection");
  m_FullHierarchy = addInputPin<THierarchyData>("full hierarchy");
  m_FilteredHierarchy = addInputPin<THierarchyData>("filtered hierarchy");
  m_CollapsedHierarchy = addInputPin<THierarchyData>("collapsed hierarchy");
  m_CollapsedAttr = addInputPin<TBoolAttributeData>("collapsed attr");
  m_LevelAttr = addInputPin<TIntegerAttributeData>("level attr");
  m_Actions = addOutputPin<TPythonData>("actions");
}

py::object THierarchyActionsCpp::makeActions() {
  using Self = THierarchyActionsCpp;
  py::list list;
  if (!m_ActiveNodes->getData()) return list;
  const py::object yes = flag(notEmpty(m_ActiveNodes));
  auto add = [&](const char* name, const py::cpp_function& f, py::tuple args, std::optional<std::string> help,
                 py::object enabled, std::optional<std::tuple<int, bool, bool>> key = std::nullopt) {
    list.append(entry(name, f, args, help, enabled, key));
  };
  auto collapse = handler<Self>([](Self& s, py::args a) { s.OnCollapse(a[0].cast<bool>()); });
  auto recursive = handler<Self>([](Self& s, py::args a) { s.OnCollapseRecursive(a[0].cast<bool>()); });
  auto atLevel = handler<Self>([](Self& s, py::args a) { s.OnCollapseAllAtThisLevel(a[0].cast<bool>()); });
  auto hide = handler<Self>([](Self& s, py::args a) {
    s.OnHideRecursive(a[0].cast<bool>(), a.size() > 1 ? idsOf(a[1]) : std::nullopt);
  });
  const auto T = py::make_tuple(true), F = py::make_tuple(false);
  add("Collapse", collapse, T, "Collapse all selected nodes.", yes, letter('C'));
  add("Collapse toggle", handler<Self>([](Self& s, py::args) { s.OnCollapseToggle(); }), py::make_tuple(),
      std::nullopt, py::none());
  add("Collapse recursively", recursive, T, std::nullopt, yes, letter('C', true));
  add("Expand", collapse, F, "Expand all selected nodes.", yes, letter('E'));
  add("Expand recursively", recursive, F, std::nullopt, yes, letter('E', true));
  add("Collapse all at this level", atLevel, T,
      "Collapse all nodes that are at the same level as the user selection.", yes);
  add("Expand all at this level", atLevel, F, std::nullopt, yes);
  add("Expand ancestors of node user selection",
      handler<Self>([](Self& s, py::args) { s.OnEnsureInternalSelectionVisible(std::nullopt); }), py::make_tuple(),
      "Ensure that all nodes in the node user selection are visible by expanding all ancestors.", yes);
  add("Hide nodes", hide, T,
      "Hide selected nodes and their descendants. Hidden nodes and incident edges are completely removed from the "
      "view.",
      yes, letter('H'));
  add("Unhide nodes", hide, F, "Unhide selected nodes and their descendants.", yes, letter('U'));
  add("Unhide all nodes", hide, py::make_tuple(false, py::make_tuple(0)), std::nullopt, flag(true),
      letter('U', false, true));
  return list;
}

template <class F>
void THierarchyActionsCpp::changeCollapsed(F change) {
  auto current = on<TBoolAttributeData>(m_CollapsedAttr);
  if (!current) return;
  std::shared_ptr<TBoolAttributeData> copy = current->clone();
  change(*copy);
  // The state is shared by every view through the ports of boxes: the new
  // value goes where it is held, and from there down to all of them.
  TProcessorPtr holder = findFeedingSource(m_CollapsedAttr);
  if (holder && !holder->m_OutputPins.empty())
    holder->m_OutputPins[0]->setData(copy);
  else
    m_CollapsedAttr->setData(copy);
}

void THierarchyActionsCpp::OnCollapse(bool value) {
  auto active = on<TIntegerSetData>(m_ActiveNodes);
  if (!active) return;
  changeCollapsed([&](TBoolAttributeData& c) {
    for (uint32_t nid : active->m_Set) c.setValueById(nid, value);
  });
}

void THierarchyActionsCpp::OnCollapseToggle() {
  auto active = on<TIntegerSetData>(m_ActiveNodes);
  if (!active) return;
  changeCollapsed([&](TBoolAttributeData& c) {
    for (uint32_t nid : active->m_Set) {
      bool found = false;
      const bool v = c.getValueById(nid, found);
      if (found) c.setValueById(nid, !v);
    }
  });
}

void THierarchyActionsCpp::OnCollapseRecursive(bool value) {
  auto active = on<TIntegerSetData>(m_ActiveNodes);
  auto filtered = on<THierarchyData>(m_FilteredHierarchy);
  if (!active || !filtered) return;
  changeCollapsed([&](TBoolAttributeData& c) {
    for (uint32_t nid : filtered->getNidsBelowNids(*active)) c.setValueById(nid, value);
  });
}

void THierarchyActionsCpp::OnCollapseAllAtThisLevel(bool value) {
  auto active = on<TIntegerSetData>(m_ActiveNodes);
  auto levels = on<TIntegerAttributeData>(m_LevelAttr);
  if (!active || !levels) return;
  changeCollapsed([&](TBoolAttributeData& c) {
    for (uint32_t nid : active->m_Set) {
      bool found = false;
      const int32_t level = levels->getValueById(nid, found);
      if (!found) continue;
      for (uint32_t other : levels->getIdsWhereValueIs(level)) c.setValueById(other, value);
    }
  });
}

void THierarchyActionsCpp::OnEnsureInternalSelectionVisible(const std::optional<std::vector<uint32_t>>& nids) {
  auto filtered = on<THierarchyData>(m_FilteredHierarchy);
  std::vector<uint32_t> ids;
  if (nids) {
    ids = *nids;
  } else if (auto selection = on<TIntegerSetData>(m_NodeUserSelection)) {
    ids.assign(selection->m_Set.begin(), selection->m_Set.end());
  }
  if (!filtered) return;
  changeCollapsed([&](TBoolAttributeData& c) {
    for (uint32_t nid : ids)
      for (uint32_t above : filtered->getNidsAboveNid(nid))
        if (above != nid) c.setValueById(above, false);
  });
}

void THierarchyActionsCpp::OnHideRecursive(bool hide, const std::optional<std::vector<uint32_t>>& nids) {
  std::vector<uint32_t> ids;
  if (nids) {
    ids = *nids;
  } else if (auto active = on<TIntegerSetData>(m_ActiveNodes)) {
    ids.assign(active->m_Set.begin(), active->m_Set.end());
  }
  TProcessorPtr holder = m_Box ? m_Box->getProcessorByName("hidden nodes") : nullptr;
  auto hidden = holder && !holder->m_OutputPins.empty()
                    ? std::dynamic_pointer_cast<TIntegerSetData>(holder->m_OutputPins[0]->getData())
                    : nullptr;
  auto full = on<THierarchyData>(m_FullHierarchy);
  if (!hidden || !full) return;
  for (uint32_t nid : ids)
    for (uint32_t below : full->getNidsBelowNid(nid)) hide ? hidden->add(below) : hidden->remove(below);
}

// ---------------------------------------------------------------------------

void TInternalSelectionActionsCpp::postCreate() {
  m_InternalSelection = addInputPin<TIntegerSetData>("internal selection");
  m_SelectionB = addInputPin<TIntegerSetData>("selection b");
  m_Actions = addOutputPin<TPythonData>("actions");
}

py::object TInternalSelectionActionsCpp::makeActions() {
  using Self = TInternalSelectionActionsCpp;
  py::list list;
  auto internal = on<TIntegerSetData>(m_InternalSelection);
  auto b = on<TIntegerSetData>(m_SelectionB);
  if (!internal || !b) return list;
  bool shared = false;
  for (uint32_t id : internal->m_Set)
    if (b->contains(id)) {
      shared = true;
      break;
    }
  const std::string key = b->getKeyName();
  list.append(entry("Add to " + key, handler<Self>([](Self& s, py::args) { s.OnListViewRowAddToSelection(); }),
                    py::make_tuple(), std::nullopt, flag(true)));
  list.append(entry("Remove from " + key,
                    handler<Self>([](Self& s, py::args) { s.OnListViewRowRemoveFromSelection(); }), py::make_tuple(),
                    std::nullopt, flag(shared)));
  return list;
}

void TInternalSelectionActionsCpp::OnListViewRowAddToSelection(bool clear) {
  auto internal = on<TIntegerSetData>(m_InternalSelection);
  auto b = on<TIntegerSetData>(m_SelectionB);
  if (!internal || !b) return;
  if (clear) b->clear();
  for (uint32_t id : std::vector<uint32_t>(internal->m_Set.begin(), internal->m_Set.end())) b->add(id);
}

void TInternalSelectionActionsCpp::OnListViewRowRemoveFromSelection() {
  auto internal = on<TIntegerSetData>(m_InternalSelection);
  auto b = on<TIntegerSetData>(m_SelectionB);
  if (!internal || !b) return;
  for (uint32_t id : std::vector<uint32_t>(internal->m_Set.begin(), internal->m_Set.end())) b->remove(id);
}

// ---------------------------------------------------------------------------

void TListHeaderActionsCpp::postCreate() {
  m_ColumnIndex = addInputPin<TIntegerData>("column index");
  m_Attributes = addInputPin<TAttributeDataArray>("attributes");
  m_Sort = addInputPin<TPythonData>("sort");
  m_Keys = addInputPin<TStringListData>("keys");
  m_Actions = addOutputPin<TPythonData>("actions");
}

py::object TListHeaderActionsCpp::makeActions() {
  using Self = TListHeaderActionsCpp;
  if (!m_ColumnIndex->getData()) return py::none();
  py::list list;
  auto plain = [&](const char* name, const py::cpp_function& f) {
    py::dict d;
    d["name"] = name;
    d["func"] = f;
    d["tags"] = py::make_tuple(kPopup);
    list.append(d);
  };
  plain("Remove column", handler<Self>([](Self& s, py::args) { s.OnRemoveColumn(); }));
  plain("Toggle sort", handler<Self>([](Self& s, py::args) { s.OnToggleSort(); }));
  plain("Configure Columns", handler<Self>([](Self& s, py::args) { s.OnConfigureColumns(); }));
  return list;
}

std::optional<std::string> TListHeaderActionsCpp::columnKey() const {
  auto index = on<TIntegerData>(m_ColumnIndex);
  auto attributes = on<TDataArray>(m_Attributes);
  if (!index || !attributes || index->getValue() < 0) return std::nullopt;
  bool found = false;
  TDataPtr item = attributes->getItemByIndex(static_cast<size_t>(index->getValue()), found);
  if (!item) return std::nullopt;
  return item->getKeyName();
}

void TListHeaderActionsCpp::OnRemoveColumn() {
  auto key = columnKey();
  auto keys = on<TStringListData>(m_Keys);
  if (key && keys) keys->removeByValue(*key);
}

void TListHeaderActionsCpp::OnToggleSort() {
  auto key = columnKey();
  if (!key) return;
  // Plain clicks run through ascending, descending, unsorted; Shift clicks
  // build a sort on several keys.
  py::list old;
  if (auto sort = on<TPythonData>(m_Sort); sort && sort->getValue() && !sort->getValue().isNone())
    old = py::reinterpret_borrow<py::object>(sort->getValue().get());
  py::list result;
  std::optional<size_t> at;
  for (size_t i = 0; i < old.size(); ++i) {
    py::sequence pair = old[i].cast<py::sequence>();
    if (!at && !pair[0].is_none() && py::str(pair[0]).cast<std::string>() == *key) at = i;
  }
  const bool ascending = at && py::sequence(old[*at])[1].cast<bool>();
  const py::str k(*key);
  if (!shiftDown()) {
    if (!at)
      result.append(py::make_tuple(k, true));
    else if (ascending)
      result.append(py::make_tuple(k, false));
    else
      for (size_t i = 0; i < old.size(); ++i)
        if (i != *at) result.append(old[i]);
  } else {
    for (size_t i = 0; i < old.size(); ++i) {
      if (at && i == *at) {
        if (ascending) result.append(py::make_tuple(k, false));
        continue;
      }
      result.append(old[i]);
    }
    if (!at) result.append(py::make_tuple(k, true));
  }
  m_Sort->setData(std::make_shared<TPythonData>(TPyRef::borrow(result.ptr())));
}

// ---------------------------------------------------------------------------

void TActionMergerCpp::postCreate() {
  for (const char* name : {"in1", "in2", "in3", "in4"}) m_Inputs.push_back(addInputPin<TPythonData>(name));
  m_Out = addOutputPin<TPythonData>("out");
}

void TActionMerger::process_python() {
  py::list merged;
  for (const TPinPtr& pin : m_Inputs) {
    auto data = on<TPythonData>(pin);
    if (!data || !data->getValue()) continue;
    py::handle value(data->getValue().get());
    if (!py::isinstance<py::list>(value)) continue;
    for (py::handle item : value) merged.append(item);
    merged.append(py::none());
  }
  m_Out->setData(std::make_shared<TPythonData>(TPyRef::borrow(merged.ptr())));
  resetPins({});
}

void registerActionCores() {
  auto& reg = TProcessorRegistry::instance();
  reg.add<TActionMergerCpp>();
  reg.add<TActionMerger>();
  reg.add<TCommonNodeEdgeActionsCpp>();
  reg.add<TNodeEdgeActionsForViewCpp>();
  reg.add<THierarchyActionsCpp>();
  reg.add<TInternalSelectionActionsCpp>();
  reg.add<TListHeaderActionsCpp>();
}

}  // namespace quorvel
