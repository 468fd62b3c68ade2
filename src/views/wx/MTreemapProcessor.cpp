#include "MTreemapProcessor.h"

#include <GL/gl.h>

#include "engine/MMediator.h"
#include "engine/MRegistry.h"
#include "widgets/MGui.h"

namespace quorvel {

TTreemapProcessorImplementation::TCanvas::TCanvas(wxWindow* parent, std::shared_ptr<TCommonRenderer> renderer,
                                                  TTreemapProcessorImplementation* implementation)
    : TNodeEdgeInteractorCanvas(parent, std::move(renderer), implementation->m_Processor), impl(implementation) {
  impl->m_Sink = &m_Sink;
  // The wheel has no meaning here.
  Bind(wxEVT_MOUSEWHEEL, [](wxMouseEvent&) {});
}

void TTreemapProcessorImplementation::TCanvas::OnSize(wxSizeEvent* event) {
  TGlCanvasBase::OnSize(nullptr);
  if (impl) {
    impl->m_RedoLayout = true;
    if (processor)
      if (auto colormap = processor->getInputPinByName("node colormap"); colormap && colormap->getData())
        colormap->getData()->setHasChanged();
    refresh();
  }
  if (event) event->Skip();
}

void TTreemapProcessorImplementation::TCanvas::OnSetMatrices() {
  glViewport(0, 0, size.GetWidth(), size.GetHeight());
  glMatrixMode(GL_PROJECTION);
  glLoadIdentity();
  glOrtho(viewportlx, viewportrx, viewportly, viewportry, -3, 3);
}

void TTreemapProcessorImplementation::TCanvas::OnDraw() {
  if (!impl) return;
  impl->m_Picking = picking;
  setCurrent();
  glMatrixMode(GL_MODELVIEW);
  glLoadIdentity();
  glPushMatrix();
  glDisable(GL_LIGHTING);
  commonrenderer->ensureCushionTexturesExist();
  const wxSize client = GetClientSize();
  const float scale = static_cast<float>(std::max(client.GetWidth(), client.GetHeight()));
  glScalef(scale, scale, 0);
  glInitNames();
  if (generateLabelTextures()) impl->clearLists();
  impl->prepareRendering(client.GetWidth(), client.GetHeight());
  const std::string list = impl->listPrefix() + "_nodes_" + (picking ? "True" : "False");
  if (!commonrenderer->renderDisplayList(list)) {
    impl->renderNodes();
    commonrenderer->endDisplayList();
  }
  if (!picking) impl->renderSelectionOutlines();
  glPopMatrix();
  if (!picking) {
    drawTooltip(impl->tooltiptext);
    pendingrefresh = false;
  }
}

// ---------------------------------------------------------------------------

TTreemapProcessorImplementation::TTreemapProcessorImplementation(TTreemapProcessorCpp* processor, wxWindow* parent)
    : TTreemapProcessorImplementationCpp(processor, nullptr) {
  renderer = std::make_shared<TCommonRenderer>("Treemap renderer");
  m_Renderer = renderer;
  canvas = new TCanvas(parent, renderer, this);
  if (auto* panel = dynamic_cast<TSizerPanel*>(parent)) {
    auto* column = new wxBoxSizer(wxVERTICAL);
    column->Add(canvas, 1, wxEXPAND);
    panel->sizer->Add(column, 1, wxEXPAND);
    panel->Layout();
  }
  renderer->postCreate(canvas);
}

TTreemapProcessorImplementation::~TTreemapProcessorImplementation() {
  if (canvas) {
    canvas->impl = nullptr;
    canvas->processor = nullptr;
  }
}

std::string TTreemapProcessorImplementation::listPrefix() const {
  return "list" + std::to_string(m_Processor->m_Id);
}

void TTreemapProcessorImplementation::clearLists() {
  if (canvas) renderer->clearDisplayLists(listPrefix());
}

// ---------------------------------------------------------------------------

void TTreemapProcessor::process_python() {
  if (m_GuiParent->hasChanged()) {
    resetPins({m_GuiParent});
    if (!m_Implementation)
      if (wxWindow* parent = windowOf(m_GuiParent->getData()))
        m_Implementation = std::make_shared<TTreemapProcessorImplementation>(this, parent);
  }
  TTreemapProcessorImplementation* impl = implementation();
  if (!impl || !impl->canvas.get()) {
    resetPins({});
    return;
  }
  auto text = [](const TPinPtr& pin) -> std::optional<std::string> {
    auto d = dataAs<TStringData>(pin);
    return d ? std::optional<std::string>(d->getValue()) : std::nullopt;
  };
  if (m_NodeTooltipText->hasChanged() || m_EdgeTooltipText->hasChanged()) {
    const std::optional<std::string> node = text(m_NodeTooltipText);
    impl->tooltiptext = node && !node->empty() ? node : text(m_EdgeTooltipText);
    if (impl->canvas) impl->canvas->Refresh(false);
  }
  if (haveChanged({m_NodeOrderAttrOrdnorm, m_NodeAreaAttrOrdnorm})) impl->m_RedoLayout = true;
  if (haveChanged({m_NodeTextAttr, m_NodeColorAttr, m_NodeColorAttrOrdnorm, m_NodeAreaAttrOrdnorm,
                   m_NodeOrderAttrOrdnorm, m_Hierarchy, m_HierarchyCollapsed, m_AggLft, m_Collapsed, m_NodeColormap,
                   m_Flatten, m_Flatten2, m_LowLevelBorder}) ||
      haveChanged({"settings."}))
    impl->clearLists();
  impl->canvas->refresh();
  resetPins({"settings."});
  const wxSize client = impl->canvas->GetClientSize();
  impl->prepareRendering(client.GetWidth(), client.GetHeight());
  impl->process();
  resetPins({});
}

void TTreemapProcessor::destroy_python() { m_Implementation.reset(); }

void registerTreemapView() { TProcessorRegistry::instance().add<TTreemapProcessor>(); }

}  // namespace quorvel
