// A seeded random walk of a user's actions on the sample dataset, under a
// virtual X server: views opened and closed, tabs switched and menus opened
// by real clicks, hovering, clicking and the keys of the views' actions,
// undo, resizing, and the perspective stored and opened again. After every
// step the program must be alive with nothing critical logged, and after a
// tab switch the view on the screen must be what a fresh paint of its state
// gives.
//
//   test_walk [--steps N] [--seed S]
//
// A failure prints its seed and step; the same seed replays the same walk.
// QUORVEL_WALK_TRACE=1 prints every page change, with a backtrace when a
// tab click brings another page than its own.
#include <wx/wx.h>

#include <execinfo.h>
#include <wx/aui/auibook.h>

#include <chrono>
#include <cstring>
#include <iostream>
#include <random>

#include "engine/MPython.h"
#include "render/wx/MGlCanvas.h"
#include "engine/MActionList.h"
#include "support/GuiTestSetup.h"
#include "support/GuiTestHelpers.h"
#include "support/Pictures.h"
#include "support/XInput.h"

namespace fs = std::filesystem;
using namespace quorvel;
using namespace quorvel::test;

namespace {

std::vector<std::string> g_ToolkitAsserts;

class TWalk {
 public:
  TWalk(uint64_t seed, const std::string& dataset) : m_Seed(seed), m_Rng(seed), m_Dataset(dataset) {
    me.manualupdate = false;
    me.setCommandQueue(TPyRef::steal(pybind11::list().release().ptr()));
    m_Frame = new TMainFrame();
    m_Frame->SetClientSize(1000, 700);
    publishGuiObjects();
    TXInput::pumpUntil([this] { return m_Frame->IsShownOnScreen(); }, 5);
    command("ensureOpen(" + scriptLiteral(m_Dataset) + ")");
    command("openView('heb', 'Radial')");
    m_Bar = std::make_unique<TMenuBarMap>(m_Frame, m_Input);
    // A click may open a dialog (a filter, the columns), whose loop holds
    // the walk: the user looks at it a moment and cancels it.
    m_Dialogs.Bind(wxEVT_TIMER, [this](wxTimerEvent&) {
      for (wxWindow* w : wxTopLevelWindows)
        if (auto* dialog = dynamic_cast<wxDialog*>(w); dialog && dialog->IsModal()) {
          ++dialogsCancelled;
          dialog->EndModal(wxID_CANCEL);
        }
    });
    m_Dialogs.Start(300);
    if (getenv("QUORVEL_WALK_TRACE"))
      m_Frame->GetClientWindow()->Bind(wxEVT_AUINOTEBOOK_PAGE_CHANGED, [this](wxAuiNotebookEvent& e) {
        e.Skip();
        auto* book = static_cast<wxAuiNotebook*>(m_Frame->GetClientWindow());
        wxWindow* page = e.GetSelection() >= 0 ? book->GetPage(static_cast<size_t>(e.GetSelection())) : nullptr;
        std::cerr << "page changed to " << (page ? stdText(page->GetLabel()) : "-") << std::endl;
        if (m_Target && page != m_Target) {
          void* frames[64];
          backtrace_symbols_fd(frames, backtrace(frames, 64), 2);
        }
      });
  }
  ~TWalk() {
    m_Dialogs.Stop();
    m_Bar.reset();
    if (me.flowlayout) me.flowlayout->destroy();
    m_Frame->timer.Stop();
    if (!m_Frame->IsBeingDeleted()) m_Frame->Destroy();
    wxYield();
  }

  int secondClicks = 0;
  int dialogsCancelled = 0;

  bool ready(std::string& why) const {
    if (!m_Input.ok()) why = "the X server has no XTEST";
    else if (!m_Bar->has(0) || !m_Bar->has(1) || !m_Bar->has(2) || !m_Bar->has(3)) why = "menu titles not found";
    return why.empty();
  }

  // One step; false with the reason when a check failed.
  bool step(int index, std::string& action, std::string& why) {
    static const std::vector<std::pair<const char*, int>> weights = {
        {"open view", 8}, {"close view", 4}, {"switch tab", 10}, {"menu", 8}, {"hover", 14}, {"click", 12},
        {"key", 16},      {"undo", 4},       {"resize", 4},      {"perspective", 2}};
    int total = 0;
    for (const auto& w : weights) total += w.second;
    int pick = uniform(0, total - 1);
    std::string kind;
    for (const auto& w : weights) {
      if (pick < w.second) {
        kind = w.first;
        break;
      }
      pick -= w.second;
    }
    action = kind;
    (void)index;
    if (!me.flowlayout || !me.flowlayout->getBoxByType("BMain")) {
      action = "open the dataset again";
      command("ensureOpen(" + scriptLiteral(m_Dataset) + ")");
    } else if (kind == "open view") {
      openView(action);
    } else if (kind == "close view") {
      closeView(action);
    } else if (kind == "switch tab") {
      if (!switchTab(action, why)) return false;
    } else if (kind == "menu") {
      const size_t title = static_cast<size_t>(uniform(0, 3));
      action += " " + std::to_string(title);
      const bool opened = m_Bar->openAt(m_Input, m_Bar->centre(title), 2.0) != nullptr;
      pump(0.02 * uniform(1, 10));
      m_Bar->closeOpen(m_Input, opened ? 0.0 : 1.0);
    } else if (kind == "hover" || kind == "click") {
      wxWindow* content = activeContent();
      if (content) {
        const wxRect r = content->GetScreenRect();
        const wxPoint p(r.x + uniform(0, std::max(0, r.width - 1)), r.y + uniform(0, std::max(0, r.height - 1)));
        action += " at " + std::to_string(p.x - r.x) + "," + std::to_string(p.y - r.y);
        if (kind == "hover") m_Input.move(p);
        else m_Input.click(p);
      }
    } else if (kind == "key") {
      pressActionKey(action);
    } else if (kind == "undo") {
      m_Input.key("z", false, true);
    } else if (kind == "resize") {
      const wxSize size(uniform(700, 1200), uniform(550, 900));
      action += " to " + std::to_string(size.x) + "x" + std::to_string(size.y);
      m_Frame->SetSize(size);
    } else if (kind == "perspective") {
      perspective();
    }
    settle();
    return checkLog(why);
  }

 private:
  uint64_t m_Seed;
  std::mt19937_64 m_Rng;
  std::string m_Dataset;
  TMainFrame* m_Frame;
  wxWindow* m_Target = nullptr;  // the page a tab click is bringing to the front
  wxTimer m_Dialogs;
  TXInput m_Input;
  std::unique_ptr<TMenuBarMap> m_Bar;
  size_t m_LogSeen = 0;
  size_t m_AssertsSeen = 0;

  int uniform(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(m_Rng); }

  // The toolkit's events and the program's idle steps, for so long.
  void pump(double seconds) {
    const auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    do {
      m_Frame->idleStep();
      wxYield();
      wxMilliSleep(2);
    } while (std::chrono::steady_clock::now() < until);
  }
  // Until the queue is empty and no animation runs, at most 5 s.
  void settle() {
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    do {
      pump(0.01);
    } while ((!m_Frame->animatelist.empty() || queued() > 0) && std::chrono::steady_clock::now() < until);
    pump(0.03);
  }
  size_t queued() const {
    return pybind11::len(pybind11::reinterpret_borrow<pybind11::list>(me.getCommandQueue().get()));
  }
  void command(const std::string& text) {
    me.appendCommand(text);
    settle();
  }

  std::vector<TChildFrame*> children() const {
    std::vector<TChildFrame*> out;
    for (auto& [content, child] : guiMgr()->window2frame)
      if (child && !child->IsBeingDeleted()) out.push_back(child);
    return out;
  }
  wxWindow* activeContent() const {
    auto* child = dynamic_cast<TChildFrame*>(m_Frame->GetActiveChild());
    if (!child) return nullptr;
    for (auto& [content, frame] : guiMgr()->window2frame)
      if (frame == child) return content;
    return nullptr;
  }
  static TGlCanvasBase* canvasIn(wxWindow* w) {
    if (!w) return nullptr;
    if (auto* canvas = dynamic_cast<TGlCanvasBase*>(w)) return canvas;
    for (wxWindow* child : w->GetChildren())
      if (auto* canvas = canvasIn(child)) return canvas;
    return nullptr;
  }

  void openView(std::string& action) {
    if (children().size() >= 6) return closeView(action);
    std::vector<std::pair<std::string, int>> items;
    std::function<void(wxMenu*, const std::string&)> walk = [&](wxMenu* menu, const std::string& path) {
      for (wxMenuItem* item : menu->GetMenuItems()) {
        if (item->IsSeparator()) continue;
        const std::string label = path + stdText(item->GetItemLabelText());
        if (item->GetSubMenu()) walk(item->GetSubMenu(), label + " ");
        else items.emplace_back(label, item->GetId());
      }
    };
    walk(m_Frame->viewmenu, "");
    const auto& [label, id] = items[static_cast<size_t>(uniform(0, static_cast<int>(items.size()) - 1))];
    action += " " + label;
    wxCommandEvent event(wxEVT_MENU, id);
    event.SetEventObject(m_Frame);
    m_Frame->ProcessWindowEvent(event);
  }

  void closeView(std::string& action) {
    auto all = children();
    if (all.size() <= 1) return;
    TChildFrame* child = all[static_cast<size_t>(uniform(0, static_cast<int>(all.size()) - 1))];
    action = "close view " + stdText(child->GetTitle());
    child->Close();
  }

  bool switchTab(std::string& action, std::string& why) {
    // The views whose tabs the strip shows.
    // The strip places its tabs when it draws: draw it first.
    m_Frame->GetClientWindow()->Refresh();
    m_Frame->GetClientWindow()->Update();
    pump(0.02);
    std::vector<std::pair<TChildFrame*, wxPoint>> tabs;
    for (TChildFrame* child : children())
      if (auto at = tabOf(m_Frame->GetClientWindow(), child)) tabs.emplace_back(child, *at);
    if (tabs.size() < 2) return true;
    const auto& [child, tab] = tabs[static_cast<size_t>(uniform(0, static_cast<int>(tabs.size()) - 1))];
    action += " to " + stdText(child->GetTitle());
    const std::optional<wxPoint> at = tab;
    m_Target = child;
    m_Input.click(*at);
    TXInput::pumpUntil([&] { return m_Frame->GetActiveChild() == child; }, 2);
    if (m_Frame->GetActiveChild() != child) {
      // A user clicks again; how often that is needed is counted.
      ++secondClicks;
      action += " (clicked twice)";
      m_Input.click(*at);
      TXInput::pumpUntil([&] { return m_Frame->GetActiveChild() == child; }, 2);
    }
    m_Target = nullptr;
    if (m_Frame->GetActiveChild() != child) {
      auto* front = dynamic_cast<TChildFrame*>(m_Frame->GetActiveChild());
      why = "a click on the tab of " + stdText(child->GetTitle()) + " did not bring it to the front; " +
            (front ? stdText(front->GetTitle()) : std::string("no view")) + " is in front";
      return false;
    }
    settle();
    pump(0.2);
    TGlCanvasBase* canvas = canvasIn(activeContent());
    if (!canvas || !canvas->IsShownOnScreen()) return true;
    const wxImage shown = screenOf(canvas);
    const wxImage fresh = freshPaint(canvas);
    canvas->Refresh(false);
    const double off = differing(shown, fresh, 40);
    if (off > 0.01) {
      shown.SaveFile("walk-shown.png", wxBITMAP_TYPE_PNG);
      fresh.SaveFile("walk-fresh.png", wxBITMAP_TYPE_PNG);
      why = "the screen differs from a fresh paint in " + std::to_string(off * 100) +
            "% of the pixels (walk-shown.png, walk-fresh.png)";
      return false;
    }
    return true;
  }

  void pressActionKey(std::string& action) {
    auto* child = dynamic_cast<TChildFrame*>(m_Frame->GetActiveChild());
    auto proc = child ? child->proc.lock() : nullptr;
    std::vector<TActionEntry> keyed;
    if (proc)
      for (const auto& e : parseActionList(actionListOn(proc->getInputPinByName("actions"))))
        if (e.kind == TActionEntry::Kind::Action && e.hasKey) keyed.push_back(e);
    // The tree view's arrows, and Escape, besides.
    const int extra = 3;
    const int pick = uniform(0, static_cast<int>(keyed.size()) + extra - 1);
    std::string name;
    bool shift = uniform(0, 3) == 0, control = false;
    if (pick < static_cast<int>(keyed.size())) {
      const TActionEntry& e = keyed[static_cast<size_t>(pick)];
      shift = e.shift.value_or(false);
      control = e.ctrl.value_or(false);
      if (e.keycode >= 'A' && e.keycode <= 'Z') name = std::string(1, static_cast<char>(e.keycode - 'A' + 'a'));
      else if (e.keycode >= kKeyF1 && e.keycode <= kKeyF1 + 11) name = "F" + std::to_string(e.keycode - kKeyF1 + 1);
      action += " " + e.name;
    } else {
      name = std::vector<std::string>{"Left", "Right", "Escape"}[static_cast<size_t>(pick - static_cast<int>(keyed.size()))];
      action += " " + name;
    }
    if (name.empty()) return;
    m_Input.key(name.c_str(), shift, control);
  }

  void perspective() {
    const std::string file = "walk.qvperspective";
    me.flowlayout->store(me.flowlayout->m_Children, file);
    me.flowlayout->destroy();
    settle();
    command("openPerspective(" + scriptLiteral(file) + ")");
  }

  bool checkLog(std::string& why) {
    const auto& records = me.logger->records();
    for (; m_LogSeen < records.size(); ++m_LogSeen) {
      const auto& r = records[m_LogSeen];
      if (r.level >= TLogger::kCriticalError) {
        why = "logged: " + r.text;
        ++m_LogSeen;
        return false;
      }
    }
    if (m_AssertsSeen < g_ToolkitAsserts.size()) {
      why = g_ToolkitAsserts[m_AssertsSeen++];
      return false;
    }
    return true;
  }
};

}  // namespace

int main(int argc, char** argv) {
  int steps = 300;
  uint64_t seed = static_cast<uint64_t>(std::chrono::system_clock::now().time_since_epoch().count()) % 1000000;
  bool seedGiven = false;
  for (int i = 1; i + 1 < argc; ++i) {
    if (!std::strcmp(argv[i], "--steps")) steps = std::atoi(argv[++i]);
    else if (!std::strcmp(argv[i], "--seed")) {
      seed = std::strtoull(argv[++i], nullptr, 10);
      seedGiven = true;
    }
  }
  if (!seedGiven && std::getenv("QUORVEL_WALK_SEED")) seed = std::strtoull(std::getenv("QUORVEL_WALK_SEED"), nullptr, 10);
  setenv("QUORVEL_POPUPS", "log", 1);
  if (!setUpGuiTests("quorvel-walk", [](const std::string& text) { g_ToolkitAsserts.push_back(text); })) return 1;
  const std::string dataset = sample("orbit.db");
  std::cout << "walk: seed " << seed << ", " << steps << " steps (replay: --seed " << seed << ")" << std::endl;
  int result = 0;
  {
    TWalk walk(seed, dataset);
    std::string why;
    if (!walk.ready(why)) {
      std::cout << "walk: cannot start: " << why << std::endl;
      result = 1;
    }
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < steps && result == 0; ++i) {
      std::string action;
      // Printed before the step: a crash names the step it happened in.
      std::cout << "walk: step " << i << std::flush;
      const auto begun = std::chrono::steady_clock::now();
      const bool ok = walk.step(i, action, why);
      std::cout << ": " << action << " ("
                << std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begun).count()
                << " ms)" << std::endl;
      if (!ok) {
        std::cout << "walk: FAILED at step " << i << " (" << action << "): " << why << "\nwalk: replay with --seed "
                  << seed << " --steps " << i + 1 << std::endl;
        result = 1;
      }
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (result == 0)
      std::cout << "walk: " << steps << " steps passed in " << seconds << " s (seed " << seed << "); "
                << walk.secondClicks << " tab switch(es) took a second click, " << walk.dialogsCancelled
                << " dialog(s) cancelled" << std::endl;
  }
  tearDownGuiTests();
  return result;
}
