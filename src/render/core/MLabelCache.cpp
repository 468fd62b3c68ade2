#include "MLabelCache.h"

#include <stdexcept>

namespace quorvel {

unsigned TLabelCache::getLabelTexture(const std::string& text, TBox& box) {
  if (text.empty()) return 0;
  auto it = m_LabelCache.find(text);
  if (it == m_LabelCache.end()) {
    m_LabelTextureCacheQueue.push_back(text);
    return 0;
  }
  if (it->second.box) box = *it->second.box;
  return it->second.texture;
}

void TLabelCache::insertIntoLabelCache(const std::string& text, unsigned texture, std::shared_ptr<TBox> box) {
  m_LabelCache[text] = Entry{texture, std::move(box)};
}

void TLabelPacker::reset() {
  x = y = curtex = 0;
  toomany = false;
  toowide = 0;
}

TLabelPacker::TPlace TLabelPacker::place(int width, int height, int descent) {
  int ex = width + 3;
  int ey = height + descent;
  if (ex >= kSize) {
    ++toowide;
    ex = kSize - 1;
  }
  if (ey >= kSize) ey = kSize - 1;
  TPlace p;
  int nx = x, ny = y;
  if (nx + ex > kSize) {
    nx = 0;
    ny += ey;
  }
  if (curtex == 0 || ny + ey > kSize) {
    // A text that does not fit anywhere moves nothing: what the textures
    // hold stays where it is.
    if (curtex + 1 >= textures) {
      toomany = true;
      throw std::runtime_error("Too many textures");
    }
    p.flush = true;
    p.flushTexture = curtex;
    nx = ny = 0;
    ++curtex;
  }
  x = nx;
  y = ny;
  p.x = x;
  p.y = y;
  p.texture = curtex;
  const float s = kSize;
  p.box = TBox(x / s, y / s, (x + ex) / s, (y + ey) / s);
  x += ex;
  return p;
}

}  // namespace quorvel
