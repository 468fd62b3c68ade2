#include "MTexturePacker.h"

#include <algorithm>

namespace quorvel {

std::vector<std::vector<int>> TexturePacker::pack(const std::vector<int>& sizes, bool rotate) {
  m_Nodes.clear();
  m_Rectangles.clear();
  m_Roots.clear();
  m_Placed = 0;
  for (size_t i = 0; i + 1 < sizes.size(); i += 2) {
    if (sizes[i] > kSize || sizes[i + 1] > kSize) throw std::runtime_error("TexturePacker: texture too wide");
    Node r;
    r.width = sizes[i];
    r.height = sizes[i + 1];
    r.index = static_cast<int>(i / 2);
    m_Rectangles.push_back(r);
  }
  std::stable_sort(m_Rectangles.begin(), m_Rectangles.end(),
                   [](const Node& a, const Node& b) { return a.width * a.height > b.width * b.height; });
  while (m_Placed < m_Rectangles.size()) {
    Node root;
    root.width = kSize;
    root.height = kSize;
    m_Nodes.push_back(root);
    m_Roots.push_back(static_cast<int>(m_Nodes.size() - 1));
    const size_t before = m_Placed;
    fill(m_Roots.back(), rotate);
    // A rectangle of no area or one that fits nowhere would loop forever.
    if (m_Placed == before) break;
  }
  std::vector<std::vector<int>> bins;
  for (int root : m_Roots) {
    bins.emplace_back();
    collect(root, bins.back());
  }
  return bins;
}

void TexturePacker::fill(int node, bool rotate) {
  while (node >= 0) {
    Node* found = nullptr;
    for (auto& r : m_Rectangles) {
      if (r.placed) continue;
      const Node& n = m_Nodes[node];
      if (r.width <= n.width && r.height <= n.height) {
        found = &r;
        break;
      }
      if (rotate && r.height <= n.width && r.width <= n.height) {
        std::swap(r.width, r.height);
        r.rotated = !r.rotated;
        found = &r;
        break;
      }
    }
    if (!found) return;
    ++m_Placed;
    split(node, *found);
    fill(m_Nodes[node].left, rotate);
    node = m_Nodes[node].right;
  }
}

void TexturePacker::split(int node, Node& rectangle) {
  const Node n = m_Nodes[node];
  const int w = rectangle.width;
  const int h = rectangle.height;
  const int W = n.width;
  const int H = n.height;
  auto make = [&](int x, int y, int width, int height) {
    Node f;
    f.x = x;
    f.y = y;
    f.width = width;
    f.height = height;
    return f;
  };
  const Node A = make(n.x, n.y + h, w, H - h);
  const Node B = make(n.x + w, n.y, W - w, H);
  const Node C = make(n.x + w, n.y, W - w, h);
  const Node D = make(n.x, n.y + h, W, H - h);
  auto area = [](const Node& f) { return static_cast<long>(f.width) * f.height; };
  Node first;
  Node second;
  if (std::max(area(A), area(B)) > std::max(area(C), area(D))) {
    first = area(A) > area(B) ? A : B;
    second = area(A) > area(B) ? B : A;
  } else {
    first = area(C) > area(D) ? C : D;
    second = area(C) > area(D) ? D : C;
  }
  m_Nodes.push_back(first);
  const int left = static_cast<int>(m_Nodes.size() - 1);
  m_Nodes.push_back(second);
  const int right = static_cast<int>(m_Nodes.size() - 1);
  Node& target = m_Nodes[node];
  target.left = left;
  target.right = right;
  target.width = w;
  target.height = h;
  target.index = rectangle.index;
  target.rotated = rectangle.rotated;
  rectangle.placed = true;
}

void TexturePacker::collect(int node, std::vector<int>& out) const {
  while (node >= 0 && m_Nodes[node].index >= 0) {
    const Node& n = m_Nodes[node];
    out.insert(out.end(), {n.index, n.x, n.y, n.rotated ? 1 : 0});
    collect(n.left, out);
    node = n.right;
  }
}

// ---------------------------------------------------------------------------

void TImageBuilderCpp::addRectangle(int key, int width, int height) {
  if (!m_Keys.insert(key).second) return;
  m_Rectangles.push_back(width);
  m_Rectangles.push_back(height);
  m_RectangleKeys.push_back(key);
  m_Dirty = true;
}

void TImageBuilderCpp::pack() {
  const auto bins = m_Packer.pack(m_Rectangles);
  m_Locations.clear();
  m_BitmapCount = static_cast<unsigned>(bins.size());
  for (size_t b = 0; b < bins.size(); ++b) {
    for (size_t i = 0; i + 3 < bins[b].size(); i += 4) {
      const int number = bins[b][i];
      const float x = static_cast<float>(bins[b][i + 1]);
      const float y = static_cast<float>(bins[b][i + 2]);
      const float w = static_cast<float>(m_Rectangles[2 * number]);
      const float h = static_cast<float>(m_Rectangles[2 * number + 1]);
      m_Locations[m_RectangleKeys[number]] = {static_cast<int>(b), TBox(x, y, x + w, y + h)};
    }
  }
  m_Dirty = false;
}

std::pair<int, TBox> TImageBuilderCpp::getKey2BitmapLocation(int key) const {
  auto it = m_Locations.find(key);
  if (it == m_Locations.end()) throw std::out_of_range("getKey2BitmapLocation(): key " + std::to_string(key) + " has no place");
  return it->second;
}

bool TImageBuilderCpp::findLocation(int key, int& bitmap, TBox& box) const {
  auto it = m_Locations.find(key);
  if (it == m_Locations.end()) return false;
  bitmap = it->second.first;
  box = it->second.second;
  return true;
}

}  // namespace quorvel
