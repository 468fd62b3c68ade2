#include "MNodeEdgeInteractor.h"

#include <optional>

#include <GL/gl.h>

#include <algorithm>
#include <set>

#include "data/MHierarchy.h"
#include "engine/MMediator.h"
#include "widgets/MGui.h"

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
    : TGlCanvasBase(parent, std::move(renderer)), processor(p), rules(p) {
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
  rules.selectEdges(edges, clearselection);
}

void TNodeEdgeInteractorCanvas::OnMouseMotion(wxMouseEvent& evt) {
  TGlCanvasBase::OnMouseMotion(evt);
  if (pendingrefresh) return;
  auto [nodes, edges] = getPickedSet();
  hoverednodes = nodes;
  hoverededges = edges;
  rules.hover(nodes, edges, wxGetKeyState(WXK_SHIFT), evt.LeftIsDown() && evt.Dragging());
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
  rules.click(nodes, edges, evt.ControlDown(), evt.ShiftDown());
}

void TNodeEdgeInteractorCanvas::OnLeftMouseDoubleClick(wxMouseEvent&) {
  auto [nodes, edges] = getPickedSet();
  rules.doubleClick(nodes, edges);
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
