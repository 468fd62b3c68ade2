// Where the widgets of controls stand: a notebook of folding groups beside
// a view, or a panel floating over it.
#pragma once

#include <wx/collheaderctrl.h>
#include <wx/notebook.h>
#include <wx/wx.h>

#include <optional>

#include "shell/core/MShellCores.h"
#include "widgets/MGui.h"

namespace quorvel {

// A group of a toolbar panel: a caption that folds and unfolds the panel
// below it.
class TFoldPanel : public wxPanel {
 public:
  TFoldPanel(wxWindow* parent, const wxString& caption);
  wxWindow* pane() { return m_Pane; }
  bool isCollapsed() const { return !m_Pane->IsShown(); }
  void collapse(bool collapsed);

 private:
  wxCollapsibleHeaderCtrl* m_Header;
  wxPanel* m_Pane;
};

// What both kinds of container do with the controls they are given.
class TControlContainer {
 public:
  virtual ~TControlContainer() = default;
  virtual void fill(const std::vector<TProcessorPtr>& controls, bool visible) = 0;
  virtual wxWindow* window() = 0;
};

// Tabs of fold panels, one per group; a group stands collapsed unless it is
// alone on its tab.
class TToolbarPanel : public wxNotebook, public TControlContainer {
 public:
  explicit TToolbarPanel(TSizerPanel* parent);
  void fill(const std::vector<TProcessorPtr>& controls, bool visible) override;
  wxWindow* window() override { return this; }
};

// A panel over the view, at a target position (negative coordinates count
// from the right and bottom edges of the parent) until the user drags it.
class TFloatingPanel : public wxPanel, public TControlContainer {
 public:
  TFloatingPanel(wxWindow* parent, const TProcessorPtr& container);
  void fill(const std::vector<TProcessorPtr>& controls, bool visible) override;
  wxWindow* window() override { return this; }
  std::optional<wxPoint> target;
  // Moves the panel to its target; the idle handler calls it.
  void place();
  // The user's moves.
  void pressAt(const wxPoint& screen);
  void dragTo(const wxPoint& screen);
  void release();
  // Hide or Unhide: the opposite of `visible`, as a new value.
  void toggleVisible();

 private:
  std::weak_ptr<TAbstractProcessor> m_Container;
  std::optional<wxPoint> m_Grab;
  void initFill(bool empty, bool visible);
  void bindMouse(wxWindow* window);
  void showMenu();
};

class TWidgetContainer : public TWidgetContainerCpp {
 public:
  QV_CLASS_NAME(TWidgetContainer)
  wxWeakRef<wxWindow> panel;
  TControlContainer* container();
  unsigned hookMask() override { return kHookProcess; }
  void process_python() override;
  void fill();
};

void registerWidgetContainers();

}  // namespace quorvel
