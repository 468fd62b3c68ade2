// The tree view without a window: its pins and what a line shows. Line n
// stands for row n + 1 of the collapsed hierarchy (the root has no line).
#pragma once

#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "data/MAttributes.h"
#include "data/MHierarchy.h"
#include "data/MValues.h"
#include "engine/MFlowObjects.h"

namespace quorvel {

class TTreeViewProcessorCpp : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TTreeViewProcessorCpp)
  TPinPtr m_GuiParent, m_CollapsedHierarchy, m_Hierarchy, m_AggLft, m_Collapsed, m_Level, m_NodeTextAttr,
      m_SelectionB, m_InternalSelection, m_Actions, m_IconAttr;
  void postCreate() override;
  std::string getTypeName() override { return "treeview"; }
  void process() override;
};

// What the lines of the list show, from copies of the pins' data.
class TTreeLineModel {
 public:
  std::shared_ptr<THierarchyData> collapsedhierarchy;
  std::shared_ptr<TBoolAttributeData> collapsed;
  std::shared_ptr<TIntegerAttributeData> level;
  std::shared_ptr<TAttributeData> textattr;
  std::shared_ptr<TIntegerAttributeData> iconattr;
  // Rows of the collapsed hierarchy shown bold.
  std::unordered_set<size_t> selectionbrows;

  struct TLine {
    uint32_t nid = 0;
    // Indentation steps: the node's level less one.
    int indent = 0;
    // An expander, shown collapsed or expanded; none for a leaf.
    bool button = false;
    bool collapsed = false;
    int icon = -1;
    std::string text;
    bool bold = false;
  };

  size_t lineCount() const;
  TLine line(size_t n) const;
  // The rows of the ids of `selection` found in the collapsed hierarchy.
  void setBoldIds(const TIntegerSetData* selection);
  // The lines of the ids of a set that are shown.
  std::vector<size_t> linesOf(const TIntegerSetData& set) const;
  uint32_t nidOfLine(size_t n) const { return collapsedhierarchy->getNidByRow(n + 1); }

  // Pixel geometry of a line: indent step and where the button, icon and
  // text start from the line's left edge.
  static constexpr int kStep = 16;
  static int buttonX(int indent) { return kStep * indent; }
  static int iconX(int indent) { return buttonX(indent) + 16; }
  static int textX(int indent) { return iconX(indent) + 20; }
};

// The action of the view's list that a key runs: the arrows fold and
// unfold, with Shift the whole subtree; null for any other key.
const char* treeKeyAction(int keycode, bool shift);

void registerTreeViewCore();

}  // namespace quorvel
