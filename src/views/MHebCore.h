// The radial view without a window: its pins, the ring layout of the
// visible hierarchy, the transitions of a fold, and the drawing of the rings
// through a draw sink.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "views/MVisualizer.h"

namespace quorvel {

class THebProcessorImplementationCpp;

class THebProcessorCpp : public TVisualizerProcessorBase {
 public:
  QV_CLASS_NAME(THebProcessorCpp)
  TPinPtr m_EdgePrimarySelection, m_IncidentEdgeSelection, m_EdgeData, m_EdgeCollapsed, m_EdgeColors, m_NonLeafHeight,
      m_SplineLinearization, m_SelfLoopSize, m_GapSize, m_GapsAtLevel, m_EdgeOpacity;
  std::shared_ptr<THebProcessorImplementationCpp> m_Implementation;

  void postCreate() override;
  std::string getTypeName() override { return "heb vis"; }
};

// The most rows drawn as cushioned cells and outlines.
constexpr size_t kHebNodeLimit = 20000;

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
  float m_SelfLoopSize = 0.1f;
  int m_StepsPerSegment = 8;
  float m_EdgeOpacity = 0.8f;
  // The records in the order of the rows of `hierarchy collapsed`.
  std::vector<TVisualNode*> m_Rows;

  void prepareRendering(int width, int height) override;
  // True when the picture of the nodes has changed.
  bool processNodes();
  // The edges come with the bundling; until then nothing changes.
  bool processEdges() { return false; }
  void createNodeObjects();
  // Lays out the node and everything below it.
  void layoutNode(TVisualNode& node, TLayoutBox rect, unsigned level);
  // Places the children's rects; they are laid out after the node.
  void layoutChildren(TVisualNode& node, const TLayoutBox& rect, unsigned level);
  void makeTransitions();
  // Sets the current visuals t of the way; false once at the end.
  bool animate(float fraction);
  void renderNodes();
  void renderSelection();

 private:
  struct TPendingLayout {
    TVisualNode* node;
    TLayoutBox rect;
    unsigned level;
  };
  std::vector<TPendingLayout> m_Pending;
  void layoutOne(TVisualNode& node, TLayoutBox rect, unsigned level);
  THebProcessorCpp* heb() const { return static_cast<THebProcessorCpp*>(m_Processor); }
  void countLeaves();
};

void registerHebCore();

}  // namespace quorvel
