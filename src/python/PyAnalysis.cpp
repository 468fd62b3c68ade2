// Bindings of the analysis processors and the headless steps of the
// controls.
#include "PyEngine.h"
#include "analysis/MAttributeDerivation.h"
#include "analysis/MCollapse.h"
#include "analysis/MControlCores.h"
#include "analysis/MEdgeAggregation.h"
#include "analysis/MSelection.h"

namespace quorvel::py_bindings {

namespace {
template <class T, class Base = TAbstractProcessor>
py::class_<T, Base, std::shared_ptr<T>> processor(py::module_& m, const char* name) {
  return bindDerived<T, Base>(m, name);
}
}  // namespace

void bindAnalysis(py::module_& m) {
  processor<THierarchyLevelExtractor>(m, "THierarchyLevelExtractor");
  processor<TCollapsedStateInitializer>(m, "TCollapsedStateInitializer")
      .def_readwrite("m_Initialized", &TCollapsedStateInitializer::m_Initialized);
  processor<TCollapseProcessor>(m, "TCollapseProcessor");
  processor<TLevelEqualizer>(m, "TLevelEqualizer");
  processor<TAddAndClamp>(m, "TAddAndClamp");
  processor<TTreePruner>(m, "TTreePruner");

  processor<TEdgeCollapsedProcessor>(m, "TEdgeCollapsedProcessor");
  processor<TEdgeColorProcessor>(m, "TEdgeColorProcessor");
  processor<TLftPairsToEids>(m, "TLftPairsToEids");
  processor<TEidsToLftPairs>(m, "TEidsToLftPairs");

  m.def("ordnorm", [](const TAttributeData& column) { return ordnorm(column); });
  processor<TAttributeNormalizerProcessor>(m, "TAttributeNormalizerProcessor");
  processor<TAttributeArrayNormalizerProcessor>(m, "TAttributeArrayNormalizerProcessor");
  processor<TAttributeAggregator>(m, "TAttributeAggregator");
  processor<TFanAttributeProcessor>(m, "TFanAttributeProcessor");
  processor<TIdAttributeProcessor>(m, "TIdAttributeProcessor");
  processor<TFromToAttributeCreator>(m, "TFromToAttributeCreator");
  processor<TIconAttributeCreator>(m, "TIconAttributeCreator");
  processor<TAttributeUnion>(m, "TAttributeUnion");

  processor<TSelector1Cpp>(m, "TSelector1Cpp");
  processor<TSelector1, TSelector1Cpp>(m, "TSelector1").def("process_python", &TSelector1::process_python);
  processor<TSelector2>(m, "TSelector2");
  processor<TFilterProcessor>(m, "TFilterProcessor").def_readwrite("m_KeepValue", &TFilterProcessor::m_KeepValue);
  processor<TExclusionFilterProcessor, TFilterProcessor>(m, "TExclusionFilterProcessor");
  processor<TSecondarySelectionComputer>(m, "TSecondarySelectionComputer");
  processor<TSetOperation>(m, "TSetOperation");
  processor<TSetIntersection, TSetOperation>(m, "TSetIntersection");
  processor<TSetSubtract, TSetOperation>(m, "TSetSubtract");
  processor<TSetOr, TSetOperation>(m, "TSetOr");
  processor<TIntegerUnary>(m, "TIntegerUnary");
  processor<TIntegerPlusOne, TIntegerUnary>(m, "TIntegerPlusOne");
  processor<TIntegerMinusOne, TIntegerUnary>(m, "TIntegerMinusOne");
  processor<TInvert, TIntegerUnary>(m, "TInvert");
  processor<TIdentityOrNull>(m, "TIdentityOrNull");
  processor<TInputPrintProcessor>(m, "TInputPrintProcessor");
  processor<TGetCountCpp>(m, "TGetCountCpp");
  processor<TGetCount, TGetCountCpp>(m, "TGetCount").def("process_python", &TGetCount::process_python);
  processor<TKeyNameSetter>(m, "TKeyNameSetter");
  processor<TAssignWhenInput1IsNotNone>(m, "TAssignWhenInput1IsNotNone");
  processor<TArrayCreator>(m, "TArrayCreator");
  processor<TIntegerPairSetUnion>(m, "TIntegerPairSetUnion");
  processor<TStackStore>(m, "TStackStore")
      .def("pop", &TStackStore::pop)
      .def("getItemCount", [](const TStackStore& s) { return s.m_Stack.size(); });

  processor<TArrayPickerCpp>(m, "TArrayPickerCpp");
  processor<TArrayPicker, TArrayPickerCpp>(m, "TArrayPicker")
      .def_readwrite("initialized", &TArrayPicker::initialized)
      .def("process_python", &TArrayPicker::process_python);
  processor<TSubArrayPickerCpp>(m, "TSubArrayPickerCpp");
  processor<TSubArrayPicker, TSubArrayPickerCpp>(m, "TSubArrayPicker")
      .def("process_python", &TSubArrayPicker::process_python)
      .def("constructSettingsFrame", [](TSubArrayPicker& p, const py::object&) { p.constructSettingsFrame(nullptr); },
           py::arg("parent") = py::none());
  processor<TFloatRangeControlCpp>(m, "TFloatRangeControlCpp");
  processor<TFloatRangeControl, TFloatRangeControlCpp>(m, "TFloatRangeControl")
      .def("process_python", &TFloatRangeControl::process_python);
}

}  // namespace quorvel::py_bindings
