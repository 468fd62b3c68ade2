#include "MExecutor.h"

#include <pybind11/embed.h>
#include <pybind11/stl.h>
#include <wx/filedlg.h>

#include <filesystem>
#include <fstream>

#include "analysis/MSelection.h"
#include "automation/MMessageServer.h"
#include "automation/MPluginSystem.h"
#include "data/MAttributes.h"
#include "data/MHierarchy.h"
#include "data/MValues.h"
#include "engine/MHookProcessor.h"
#include "engine/MLibrary.h"
#include "engine/MMediator.h"
#include "engine/MPython.h"
#include "engine/MRegistry.h"
#include "data/MDataSources.h"
#include "render/wx/MGlCanvas.h"
#include "engine/MActionInterfaces.h"
#include "widgets/MGui.h"

namespace py = pybind11;

namespace quorvel {

namespace {

py::module_ executorModule() { return py::module_::import("MExecutor"); }

// A failure meant for the user: an exception whose text is the dictionary.
[[noreturn]] void raiseMessage(const std::string& msg, const std::vector<std::string>& actions = {}) {
  py::dict d;
  d["msg"] = utf8Safe(msg);
  if (!actions.empty()) d["actions"] = py::cast(actions);
  throw TFlowError(py::repr(d).cast<std::string>());
}

TBoxPtr mainBox() { return me.flowlayout ? me.flowlayout->getBoxByType("BMain") : nullptr; }

TBoxPtr activeView() {
  py::object view = executorModule().attr("activeview");
  return view.is_none() ? nullptr : view.cast<TBoxPtr>();
}

TBoxPtr checkView() {
  TBoxPtr view = activeView();
  if (!view) raiseMessage("You should open a view first");
  return view;
}

// The value of a processor found by key name below a box.
template <class T>
std::shared_ptr<T> valueOf(const TBoxPtr& box, const std::string& name) {
  if (!box) throw TFlowError("No box to look for '" + name + "' in");
  TProcessorPtr p = box->getProcessorByName(name);
  if (!p) throw TFlowError("Processor '" + name + "' not found");
  TDataPtr data;
  if (auto source = std::dynamic_pointer_cast<TAbstractDataSource>(p); source && !p->isIdentity())
    data = source->getData();
  else if (!p->m_OutputPins.empty())
    data = p->m_OutputPins[0]->getData();
  auto typed = std::dynamic_pointer_cast<T>(data);
  if (!typed) throw TFlowError("Processor '" + name + "' holds no " + T::kClassName);
  return typed;
}

// A processor of the view's; what a view leaves to the dataset's box (the
// collapsed state, the levels, the edge colours) is found there.
template <class T>
std::shared_ptr<T> viewOrMainValue(const TBoxPtr& view, const std::string& name) {
  if (view && view->getProcessorByName(name)) return valueOf<T>(view, name);
  return valueOf<T>(mainBox(), name);
}

TProcessorPtr viewOrMainProcessor(const TBoxPtr& view, const std::string& name) {
  TProcessorPtr p = view ? view->getProcessorByName(name) : nullptr;
  if (!p && mainBox()) p = mainBox()->getProcessorByName(name);
  return p;
}

std::vector<uint32_t> idList(const py::object& ids) {
  std::vector<uint32_t> out;
  if (py::isinstance<py::int_>(ids)) {
    out.push_back(ids.cast<uint32_t>());
    return out;
  }
  for (auto id : ids) out.push_back(id.cast<uint32_t>());
  return out;
}

std::string idsRepr(const TIntegerSetData& set) {
  py::list ids;
  for (uint32_t id : set.m_Set) ids.append(id);
  return py::repr(ids).cast<std::string>();
}

void setHookOn(const TBoxPtr& box, const std::string& name, const char* func) {
  if (!box) return;
  auto hook = std::dynamic_pointer_cast<THookProcessor>(box->getProcessorByName(name));
  if (hook) hook->setHook(TPyRef::borrow(executorModule().attr(func).ptr()));
}

bool sendingEvents() { return py::bool_(executorModule().attr("sendevents")).cast<bool>(); }

void sendToListener(const std::string& message) {
  if (!sendingEvents()) return;
  TMessageServer* server = messageServer();
  if (!server) return;
  server->sendMessageToListener(message);
}

// The hooks: each gets its processor and reports the data on its input.
void selectionHook(const char* event, const TProcessorPtr& hook) {
  auto set = std::dynamic_pointer_cast<TIntegerSetData>(hook->getOnlyInputPin()->getData());
  if (set) sendToListener(std::string(event) + "(" + idsRepr(*set) + ")");
}

void filterHook(const char* event, const TProcessorPtr& hook) {
  auto value = std::dynamic_pointer_cast<TPythonData>(hook->getOnlyInputPin()->getData());
  if (!value || !value->getValue()) return;
  py::handle filter(value->getValue().get());
  py::list out;
  if (py::isinstance<py::dict>(filter) && filter.contains("attributes")) {
    for (auto [key, entry] : py::reinterpret_borrow<py::dict>(filter["attributes"])) {
      if (!py::isinstance<py::dict>(entry) || !py::bool_(entry.attr("get")("checked", false))) continue;
      py::object values = entry.attr("get")("values", py::dict());
      if (!py::isinstance<py::dict>(values)) continue;
      for (auto [v, on] : py::reinterpret_borrow<py::dict>(values))
        if (PyObject_IsTrue(on.ptr()) == 1) out.append(py::make_tuple(key, "=", v));
    }
  }
  sendToListener(std::string(event) + "(" + py::repr(out).cast<std::string>() + ")");
}

void edgeClickHook(const TProcessorPtr& hook) {
  auto value = std::dynamic_pointer_cast<TIntegerData>(hook->getOnlyInputPin()->getData());
  // -1: no edge has been clicked yet.
  if (value && value->getValue() >= 0) sendToListener("OnEdgeClick(" + std::to_string(value->getValue()) + ")");
}

// ---------------------------------------------------------------------------
// Commands

void cmdExit() {
  if (wxWindow* frame = mainWindow()) frame->Close();
}

void cmdMakeScreenshot(const std::optional<std::string>& filename, bool large) {
  TBoxPtr view = checkView();
  TProcessorPtr actions = view->findProcessor([](const TProcessorPtr& p) {
    return storedClassName(p->getClassName()) == "TGlCanvasActions";
  });
  if (auto* taker = dynamic_cast<TScreenshotTaker*>(actions.get())) taker->OnScreenshot(filename, large);
}

// A picture of the whole main window as the screen shows it, as PNG or BMP
// by the name's ending.
void cmdSaveWindowPicture(const std::string& filename) {
  wxWindow* frame = mainWindow();
  if (!frame) throw TFlowError("There is no main window");
  // What the commands before this one did must be on the screen: the
  // toolkit shows and lays out windows in its own events, and a canvas
  // shown just now has not been painted yet.
  wxSize last;
  for (int i = 0, quiet = 0; i < 200 && quiet < 3; ++i) {
    frame->Update();
    wxYield();
    runFlowNow();
    const wxSize now = frame->GetClientSize();
    quiet = now == last ? quiet + 1 : 0;
    last = now;
    wxMilliSleep(10);
  }
  std::function<void(wxWindow*)> paint = [&](wxWindow* w) {
    if (auto* canvas = dynamic_cast<TGlCanvasBase*>(w); canvas && canvas->IsShownOnScreen()) canvas->paintNow(true);
    for (wxWindow* child : w->GetChildren()) paint(child);
  };
  paint(frame);
  for (int i = 0; i < 5; ++i) {
    frame->Update();
    wxYield();
    wxMilliSleep(10);
  }
  const wxImage picture = grabScreen(frame->GetScreenRect());
  const bool png = filename.size() > 4 && filename.compare(filename.size() - 4, 4, ".png") == 0;
  if (!picture.IsOk() || !picture.SaveFile(wxText(filename), png ? wxBITMAP_TYPE_PNG : wxBITMAP_TYPE_BMP))
    raiseMessage("Cannot save to '" + filename + "'", {"popup"});
  logInfo("Saved a picture of the main window to '" + filename + "'");
}

void cmdCloseFile() {
  if (me.flowlayout) me.flowlayout->destroy();
}

void cmdClearSelection() { valueOf<TIntegerSetData>(mainBox(), "node primary selection")->clear(); }

void cmdSelectIds(const char* name, const py::object& ids) {
  auto set = valueOf<TIntegerSetData>(mainBox(), name);
  for (uint32_t id : idList(ids)) set->add(id);
}

void cmdEnsureOpen(const py::object& filename, bool) {
  bool reload = true;
  std::string present;
  try {
    present = valueOf<TStringData>(mainBox(), "dataset filename")->getValue();
    reload = filename.is_none() || present != py::str(filename).cast<std::string>();
  } catch (...) {
    reload = true;
  }
  if (filename.is_none()) {
    cmdCloseFile();
    return;
  }
  const std::string name = py::str(filename).cast<std::string>();
  std::error_code ec;
  if (!reload || !std::filesystem::exists(name, ec)) return;
  me.flowlayout->destroy();
  TBoxPtr main = instantiateLibBox("BMain", TInstantiateOptions{{{"dataset filename", name}}, {}});
  if (messageServer()) {
    setHookOn(main, "node primary selection hook", "nodehookfunc");
    setHookOn(main, "edge primary selection hook", "edgehookfunc");
  }
}

void cmdExpandAll(bool expand) {
  auto collapsed = viewOrMainValue<TBoolAttributeData>(checkView(), "collapsed attr");
  collapsed->setAllValues(!expand);
  collapsed->setValueById(0, false);
}

void cmdExpandToLevel(int targetlevel, bool expand) {
  TBoxPtr view = checkView();
  auto collapsed = viewOrMainValue<TBoolAttributeData>(view, "collapsed attr");
  auto levels = viewOrMainValue<TIntegerAttributeData>(view, "level attr");
  for (size_t row = 0; row < collapsed->getRowCount(); ++row) {
    const uint32_t nid = collapsed->getIdByRow(row);
    bool found = false;
    const int32_t level = levels->getValueById(nid, found);
    if (found && level <= targetlevel) collapsed->setValueById(nid, !expand);
  }
}

void cmdEnsureNidsVisible(const py::object& nids) {
  TBoxPtr view = checkView();
  TProcessorPtr actions = view->findProcessor([](const TProcessorPtr& p) {
    return storedClassName(p->getClassName()) == "THierarchyActions";
  });
  if (auto* keeper = dynamic_cast<TVisibilityKeeper*>(actions.get())) keeper->OnEnsureInternalSelectionVisible(idList(nids));
}

TBoxPtr cmdOpenView(const std::string& type, const py::object& title, bool activate) {
  if (!mainBox()) raiseMessage("No dataset has been opened", {"clearqueue"});
  const std::string lower = [&] {
    std::string s = type;
    for (auto& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
  }();
  const std::string given = title.is_none() ? "" : py::str(title).cast<std::string>();
  TInstantiateOptions o;
  std::string boxname;
  if (type == "heb") {
    boxname = "BHebView";
    o.assign = {{"gui title", given.empty() ? "Radial" : given}};
  } else if (lower == "treemap") {
    boxname = "BTreemapView";
    o.assign = {{"gui title", given.empty() ? "Treemap" : given}};
  } else if (lower == "list on nodes" || lower == "list on edges") {
    const std::string k = lower == "list on nodes" ? "node" : "edge";
    boxname = "BListView";
    o.assign = {{"gui title", k == "node" ? "Node list view" : "Edge list view"}};
    o.rename = {{"attributes", k + " attributes"},
                {"selections", k + " selections"},
                {"selection b", k + " primary selection"},
                {"icon attributes", k + " icon attributes"}};
  } else if (lower == "code") {
    boxname = "BCodeView";
    o.assign = {{"gui title", given.empty() ? "Code view" : given}};
  } else {
    raiseMessage("Unknown view type: " + type);
  }
  TBoxPtr box = instantiateLibBox(boxname, o);
  if (type == "heb" && messageServer()) {
    setHookOn(box, "node inclusion filter hook", "hookfuncnode");
    setHookOn(box, "edge inclusion filter hook", "hookfuncedge");
    setHookOn(box, "edge inspector on click hook", "hookfuncedgeclick");
  }
  if (activate) executorModule().attr("activeview") = box;
  return box;
}

void cmdSelectViewByName(const std::string& name) {
  for (const auto& box : std::vector<TBoxPtr>(me.flowlayout->m_Children)) {
    TProcessorPtr creator = box->findProcessor(
        [](const TProcessorPtr& p) { return storedClassName(p->getClassName()) == "TMdiChildCreator"; });
    if (!creator) continue;
    if (wxWindow* panel = windowOf(creator->getOutputPinByName("out")->getData()); panel && guiMgr()) {
      auto it = guiMgr()->window2frame.find(panel);
      if (it != guiMgr()->window2frame.end()) it->second->activateWithFocus();
    }
    auto title = std::dynamic_pointer_cast<TStringData>(creator->getInputPinByName("gui title")->getData());
    if (title && title->getValue() == name) {
      executorModule().attr("activeview") = box;
      return;
    }
  }
  raiseMessage("Could not find view with name '" + name + "'");
}

void cmdCollapseOrExpandByNid(const py::object& nids, bool collapse, bool recursive) {
  TBoxPtr view = checkView();
  auto collapsed = valueOf<TBoolAttributeData>(view, "collapsed attr");
  if (!recursive) {
    for (uint32_t nid : idList(nids)) collapsed->setValueById(nid, collapse);
    return;
  }
  TProcessorPtr full = view->getProcessorByName("full hierarchy");
  auto h = full && !full->m_InputPins.empty() ? std::dynamic_pointer_cast<THierarchyData>(full->m_InputPins[0]->getData())
                                             : nullptr;
  if (!h) return;
  for (uint32_t nid : idList(nids))
    for (uint32_t below : h->getNidsBelowNid(nid)) collapsed->setValueById(below, collapse);
}

void cmdSetInclusionFilter(const char* name, const py::object& filter) {
  TBoxPtr view = checkView();
  py::dict attributes;
  for (auto item : filter) {
    py::sequence t = py::reinterpret_borrow<py::sequence>(item);
    py::object key = t[0];
    if (!attributes.contains(key)) {
      py::dict entry;
      entry["checked"] = true;
      entry["values"] = py::dict();
      attributes[key] = entry;
    }
    attributes[key]["values"][t[1]] = true;
  }
  py::dict d;
  d["attributes"] = attributes;
  d["pass"] = 2;
  d["key_op"] = "and";
  TProcessorPtr p = view->getProcessorByName(name);
  if (!p) throw TFlowError("Filter not found");
  TPinPtr pin = p->getInputPinByName("filter");
  if (!pin) throw TFlowError("Filter not found");
  pin->setData(std::make_shared<TPythonData>(TPyRef::borrow(d.ptr())));
}

void cmdSetAttributes(const std::string& nodeoredge, const std::string& key, const py::object& pairs) {
  TBoxPtr view = activeView();
  const std::string name = nodeoredge + " attributes";
  TProcessorPtr p = view ? view->getProcessorByName(name) : nullptr;
  if (!p || p->m_OutputPins.empty()) throw TFlowError(name + " processor not found");
  auto array = std::dynamic_pointer_cast<TDataArray>(p->m_OutputPins[0]->getData());
  auto column = array ? array->itemByKeyAs<TAttributeData>(key) : nullptr;
  if (!column) throw TFlowError(nodeoredge + " attribute with key '" + key + "' not found");
  py::object attr = py::cast(column);
  for (auto pair : pairs) {
    py::sequence t = py::reinterpret_borrow<py::sequence>(pair);
    attr.attr("setValueById")(t[0], t[1]);
  }
}

void cmdSetSourceText(const std::string& name, const std::string& key) {
  TProcessorPtr p = viewOrMainProcessor(activeView(), name);
  if (!p || p->m_OutputPins.empty()) throw TFlowError("Processor '" + name + "' not found");
  p->m_OutputPins[0]->setData(std::make_shared<TStringData>(key));
}

void cmdShowPane(const std::string& name, const py::object& show) {
  TBoxPtr view = activeView();
  const std::string full = name + " pane collapse state";
  TProcessorPtr p = view ? view->getProcessorByName(full) : nullptr;
  if (!p || p->m_OutputPins.empty()) raiseMessage("Processor '" + full + "' not found");
  bool visible = false;
  if (show.is_none()) {
    auto present = std::dynamic_pointer_cast<TBooleanData>(p->m_OutputPins[0]->getData());
    visible = present ? present->getValue() : false;
  } else {
    visible = py::bool_(show).cast<bool>();
  }
  p->m_OutputPins[0]->setData(std::make_shared<TBooleanData>(!visible));
}

void cmdEnableEvents(const py::object& enabled) {
  py::module_ m = executorModule();
  const bool now = enabled.is_none() ? !py::bool_(m.attr("sendevents")).cast<bool>() : py::bool_(enabled).cast<bool>();
  m.attr("sendevents") = now;
}

void defineExecutor(py::module_& m) {
  m.attr("activeview") = py::none();
  m.attr("sendevents") = true;
  m.attr("os") = py::module_::import("os");
  py::module_ quorvelModule = py::module_::import("MQuorvel");
  for (auto item : quorvelModule.attr("__dict__").cast<py::dict>()) {
    const std::string name = py::str(item.first).cast<std::string>();
    if (!name.empty() && name[0] != '_') m.attr(item.first) = item.second;
  }
  m.def(
      "runScript", [](const std::optional<std::string>& f) { runScript(f); }, py::arg("filename") = py::none());
  m.def("exit", &cmdExit);
  m.def("makeScreenshot", &cmdMakeScreenshot, py::arg("filename") = py::none(), py::arg("large") = false);
  m.def("closeFile", &cmdCloseFile);
  m.def("saveWindowPicture", &cmdSaveWindowPicture, py::arg("filename"));
  m.def("clearSelection", &cmdClearSelection);
  m.def("selectNids", [](const py::object& ids) { cmdSelectIds("node primary selection", ids); }, py::arg("nids"));
  m.def("selectEids", [](const py::object& ids) { cmdSelectIds("edge primary selection", ids); }, py::arg("eids"));
  m.def("ensureOpen", &cmdEnsureOpen, py::arg("filename"), py::arg("expand") = false);
  m.def(
      "openPerspective", [](const std::optional<std::string>& f) { openPerspective(f); },
      py::arg("filename") = py::none());
  m.def("expandAll", &cmdExpandAll, py::arg("expand") = true);
  m.def("expandToLevel", &cmdExpandToLevel, py::arg("targetlevel"), py::arg("expand") = true);
  m.def("ensureNidsVisible", &cmdEnsureNidsVisible, py::arg("nidlist"));
  m.def("openView", &cmdOpenView, py::arg("type"), py::arg("title") = py::none(), py::arg("activate") = true);
  m.def("selectViewByName", &cmdSelectViewByName, py::arg("name"));
  m.def(
      "collapseByNid", [](const py::object& n, bool r) { cmdCollapseOrExpandByNid(n, true, r); }, py::arg("nids"),
      py::arg("recursive") = false);
  m.def(
      "expandByNid", [](const py::object& n, bool r) { cmdCollapseOrExpandByNid(n, false, r); }, py::arg("nids"),
      py::arg("recursive") = false);
  m.def("collapseOrExpandByNid", &cmdCollapseOrExpandByNid, py::arg("nids"), py::arg("collapse") = true,
        py::arg("recursive") = false);
  m.def(
      "setNodeInclusionFilter", [](const py::object& f) { cmdSetInclusionFilter("Node inclusion filter", f); },
      py::arg("filter"));
  m.def(
      "setEdgeInclusionFilter", [](const py::object& f) { cmdSetInclusionFilter("Edge inclusion filter", f); },
      py::arg("filter"));
  m.def("setAttributes", &cmdSetAttributes, py::arg("nodeoredge"), py::arg("key"), py::arg("pairs"));
  m.def(
      "setNodeAttributes", [](const std::string& k, const py::object& p) { cmdSetAttributes("node", k, p); },
      py::arg("key"), py::arg("pairs"));
  m.def(
      "setEdgeAttributes", [](const std::string& k, const py::object& p) { cmdSetAttributes("edge", k, p); },
      py::arg("key"), py::arg("pairs"));
  m.def("setNodeColorAttribute", [](const std::string& k) { cmdSetSourceText("node color attr source", k); });
  m.def("setEdgeColorAttribute", [](const std::string& k) { cmdSetSourceText("edge color attr source", k); });
  m.def("setNodeColorMap", [](const std::string& k) { cmdSetSourceText("node colormap source", k); });
  m.def("setEdgeColorMap", [](const std::string& k) { cmdSetSourceText("edge colormap source", k); });
  m.def("showPane", &cmdShowPane, py::arg("name"), py::arg("show") = py::none());
  m.def("enableEvents", &cmdEnableEvents, py::arg("enabled") = true);
  m.def("nodehookfunc", [](const TProcessorPtr& p) { selectionHook("OnNodeSelectionChanged", p); });
  m.def("edgehookfunc", [](const TProcessorPtr& p) { selectionHook("OnEdgeSelectionChanged", p); });
  m.def("hookfuncnode", [](const TProcessorPtr& p) { filterHook("OnNodeFilterChanged", p); });
  m.def("hookfuncedge", [](const TProcessorPtr& p) { filterHook("OnEdgeFilterChanged", p); });
  m.def("hookfuncedgeclick", [](const TProcessorPtr& p) { edgeClickHook(p); });

  // What a command may begin with: every name of the module but its own
  // entry points and the private ones.
  py::list available;
  for (auto item : m.attr("__dict__").cast<py::dict>()) {
    const std::string name = py::str(item.first).cast<std::string>();
    if (!name.empty() && name[0] != '_') available.append(name);
  }
  m.attr("availablecommands") = available;
  m.def("execute", [](const std::string& command) { execute(command); });
}

}  // namespace

void registerAutomationClasses() {
  static bool done = false;
  if (done) return;
  done = true;
  addScriptBindings([](void* module) {
    py::module_& m = *static_cast<py::module_*>(module);
    py::class_<TMessageServer, std::unique_ptr<TMessageServer, py::nodelete>>(m, "TMessageServer")
        .def("windowHandle", &TMessageServer::windowHandle)
        .def("sendMessageToListener", &TMessageServer::sendMessageToListener, py::arg("message"))
        .def("close", &TMessageServer::close);
  });
  addScriptBindings(&bindPluginUi);
}


void registerExecutor() {
  py::dict modules = py::module_::import("sys").attr("modules");
  if (modules.contains("MExecutor")) return;
  py::module_ m = py::reinterpret_borrow<py::module_>(py::module_::import("types").attr("ModuleType")("MExecutor"));
  modules["MExecutor"] = m;
  defineExecutor(m);
}

void execute(const std::string& command) {
  try {
    logDebug("Executing '" + command + "'");
    py::module_ m = executorModule();
    bool known = false;
    for (auto name : m.attr("availablecommands"))
      if (command.rfind(py::str(name).cast<std::string>(), 0) == 0) {
        known = true;
        break;
      }
    if (!known) raiseMessage("No such command");
    py::eval(command, m.attr("__dict__"));
  } catch (...) {
    handleException(std::current_exception());
  }
}

void runScript(const std::optional<std::string>& filename) {
  std::string name;
  if (!filename) {
    wxFileDialog open(mainWindow(), "Run script", "", "", "Quorvel script (*.qvscript)|*.qvscript|All files (*.*)|*.*",
                      wxFD_OPEN | wxFD_FILE_MUST_EXIST);
    if (open.ShowModal() != wxID_OK) return;
    name = stdText(open.GetPath());
  } else {
    name = *filename;
  }
  std::error_code ec;
  if (!std::filesystem::exists(name, ec)) raiseMessage("Cannot find script '" + name + "'");
  std::ifstream in(name, std::ios::binary);
  if (!in || std::filesystem::is_directory(name, ec)) raiseMessage("Cannot open script '" + name + "'");
  logInfo("Executing script '" + name + "'");
  std::string line;
  while (std::getline(in, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    const size_t first = line.find_first_not_of(" \t");
    if (first == std::string::npos || line[first] == '#') continue;
    me.appendCommand(line);
  }
}

void openPerspective(const std::optional<std::string>& filename) {
  std::string name;
  if (!filename) {
    wxFileDialog open(mainWindow(), "Open perspective", "", "",
                      "Quorvel perspective file (*.qvperspective)|*.qvperspective", wxFD_OPEN | wxFD_FILE_MUST_EXIST);
    if (open.ShowModal() != wxID_OK) return;
    name = stdText(open.GetPath());
  } else {
    name = *filename;
  }
  std::error_code ec;
  if (!std::filesystem::exists(name, ec)) raiseMessage("Cannot find perspective file '" + name + "'");
  auto loaded = me.flowlayout->load(me.flowlayout, name);
  me.flowlayout->autoconnect();
  std::vector<TBoxPtr> boxes;
  if (loaded)
    for (const auto& obj : *loaded)
      if (auto box = std::dynamic_pointer_cast<TAbstractBox>(obj); box && box->m_Parent == me.flowlayout.get())
        boxes.push_back(box);
  // The view that was in front comes to the front again, once the windows
  // exist: before whatever the queue holds.
  if (TBoxPtr front = settleLoadedViews(boxes)) {
    py::list queue = py::reinterpret_borrow<py::list>(me.getCommandQueue().get());
    queue.insert(0, py::str("selectViewByName(" + scriptLiteral(guiTitleOf(front)) + ")"));
  }
}

}  // namespace quorvel
