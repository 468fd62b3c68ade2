// Real input through the X server (the XTEST extension): the toolkit gets
// these events as it gets a user's, menus and grabs included. Positions are
// screen coordinates.
#pragma once

#include <wx/wx.h>
#include <wx/aui/auibook.h>

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>

namespace quorvel::test {

class TXInput {
 public:
  TXInput();
  ~TXInput();
  TXInput(const TXInput&) = delete;
  TXInput& operator=(const TXInput&) = delete;

  bool ok() const { return m_Ok; }

  void move(wxPoint p);
  void button(unsigned which, bool down);
  void click(wxPoint p, unsigned which = 1);
  // A key by its X name ("Escape", "c", "F11"), with modifiers held.
  void key(const char* name, bool shift = false, bool control = false);
  // The deepest mapped X window at a point of the screen.
  unsigned long windowAt(wxPoint p);

  // Lets the toolkit handle what came for so long.
  static void pump(double seconds) {
    const auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    do {
      wxYield();
      wxMilliSleep(2);
    } while (std::chrono::steady_clock::now() < until);
  }
  // Until `done` holds, for at most so long; tells whether it came.
  static bool pumpUntil(const std::function<bool()>& done, double seconds) {
    const auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!done()) {
      if (std::chrono::steady_clock::now() >= until) return false;
      wxYield();
      wxMilliSleep(2);
    }
    return true;
  }

 private:
  void* m_Display;
  bool m_Ok = false;
};

// Where the titles of a frame's menu bar are: found by clicking along the
// bar and seeing which menu opens, each closed again with Escape.
class TMenuBarMap {
 public:
  TMenuBarMap(wxFrame* frame, TXInput& input) : m_Frame(frame) {
    m_Frame->Bind(wxEVT_MENU_OPEN, &TMenuBarMap::onOpen, this);
    m_Frame->Bind(wxEVT_MENU_CLOSE, &TMenuBarMap::onClose, this);
    wxMenuBar* bar = frame->GetMenuBar();
    const wxRect rect = bar->GetScreenRect();
    const int y = rect.y + rect.height / 2;
    std::map<wxMenu*, std::pair<int, int>> seen;
    for (int x = rect.x + 4; x < rect.x + 400 && seen.size() < bar->GetMenuCount(); x += 8) {
      wxMenu* menu = openAt(input, {x, y});
      if (!menu) continue;
      auto [it, fresh] = seen.emplace(menu, std::make_pair(x, x));
      if (!fresh) it->second.second = x;
      closeOpen(input);
    }
    for (size_t i = 0; i < bar->GetMenuCount(); ++i) {
      auto it = seen.find(bar->GetMenu(i));
      if (it != seen.end()) m_Centres[i] = {(it->second.first + it->second.second) / 2, y};
    }
  }
  ~TMenuBarMap() {
    m_Frame->Unbind(wxEVT_MENU_OPEN, &TMenuBarMap::onOpen, this);
    m_Frame->Unbind(wxEVT_MENU_CLOSE, &TMenuBarMap::onClose, this);
  }

  bool has(size_t index) const { return m_Centres.count(index) > 0; }
  wxPoint centre(size_t index) const { return m_Centres.at(index); }
  // Opens a menu by a click on the bar; the menu that opened, or null.
  wxMenu* openAt(TXInput& input, wxPoint p, double seconds = 0.5) {
    m_Opened = nullptr;
    input.click(p);
    TXInput::pumpUntil([this] { return m_Opened != nullptr; }, seconds);
    return m_Opened;
  }
  // Escape until no menu of the bar is open; a menu that opens late (a
  // busy machine) is closed too.
  void closeOpen(TXInput& input, double lateness = 0.0) {
    if (lateness > 0) TXInput::pumpUntil([this] { return m_Open; }, lateness);
    for (int tries = 0; m_Open && tries < 5; ++tries) {
      input.key("Escape");
      TXInput::pumpUntil([this] { return !m_Open; }, 0.5);
    }
    TXInput::pump(0.02);
  }
  bool isOpen() const { return m_Open; }

 private:
  void onOpen(wxMenuEvent& event) {
    if (event.GetMenu() && !event.IsPopup()) {
      m_Opened = event.GetMenu();
      m_Open = true;
    }
    event.Skip();
  }
  void onClose(wxMenuEvent& event) {
    if (!event.IsPopup()) m_Open = false;
    event.Skip();
  }

  wxFrame* m_Frame;
  wxMenu* m_Opened = nullptr;
  bool m_Open = false;
  std::map<size_t, wxPoint> m_Centres;
};

// The middle of the left part of a page's tab in a notebook, on the screen;
// the left part, because the right end of the front tab closes it. None
// when the tab is not shown: with more tabs than room, the strip shows some
// and arrows to scroll to the others.
inline std::optional<wxPoint> tabOf(wxAuiNotebook* book, wxWindow* page) {
  for (wxWindow* child : book->GetChildren()) {
    auto* tabs = dynamic_cast<wxAuiTabCtrl*>(child);
    if (!tabs) continue;
    const int room = tabs->GetClientSize().x - 60;  // the strip's own buttons at the right
    // Tabs scrolled out of the strip keep the places where they were last
    // drawn: only those from the offset on are where the strip shows them.
    for (size_t i = tabs->GetTabOffset(); i < tabs->GetPageCount(); ++i) {
      const wxAuiNotebookPage& p = tabs->GetPage(i);
      if (p.window != page) continue;
      if (p.rect.width <= 12 || p.rect.x < 0 || p.rect.x + 12 > room) return std::nullopt;
      const wxPoint at(p.rect.x + 6, p.rect.y + p.rect.height / 2);
      // The tab a click there selects must be this one.
      wxWindow* hit = nullptr;
      if (!tabs->TabHitTest(at.x, at.y, &hit) || hit != page) return std::nullopt;
      return tabs->ClientToScreen(at);
    }
  }
  return std::nullopt;
}

}  // namespace quorvel::test
