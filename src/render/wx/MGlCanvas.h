// The one OpenGL window class. It paints and picks through the same OnDraw
// of the derived view, keeps the mouse, and writes its pixels to files or
// the clipboard.
#pragma once

#include <wx/glcanvas.h>
#include <wx/wx.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/MFlowObjects.h"
#include "render/wx/MCommonRenderer.h"

namespace quorvel {

class TGlCanvasBase : public wxGLCanvas {
 public:
  TGlCanvasBase(wxWindow* parent, std::shared_ptr<TCommonRenderer> renderer);
  ~TGlCanvasBase() override;

  std::shared_ptr<TCommonRenderer> commonrenderer;
  bool initialized = false;
  bool picking = false;
  std::optional<wxPoint> mousepos;
  std::optional<TVector2> mouseposvector;
  wxPoint lastmousepos{0, 0};
  std::optional<wxPoint> previousmouspos;
  bool pendingrefresh = false;
  wxSize size;
  float viewportlx = 0, viewportly = 0, viewportrx = 0, viewportry = 0;
  wxPoint pickcoord;

  virtual void OnInit() {}
  virtual void OnSetMatrices() {}
  virtual void OnDraw() = 0;
  virtual void OnMouseMotion(wxMouseEvent& evt);
  virtual void OnMouseLeftUp(wxMouseEvent& evt) { evt.Skip(); }
  virtual void OnMouseRightUp(wxMouseEvent& evt) { evt.Skip(); }
  virtual void OnMouseLeftDown(wxMouseEvent& evt) { evt.Skip(); }
  virtual void OnLeftMouseDoubleClick(wxMouseEvent& evt) { evt.Skip(); }
  virtual void OnMouseLeave(wxMouseEvent& evt);
  virtual void OnSize(wxSizeEvent* event);

  void refresh();
  bool setCurrent();
  std::vector<std::vector<unsigned>> Pick();
  // To the file (BMP, or PNG for a name ending in ".png"), or to the
  // clipboard without a name.
  void makeScreenshot(const std::optional<std::string>& filename);
  void makeScreenshotLarge(const std::optional<std::string>& filename);
  // Draws one frame into the back buffer now, as a paint does, and shows it
  // unless told otherwise.
  void paintNow(bool swap = true);
  // Brings the canvas to the screen for a picture: its tab to the front,
  // and the toolkit's pending layout done; false when it cannot be shown.
  bool prepareForPicture();

 private:
  void OnPaint(wxPaintEvent& evt);
  void OnEraseBackground(wxEraseEvent&) {}
  void OnSizeEvent(wxSizeEvent& evt) { OnSize(&evt); }
  void drawFrame();
  void resetViewport();
  void saveImage(wxImage& image, const std::optional<std::string>& filename);
  wxGLContext* m_Context = nullptr;
};

}  // namespace quorvel
