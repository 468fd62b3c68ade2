#include "MVisualizer.h"

#include <algorithm>
#include <cmath>
#include <set>

namespace quorvel {

void TVisualizerProcessorBase::postCreate() {
  m_GuiParent = addInputPin<TPythonData>("gui parent");
  m_NodeTextAttr = addInputPin<TAttributeData>("node text attr");
  m_NodeColorAttr = addInputPin<TAttributeData>("node color attr");
  m_NodeColorAttrOrdnorm = addInputPin<TFloatAttributeData>("node color attr ordnorm");
  m_NodeIconAttr = addInputPin<TIntegerAttributeData>("node icon attr");
  m_Hierarchy = addInputPin<THierarchyData>("hierarchy");
  m_HierarchyCollapsed = addInputPin<THierarchyData>("hierarchy collapsed");
  m_Level = addInputPin<TIntegerAttributeData>("level");
  m_AggLft = addInputPin<TAggLftData>("agglft");
  m_Collapsed = addInputPin<TBoolAttributeData>("collapsed");
  m_NodeColormap = addInputPin<TColorMapData>("node colormap");
  m_BrushedNodes = addInputPin<TIntegerSetData>("brushed nodes");
  m_BrushedEdges = addInputPin<TIntegerPairSetData>("brushed edges");
  m_NodePrimarySelection = addInputPin<TIntegerSetData>("node primary selection");
  m_NodeSecondarySelection = addInputPin<TIntegerSetData>("node secondary selection");
  m_NodeTooltipText = addInputPin<TStringData>("node tooltip text");
  m_EdgeTooltipText = addInputPin<TStringData>("edge tooltip text");
  m_Actions = addInputPin<TPythonData>("actions");
  m_FontSize = addInputPin<TFloatData>("settings.font size");
  m_Initialized = addOutputPin<TBooleanData>("initialized");
}

// ---------------------------------------------------------------------------

TVector2 TToArcScreenConverter::toScreen(float x, float y) const {
  const float a = x * 6.28318f;
  const float r = 1.0f - y;
  return {r * std::cos(a), r * std::sin(a)};
}

float TToArcScreenConverter::getWidth(const TLayoutBox& b) const {
  return static_cast<float>(2.0 * (1.0 - (b.y0 + b.y1) * 0.5) * (b.x1 - b.x0) * width * M_PI);
}

float TToArcScreenConverter::getHeight(const TLayoutBox& b) const { return (b.y1 - b.y0) * width; }

float TToOrthoScreenConverter::getWidth(const TLayoutBox& b) const { return (b.x1 - b.x0) * std::max(width, height); }
float TToOrthoScreenConverter::getHeight(const TLayoutBox& b) const { return (b.y1 - b.y0) * std::max(width, height); }
float TToOrthoScreenConverter::fromPixels(float length) const { return length / std::max(width, height); }

// ---------------------------------------------------------------------------

void interpolateVisual(const TNodeVisual& o, const TNodeVisual& n, float t, TNodeVisual& out) {
  auto mix = [t](float a, float b) { return a + (b - a) * t; };
  out.anchor = {mix(o.anchor.x, n.anchor.x), mix(o.anchor.y, n.anchor.y)};
  out.box = {mix(o.box.x0, n.box.x0), mix(o.box.y0, n.box.y0), mix(o.box.x1, n.box.x1), mix(o.box.y1, n.box.y1)};
  out.width = mix(o.width, n.width);
  out.height = mix(o.height, n.height);
  out.visible = t >= 1.0f ? n.visible : o.visible;
  out.segments = static_cast<uint16_t>(o.segments + (static_cast<float>(n.segments) - o.segments) * t);
}

float rescaleInto(float v, float a, float b, float c, float d) {
  if (std::fabs(b - a) < 0.0001f) return c;
  const float r = c + (d - c) * (v - a) / (b - a);
  return std::clamp(r, std::min(c, d), std::max(c, d));
}

// ---------------------------------------------------------------------------

TVisualizerImplementationBase::TVisualizerImplementationBase(TVisualizerProcessorBase* processor,
                                                             std::shared_ptr<TLabelCache> renderer)
    : m_Processor(processor), m_Renderer(std::move(renderer)) {
  m_DefaultColorMap = std::make_shared<TColorMapData>("default", std::make_shared<TColorMap_Rainbow>());
  m_ColorMap = m_DefaultColorMap;
  m_Converter = std::make_shared<TToOrthoScreenConverter>(1.0f, 1.0f);
  if (processor && processor->m_Initialized) processor->m_Initialized->setData(std::make_shared<TBooleanData>(true));
}

void TVisualizerImplementationBase::prepareRendering(int, int) {
  auto map = dataAs<TColorMapData>(m_Processor->m_NodeColormap);
  m_ColorMap = map ? map : m_DefaultColorMap;
  m_ColorMapIsDiscrete = map && map->acceptsNominalValues();
  m_TextAttribute = dataAs<TAttributeData>(m_Processor->m_NodeTextAttr);
  auto font = dataAs<TFloatData>(m_Processor->m_FontSize);
  m_FontSize = font ? font->getValue() : 25.0f;
}

bool TVisualizerImplementationBase::getNodeColor(const TVisualNode& node, TVector4& color) const {
  const float grey = 0.9f - 0.05f * static_cast<float>(node.level);
  auto fallback = [&] {
    color.x = color.y = color.z = grey;
    return false;
  };
  if (m_ColorMapIsDiscrete) {
    auto attr = dataAs<TAttributeData>(m_Processor->m_NodeColorAttr);
    if (!attr) return fallback();
    bool found = false;
    const std::string text = attr->getStringValueById(node.nid, found);
    if (!found) return fallback();
    m_ColorMap->getColorForNominal(text, color);
  } else {
    auto attr = dataAs<TFloatAttributeData>(m_Processor->m_NodeColorAttrOrdnorm);
    if (!attr) return fallback();
    bool found = false;
    const float v = attr->getValueById(node.nid, found);
    if (!found) return fallback();
    m_ColorMap->getColor(v, color);
  }
  color.w = 1.0f;
  return true;
}

bool TVisualizerImplementationBase::cellStrips(const TNodeVisual& v, unsigned& strips) const {
  strips = std::max(1u, m_Picking ? v.segments / 2u : static_cast<unsigned>(v.segments));
  return v.width > 0 && m_Converter->getHeight(v.box) > 0;
}

void TVisualizerImplementationBase::renderNodeCell(const TNodeVisual& v, const TVector4* color) {
  unsigned s = 0;
  if (!cellStrips(v, s)) return;
  const TLayoutBox& b = v.box;
  m_Sink->begin(TDrawSink::QuadStrip);
  if (color) m_Sink->color(color->x, color->y, color->z, color->w);
  for (unsigned i = 0; i <= s; ++i) {
    const float u = static_cast<float>(i) / s;
    const float x = b.x0 + (b.x1 - b.x0) * u;
    TVector2 p = m_Converter->toScreen(x, b.y0);
    m_Sink->texCoord(u, 0);
    m_Sink->vertex(p.x, p.y);
    p = m_Converter->toScreen(x, b.y1);
    m_Sink->texCoord(u, 1);
    m_Sink->vertex(p.x, p.y);
  }
  m_Sink->end();
}

void TVisualizerImplementationBase::renderCollapsedMark(const TNodeVisual& v) {
  unsigned s = 0;
  if (!cellStrips(v, s)) return;
  const TLayoutBox& b = v.box;
  const float yband = b.y0 + 0.95f * (b.y1 - b.y0);
  m_Sink->begin(TDrawSink::QuadStrip);
  for (unsigned i = 0; i <= s; ++i) {
    const float u = static_cast<float>(i) / s;
    const float x = b.x0 + (b.x1 - b.x0) * u;
    TVector2 p = m_Converter->toScreen(x, yband);
    m_Sink->texCoord(u, 0.95f);
    m_Sink->vertex(p.x, p.y);
    p = m_Converter->toScreen(x, b.y1);
    m_Sink->texCoord(u, 0.95f);
    m_Sink->vertex(p.x, p.y);
  }
  m_Sink->end();
}

void TVisualizerImplementationBase::renderNodeOutline(const TNodeVisual& v, float inset) {
  const float W = v.width;
  const float H = m_Converter->getHeight(v.box);
  if (!(W > 0) || !(H > 0)) return;
  const float fx = std::min(inset / W, 0.2f);
  const float fy = std::min(inset / H, 0.2f);
  const unsigned segments = std::max<unsigned>(1, v.segments);
  const float step = (1.0f - 2.0f * fx) / static_cast<float>(segments);
  const TLayoutBox& b = v.box;
  m_Sink->begin(TDrawSink::LineLoop);
  for (unsigned i = 0; i <= segments; ++i) {
    const float u = fx + static_cast<float>(i) * step;
    const TVector2 p = m_Converter->toScreen(b.x0 + (b.x1 - b.x0) * u, b.y0 + (b.y1 - b.y0) * (1.0f - fy));
    m_Sink->vertex(p.x, p.y);
  }
  for (unsigned i = segments + 1; i-- > 0;) {
    const float u = fx + static_cast<float>(i) * step;
    const TVector2 p = m_Converter->toScreen(b.x0 + (b.x1 - b.x0) * u, b.y0 + (b.y1 - b.y0) * fy);
    m_Sink->vertex(p.x, p.y);
  }
  m_Sink->end();
}

void TVisualizerImplementationBase::renderNodeSet(const TIntegerSetData* set) {
  if (!set) return;
  auto hierarchy = dataAs<THierarchyData>(m_Processor->m_Hierarchy);
  auto agglft = dataAs<TAggLftData>(m_Processor->m_AggLft);
  if (!hierarchy || !agglft) return;
  std::set<std::pair<uint32_t, bool>> outlines;
  for (uint32_t nid : set->m_Set) {
    bool found = false;
    const uint32_t lft = hierarchy->getLftByNid(nid, found);
    if (!found) continue;
    const uint32_t agg = agglft->getAggLftByLft(lft, found);
    if (!found) continue;
    outlines.emplace(agg, agg != lft);
  }
  for (const auto& [agg, hidden] : outlines)
    if (const TNodeVisual* visual = visualOfLft(agg))
      renderNodeOutline(*visual, (static_cast<float>(hidden) + 0.1f) * 15.0f);
}

void TVisualizerImplementationBase::renderSelectionOutlines() {
  TDrawSink& gl = *m_Sink;
  gl.enable(TDrawSink::DepthTest, false);
  gl.lineWidth(2);
  gl.enable(TDrawSink::Blend, true);
  gl.blendFunc(TDrawSink::SrcAlphaOneMinusSrcAlpha);
  gl.enable(TDrawSink::LineSmooth, true);
  gl.color(0.2f, 0.2f, 0.8f, 1);
  renderNodeSet(dataAs<TIntegerSetData>(m_Processor->m_NodeSecondarySelection).get());
  gl.color(0, 0, 0, 1);
  renderNodeSet(dataAs<TIntegerSetData>(m_Processor->m_NodePrimarySelection).get());
  renderNodeSet(dataAs<TIntegerSetData>(m_Processor->m_BrushedNodes).get());
  gl.enable(TDrawSink::Blend, false);
  gl.enable(TDrawSink::LineSmooth, false);
}

const TNodeVisual* TVisualizerImplementationBase::visualOfLft(uint32_t lft) {
  auto it = m_NodeMap.find(lft);
  return it == m_NodeMap.end() ? nullptr : &it->second.current;
}

void TVisualizerImplementationBase::renderNodeLabel(const TVisualNode& node, const TNodeVisual& visual, float scale) {
  const TLayoutBox& B = visual.box;
  const float w = m_Converter->getWidth(B);
  const float h = m_Converter->getHeight(B);
  if (w < 0 || h < 0) return;
  bool upper = false, right = false;
  if (m_RotateLabels) {
    const float m = (B.x0 + B.x1) * 0.5f;
    upper = m >= 0.0f && m <= 0.5f;
    right = m <= 0.25f || m >= 0.75f;
  }
  const bool vertical = h > w;
  const float longside = vertical ? h : w;
  const float shortside = vertical ? w : h;
  if (shortside <= m_LabelMinShortSide || longside <= m_LabelMinLongSide) return;
  if (!m_TextAttribute || !m_Renderer) return;
  bool found = false;
  const std::string text = m_TextAttribute->getStringValueById(node.nid, found);
  if (!found) return;
  TBox T;
  const unsigned texture = m_Renderer->getLabelTexture(text, T);
  if (texture == 0) return;
  const float bw = T.br.x - T.tl.x;
  const float bh = T.br.y - T.tl.y;
  if (!(bh > 0) || !(bw > 0)) return;
  const float R = (shortside / bh) * (bw / longside);
  float U = m_FontSize * scale / shortside;
  float V = R * U;
  if (U > 1.0f) {
    U = 1.0f;
    V = R;
  }
  float c = 1.0f;
  if (V > 1.0f) {
    c = 1.0f / V;
    V = 1.0f;
  }
  if (m_LeaveOutCrampedLabels &&
      (shortside < 0.8f * m_FontSize * scale ||
       c * static_cast<float>(text.size()) < std::min<float>(kShortestCaption, text.size()))) {
    ++m_LabelsLeftOut;
    return;
  }
  const float oU = (1.0f - U) / 2.0f;
  const float oV = (1.0f - V) / 2.0f;
  m_Sink->bindTexture(texture);
  m_Sink->textureModulate();
  const unsigned segments = std::max<unsigned>(1, visual.segments);
  const float offx = m_LabelOffsetX / m_Converter->height;
  const float offy = m_LabelOffsetY / m_Converter->width;
  m_Sink->begin(TDrawSink::QuadStrip);
  for (unsigned i = 0; i <= segments; ++i) {
    const float t = static_cast<float>(i) / segments;
    const float p = oV + V * t;
    TVector2 a, b;
    if (vertical) {
      a = m_Converter->toScreen(B.x0 + (B.x1 - B.x0) * oU, B.y0 + (B.y1 - B.y0) * p);
      b = m_Converter->toScreen(B.x0 + (B.x1 - B.x0) * (oU + U), B.y0 + (B.y1 - B.y0) * p);
    } else {
      a = m_Converter->toScreen(B.x0 + (B.x1 - B.x0) * p, B.y0 + (B.y1 - B.y0) * oU);
      b = m_Converter->toScreen(B.x0 + (B.x1 - B.x0) * p, B.y0 + (B.y1 - B.y0) * (oU + U));
    }
    float s = 0, t1 = 0, t2 = 0;
    const bool reversed = vertical ? right : upper;
    s = T.tl.x + bw * c * (reversed ? 1.0f - t : t);
    if (vertical) {
      t1 = right ? T.br.y : T.tl.y;
      t2 = right ? T.tl.y : T.br.y;
    } else {
      t1 = upper ? T.tl.y : T.br.y;
      t2 = upper ? T.br.y : T.tl.y;
    }
    m_Sink->texCoord(s, t1);
    m_Sink->vertex(a.x + offx, a.y + offy);
    m_Sink->texCoord(s, t2);
    m_Sink->vertex(b.x + offx, b.y + offy);
  }
  m_Sink->end();
}

}  // namespace quorvel
