// The flow canvas in a window: the live picture of one flow network, with
// the mouse, menus and keys that edit it and step its scheduler.
#pragma once

#include <functional>
#include <optional>

#include "render/wx/MGlCanvas.h"
#include "shell/core/MFlowCanvasCore.h"

namespace quorvel {

class TFlowCanvas : public TGlCanvasBase, public TFlowCanvasCpp {
 public:
  // `network` gives the network to show at each paint: the program's
  // managers may be replaced while the window lives.
  TFlowCanvas(wxWindow* parent, std::shared_ptr<TCommonRenderer> renderer,
              std::function<std::shared_ptr<TFlowManager>()> network);
  ~TFlowCanvas() override;

  std::function<std::shared_ptr<TFlowManager>()> flowmgr;
  std::vector<TFlowClassMenu> processors;
  std::shared_ptr<TFlowObject> draggingflowobject;
  std::shared_ptr<TFlowObject> hoveringflowobject;
  std::optional<TVector2> startdraggingcorner;
  std::optional<TVector2> stopdraggingcorner;
  TVector2 camerapos{0.0f, 0.0f};

  void OnSetMatrices() override;
  void OnDraw() override;
  void OnMouseMotion(wxMouseEvent& evt) override;
  void OnMouseLeftDown(wxMouseEvent& evt) override;
  void OnMouseLeftUp(wxMouseEvent& evt) override;
  void OnMouseRightUp(wxMouseEvent& evt) override;
  void OnLeftMouseDoubleClick(wxMouseEvent& evt) override;
  void OnKey(wxKeyEvent& evt);

  // The objects under a window point, from the bottom up.
  std::vector<std::shared_ptr<TFlowObject>> objectsAt(const wxPoint& at);
  // A window point in the picture's coordinates.
  TVector2 toPicture(const wxPoint& at) const;
  // What a left click at a point does, as the mouse does it.
  void clickAt(const wxPoint& at);
  // The key's action on the object at the point.
  void keyAt(int key, bool control, const wxPoint& at);

 protected:
  void drawText(float x, float y, const std::string& text) override;

 private:
  void hover(const wxPoint& at);
  void showContextMenu(const std::shared_ptr<TFlowObject>& obj, const wxPoint& at);
  std::optional<std::string> askText(const std::string& prompt, const std::string& value);
  // The picture of names for picks, kept while the network and the camera
  // stay as they were: the mouse picks at every motion.
  bool pickListValid() const;
  GLuint m_PickList = 0;
  bool m_CompilingPickList = false;
  uint64_t m_PickEpoch = 0;
  unsigned m_PickEdits = 0;
  TVector2 m_PickCamera;
  wxSize m_PickSize;
  // Counts the canvas's own edits that move things without the network
  // knowing (drags).
  unsigned m_Edits = 0;
  std::optional<wxPoint> m_LeftDown;
};

// Opens the flow canvases "Flow lib" and "Flow layout" as child windows of
// the main window, each with a renderer of its own.
void openFlowCanvases(wxWindow* mainframe);

}  // namespace quorvel
