// The main window: menus, the idle loop that runs the network, animations
// and the command queue, the timer, icons, perspectives and the log.
#pragma once

#include <pybind11/pybind11.h>
// The toolkit's settings come first: the MDI header tests them.
#include <wx/wx.h>
#include <wx/aui/tabmdi.h>
#include <wx/imaglist.h>
#include <wx/wx.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/MLibrary.h"
#include "engine/MMediator.h"
#include "widgets/MGui.h"

namespace quorvel {

// What the main window does through the automation library: commands,
// scripts, perspectives, plug-ins and the message channel. The automation
// library fills these in (wireShellHooks); the window runs without them.
struct TShellHooks {
  struct TMenuRow {
    std::string name;
    std::string help;
    std::function<void()> run;
  };
  std::function<void(const std::string& command)> execute;
  std::function<void(const std::optional<std::string>& filename)> runScript;
  std::function<void(const std::optional<std::string>& filename)> openPerspective;
  std::function<std::vector<TMenuRow>()> pluginRows;
  // The window is up (OnQuorvelStarted to a listener), and it closes.
  std::function<void()> started;
  std::function<void()> closing;
};
TShellHooks& shellHooks();

class TMainFrame : public wxAuiMDIParentFrame, public TAppServices {
 public:
  // Seconds; tests give their own.
  using Clock = std::function<double()>;
  explicit TMainFrame(Clock clock = nullptr);
  ~TMainFrame() override;

  struct Animation {
    std::function<void(double)> animate;
    double totaltime;
    std::optional<double> starttime;
    double timepassed = 0.0;
  };
  std::vector<Animation> animatelist;
  wxMenuBar* menubar = nullptr;
  wxStatusBar* statusbar = nullptr;
  wxTimer timer;
  wxMenu* filemenu = nullptr;
  wxMenu* viewmenu = nullptr;
  wxMenu* toolsmenu = nullptr;
  wxMenu* helpmenu = nullptr;
  std::shared_ptr<TEventMap> eventmap = std::make_shared<TEventMap>();
  // The entries of the "&Tools" menu, made anew with it.
  std::shared_ptr<TEventMap> toolsEventmap = std::make_shared<TEventMap>(kToolsFirstId);
  // Item ids of the toolkit end below 0x7fff: the main menus take the
  // ids from kFirstId on, the Tools menu those from here.
  static constexpr int kToolsFirstId = TEventMap::kFirstId + 12000;
  wxImageList imagelist{16, 16, true};
  int count = 0;

  void animateMe(std::function<void(double)> animate, double totaltime);
  void doflow();
  // What the views ask of the main window.
  void runFlow() override { doflow(); }
  bool animate(std::function<void(double)> step, double seconds) override {
    animateMe(std::move(step), seconds);
    return true;
  }
  // Queues the commands that open a dataset and its node list; None closes.
  void Load(const std::optional<std::string>& filename);
  TBoxPtr OnInstantiateLibBox(const std::string& name, const TInstantiateOptions& options = {});
  void OnCloseFile();
  void OnSavePerspective();
  void OnLoad();
  void OnViewLog();
  void OnAbout();
  void OnVisitWebsite();

  void OnIdle(wxIdleEvent& event);
  // One step of the idle handler, as an idle event runs it.
  void idleStep();
  void OnTimer(wxTimerEvent& event);
  void timerStep();

  // The title as the timer sets it: the program and the open dataset.
  std::string currentTitle() const;
  // The file name of the open dataset; empty when none can be read.
  std::string datasetFilename() const;
  // Texts of the "gui title" ports of the running network's boxes.
  std::vector<std::pair<TBoxPtr, std::string>> viewTitles() const;

  // The last window made by the "View log" and "About" entries.
  wxWindow* lastLogWindow = nullptr;

 private:
  void readIcons();
  void buildMenus();
  void OnMenu(wxCommandEvent& event);
  void OnMenuOpen(wxMenuEvent& event);
  void OnClose(wxCloseEvent& event);
  void setMenuItemsEnabled(bool enabled);
  // Fills the "&Tools" menu from the active view's actions when the active
  // view changed, or when asked to; the menu itself stays.
  void updateToolsMenu(bool always);

  Clock m_Clock;
  double m_LastToolsUpdate = -1e9;
  wxWindow* m_ToolsChild = nullptr;
  std::weak_ptr<TAbstractProcessor> m_ToolsProc;
  bool m_InIdle = false;
};

// The main window of the process; null before it exists and after it went.
TMainFrame* mainFrame();

}  // namespace quorvel
