// The radial view without a window: its pins, the ring layout of the
// visible hierarchy, the transitions of a fold, and the drawing of the rings
// through a draw sink.
#pragma once

#include <array>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "views/core/MVisualizer.h"

namespace quorvel {

class THebProcessorImplementationCpp;

class THebProcessorCpp : public TVisualizerProcessorBase {
 public:
  QV_CLASS_NAME(THebProcessorCpp)
  TPinPtr m_EdgePrimarySelection, m_IncidentEdgeSelection, m_EdgeData, m_EdgeCollapsed, m_EdgeColors, m_NonLeafHeight,
      m_SplineLinearization, m_SelfLoopSize, m_GapSize, m_GapsAtLevel, m_EdgeOpacity, m_EdgeBudget, m_EdgeFade;
  std::shared_ptr<THebProcessorImplementationCpp> m_Implementation;

  void postCreate() override;
  std::string getTypeName() override { return "heb vis"; }
};

// The most rows drawn as cushioned cells and outlines.
constexpr size_t kHebNodeLimit = 20000;
// The most aggregated edges drawn in the background.
constexpr size_t kHebEdgeLimit = 5000;

// The opacity of the background edges: `opacity` up to `budget` drawn
// records; with `fade`, beyond it falling with their number (budget /
// records, no lower than a tenth), so that overlaps read as density.
float edgeAlpha(float opacity, size_t records, int budget, bool fade);

// The records of the background layer in drawing order: all of them in
// their order while they are at most `limit`, else the `limit` records
// that stand for the most edges.
std::vector<size_t> backgroundEdgeOrder(const TEdgeCollapsedData& edges, size_t limit);

// One drawn edge: a record of the folded edges between two shown nodes, and
// the nodes its curve follows, from `from` up to the lowest common ancestor
// and down to `to`.
struct THebEdge {
  uint32_t from = 0;
  uint32_t to = 0;
  TVisualNode* commonAncestor = nullptr;
  // Empty for a record whose nodes are not shown.
  std::span<TVisualNode* const> path;
  // Its record's index in the folded edges it was made from.
  size_t record = kNoRecord;
  static constexpr size_t kNoRecord = static_cast<size_t>(-1);
  bool drawn() const { return !path.empty(); }
};

class THebProcessorImplementationCpp : public TVisualizerImplementationBase {
 public:
  THebProcessorImplementationCpp(THebProcessorCpp* processor, std::shared_ptr<TLabelCache> renderer);

  bool m_Animate = true;
  float m_AnimationInterpolation = 0;
  bool m_RecomputeNodeVisuals = false;
  TVisualNode* m_Root = nullptr;
  uint32_t m_MaxLevel = 0;
  float m_GapSize = 0.001f;
  float m_LeafY = 0.5f;
  float m_CenterMargin = 0.05f;
  float m_NonLeafHeight = 0.05f;
  float m_ArcQuality = 50;
  float m_SmallestWidth = 1;
  int m_GapsAtLevel = 1;
  float m_SplineLinearization = 0.05f;
  float m_SelfLoopSize = 0.2f;
  int m_StepsPerSegment = 8;
  float m_EdgeOpacity = 0.8f;
  int m_EdgeBudget = 1500;
  bool m_EdgeFade = true;
  // The alpha of the curve being drawn.
  float m_EdgeAlpha = 0.8f;
  // The rows and left-out captions last written to the log.
  std::pair<size_t, size_t> m_LabelsToldOf{0, 0};
  // The records in the order of the rows of `hierarchy collapsed`.
  std::vector<TVisualNode*> m_Rows;

  void prepareRendering(int width, int height) override;
  // True when the picture of the nodes has changed.
  bool processNodes();
  // True when the edge map was rebuilt.
  bool processEdges();
  void createNodeObjects();
  void createEdgeObjects();
  // Appends the path from a up to the lowest common ancestor and down to b
  // to the path store; sets the edge's ancestor.
  void findPath(TVisualNode* a, THebEdge& edge, TVisualNode* b);
  // Lays out the node and everything below it.
  void layoutNode(TVisualNode& node, TLayoutBox rect, unsigned level);
  // Places the children's rects; they are laid out after the node.
  void layoutChildren(TVisualNode& node, const TLayoutBox& rect, unsigned level);
  void makeTransitions();
  // Sets the current visuals t of the way; false once at the end.
  bool animate(float fraction);
  void renderNodes();
  // Both draw nothing while no level or no folded edges exist.
  void renderBackgroundEdges();
  void renderForegroundEdges();
  // The level table and the line state around the edges; false when
  // nothing is drawn.
  bool beginEdges();
  void endEdges();
  void renderEdge(const THebEdge* edge);
  // Reads the two colours of the edge's record; false without colour data.
  bool getEdgeColors(const THebEdge& edge);
  // The record the edge was made from, looked up by its pair where the
  // index no longer fits the folded edges; null for none.
  const TEdgeCollapsedData::Record* recordOf(const THebEdge& edge, const TEdgeCollapsedData& edges) const;
  // What paints draw now: no edges while animating, else the foreground
  // edges when anything is selected or hovered, else all.
  enum class EdgeLayer { None, Background, Foreground };
  EdgeLayer edgeLayer() const;

  // An edge for each record of the folded edges they were made from, in
  // their order; those of records whose nodes are not shown are not drawn.
  std::vector<THebEdge> m_Edges;
  size_t drawnEdgeCount() const;
  // The edge of a pair of lfts, the smaller first, or null.
  const THebEdge* findEdge(uint32_t a, uint32_t b) const;
  // The uniform cubic B-spline weights, one row per step of a segment.
  std::vector<std::array<float, 4>> m_SplineBasis;
  // y of the control points by level; level 0 is the centre.
  std::vector<float> m_RadialLevels;
  // Scratch of the edge being drawn: control points in layout coordinates,
  // spline points in drawing coordinates.
  std::vector<TVector2> m_ControlPoints;
  std::vector<TVector2> m_SplinePoints;
  // The curve's vertices and their colours, sent to the sink in one call.
  std::vector<float> m_CurveXY, m_CurveRGBA;
  TVector4 m_ForwardColor{0, 0, 0, 1};
  TVector4 m_BackwardColor{0, 0, 0, 1};

 private:
  struct TPendingLayout {
    TVisualNode* node;
    TLayoutBox rect;
    unsigned level;
  };
  std::vector<TPendingLayout> m_Pending;
  // The path's part from the second node down, while it is found.
  std::vector<TVisualNode*> m_PathDown;
  // All paths, one after the other.
  std::vector<TVisualNode*> m_PathNodes;
  std::shared_ptr<const TEdgeCollapsedData> m_EdgesMadeFrom;
  // The spline weights two steps at a time, each weight twice, for x and y:
  // four floats a step pair and point of the segment.
  std::vector<std::array<std::array<float, 4>, 4>> m_PairBasis;
  // How the colour turns along a curve of n spline points, by n: the
  // forward and the backward colour's weight at each vertex.
  std::vector<std::vector<std::array<float, 2>>> m_ColorRamps;
  const std::vector<std::array<float, 2>>& colorRamp(size_t n);
  void layoutOne(TVisualNode& node, TLayoutBox rect, unsigned level);
  THebProcessorCpp* heb() const { return static_cast<THebProcessorCpp*>(m_Processor); }
  void countLeaves();
  TVector2 straighten(TVector2 p, TVector2 s, TVector2 e) const;
  void renderCurve();
  void renderArrowHead(const TVisualNode& node, const TVector4& color, TVector2 apex, TVector2 inner);
};

void registerHebCore();

}  // namespace quorvel
