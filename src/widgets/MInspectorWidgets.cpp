#include "widgets/MInspectorWidgets.h"

#include <wx/wupdlock.h>

#include "engine/MRegistry.h"
#include "widgets/MControlWidgets.h"

namespace quorvel {

namespace {

TAttributeInspectorPanel* addInspectorPanel(TAttributeInspectorViewProcessor& p, wxWindow* parent) {
  auto self = std::static_pointer_cast<TAttributeInspectorViewProcessorCpp>(p.selfPtr());
  auto* panel = new TAttributeInspectorPanel(parent, self);
  addPanel(p, panel, [panel] { panel->update(); });
  panel->update();
  return panel;
}

}  // namespace

TAttributeInspectorPanel::TAttributeInspectorPanel(wxWindow* parent,
                                                   const std::shared_ptr<TAttributeInspectorViewProcessorCpp>& processor)
    : wxPanel(parent), m_Processor(processor) {
  list = new wxListCtrl(this, wxID_ANY, wxDefaultPosition, parent->GetClientSize(), wxLC_REPORT);
  list->InsertColumn(0, "Key", wxLIST_FORMAT_LEFT, 90);
  list->InsertColumn(1, "Value", wxLIST_FORMAT_LEFT, 120);
  auto* sizer = new wxBoxSizer(wxVERTICAL);
  sizer->Add(list, 1, wxEXPAND);
  SetSizer(sizer);
  list->Bind(wxEVT_RIGHT_DOWN, &TAttributeInspectorPanel::OnRightDown, this);
}

void TAttributeInspectorPanel::update() {
  auto p = m_Processor.lock();
  if (!p) return;
  auto brushed = std::dynamic_pointer_cast<TIntegerSetData>(p->m_Brushed->getData());
  auto attributes = std::dynamic_pointer_cast<TDataArray>(p->m_Attributes->getData());
  if (!brushed || !attributes || brushed->m_Set.empty()) return;  // keeps the last hovered item
  const auto lines = inspectorLines(brushed->m_Set, *attributes);
  wxWindowUpdateLocker freeze(list);
  list->DeleteAllItems();
  for (size_t i = 0; i < lines.size(); ++i) {
    const long row = list->InsertItem(static_cast<long>(i), wxString::FromUTF8(lines[i].first));
    list->SetItem(row, 1, wxString::FromUTF8(lines[i].second));
  }
}

void TAttributeInspectorPanel::OnRightDown(wxMouseEvent& evt) {
  if (auto p = m_Processor.lock(); p && p->m_Box) {
    wxMenu menu;
    auto eventmap = std::make_shared<TEventMap>();
    addSettingsEntries(p->m_Box, &menu, *eventmap);
    menu.Bind(wxEVT_MENU, [eventmap](wxCommandEvent& event) { eventmap->run(event.GetId()); });
    PopupMenu(&menu);
  }
  evt.Skip();
}

void TAttributeInspectorViewProcessor::process_python() {
  if (m_GuiParent->hasChanged()) {
    if (wxWindow* parent = windowOf(m_GuiParent->getData())) {
      m_Implementation = addInspectorPanel(*this, parent);
      if (auto* sized = dynamic_cast<TSizerPanel*>(parent)) {
        sized->sizer->Add(m_Implementation, 1, wxEXPAND);
        sized->Layout();
      }
    }
  }
  if (m_Attributes->hasChanged() || m_Brushed->hasChanged()) updatePanels();
  resetPins({});
}

void TAttributeInspectorViewProcessor::destroy_python() { panels.clear(); }

// ---------------------------------------------------------------------------

TColorMapInspectorPanel::TColorMapInspectorPanel(wxWindow* parent, const std::shared_ptr<TColorMapInspector>& control)
    : wxVListBox(parent, wxID_ANY, wxDefaultPosition, wxSize(100, 100)), m_Control(control) {
  SetMinSize(wxSize(100, 100));
  SetMaxSize(wxSize(100, 100));
  SetFont(wxFont(7, wxFONTFAMILY_SWISS, wxFONTSTYLE_NORMAL, wxFONTWEIGHT_NORMAL, false, "Arial"));
  update();
}

void TColorMapInspectorPanel::update() {
  auto c = m_Control.lock();
  if (!c) return;
  m_Entries = c->entries();
  wxWindowUpdateLocker freeze(this);
  SetItemCount(m_Entries.size());
  Refresh();
}

void TColorMapInspectorPanel::OnDrawItem(wxDC& dc, const wxRect& rect, size_t n) const {
  if (n >= m_Entries.size()) return;
  const TLegendEntry& e = m_Entries[n];
  auto channel = [](float v) { return static_cast<unsigned char>(std::clamp(v, 0.0f, 1.0f) * 255.0f + 0.5f); };
  dc.SetPen(*wxTRANSPARENT_PEN);
  dc.SetBrush(wxBrush(wxColour(channel(e.color.x), channel(e.color.y), channel(e.color.z))));
  dc.DrawRectangle(rect);
  dc.SetTextForeground(*wxWHITE);
  dc.DrawText(wxString::FromUTF8(e.text), rect.x + 2, rect.y + 2);
}

wxWindow* createInspectorWidget(const TProcessorPtr& processor, wxWindow* parent) {
  if (auto* inspector = dynamic_cast<TAttributeInspectorViewProcessor*>(processor.get())) {
    auto* panel = addInspectorPanel(*inspector, parent);
    panel->SetMinSize(wxSize(-1, 180));
    return panel;
  }
  if (auto legend = std::dynamic_pointer_cast<TColorMapInspector>(processor)) {
    auto* panel = new TColorMapInspectorPanel(parent, legend);
    addPanel(*legend, panel, [panel] { panel->update(); });
    return panel;
  }
  return nullptr;
}

void registerInspectorWidgets() { TProcessorRegistry::instance().add<TAttributeInspectorViewProcessor>(); }

}  // namespace quorvel
