#include "MTreeViewCore.h"

#include "engine/MActionList.h"
#include "engine/MRegistry.h"

namespace quorvel {

void TTreeViewProcessorCpp::postCreate() {
  m_GuiParent = addInputPin<TPythonData>("gui parent");
  m_CollapsedHierarchy = addInputPin<THierarchyData>("collapsed hierarchy");
  m_Hierarchy = addInputPin<THierarchyData>("hierarchy");
  m_AggLft = addInputPin<TAggLftData>("agglft");
  m_Collapsed = addInputPin<TBoolAttributeData>("collapsed");
  m_Level = addInputPin<TIntegerAttributeData>("level");
  m_NodeTextAttr = addInputPin<TAttributeData>("node text attr");
  m_SelectionB = addInputPin<TIntegerSetData>("selection b");
  m_InternalSelection = addInputPin<TIntegerSetData>("internal selection");
  m_Actions = addInputPin<TPythonData>("actions");
  m_IconAttr = addInputPin<TIntegerAttributeData>("icon attr");
}

void TTreeViewProcessorCpp::process() {
  if (!m_InternalSelection->getData()) m_InternalSelection->setData(std::make_shared<TIntegerSetData>());
  resetPins({});
}

size_t TTreeLineModel::lineCount() const {
  return collapsedhierarchy && collapsedhierarchy->getRowCount() > 0 ? collapsedhierarchy->getRowCount() - 1 : 0;
}

TTreeLineModel::TLine TTreeLineModel::line(size_t n) const {
  TLine l;
  const THierarchyRow* row = collapsedhierarchy ? collapsedhierarchy->getAllByRow(n + 1) : nullptr;
  if (!row) return l;
  l.nid = row->nid;
  bool found = false;
  l.indent = (level ? level->getValueById(row->nid, found) : 0) - 1;
  l.button = row->lft + 1 != row->rgt;
  l.collapsed = collapsed ? collapsed->getValueById(row->nid, found) : false;
  if (iconattr) {
    const int icon = iconattr->getValueById(row->nid, found);
    if (found) l.icon = icon;
  }
  l.text = "<none>";
  if (textattr) {
    const std::string text = textattr->getStringValueById(row->nid, found);
    if (found) l.text = text;
  }
  l.bold = selectionbrows.count(n + 1) > 0;
  return l;
}

void TTreeLineModel::setBoldIds(const TIntegerSetData* selection) {
  selectionbrows.clear();
  if (!selection || !collapsedhierarchy) return;
  for (uint32_t id : selection->m_Set.ids()) {
    bool found = false;
    const size_t row = collapsedhierarchy->getRowByNid(id, found);
    if (found) selectionbrows.insert(row);
  }
}

std::vector<size_t> TTreeLineModel::linesOf(const TIntegerSetData& set) const {
  std::vector<size_t> lines;
  if (!collapsedhierarchy) return lines;
  for (uint32_t id : set.m_Set.ids()) {
    bool found = false;
    const size_t row = collapsedhierarchy->getRowByNid(id, found);
    if (found && row > 0) lines.push_back(row - 1);
  }
  return lines;
}

void registerTreeViewCore() { TProcessorRegistry::instance().add<TTreeViewProcessorCpp>(); }

const char* treeKeyAction(int keycode, bool shift) {
  if (keycode == kKeyLeft) return shift ? "Collapse recursively" : "Collapse";
  if (keycode == kKeyRight) return shift ? "Expand recursively" : "Expand";
  return nullptr;
}

}  // namespace quorvel
