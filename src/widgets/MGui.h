// What all windows of the shell share: the GUI manager, child frames, sizer
// panels, the log window, the virtual list and the owner-drawn list, and
// action lists turned into menus and run by key or name.
#pragma once

#include <pybind11/pybind11.h>
// The toolkit's settings come first: the MDI header tests them.
#include <wx/wx.h>
#include <wx/aui/tabmdi.h>
#include <wx/listctrl.h>
#include <wx/minifram.h>
#include <wx/vlbox.h>
#include <wx/weakref.h>
#include <wx/wx.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "engine/MFlowObjects.h"
#include "engine/MActionList.h"

namespace quorvel {

// Texts from the core are UTF-8 and may hold bytes that are not: those show
// as escapes.
wxString wxText(const std::string& text);
std::string stdText(const wxString& text);

// ---------------------------------------------------------------------------
// Windows on pins. A `gui parent` pin holds a script object that refers to a
// window without owning it; the window may go at any time.

struct TWindowRef {
  wxWeakRef<wxWindow> window;
  bool alive() const { return window.get() != nullptr; }
};

// A TPythonData holding a reference to the window.
TDataPtr windowData(wxWindow* window);
// The window a value on a pin refers to; null when none or gone.
wxWindow* windowOf(const TDataPtr& data);
template <class T>
T* windowAs(const TDataPtr& data) {
  return dynamic_cast<T*>(windowOf(data));
}

// A panel whose member `sizer` receives what is built into it.
class TSizerPanel : public wxPanel {
 public:
  explicit TSizerPanel(wxWindow* parent, wxWindowID id = wxID_ANY, bool sizeevents = false);
  wxBoxSizer* sizer;
};

// A view's child window. Closing it destroys the processor's box; without a
// processor the user cannot close it.
class TChildFrame : public wxAuiMDIChildFrame {
 public:
  TChildFrame(wxAuiMDIParentFrame* parent, const wxString& title, const TProcessorPtr& processor = nullptr);
  void setPanel(wxWindow* child);
  // Brings the page to the front with the keyboard in it, as a click on its
  // tab does: a page left with the focus in another would come back to the
  // front as soon as the toolkit delivers that focus.
  void activateWithFocus();
  // Moves the keyboard into the page, unless it is there already.
  void focusContent();
  // The processor whose actions the main window's "&Tools" menu shows.
  std::weak_ptr<TAbstractProcessor> proc;
  std::weak_ptr<TAbstractProcessor> processor;
  bool hasProcessor = false;

#ifdef __WXGTK__
  // A child lives in a notebook page, not in a window of its own: the
  // top-level window's handler would treat the page as a GtkWindow (and
  // the toolkit complain on standard error for every view).
  void GTKHandleRealized() override { wxWindowGTK::GTKHandleRealized(); }
#endif

 private:
  void OnClose(wxCloseEvent& event);
  wxBoxSizer* m_Sizer;
};

class TLogWindow : public wxMiniFrame {
 public:
  explicit TLogWindow(wxWindow* parent, const wxString& title = "Log");
  void append(const wxString& text);
  wxTextCtrl* text;
};

// A report list in virtual mode whose texts come from callbacks.
class TVirtualListCtrl : public wxListCtrl {
 public:
  explicit TVirtualListCtrl(wxWindow* parent);

  std::vector<std::string> columns;
  std::optional<long> lastselection;
  std::function<std::string(long row, long column)> OnGetItemTextCallback;
  std::function<wxItemAttr*(long row)> OnGetItemAttrCallback;
  std::function<int(long row, long column)> OnGetItemColumnImageCallback;
  std::function<void(long column)> OnColumnRightClickCallback;
  std::function<void()> OnSelectCallback;

  void setItemCount(long count);
  void setColumns(const std::vector<std::string>& columns);
  std::vector<long> getSelection() const;
  void clearSelection();
  int pos2columnidx(int x) const;

 protected:
  wxString OnGetItemText(long item, long column) const override;
  wxItemAttr* OnGetItemAttr(long item) const override;
  int OnGetItemColumnImage(long item, long column) const override;
  int OnGetItemImage(long item) const override { return OnGetItemColumnImage(item, 0); }

 private:
  void selectRun(long from, long to);
  void OnItemSelected(wxListEvent& event);
  void OnLeftDown(wxMouseEvent& event);
  void OnRightDown(wxMouseEvent& event);
  void OnColRightClick(wxListEvent& event);
};

// An owner-drawn list of equal items; the owner draws each.
class TVListBox : public wxVListBox {
 public:
  TVListBox(wxWindow* parent, int size = 16);
  std::function<void(wxDC& dc, const wxRect& rect, size_t n)> drawItem;

 protected:
  void OnDrawItem(wxDC& dc, const wxRect& rect, size_t n) const override;
  wxCoord OnMeasureItem(size_t) const override { return m_Size; }

 private:
  int m_Size;
};

// ---------------------------------------------------------------------------
// Menus from action lists

// What the items of one or more menus run: item id -> (func, args).
class TEventMap {
 public:
  // Item ids come from the count of entries; the window ids used for them
  // start above the toolkit's own.
  static constexpr int kFirstId = wxID_HIGHEST + 2000;
  explicit TEventMap(int firstId = kFirstId) : m_FirstId(firstId) {}
  int add(pybind11::object func, pybind11::tuple args);
  size_t size() const { return m_Entries.size(); }
  // Runs the entry of a window id; false when the id is not one of these.
  bool run(int windowId) const;

 private:
  int m_FirstId;
  std::vector<std::pair<pybind11::object, pybind11::tuple>> m_Entries;
};

// The text of an entry as a menu shows it: the name, and the key that runs
// it in brackets. The key is a hint only; keys act through processKey.
wxString menuLabel(const TActionEntry& entry);

class TGuiMgr {
 public:
  explicit TGuiMgr(wxAuiMDIParentFrame* mainframe) : mainframe(mainframe) {}

  wxAuiMDIParentFrame* mainframe;
  std::map<wxWindow*, TChildFrame*> window2frame;
  wxMenu* activepopupmenu = nullptr;
  // The main window is closing: windows that keep themselves open (those
  // of no processor, as the flow canvases) go with it.
  bool closing = false;

  // Builds a child frame with that title and processor, calls ctor(frame)
  // for its content, and shows it.
  std::pair<wxWindow*, TChildFrame*> constructMdiWindow(const std::string& title,
                                                        const std::function<wxWindow*(wxWindow*)>& ctor,
                                                        const TProcessorPtr& processor = nullptr);
  void deleteMdiWindow(wxWindow* window);

  wxMenu* buildContextMenu(pybind11::handle list, const std::shared_ptr<TEventMap>& eventmap,
                           const std::set<std::string>* tags = nullptr);
  // Puts the entries of the list into a menu that exists, in place of what
  // it held: a menu that the toolkit shows must never be deleted.
  void refillMenu(wxMenu* menu, pybind11::handle list, const std::shared_ptr<TEventMap>& eventmap,
                  const std::set<std::string>* tags = nullptr);
  void showContextMenu(wxWindow* parent, pybind11::handle list, const std::set<std::string>* tags = nullptr);

 private:
  void appendEntries(wxMenu* menu, const std::vector<TActionEntry>& entries, TEventMap& eventmap,
                     const std::set<std::string>* tags);
  void OnMenuHighlight(wxMenuEvent& event);
};

// The one GUI manager of the process (me.guimgr); null before the main
// window exists.
TGuiMgr* guiMgr();
void setGuiMgr(std::unique_ptr<TGuiMgr> mgr);
// The main window, parent of dialogs; null before it exists.
wxWindow* mainWindow();

// Runs the entries on the `actions` pin of a window's processor that match
// the key; the event is passed on.
void processKey(const TProcessorPtr& processor, wxKeyEvent& event);
// Runs every entry of that name on the pin's list.
void executeAction(const TPinPtr& pin, const std::string& name);

// The toolkit's failed assertions go to the log (and standard error) instead
// of a dialog that would wait for a click; `also` sees each one too.
void logToolkitAsserts(void (*also)(const std::string& text) = nullptr);

// The pixels of a part of the screen as it is now; an empty image when the
// screen cannot be read.
wxImage grabScreen(const wxRect& rect);

// The script object of an action list on a pin; None when there is none.
pybind11::object actionListOn(const TPinPtr& pin);

}  // namespace quorvel
