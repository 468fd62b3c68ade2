#include "MTreeViewProcessor.h"

#include <wx/renderer.h>
#include <wx/sizer.h>

#include <stdexcept>

#include "engine/MMediator.h"
#include "engine/MRegistry.h"
#include "engine/MMediator.h"
#include "render/wx/MImageBuilder.h"

namespace quorvel {

using TPanel = TTreeViewProcessorImplementation::TPanel;

TPanel::TPanel(wxWindow* parent, TTreeViewProcessor* p) : wxPanel(parent), processor(p) {
  auto* column = new wxBoxSizer(wxVERTICAL);
  listbox = new TVListBox(this, 16);
  scrollbar = new wxScrollBar(this, wxID_ANY, wxDefaultPosition, wxDefaultSize, wxSB_HORIZONTAL);
  column->Add(listbox, 1, wxEXPAND);
  column->Add(scrollbar, 0, wxEXPAND);
  SetSizer(column);
  normalfont = listbox->GetFont();
  boldfont = normalfont.Bold();
  listbox->drawItem = [this](wxDC& dc, const wxRect& rect, size_t n) { drawLine(dc, rect, n); };
  listbox->Bind(wxEVT_LISTBOX, [this](wxCommandEvent&) { onSelect(); });
  listbox->Bind(wxEVT_KEY_DOWN, &TPanel::onKeyDown, this);
  listbox->Bind(wxEVT_KEY_UP, &TPanel::onKeyUp, this);
  listbox->Bind(wxEVT_LEFT_DCLICK, [this](wxMouseEvent&) {
    executeAction(processor->m_Actions, "Collapse toggle");
    runFlowNow();
  });
  listbox->Bind(wxEVT_RIGHT_UP, [this](wxMouseEvent&) {
    if (guiMgr()) guiMgr()->showContextMenu(listbox, actionListOn(processor->m_Actions), nullptr);
  });
  auto scrolled = [this](wxScrollEvent& e) {
    xoffset = e.GetPosition();
    listbox->Refresh();
  };
  for (auto type : {wxEVT_SCROLL_THUMBTRACK, wxEVT_SCROLL_THUMBRELEASE, wxEVT_SCROLL_LINEUP, wxEVT_SCROLL_LINEDOWN,
                    wxEVT_SCROLL_PAGEUP, wxEVT_SCROLL_PAGEDOWN, wxEVT_SCROLL_CHANGED})
    scrollbar->Bind(type, scrolled);
}

void TPanel::update() {
  listbox->Freeze();
  const size_t first = listbox->GetVisibleRowsBegin();
  listbox->Clear();
  maxx = 0;
  listbox->SetItemCount(model.lineCount());
  if (model.lineCount() > 0) listbox->ScrollToRow(std::min(first, model.lineCount() - 1));
  listbox->DeselectAll();
  if (auto internal = dataAs<TIntegerSetData>(processor->m_InternalSelection))
    for (size_t line : model.linesOf(*internal)) listbox->Select(line, true);
  listbox->Thaw();
  listbox->Refresh();
}

void TPanel::updateInternalSelection() {
  auto internal = dataAs<TIntegerSetData>(processor->m_InternalSelection);
  if (internal && internal->getCount() == 0) listbox->DeselectAll();
}

void TPanel::drawLine(wxDC& dc, const wxRect& rect, size_t n) {
  const TTreeLineModel::TLine line = model.line(n);
  int x = rect.x + TTreeLineModel::buttonX(line.indent) - xoffset;
  if (line.button)
    wxRendererNative::Get().DrawTreeItemButton(listbox, dc, wxRect(x, rect.y, 16, rect.height),
                                               line.collapsed ? 16 : 8);
  x += 16;
  if (line.icon >= 0)
    if (wxImageList* icons = iconImageList(); icons && line.icon < icons->GetImageCount()) {
      const wxBitmap bitmap = icons->GetBitmap(line.icon);
      if (bitmap.IsOk()) dc.DrawBitmap(bitmap, x, rect.y, true);
    }
  x += 20;
  dc.SetFont(line.bold ? boldfont : normalfont);
  dc.SetTextForeground(listbox->IsSelected(n) ? wxSystemSettings::GetColour(wxSYS_COLOUR_HIGHLIGHTTEXT)
                                              : wxSystemSettings::GetColour(wxSYS_COLOUR_LISTBOXTEXT));
  dc.DrawText(wxString::FromUTF8(line.text), x, rect.y);
  const int right = x + dc.GetTextExtent(wxString::FromUTF8(line.text)).GetWidth();
  if (right > maxx) {
    maxx = right;
    scrollbar->SetScrollbar(0, maxx / 5, maxx, maxx / 5);
  }
}

void TPanel::onSelect() {
  auto internal = dataAs<TIntegerSetData>(processor->m_InternalSelection);
  if (!internal || !model.collapsedhierarchy) return;
  internal->clear();
  unsigned long cookie = 0;
  for (int line = listbox->GetFirstSelected(cookie); line != wxNOT_FOUND; line = listbox->GetNextSelected(cookie))
    internal->add(model.nidOfLine(static_cast<size_t>(line)));
  internal->m_HasChanged = true;
  runFlowNow();
}

void TPanel::onKeyDown(wxKeyEvent& evt) {
  const char* action = treeKeyAction(evt.GetKeyCode(), evt.ShiftDown());
  if (!action) {
    evt.Skip();
    return;
  }
  executeAction(processor->m_Actions, action);
  runFlowNow();
}

void TPanel::onKeyUp(wxKeyEvent& evt) {
  evt.Skip();
  processKey(processor->selfPtr(), evt);
}

// ---------------------------------------------------------------------------

void TTreeViewProcessorImplementation::constructGui(wxWindow* parent) {
  if (listboxpanel) throw std::runtime_error("constructGui(): implementation already created");
  listboxpanel = new TPanel(parent, processor);
  if (auto* sizerPanel = dynamic_cast<TSizerPanel*>(parent)) {
    sizerPanel->sizer->Add(listboxpanel.get(), 1, wxEXPAND);
    sizerPanel->Layout();
  }
}

void TTreeViewProcessor::createImplementation_python() {
  m_Implementation = std::make_shared<TTreeViewProcessorImplementation>(this);
}

void TTreeViewProcessor::process_python() {
  if (!m_InternalSelection->getData()) m_InternalSelection->setData(std::make_shared<TIntegerSetData>());
  if (!m_Implementation) createImplementation_python();
  if (m_GuiParent->hasChanged())
    if (wxWindow* parent = windowOf(m_GuiParent->getData())) m_Implementation->constructGui(parent);
  TPanel* panel = m_Implementation->listboxpanel.get();
  const bool tree = haveChanged({m_Hierarchy, m_CollapsedHierarchy, m_AggLft, m_Collapsed, m_Level, m_NodeTextAttr,
                                 m_IconAttr});
  if (panel && tree && m_Hierarchy->getData() && m_CollapsedHierarchy->getData() && m_AggLft->getData() &&
      m_Collapsed->getData() && m_Level->getData() && m_NodeTextAttr->getData()) {
    panel->fullhierarchy = dataAs<THierarchyData>(m_Hierarchy);
    panel->agglft = dataAs<TAggLftData>(m_AggLft);
    panel->model.collapsedhierarchy = dataAs<THierarchyData>(m_CollapsedHierarchy);
    panel->model.collapsed = dataAs<TBoolAttributeData>(m_Collapsed);
    panel->model.level = dataAs<TIntegerAttributeData>(m_Level);
    panel->model.textattr = dataAs<TAttributeData>(m_NodeTextAttr);
    panel->model.iconattr = dataAs<TIntegerAttributeData>(m_IconAttr);
    panel->selection = dataAs<TIntegerSetData>(m_SelectionB);
    panel->update();
  }
  if (panel && haveChanged({m_CollapsedHierarchy, m_SelectionB}) && m_SelectionB->getData() &&
      m_Hierarchy->getData()) {
    if (auto rows = dataAs<THierarchyData>(m_CollapsedHierarchy)) panel->model.collapsedhierarchy = rows;
    panel->model.setBoldIds(dataAs<TIntegerSetData>(m_SelectionB).get());
    panel->listbox->Refresh();
  }
  if (panel && m_InternalSelection->hasChanged()) panel->updateInternalSelection();
  resetPins({});
}

void registerTreeView() { TProcessorRegistry::instance().add<TTreeViewProcessor>(); }

}  // namespace quorvel
