#include "MTableLensProcessor.h"

#include <GL/gl.h>
#include <wx/sizer.h>

#include <algorithm>
#include <cmath>
#include <set>

#include "engine/MMediator.h"
#include "engine/MRegistry.h"
#include "render/wx/MImageBuilder.h"
#include "widgets/MGui.h"
#include "engine/MMediator.h"
#include "render/wx/MImageBuilder.h"

namespace quorvel {

namespace {

constexpr unsigned kRowName = 1, kHeaderName = 2, kSeparatorName = 3;

void logFailure(const std::exception& e) {
  std::printf("%s\n", e.what());
  if (me.logger) me.logger->criticalerror(e.what());
}

}  // namespace

using TCanvas = TTableLensImplementation::TGlGrid::TCanvas;

TCanvas::TCanvas(wxWindow* parent, std::shared_ptr<TCommonRenderer> renderer, TTableLensImplementation* implementation)
    : TNodeEdgeInteractorCanvas(parent, std::move(renderer), implementation->m_Processor), impl(implementation) {
  Bind(wxEVT_RIGHT_DOWN, &TCanvas::OnRightDown, this);
}

void TCanvas::OnSize(wxSizeEvent* event) {
  TGlCanvasBase::OnSize(nullptr);
  if (impl) {
    impl->clearLists();
    impl->setScrollbar();
  }
  if (event) event->Skip();
}

void TCanvas::OnSetMatrices() {
  glViewport(0, 0, size.GetWidth(), size.GetHeight());
  glMatrixMode(GL_PROJECTION);
  glLoadIdentity();
  glOrtho(viewportlx, viewportrx, viewportly, viewportry, -3, 3);
}

void TCanvas::OnDraw() {
  if (!impl) return;
  impl->m_Picking = picking;
  impl->m_Sink = &m_Sink;
  impl->ensureFontsExist();
  glDisable(GL_LIGHTING);
  glDisable(GL_DEPTH_TEST);
  const wxSize client = GetClientSize();
  // y down from the top left corner.
  glMatrixMode(GL_MODELVIEW);
  glLoadIdentity();
  glTranslatef(0, static_cast<float>(client.GetHeight()), 0);
  glScalef(1, -1, 1);
  impl->prepare(client.GetWidth(), client.GetHeight());
  glPushMatrix();
  glTranslatef(0, quorvel::TGlGrid::kHeader - impl->getYpos(), 0);
  glScalef(1, impl->getZoom(), 1);
  if (!picking) impl->renderSelection();
  const std::string list = impl->listPrefix() + (picking ? "True" : "False");
  if (!commonrenderer->renderDisplayList(list)) {
    impl->renderCells();
    commonrenderer->endDisplayList();
  }
  if (!picking) {
    impl->renderTexts();
    impl->renderRowLines();
  }
  glPopMatrix();
  impl->renderHeaders();
  if (!picking && dragcolumn && mousepos) {
    glDisable(GL_BLEND);
    glLineWidth(2);
    glColor4f(0, 0, 0, 1);
    glBegin(GL_LINES);
    glVertex2f(static_cast<float>(mousepos->x), 0);
    glVertex2f(static_cast<float>(mousepos->x), static_cast<float>(client.GetHeight()));
    glEnd();
    glLineWidth(1);
  }
  if (!picking) pendingrefresh = false;
}

std::vector<std::vector<unsigned>> TCanvas::pickedNames() {
  std::vector<std::vector<unsigned>> hits;
  for (auto& names : Pick())
    if (!names.empty()) hits.push_back(std::move(names));
  std::stable_sort(hits.begin(), hits.end(), [](const auto& a, const auto& b) { return a[0] < b[0]; });
  return hits;
}

void TCanvas::OnMouseMotion(wxMouseEvent& evt) {
  TGlCanvasBase::OnMouseMotion(evt);
  if (!impl || pendingrefresh) return;
  try {
    auto brushed = dataAs<TIntegerSetData>(impl->m_Processor->m_Brushed);
    if (!brushed) return;
    if (dragcolumn) {
      refresh();
      return;
    }
    const auto hits = pickedNames();
    if (!hits.empty() && hits.back()[0] == kSeparatorName) {
      SetCursor(wxCursor(wxCURSOR_SIZEWE));
      return;
    }
    for (const auto& names : hits) {
      if (names[0] != kRowName || names.size() < 2 || names[1] >= impl->m_Row2Id.size()) continue;
      brushed->setSingle(impl->getNidByRow(names[1]));
    }
    SetCursor(wxCursor(wxCURSOR_ARROW));
    runFlowNow();
  } catch (const std::exception& e) {
    logFailure(e);
  }
}

void TCanvas::headerClicked(int column, bool menu) {
  impl->m_Processor->m_OnColumnRightClick->setData(std::make_shared<TIntegerData>(column));
  runFlowNow();
  if (!impl) return;
  if (menu) {
    const std::set<std::string> tags{"popup"};
    if (guiMgr()) guiMgr()->showContextMenu(this, actionListOn(impl->m_Processor->m_HeaderActions), &tags);
  } else {
    executeAction(impl->m_Processor->m_HeaderActions, "Toggle sort");
  }
}

void TCanvas::OnMouseLeftDown(wxMouseEvent& evt) {
  SetFocus();
  if (!impl) return;
  try {
    mousepos = evt.GetPosition();
    const auto hits = pickedNames();
    if (hits.empty() || hits.back().size() < 2) return;
    const auto& last = hits.back();
    if (last[0] == kSeparatorName) {
      dragcolumn = static_cast<int>(last[1]);
      dragx = evt.GetX();
    } else if (last[0] == kHeaderName) {
      headerClicked(static_cast<int>(last[1]), false);
    }
  } catch (const std::exception& e) {
    logFailure(e);
  }
}

void TCanvas::OnMouseLeftUp(wxMouseEvent& evt) {
  if (!impl) return;
  mousepos = evt.GetPosition();
  if (dragcolumn) {
    auto widths = dataAs<TDataArray>(impl->m_Processor->m_ColumnWidths);
    auto width = widths ? widths->itemAs<TFloatData>(static_cast<size_t>(*dragcolumn)) : nullptr;
    const wxSize client = GetClientSize();
    const bool over = evt.GetX() >= 0 && evt.GetY() >= 0 && evt.GetX() < client.GetWidth() &&
                      evt.GetY() < client.GetHeight();
    if (width && over) {
      const float changed = width->getValue() + static_cast<float>(evt.GetX() - dragx);
      if (changed > 1.0f) {
        width->setValue(changed);
        width->m_HasChanged = true;
        widths->m_HasChanged = true;
      }
    }
    impl->clearLists();
    dragcolumn.reset();
    refresh();
  }
  const auto hits = pickedNames();
  for (auto it = hits.rbegin(); it != hits.rend(); ++it)
    if ((*it)[0] == kRowName && it->size() >= 2) {
      if (hits.back()[0] == kRowName) releaseRow(static_cast<int>((*it)[1]), evt);
      break;
    }
}

void TCanvas::releaseRow(int row, const wxMouseEvent& evt) {
  auto internal = dataAs<TIntegerSetData>(impl->m_Processor->m_InternalSelection);
  if (!internal || row < 0 || static_cast<size_t>(row) >= impl->m_Row2Id.size()) return;
  const TRowClickSelection::TEffect effect = rowclicks.click(row, evt.ShiftDown(), evt.ControlDown());
  if (effect.last < effect.first) return;
  if (effect.clear) internal->clear();
  for (int r = effect.first; r <= effect.last && static_cast<size_t>(r) < impl->m_Row2Id.size(); ++r)
    internal->add(impl->getNidByRow(static_cast<size_t>(r)));
  internal->m_HasChanged = true;
  refresh();
  runFlowNow();
}

void TCanvas::OnLeftMouseDoubleClick(wxMouseEvent& evt) {
  if (!impl) return;
  mousepos = evt.GetPosition();
  const auto hits = pickedNames();
  if (hits.empty() || hits.back()[0] != kRowName || hits.back().size() < 2) return;
  const size_t row = hits.back()[1];
  auto selectionB = dataAs<TIntegerSetData>(impl->m_Processor->m_SelectionB);
  if (!selectionB || row >= impl->m_Row2Id.size()) return;
  selectionB->clear();
  selectionB->add(impl->getNidByRow(row));
  selectionB->m_HasChanged = true;
  runFlowNow();
}

void TCanvas::OnRightDown(wxMouseEvent& evt) {
  if (!impl) return;
  mousepos = evt.GetPosition();
  const auto hits = pickedNames();
  if (hits.empty() || hits.back().size() < 2) return;
  if (hits.back()[0] == kHeaderName) {
    headerClicked(static_cast<int>(hits.back()[1]), true);
  } else if (hits.back()[0] == kRowName) {
    const std::set<std::string> tags{"popup"};
    if (guiMgr()) guiMgr()->showContextMenu(this, actionListOn(impl->m_Processor->m_Actions), &tags);
  }
}

void TCanvas::OnMouseLeave(wxMouseEvent& evt) {
  // The hovered id stays as it was.
  TGlCanvasBase::OnMouseLeave(evt);
}

// ---------------------------------------------------------------------------

TTableLensImplementation::TGlGrid::TGlGrid(wxWindow* parent, TTableLensImplementation* impl) : wxPanel(parent) {
  auto* row = new wxBoxSizer(wxHORIZONTAL);
  canvas = new TCanvas(this, impl->renderer, impl);
  scrollbar = new wxScrollBar(this, wxID_ANY, wxDefaultPosition, wxDefaultSize, wxSB_VERTICAL);
  row->Add(canvas, 1, wxEXPAND);
  row->Add(scrollbar, 0, wxEXPAND);
  SetSizer(row);
  impl->renderer->postCreate(canvas);
  auto scrolled = [this, impl](wxScrollEvent& e) {
    impl->setYpos(static_cast<float>(e.GetPosition()));
    canvas->refresh();
  };
  for (auto type : {wxEVT_SCROLL_THUMBTRACK, wxEVT_SCROLL_THUMBRELEASE, wxEVT_SCROLL_LINEUP, wxEVT_SCROLL_LINEDOWN,
                    wxEVT_SCROLL_PAGEUP, wxEVT_SCROLL_PAGEDOWN, wxEVT_SCROLL_TOP, wxEVT_SCROLL_BOTTOM,
                    wxEVT_SCROLL_CHANGED})
    scrollbar->Bind(type, scrolled);
  canvas->Bind(wxEVT_MOUSEWHEEL, [this, impl](wxMouseEvent& e) {
    impl->changeZoom(static_cast<float>(e.GetWheelRotation()) / 300.0f);
    impl->setScrollbar();
    canvas->refresh();
  });
}

TTableLensImplementation::TTableLensImplementation(TTableLensProcessorCpp* processor, wxWindow* parent)
    : TTableLensImplementationCpp(processor) {
  renderer = std::make_shared<TCommonRenderer>("Gl grid renderer");
  panel = new TGlGrid(parent, this);
  if (auto* sizerPanel = dynamic_cast<TSizerPanel*>(parent)) {
    sizerPanel->sizer->Add(panel.get(), 1, wxEXPAND);
    sizerPanel->Layout();
  }
}

TTableLensImplementation::~TTableLensImplementation() {
  if (TCanvas* c = canvas()) {
    c->impl = nullptr;
    c->processor = nullptr;
  }
}

void TTableLensImplementation::clearLists() {
  if (canvas()) renderer->clearDisplayLists(listPrefix());
}

void TTableLensImplementation::refresh() {
  if (TCanvas* c = canvas()) c->refresh();
}

void TTableLensImplementation::canvasSize(int& width, int& height) const {
  if (TCanvas* c = canvas()) {
    const wxSize s = c->GetClientSize();
    width = s.GetWidth();
    height = s.GetHeight();
    return;
  }
  TTableLensImplementationCpp::canvasSize(width, height);
}

void TTableLensImplementation::setScrollbar() {
  if (!panel || !m_Grid) return;
  auto selection = dataAs<TIntegerSetData>(m_Processor->m_Selection);
  if (!selection || selection->getCount() == 0) return;
  const float total = static_cast<float>(m_Grid->rowcount) * 14.0f * m_Grid->zoom;
  const float page = static_cast<float>(m_Grid->height) - quorvel::TGlGrid::kHeader;
  const float position = std::min(m_Grid->ypos, total - page);
  panel->scrollbar->SetScrollbar(static_cast<int>(position), static_cast<int>(page), static_cast<int>(total),
                                 static_cast<int>(page));
}

void TTableLensImplementation::changeZoom(float v) {
  setZoom(getZoom() + v);
  if (auto zoom = dataAs<TFloatData>(m_Processor->m_Zoom)) zoom->setValue(getZoom());
}

void TTableLensImplementation::ensureFontsExist() {
  if (m_FontsExist) return;
  const int heights[] = {14, 12, 11, 10};
  for (size_t i = 0; i < m_RowFonts.size(); ++i) m_RowFonts[i] = std::make_unique<wxGLBase::GLText>("Tahoma", heights[i]);
  m_HeaderFont = std::make_unique<wxGLBase::GLText>("Tahoma", 16);
  m_FontsExist = true;
}

void TTableLensImplementation::renderTexts() {
  const float h = m_Grid->pixelRowHeight();
  auto attrs = attributes();
  if (quorvel::TGlGrid::textStyle(h) == quorvel::TGlGrid::TText::None || !attrs || attrs->getItemCount() == 0) return;
  const int font = quorvel::TGlGrid::rowFontHeight(h);
  m_RowFont = m_RowFonts[font == 14 ? 0 : font == 12 ? 1 : font == 11 ? 2 : 3].get();
  if (quorvel::TGlGrid::textStyle(h) == quorvel::TGlGrid::TText::Faded) {
    glEnable(GL_BLEND);
    glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
  } else {
    glDisable(GL_BLEND);
  }
  glColor4f(0, 0, 0, quorvel::TGlGrid::textAlpha(h));
  glEnable(GL_SCISSOR_TEST);
  for (size_t c = 0; c < m_Grid->columnwidths.size(); ++c) {
    const float x0 = m_Grid->columnLeft(static_cast<int>(c));
    glScissor(static_cast<GLint>(x0), 0, static_cast<GLsizei>(std::max(0.0f, m_Grid->columnwidths[c])),
              m_Grid->height);
    m_Grid->forEachVisibleText(static_cast<int>(c));
  }
  glDisable(GL_SCISSOR_TEST);
  glDisable(GL_BLEND);
}

bool TTableLensImplementation::renderText(int column, int row, const TGridRect& rect) {
  if (row < 0 || static_cast<size_t>(row) >= m_Row2Id.size() || !m_RowFont) return false;
  auto attrs = attributes();
  auto attribute = attrs ? attrs->itemAs<TAttributeData>(static_cast<size_t>(column)) : nullptr;
  if (!attribute) return false;
  bool found = false;
  const std::string text = attribute->getStringValueById(m_Row2Id[static_cast<size_t>(row)], found);
  if (found) m_RowFont->draw(rect.x0 + 2, rect.y1 - 4, text);
  return false;
}

void TTableLensImplementation::renderHeaders() {
  if (renderer->m_IconTextureBuilder) renderer->m_IconTextureBuilder->updateIfNeeded();
  auto attrs = attributes();
  if (!attrs || attrs->getItemCount() == 0) return;
  TDrawSink& gl = *m_Sink;
  const size_t columns = m_Grid->columnwidths.size();
  float x = 0;
  for (size_t c = 0; c < columns; ++c) {
    gl.pushName(kHeaderName);
    gl.pushName(static_cast<unsigned>(c));
    renderHeader(static_cast<int>(c), TGridRect{x, 0, x + m_Grid->columnwidths[c], quorvel::TGlGrid::kHeader});
    gl.popName();
    gl.popName();
    x += m_Grid->columnwidths[c];
  }
  x = 0;
  glDisable(GL_BLEND);
  glColor4f(0, 0, 0, 1);
  for (size_t c = 0; c < columns; ++c) {
    x += m_Grid->columnwidths[c];
    gl.pushName(kSeparatorName);
    gl.pushName(static_cast<unsigned>(c));
    gl.begin(TDrawSink::Lines);
    gl.vertex(x, 0);
    gl.vertex(x, quorvel::TGlGrid::kHeader);
    gl.end();
    gl.popName();
    gl.popName();
  }
  gl.color(0.8f, 0.8f, 0.8f, 1);
  x = 0;
  gl.begin(TDrawSink::Lines);
  for (size_t c = 0; c < columns; ++c) {
    x += m_Grid->columnwidths[c];
    gl.vertex(x, 0);
    gl.vertex(x, static_cast<float>(m_Grid->rowcount) * 14.0f);
  }
  gl.end();
}

void TTableLensImplementation::renderHeader(int column, const TGridRect& r) {
  TDrawSink& gl = *m_Sink;
  gl.color(0.9254902f, 0.9137255f, 0.84705883f, 1);
  gl.begin(TDrawSink::Quads);
  gl.vertex(r.x0, r.y0);
  gl.vertex(r.x1, r.y0);
  gl.vertex(r.x1, r.y1);
  gl.vertex(r.x0, r.y1);
  gl.end();
  if (m_Picking) return;
  GLuint texture = 0;
  TBox box;
  const int icon = static_cast<size_t>(column) < m_HeaderIcons.size() ? m_HeaderIcons[static_cast<size_t>(column)] : -1;
  if (icon >= 0 && renderer->m_IconTextureBuilder && renderer->m_IconTextureBuilder->getKey2Location(icon, texture, box)) {
    const float w = std::floor((box.br.x - box.tl.x) * 512.0f), hh = std::floor((box.br.y - box.tl.y) * 512.0f);
    const float x = std::floor(r.x1 - w - 2), y = std::floor(r.y0 + 2);
    glEnable(GL_TEXTURE_2D);
    glEnable(GL_BLEND);
    glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    glBindTexture(GL_TEXTURE_2D, texture);
    glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_MODULATE);
    glColor4f(1, 1, 1, 1);
    glBegin(GL_QUADS);
    glTexCoord2f(box.tl.x, box.tl.y);
    glVertex2f(x, y);
    glTexCoord2f(box.br.x, box.tl.y);
    glVertex2f(x + w, y);
    glTexCoord2f(box.br.x, box.br.y);
    glVertex2f(x + w, y + hh);
    glTexCoord2f(box.tl.x, box.br.y);
    glVertex2f(x, y + hh);
    glEnd();
    glDisable(GL_TEXTURE_2D);
    glDisable(GL_BLEND);
  }
  auto attrs = attributes();
  auto item = attrs ? attrs->itemAs<TAbstractData>(static_cast<size_t>(column)) : nullptr;
  if (item && m_HeaderFont) {
    glColor4f(0, 0, 0, 1);
    m_HeaderFont->draw(r.x0 + 2, r.y1 - 5, item->getKeyName());
  }
}

// ---------------------------------------------------------------------------

void TTableLensProcessor::onGuiParent() {
  if (m_Implementation) return;
  if (wxWindow* parent = windowOf(m_GuiParent->getData()))
    m_Implementation = std::make_shared<TTableLensImplementation>(this, parent);
}

void registerTableLensView() { TProcessorRegistry::instance().add<TTableLensProcessor>(); }

}  // namespace quorvel
