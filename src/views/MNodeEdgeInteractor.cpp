#include "MNodeEdgeInteractor.h"

#include <optional>

#include <GL/gl.h>

#include <algorithm>
#include <set>

#include "data/MHierarchy.h"
#include "engine/MMediator.h"
#include "shell/MGui.h"

namespace quorvel {

std::pair<TNodeEdgeInteractorCanvas::TPicked, TNodeEdgeInteractorCanvas::TPicked> sortPicks(
    const std::vector<std::vector<unsigned>>& hits) {
  TNodeEdgeInteractorCanvas::TPicked nodes, edges;
  std::set<uint32_t> levels;
  for (const auto& names : hits) {
    if (names.size() <= 1) continue;
    if (names[0] == kPickNode && names.size() >= 3) {
      if (levels.insert(names[1]).second) nodes.emplace_back(names[1], names[2]);
    } else if (names[0] == kPickEdge && names.size() >= 3) {
      edges.emplace_back(names[1], names[2]);
    }
  }
  std::stable_sort(nodes.begin(), nodes.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  return {nodes, edges};
}

TNodeEdgeInteractorCanvas::TNodeEdgeInteractorCanvas(wxWindow* parent, std::shared_ptr<TCommonRenderer> renderer,
                                                     TAbstractProcessor* p)
    : TGlCanvasBase(parent, std::move(renderer)), processor(p) {
  Bind(wxEVT_KEY_UP, &TNodeEdgeInteractorCanvas::OnKeyUp, this);
}

template <class T>
std::shared_ptr<T> TNodeEdgeInteractorCanvas::pinData(const char* name) const {
  TPinPtr pin = processor ? processor->getInputPinByName(name) : nullptr;
  return pin ? std::dynamic_pointer_cast<T>(pin->getData()) : nullptr;
}

std::pair<TNodeEdgeInteractorCanvas::TPicked, TNodeEdgeInteractorCanvas::TPicked>
TNodeEdgeInteractorCanvas::getPickedSet() {
  return sortPicks(Pick());
}

void TNodeEdgeInteractorCanvas::selectEdges(const TPicked& edges, bool clearselection) {
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

void TNodeEdgeInteractorCanvas::processHoverNodes(const TPicked& nodes) {
  auto brushed = pinData<TIntegerSetData>("brushed nodes");
  if (!brushed) return;
  if (nodes.empty()) return brushed->clear();
  const uint32_t nid = nodes.back().second;
  brushed->clear();
  auto hierarchy = pinData<THierarchyData>("hierarchy");
  if (hierarchy && wxGetKeyState(WXK_SHIFT)) {
    for (uint32_t id : hierarchy->getNidsBelowNid(nid)) brushed->add(id);
  } else {
    brushed->setSingle(nid);
  }
}

void TNodeEdgeInteractorCanvas::processHoverEdges(const TPicked& edges) {
  auto brushed = pinData<TIntegerPairSetData>("brushed edges");
  if (!brushed) return;
  brushed->clear();
  for (const auto& [a, b] : edges) brushed->addPair(a, b);
}

void TNodeEdgeInteractorCanvas::OnMouseMotion(wxMouseEvent& evt) {
  TGlCanvasBase::OnMouseMotion(evt);
  if (pendingrefresh) return;
  auto [nodes, edges] = getPickedSet();
  hoverednodes = nodes;
  hoverededges = edges;
  if (!edges.empty() && evt.LeftIsDown() && evt.Dragging()) selectEdges(edges, false);
  processHoverEdges(edges);
  processHoverNodes(nodes);
}

void TNodeEdgeInteractorCanvas::hoverAt(const wxPoint& pos, bool leftdown, bool dragging) {
  wxMouseEvent evt(wxEVT_MOTION);
  evt.SetPosition(pos);
  evt.m_leftDown = leftdown;
  if (dragging) evt.m_leftDown = true;
  OnMouseMotion(evt);
}

void TNodeEdgeInteractorCanvas::clickAt(const wxPoint& pos, bool control, bool shift) {
  wxMouseEvent evt(wxEVT_LEFT_DOWN);
  evt.SetPosition(pos);
  evt.SetControlDown(control);
  evt.SetShiftDown(shift);
  evt.m_leftDown = true;
  mousepos = pos;
  OnMouseLeftDown(evt);
}

void TNodeEdgeInteractorCanvas::doubleClickAt(const wxPoint& pos) {
  wxMouseEvent evt(wxEVT_LEFT_DCLICK);
  evt.SetPosition(pos);
  mousepos = pos;
  OnLeftMouseDoubleClick(evt);
}

void TNodeEdgeInteractorCanvas::OnMouseLeftDown(wxMouseEvent& evt) {
  TGlCanvasBase::OnMouseLeftDown(evt);
  auto [nodes, edges] = getPickedSet();
  auto selection = pinData<TIntegerSetData>("node primary selection");
  if (!selection) return;
  const bool control = evt.ControlDown();
  const bool shift = evt.ShiftDown();
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

void TNodeEdgeInteractorCanvas::OnLeftMouseDoubleClick(wxMouseEvent&) {
  auto [nodes, edges] = getPickedSet();
  if (!nodes.empty()) {
    if (auto collapsed = pinData<TBoolAttributeData>("collapsed")) collapsed->setValueById(nodes.back().second, false);
    return;
  }
  if (!edges.empty()) return;
  if (auto nodesel = pinData<TIntegerSetData>("node primary selection")) nodesel->clear();
  if (auto edgesel = pinData<TIntegerSetData>("edge primary selection")) edgesel->clear();
}

void TNodeEdgeInteractorCanvas::OnMouseRightUp(wxMouseEvent& evt) {
  TGlCanvasBase::OnMouseRightUp(evt);
  TPinPtr actions = processor ? processor->getInputPinByName("actions") : nullptr;
  const std::set<std::string> tags{"popup"};
  if (actions && guiMgr()) guiMgr()->showContextMenu(this, actionListOn(actions), &tags);
}

void TNodeEdgeInteractorCanvas::OnMouseLeave(wxMouseEvent& evt) {
  TGlCanvasBase::OnMouseLeave(evt);
  if (guiMgr() && guiMgr()->activepopupmenu) return;
  if (auto brushed = pinData<TIntegerSetData>("brushed nodes")) brushed->clear();
}

bool TNodeEdgeInteractorCanvas::generateLabelTextures() {
  if (picking || !commonrenderer->isTextureGenerationNeeded()) return false;
  me.startBusy("Generating textures...");
  try {
    commonrenderer->generateTextures();
  } catch (const std::exception&) {
    if (processor) processor->setError("Too many textures");
  }
  me.stopBusy(" ");
  return true;
}

void TNodeEdgeInteractorCanvas::drawTooltip(const std::optional<std::string>& text) {
  glPushMatrix();
  glTranslatef(0, static_cast<float>(GetClientSize().GetHeight()), 0);
  glScalef(1, -1, 1);
  if (text) {
    commonrenderer->tooltip->generate(*text);
    const wxPoint at = mousepos.value_or(wxPoint(0, 0));
    commonrenderer->tooltip->render(&at, *this);
  }
  glPopMatrix();
}

void TNodeEdgeInteractorCanvas::OnKeyUp(wxKeyEvent& evt) {
  if (processor) processKey(processor->selfPtr(), evt);
}

}  // namespace quorvel
