// Pictures of views as GUI tests compare them: what the screen shows, what
// a canvas paints from nothing kept, and how far two pictures differ.
#pragma once

#include <wx/wx.h>

#include <GL/gl.h>

#include <cstdlib>

#include "render/wx/MCommonRenderer.h"
#include "render/wx/MGlCanvas.h"
#include "widgets/MGui.h"

namespace quorvel::test {

// What the screen shows of a window, as the user sees it.
inline wxImage screenOf(wxWindow* w) { return grabScreen(w->GetScreenRect()); }

// A paint of the canvas from nothing kept: every display list dropped.
inline wxImage freshPaint(TGlCanvasBase* canvas) {
  canvas->commonrenderer->clearDisplayLists("");
  canvas->paintNow(false);
  const wxSize s = canvas->GetClientSize();
  wxImage image(s.x, s.y);
  glReadBuffer(GL_BACK);
  canvas->commonrenderer->readPixels(static_cast<unsigned>(s.x), static_cast<unsigned>(s.y), image.GetData());
  return image.Mirror(false);
}

// The share of pixels that differ by more than `tolerance` in a channel;
// 1 for pictures of different sizes.
inline double differing(const wxImage& a, const wxImage& b, int tolerance = 40) {
  if (a.GetSize() != b.GetSize()) return 1.0;
  const unsigned char* p = a.GetData();
  const unsigned char* q = b.GetData();
  const size_t n = static_cast<size_t>(a.GetWidth()) * static_cast<size_t>(a.GetHeight());
  size_t off = 0;
  for (size_t i = 0; i < n; ++i)
    for (int c = 0; c < 3; ++c)
      if (std::abs(p[3 * i + c] - q[3 * i + c]) > tolerance) {
        ++off;
        break;
      }
  return n ? static_cast<double>(off) / static_cast<double>(n) : 0.0;
}

}  // namespace quorvel::test
