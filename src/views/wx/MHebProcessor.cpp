#include "MHebProcessor.h"

#include <GL/gl.h>

#include "engine/MMediator.h"
#include "engine/MRegistry.h"
#include "widgets/MGui.h"
#include "engine/MMediator.h"

namespace quorvel {

THebProcessorImplementation::TCanvas::TCanvas(wxWindow* parent, std::shared_ptr<TCommonRenderer> renderer,
                                              THebProcessorImplementation* implementation)
    : TNodeEdgeInteractorCanvas(parent, std::move(renderer), implementation->m_Processor), impl(implementation) {
  impl->m_Sink = &m_Sink;
}

void THebProcessorImplementation::TCanvas::OnSize(wxSizeEvent* event) {
  TGlCanvasBase::OnSize(nullptr);
  if (impl) {
    impl->clearLists("");
    impl->m_RecomputeNodeVisuals = true;
    if (processor) processor->getInputPinByName("brushed nodes")->touch();
  }
  if (event) event->Skip();
}

void THebProcessorImplementation::TCanvas::OnSetMatrices() {
  glViewport(0, 0, size.GetWidth(), size.GetHeight());
  glMatrixMode(GL_PROJECTION);
  glLoadIdentity();
  glOrtho(viewportlx, viewportrx, viewportly, viewportry, -3, 3);
}

void THebProcessorImplementation::TCanvas::OnDraw() {
  if (!impl) return;
  impl->m_Picking = picking;
  setCurrent();
  commonrenderer->ensureCushionTexturesExist();
  glMatrixMode(GL_MODELVIEW);
  glLoadIdentity();
  glPushMatrix();
  glDisable(GL_LIGHTING);
  if (generateLabelTextures()) impl->clearLists("_nodes");
  const wxSize client = GetClientSize();
  const float w = static_cast<float>(client.GetWidth()), h = static_cast<float>(client.GetHeight());
  glTranslatef(w / 2, h / 2, 0);
  const float scale = std::min(w, h) / 2;
  glScalef(scale, scale, 0);
  impl->prepareRendering(client.GetWidth(), client.GetHeight());
  const std::string list = impl->listPrefix() + "_nodes_" + (picking ? "True" : "False");
  if (!commonrenderer->renderDisplayList(list)) {
    impl->renderNodes();
    commonrenderer->endDisplayList();
  }
  // The edges, once the rings stand still: all of them, or only those of
  // what is selected or hovered.
  const auto layer = impl->edgeLayer();
  if (layer != THebProcessorImplementationCpp::EdgeLayer::None) {
    const bool fg = layer == THebProcessorImplementationCpp::EdgeLayer::Foreground;
    const std::string edges = impl->listPrefix() + (fg ? "_edges_fg_" : "_edges_bg_") + (picking ? "True" : "False");
    if (!commonrenderer->renderDisplayList(edges)) {
      try {
        fg ? impl->renderForegroundEdges() : impl->renderBackgroundEdges();
      } catch (...) {
        // A half-compiled list is not kept: the next paint tries again.
        commonrenderer->endDisplayList();
        commonrenderer->clearDisplayLists(edges);
        throw;
      }
      commonrenderer->endDisplayList();
    }
  }
  if (!picking) impl->renderSelectionOutlines();
  glPopMatrix();
  if (!picking) {
    drawTooltip(tooltiptext);
    pendingrefresh = false;
  }
}

// ---------------------------------------------------------------------------

THebProcessorImplementation::THebProcessorImplementation(THebProcessorCpp* processor, wxWindow* parent)
    : THebProcessorImplementationCpp(processor, nullptr) {
  renderer = std::make_shared<TCommonRenderer>("Heb common renderer");
  m_Renderer = renderer;
  canvas = new TCanvas(parent, renderer, this);
  if (auto* panel = dynamic_cast<TSizerPanel*>(parent)) {
    panel->sizer->Add(canvas, 1, wxEXPAND);
    panel->Layout();
  }
  renderer->postCreate(canvas);
}

THebProcessorImplementation::~THebProcessorImplementation() {
  // The window may outlive the processor until the toolkit deletes it.
  if (canvas) {
    canvas->impl = nullptr;
    canvas->processor = nullptr;
  }
}

std::string THebProcessorImplementation::listPrefix() const { return "list" + std::to_string(m_Processor->m_Id); }

void THebProcessorImplementation::clearLists(const std::string& part) {
  if (canvas) renderer->clearDisplayLists(listPrefix() + part);
}

void THebProcessorImplementation::refresh() {
  if (!canvas) return;
  clearLists("");
  canvas->refresh();
}

// ---------------------------------------------------------------------------

void THebProcessor::process_python() {
  if (m_GuiParent->hasChanged()) {
    resetPins({m_GuiParent});
    if (!m_Implementation)
      if (wxWindow* parent = windowOf(m_GuiParent->getData()))
        m_Implementation = std::make_shared<THebProcessorImplementation>(this, parent);
  }
  THebProcessorImplementation* impl = implementation();
  if (!impl || !impl->canvas.get()) {
    resetPins({});
    return;
  }
  THebProcessorImplementation::TCanvas* canvas = impl->canvas;
  auto text = [](const TPinPtr& pin) -> std::optional<std::string> {
    auto d = dataAs<TStringData>(pin);
    return d ? std::optional<std::string>(d->getValue()) : std::nullopt;
  };
  // A node's text before an edge's: the other one is empty then.
  if (m_NodeTooltipText->hasChanged() || m_EdgeTooltipText->hasChanged()) {
    const std::optional<std::string> node = text(m_NodeTooltipText);
    canvas->tooltiptext = node && !node->empty() ? node : text(m_EdgeTooltipText);
    canvas->Refresh(false);
  }
  const TPinList nodeInputs{m_NodeTextAttr, m_NodeColorAttr, m_NodeColorAttrOrdnorm, m_Hierarchy,
                            m_HierarchyCollapsed, m_AggLft, m_Collapsed, m_NodeColormap};
  if (haveChanged(nodeInputs)) {
    resetPins(nodeInputs);
    impl->clearLists("_nodes");
  }
  const TPinList edgeInputs{m_EdgeColors, m_EdgePrimarySelection, m_IncidentEdgeSelection};
  if (haveChanged(edgeInputs)) {
    resetPins(edgeInputs);
    impl->clearLists("_edges");
  }
  canvas->refresh();
  if (haveChanged({"settings."})) {
    if (m_FontSize->hasChanged()) impl->clearLists("_nodes");
    if (haveChanged({m_NonLeafHeight, m_GapSize, m_GapsAtLevel, m_EdgeOpacity})) {
      impl->clearLists("");
      impl->m_RecomputeNodeVisuals = true;
    }
    if (haveChanged({m_SplineLinearization, m_SelfLoopSize, m_EdgeBudget, m_EdgeFade})) impl->clearLists("_edges");
    resetPins({"settings."});
  }
  if (m_AggLft->hasChanged()) {
    impl->m_AnimationInterpolation = 0;
    impl->m_Animate = true;
    std::weak_ptr<THebProcessor> self = std::static_pointer_cast<THebProcessor>(selfPtr());
    TAppServices* app = appServices();
    if (!app || !app->animate(
                    [self](double fraction) {
                      if (auto p = self.lock()) p->animate(fraction);
                    },
                    0.5))
      impl->m_Animate = false;
  }
  const wxSize client = canvas->GetClientSize();
  impl->prepareRendering(client.GetWidth(), client.GetHeight());
  if (impl->processNodes()) impl->clearLists("_nodes");
  if (impl->processEdges()) impl->clearLists("_edges");
  resetPins({});
  impl->m_RecomputeNodeVisuals = false;
}

void THebProcessor::destroy_python() { m_Implementation.reset(); }

void THebProcessor::animate(double fraction) {
  THebProcessorImplementation* impl = implementation();
  if (!impl) return;
  impl->animate(static_cast<float>(fraction));
  impl->clearLists("_nodes");
  impl->refresh();
}

void registerHebView() { TProcessorRegistry::instance().add<THebProcessor>(); }

}  // namespace quorvel
