// Labels as pictures in shared textures: the cache that views ask, and the
// arithmetic that places label pictures in rows of 512 by 512 textures.
#pragma once

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "engine/MFlowObjects.h"

namespace quorvel {

// Texts map to a texture and a place in it (texture coordinates 0 to 1,
// top left to bottom right). Texts not yet drawn wait in a queue, which the
// renderer works off between frames.
class TLabelCache {
 public:
  virtual ~TLabelCache() = default;

  std::vector<std::string> m_LabelTextureCacheQueue;

  // The texture of a label and its place; 0 for an empty text, and 0 for a
  // text that is not drawn yet, which then joins the queue.
  unsigned getLabelTexture(const std::string& text, TBox& box);
  void insertIntoLabelCache(const std::string& text, unsigned texture, std::shared_ptr<TBox> box);
  bool isTextureGenerationNeeded() const { return !m_LabelTextureCacheQueue.empty(); }
  size_t labelCount() const { return m_LabelCache.size(); }

  // Texture names of the cushions once made (entry 0 is the one views bind).
  std::vector<unsigned> m_CushionTextures;
  unsigned cushionTexture() const { return m_CushionTextures.empty() ? 0 : m_CushionTextures[0]; }

 private:
  struct Entry {
    unsigned texture = 0;
    std::shared_ptr<TBox> box;
  };
  std::unordered_map<std::string, Entry> m_LabelCache;
};

// Places text pictures left to right in rows, rows top to bottom, in
// textures of kSize pixels square. Texture 0 is never filled: the first
// text opens texture 1.
class TLabelPacker {
 public:
  static constexpr int kSize = 512;
  static constexpr int kTextures = 256;

  struct TPlace {
    // The picture so far must go into texture `flushTexture` and the
    // picture be cleared before this text is drawn.
    bool flush = false;
    int flushTexture = 0;
    int x = 0, y = 0;
    // The texture the text lands in and its place there.
    int texture = 0;
    TBox box;
  };

  int x = 0, y = 0, curtex = 0;
  // How many textures there are to fill (texture 0 included).
  int textures = kTextures;
  bool toomany = false;
  int toowide = 0;

  void reset();
  // The place of a text of that extent (width, height and descent as the
  // font gives them). Throws "Too many textures" when all are full.
  TPlace place(int width, int height, int descent);
};

}  // namespace quorvel
