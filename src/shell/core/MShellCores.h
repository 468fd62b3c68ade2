// The core classes of the shell's processors: the pins of the view windows'
// processors, for processes without the window library.
#pragma once

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

void registerShellCores();

}  // namespace quorvel
