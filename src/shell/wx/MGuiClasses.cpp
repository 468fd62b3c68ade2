// Registration of the window library's classes and their script bindings:
// the presentation classes of the processors, the main window, the GUI
// manager and references to windows.
#include "MGuiClasses.h"

#include <pybind11/functional.h>
#include <pybind11/stl.h>

#include "engine/MMediator.h"
#include "engine/MPython.h"
#include "engine/MScriptBindings.h"
#include "shell/wx/MCodeView.h"
#include "shell/wx/MMainFrame.h"
#include "shell/wx/MProcessors_Gui.h"
#include "shell/wx/MWidgetContainers.h"
#include "views/wx/MHebProcessor.h"
#include "views/wx/MListControlViewProcessor.h"
#include "views/wx/MTableLensProcessor.h"
#include "views/wx/MTreemapProcessor.h"
#include "views/wx/MTreeViewProcessor.h"
#include "widgets/MInspectorWidgets.h"

namespace py = pybind11;

namespace quorvel {

namespace {

// References to parts of the main window; the window may go first.
struct TStatusBarRef {
  wxWeakRef<wxStatusBar> bar;
};
struct TImageListRef {
  wxWeakRef<wxWindow> frame;
  wxImageList* list() const {
    auto* f = dynamic_cast<TMainFrame*>(frame.get());
    return f ? &f->imagelist : nullptr;
  }
};
struct TMenuBarRef {
  wxWeakRef<wxMenuBar> bar;
};

TInstantiateOptions optionsOf(const py::object& options) {
  TInstantiateOptions o;
  if (options.is_none()) return o;
  py::dict d = options.cast<py::dict>();
  if (d.contains("assign")) o.assign = d["assign"].cast<std::vector<std::pair<std::string, std::string>>>();
  if (d.contains("rename")) o.rename = d["rename"].cast<std::vector<std::pair<std::string, std::string>>>();
  return o;
}

void bindGui(void* module) {
  py::module_& m = *static_cast<py::module_*>(module);

  py::class_<TWindowRef>(m, "TWindowRef")
      .def("alive", &TWindowRef::alive)
      .def("__repr__", [](const TWindowRef& r) {
        return std::string("<window ") + (r.alive() ? stdText(r.window->GetName()) : std::string("gone")) + ">";
      });

  py::class_<TMainFrame, std::unique_ptr<TMainFrame, py::nodelete>>(m, "TMainFrame")
      .def(
          "OnInstantiateLibBox",
          [](TMainFrame& f, const std::string& name, const py::object& options) {
            return f.OnInstantiateLibBox(name, optionsOf(options));
          },
          py::arg("name"), py::arg("options") = py::none())
      .def("doflow", &TMainFrame::doflow)
      .def("animateMe",
           [](TMainFrame& f, py::object obj, double totaltime) {
             f.animateMe([obj](double fraction) { obj.attr("animate")(fraction); }, totaltime);
           })
      .def("Load", &TMainFrame::Load, py::arg("filename"))
      .def("getFreeGuiTitle", [](TMainFrame&, const std::string& text) { return getFreeGuiTitle(text); })
      .def("OnCloseFile", &TMainFrame::OnCloseFile)
      .def("OnSavePerspective", &TMainFrame::OnSavePerspective)
      .def("OnLoad", &TMainFrame::OnLoad)
      .def("OnViewLog", &TMainFrame::OnViewLog)
      .def("OnAbout", &TMainFrame::OnAbout)
      .def("OnVisitWebsite", &TMainFrame::OnVisitWebsite)
      .def("Close", [](TMainFrame& f) { f.Close(); })
      .def("GetTitle", [](TMainFrame& f) { return stdText(f.GetTitle()); })
      .def_readonly("count", &TMainFrame::count)
      .def_property_readonly("animating", [](const TMainFrame& f) { return f.animatelist.size(); });

  py::class_<TGuiMgr, std::unique_ptr<TGuiMgr, py::nodelete>>(m, "TGuiMgr")
      .def_property_readonly("windowcount", [](const TGuiMgr& g) { return g.window2frame.size(); })
      .def_property_readonly("activepopupmenu",
                             [](const TGuiMgr& g) { return g.activepopupmenu != nullptr ? py::object(py::bool_(true)) : py::object(py::none()); });

  // The main window's parts, as scripts reach them through me.
  py::class_<TStatusBarRef>(m, "TStatusBar")
      .def("SetStatusText", [](TStatusBarRef& r, const std::string& text) {
        if (r.bar) r.bar->SetStatusText(wxText(text));
      })
      .def("GetStatusText", [](TStatusBarRef& r) { return r.bar ? stdText(r.bar->GetStatusText()) : std::string(); });
  py::class_<TImageListRef>(m, "TImageList")
      .def("GetImageCount", [](TImageListRef& r) { return r.list() ? r.list()->GetImageCount() : 0; })
      .def("__len__", [](TImageListRef& r) { return r.list() ? r.list()->GetImageCount() : 0; });
  py::class_<TMenuBarRef>(m, "TMenuBar")
      .def("GetMenuCount", [](TMenuBarRef& r) { return r.bar ? r.bar->GetMenuCount() : 0; })
      .def("GetMenuLabels", [](TMenuBarRef& r) {
        std::vector<std::string> labels;
        if (r.bar)
          for (size_t i = 0; i < r.bar->GetMenuCount(); ++i) labels.push_back(stdText(r.bar->GetMenuLabelText(i)));
        return labels;
      });

  bindDerived<TMdiChildCreator, TMdiChildCreatorCpp>(m, "TMdiChildCreator");
  bindDerived<TSplitWindowProcessor, TSplitWindowProcessorCpp>(m, "TSplitWindowProcessor");
  bindDerived<TGlCanvasActions, TGlCanvasActionsCpp>(m, "TGlCanvasActions")
      .def(
          "OnScreenshot",
          [](TGlCanvasActions& a, const std::optional<std::string>& filename, bool large) {
            a.OnScreenshot(filename, large);
          },
          py::arg("filename") = py::none(), py::arg("large") = false);
  bindDerived<TCommonNodeEdgeActions, TCommonNodeEdgeActionsCpp>(m, "TCommonNodeEdgeActions");
  bindDerived<TNodeEdgeActionsForView, TNodeEdgeActionsForViewCpp>(m, "TNodeEdgeActionsForView");
  bindDerived<THierarchyActions, THierarchyActionsCpp>(m, "THierarchyActions");
  bindDerived<TInternalSelectionActions, TInternalSelectionActionsCpp>(m, "TInternalSelectionActions");
  bindDerived<TListHeaderActions, TListHeaderActionsCpp>(m, "TListHeaderActions");
  bindDerived<THebProcessor, THebProcessorCpp>(m, "THebProcessor")
      .def("animate", &THebProcessor::animate)
      .def_property_readonly("animating", [](const THebProcessor& p) { return p.m_Implementation && p.m_Implementation->m_Animate; })
      .def_property_readonly("nodecount", [](const THebProcessor& p) { return p.m_Implementation ? p.m_Implementation->m_Rows.size() : 0; });
  bindDerived<TTreemapProcessor, TTreemapProcessorCpp>(m, "TTreemapProcessor")
      .def_property_readonly("tilecount", [](const TTreemapProcessor& p) { return p.m_Implementation ? p.m_Implementation->m_Nodes.size() : 0; });
  bindDerived<TListGuiProcessor, TListGuiProcessorCpp>(m, "TListGuiProcessor")
      .def_property_readonly("panelcount", [](const TListGuiProcessor& p) { return p.panels.size(); });
}

}  // namespace

void registerGuiClasses() {
  static bool done = false;
  if (done) return;
  done = true;
  registerGuiProcessors();
  registerWidgetContainers();
  registerInspectorWidgets();
  registerCodeView();
  registerListView();
  registerHebView();
  registerTreemapView();
  registerTableLensView();
  registerTreeView();
  addScriptBindings(&bindGui);
}

void publishGuiObjects() {
  auto publish = [](TPyRef& field, py::object obj) { field = TPyRef::borrow(obj.ptr()); };
  if (TMainFrame* frame = mainFrame()) {
    publish(me.mainwindow, py::cast(frame, py::return_value_policy::reference));
    if (frame->statusbar) publish(me.statusbar, py::cast(TStatusBarRef{frame->statusbar}));
    publish(me.imagelist, py::cast(TImageListRef{frame}));
    if (frame->menubar) publish(me.menubar, py::cast(TMenuBarRef{frame->menubar}));
  }
  if (TGuiMgr* mgr = guiMgr()) {
    py::object obj = py::cast(mgr, py::return_value_policy::reference);
    me.guimgr = TPyRef::borrow(obj.ptr());
  }
}

}  // namespace quorvel
