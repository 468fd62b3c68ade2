#include "MMainFrame.h"
#include "MFlowCanvas.h"

#include <wx/choicdlg.h>
#include <wx/dir.h>
#include <wx/filedlg.h>
#include <wx/filename.h>
#include <wx/statbmp.h>

#include <chrono>
#include <filesystem>
#include <iostream>

#include "data/MValues.h"
#include "engine/MMediator.h"
#include "engine/MPython.h"
#include "data/MDataSources.h"
#include "render/wx/MImageBuilder.h"
#include "shell/wx/MGuiClasses.h"

namespace py = pybind11;

namespace quorvel {

namespace {

TMainFrame* g_MainFrame = nullptr;

double steadySeconds() {
  using namespace std::chrono;
  return duration<double>(steady_clock::now().time_since_epoch()).count();
}

std::string brandingText(const char* key) {
  if (!me.branding || me.branding.isNone()) return "";
  py::dict d = py::reinterpret_borrow<py::dict>(me.branding.get());
  return d.contains(key) ? py::str(d[key]).cast<std::string>() : std::string();
}

std::string programTitle() { return brandingText("appnamelong") + " " + brandingText("appversion"); }

// A short action of the shell's own menus.
py::tuple shortAction(const char* name, std::function<void()> f, const char* help = "") {
  return py::make_tuple(name, py::cpp_function([f = std::move(f)] { f(); }), py::tuple(), help);
}

// The about box: the logo at the left, the texts at the right, closing by
// itself after three seconds.
class TAboutBox : public wxDialog {
 public:
  explicit TAboutBox(wxWindow* parent)
      : wxDialog(parent, wxID_ANY, "", wxDefaultPosition, wxDefaultSize,
                 wxSTAY_ON_TOP | wxFRAME_NO_TASKBAR | wxBORDER_NONE) {
    wxBitmap logo;
    logo.LoadFile("logo.bmp", wxBITMAP_TYPE_BMP);
    const wxSize size = logo.IsOk() ? logo.GetSize() : wxSize(200, 150);
    auto* row = new wxBoxSizer(wxHORIZONTAL);
    if (logo.IsOk()) row->Add(new wxStaticBitmap(this, wxID_ANY, logo));
    auto* right = new wxBoxSizer(wxVERTICAL);
    const std::string text = brandingText("appnamelong") + "\n" + brandingText("appversion") + "\n\n" +
                             brandingText("aboutboxtexttop") + "\n" + brandingText("aboutboxtextbottom");
    right->Add(new wxTextCtrl(this, wxID_ANY, wxText(text), wxDefaultPosition, wxDefaultSize,
                              wxTE_MULTILINE | wxTE_READONLY | wxBORDER_NONE),
               1, wxEXPAND | wxALL, 4);
    auto* close = new wxButton(this, wxID_CLOSE, "Close");
    right->Add(close, 0, wxALIGN_RIGHT | wxALL, 4);
    row->Add(right, 1, wxEXPAND);
    SetSizer(row);
    SetSize(size.x + 250, size.y);
    close->Bind(wxEVT_BUTTON, [this](wxCommandEvent&) { EndModal(wxID_CLOSE); });
    m_Timer.Bind(wxEVT_TIMER, [this](wxTimerEvent&) {
      if (IsModal()) EndModal(wxID_CLOSE);
    });
    m_Timer.StartOnce(3000);
  }

 private:
  wxTimer m_Timer;
};

}  // namespace

TMainFrame* mainFrame() { return g_MainFrame; }

TShellHooks& shellHooks() {
  static TShellHooks hooks;
  return hooks;
}

namespace {
void runCommand(const std::string& command) {
  if (shellHooks().execute) shellHooks().execute(command);
}
}  // namespace

TMainFrame::TMainFrame(Clock clock)
    : wxAuiMDIParentFrame(nullptr, wxID_ANY, wxText(programTitle()), wxPoint(10, 10), wxSize(1024, 800),
                          wxDEFAULT_FRAME_STYLE | wxFRAME_NO_WINDOW_MENU),
      m_Clock(clock ? std::move(clock) : Clock(steadySeconds)) {
  g_MainFrame = this;
  setAppServices(this);
  setIconImageList(&imagelist);
  // Plug-ins, made below with the menus, may ask for me.mainwindow.
  publishGuiObjects();
  Bind(wxEVT_CLOSE_WINDOW, &TMainFrame::OnClose, this);

  logDebug("Reading icons...");
  readIcons();

  wxIcon icon;
  if (wxFileExists("Tarnwick.ico") && icon.LoadFile("Tarnwick.ico", wxBITMAP_TYPE_ICO, 32, 32)) SetIcon(icon);

  animatelist.clear();
  setGuiMgr(std::make_unique<TGuiMgr>(this));
  Bind(wxEVT_IDLE, &TMainFrame::OnIdle, this);

  buildMenus();
  // A page brought to the front takes the keyboard: a window of the page
  // left behind that still held it would bring that page back.
  GetClientWindow()->Bind(wxEVT_AUINOTEBOOK_PAGE_CHANGED, [this](wxAuiNotebookEvent& event) {
    event.Skip();
    CallAfter([this] {
      if (auto* child = dynamic_cast<TChildFrame*>(GetActiveChild())) child->focusContent();
    });
  });
  // GTK 3 draws no size grips: asking for one only brings warnings.
  statusbar = CreateStatusBar(1, wxSTB_DEFAULT_STYLE & ~wxSTB_SIZEGRIP);
  publishGuiObjects();

  setUpNetworks("library");
  // Those who build networks see them live: the library's and the running
  // one, each on a canvas of its own.
  if (me.cmdoptions && !me.cmdoptions.isNone() &&
      py::bool_(py::getattr(py::handle(me.cmdoptions.get()), "showflow", py::none())))
    openFlowCanvases(this);

  Show();
  timer.SetOwner(this);
  Bind(wxEVT_TIMER, &TMainFrame::OnTimer, this);
  timer.StartOnce(100);

  if (shellHooks().started) {
    try {
      shellHooks().started();
    } catch (...) {
      handleException(std::current_exception());
    }
  }
}

TMainFrame::~TMainFrame() {
  timer.Stop();
  // Child windows still here (those of no processor, as the flow canvases)
  // go while the notebook that holds them stands: the base class would take
  // them after it.
  std::vector<TChildFrame*> children;
  std::function<void(wxWindow*)> collect = [&](wxWindow* w) {
    for (wxWindow* child : w->GetChildren()) {
      if (auto* frame = dynamic_cast<TChildFrame*>(child)) children.push_back(frame);
      else collect(child);
    }
  };
  collect(this);
  if (guiMgr()) guiMgr()->closing = true;
  for (TChildFrame* child : children) delete child;
  if (appServices() == this) setAppServices(nullptr);
  if (iconImageList() == &imagelist) setIconImageList(nullptr);
  if (g_MainFrame == this) g_MainFrame = nullptr;
  if (guiMgr() && guiMgr()->mainframe == this) guiMgr()->mainframe = nullptr;
}

void TMainFrame::readIcons() {
  py::dict map;
  wxArrayString all;
  if (wxDirExists("icons")) wxDir::GetAllFiles("icons", &all, "", wxDIR_FILES | wxDIR_DIRS);
  all.Sort();
  auto builder = std::make_shared<TBitmapImageBuilder>();
  for (const wxString& path : all) {
    const wxFileName name(path);
    const wxString ext = name.GetExt().Lower();
    if (!(ext == "bmp" || ext == "ico" || ext.empty())) continue;
    wxBitmap bitmap;
    const bool read =
        ext == "ico" ? bitmap.LoadFile(path, wxBITMAP_TYPE_ICO) : bitmap.LoadFile(path, wxBITMAP_TYPE_BMP);
    if (!read || !bitmap.IsOk()) continue;
    wxBitmap icon = bitmap;
    if (bitmap.GetWidth() != 16 || bitmap.GetHeight() != 16)
      icon = wxBitmap(bitmap.ConvertToImage().Rescale(16, 16, wxIMAGE_QUALITY_HIGH));
    const int index = imagelist.Add(icon, wxColour(255, 0, 255));
    map[py::str(stdText(name.GetName()))] = index;
    // In the textures black is what is left out.
    wxImage atlas = icon.ConvertToImage();
    atlas.Replace(255, 0, 255, 0, 0, 0);
    builder->addBitmap(index, wxBitmap(atlas));
  }
  me.imagelistmap = TPyRef::borrow(map.ptr());
  me.m_IconImageBuilder = builder;
}

void TMainFrame::buildMenus() {
  menubar = new wxMenuBar();
  py::list file;
  file.append(shortAction("Open dataset", [this] { OnLoad(); }, "Open a Quorvel dataset (.db,.xml)."));
  file.append(shortAction("Close", [this] { OnCloseFile(); }, "Close all windows."));
  file.append(shortAction(
      "Run script", [] { if (shellHooks().runScript) shellHooks().runScript(std::nullopt); }, "Run a Quorvel script."));
  file.append(py::none());
  file.append(shortAction("Open perspective",
                          [] { if (shellHooks().openPerspective) shellHooks().openPerspective(std::nullopt); },
                          "Open a set of previously stored views."));
  file.append(shortAction("Save perspective", [this] { OnSavePerspective(); }, "Save the current set of views."));
  file.append(py::none());
  const auto rows = shellHooks().pluginRows ? shellHooks().pluginRows() : std::vector<TShellHooks::TMenuRow>();
  for (const auto& row : rows) {
    file.append(py::make_tuple(row.name, py::cpp_function(row.run), py::tuple(), row.help));
    logInfo("Loaded plug-in: " + row.name);
  }

  auto instantiate = [this](const char* box, const char* title) {
    return [this, box, title] {
      try {
        OnInstantiateLibBox(box, TInstantiateOptions{{{"gui title", title}}, {}});
      } catch (...) {
        handleException(std::current_exception());
      }
    };
  };
  auto tableOn = [this](const char* kind) {
    return [this, kind] {
      const std::string k(kind);
      TInstantiateOptions o;
      o.assign = {{"gui title", k == "node" ? "Node table view" : "Edge table view"}};
      o.rename = {{"attributes", k + " attributes"},
                  {"selections", k + " selections"},
                  {"primary selection", k + " primary selection"},
                  {"brushed", "brushed " + k + "s"}};
      try {
        OnInstantiateLibBox("BTableLens", o);
      } catch (...) {
        handleException(std::current_exception());
      }
    };
  };
  py::list view;
  view.append(shortAction("&Radial view", instantiate("BHebView", "Radial view"),
                          "A Radial view visualizes the nodes in a hierarchy and the edges hereon."));
  view.append(shortAction("&Treemap view", instantiate("BTreemapView", "Treemap"),
                          "A Treemap View visualizes the nodes in a hierarchy. Each node is a rectangle whose "
                          "color, size, and order encodes an attribute."));
  py::list table;
  table.append(shortAction("on all nodes", tableOn("node")));
  table.append(shortAction("on all edges", tableOn("edge")));
  view.append(py::make_tuple("Table view", table));
  py::list list;
  list.append(shortAction("on all nodes", [] { runCommand("openView(\"list on nodes\",activate=False)"); }));
  list.append(shortAction("on all edges", [] { runCommand("openView(\"list on edges\",activate=False)"); }));
  view.append(py::make_tuple("List view", list));
  view.append(shortAction("T&ree view", instantiate("BTreeView", "Tree view"),
                          "A Tree view lists the nodes of the hierarchy indented under their parents; Left and "
                          "Right fold and unfold them."));
  view.append(shortAction("&Code view", instantiate("BCodeView", "Code view"),
                          "A Code view shows the source text of the selected nodes, their lines marked."));

  py::list help;
  help.append(shortAction("Visit website", [this] { OnVisitWebsite(); }));
  help.append(shortAction("View log", [this] { OnViewLog(); }));
  help.append(shortAction("About", [this] { OnAbout(); }));

  TGuiMgr* mgr = guiMgr();
  filemenu = mgr->buildContextMenu(file, eventmap);
  viewmenu = mgr->buildContextMenu(view, eventmap);
  toolsmenu = new wxMenu();
  helpmenu = mgr->buildContextMenu(help, eventmap);
  menubar->Append(filemenu, "&File");
  menubar->Append(viewmenu, "&View");
  menubar->Append(toolsmenu, "&Tools");
  menubar->Append(helpmenu, "&Help");
  SetMenuBar(menubar);
  Bind(wxEVT_MENU, &TMainFrame::OnMenu, this);
  Bind(wxEVT_MENU_OPEN, &TMainFrame::OnMenuOpen, this);
}

void TMainFrame::OnMenu(wxCommandEvent& event) {
  if (!eventmap->run(event.GetId()) && !toolsEventmap->run(event.GetId())) event.Skip();
}

void TMainFrame::OnMenuOpen(wxMenuEvent& event) {
  event.Skip();
  const double now = m_Clock();
  if (now - m_LastToolsUpdate < 1.0) return;
  m_LastToolsUpdate = now;
  updateToolsMenu(true);
}

void TMainFrame::updateToolsMenu(bool always) {
  if (!toolsmenu || !guiMgr()) return;
  wxWindow* active = GetActiveChild();
  auto* child = dynamic_cast<TChildFrame*>(active);
  TProcessorPtr proc = child ? child->proc.lock() : nullptr;
  const bool changed = active != m_ToolsChild || proc != m_ToolsProc.lock();
  if (!changed && !always) return;
  m_ToolsChild = active;
  m_ToolsProc = proc;
  // The view in front is stored with the views.
  if (changed && proc && proc->m_Box) markFrontView(proc->m_Box);
  // A child window without a processor leaves the menu as it is; with no
  // view left the menu offers nothing.
  if (!proc && active) return;
  if (!proc) {
    while (toolsmenu->GetMenuItemCount() > 0) toolsmenu->Destroy(toolsmenu->FindItemByPosition(0));
    toolsEventmap = std::make_shared<TEventMap>(kToolsFirstId);
    return;
  }
  const std::set<std::string> tags{"menubar"};
  auto entries = std::make_shared<TEventMap>(kToolsFirstId);
  guiMgr()->refillMenu(toolsmenu, actionListOn(proc->getInputPinByName("actions")), entries, &tags);
  toolsEventmap = entries;
}

void TMainFrame::animateMe(std::function<void(double)> animate, double totaltime) {
  animatelist.push_back(Animation{std::move(animate), totaltime, std::nullopt, 0.0});
}

void TMainFrame::doflow() {
  if (me.flowlayout && !me.flowlayout->m_Flowing) quorvel::doflow(*me.flowlayout);
}

void TMainFrame::Load(const std::optional<std::string>& filename) {
  if (!filename) {
    me.appendCommand("closeFile()");
    return;
  }
  me.appendCommand("ensureOpen(" + scriptLiteral(*filename) + ")");
  me.appendCommand("openView('list on nodes',activate=False)");
}

TBoxPtr TMainFrame::OnInstantiateLibBox(const std::string& name, const TInstantiateOptions& options) {
  return instantiateLibBox(name, options);
}

void TMainFrame::OnCloseFile() {
  if (me.flowlayout) me.flowlayout->destroy();
}

void TMainFrame::OnIdle(wxIdleEvent&) {
  idleStep();
}

void TMainFrame::idleStep() {
  // A command that lets the toolkit handle events (a yield, a dialog) must
  // not start the next command from the nested idle events.
  if (m_InIdle) return;
  m_InIdle = true;
  struct Leave {
    bool& flag;
    ~Leave() { flag = false; }
  } leave{m_InIdle};
  try {
    updateToolsMenu(false);
    if (!me.manualupdate) {
      doflow();
      // Only a new text: setting the same one repaints the bar, and the
      // repaint brings the next idle event, and so on.
      if (statusbar && me.logger) {
        const wxString text = wxText(me.logger->getMostImportantMessage());
        if (text != statusbar->GetStatusText()) statusbar->SetStatusText(text);
      }
    }
    const double now = m_Clock();
    std::vector<Animation> keep;
    for (auto& item : animatelist) {
      if (!item.starttime) item.starttime = now;
      item.timepassed = now - *item.starttime;
      const double fraction = item.totaltime > 0.0 ? std::min(item.timepassed / item.totaltime, 1.0) : 1.0;
      item.animate(fraction);
      if (fraction < 1.0) keep.push_back(item);
    }
    animatelist.swap(keep);
    if (animatelist.empty()) {
      py::list queue = py::reinterpret_borrow<py::list>(me.getCommandQueue().get());
      if (py::len(queue) > 0) {
        py::object command = queue.attr("pop")(0);
        runCommand(py::str(command).cast<std::string>());
      }
    }
  } catch (...) {
    const TExceptionText info = describeException(std::current_exception());
    std::cout << info.traceback << std::flush;
    logCriticalError(info.traceback);
  }
}

void TMainFrame::OnTimer(wxTimerEvent&) {
  timerStep();
  // Always again: the timer's events keep the idle loop going.
  timer.StartOnce(100);
}

void TMainFrame::timerStep() {
  try {
    if (++count % 10 == 0) {
      const bool enabled = me.flowlayout && me.flowlayout->getBoxByType("BMain");
      setMenuItemsEnabled(enabled);
      const wxString title = wxText(currentTitle());
      if (title != GetTitle()) SetTitle(title);
    }
  } catch (...) {
    const TExceptionText info = describeException(std::current_exception());
    logError(info.traceback);
  }
}

void TMainFrame::setMenuItemsEnabled(bool enabled) {
  for (wxMenuItem* item : filemenu->GetMenuItems()) {
    if (item->IsSeparator()) continue;
    const std::string label = stdText(item->GetItemLabelText().Lower());
    if ((label.rfind("open persp", 0) == 0 || label.rfind("save persp", 0) == 0 || label.rfind("close", 0) == 0) &&
        item->IsEnabled() != enabled)
      item->Enable(enabled);
  }
  for (wxMenuItem* item : viewmenu->GetMenuItems())
    if (!item->IsSeparator() && item->IsEnabled() != enabled) item->Enable(enabled);
}

std::string TMainFrame::datasetFilename() const {
  try {
    if (!me.flowlayout) return "";
    TBoxPtr main = me.flowlayout->getBoxByType("BMain");
    if (!main) return "";
    TProcessorPtr port = main->getIdentityProcessorByInputName("dataset filename");
    if (!port) return "";
    auto name = std::dynamic_pointer_cast<TStringData>(port->getOnlyOutputPin()->getData());
    return name ? name->getValue() : "";
  } catch (...) {
    return "";
  }
}

std::string TMainFrame::currentTitle() const {
  const std::string name = datasetFilename();
  return programTitle() + (name.empty() ? "" : " - " + name);
}

std::vector<std::pair<TBoxPtr, std::string>> TMainFrame::viewTitles() const {
  std::vector<std::pair<TBoxPtr, std::string>> out;
  if (!me.flowlayout) return out;
  for (const auto& box : me.flowlayout->m_Children)
    if (box->getIdentityProcessorByInputName("gui title")) out.emplace_back(box, guiTitleOf(box));
  return out;
}

void TMainFrame::OnSavePerspective() {
  const auto titles = viewTitles();
  wxArrayString choices;
  for (const auto& [box, title] : titles) choices.Add(wxText(title));
  wxMultiChoiceDialog choose(this, "Choose the views you want to save.", "Save perspective", choices);
  if (choose.ShowModal() != wxID_OK) return;
  wxFileDialog save(this, "Save perspective", "", "", "Quorvel perspective file (*.qvperspective)|*.qvperspective",
                    wxFD_SAVE | wxFD_OVERWRITE_PROMPT);
  if (save.ShowModal() != wxID_OK) return;
  std::vector<TBoxPtr> boxes;
  for (int i : choose.GetSelections()) boxes.push_back(titles[static_cast<size_t>(i)].first);
  try {
    me.flowlayout->store(boxes, stdText(save.GetPath()));
  } catch (const TUserException& e) {
    logError(e.what());
  }
}

void TMainFrame::OnLoad() {
  wxFileDialog open(this, "Open dataset", "", "", "Open dataset (*.db;*.xml)|*.db;*.xml",
                    wxFD_OPEN | wxFD_FILE_MUST_EXIST);
  if (open.ShowModal() == wxID_OK) Load(stdText(open.GetPath()));
}

void TMainFrame::OnViewLog() {
  auto* log = new TLogWindow(this, "Log");
  if (me.logger) log->append(wxText(me.logger->getLastMessages()));
  log->Show();
  lastLogWindow = log;
}

void TMainFrame::OnAbout() {
  TAboutBox box(this);
  box.ShowModal();
}

void TMainFrame::OnVisitWebsite() { wxLaunchDefaultBrowser(wxText(brandingText("website"))); }

void TMainFrame::OnClose(wxCloseEvent& event) {
  if (guiMgr()) guiMgr()->closing = true;
  if (shellHooks().closing) shellHooks().closing();
  if (me.flowlayout) {
    try {
      me.flowlayout->store(me.flowlayout->m_Children, "previousstate.qvperspective");
    } catch (...) {
      handleException(std::current_exception());
    }
  }
  timer.Stop();
  event.Skip();
  // The frame goes in the next idle event; with the timer stopped nothing
  // else may bring one.
  wxWakeUpIdle();
}

}  // namespace quorvel
