#include "MHebCore.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "engine/MRegistry.h"

namespace quorvel {

void THebProcessorCpp::postCreate() {
  TVisualizerProcessorBase::postCreate();
  m_EdgePrimarySelection = addInputPin<TIntegerSetData>("edge primary selection");
  m_IncidentEdgeSelection = addInputPin<TIntegerSetData>("incident edge selection");
  m_EdgeData = addInputPin<TEdgeData>("edge data");
  m_EdgeCollapsed = addInputPin<TEdgeCollapsedData>("edge collapsed");
  m_EdgeColors = addInputPin("TEdgeColorData", "edge colors");
  m_NonLeafHeight = addInputPin<TFloatData>("settings.non-leaf height");
  m_SplineLinearization = addInputPin<TFloatData>("settings.spline linearization");
  m_SelfLoopSize = addInputPin<TFloatData>("settings.self-loop size");
  m_GapSize = addInputPin<TFloatData>("settings.gap size");
  m_GapsAtLevel = addInputPin<TIntegerData>("settings.gaps at level");
  m_EdgeOpacity = addInputPin<TFloatData>("settings.edge opacity");
}

THebProcessorImplementationCpp::THebProcessorImplementationCpp(THebProcessorCpp* processor,
                                                               std::shared_ptr<TLabelCache> renderer)
    : TVisualizerImplementationBase(processor, std::move(renderer)) {
  m_RotateLabels = true;
  // Fewer buckets than records: the map is read by lft a few times a pass.
  m_NodeMap.max_load_factor(2.0f);
}

namespace {

float floatSetting(const TPinPtr& pin, float fallback) {
  auto d = dataAs<TFloatData>(pin);
  return d ? d->getValue() : fallback;
}

}  // namespace

void THebProcessorImplementationCpp::prepareRendering(int width, int height) {
  TVisualizerImplementationBase::prepareRendering(width, height);
  m_Converter = std::make_shared<TToArcScreenConverter>(static_cast<float>(width), static_cast<float>(height));
  THebProcessorCpp* p = heb();
  m_NonLeafHeight = floatSetting(p->m_NonLeafHeight, 0.1f);
  m_SplineLinearization = floatSetting(p->m_SplineLinearization, 0.05f);
  m_SelfLoopSize = floatSetting(p->m_SelfLoopSize, 0.2f);
  m_GapSize = floatSetting(p->m_GapSize, 0.001f);
  auto gaps = dataAs<TIntegerData>(p->m_GapsAtLevel);
  m_GapsAtLevel = gaps ? gaps->getValue() : 2;
  m_EdgeOpacity = floatSetting(p->m_EdgeOpacity, 0.8f);
}

bool THebProcessorImplementationCpp::processNodes() {
  THebProcessorCpp* p = heb();
  if (!p->m_BrushedNodes->getData()) p->m_BrushedNodes->setData(std::make_shared<TIntegerSetData>());
  if (!p->m_BrushedEdges->getData()) p->m_BrushedEdges->setData(std::make_shared<TIntegerPairSetData>());
  if (!p->m_NodePrimarySelection->getData()) p->m_NodePrimarySelection->setData(std::make_shared<TIntegerSetData>());
  if (!p->m_NodeSecondarySelection->getData())
    p->m_NodeSecondarySelection->setData(std::make_shared<TIntegerSetData>());

  bool changed = false;
  const TPinList tree{p->m_Hierarchy, p->m_HierarchyCollapsed, p->m_AggLft};
  if (p->m_Hierarchy->getData() && p->m_HierarchyCollapsed->getData() && p->m_AggLft->getData() &&
      p->haveChanged(tree)) {
    p->resetPins(tree);
    changed = true;
    for (auto& [lft, node] : m_NodeMap) {
      node.old = node.next;
      node.next.visible = false;
      node.childCount = 0;
    }
    createNodeObjects();
    if (!m_Root) throw std::runtime_error("!m_Root");
    countLeaves();
    m_RecomputeNodeVisuals = true;
  }
  if (m_Root && m_RecomputeNodeVisuals) {
    changed = true;
    layoutNode(*m_Root, TLayoutBox{0, 0, 1.0f - m_GapSize, m_LeafY}, 0);
    makeTransitions();
    if (!m_Animate)
      for (auto& [lft, node] : m_NodeMap) node.current = node.next;
  }
  return changed;
}

void THebProcessorImplementationCpp::createNodeObjects() {
  THebProcessorCpp* p = heb();
  auto rows = dataAs<THierarchyData>(p->m_HierarchyCollapsed);
  if (!rows) return p->setError("Missing input hierarchy");
  auto agglft = dataAs<TAggLftData>(p->m_AggLft);
  if (!agglft) return p->setError("Missing input agglftinput");
  auto collapsed = dataAs<TBoolAttributeData>(p->m_Collapsed);
  if (!collapsed) return p->setError("Missing input collapsed");

  m_MaxLevel = 0;
  m_Root = nullptr;
  m_Rows.clear();
  m_Rows.reserve(rows->getRowCount());
  std::vector<TVisualNode*> stack;
  for (const THierarchyRow& row : rows->m_Rows) {
    TVisualNode& node = m_NodeMap[row.lft];
    bool found = false;
    agglft->getAggLftByLft(row.lft, found);
    if (!found) throw std::runtime_error("cannot do getAggLftByLft()");
    node.lft = row.lft;
    node.rgt = row.rgt;
    node.nid = row.nid;
    node.collapsed = collapsed->getValueById(row.nid, found);
    if (!found) {
      collapsed->setValueById(row.nid, false);
      node.collapsed = true;
    }
    node.childCount = 0;
    node.parent = nullptr;
    if (!m_Root) {
      m_Root = &node;
      node.level = 0;
    } else {
      while (stack.size() > 1 && !(stack.back()->lft <= row.lft && stack.back()->rgt >= row.rgt)) stack.pop_back();
      TVisualNode* top = stack.empty() ? m_Root : stack.back();
      ++top->childCount;
      node.parent = top;
      node.level = static_cast<uint16_t>(std::min<uint32_t>(top->level + 1u, 65535u));
    }
    m_MaxLevel = std::max<uint32_t>(m_MaxLevel, node.level);
    stack.push_back(&node);
    m_Rows.push_back(&node);
  }
  // Each record's children as one range of the child list, in row order.
  uint32_t offset = 0;
  for (TVisualNode* node : m_Rows) {
    node->firstChild = offset;
    offset += node->childCount;
    node->childCount = 0;
  }
  m_ChildList.assign(offset, nullptr);
  for (TVisualNode* node : m_Rows)
    if (TVisualNode* parent = node->parent) m_ChildList[parent->firstChild + parent->childCount++] = node;
}

void THebProcessorImplementationCpp::countLeaves() {
  // Children follow their parents in row order, so one backward pass sees
  // every child before its parent.
  for (size_t i = m_Rows.size(); i-- > 0;) {
    TVisualNode* node = m_Rows[i];
    if (node->isLeaf()) {
      node->leafcount = 1;
      continue;
    }
    uint32_t sum = 0;
    for (const TVisualNode* child : children(*node)) sum += child->leafcount;
    node->leafcount = sum;
  }
}

void THebProcessorImplementationCpp::layoutNode(TVisualNode& top, TLayoutBox rect, unsigned toplevel) {
  // Depth first with a stack of its own: a hierarchy may be deeper than the
  // call stack.
  m_Pending.clear();
  m_Pending.push_back({&top, rect, toplevel});
  while (!m_Pending.empty()) {
    const TPendingLayout p = m_Pending.back();
    m_Pending.pop_back();
    layoutOne(*p.node, p.rect, p.level);
  }
}

void THebProcessorImplementationCpp::layoutOne(TVisualNode& node, TLayoutBox r, unsigned level) {
  const bool leaf = node.isLeaf();
  if (level == 0)
    r.y1 = r.y0;
  else if (leaf)
    r.y1 = m_LeafY;
  else
    r.y1 = std::min(r.y0 + m_NonLeafHeight, m_LeafY - 0.01f);
  TNodeVisual& v = node.next;
  v.anchor = {(r.x0 + r.x1) * 0.5f, r.y1};
  v.visible = true;
  v.width = m_Converter->getWidth(r);
  const float perStrip = std::max(1.0f, 100.0f - m_ArcQuality);
  const float strips = std::clamp(std::floor(v.width / perStrip), 2.0f, 1000.0f);
  v.segments = static_cast<uint16_t>(strips);
  node.toosmall = v.width < m_SmallestWidth;
  v.box = r;
  // The root stands for the rim and keeps no thickness.
  if (level > 0 && (leaf || node.toosmall)) v.box.y1 = m_LeafY;
  if (!leaf) layoutChildren(node, r, level);
}

void THebProcessorImplementationCpp::layoutChildren(TVisualNode& node, const TLayoutBox& r, unsigned level) {
  const size_t n = node.childCount;
  const float w = r.x1 - r.x0;
  float G = 0;
  if (static_cast<int>(level) < m_GapsAtLevel) {
    G = m_GapSize;
    if (n > 1 && (n - 1) * G > w / 2) G = (w / 2) / static_cast<float>(n - 1);
  }
  double S = 0;
  for (const TVisualNode* child : children(node)) S += child->leafcount;
  const float usable = w - static_cast<float>(n - 1) * G;
  float x = r.x0;
  for (TVisualNode* child : children(node)) {
    const float Wi = S > 0 ? static_cast<float>(child->leafcount / S) * usable : 0.0f;
    if (!(Wi > 0)) continue;
    m_Pending.push_back({child, TLayoutBox{x, r.y1, x + Wi, m_LeafY}, level + 1});
    x += Wi;
    if (n > 1) x += G;
  }
}

void THebProcessorImplementationCpp::makeTransitions() {
  // The nearest shown ancestor (or the top) of each record, found once per
  // record: every walk stops at a record whose answer is known.
  std::unordered_map<const TVisualNode*, TVisualNode*> known;
  std::vector<TVisualNode*> path;
  auto visibleAncestor = [&](TVisualNode* from) {
    TVisualNode* a = from;
    path.clear();
    while (a && !a->next.visible && a->parent) {
      auto it = known.find(a);
      if (it != known.end()) {
        a = it->second;
        break;
      }
      path.push_back(a);
      a = a->parent;
    }
    for (TVisualNode* p : path) known[p] = a;
    return a;
  };
  // Nodes that go away shrink into their nearest shown ancestor, along the
  // inner circle.
  for (auto& [lft, node] : m_NodeMap) {
    if (!node.parent || node.next.visible) continue;
    TVisualNode* A = visibleAncestor(&node);
    if (!A) continue;
    TLayoutBox& b = node.next.box;
    b.x0 = rescaleInto(b.x0, A->old.box.x0, A->old.box.x1, A->next.box.x0, A->next.box.x1);
    b.x1 = rescaleInto(b.x1, A->old.box.x0, A->old.box.x1, A->next.box.x0, A->next.box.x1);
    b.y0 = b.y1 = m_LeafY;
  }
  // Nodes that come in grow out of the place where their ancestor stood;
  // in row order, so that a parent's start is set before its children's.
  for (TVisualNode* node : m_Rows) {
    if (!node->parent || !node->next.visible || node->old.visible) continue;
    TVisualNode* A = visibleAncestor(node->parent);
    TLayoutBox& o = node->old.box;
    o = node->next.box;
    o.x0 = rescaleInto(o.x0, A->next.box.x0, A->next.box.x1, A->old.box.x0, A->old.box.x1);
    o.x1 = rescaleInto(o.x1, A->next.box.x0, A->next.box.x1, A->old.box.x0, A->old.box.x1);
    o.y0 = o.y1 = m_LeafY;
    node->old.visible = true;
  }
}

bool THebProcessorImplementationCpp::animate(float fraction) {
  m_AnimationInterpolation = fraction;
  const float t = std::min(fraction, 1.0f);
  for (auto& [lft, node] : m_NodeMap) interpolateVisual(node.old, node.next, t, node.current);
  if (fraction >= 1.0f) m_Animate = false;
  return m_Animate;
}

void THebProcessorImplementationCpp::renderNodes() {
  if (!m_Root) return;
  TDrawSink& gl = *m_Sink;
  gl.pushName(kPickNode);
  gl.pushName(0);

  gl.enable(TDrawSink::Texture2D, true);
  gl.enable(TDrawSink::Blend, true);
  gl.blendFunc(TDrawSink::SrcAlphaOneMinusSrcAlpha);
  gl.bindTexture(m_Renderer ? m_Renderer->cushionTexture() : 0);
  gl.textureModulate();
  TVector4 color(0, 0, 0, 1);
  for (size_t i = 0; i < m_Rows.size(); ++i) {
    if (i > kHebNodeLimit) {
      m_Processor->m_Warning += "Trying to render too many nodes (>" + std::to_string(kHebNodeLimit) + ")";
      break;
    }
    const TVisualNode& node = *m_Rows[i];
    if (node.toosmall || !node.current.visible) continue;
    gl.loadName(node.level);
    gl.pushName(node.nid);
    getNodeColor(node, color);
    gl.color3(color.x, color.y, color.z);
    renderNodeCell(node.current);
    if (node.collapsed) {
      gl.color3(0.1f, 0.1f, 0.1f);
      renderCollapsedMark(node.current);
    }
    gl.popName();
  }

  gl.enable(TDrawSink::Texture2D, false);
  gl.enable(TDrawSink::Blend, false);
  gl.color(m_SmallNodeColor.x, m_SmallNodeColor.y, m_SmallNodeColor.z, m_SmallNodeColor.w);
  for (const TVisualNode* node : m_Rows) {
    if (!node->toosmall || !node->current.visible) continue;
    gl.loadName(node->level);
    gl.pushName(node->nid);
    renderNodeCell(node->current);
    gl.popName();
  }
  gl.popName();
  gl.popName();

  gl.enable(TDrawSink::DepthTest, false);
  gl.lineWidth(1);
  gl.enable(TDrawSink::Blend, true);
  gl.enable(TDrawSink::LineSmooth, true);
  gl.enable(TDrawSink::Texture2D, false);
  const size_t outlined = std::min(m_Rows.size(), kHebNodeLimit + 1);
  for (size_t i = 0; i < outlined; ++i) {
    const TVisualNode& node = *m_Rows[i];
    if (node.toosmall || !node.current.visible) continue;
    getNodeColor(node, color);
    gl.color3(color.x, color.y, color.z);
    renderNodeOutline(node.current, 0);
  }

  if (!m_Picking && m_TextAttribute) {
    gl.enable(TDrawSink::Texture2D, true);
    gl.color3(0, 0, 0);
    gl.enable(TDrawSink::Blend, true);
    for (const TVisualNode* node : m_Rows)
      if (node->current.visible) renderNodeLabel(*node, node->current, 1.0f);
    gl.enable(TDrawSink::Texture2D, false);
  }
}

void THebProcessorImplementationCpp::renderSelection() {
  TDrawSink& gl = *m_Sink;
  THebProcessorCpp* p = heb();
  gl.enable(TDrawSink::DepthTest, false);
  gl.lineWidth(2);
  gl.enable(TDrawSink::Blend, true);
  gl.blendFunc(TDrawSink::SrcAlphaOneMinusSrcAlpha);
  gl.enable(TDrawSink::LineSmooth, true);
  gl.color(0.2f, 0.2f, 0.8f, 1);
  renderNodeSet(dataAs<TIntegerSetData>(p->m_NodeSecondarySelection).get());
  gl.color(0, 0, 0, 1);
  renderNodeSet(dataAs<TIntegerSetData>(p->m_NodePrimarySelection).get());
  renderNodeSet(dataAs<TIntegerSetData>(p->m_BrushedNodes).get());
  gl.enable(TDrawSink::Blend, false);
}

void registerHebCore() { TProcessorRegistry::instance().add<THebProcessorCpp>(); }

}  // namespace quorvel
