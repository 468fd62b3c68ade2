// The picture of a flow network computed without a window: where boxes,
// processors, pins and connectors stand and in which colours, the texts of
// tooltips and menus, and the edits the canvas makes. The window's canvas
// draws through a sink and passes the mouse and keys on.
#pragma once

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "engine/MFlowManager.h"
#include "render/core/MDrawSink.h"

namespace quorvel {

class TFlowCanvasCpp {
 public:
  virtual ~TFlowCanvasCpp() = default;

  float m_PinWidth = 10.0f;
  float m_PinHeight = 10.0f;
  // Drawing for picking: no text.
  bool m_Picking = false;
  // The pin a connection is being drawn from.
  std::shared_ptr<TFlowObject> m_ActiveFlowObject;
  // What a click would take.
  std::shared_ptr<TFlowObject> m_ClickPossibleFlowObject;
  std::set<TProcessorPtr> m_SelectedProcessors;

  // Inputs stand above the processor's area, outputs below it, side by
  // side from its left edge; with `center`, the middle of the pin. A pin of
  // neither list gives (0, 0).
  std::pair<float, float> getPinPosition(const TAbstractProcessor& proc, const TAbstractPin& pin, bool center) const;

  // The box's processors and pins, their connectors, and its child boxes;
  // the root box itself is not drawn.
  void drawBox(TDrawSink& sink, TAbstractBox& box);
  void drawProcessor(TDrawSink& sink, TAbstractProcessor& proc);

 protected:
  // A text at a point of the picture, its baseline at y; the window prints
  // it in the 8 by 13 bitmap font.
  virtual void drawText(float x, float y, const std::string& text) {
    (void)x;
    (void)y;
    (void)text;
  }

 private:
  bool emphasized(const TFlowObject* obj) const;
  void outlinedRect(TDrawSink& sink, const TBox& area, float lineWidth);
};

// The width of a text in the 8 by 13 bitmap font.
int getTextLength(const std::string& text);

// The object a mouse points at, of those under it from the bottom up: the
// last pin if there is one, else the last object.
std::shared_ptr<TFlowObject> hoveredObject(const std::vector<std::shared_ptr<TFlowObject>>& underMouse);

// The tooltip of an object under the mouse.
std::string flowTooltip(TFlowObject& obj);

// The classes of the canvas's menus: those of the top level under the
// title "", then each submenu. Classes this build lacks are left out, each
// said once in the log.
struct TFlowClassMenu {
  std::string title;
  std::vector<std::string> classes;
};
std::vector<TFlowClassMenu> flowClassMenus();

// The entries of the context menu of `obj` (null: the manager), first of
// all for a box with processors selected.
std::vector<std::string> flowContextMenu(TFlowObject* obj, bool processorsSelected);

// The edits of the canvas.
// A processor of the class at (x, y), as wide as its name, added to `box`.
TProcessorPtr addProcessorAt(TAbstractBox& box, const std::string& classname, float x, float y);
// The processor made anew as `classname` in its place, with the connectors
// of pins whose names the new class has; the old one is destroyed.
TProcessorPtr replaceProcessor(const TProcessorPtr& old, const std::string& classname);
// A new box at (x, y) in `box` holding the processors.
TBoxPtr groupProcessors(TAbstractBox& box, const std::set<TProcessorPtr>& processors, float x, float y);
// The box's processors go to its parent and the box goes; raises
// "parentbox == box" for the root.
void ungroupBox(const TBoxPtr& box);
// The key D: a pin loses its connectors, anything else but the manager is
// destroyed. False when nothing was deleted.
bool deleteFlowObject(const std::shared_ptr<TFlowObject>& obj);
// "Set value": the source's value read from text; raises on a text that is
// no form of the value's type, and the value stays.
void setSourceValue(TAbstractProcessor& source, const std::string& text);
// "View data": the value's text form, "none" without one.
std::string viewPinData(const TAbstractPin& pin);

}  // namespace quorvel
