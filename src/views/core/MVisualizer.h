// What the radial view and the treemap share without a window: their
// common pins, the records of the shown nodes, the converters from layout
// to drawing coordinates, and the drawing of cells, outlines, marks and
// labels through a draw sink.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <unordered_map>
#include <vector>

#include "data/MAttributes.h"
#include "data/MColorMap.h"
#include "data/MHierarchy.h"
#include "engine/MFlowObjects.h"
#include "render/core/MDrawSink.h"
#include "render/core/MLabelCache.h"

namespace quorvel {

// The first names of the selection records: nodes are drawn under
// (kPickNode, level, nid), edges under (kPickEdge, smallerlft, largerlft).
constexpr unsigned kPickNode = 1;
constexpr unsigned kPickEdge = 2;

// The pins of the views that show a hierarchy with shared selections.
class TVisualizerProcessorBase : public TAbstractProcessor {
 public:
  TPinPtr m_GuiParent, m_NodeTextAttr, m_NodeColorAttr, m_NodeColorAttrOrdnorm, m_NodeIconAttr, m_Hierarchy,
      m_HierarchyCollapsed, m_Level, m_AggLft, m_Collapsed, m_NodeColormap, m_BrushedNodes, m_BrushedEdges,
      m_NodePrimarySelection, m_NodeSecondarySelection, m_NodeTooltipText, m_EdgeTooltipText, m_Actions,
      m_FontSize, m_Initialized;
  void postCreate() override;
};

struct TLayoutBox {
  float x0 = 0, y0 = 0, x1 = 0, y1 = 0;
  bool operator==(const TLayoutBox&) const = default;
};

// How a layout rectangle becomes a shape on the canvas.
class TToScreenConverter {
 public:
  TToScreenConverter(float w, float h) : width(w), height(h) {}
  virtual ~TToScreenConverter() = default;
  float width, height;
  virtual TVector2 toScreen(float x, float y) const = 0;
  // Lengths of the box along x and y, in pixels.
  virtual float getWidth(const TLayoutBox& box) const = 0;
  virtual float getHeight(const TLayoutBox& box) const = 0;
  virtual float fromPixels(float length) const = 0;
};

// x is the fraction of the full circle, counter-clockwise from the positive
// x axis; y the distance from the rim as a part of the radius.
class TToArcScreenConverter : public TToScreenConverter {
 public:
  using TToScreenConverter::TToScreenConverter;
  TVector2 toScreen(float x, float y) const override;
  float getWidth(const TLayoutBox& box) const override;
  float getHeight(const TLayoutBox& box) const override;
  float fromPixels(float) const override { return 0.0f; }
};

class TToOrthoScreenConverter : public TToScreenConverter {
 public:
  using TToScreenConverter::TToScreenConverter;
  TVector2 toScreen(float x, float y) const override { return {x, y}; }
  float getWidth(const TLayoutBox& box) const override;
  float getHeight(const TLayoutBox& box) const override;
  float fromPixels(float length) const override;
};

// The geometry of one node at one moment.
struct TNodeVisual {
  TVector2 anchor;
  TLayoutBox box;
  float width = 0;
  float height = 0;
  uint16_t segments = 2;
  bool visible = false;
};

// The record of a shown node, kept by lft from one hierarchy change to the
// next so that a node animates from where it was.
struct TVisualNode {
  uint32_t nid = 0;
  uint32_t lft = 0, rgt = 0;
  uint32_t leafcount = 1;
  uint16_t level = 0;
  bool collapsed = false;
  bool toosmall = false;
  TVisualNode* parent = nullptr;
  // The children, in row order, are a range of the view's child list.
  uint32_t firstChild = 0;
  uint32_t childCount = 0;
  TNodeVisual current, old, next;
  bool isLeaf() const { return collapsed || childCount == 0; }
};

// Blends two visuals: t of the way from old to next.
void interpolateVisual(const TNodeVisual& old, const TNodeVisual& next, float t, TNodeVisual& out);
// v from a..b onto c..d, clamped; c when a and b (nearly) coincide.
float rescaleInto(float v, float a, float b, float c, float d);

class TVisualizerImplementationBase {
 public:
  TVisualizerImplementationBase(TVisualizerProcessorBase* processor, std::shared_ptr<TLabelCache> renderer);
  virtual ~TVisualizerImplementationBase() = default;

  bool m_Picking = false;
  float m_LabelOffsetY = 0, m_LabelOffsetX = 0;
  TVisualizerProcessorBase* m_Processor;
  std::shared_ptr<TLabelCache> m_Renderer;
  std::shared_ptr<TToScreenConverter> m_Converter;
  std::shared_ptr<TColorMapData> m_ColorMap;
  std::shared_ptr<TColorMapData> m_DefaultColorMap;
  TVector4 m_SmallNodeColor{1, 0, 1, 1};
  std::unordered_map<uint32_t, TVisualNode> m_NodeMap;
  // The children of all shown records, each record's in one range.
  std::vector<TVisualNode*> m_ChildList;
  std::span<TVisualNode* const> children(const TVisualNode& node) const {
    return {m_ChildList.data() + node.firstChild, node.childCount};
  }
  float m_LabelMinShortSide = 8;
  float m_LabelMinLongSide = 20;
  float m_FontSize = 25;
  bool m_ColorMapIsDiscrete = false;
  std::shared_ptr<TAttributeData> m_TextAttribute;
  bool m_RotateLabels = false;
  // Leave out a caption that its cell would squeeze below 0.8 of the font's
  // size or cut to fewer than kShortestCaption characters, rather than draw
  // it illegibly; m_LabelsLeftOut counts them.
  bool m_LeaveOutCrampedLabels = false;
  size_t m_LabelsLeftOut = 0;
  static constexpr float kShortestCaption = 4;
  // Where drawing goes; set by the canvas (or a test) before drawing.
  TDrawSink* m_Sink = nullptr;

  virtual void prepareRendering(int width, int height);
  bool getNodeColor(const TVisualNode& node, TVector4& color) const;
  // A colour given goes with the strip's vertices rather than before it:
  // a display list then replays the cells of one pass as one run of
  // vertices instead of a state change per cell.
  void renderNodeCell(const TNodeVisual& visual, const TVector4* color = nullptr);
  void renderCollapsedMark(const TNodeVisual& visual);
  void renderNodeOutline(const TNodeVisual& visual, float inset);
  void renderNodeLabel(const TVisualNode& node, const TNodeVisual& visual, float scale);
  void renderNodeSet(const TIntegerSetData* set);
  // The outlines of the secondary and primary selections and of the
  // hovered nodes.
  void renderSelectionOutlines();
  // The current visual of the shown node of that lft, or null.
  virtual const TNodeVisual* visualOfLft(uint32_t lft);

 private:
  // Strips and the pixel sizes of a cell; false when it has no area.
  bool cellStrips(const TNodeVisual& visual, unsigned& strips) const;
  std::shared_ptr<TColorMapData> defaultMap() const;
};

}  // namespace quorvel
