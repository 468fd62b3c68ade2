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
  if (x + ex > kSize) {
    x = 0;
    y += ey;
  }
  if (curtex == 0 || y + ey > kSize) {
    p.flush = true;
    p.flushTexture = curtex;
    x = y = 0;
    ++curtex;
    if (curtex >= kTextures) {
      --curtex;
      toomany = true;
      throw std::runtime_error("Too many textures");
    }
  }
  p.x = x;
  p.y = y;
  p.texture = curtex;
  const float s = kSize;
  p.box = TBox(x / s, y / s, (x + ex) / s, (y + ey) / s);
  x += ex;
  return p;
}

}  // namespace quorvel
