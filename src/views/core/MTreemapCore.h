// The treemap without a window: its pins, the groups of the hierarchy, the
// squarified layout into nested rectangles, and its drawing through a draw
// sink.
#pragma once

#include <limits>
#include <memory>
#include <vector>

#include "engine/MLargePages.h"
#include "views/core/MVisualizer.h"

namespace quorvel {

class TTreemapProcessorImplementationCpp;

class TTreemapProcessorCpp : public TVisualizerProcessorBase {
 public:
  QV_CLASS_NAME(TTreemapProcessorCpp)
  TPinPtr m_NodeAreaAttrOrdnorm, m_NodeOrderAttrOrdnorm, m_Flatten, m_Flatten2, m_LowLevelBorder;
  std::shared_ptr<TTreemapProcessorImplementationCpp> m_Implementation;
  void postCreate() override;
  std::string getTypeName() override { return "treemap vis"; }
};

// One tile, 40 bytes: its nid, lft and rgt stand in the row of the same
// index of `hierarchy collapsed`. Its shown children (of area above 0) are
// a range of the shown list, the groups among them first. A tile with shown
// children is a group: its box is the rectangle they fill.
struct TTreemapNode {
  static constexpr uint32_t kNone = std::numeric_limits<uint32_t>::max();
  uint32_t nid = 0;
  uint32_t parent = kNone;
  uint32_t area = 0;
  uint32_t firstShown = 0, shownCount = 0;
  uint16_t level = 0;
  // Two bits set in one store as the tile is written: a field of bits
  // would be read first, and waits on memory.
  uint8_t flags = 0;
  // Written by the layout without reading the tile first.
  bool toosmall = false;
  TLayoutBox box;
  static constexpr uint8_t kCollapsed = 1, kHasChildren = 2;
  bool collapsed() const { return flags & kCollapsed; }
  bool hasChildren() const { return flags & kHasChildren; }
};
static_assert(sizeof(TTreemapNode) == 40);

// A rectangle as two ranges, so that an axis can be addressed by number:
// axis 0 is y, axis 1 is x.
struct TTreemapRect {
  float y0 = 0, y1 = 0, x0 = 0, x1 = 0;
  float lo(int axis) const { return axis == 0 ? y0 : x0; }
  float hi(int axis) const { return axis == 0 ? y1 : x1; }
  float length(int axis) const { return hi(axis) - lo(axis); }
};

// A shown child with what its parent's sorting and layout read of it, so
// that both run over one contiguous range: 8 bytes.
struct TTreemapSlot {
  uint32_t node : 31 = 0;
  // It shows children of its own.
  uint32_t group : 1 = 0;
  uint32_t area = 0;
  bool inner() const { return group != 0; }
};
static_assert(sizeof(TTreemapSlot) == 8);

class TTreemapProcessorImplementationCpp : public TVisualizerImplementationBase {
 public:
  TTreemapProcessorImplementationCpp(TTreemapProcessorCpp* processor, std::shared_ptr<TLabelCache> renderer);

  bool m_RedoLayout = false;
  uint32_t m_MaxLevel = 0;
  float m_SmallestSide = 2;
  // Pixels per layout unit: the longer side of the canvas.
  float m_Unit = 0;
  // The tiles in the order of the rows of `hierarchy collapsed`, which
  // `m_Rows` holds; the first is the root.
  std::vector<TTreemapNode, TLargePageAllocator<TTreemapNode>> m_Nodes;
  std::vector<TTreemapSlot, TLargePageAllocator<TTreemapSlot>> m_Shown;
  std::shared_ptr<const THierarchyData> m_Rows;

  // From this many tiles on, two threads share the tile pass and the
  // layout.
  size_t m_TilesForTwoThreads = 200000;
  bool hasRoot() const { return !m_Nodes.empty(); }
  void prepareRendering(int width, int height) override;
  void process();
  void createNodeObjects();
  void layout();
  // The tile list cut into pieces that two threads take in turn: the
  // ancestors of each piece's first tile, shared, have children in more
  // than one piece; every other tile has its parent in its own piece. One
  // piece below m_TilesForTwoThreads tiles.
  struct TPieces {
    std::vector<size_t> bounds;
    std::vector<uint32_t> shared;
    size_t size() const { return bounds.size() - 1; }
    size_t pieceOf(size_t tile) const;
  };
  TPieces pieces() const;
  // The tiles of a piece that show children, in order: the layout visits
  // only these.
  struct TFamilies {
    std::unique_ptr<uint32_t[]> tiles;
    size_t count = 0;
  };
  // Areas and shown children: sums from the last row up, then places
  // going down, and the families of each piece.
  void computeAreas(const TPieces& cut, std::vector<TFamilies>& families);
  void layoutChildren(const TTreemapNode& group);
  void layoutRow(const TTreemapRect& strip, size_t first, size_t count, int a, float k);
  // Bytes the layout holds, scratch included.
  size_t stateBytes() const;
  void renderNodes();

  // The tile of an lft, or null.
  const TTreemapNode* findByLft(uint32_t lft) const;
  // The node indices of the shown children.
  struct TShownRange {
    const TTreemapSlot* first;
    size_t count;
    struct iterator {
      const TTreemapSlot* p;
      uint32_t operator*() const { return p->node; }
      iterator& operator++() {
        ++p;
        return *this;
      }
      bool operator!=(const iterator& o) const { return p != o.p; }
    };
    iterator begin() const { return {first}; }
    iterator end() const { return {first + count}; }
    size_t size() const { return count; }
    bool empty() const { return count == 0; }
    uint32_t operator[](size_t i) const { return first[i].node; }
  };
  TShownRange shown(const TTreemapNode& n) const { return {m_Shown.data() + n.firstShown, n.shownCount}; }
  const TNodeVisual* visualOfLft(uint32_t lft) override;

 private:
  // One family's order keys while it is sorted.
  struct TKeyed {
    float key;
    bool hasKey;
    TTreemapSlot slot;
  };
  std::vector<TKeyed> m_KeyScratch;
  // What the areas and the order of shown children are read from.
  struct TAreaInputs {
    std::shared_ptr<const TFloatAttributeData> area, order;
    float maximum = 0;
  };
  TAreaInputs areaInputs() const;
  uint32_t leafArea(const TAreaInputs& in, uint32_t nid) const;
  // Sorts a group's shown children: groups first, each part by the
  // order, or else by area, largest first.
  void sortFamily(const TTreemapNode& group, const TAreaInputs& in, std::vector<TKeyed>& scratch);
  // The tile pass has left every sum and count at zero.
  bool m_SumsClear = false;
  TNodeVisual m_Scratch;
  TTreemapProcessorCpp* treemap() const { return static_cast<TTreemapProcessorCpp*>(m_Processor); }
  const TNodeVisual& visualOf(const TTreemapNode& n);
  TVisualNode recordOf(const TTreemapNode& n);
  // Breadth first from the root through the shown children.
  template <class F>
  void eachShown(F f) const;
  // The highest tiles whose nid is in the set.
  std::vector<uint32_t> highestIn(const TIntegerSetData* set) const;
};

void registerTreemapCore();

}  // namespace quorvel
