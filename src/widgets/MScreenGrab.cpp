// Pixels of the screen as the X server holds them. The toolkit's screen
// device context keeps a picture of the screen from its first use and
// hands that out again: what other windows drew since does not show.
#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include "widgets/MGui.h"

namespace quorvel {

namespace {

// The byte of a channel from a pixel, by the visual's mask.
unsigned char channel(unsigned long pixel, unsigned long mask) {
  if (!mask) return 0;
  int shift = 0;
  while (!((mask >> shift) & 1)) ++shift;
  const unsigned long value = (pixel & mask) >> shift;
  const unsigned long top = mask >> shift;
  return static_cast<unsigned char>(value * 255 / top);
}

}  // namespace

wxImage grabScreen(const wxRect& rect) {
  wxImage image(rect.width, rect.height);
  auto* display = static_cast<Display*>(static_cast<void*>(wxGetX11Display()));
  if (!display || rect.width <= 0 || rect.height <= 0) return wxImage();
  XImage* x = XGetImage(display, DefaultRootWindow(display), rect.x, rect.y, static_cast<unsigned>(rect.width),
                        static_cast<unsigned>(rect.height), AllPlanes, ZPixmap);
  if (!x) return wxImage();
  unsigned char* out = image.GetData();
  for (int row = 0; row < rect.height; ++row) {
    for (int col = 0; col < rect.width; ++col) {
      const unsigned long pixel = XGetPixel(x, col, row);
      *out++ = channel(pixel, x->red_mask);
      *out++ = channel(pixel, x->green_mask);
      *out++ = channel(pixel, x->blue_mask);
    }
  }
  XDestroyImage(x);
  return image;
}

}  // namespace quorvel
