// The processor through which the program tells a listener of a change: it
// calls a script function with itself whenever its input changes.
#pragma once

#include <functional>

#include "engine/MFlowObjects.h"
#include "engine/MPyRef.h"

namespace quorvel {

class THookProcessorCpp : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(THookProcessorCpp)
  TPinPtr m_InputPin;
  void postCreate() override { m_InputPin = addInputPin("TAbstractData", "in"); }
  std::string getTypeName() override { return "hook"; }
};

class THookProcessor : public THookProcessorCpp {
 public:
  QV_CLASS_NAME(THookProcessor)
  // A script function called with the processor; None at start.
  TPyRef hookfunc = TPyRef::none();

  void setHook(TPyRef f) { hookfunc = std::move(f); }
  unsigned hookMask() override { return kHookProcess; }
  // Resets the input, then calls hookfunc; what it raises is logged.
  void process_python() override;
};

}  // namespace quorvel
