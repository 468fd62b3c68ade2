// The core classes of the shell's processors: the pins of the view windows'
// processors, for processes without the window library.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "engine/MFlowObjects.h"

namespace quorvel {

// Makes a view's child window and hands out its panel.
class TMdiChildCreatorCpp : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TMdiChildCreatorCpp)
  TPinPtr m_GuiTitle, m_Actions, m_Out;
  void postCreate() override;
  std::string getTypeName() override { return "mdichild"; }
  // Without a window there is nothing to make.
  void process() override { resetPins({}); }
};

// Splits a panel in two.
class TSplitWindowProcessorCpp : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TSplitWindowProcessorCpp)
  TPinPtr m_In, m_SashPosition, m_SashCollapseState, m_SashCollapseDirection, m_Out1, m_Out2;
  void postCreate() override;
  std::string getTypeName() override { return "window split"; }
  void process() override { resetPins({}); }
};

// The screenshot commands of a view's canvas. A change of `invoke` only
// causes a pass.
class TGlCanvasActionsCpp : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TGlCanvasActionsCpp)
  TPinPtr m_Invoke, m_Actions;
  void postCreate() override;
  std::string getTypeName() override { return "gkcanvas actions"; }
  void process() override { resetPins({}); }
};

// Shows controls: as a notebook of groups beside a view ("toolbar"), or as
// a panel floating over it ("floating").
class TWidgetContainerCpp : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TWidgetContainerCpp)
  TPinPtr m_GuiParent, m_Controls, m_Visible, m_Settings;
  void postCreate() override;
  std::string getTypeName() override { return "widgetcontainer"; }
  void process() override { resetPins({}); }
};

// A file name passed on when valid; it passes nothing.
class TValidFilePicker : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TValidFilePicker)
  TPinPtr m_In, m_Out;
  void postCreate() override;
  std::string getTypeName() override { return "attr inspector view"; }
  void process() override { resetPins({}); }
};

// How a notebook of controls is laid out: tabs of groups of controls.
// The `group` of a control's settings, default "Settings", names a group,
// or "tab.group"; a group without a tab goes to "Tools"; None leaves the
// control out. Groups stand by their sort key, controls by `order`.
struct TControlGroup {
  std::string name;
  std::vector<TProcessorPtr> controls;
};
struct TControlTab {
  std::string name;
  std::vector<TControlGroup> groups;
};
std::vector<TControlTab> layoutControls(const std::vector<TProcessorPtr>& controls);
// Nodes, edges, visuals, settings and miscellaneous groups stand in that
// order by their names' first word; other names (none) before them.
std::optional<std::string> groupSortKey(const std::optional<std::string>& name);
// Whether a control shows its name on its own button and so takes no
// caption line above it.
bool captionsItself(TAbstractProcessor& control);

void registerShellCores();

}  // namespace quorvel
