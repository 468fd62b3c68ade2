#include "shell/wx/MCodeView.h"

#include <filesystem>
#include <fstream>

#include "engine/MMediator.h"
#include "engine/MRegistry.h"
#include "widgets/MGui.h"

namespace quorvel {

namespace fs = std::filesystem;

namespace {

const char* const kCppWords =
    "alignas alignof and asm auto bool break case catch char char8_t char16_t char32_t class concept const "
    "consteval constexpr constinit const_cast continue co_await co_return co_yield decltype default delete do "
    "double dynamic_cast else enum explicit export extern false float for friend goto if inline int long mutable "
    "namespace new noexcept not nullptr operator or private protected public register reinterpret_cast requires "
    "return short signed sizeof static static_assert static_cast struct switch template this thread_local throw "
    "true try typedef typeid typename union unsigned using virtual void volatile wchar_t while";

wxFont arial(int size, bool bold = false, bool underlined = false) {
  return wxFont(size, wxFONTFAMILY_SWISS, wxFONTSTYLE_NORMAL, bold ? wxFONTWEIGHT_BOLD : wxFONTWEIGHT_NORMAL,
                underlined, "Arial");
}

}  // namespace

TCodeTextPage::TCodeTextPage(wxWindow* parent, const std::string& file) : wxStyledTextCtrl(parent), filename(file) {
  // The bytes as they are: texts that are not UTF-8, or not text, still
  // show, their odd bytes marked by the control.
  std::ifstream in(file, std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  // Loaded without undo history and without change events, each of which
  // would copy the whole text once more.
  const int events = GetModEventMask();
  SetModEventMask(0);
  SetUndoCollection(false);
  AddTextRaw(bytes.data(), static_cast<int>(bytes.size()));
  SetUndoCollection(true);
  SetModEventMask(events);
  EmptyUndoBuffer();
  SetSavePoint();

  StyleSetForeground(wxSTC_STYLE_DEFAULT, *wxBLACK);
  StyleSetFont(wxSTC_STYLE_DEFAULT, arial(10));
  StyleClearAll();
  SetLexer(wxSTC_LEX_CPP);
  SetKeyWords(0, kCppWords);
  SetVisiblePolicy(wxSTC_VISIBLE_STRICT | wxSTC_VISIBLE_SLOP, 10);
  CmdKeyAssign('B', wxSTC_KEYMOD_CTRL, wxSTC_CMD_ZOOMIN);
  CmdKeyAssign('N', wxSTC_KEYMOD_CTRL, wxSTC_CMD_ZOOMOUT);
  SetMarginType(0, wxSTC_MARGIN_NUMBER);
  SetMarginWidth(0, 22);
  StyleSetFont(wxSTC_STYLE_LINENUMBER, arial(8));
  MarkerDefine(0, wxSTC_MARK_ARROW, *wxBLACK, *wxBLACK);
  IndicatorSetStyle(0, wxSTC_INDIC_ROUNDBOX);
  IndicatorSetForeground(0, *wxRED);
  SetCaretForeground(*wxBLUE);
  for (int style : {wxSTC_C_COMMENT, wxSTC_C_COMMENTLINE}) StyleSetForeground(style, wxColour("#007F00"));
  StyleSetForeground(wxSTC_C_NUMBER, wxColour("#007F7F"));
  StyleSetSize(wxSTC_C_NUMBER, 10);
  for (int style : {wxSTC_C_STRING, wxSTC_C_CHARACTER}) {
    StyleSetForeground(style, wxColour("#7F007F"));
    StyleSetFont(style, arial(10));
  }
  StyleSetForeground(wxSTC_C_WORD, wxColour("#00007F"));
  StyleSetFont(wxSTC_C_WORD, arial(10, true));
  StyleSetForeground(wxSTC_C_GLOBALCLASS, wxColour("#0000FF"));
  StyleSetFont(wxSTC_C_GLOBALCLASS, arial(10, true, true));
  Colourise(0, -1);
  // A double click in the text does nothing.
  Bind(wxEVT_LEFT_DCLICK, [](wxMouseEvent&) {});
}

int TCodeTextPage::positionOf(int line, int column) {
  const int last = std::max(0, GetLineCount() - 1);
  if (line > last) return GetLength();
  line = std::max(line, 0);
  const int start = PositionFromLine(line);
  return std::clamp(start + std::max(column, 0), start, GetLineEndPosition(line));
}

// ---------------------------------------------------------------------------

TCodePanel::TCodePanel(wxWindow* parent, TCodeTextControl* p) : wxPanel(parent), processor(p) {
  notebook = new wxAuiNotebook(this, wxID_ANY, wxDefaultPosition, wxDefaultSize,
                               wxAUI_NB_TOP | wxAUI_NB_TAB_MOVE | wxAUI_NB_SCROLL_BUTTONS | wxAUI_NB_CLOSE_ON_ALL_TABS);
  statustext = new wxStaticText(this, wxID_ANY, "", wxDefaultPosition, wxSize(200, 20),
                                wxST_NO_AUTORESIZE | wxBORDER_RAISED);
  auto* sizer = new wxBoxSizer(wxVERTICAL);
  sizer->Add(notebook, 1, wxEXPAND);
  sizer->Add(statustext, 0, wxEXPAND);
  SetSizer(sizer);
  if (auto* sized = dynamic_cast<TSizerPanel*>(parent)) {
    sized->sizer->Add(this, 1, wxEXPAND);
    sized->Layout();
  }
  // The tab to bring to the front is chosen when the notebook paints.
  auto switchNow = [this] {
    if (!switchtopage) return;
    for (size_t i = 0; i < notebook->GetPageCount(); ++i)
      if (auto* page = dynamic_cast<TCodeTextPage*>(notebook->GetPage(i)); page && page->filename == *switchtopage)
        notebook->SetSelection(i);
    switchtopage.reset();
  };
  notebook->Bind(wxEVT_PAINT, [switchNow](wxPaintEvent& e) {
    e.Skip();
    switchNow();
  });
  // The notebook's own area is covered by its tabs and pages: their paint
  // stands for it.
  Bind(wxEVT_IDLE, [switchNow](wxIdleEvent& e) {
    e.Skip();
    switchNow();
  });
  notebook->Bind(wxEVT_AUINOTEBOOK_PAGE_CLOSED, [this](wxAuiNotebookEvent& e) {
    e.Skip();
    rebuildPages();
  });
  // The child frames of the main window stand in a notebook of the same
  // kind: the tabs' events end here, or it would take them for its own.
  for (const wxEventTypeTag<wxAuiNotebookEvent>& type : {wxEVT_AUINOTEBOOK_PAGE_CHANGED, wxEVT_AUINOTEBOOK_PAGE_CHANGING,
                           wxEVT_AUINOTEBOOK_PAGE_CLOSE, wxEVT_AUINOTEBOOK_PAGE_CLOSED, wxEVT_AUINOTEBOOK_BUTTON,
                           wxEVT_AUINOTEBOOK_BEGIN_DRAG, wxEVT_AUINOTEBOOK_END_DRAG, wxEVT_AUINOTEBOOK_DRAG_MOTION,
                           wxEVT_AUINOTEBOOK_ALLOW_DND, wxEVT_AUINOTEBOOK_DRAG_DONE, wxEVT_AUINOTEBOOK_TAB_MIDDLE_DOWN,
                           wxEVT_AUINOTEBOOK_TAB_MIDDLE_UP, wxEVT_AUINOTEBOOK_TAB_RIGHT_DOWN,
                           wxEVT_AUINOTEBOOK_TAB_RIGHT_UP, wxEVT_AUINOTEBOOK_BG_DCLICK})
    Bind(type, [](wxAuiNotebookEvent&) {});
}

void TCodePanel::rebuildPages() {
  pages.clear();
  for (size_t i = 0; i < notebook->GetPageCount(); ++i)
    if (auto* page = dynamic_cast<TCodeTextPage*>(notebook->GetPage(i))) pages[page->filename] = page;
}

TCodeTextPage* TCodePanel::openPage(const std::string& filename, std::string& problem) {
  std::error_code ec;
  const auto status = fs::status(filename, ec);
  if (ec || !fs::exists(status)) {
    problem = "Cannot find file '" + filename + "'";
    return nullptr;
  }
  if (!fs::is_regular_file(status)) {
    problem = "Cannot show '" + filename + "': it is not a regular file";
    return nullptr;
  }
  const uintmax_t size = fs::file_size(filename, ec);
  if (ec || size > kLargestSourceFile) {
    problem = "Cannot show '" + filename + "': " + std::to_string(size >> 20) + " MB is more than the code view opens (" +
              std::to_string(kLargestSourceFile >> 20) + " MB)";
    return nullptr;
  }
  auto* page = new TCodeTextPage(notebook, filename);
  notebook->AddPage(page, wxString::FromUTF8(fs::path(filename).filename().string()));
  pages[filename] = page;
  return page;
}

void TCodePanel::update() {
  if (!processor || !processor->locationattr) return;
  TLocationGroups groups;
  try {
    groups = processor->groupSelection();
  } catch (const std::exception& e) {
    logError(e.what());
    statustext->SetLabel(wxString::FromUTF8(e.what()));
    return;
  }
  for (const auto& [file, locations] : groups.files) {
    if (pages.contains(file)) continue;
    std::string problem;
    if (!openPage(file, problem)) logWarning(problem);
  }
  for (auto& [name, page] : pages) {
    page->SetReadOnly(false);
    page->MarkerDeleteAll(0);
    page->SetIndicatorCurrent(0);
    page->IndicatorClearRange(0, page->GetLength());
  }
  size_t markers = 0;
  TCodeTextPage* first = nullptr;
  for (const auto& [file, locations] : groups.files) {
    auto it = pages.find(file);
    if (it == pages.end()) continue;
    TCodeTextPage* page = it->second;
    if (!first) first = page;
    for (const TSourceLocation& location : locations) {
      ++markers;
      const TTextRange r = zeroBased(location);
      const int from = page->positionOf(r.firstLine, r.firstColumn);
      const int to = page->positionOf(r.lastLine, r.lastColumn);
      page->GotoLine(100000);
      page->GotoLine(std::max(r.firstLine, 0));
      page->MarkerAdd(std::clamp(r.firstLine, 0, std::max(0, page->GetLineCount() - 1)), 0);
      page->SetIndicatorCurrent(0);
      if (to > from) page->IndicatorFillRange(from, to - from);
    }
  }
  if (first) {
    first->SetReadOnly(true);
    switchtopage = first->filename;
    notebook->Refresh();
  }
  statustext->SetLabel(codeViewStatus(groups.nodes, markers));
}

// ---------------------------------------------------------------------------

void TCodeTextControl::process_python() {
  if (m_GuiParent->hasChanged())
    if (wxWindow* parent = windowOf(m_GuiParent->getData())) panel = new TCodePanel(parent, this);
  if (m_Attributes->hasChanged()) findLocationAttribute();
  const bool changed = m_NodeUserSelection->hasChanged() || m_BasePath->hasChanged() || m_NodeSelection->hasChanged();
  if (panel && changed && m_NodeUserSelection->getData() && m_NodeSelection->getData() && m_Attributes->getData())
    panel->update();
  resetPins({});
}

void TCodeTextControl::destroy_python() {
  if (panel) panel->processor = nullptr;
}

void registerCodeView() { TProcessorRegistry::instance().add<TCodeTextControl>(); }

}  // namespace quorvel
