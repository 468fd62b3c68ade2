#include "MListControlViewProcessor.h"

#include "data/MAttributes.h"
#include "engine/MMediator.h"
#include "engine/MRegistry.h"
#include "engine/MMediator.h"
#include "render/wx/MImageBuilder.h"

namespace py = pybind11;

namespace quorvel {

TListGuiProcessor::TPanel::TPanel(wxWindow* parent, const std::shared_ptr<TListGuiProcessor>& processor)
    : wxPanel(parent, wxID_ANY), m_Processor(processor) {
  auto* column = new wxBoxSizer(wxVERTICAL);
  listctrl = new TVirtualListCtrl(this);
  listctrl->SetMinSize(wxSize(200, 200));
  statustext = new wxStaticText(this, wxID_ANY, "", wxDefaultPosition, wxDefaultSize,
                                wxBORDER_RAISED | wxST_NO_AUTORESIZE);
  statustext->SetBackgroundColour(*wxWHITE);
  column->Add(listctrl, 1, wxEXPAND);
  column->Add(statustext, 0, wxEXPAND);
  SetSizer(column);
  listitemattr = wxItemAttr(*wxBLACK, wxColour(230, 230, 230), GetFont());

  listctrl->OnGetItemTextCallback = [this](long row, long col) -> std::string {
    auto p = proc();
    if (!p || !attributes || row < 0 || static_cast<size_t>(row) >= p->m_Row2Id.size()) return "";
    auto attr = attributes->itemAs<TAttributeData>(static_cast<size_t>(col));
    if (!attr) return "";
    bool found = false;
    std::string text = attr->getStringValueById(p->m_Row2Id[static_cast<size_t>(row)], found);
    return found ? text : "";
  };
  listctrl->OnGetItemAttrCallback = [this](long row) -> wxItemAttr* {
    auto p = proc();
    if (!p || row < 0 || static_cast<size_t>(row) >= p->m_Row2Id.size()) return nullptr;
    return selectionb.count(p->m_Row2Id[static_cast<size_t>(row)]) ? &listitemattr : nullptr;
  };
  listctrl->OnGetItemColumnImageCallback = [this](long row, long col) -> int {
    auto p = proc();
    if (col != 0 || !iconattr || !p || row < 0 || static_cast<size_t>(row) >= p->m_Row2Id.size()) return -1;
    bool found = false;
    const int32_t image = iconattr->getValueById(p->m_Row2Id[static_cast<size_t>(row)], found);
    return found ? image : -1;
  };
  listctrl->OnSelectCallback = [this] { onSelect(); };
  listctrl->OnColumnRightClickCallback = [this](long col) { onHeaderRightClick(col); };
  listctrl->Bind(wxEVT_LIST_COL_CLICK, &TPanel::OnColClick, this);
  listctrl->Bind(wxEVT_RIGHT_DOWN, &TPanel::OnRightDown, this);
  listctrl->Bind(wxEVT_LEFT_DCLICK, &TPanel::OnDoubleClick, this);
}

void TListGuiProcessor::TPanel::onSelect() {
  auto p = proc();
  if (!p) return;
  auto internal = std::dynamic_pointer_cast<TIntegerSetData>(p->m_InternalSelection->getData());
  if (!internal) return;
  internal->clear();
  for (long row : listctrl->getSelection()) {
    if (row < 0 || static_cast<size_t>(row) >= p->m_Row2Id.size()) continue;
    const uint32_t id = p->m_Row2Id[static_cast<size_t>(row)];
    internal->add(id);
    p->m_OnLeftClick->setData(std::make_shared<TIntegerData>(static_cast<int32_t>(id)));
  }
}

void TListGuiProcessor::TPanel::onHeaderRightClick(long column) {
  auto p = proc();
  if (!p) return;
  p->m_OnColumnRightClick->setData(std::make_shared<TIntegerData>(static_cast<int32_t>(column)));
  runFlowNow();
  const std::set<std::string> tags{"popup"};
  if (guiMgr()) guiMgr()->showContextMenu(this, actionListOn(p->m_HeaderActions), &tags);
}

void TListGuiProcessor::TPanel::OnColClick(wxListEvent& event) {
  auto p = proc();
  if (!p) return;
  try {
    p->m_OnColumnRightClick->setData(std::make_shared<TIntegerData>(event.GetColumn()));
    runFlowNow();
    executeAction(p->m_HeaderActions, "Toggle sort");
  } catch (...) {
    handleException(std::current_exception());
  }
}

void TListGuiProcessor::TPanel::OnRightDown(wxMouseEvent&) {
  // The selection stays as it is: the control does not see this press.
  auto p = proc();
  if (!p || !p->m_Actions->getData()) return;
  const std::set<std::string> tags{"popup"};
  if (guiMgr()) guiMgr()->showContextMenu(this, actionListOn(p->m_Actions), &tags);
}

void TListGuiProcessor::TPanel::OnDoubleClick(wxMouseEvent& event) {
  event.Skip();
  auto p = proc();
  if (!p) return;
  auto selectionB = std::dynamic_pointer_cast<TIntegerSetData>(p->m_SelectionB->getData());
  if (!selectionB) return;
  int flags = 0;
  const long row = listctrl->HitTest(event.GetPosition(), flags);
  if (row < 0 || static_cast<size_t>(row) >= p->m_Row2Id.size()) return;
  selectionB->clear();
  selectionB->add(p->m_Row2Id[static_cast<size_t>(row)]);
}

void TListGuiProcessor::TPanel::update() {
  auto p = proc();
  if (!p) return;
  attributes = std::dynamic_pointer_cast<TDataArray>(p->m_Attributes->getData());
  p->buildRow2Id();
  listctrl->setItemCount(static_cast<long>(p->m_Row2Id.size()));
  statustext->SetLabel(wxString::Format("%i items", static_cast<int>(p->m_Row2Id.size())));
}

// ---------------------------------------------------------------------------

template <class F>
void TListGuiProcessor::forPanels(F&& f) {
  std::vector<wxWeakRef<TPanel>> alive;
  for (auto& panel : panels) {
    if (!panel) continue;
    f(*panel);
    alive.push_back(panel);
  }
  panels.swap(alive);
}

wxWindow* TListGuiProcessor::createWidget(wxWindow* parent) {
  auto* panel = new TPanel(parent, std::static_pointer_cast<TListGuiProcessor>(selfPtr()));
  panels.emplace_back(panel);
  return panel;
}

void TListGuiProcessor::process_python() {
  ensureDefaults();
  if (m_GuiParent->hasChanged()) {
    if (auto* parent = windowAs<TSizerPanel>(m_GuiParent->getData())) {
      parent->sizer->Add(createWidget(parent), 1, wxEXPAND);
      parent->Layout();
    }
    resetPins({m_GuiParent});
    return;
  }
  if (m_InternalSelection->hasChanged()) {
    auto internal = std::dynamic_pointer_cast<TIntegerSetData>(m_InternalSelection->getData());
    if (internal && internal->getCount() == 0) forPanels([](TPanel& panel) { panel.listctrl->clearSelection(); });
  }
  if (m_SelectionB->hasChanged()) {
    auto selectionB = std::dynamic_pointer_cast<TIntegerSetData>(m_SelectionB->getData());
    forPanels([&](TPanel& panel) {
      if (selectionB) panel.selectionb = std::unordered_set<uint32_t>(selectionB->m_Set.begin(), selectionB->m_Set.end());
      panel.listctrl->Refresh();
    });
  }
  auto attributes = std::dynamic_pointer_cast<TDataArray>(m_Attributes->getData());
  if (m_Attributes->hasChanged() && attributes) {
    std::vector<std::string> keys;
    for (const auto& item : attributes->m_Items) keys.push_back(item ? item->getKeyName() : std::string());
    forPanels([&](TPanel& panel) { panel.listctrl->setColumns(keys); });
  }
  auto sort = std::dynamic_pointer_cast<TPythonData>(m_Sort->getData());
  if (m_Sort->hasChanged() && sort) {
    try {
      py::dict icons = me.imagelistmap && !me.imagelistmap.isNone()
                           ? py::reinterpret_borrow<py::dict>(me.imagelistmap.get())
                           : py::dict();
      py::handle list(sort->getValue().get());
      forPanels([&](TPanel& panel) {
        for (int col = 0; col < panel.listctrl->GetColumnCount(); ++col) {
          wxListItem item;
          item.SetMask(wxLIST_MASK_IMAGE);
          item.SetImage(-1);
          int i = 0;
          if (py::isinstance<py::sequence>(list) && !py::isinstance<py::str>(list)) {
            for (auto pair : list) {
              ++i;
              const std::string key = py::str(pair[py::int_(0)]).cast<std::string>();
              if (static_cast<size_t>(col) >= panel.listctrl->columns.size() ||
                  panel.listctrl->columns[static_cast<size_t>(col)] != key)
                continue;
              const bool ascending = py::bool_(pair[py::int_(1)]).cast<bool>();
              const std::string name = (ascending ? "arrowupgray" : "arrowdowngray") + std::to_string(i);
              item.SetImage(icons.contains(name) ? icons[name.c_str()].cast<int>() : -1);
            }
          }
          panel.listctrl->SetColumn(col, item);
        }
      });
    } catch (const std::exception& e) {
      std::printf("%s\n", e.what());
    }
  }
  if (m_Selection->hasChanged()) {
    if (auto internal = std::dynamic_pointer_cast<TIntegerSetData>(m_InternalSelection->getData())) internal->clear();
  }
  const bool refresh =
      m_Attributes->hasChanged() || m_Selection->hasChanged() || m_Sort->hasChanged() || m_IconAttr->hasChanged();
  if (refresh && m_Attributes->getData() && m_Selection->getData() && m_Sort->getData()) {
    auto icons = std::dynamic_pointer_cast<TIntegerAttributeData>(m_IconAttr->getData());
    forPanels([&](TPanel& panel) {
      panel.iconattr = icons;
      panel.listctrl->Refresh();
      panel.update();
    });
    if (wxImageList* images = iconImageList())
      forPanels([&](TPanel& panel) { panel.listctrl->SetImageList(images, wxIMAGE_LIST_SMALL); });
  }
  resetPins({});
}

void registerListView() { TProcessorRegistry::instance().add<TListGuiProcessor>(); }

}  // namespace quorvel
