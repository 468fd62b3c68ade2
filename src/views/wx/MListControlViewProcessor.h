// The list view: ids and their attributes as a report list in virtual mode,
// so that only the visible rows are asked for.
#pragma once

#include <unordered_set>

#include "data/MAttributes.h"
#include "widgets/MGui.h"
#include "views/core/MViewCores.h"

namespace quorvel {

class TListGuiProcessor : public TListGuiProcessorCpp {
 public:
  QV_CLASS_NAME(TListGuiProcessor)

  class TPanel : public wxPanel {
   public:
    TPanel(wxWindow* parent, const std::shared_ptr<TListGuiProcessor>& processor);
    TVirtualListCtrl* listctrl;
    wxStaticText* statustext;
    std::shared_ptr<TDataArray> attributes;
    std::shared_ptr<TIntegerAttributeData> iconattr;
    std::unordered_set<uint32_t> selectionb;
    wxItemAttr listitemattr;
    void update();

   private:
    std::shared_ptr<TListGuiProcessor> proc() const { return m_Processor.lock(); }
    void onSelect();
    void onHeaderRightClick(long column);
    void OnColClick(wxListEvent& event);
    void OnRightDown(wxMouseEvent& event);
    void OnDoubleClick(wxMouseEvent& event);
    std::weak_ptr<TListGuiProcessor> m_Processor;
  };

  std::vector<wxWeakRef<TPanel>> panels;

  wxWindow* createWidget(wxWindow* parent);
  unsigned hookMask() override { return kHookProcess; }
  void process_python() override;

 private:
  // Calls f on each panel that still exists; gone ones leave the list.
  template <class F>
  void forPanels(F&& f);
};

void registerListView();

}  // namespace quorvel
