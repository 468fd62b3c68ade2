// The processors that make a view's windows: its child frame, and panels
// split in two.
#pragma once

#include <wx/dialog.h>
#include <wx/listbox.h>
#include <wx/splitter.h>

#include "analysis/MControlCores.h"

#include "shell/core/MActionCores.h"
#include "engine/MActionInterfaces.h"
#include "widgets/MGui.h"
#include "shell/core/MShellCores.h"

namespace quorvel {

class TMdiChildCreator : public TMdiChildCreatorCpp {
 public:
  QV_CLASS_NAME(TMdiChildCreator)
  wxWeakRef<TSizerPanel> panel;
  wxWeakRef<TChildFrame> frame;
  pybind11::object actions = pybind11::none();

  unsigned hookMask() override { return kHookBeforeProcess | kHookProcess | kHookDestroy; }
  void beforeprocess_python() override;
  void process_python() override;
  void destroy_python() override;

 private:
  bool m_Made = false;
};

class TSplitterWindow : public wxSplitterWindow {
 public:
  TSplitterWindow(wxWindow* parent, const TProcessorPtr& processor);
  void update();
  // The sash position to take once the window has its size: a negative
  // position counts from the right edge.
  std::optional<int> pending;

 private:
  std::weak_ptr<TAbstractProcessor> m_Processor;
};

class TSplitWindowProcessor : public TSplitWindowProcessorCpp {
 public:
  QV_CLASS_NAME(TSplitWindowProcessor)
  wxWeakRef<TSplitterWindow> splitter;
  unsigned hookMask() override { return kHookProcess; }
  void process_python() override;
};

// The screenshot actions of a view's canvas: the last OpenGL canvas in its
// child window.
class TGlCanvasActions : public TGlCanvasActionsCpp, public TScreenshotTaker {
 public:
  QV_CLASS_NAME(TGlCanvasActions)
  std::string getTypeName() override { return "glcanvas actions"; }
  unsigned hookMask() override { return kHookProcess; }
  // The list stands from the start: nothing needs to arrive first.
  void postCreate() override;
  void process_python() override;
  void OnScreenshot(const std::optional<std::string>& filename, bool large) override;
};

// The action processors publish their lists on every pass.
class TCommonNodeEdgeActions : public TCommonNodeEdgeActionsCpp {
 public:
  QV_CLASS_NAME(TCommonNodeEdgeActions)
  unsigned hookMask() override { return kHookProcess; }
  void process_python() override { publish(); }
};

class TNodeEdgeActionsForView : public TNodeEdgeActionsForViewCpp {
 public:
  QV_CLASS_NAME(TNodeEdgeActionsForView)
  unsigned hookMask() override { return kHookProcess; }
  void process_python() override { publish(); }
};

class THierarchyActions : public THierarchyActionsCpp {
 public:
  QV_CLASS_NAME(THierarchyActions)
  unsigned hookMask() override { return kHookProcess; }
  void process_python() override { publish(); }
};

class TInternalSelectionActions : public TInternalSelectionActionsCpp {
 public:
  QV_CLASS_NAME(TInternalSelectionActions)
  unsigned hookMask() override { return kHookProcess; }
  void process_python() override { publish(); }
};

class TListHeaderActions : public TListHeaderActionsCpp {
 public:
  QV_CLASS_NAME(TListHeaderActions)
  unsigned hookMask() override { return kHookProcess; }
  void process_python() override { publish(); }
  bool shiftDown() const override;
  // The column dialog of the picker behind `attributes`.
  void OnConfigureColumns() override;
};

// The column dialog of a sub-array picker: the chosen keys at the left, all
// keys at the right, and the buttons between them.
class TSubArrayPickerDialog : public wxDialog {
 public:
  TSubArrayPickerDialog(wxWindow* parent, TSubArrayPicker& picker);
  TKeyListEditor editor;
  wxListBox* selectedList;
  wxListBox* availableList;
  // What a button of the middle column does: "<-", "->", "up", "down",
  // "clear".
  void press(const std::string& button);
  // What "Ok" does.
  void apply();

 private:
  std::weak_ptr<TAbstractProcessor> m_Picker;
  void refill(std::optional<size_t> mark = std::nullopt);
};

void registerGuiProcessors();

}  // namespace quorvel
