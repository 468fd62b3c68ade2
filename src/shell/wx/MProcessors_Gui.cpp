#include "MProcessors_Gui.h"

#include <deque>

#include "data/MValues.h"
#include "render/wx/MGlCanvas.h"
#include "engine/MActionList.h"
#include "shell/wx/MMainFrame.h"
#include "engine/MRegistry.h"

namespace py = pybind11;

namespace quorvel {

void TMdiChildCreator::beforeprocess_python() {
  if (m_Made || !guiMgr()) return;
  m_Made = true;
  auto [content, child] = guiMgr()->constructMdiWindow(
      "Mdi child", [](wxWindow* parent) { return new TSizerPanel(parent, wxID_ANY); }, selfPtr());
  panel = static_cast<TSizerPanel*>(content);
  frame = child;
  child->proc = selfPtr();
  m_Out->setData(windowData(content));
}

void TMdiChildCreator::process_python() {
  if (m_GuiTitle->hasChanged() && frame) {
    auto title = std::dynamic_pointer_cast<TStringData>(m_GuiTitle->getData());
    frame->SetTitle(title ? wxText(title->getValue()) : wxString());
  }
  if (m_Actions->hasChanged()) actions = actionListOn(m_Actions);
  resetPins({});
}

void TMdiChildCreator::destroy_python() {
  if (panel && guiMgr()) guiMgr()->deleteMdiWindow(panel);
  panel = nullptr;
  frame = nullptr;
}

// ---------------------------------------------------------------------------

TSplitterWindow::TSplitterWindow(wxWindow* parent, const TProcessorPtr& processor)
    : wxSplitterWindow(parent, wxID_ANY, wxDefaultPosition, wxDefaultSize, wxSP_3D | wxSP_LIVE_UPDATE),
      m_Processor(processor) {
  SetMinimumPaneSize(1);
  Bind(wxEVT_SPLITTER_DOUBLECLICKED, [this](wxSplitterEvent& event) {
    event.Veto();
    auto p = m_Processor.lock();
    if (!p) return;
    auto state = std::dynamic_pointer_cast<TBooleanData>(p->getInputPinByName("sash collapse state")->getData());
    p->getInputPinByName("sash collapse state")->setData(std::make_shared<TBooleanData>(!(state && state->getValue())));
    runFlowNow();
  });
  // A sash the user moves is stored, as a distance from the right edge
  // when the position counts from there.
  Bind(wxEVT_SPLITTER_SASH_POS_CHANGED, [this](wxSplitterEvent& event) {
    event.Skip();
    auto p = m_Processor.lock();
    if (!p) return;
    auto collapsed = std::dynamic_pointer_cast<TBooleanData>(p->getInputPinByName("sash collapse state")->getData());
    if (collapsed && collapsed->getValue()) return;
    auto now = std::dynamic_pointer_cast<TIntegerData>(p->getInputPinByName("sash position")->getData());
    const int at = event.GetSashPosition();
    const int stored = now && now->getValue() < 0 ? at - GetClientSize().x : at;
    p->getInputPinByName("sash position")->setData(std::make_shared<TIntegerData>(stored));
    runFlowNow();
  });
  Bind(wxEVT_SIZE, [this](wxSizeEvent& event) {
    event.Skip();
    if (!pending || GetClientSize().x <= 0) return;
    const int want = *pending;
    if (GetClientSize().x > std::abs(want) + 50) pending.reset();
    CallAfter([this, want] { SetSashPosition(want); });
  });
}

void TSplitterWindow::update() {
  auto p = m_Processor.lock();
  if (!p) return;
  auto direction = std::dynamic_pointer_cast<TBooleanData>(p->getInputPinByName("sash collapse direction")->getData());
  auto collapsed = std::dynamic_pointer_cast<TBooleanData>(p->getInputPinByName("sash collapse state")->getData());
  auto position = std::dynamic_pointer_cast<TIntegerData>(p->getInputPinByName("sash position")->getData());
  const bool secondGivesWay = direction ? direction->getValue() : true;
  SetSashGravity(secondGivesWay ? 1.0 : 0.0);
  // A folded pane is hidden as well: its windows would be squeezed to
  // nothing.
  wxWindow* folding = secondGivesWay ? GetWindow2() : GetWindow1();
  if (collapsed && collapsed->getValue()) {
    if (folding) folding->Hide();
    SetSashPosition(secondGivesWay ? -1 : 1);
  } else {
    if (folding) folding->Show();
    if (position) SetSashPosition(position->getValue());
  }
}

void TSplitWindowProcessor::process_python() {
  if (!m_SashCollapseState->getData()) {
    // The other changes wait for the next pass, which this value brings.
    m_SashCollapseState->setData(std::make_shared<TBooleanData>(false));
    return;
  }
  auto* parent = windowAs<TSizerPanel>(m_In->getData());
  if (m_In->hasChanged() && parent) {
    auto* split = new TSplitterWindow(parent, selfPtr());
    parent->sizer->Add(split, 1, wxEXPAND);
    auto* one = new TSizerPanel(split);
    auto* two = new TSizerPanel(split);
    auto position = std::dynamic_pointer_cast<TIntegerData>(m_SashPosition->getData());
    split->SplitVertically(one, two, position ? position->getValue() : 200);
    split->pending = position ? position->getValue() : 200;
    parent->Layout();
    splitter = split;
    m_Out1->setData(windowData(one));
    m_Out2->setData(windowData(two));
  }
  auto position = std::dynamic_pointer_cast<TIntegerData>(m_SashPosition->getData());
  if (m_SashPosition->hasChanged() && position && parent && splitter) splitter->SetSashPosition(position->getValue());
  if (m_SashCollapseState->hasChanged() && parent && splitter) splitter->update();
  resetPins({});
}

// ---------------------------------------------------------------------------

void TGlCanvasActions::postCreate() {
  TGlCanvasActionsCpp::postCreate();
  process_python();
}

void TGlCanvasActions::process_python() {
  resetPins({});
  std::weak_ptr<TAbstractProcessor> weak = selfPtr();
  auto screenshot = py::cpp_function([weak](py::object filename, bool large) {
    auto self = std::dynamic_pointer_cast<TGlCanvasActions>(weak.lock());
    if (!self) return;
    self->OnScreenshot(filename.is_none() ? std::nullopt : std::optional<std::string>(py::str(filename)), large);
  });
  auto entry = [&](const char* name, bool large, const char* help, bool shift) {
    py::dict d;
    d["name"] = name;
    d["func"] = screenshot;
    d["args"] = py::make_tuple(py::none(), large);
    d["help"] = help;
    d["enabled"] = true;
    d["key"] = py::make_tuple(kKeyF1 + 10, shift, false);
    d["tags"] = py::make_tuple("menubar");
    return d;
  };
  py::list list;
  list.append(entry("Make screenshot", false, "Make a screenshot and put it on the clipboard.", false));
  list.append(entry("Make large screenshot", true, "Make a large screenshot and put it on the clipboard.", true));
  m_Actions->setData(std::make_shared<TPythonData>(TPyRef::borrow(list.ptr())));
}

void TGlCanvasActions::OnScreenshot(const std::optional<std::string>& filename, bool large) {
  if (!m_Box) return;
  auto mdi = m_Box->getProcessorByType<TMdiChildCreator>();
  if (!mdi || !mdi->frame) return;
  // Breadth first through the window tree; the last canvas met counts.
  TGlCanvasBase* canvas = nullptr;
  std::deque<wxWindow*> queue{mdi->frame.get()};
  while (!queue.empty()) {
    wxWindow* w = queue.front();
    queue.pop_front();
    if (auto* c = dynamic_cast<TGlCanvasBase*>(w)) canvas = c;
    for (wxWindow* child : w->GetChildren()) queue.push_back(child);
  }
  if (!canvas) return;
  if (large)
    canvas->makeScreenshotLarge(filename);
  else
    canvas->makeScreenshot(filename);
}

// ---------------------------------------------------------------------------

bool TListHeaderActions::shiftDown() const { return wxGetKeyState(WXK_SHIFT); }

void TListHeaderActions::OnConfigureColumns() {
  TProcessorPtr picker = getConnectedProcessor("attributes");
  if (auto* owner = dynamic_cast<TSettingsFrameOwner*>(picker.get())) owner->constructSettingsFrame(nullptr);
}

// ---------------------------------------------------------------------------

namespace {

std::vector<size_t> markedRows(wxListBox* list) {
  wxArrayInt rows;
  list->GetSelections(rows);
  std::vector<size_t> out;
  for (int r : rows) out.push_back(static_cast<size_t>(r));
  std::sort(out.begin(), out.end());
  return out;
}

std::string dialogTitle(TSubArrayPicker& picker) {
  if (auto settings = dataAs<TPythonData>(picker.m_Settings); settings && settings->getValue()) {
    py::handle d(settings->getValue().get());
    if (py::isinstance<py::dict>(d) && d.contains("name")) return py::str(d["name"]).cast<std::string>();
  }
  return picker.getTypeName();
}

}  // namespace

TSubArrayPickerDialog::TSubArrayPickerDialog(wxWindow* parent, TSubArrayPicker& picker)
    : wxDialog(parent, wxID_ANY, wxText(dialogTitle(picker)), wxDefaultPosition, wxDefaultSize,
               wxDEFAULT_DIALOG_STYLE | wxRESIZE_BORDER),
      editor(dataAs<TStringListData>(picker.m_Keys) ? dataAs<TStringListData>(picker.m_Keys)->m_List
                                                    : std::vector<std::string>{},
             dataAs<TDataArray>(picker.m_Array).get()),
      m_Picker(picker.selfPtr()) {
  auto* panel = new wxPanel(this, wxID_ANY, wxDefaultPosition, wxSize(400, 200));
  auto* grid = new wxFlexGridSizer(2, 3, 4, 4);
  grid->AddGrowableCol(0, 1);
  grid->AddGrowableCol(2, 1);
  grid->AddGrowableRow(1, 1);
  grid->Add(new wxStaticText(panel, wxID_ANY, "Selected:"));
  grid->AddSpacer(0);
  grid->Add(new wxStaticText(panel, wxID_ANY, "Available:"));
  selectedList = new wxListBox(panel, wxID_ANY, wxDefaultPosition, wxDefaultSize, 0, nullptr, wxLB_EXTENDED);
  availableList = new wxListBox(panel, wxID_ANY, wxDefaultPosition, wxDefaultSize, 0, nullptr, wxLB_EXTENDED);
  auto* buttons = new wxBoxSizer(wxVERTICAL);
  for (const char* label : {"<-", "->", "up", "down", "clear"}) {
    auto* b = new wxButton(panel, wxID_ANY, label, wxDefaultPosition, wxSize(50, 20));
    b->Bind(wxEVT_BUTTON, [this, label](wxCommandEvent&) { press(label); });
    buttons->Add(b, 0, wxALL, 2);
  }
  grid->Add(selectedList, 1, wxEXPAND);
  grid->Add(buttons);
  grid->Add(availableList, 1, wxEXPAND);
  panel->SetSizer(grid);
  auto* sizer = new wxBoxSizer(wxVERTICAL);
  sizer->Add(panel, 1, wxEXPAND | wxALL, 5);
  auto* okCancel = new wxBoxSizer(wxHORIZONTAL);
  auto* ok = new wxButton(this, wxID_OK, "Ok");
  ok->Bind(wxEVT_BUTTON, [this](wxCommandEvent&) {
    apply();
    EndModal(wxID_OK);
  });
  okCancel->Add(ok, 0, wxALL, 2);
  okCancel->Add(new wxButton(this, wxID_CANCEL, "Cancel"), 0, wxALL, 2);
  sizer->Add(okCancel, 0, wxALIGN_RIGHT | wxALL, 5);
  SetSizerAndFit(sizer);
  for (const auto& k : editor.available) availableList->Append(wxText(k));
  refill();
}

void TSubArrayPickerDialog::refill(std::optional<size_t> mark) {
  selectedList->Clear();
  for (const auto& k : editor.selected) selectedList->Append(wxText(k));
  if (mark && *mark < editor.selected.size()) selectedList->SetSelection(static_cast<int>(*mark));
}

void TSubArrayPickerDialog::press(const std::string& button) {
  const std::vector<size_t> marked = markedRows(selectedList);
  if (button == "<-") {
    editor.add(markedRows(availableList));
    refill();
  } else if (button == "->") {
    editor.remove(marked);
    refill();
  } else if ((button == "up" || button == "down") && !marked.empty()) {
    refill(button == "up" ? editor.up(marked.front()) : editor.down(marked.front()));
  } else if (button == "clear") {
    editor.clear();
    refill();
  }
}

void TSubArrayPickerDialog::apply() {
  if (auto picker = std::dynamic_pointer_cast<TSubArrayPicker>(m_Picker.lock())) picker->applyKeys(editor.selected);
}

void registerGuiProcessors() {
  TSubArrayPicker::frameMaker() = [](TSubArrayPicker& picker, void* parent) {
    wxWindow* owner = parent ? static_cast<wxWindow*>(parent) : mainFrame();
    TSubArrayPickerDialog dialog(owner, picker);
    dialog.ShowModal();
  };
  auto& reg = TProcessorRegistry::instance();
  reg.add<TCommonNodeEdgeActions>();
  reg.add<TNodeEdgeActionsForView>();
  reg.add<THierarchyActions>();
  reg.add<TInternalSelectionActions>();
  reg.add<TListHeaderActions>();
  reg.add<TMdiChildCreator>();
  reg.add<TSplitWindowProcessor>();
  reg.add<TGlCanvasActions>();
}

}  // namespace quorvel
