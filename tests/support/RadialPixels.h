// Where a point of the radial view's rings lies in its window, as the view
// draws it: the rim the largest circle the canvas holds, at its centre.
#pragma once

#include <wx/gdicmn.h>

#include <algorithm>
#include <cmath>

#include "views/core/MVisualizer.h"

namespace quorvel::test {

// The window pixel of a layout point on a canvas of client size `s`.
inline wxPoint radialPixel(const wxSize& s, float x, float y) {
  const float scale = std::min(s.GetWidth(), s.GetHeight()) / 2.0f;
  const TVector2 p = TToArcScreenConverter(1, 1).toScreen(x, y);
  return {static_cast<int>(std::lround(s.GetWidth() / 2.0f + p.x * scale)),
          static_cast<int>(std::lround(s.GetHeight() / 2.0f - p.y * scale))};
}

// A point of a node's cell, by default its middle.
inline wxPoint radialCentre(const wxSize& s, const TVisualNode& n, float along = 0.5f, float across = 0.5f) {
  const TLayoutBox& b = n.current.box;
  return radialPixel(s, b.x0 + (b.x1 - b.x0) * along, b.y0 + (b.y1 - b.y0) * across);
}

}  // namespace quorvel::test
