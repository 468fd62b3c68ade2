// The tree view in a window: a virtual list box whose lines are drawn on
// demand from the line model, with a horizontal scroll bar, selection into
// the internal set, and folding by keys and double click.
#pragma once

#include <wx/panel.h>
#include <wx/scrolbar.h>

#include <memory>

#include "widgets/MGui.h"
#include "views/core/MTreeViewCore.h"

namespace quorvel {

class TTreeViewProcessor;

class TTreeViewProcessorImplementation {
 public:
  class TPanel : public wxPanel {
   public:
    TPanel(wxWindow* parent, TTreeViewProcessor* processor);
    TTreeViewProcessor* processor;
    TVListBox* listbox;
    wxScrollBar* scrollbar;
    int maxx = 0, xoffset = 0;
    TTreeLineModel model;
    std::shared_ptr<THierarchyData> fullhierarchy;
    std::shared_ptr<TAggLftData> agglft;
    std::shared_ptr<TIntegerSetData> selection;
    wxFont normalfont, boldfont;

    void update();
    void updateInternalSelection();

   private:
    void drawLine(wxDC& dc, const wxRect& rect, size_t n);
    void onSelect();
    void onKeyDown(wxKeyEvent& evt);
    void onKeyUp(wxKeyEvent& evt);
  };

  explicit TTreeViewProcessorImplementation(TTreeViewProcessor* p) : processor(p) {}
  TTreeViewProcessor* processor;
  wxWeakRef<TPanel> listboxpanel;
  void constructGui(wxWindow* parent);
};

class TTreeViewProcessor : public TTreeViewProcessorCpp {
 public:
  QV_CLASS_NAME(TTreeViewProcessor)
  std::shared_ptr<TTreeViewProcessorImplementation> m_Implementation;
  unsigned hookMask() override { return kHookProcess | kHookDestroy | kHookCreateImplementation; }
  void createImplementation_python() override;
  void destroy_python() override { m_Implementation.reset(); }
  void process_python() override;
};

void registerTreeView();

}  // namespace quorvel
