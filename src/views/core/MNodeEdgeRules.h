// What the mouse does in the views that show nodes and edges, without a
// window: the canvas picks and hands over the picked ids and the modifier
// keys; these rules write the selections, the brushed sets, the clicked
// edge and the collapsed state on the view's input pins.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "engine/MFlowObjects.h"

namespace quorvel {

class TNodeEdgeRules {
 public:
  // Nodes as (level, nid) sorted by level; edges as (smallerlft, largerlft).
  using TPicked = std::vector<std::pair<uint32_t, uint32_t>>;

  explicit TNodeEdgeRules(TAbstractProcessor* processor) : m_Processor(processor) {}

  // A left click: on edges selects their edges (Ctrl adds to the
  // selection); on a node selects the deepest one picked, Ctrl adding it,
  // Shift taking its subtree.
  void click(const TPicked& nodes, const TPicked& edges, bool control, bool shift);
  // A double click on a node unfolds it; on the background it empties the
  // node and edge selections.
  void doubleClick(const TPicked& nodes, const TPicked& edges);
  // The mouse over the view: brushes the deepest node (Shift: its
  // subtree) and the edge records; dragging with the left button down
  // adds the edges under the mouse to the selection.
  void hover(const TPicked& nodes, const TPicked& edges, bool shift, bool leftDragging);
  // The edges of the records, by eid, into the edge selection.
  void selectEdges(const TPicked& edges, bool clearselection);

 private:
  template <class T>
  std::shared_ptr<T> pinData(const char* name) const;
  TAbstractProcessor* m_Processor;
};

}  // namespace quorvel
