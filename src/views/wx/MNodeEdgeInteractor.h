// The canvas of the views that show nodes and edges: what lies under the
// mouse becomes the hovered ids, clicks select, a double click unfolds,
// keys and the right button reach the view's actions.
#pragma once

#include <utility>
#include <vector>

#include "render/wx/MGlCanvas.h"
#include "views/core/MNodeEdgeRules.h"
#include "views/core/MVisualizer.h"

namespace quorvel {

class TNodeEdgeInteractorCanvas : public TGlCanvasBase {
 public:
  using TPicked = TNodeEdgeRules::TPicked;

  TNodeEdgeInteractorCanvas(wxWindow* parent, std::shared_ptr<TCommonRenderer> renderer,
                            TAbstractProcessor* processor);

  TAbstractProcessor* processor;
  // What the mouse does, from the picked ids and the modifier keys.
  TNodeEdgeRules rules;
  std::optional<TPicked> hoverednodes;
  std::optional<TPicked> hoverededges;

  // Nodes as (level, nid) sorted by level, the first hit of each level
  // only; edges as (smallerlft, largerlft) as they came.
  std::pair<TPicked, TPicked> getPickedSet();
  void selectEdges(const TPicked& edges, bool clearselection);

  void OnMouseMotion(wxMouseEvent& evt) override;
  void OnMouseLeftDown(wxMouseEvent& evt) override;
  void OnLeftMouseDoubleClick(wxMouseEvent& evt) override;
  void OnMouseRightUp(wxMouseEvent& evt) override;
  void OnMouseLeave(wxMouseEvent& evt) override;
  void OnKeyUp(wxKeyEvent& evt);

  // The label textures before a paint, when new texts wait: true when they
  // were made, so that the lists holding labels must go.
  bool generateLabelTextures();
  // The tooltip at the mouse, in window coordinates.
  void drawTooltip(const std::optional<std::string>& text);

  // The same from a position and the modifier keys, for the handlers and
  // for tests that play a user's hand.
  void hoverAt(const wxPoint& pos, bool leftdown = false, bool dragging = false);
  void clickAt(const wxPoint& pos, bool control, bool shift);
  void doubleClickAt(const wxPoint& pos);

 private:
  template <class T>
  std::shared_ptr<T> pinData(const char* name) const;
};

// Turns hit records into picked nodes and edges, as getPickedSet does.
std::pair<TNodeEdgeInteractorCanvas::TPicked, TNodeEdgeInteractorCanvas::TPicked> sortPicks(
    const std::vector<std::vector<unsigned>>& hits);

}  // namespace quorvel
