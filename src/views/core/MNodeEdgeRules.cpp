#include "MNodeEdgeRules.h"

#include <optional>

#include "data/MAttributes.h"
#include "data/MHierarchy.h"
#include "data/MValues.h"

namespace quorvel {

template <class T>
std::shared_ptr<T> TNodeEdgeRules::pinData(const char* name) const {
  TPinPtr pin = m_Processor ? m_Processor->getInputPinByName(name) : nullptr;
  return pin ? std::dynamic_pointer_cast<T>(pin->getData()) : nullptr;
}

void TNodeEdgeRules::selectEdges(const TPicked& edges, bool clearselection) {
  auto collapsed = pinData<TEdgeCollapsedData>("edge collapsed");
  if (!collapsed) return;
  auto selection = pinData<TIntegerSetData>("edge primary selection");
  if (!selection || edges.empty()) return;
  if (clearselection) selection->clear();
  std::optional<uint32_t> first;
  for (const auto& [a, b] : edges) {
    bool found = false;
    for (uint32_t eid : collapsed->getForwardEids(a, b, found)) {
      selection->add(eid);
      if (!first) first = eid;
    }
    for (uint32_t eid : collapsed->getBackwardEids(a, b, found)) {
      selection->add(eid);
      if (!first) first = eid;
    }
  }
  // The view's clicked edge, where it has one, is the first edge of the
  // first record under the mouse.
  if (auto clicked = pinData<TIntegerData>("clicked edge"); clicked && first)
    clicked->setValue(static_cast<int32_t>(*first));
}

void TNodeEdgeRules::click(const TPicked& nodes, const TPicked& edges, bool control, bool shift) {
  auto selection = pinData<TIntegerSetData>("node primary selection");
  if (!selection) return;
  if (!edges.empty()) return selectEdges(edges, !control);
  if (nodes.empty()) return;
  const uint32_t nid = nodes.back().second;
  if (!control) selection->clear();
  auto hierarchy = pinData<THierarchyData>("hierarchy");
  if (shift && hierarchy) {
    for (uint32_t id : hierarchy->getNidsBelowNid(nid)) selection->add(id);
  } else {
    selection->add(nid);
  }
}

void TNodeEdgeRules::doubleClick(const TPicked& nodes, const TPicked& edges) {
  if (!nodes.empty()) {
    if (auto collapsed = pinData<TBoolAttributeData>("collapsed")) collapsed->setValueById(nodes.back().second, false);
    return;
  }
  if (!edges.empty()) return;
  if (auto nodesel = pinData<TIntegerSetData>("node primary selection")) nodesel->clear();
  if (auto edgesel = pinData<TIntegerSetData>("edge primary selection")) edgesel->clear();
}

void TNodeEdgeRules::hover(const TPicked& nodes, const TPicked& edges, bool shift, bool leftDragging) {
  if (!edges.empty() && leftDragging) selectEdges(edges, false);
  if (auto brushedEdges = pinData<TIntegerPairSetData>("brushed edges")) {
    brushedEdges->clear();
    for (const auto& [a, b] : edges) brushedEdges->addPair(a, b);
  }
  auto brushed = pinData<TIntegerSetData>("brushed nodes");
  if (!brushed) return;
  if (nodes.empty()) return brushed->clear();
  const uint32_t nid = nodes.back().second;
  brushed->clear();
  auto hierarchy = pinData<THierarchyData>("hierarchy");
  if (hierarchy && shift) {
    for (uint32_t id : hierarchy->getNidsBelowNid(nid)) brushed->add(id);
  } else {
    brushed->setSingle(nid);
  }
}

}  // namespace quorvel
