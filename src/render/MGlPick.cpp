#include "MGlPick.h"

#include <GL/glu.h>

namespace quorvel {

std::vector<TPickHit> pickRegion(int x, int y, int w, int h, const std::function<void()>& projection,
                                 const std::function<void()>& draw, size_t buffersize) {
  std::vector<GLuint> buffer(buffersize);
  GLint viewport[4];
  glGetIntegerv(GL_VIEWPORT, viewport);

  glSelectBuffer(static_cast<GLsizei>(buffer.size()), buffer.data());
  glRenderMode(GL_SELECT);
  glInitNames();

  glMatrixMode(GL_PROJECTION);
  glPushMatrix();
  glLoadIdentity();
  gluPickMatrix(static_cast<GLdouble>(x), static_cast<GLdouble>(viewport[3] - y), static_cast<GLdouble>(w),
                static_cast<GLdouble>(h), viewport);
  projection();
  glMatrixMode(GL_MODELVIEW);

  draw();

  glMatrixMode(GL_PROJECTION);
  glPopMatrix();
  glMatrixMode(GL_MODELVIEW);
  glFlush();

  GLint count = glRenderMode(GL_RENDER);
  // A negative count means the buffer overflowed; read what is complete.
  std::vector<TPickHit> hits;
  size_t pos = 0;
  for (GLint i = 0; (count < 0 || i < count) && pos + 3 <= buffer.size(); ++i) {
    const GLuint depth = buffer[pos];
    if (pos + 3 + depth > buffer.size()) break;
    TPickHit hit;
    hit.zmin = buffer[pos + 1];
    hit.zmax = buffer[pos + 2];
    hit.names.assign(buffer.begin() + static_cast<long>(pos + 3), buffer.begin() + static_cast<long>(pos + 3 + depth));
    hits.push_back(std::move(hit));
    pos += 3 + depth;
    if (count < 0 && depth == 0 && hit.zmin == 0) break;
  }
  return hits;
}

}  // namespace quorvel
