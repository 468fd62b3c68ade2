// Bindings of the analysis processors and the headless steps of the
// controls.
#include "PyEngine.h"
#include "analysis/MAttributeDerivation.h"
#include "analysis/MCollapse.h"
#include "analysis/MControlCores.h"
#include "analysis/MEdgeAggregation.h"
#include "analysis/MInspectors.h"
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
  // The tooltip generators: the aggregation as a dictionary by key name,
  // and the text of a set of ids.
  processor<TTooltipGeneratorBase>(m, "TTooltipGeneratorBase")
      .def("computeAggregation",
           [](const TTooltipGeneratorBase& g) {
             py::dict out;
             for (const TAttributeSummary& s : g.computeAggregation()) {
               py::dict entry;
               entry["hascount"] = s.hascount;
               entry["hasnotcount"] = s.hasnotcount;
               if (s.isString) {
                 py::dict strings;
                 for (const auto& [text, n] : s.strings) strings[py::str(text)] = n;
                 entry["strings"] = strings;
               } else {
                 py::dict numbers;
                 numbers["min"] = s.min;
                 numbers["max"] = s.max;
                 entry["numbers"] = numbers;
               }
               out[py::str(s.key)] = entry;
             }
             return out;
           })
      .def(
          "makeText",
          [](const TTooltipGeneratorBase&, const std::string& word, const TIntegerSetData& selection,
             const TDataArray& attrs, const TDataArray* aggattrs) {
            return makeText(word, selection.m_Set, attrs, aggattrs);
          },
          py::arg("nodeoredge"), py::arg("selection"), py::arg("attrs"), py::arg("aggattrs") = nullptr);
  processor<TTooltipTextGeneratorCpp, TTooltipGeneratorBase>(m, "TTooltipTextGeneratorCpp");
  processor<TTooltipTextGenerator, TTooltipTextGeneratorCpp>(m, "TTooltipTextGenerator")
      .def("process_python", &TTooltipTextGenerator::process_python);
  processor<TEdgeTooltipTextGeneratorCpp, TTooltipGeneratorBase>(m, "TEdgeTooltipTextGeneratorCpp");
  processor<TEdgeTooltipTextGenerator, TEdgeTooltipTextGeneratorCpp>(m, "TEdgeTooltipTextGenerator")
      .def("process_python", &TEdgeTooltipTextGenerator::process_python);
  processor<TAttributeInspectorViewProcessorCpp>(m, "TAttributeInspectorViewProcessorCpp");
  processor<TColorMapInspectorCpp>(m, "TColorMapInspectorCpp");
  processor<TColorMapInspector, TColorMapInspectorCpp>(m, "TColorMapInspector")
      .def("process_python", &TColorMapInspector::process_python);

  processor<TFloatRangeControlCpp>(m, "TFloatRangeControlCpp");
  processor<TFloatRangeControl, TFloatRangeControlCpp>(m, "TFloatRangeControl")
      .def("process_python", &TFloatRangeControl::process_python);
}

}  // namespace quorvel::py_bindings
