#include "MShellCores.h"

#include "data/MValues.h"
#include "engine/MRegistry.h"
#include "shell/core/MActionCores.h"

namespace quorvel {

void TMdiChildCreatorCpp::postCreate() {
  m_GuiTitle = addInputPin<TStringData>("gui title");
  m_Actions = addInputPin<TPythonData>("actions");
  m_Out = addOutputPin<TPythonData>("out");
}

void TSplitWindowProcessorCpp::postCreate() {
  m_In = addInputPin<TPythonData>("in");
  m_SashPosition = addInputPin<TIntegerData>("sash position");
  m_SashCollapseState = addInputPin<TBooleanData>("sash collapse state");
  m_SashCollapseDirection = addInputPin<TBooleanData>("sash collapse direction");
  m_Out1 = addOutputPin<TPythonData>("out1");
  m_Out2 = addOutputPin<TPythonData>("out2");
}

void TGlCanvasActionsCpp::postCreate() {
  m_Invoke = addInputPin<TAbstractData>("invoke");
  m_Actions = addOutputPin<TPythonData>("actions");
}

void registerShellCores() {
  registerActionCores();
  auto& reg = TProcessorRegistry::instance();
  reg.add<TMdiChildCreatorCpp>();
  reg.add<TSplitWindowProcessorCpp>();
  reg.add<TGlCanvasActionsCpp>();
}

}  // namespace quorvel
