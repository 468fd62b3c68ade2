#include "MProcessors_Gui.h"

#include <deque>

#include "data/MValues.h"
#include "render/MGlCanvas.h"
#include "shell/MActionList.h"
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
  if (collapsed && collapsed->getValue())
    SetSashPosition(secondGivesWay ? -1 : 1);
  else if (position)
    SetSashPosition(position->getValue());
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

void registerGuiProcessors() {
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
