// Bindings of the core classes of the views and the shell: their pins and
// what they compute without a window.
#include "PyEngine.h"
#include "analysis/MSelection.h"
#include "shell/core/MActionCores.h"
#include "shell/core/MShellCores.h"
#include "views/core/MHebCore.h"
#include "views/core/MTreemapCore.h"
#include "views/core/MViewCores.h"

namespace quorvel::py_bindings {

void bindViews(py::module_& m) {
  bindDerived<TAttributeArrayCreator, TArrayCreator>(m, "TAttributeArrayCreator");
  bindDerived<TMdiChildCreatorCpp, TAbstractProcessor>(m, "TMdiChildCreatorCpp");
  bindDerived<TSplitWindowProcessorCpp, TAbstractProcessor>(m, "TSplitWindowProcessorCpp");
  bindDerived<TGlCanvasActionsCpp, TAbstractProcessor>(m, "TGlCanvasActionsCpp");
  bindDerived<TActionMergerCpp, TAbstractProcessor>(m, "TActionMergerCpp");
  bindDerived<TActionMerger, TActionMergerCpp>(m, "TActionMerger");
  bindDerived<TActionProcessorCpp, TAbstractProcessor>(m, "TActionProcessorCpp")
      .def("publish", &TActionProcessorCpp::publish)
      .def("makeActions", &TActionProcessorCpp::makeActions);
  bindDerived<TCommonNodeEdgeActionsCpp, TActionProcessorCpp>(m, "TCommonNodeEdgeActionsCpp");
  bindDerived<TNodeEdgeActionsForViewCpp, TActionProcessorCpp>(m, "TNodeEdgeActionsForViewCpp")
      .def("OnUndoCollapse", &TNodeEdgeActionsForViewCpp::OnUndoCollapse);
  bindDerived<THierarchyActionsCpp, TActionProcessorCpp>(m, "THierarchyActionsCpp")
      .def("OnCollapse", &THierarchyActionsCpp::OnCollapse)
      .def("OnCollapseToggle", &THierarchyActionsCpp::OnCollapseToggle)
      .def("OnCollapseRecursive", &THierarchyActionsCpp::OnCollapseRecursive)
      .def("OnCollapseAllAtThisLevel", &THierarchyActionsCpp::OnCollapseAllAtThisLevel)
      .def("OnEnsureInternalSelectionVisible", &THierarchyActionsCpp::OnEnsureInternalSelectionVisible,
           py::arg("nidlist") = py::none())
      .def("OnHideRecursive", &THierarchyActionsCpp::OnHideRecursive, py::arg("hide"), py::arg("nidlist") = py::none());
  bindDerived<TInternalSelectionActionsCpp, TActionProcessorCpp>(m, "TInternalSelectionActionsCpp")
      .def("OnListViewRowAddToSelection", &TInternalSelectionActionsCpp::OnListViewRowAddToSelection,
           py::arg("clear") = false)
      .def("OnListViewRowRemoveFromSelection", &TInternalSelectionActionsCpp::OnListViewRowRemoveFromSelection);
  bindDerived<TListHeaderActionsCpp, TActionProcessorCpp>(m, "TListHeaderActionsCpp")
      .def("OnRemoveColumn", &TListHeaderActionsCpp::OnRemoveColumn)
      .def("OnToggleSort", &TListHeaderActionsCpp::OnToggleSort)
      .def("OnConfigureColumns", &TListHeaderActionsCpp::OnConfigureColumns);
  bindDerived<TVisualizerProcessorBase, TAbstractProcessor>(m, "TVisualizerProcessorBase");
  bindDerived<THebProcessorCpp, TVisualizerProcessorBase>(m, "THebProcessorCpp");
  bindDerived<TTreemapProcessorCpp, TVisualizerProcessorBase>(m, "TTreemapProcessorCpp");
  bindDerived<TListGuiProcessorCpp, TAbstractProcessor>(m, "TListGuiProcessorCpp")
      .def_property_readonly("m_Row2Id", [](const TListGuiProcessorCpp& p) { return p.m_Row2Id; })
      .def("buildRow2Id", &TListGuiProcessorCpp::buildRow2Id);
  m.def("applySortList", [](const py::object& given, const TDataArray& attributes, const py::object& sortlist) {
    std::vector<uint32_t> ids;
    for (auto id : given) ids.push_back(id.cast<uint32_t>());
    applySortList(ids, attributes, sortlist);
    py::list out;
    for (uint32_t id : ids) out.append(id);
    return out;
  });
}

}  // namespace quorvel::py_bindings
