#include "MHebCore.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <stdexcept>

#include "engine/MMediator.h"
#include "engine/MRegistry.h"

namespace quorvel {

void THebProcessorCpp::postCreate() {
  TVisualizerProcessorBase::postCreate();
  m_EdgePrimarySelection = addInputPin<TIntegerSetData>("edge primary selection");
  m_IncidentEdgeSelection = addInputPin<TIntegerSetData>("incident edge selection");
  m_EdgeData = addInputPin<TEdgeData>("edge data");
  addInputPin<TIntegerData>("clicked edge");
  m_EdgeCollapsed = addInputPin<TEdgeCollapsedData>("edge collapsed");
  m_EdgeColors = addInputPin("TEdgeColorData", "edge colors");
  m_NonLeafHeight = addInputPin<TFloatData>("settings.non-leaf height");
  m_SplineLinearization = addInputPin<TFloatData>("settings.spline linearization");
  m_SelfLoopSize = addInputPin<TFloatData>("settings.self-loop size");
  m_GapSize = addInputPin<TFloatData>("settings.gap size");
  m_GapsAtLevel = addInputPin<TIntegerData>("settings.gaps at level");
  m_EdgeOpacity = addInputPin<TFloatData>("settings.edge opacity");
  m_EdgeBudget = addInputPin<TIntegerData>("settings.edge budget");
  m_EdgeFade = addInputPin<TBooleanData>("settings.edge fade");
}

THebProcessorImplementationCpp::THebProcessorImplementationCpp(THebProcessorCpp* processor,
                                                               std::shared_ptr<TLabelCache> renderer)
    : TVisualizerImplementationBase(processor, std::move(renderer)) {
  m_RotateLabels = true;
  m_LeaveOutCrampedLabels = true;
  // Fewer buckets than records: the map is read by lft a few times a pass.
  m_NodeMap.max_load_factor(2.0f);
  m_SplineBasis.resize(static_cast<size_t>(m_StepsPerSegment));
  const float steps = static_cast<float>(m_StepsPerSegment - 1);
  for (size_t i = 0; i < m_SplineBasis.size(); ++i) {
    const float u = static_cast<float>(i) / steps;
    const float u2 = u * u, u3 = u2 * u;
    m_SplineBasis[i] = {(1 - u) * (1 - u) * (1 - u) / 6, (3 * u3 - 6 * u2 + 4) / 6, (-3 * u3 + 3 * u2 + 3 * u + 1) / 6,
                        u3 / 6};
  }
  // A segment's steps, without its last point (the next segment's first),
  // two at a time.
  const size_t segmentSteps = m_SplineBasis.size() - 1;
  m_PairBasis.assign((segmentSteps + 1) / 2, {});
  for (size_t q = 0; q < m_PairBasis.size(); ++q)
    for (size_t m = 0; m < 4; ++m) {
      const float a = m_SplineBasis[2 * q][m];
      const float z = 2 * q + 1 < segmentSteps ? m_SplineBasis[2 * q + 1][m] : 0.0f;
      m_PairBasis[q][m] = {a, a, z, z};
    }
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
  auto budget = dataAs<TIntegerData>(p->m_EdgeBudget);
  m_EdgeBudget = budget ? budget->getValue() : 1500;
  auto fade = dataAs<TBooleanData>(p->m_EdgeFade);
  m_EdgeFade = fade ? fade->getValue() : true;
  m_EdgeAlpha = m_EdgeOpacity;
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
    color.w = 1;
    renderNodeCell(node.current, &color);
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
    m_LabelsLeftOut = 0;
    for (const TVisualNode* node : m_Rows)
      if (node->current.visible) renderNodeLabel(*node, node->current, 1.0f);
    gl.enable(TDrawSink::Texture2D, false);
    // Once for each picture of the rings, not for each frame that shows it.
    const std::pair<size_t, size_t> told{m_Rows.size(), m_LabelsLeftOut};
    if (m_LabelsLeftOut > 0 && told != m_LabelsToldOf && !m_Animate) {
      logInfo(std::to_string(m_LabelsLeftOut) + " of " + std::to_string(m_Rows.size()) +
              " captions left out: their cells are too thin");
      m_LabelsToldOf = told;
    }
  }
}


// ---------------------------------------------------------------------------
// Edges

bool THebProcessorImplementationCpp::processEdges() {
  THebProcessorCpp* p = heb();
  const TPinList inputs{p->m_AggLft, p->m_EdgeCollapsed};
  if (!p->m_AggLft->getData() || !p->m_EdgeCollapsed->getData() || !p->haveChanged(inputs)) return false;
  p->resetPins(inputs);
  if (!m_Root) return false;
  createEdgeObjects();
  return true;
}

void THebProcessorImplementationCpp::createEdgeObjects() {
  m_Edges.clear();
  m_PathNodes.clear();
  auto edges = dataAs<TEdgeCollapsedData>(heb()->m_EdgeCollapsed);
  m_EdgesMadeFrom = edges;
  if (!edges) return;
  m_Edges.resize(edges->getRecordCount());
  // Paths are spans of one store, set once it has stopped growing.
  std::vector<std::pair<size_t, size_t>> spans(m_Edges.size(), {0, 0});
  for (size_t i = 0; i < edges->m_Records.size(); ++i) {
    const auto& record = edges->m_Records[i];
    THebEdge& edge = m_Edges[i];
    edge.from = record.smallerlft;
    edge.to = record.largerlft;
    auto a = m_NodeMap.find(record.smallerlft);
    auto b = m_NodeMap.find(record.largerlft);
    if (a == m_NodeMap.end() || b == m_NodeMap.end()) continue;
    edge.record = i;
    const size_t start = m_PathNodes.size();
    findPath(&a->second, edge, &b->second);
    spans[i] = {start, m_PathNodes.size() - start};
  }
  for (size_t i = 0; i < m_Edges.size(); ++i)
    m_Edges[i].path = std::span<TVisualNode* const>(m_PathNodes.data() + spans[i].first, spans[i].second);
}

void THebProcessorImplementationCpp::findPath(TVisualNode* a, THebEdge& edge, TVisualNode* b) {
  std::vector<TVisualNode*>& up = m_PathNodes;
  up.push_back(a);
  std::vector<TVisualNode*>& down = m_PathDown;
  down.assign(1, b);
  edge.commonAncestor = a;
  // The node with the larger lft climbs: by the nested numbering the two
  // meet at their lowest common ancestor.
  while (a != b) {
    if (!a->parent && !b->parent) break;
    if (a->parent && a->lft > b->lft) {
      a = a->parent;
      up.push_back(a);
      edge.commonAncestor = a;
    } else if (b->parent) {
      b = b->parent;
      down.push_back(b);
      edge.commonAncestor = b;
    } else {
      break;
    }
  }
  if (up.back() == down.back()) down.pop_back();
  up.insert(up.end(), down.rbegin(), down.rend());
}

const THebEdge* THebProcessorImplementationCpp::findEdge(uint32_t a, uint32_t b) const {
  if (!m_EdgesMadeFrom) return nullptr;
  const auto* record = m_EdgesMadeFrom->findRecord(a, b);
  if (!record) return nullptr;
  const THebEdge& edge = m_Edges[static_cast<size_t>(record - m_EdgesMadeFrom->m_Records.data())];
  return edge.drawn() ? &edge : nullptr;
}

size_t THebProcessorImplementationCpp::drawnEdgeCount() const {
  return static_cast<size_t>(std::count_if(m_Edges.begin(), m_Edges.end(), [](const THebEdge& e) { return e.drawn(); }));
}

THebProcessorImplementationCpp::EdgeLayer THebProcessorImplementationCpp::edgeLayer() const {
  if (m_Animate) return EdgeLayer::None;
  const THebProcessorCpp* p = heb();
  for (const TPinPtr& pin : {p->m_IncidentEdgeSelection, p->m_EdgePrimarySelection, p->m_NodePrimarySelection,
                             p->m_BrushedNodes}) {
    auto set = dataAs<TIntegerSetData>(pin);
    if (set && set->getCount() > 0) return EdgeLayer::Foreground;
  }
  return EdgeLayer::Background;
}

bool THebProcessorImplementationCpp::beginEdges() {
  if (m_MaxLevel == 0 || !heb()->m_EdgeCollapsed->getData()) return false;
  // Level M lies on the inner circle; the levels above it step toward the
  // centre, the last step a centre margin wider. Deep trees get a longer
  // table rather than a clipped one.
  const uint32_t M = m_MaxLevel;
  m_RadialLevels.assign(std::max<size_t>(128, M + 1), m_LeafY);
  m_RadialLevels[0] = 1;
  for (uint32_t i = 1; i <= M; ++i)
    m_RadialLevels[i] = m_LeafY + (1 - m_LeafY - m_CenterMargin) * static_cast<float>(M - i) / static_cast<float>(M);
  TDrawSink& gl = *m_Sink;
  gl.lineWidth(1);
  gl.enable(TDrawSink::Blend, true);
  gl.blendFunc(TDrawSink::SrcAlphaOneMinusSrcAlpha);
  gl.enable(TDrawSink::LineSmooth, true);
  gl.enable(TDrawSink::Texture2D, false);
  gl.pushName(kPickEdge);
  gl.pushName(0);
  return true;
}

void THebProcessorImplementationCpp::endEdges() {
  TDrawSink& gl = *m_Sink;
  gl.popName();
  gl.popName();
  gl.enable(TDrawSink::Blend, false);
  gl.enable(TDrawSink::LineSmooth, false);
}

float edgeAlpha(float opacity, size_t records, int budget, bool fade) {
  if (!fade || budget <= 0 || records <= static_cast<size_t>(budget)) return opacity;
  return opacity * std::max(0.1f, static_cast<float>(budget) / static_cast<float>(records));
}

std::vector<size_t> backgroundEdgeOrder(const TEdgeCollapsedData& edges, size_t limit) {
  std::vector<size_t> order(edges.getRecordCount());
  for (size_t i = 0; i < order.size(); ++i) order[i] = i;
  if (order.size() <= limit) return order;
  auto weight = [&edges](size_t i) { return edges.m_Records[i].forward.size() + edges.m_Records[i].backward.size(); };
  std::nth_element(order.begin(), order.begin() + static_cast<long>(limit), order.end(),
                   [&](size_t a, size_t b) { return weight(a) != weight(b) ? weight(a) > weight(b) : a < b; });
  order.resize(limit);
  std::sort(order.begin(), order.end());
  return order;
}

void THebProcessorImplementationCpp::renderBackgroundEdges() {
  if (!beginEdges()) return;
  auto edges = dataAs<TEdgeCollapsedData>(heb()->m_EdgeCollapsed);
  if (edges->getRecordCount() > kHebEdgeLimit)
    m_Processor->m_Warning += "Trying to render too many edges (>" + std::to_string(kHebEdgeLimit) + ")";
  const std::vector<size_t> order = backgroundEdgeOrder(*edges, kHebEdgeLimit);
  m_EdgeAlpha = edgeAlpha(m_EdgeOpacity, order.size(), m_EdgeBudget, m_EdgeFade);
  // The edges stand by record while they were made from these records.
  const bool byRecord = edges == m_EdgesMadeFrom && m_Edges.size() == edges->getRecordCount();
  for (size_t i : order) {
    const auto& record = edges->m_Records[i];
    renderEdge(byRecord ? (m_Edges[i].drawn() ? &m_Edges[i] : nullptr) : findEdge(record.smallerlft, record.largerlft));
  }
  m_EdgeAlpha = m_EdgeOpacity;
  endEdges();
}

void THebProcessorImplementationCpp::renderForegroundEdges() {
  if (!beginEdges()) return;
  THebProcessorCpp* p = heb();
  auto edgeData = dataAs<TEdgeData>(p->m_EdgeData);
  auto hierarchy = dataAs<THierarchyData>(p->m_Hierarchy);
  auto agglft = dataAs<TAggLftData>(p->m_AggLft);
  TIntegerPairSetData pairs;
  auto aggOf = [&](uint32_t nid, uint32_t& out) {
    bool found = false;
    const uint32_t lft = hierarchy->getLftByNid(nid, found);
    if (found) out = agglft->getAggLftByLft(lft, found);
    return found;
  };
  if (edgeData && hierarchy && agglft)
    for (const TPinPtr& pin : {p->m_EdgePrimarySelection, p->m_IncidentEdgeSelection}) {
      auto set = dataAs<TIntegerSetData>(pin);
      if (!set) continue;
      for (uint32_t eid : set->m_Set) {
        uint32_t from = 0, to = 0, a = 0, b = 0;
        bool found = false;
        edgeData->getFromToNidByEid(eid, from, to, found);
        if (found && aggOf(from, a) && aggOf(to, b)) pairs.addPair(std::min(a, b), std::max(a, b));
      }
    }
  if (pairs.m_Set.size() > kHebEdgeLimit)
    m_Processor->m_Warning += "Trying to render too many edges (>" + std::to_string(kHebEdgeLimit) + ")";
  for (const auto& [a, b] : pairs.m_Set) renderEdge(findEdge(a, b));
  endEdges();
}

TVector2 THebProcessorImplementationCpp::straighten(TVector2 p, TVector2 s, TVector2 e) const {
  const TVector2 d = e - s;
  const float len2 = d.x * d.x + d.y * d.y;
  TVector2 q = s;
  if (len2 > 0) {
    const float t = std::clamp(((p.x - s.x) * d.x + (p.y - s.y) * d.y) / len2, 0.0f, 1.0f);
    q = {s.x + t * d.x, s.y + t * d.y};
  }
  return {p.x + m_SplineLinearization * (q.x - p.x), p.y + m_SplineLinearization * (q.y - p.y)};
}

namespace {

TVector2 unit(TVector2 v) {
  const float len = std::hypot(v.x, v.y);
  return len > 0 ? TVector2(v.x / len, v.y / len) : TVector2(0, 0);
}

// Whether two points lie further apart than d.
bool apart(TVector2 a, TVector2 b, float d) {
  const double dx = a.x - b.x, dy = a.y - b.y;
  return dx * dx + dy * dy > static_cast<double>(d) * d;
}

}  // namespace

void THebProcessorImplementationCpp::renderEdge(const THebEdge* edge) {
  if (!edge || !edge->drawn() || m_RadialLevels.size() <= m_MaxLevel) return;
  // The path runs from the record's first node to its second.
  const TVisualNode& A = *edge->path.front();
  const TVisualNode& B = *edge->path.back();
  const TToScreenConverter& conv = *m_Converter;
  auto draw = [&](TVector2 v) { return conv.toScreen(v.x, v.y); };
  std::vector<TVector2>& pts = m_SplinePoints;
  pts.clear();

  if (edge->from == edge->to) {
    const TVector2 anchor = A.current.anchor;
    const TVector2 at = draw(anchor);
    const float w = A.current.box.x1 - A.current.box.x0;
    const float m = std::min(0.05f, std::max(w, 0.01f));
    const float s = m_SelfLoopSize * m;
    pts.assign(3, at);
    pts.push_back(draw({anchor.x + s, anchor.y + 1.5f * s}));
    pts.push_back(draw({anchor.x - s, anchor.y + 1.5f * s}));
    pts.insert(pts.end(), 3, at);
  } else {
    const std::span<TVisualNode* const> path = edge->path;
    const float inner = m_RadialLevels[m_MaxLevel];
    auto levelY = [&](const TVisualNode* n) {
      return n->level < m_RadialLevels.size() ? m_RadialLevels[n->level] : m_LeafY;
    };
    std::vector<TVector2>& ctrl = m_ControlPoints;
    ctrl.clear();
    const TVisualNode* first = path.front();
    const TVisualNode* last = path.back();
    ctrl.push_back(first->current.anchor);
    ctrl.emplace_back(first->current.anchor.x, inner);
    for (const TVisualNode* n : path) ctrl.emplace_back(n->current.anchor.x, levelY(n));
    ctrl.emplace_back(last->current.anchor.x, inner);
    ctrl.push_back(last->current.anchor);

    const TVector2 S = draw(ctrl.front());
    const TVector2 E = draw(ctrl.back());
    pts.assign(2, S);
    TVector2 lastKept(-1000, -1000);
    for (size_t c = 0; c < ctrl.size(); ++c) {
      if (c > 0 && ctrl[c].y > 0.999f && c + 1 < ctrl.size()) {
        // Through the centre: round it on a small circle instead of
        // running into one point.
        const TVector2 toD = unit(draw(ctrl[c - 1]));
        const TVector2 toF = unit(draw(ctrl[c + 1]));
        pts.push_back(straighten({toD.x * m_CenterMargin, toD.y * m_CenterMargin}, S, E));
        pts.push_back(straighten({toF.x * m_CenterMargin, toF.y * m_CenterMargin}, S, E));
        continue;
      }
      const TVector2 p = straighten(draw(ctrl[c]), S, E);
      if (apart(p, lastKept, 0.001f)) {
        pts.push_back(p);
        lastKept = p;
      }
    }
    pts.push_back(E);
    pts.push_back(E);
  }

  TDrawSink& gl = *m_Sink;
  gl.loadName(edge->from);
  gl.pushName(edge->to);
  auto edges = dataAs<TEdgeCollapsedData>(heb()->m_EdgeCollapsed);
  const TEdgeCollapsedData::Record* record = edges ? recordOf(*edge, *edges) : nullptr;
  if (!record) throw std::runtime_error("TEdgeCollapsedData: cannot find pair");
  const bool forward = !record->forward.empty();
  const bool backward = !record->backward.empty();
  getEdgeColors(*edge);
  renderCurve();
  const size_t n = pts.size();
  if (n >= 4) {
    if (backward) renderArrowHead(A, m_BackwardColor, pts[2], pts[3]);
    if (forward) renderArrowHead(B, m_ForwardColor, pts[n - 3], pts[n - 4]);
  }
  gl.popName();
}

const TEdgeCollapsedData::Record* THebProcessorImplementationCpp::recordOf(const THebEdge& edge,
                                                                         const TEdgeCollapsedData& edges) const {
  if (edge.record < edges.m_Records.size()) {
    const auto& r = edges.m_Records[edge.record];
    if (r.smallerlft == edge.from && r.largerlft == edge.to) return &r;
  }
  return edges.findRecord(edge.from, edge.to);
}

bool THebProcessorImplementationCpp::getEdgeColors(const THebEdge& edge) {
  THebProcessorCpp* p = heb();
  auto colors = dataAs<TEdgeColorData>(p->m_EdgeColors);
  if (!colors) return false;
  auto edges = dataAs<TEdgeCollapsedData>(p->m_EdgeCollapsed);
  const auto* record = edges ? recordOf(edge, *edges) : nullptr;
  if (!record) throw std::runtime_error("getEdgeColors():: find error");
  // A colour table of an older fold may be shorter; its colours then stay.
  const size_t index = static_cast<size_t>(record - edges->m_Records.data());
  if (index >= colors->m_Records.size()) return false;
  m_ForwardColor = colors->m_Records[index].forward;
  m_BackwardColor = colors->m_Records[index].backward;
  return true;
}

const std::vector<std::array<float, 2>>& THebProcessorImplementationCpp::colorRamp(size_t n) {
  if (m_ColorRamps.size() <= n) m_ColorRamps.resize(n + 1);
  std::vector<std::array<float, 2>>& ramp = m_ColorRamps[n];
  const size_t k = m_SplineBasis.size();
  const size_t count = n >= 4 && k > 0 ? (n - 3) * (k - 1) : 0;
  if (ramp.size() == count) return ramp;
  ramp.clear();
  // The colour turns from the forward to the backward colour between the
  // second and the last but two segment, by the same steps for every curve
  // of n points.
  const float dt = 1.0f / (static_cast<float>(static_cast<long>(n) - 6) * static_cast<float>(k - 1));
  float s = 1, t = 0;
  for (size_t i = 0; i + 3 < n; ++i)
    for (size_t j = 0; j + 1 < k; ++j) {
      if (i >= 2 && i + 4 < n) {
        t += dt;
        s -= dt;
      }
      ramp.push_back({s, t});
    }
  return ramp;
}

namespace {

typedef float TFloat4 __attribute__((vector_size(16)));

TFloat4 load4(const float* p) {
  TFloat4 v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

}  // namespace

void THebProcessorImplementationCpp::renderCurve() {
  const std::vector<TVector2>& pts = m_SplinePoints;
  const size_t n = pts.size();
  const size_t k = m_SplineBasis.size();
  std::vector<float>& xy = m_CurveXY;
  std::vector<float>& rgba = m_CurveRGBA;
  xy.clear();
  rgba.clear();
  if (n >= 4 && k > 1) {
    const std::vector<std::array<float, 2>>& ramp = colorRamp(n);
    const size_t steps = k - 1, pairs = m_PairBasis.size();
    // Room for the last pair's second vertex, which the next segment or
    // the end drops.
    xy.resize(2 * ramp.size() + 2);
    rgba.resize(4 * ramp.size());
    // Each colour channel as f * s + b * t, the alpha set apart.
    const TVector4& f = m_ForwardColor;
    const TVector4& b = m_BackwardColor;
    const TFloat4 F{f.x, f.y, f.z, 0.0f}, B{b.x, b.y, b.z, 0.0f};
    float* c = rgba.data();
    for (const auto& [s, t] : ramp) {
      TFloat4 out = F * s + B * t;
      out[3] = m_EdgeAlpha;
      std::memcpy(c, &out, sizeof out);
      c += 4;
    }
    // Two vertices at a time as (x, y, x, y): the same products and sums,
    // in the same order, as one vertex at a time.
    float* v = xy.data();
    for (size_t i = 0; i + 3 < n; ++i) {
      const TFloat4 P0{pts[i].x, pts[i].y, pts[i].x, pts[i].y};
      const TFloat4 P1{pts[i + 1].x, pts[i + 1].y, pts[i + 1].x, pts[i + 1].y};
      const TFloat4 P2{pts[i + 2].x, pts[i + 2].y, pts[i + 2].x, pts[i + 2].y};
      const TFloat4 P3{pts[i + 3].x, pts[i + 3].y, pts[i + 3].x, pts[i + 3].y};
      for (size_t q = 0; q < pairs; ++q) {
        const auto& w = m_PairBasis[q];
        const TFloat4 out = load4(w[0].data()) * P0 + load4(w[1].data()) * P1 + load4(w[2].data()) * P2 +
                            load4(w[3].data()) * P3;
        std::memcpy(v + 4 * q, &out, sizeof out);
      }
      v += 2 * steps;
    }
    xy.resize(2 * ramp.size());
  }
  m_Sink->coloredVertices(TDrawSink::LineStrip, xy.size() / 2, xy.data(), rgba.data());
}

void THebProcessorImplementationCpp::renderArrowHead(const TVisualNode& node, const TVector4& color, TVector2 apex,
                                                     TVector2 inner) {
  const float w = node.current.box.x1 - node.current.box.x0;
  if (!(w > 0)) return;
  const float z = std::min(0.1f, std::max(0.02f, w));
  const TVector2 d = unit(apex - inner);
  if (d.x == 0 && d.y == 0) return;
  const TVector2 back(apex.x - z * d.x, apex.y - z * d.y);
  const TVector2 side(-d.y * 0.3f * z, d.x * 0.3f * z);
  TDrawSink& gl = *m_Sink;
  gl.color(color.x, color.y, color.z, color.w);
  gl.begin(TDrawSink::LineStrip);
  gl.vertex(back.x + side.x, back.y + side.y);
  gl.vertex(apex.x, apex.y);
  gl.vertex(back.x - side.x, back.y - side.y);
  gl.end();
}

void registerHebCore() { TProcessorRegistry::instance().add<THebProcessorCpp>(); }

}  // namespace quorvel
