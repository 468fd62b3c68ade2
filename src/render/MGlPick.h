// Picking in OpenGL's selection render mode.
#pragma once

#include <GL/gl.h>

#include <functional>
#include <vector>

namespace quorvel {

struct TPickHit {
  GLuint zmin = 0;
  GLuint zmax = 0;
  // The name stack at the time of the hit, bottom first.
  std::vector<GLuint> names;
};

// Draws `draw` in selection mode, limited to the w by h pixel rectangle
// centred on (x, y) of the current viewport, with y counted from the top of
// the window. `projection` sets up the projection the view normally uses;
// the pick matrix goes in front of it. Hits come in the order OpenGL reports
// them. A full selection buffer gives the hits that fitted.
std::vector<TPickHit> pickRegion(int x, int y, int w, int h, const std::function<void()>& projection,
                                 const std::function<void()>& draw, size_t buffersize = 4096);

}  // namespace quorvel
