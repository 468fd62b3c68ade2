// A main window for GUI tests, driven the way the event loop drives it, with
// a clock that the test sets.
#pragma once

#include <pybind11/pybind11.h>
#include <wx/wx.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>

#include "engine/MMediator.h"
#include "shell/wx/MGuiClasses.h"
#include "shell/wx/MMainFrame.h"
#include "shell/wx/MWidgetContainers.h"

namespace quorvel::test {

inline void pumpUntil(const std::function<bool()>& done, double seconds = 5.0) {
  const auto start = std::chrono::steady_clock::now();
  while (!done() && std::chrono::steady_clock::now() - start < std::chrono::duration<double>(seconds)) {
    wxYield();
    wxMilliSleep(5);
  }
}

// A sample dataset copied into the working folder; gives its name.
// The windows of a class under `w`, `w` included, depth first.
template <class W>
void collectWindows(wxWindow* w, std::vector<W*>& out) {
  if (auto* hit = dynamic_cast<W*>(w)) out.push_back(hit);
  for (wxWindow* child : w->GetChildren()) collectWindows(child, out);
}
template <class W>
std::vector<W*> windowsIn(wxWindow* w) {
  std::vector<W*> out;
  if (w) collectWindows(w, out);
  return out;
}

template <class W>
W* firstIn(wxWindow* w) {
  auto all = windowsIn<W>(w);
  return all.empty() ? nullptr : all.front();
}

// The inside of a group of a view box's settings pane, unfolded as a click
// on its caption does; null without the pane or the group.
inline wxWindow* unfoldPaneGroup(const TBoxPtr& box, const char* name) {
  auto container = std::dynamic_pointer_cast<TWidgetContainer>(box->getProcessorByName("settings pane"));
  for (auto* fold : windowsIn<TFoldPanel>(container ? container->panel.get() : nullptr))
    if (fold->GetName() == name) {
      fold->collapse(false);
      return fold->pane();
    }
  return nullptr;
}

inline std::string sample(const std::string& name) {
  std::filesystem::copy_file(std::string(std::getenv("QUORVEL_SOURCE_DIR")) + "/samples/orbit/" + name, name,
                             std::filesystem::copy_options::overwrite_existing);
  return name;
}

struct App {
  double now = 1000.0;
  TMainFrame* frame;
  std::shared_ptr<THeadlessUi> ui = std::make_shared<THeadlessUi>();

  App() {
    me.manualupdate = false;
    me.ui = ui;
    me.setCommandQueue(TPyRef::steal(pybind11::list().release().ptr()));
    pybind11::module_::import("MExecutor").attr("activeview") = pybind11::none();
    frame = new TMainFrame([this] { return now; });
    frame->SetClientSize(1000, 700);
    publishGuiObjects();
    pumpUntil([this] { return frame->IsShownOnScreen(); });
    // Tests step the timer themselves; the real one would tick in wxYield.
    frame->timer.Stop();
  }
  ~App() {
    me.setCommandQueue(TPyRef::steal(pybind11::list().release().ptr()));
    if (me.flowlayout) me.flowlayout->destroy();
    frame->timer.Stop();
    // Windows of no processor (the flow canvases) go before the frame, as
    // closing the frame takes them.
    if (!frame->IsBeingDeleted() && guiMgr()) {
      guiMgr()->closing = true;
      for (auto* child : windowsIn<TChildFrame>(frame))
        if (!child->IsBeingDeleted()) child->Close(true);
    }
    if (!frame->IsBeingDeleted()) frame->Destroy();
    wxYield();
    me.mainwindow.reset();
    me.guimgr.reset();
    me.ui = std::make_shared<THeadlessUi>();
  }
  size_t queued() {
    return pybind11::len(pybind11::reinterpret_borrow<pybind11::list>(me.getCommandQueue().get()));
  }
  // Idle events until the queue is empty and the network quiet, with the
  // toolkit handling its events in between.
  void settle(int rounds = 60) {
    for (int i = 0; i < rounds; ++i) {
      frame->idleStep();
      wxYield();
      if (queued() == 0 && frame->animatelist.empty() && i > 2) {
        frame->idleStep();
        break;
      }
    }
  }
  void run(const std::string& command) {
    me.appendCommand(command);
    settle();
  }
  // Moves the clock on until the animations have ended and the queue is
  // empty.
  void finishAnimations() {
    for (int i = 0; i < 50 && (!frame->animatelist.empty() || queued() > 0); ++i) {
      now += 0.2;
      frame->idleStep();
      wxYield();
    }
    settle();
  }
};

}  // namespace quorvel::test
