// Packing small images into square bitmaps of 512 by 512 pixels: the
// packer, and the part of the image builder that needs no window library.
#pragma once

#include <map>
#include <set>
#include <stdexcept>
#include <utility>
#include <vector>

#include "engine/MFlowObjects.h"

namespace quorvel {

class TexturePacker {
 public:
  static constexpr int kSize = 512;

  struct Node {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
    int index = -1;
    int left = -1;
    int right = -1;
    bool rotated = false;
    bool placed = false;
  };

  // Places rectangles given as (width, height) pairs into bins. Gives, for
  // each bin, four ints per rectangle: its number, x, y and rotated.
  // Raises "TexturePacker: texture too wide" for a side above 512.
  std::vector<std::vector<int>> pack(const std::vector<int>& sizes, bool rotate = false);

  const std::vector<Node>& nodes() const { return m_Nodes; }

 private:
  void fill(int node, bool rotate);
  void split(int node, Node& rectangle);
  void collect(int node, std::vector<int>& out) const;

  std::vector<Node> m_Nodes;
  std::vector<Node> m_Rectangles;
  std::vector<int> m_Roots;
  size_t m_Placed = 0;
};

// Keys and sizes of the images, their places after packing; drawing the
// bitmaps is left to the window library's subclass.
class TImageBuilderCpp {
 public:
  virtual ~TImageBuilderCpp() = default;

  std::set<int> m_Keys;

  // An existing key changes nothing.
  void addRectangle(int key, int width, int height);
  void pack();
  unsigned getBitmapCount() const { return m_BitmapCount; }
  // The place of a key of the last pack. Raises for a key it did not place.
  std::pair<int, TBox> getKey2BitmapLocation(int key) const;
  // The same without raising; the map stays unchanged.
  bool findLocation(int key, int& bitmap, TBox& box) const;
  bool isDirty() const { return m_Dirty; }
  void setDirty(bool dirty) { m_Dirty = dirty; }

  // Draws the bitmaps; must leave the images filled (count and data).
  virtual void createImagesInPython() = 0;
  virtual size_t imageCount() const = 0;
  // 3 bytes a pixel, red, green, blue, rows from the top: 512 x 512 x 3.
  virtual const unsigned char* imageData(size_t index) const = 0;

 private:
  std::vector<int> m_Rectangles;
  std::vector<int> m_RectangleKeys;
  std::map<int, std::pair<int, TBox>> m_Locations;
  TexturePacker m_Packer;
  unsigned m_BitmapCount = 0;
  bool m_Dirty = true;
};

// The alpha that an icon pixel gets in its texture: the empty parts of a
// bitmap are black, and black and almost black pixels are transparent.
inline unsigned char iconAlpha(unsigned char r, unsigned char g, unsigned char b) {
  return (r >= 3 || g >= 3 || b >= 3) ? 255 : 0;
}

}  // namespace quorvel
