// The attribute inspector's list and the colour legend.
#pragma once

#include <wx/listctrl.h>
#include <wx/vlbox.h>
#include <wx/wx.h>

#include <memory>

#include "analysis/MInspectors.h"
#include "widgets/MGui.h"

namespace quorvel {

// The "Key" and "Value" list of the attributes of the first brushed id. It
// keeps its lines while nothing is brushed; a right press offers the
// settings of the processor's box.
class TAttributeInspectorPanel : public wxPanel {
 public:
  TAttributeInspectorPanel(wxWindow* parent, const std::shared_ptr<TAttributeInspectorViewProcessorCpp>& processor);
  void update();
  wxListCtrl* list;

 private:
  std::weak_ptr<TAttributeInspectorViewProcessorCpp> m_Processor;
  void OnRightDown(wxMouseEvent& evt);
};

class TAttributeInspectorViewProcessor : public TAttributeInspectorViewProcessorCpp, public TControl {
 public:
  QV_CLASS_NAME(TAttributeInspectorViewProcessor)
  unsigned hookMask() override { return kHookProcess | kHookDestroy; }
  void process_python() override;
  void destroy_python() override;
  // The panel built on `gui parent`; the settings pane's panels are in
  // `panels`.
  TAttributeInspectorPanel* m_Implementation = nullptr;
};

// The legend: a line of 16 pixels for each value, filled with its colour
// and captioned in white; 100 by 100 pixels.
class TColorMapInspectorPanel : public wxVListBox {
 public:
  TColorMapInspectorPanel(wxWindow* parent, const std::shared_ptr<TColorMapInspector>& control);
  void update();
  const std::vector<TLegendEntry>& entries() const { return m_Entries; }

 private:
  std::weak_ptr<TColorMapInspector> m_Control;
  std::vector<TLegendEntry> m_Entries;
  void OnDrawItem(wxDC& dc, const wxRect& rect, size_t n) const override;
  wxCoord OnMeasureItem(size_t) const override { return 16; }
  void OnDrawBackground(wxDC&, const wxRect&, size_t) const override {}
};

// The widgets of the two inspectors in a settings pane, or null for
// another processor.
wxWindow* createInspectorWidget(const TProcessorPtr& processor, wxWindow* parent);

void registerInspectorWidgets();

}  // namespace quorvel
