#include "MProcessors_Gui.h"

#include "data/MValues.h"
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

void registerGuiProcessors() {
  auto& reg = TProcessorRegistry::instance();
  reg.add<TMdiChildCreator>();
  reg.add<TSplitWindowProcessor>();
}

}  // namespace quorvel
