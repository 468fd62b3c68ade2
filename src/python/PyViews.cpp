// Bindings of the core classes of the views and the shell: their pins and
// what they compute without a window.
#include "PyEngine.h"
#include "analysis/MSelection.h"
#include "shell/MShellCores.h"
#include "views/MHebCore.h"
#include "views/MViewCores.h"

namespace quorvel::py_bindings {

void bindViews(py::module_& m) {
  bindDerived<TAttributeArrayCreator, TArrayCreator>(m, "TAttributeArrayCreator");
  bindDerived<TMdiChildCreatorCpp, TAbstractProcessor>(m, "TMdiChildCreatorCpp");
  bindDerived<TSplitWindowProcessorCpp, TAbstractProcessor>(m, "TSplitWindowProcessorCpp");
  bindDerived<TGlCanvasActionsCpp, TAbstractProcessor>(m, "TGlCanvasActionsCpp");
  bindDerived<TVisualizerProcessorBase, TAbstractProcessor>(m, "TVisualizerProcessorBase");
  bindDerived<THebProcessorCpp, TVisualizerProcessorBase>(m, "THebProcessorCpp");
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
