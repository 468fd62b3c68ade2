#include "MGui.h"

#include "widgets/MControlWidgets.h"

#include <functional>

#include "data/MValues.h"
#include "engine/MMediator.h"
#include "engine/MPython.h"

namespace py = pybind11;

namespace quorvel {

static_assert(kKeyLeft == WXK_LEFT && kKeyRight == WXK_RIGHT && kKeyF1 == WXK_F1 && kKeyF12 == WXK_F12,
              "the core's key codes are the toolkit's");

wxString wxText(const std::string& text) { return wxString::FromUTF8(utf8Safe(text)); }

std::string stdText(const wxString& text) {
  const wxScopedCharBuffer buf = text.utf8_str();
  return std::string(buf.data(), buf.length());
}

// ---------------------------------------------------------------------------

TDataPtr windowData(wxWindow* window) {
  TWindowRef ref;
  ref.window = window;
  py::object obj = py::cast(ref);
  return std::make_shared<TPythonData>(TPyRef::borrow(obj.ptr()));
}

wxWindow* windowOf(const TDataPtr& data) {
  auto value = std::dynamic_pointer_cast<TPythonData>(data);
  if (!value || !value->getValue() || value->getValue().isNone()) return nullptr;
  py::handle h(value->getValue().get());
  if (!py::isinstance<TWindowRef>(h)) return nullptr;
  return h.cast<TWindowRef&>().window.get();
}

TSizerPanel::TSizerPanel(wxWindow* parent, wxWindowID id, bool) : wxPanel(parent, id) {
  sizer = new wxBoxSizer(wxHORIZONTAL);
  SetSizer(sizer);
}

// ---------------------------------------------------------------------------

TChildFrame::TChildFrame(wxAuiMDIParentFrame* parent, const wxString& title, const TProcessorPtr& proc)
    : processor(proc), hasProcessor(proc != nullptr) {
  // Made in two steps, so that the toolkit's calls while it makes the
  // window already reach this class.
  Create(parent, wxID_ANY, title);
  // A page brought to the front shows what its windows last drew, unless
  // they draw again: a canvas that changed while hidden would show its old
  // picture.
  Bind(wxEVT_SHOW, [this](wxShowEvent& event) {
    event.Skip();
    if (!event.IsShown()) return;
    CallAfter([this] {
      std::function<void(wxWindow*)> refresh = [&](wxWindow* w) {
        w->Refresh(false);
        for (wxWindow* child : w->GetChildren()) refresh(child);
      };
      refresh(this);
    });
  });
  m_Sizer = new wxBoxSizer(wxHORIZONTAL);
  SetSizer(m_Sizer);
  Bind(wxEVT_CLOSE_WINDOW, &TChildFrame::OnClose, this);
}

void TChildFrame::setPanel(wxWindow* child) {
  m_Sizer->Add(child, 1, wxEXPAND);
  CallAfter([this] { Layout(); });
}

void TChildFrame::activateWithFocus() {
  Activate();
  focusContent();
}

void TChildFrame::focusContent() {
  for (wxWindow* w = wxWindow::FindFocus(); w; w = w->GetParent())
    if (w == this) return;
  std::function<wxWindow*(wxWindow*)> focusable = [&](wxWindow* w) -> wxWindow* {
    for (wxWindow* child : w->GetChildren()) {
      if (child->IsShown() && child->AcceptsFocus()) return child;
      if (wxWindow* inner = focusable(child)) return inner;
    }
    return nullptr;
  };
  if (wxWindow* target = focusable(this)) target->SetFocus();
}

void TChildFrame::OnClose(wxCloseEvent& event) {
  if (!hasProcessor && !(guiMgr() && guiMgr()->closing)) {
    event.Veto();
    return;
  }
  // Closing the window removes the view's part of the network; the window
  // goes with the processor that made it.
  if (auto p = processor.lock()) {
    if (p->m_Box) {
      try {
        p->m_Box->destroy();
      } catch (...) {
        handleException(std::current_exception());
      }
    }
  }
  if (!IsBeingDeleted()) Destroy();
}

// ---------------------------------------------------------------------------

TLogWindow::TLogWindow(wxWindow* parent, const wxString& title)
    : wxMiniFrame(parent, wxID_ANY, title, wxDefaultPosition, wxSize(600, 600),
                  wxCAPTION | wxCLOSE_BOX | wxRESIZE_BORDER | wxSYSTEM_MENU) {
  text = new wxTextCtrl(this, wxID_ANY, "", wxDefaultPosition, wxDefaultSize, wxTE_MULTILINE | wxTE_READONLY);
  Centre();
}

void TLogWindow::append(const wxString& more) { text->AppendText(more); }

// ---------------------------------------------------------------------------

TVirtualListCtrl::TVirtualListCtrl(wxWindow* parent)
    : wxListCtrl(parent, wxID_ANY, wxDefaultPosition, wxDefaultSize, wxLC_REPORT | wxLC_VIRTUAL) {
  OnSelectCallback = [] { std::puts("You need to rebind OnSelectCallback"); };
  Bind(wxEVT_LIST_ITEM_SELECTED, &TVirtualListCtrl::OnItemSelected, this);
  Bind(wxEVT_LEFT_DOWN, &TVirtualListCtrl::OnLeftDown, this);
  Bind(wxEVT_RIGHT_DOWN, &TVirtualListCtrl::OnRightDown, this);
  Bind(wxEVT_LIST_COL_RIGHT_CLICK, &TVirtualListCtrl::OnColRightClick, this);
}

void TVirtualListCtrl::setItemCount(long count) {
  Freeze();
  SetItemCount(count);
  Refresh();
  Thaw();
}

void TVirtualListCtrl::setColumns(const std::vector<std::string>& headers) {
  Freeze();
  std::vector<int> widths;
  for (int i = 0; i < GetColumnCount(); ++i) widths.push_back(GetColumnWidth(i));
  for (int i = GetColumnCount() - 1; i >= 0; --i) DeleteColumn(i);
  for (size_t i = 0; i < headers.size(); ++i) {
    InsertColumn(static_cast<long>(i), wxText(headers[i]));
    if (i < widths.size()) SetColumnWidth(static_cast<int>(i), widths[i]);
  }
  columns = headers;
  Thaw();
}

std::vector<long> TVirtualListCtrl::getSelection() const {
  std::vector<long> rows;
  for (long i = GetNextItem(-1, wxLIST_NEXT_ALL, wxLIST_STATE_SELECTED); i != -1;
       i = GetNextItem(i, wxLIST_NEXT_ALL, wxLIST_STATE_SELECTED))
    rows.push_back(i);
  return rows;
}

void TVirtualListCtrl::clearSelection() {
  for (long i : getSelection()) {
    if (!SetItemState(i, 0, wxLIST_STATE_SELECTED)) std::printf("*** EXCP: itemid %ld\n", i);
  }
}

int TVirtualListCtrl::pos2columnidx(int x) const {
  int right = 0;
  const int count = GetColumnCount();
  for (int i = 0; i < count; ++i) {
    right += GetColumnWidth(i);
    if (x < right) return i;
  }
  return count - 1;
}

wxString TVirtualListCtrl::OnGetItemText(long item, long column) const {
  return OnGetItemTextCallback ? wxText(OnGetItemTextCallback(item, column)) : wxString();
}

wxItemAttr* TVirtualListCtrl::OnGetItemAttr(long item) const {
  return OnGetItemAttrCallback ? OnGetItemAttrCallback(item) : nullptr;
}

int TVirtualListCtrl::OnGetItemColumnImage(long item, long column) const {
  return OnGetItemColumnImageCallback ? OnGetItemColumnImageCallback(item, column) : -1;
}

void TVirtualListCtrl::selectRun(long from, long to) {
  // The rows from the smaller end up to, and not including, the larger end.
  const long lo = std::min(from, to);
  const long hi = std::max(from, to);
  for (long i = lo; i < hi; ++i) SetItemState(i, wxLIST_STATE_SELECTED, wxLIST_STATE_SELECTED);
}

void TVirtualListCtrl::OnItemSelected(wxListEvent& event) {
  static bool inside = false;
  // Rows also come selected from the network; a list behind another tab
  // takes no focus, or its page would come to the front by itself.
  if (IsShownOnScreen()) SetFocus();
  event.Skip();
  const long row = event.GetIndex();
  if (inside || row < 0 || row >= GetItemCount()) return;
  inside = true;
  if (wxGetKeyState(WXK_SHIFT) && lastselection) selectRun(*lastselection, row);
  inside = false;
  lastselection = row;
  if (OnSelectCallback) OnSelectCallback();
}

void TVirtualListCtrl::OnLeftDown(wxMouseEvent& event) {
  if (!event.ShiftDown()) {
    event.Skip();
    return;
  }
  int flags = 0;
  const long row = HitTest(event.GetPosition(), flags);
  if (row < 0 || row >= GetItemCount()) return;
  if (lastselection) selectRun(*lastselection, row);
  lastselection = row;
  if (OnSelectCallback) OnSelectCallback();
}

void TVirtualListCtrl::OnRightDown(wxMouseEvent& event) {
  int flags = 0;
  const long row = HitTest(event.GetPosition(), flags);
  if (row >= 0 && row < GetItemCount()) SetItemState(row, wxLIST_STATE_SELECTED, wxLIST_STATE_SELECTED);
  event.Skip();
}

void TVirtualListCtrl::OnColRightClick(wxListEvent& event) {
  if (OnColumnRightClickCallback) OnColumnRightClickCallback(event.GetColumn());
}

// ---------------------------------------------------------------------------

TVListBox::TVListBox(wxWindow* parent, int size)
    : wxVListBox(parent, wxID_ANY, wxDefaultPosition, wxDefaultSize, wxLB_MULTIPLE | wxALWAYS_SHOW_SB), m_Size(size) {}

void TVListBox::OnDrawItem(wxDC& dc, const wxRect& rect, size_t n) const {
  if (drawItem) drawItem(dc, rect, n);
}

// ---------------------------------------------------------------------------

int TEventMap::add(py::object func, py::tuple args) {
  m_Entries.emplace_back(std::move(func), std::move(args));
  return m_FirstId + static_cast<int>(m_Entries.size() - 1);
}

bool TEventMap::run(int windowId) const {
  const int index = windowId - m_FirstId;
  if (index < 0 || index >= static_cast<int>(m_Entries.size())) return false;
  const auto& [func, args] = m_Entries[static_cast<size_t>(index)];
  if (func && !func.is_none()) func(*args);
  return true;
}

namespace {
std::unique_ptr<TGuiMgr> g_GuiMgr;
}

TGuiMgr* guiMgr() { return g_GuiMgr.get(); }
void setGuiMgr(std::unique_ptr<TGuiMgr> mgr) { g_GuiMgr = std::move(mgr); }
wxWindow* mainWindow() { return g_GuiMgr ? g_GuiMgr->mainframe : nullptr; }

std::pair<wxWindow*, TChildFrame*> TGuiMgr::constructMdiWindow(const std::string& title,
                                                               const std::function<wxWindow*(wxWindow*)>& ctor,
                                                               const TProcessorPtr& processor) {
  auto* frame = new TChildFrame(mainframe, wxText(title), processor);
  wxWindow* content = ctor(frame);
  window2frame[content] = frame;
  frame->setPanel(content);
  frame->Show();
  return {content, frame};
}

void TGuiMgr::deleteMdiWindow(wxWindow* window) {
  auto it = window2frame.find(window);
  if (it == window2frame.end()) return;
  TChildFrame* frame = it->second;
  window2frame.erase(it);
  // The content goes with its frame.
  if (frame && !frame->IsBeingDeleted()) frame->Destroy();
}

void TGuiMgr::appendEntries(wxMenu* menu, const std::vector<TActionEntry>& entries, TEventMap& eventmap,
                            const std::set<std::string>* tags) {
  for (const auto& e : entries) {
    switch (e.kind) {
      case TActionEntry::Kind::Separator: {
        // Never first, never two in a row; one at the end is taken away.
        const size_t n = menu->GetMenuItemCount();
        if (n > 0 && !menu->FindItemByPosition(n - 1)->IsSeparator()) menu->AppendSeparator();
        break;
      }
      case TActionEntry::Kind::Submenu: {
        auto* sub = new wxMenu();
        appendEntries(sub, e.children, eventmap, nullptr);
        menu->AppendSubMenu(sub, wxText(e.name));
        break;
      }
      case TActionEntry::Kind::Action: {
        if (!e.passes(tags)) break;
        const int id = eventmap.add(e.func, e.args);
        if (!e.enabled.has_value()) break;  // runs by name only
        menu->Append(id, menuLabel(e), wxText(e.help));
        menu->Enable(id, *e.enabled);
        break;
      }
    }
  }
  const size_t n = menu->GetMenuItemCount();
  if (n > 0 && menu->FindItemByPosition(n - 1)->IsSeparator()) menu->Destroy(menu->FindItemByPosition(n - 1));
}

wxMenu* TGuiMgr::buildContextMenu(py::handle list, const std::shared_ptr<TEventMap>& eventmap,
                                  const std::set<std::string>* tags) {
  auto* menu = new wxMenu();
  appendEntries(menu, parseActionList(list), *eventmap, tags);
  return menu;
}

void TGuiMgr::refillMenu(wxMenu* menu, py::handle list, const std::shared_ptr<TEventMap>& eventmap,
                         const std::set<std::string>* tags) {
  while (menu->GetMenuItemCount() > 0) menu->Destroy(menu->FindItemByPosition(0));
  appendEntries(menu, parseActionList(list), *eventmap, tags);
}

wxString menuLabel(const TActionEntry& entry) {
  // A tab would make the toolkit read the rest as an accelerator of its
  // own, which it cannot parse and which would act beside processKey.
  const std::string key = entry.keyText();
  return wxText(key.empty() ? entry.name : entry.name + "  " + key);
}

void TGuiMgr::showContextMenu(wxWindow* parent, py::handle list, const std::set<std::string>* tags) {
  auto eventmap = std::make_shared<TEventMap>();
  std::unique_ptr<wxMenu> menu(buildContextMenu(list, eventmap, tags));
  // The settings of the view the menu belongs to.
  for (wxWindow* w = parent; w; w = w->GetParent())
    if (auto* child = dynamic_cast<TChildFrame*>(w)) {
      if (auto processor = child->processor.lock()) addSettingsEntries(processor->m_Box, menu.get(), *eventmap);
      break;
    }
  menu->Bind(wxEVT_MENU, [eventmap](wxCommandEvent& event) {
    try {
      eventmap->run(event.GetId());
    } catch (...) {
      handleException(std::current_exception());
    }
  });
  mainframe->Bind(wxEVT_MENU_HIGHLIGHT, &TGuiMgr::OnMenuHighlight, this);
  activepopupmenu = menu.get();
  mainframe->PopupMenu(menu.get());
  activepopupmenu = nullptr;
  mainframe->Unbind(wxEVT_MENU_HIGHLIGHT, &TGuiMgr::OnMenuHighlight, this);
}

void TGuiMgr::OnMenuHighlight(wxMenuEvent& event) {
  wxMenuItem* item = activepopupmenu ? activepopupmenu->FindItem(event.GetMenuId()) : nullptr;
  if (!item) return;
  if (auto* bar = mainframe->GetStatusBar()) bar->SetStatusText(item->GetHelp());
}

// ---------------------------------------------------------------------------

namespace {
void (*g_AssertAlso)(const std::string&) = nullptr;

void onToolkitAssert(const wxString& file, int line, const wxString& func, const wxString& cond,
                     const wxString& msg) {
  const std::string text = "Toolkit assertion '" + stdText(cond) + "' failed in " + stdText(func) + " (" +
                           stdText(file) + ":" + std::to_string(line) + "): " + stdText(msg);
  std::fprintf(stderr, "%s\n", text.c_str());
  logError(text);
  if (g_AssertAlso) g_AssertAlso(text);
}
}  // namespace

void logToolkitAsserts(void (*also)(const std::string& text)) {
  g_AssertAlso = also;
  wxSetAssertHandler(&onToolkitAssert);
}

py::object actionListOn(const TPinPtr& pin) {
  if (!pin) return py::none();
  auto value = std::dynamic_pointer_cast<TPythonData>(pin->getData());
  if (!value || !value->getValue()) return py::none();
  return py::reinterpret_borrow<py::object>(value->getValue().get());
}

void processKey(const TProcessorPtr& processor, wxKeyEvent& event) {
  event.Skip();
  if (!processor) return;
  try {
    runActionsForKey(actionListOn(processor->getInputPinByName("actions")), event.GetKeyCode(), event.ShiftDown(),
                     event.ControlDown());
  } catch (...) {
    handleException(std::current_exception());
  }
}

void executeAction(const TPinPtr& pin, const std::string& name) { runActionsByName(actionListOn(pin), name); }

}  // namespace quorvel
