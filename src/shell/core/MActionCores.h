// The action processors without a window: their pins, the action lists they
// publish and the handlers those lists run. The window library's classes
// publish on each pass and add what needs the toolkit (the Shift key, the
// column dialog).
#pragma once

#include <pybind11/pybind11.h>

#include <cstdint>
#include <optional>
#include <vector>

#include "engine/MFlowObjects.h"
#include "engine/MActionInterfaces.h"

namespace quorvel {

// What the action processors share: the output `actions` and a list made
// from the pins as they stand.
class TActionProcessorCpp : public TAbstractProcessor {
 public:
  TPinPtr m_Actions;
  // The list for the pins as they are now; None publishes nothing.
  virtual pybind11::object makeActions() = 0;
  // Sets a fresh list on `actions`, unless there is none to publish.
  void publish();
  void process() override { resetPins({}); }

 protected:
  // A function for the list that runs f on this processor while it lives.
  template <class Self, class F>
  pybind11::cpp_function handler(F f);
};

// "Deselect all nodes" and "Deselect all edges".
class TCommonNodeEdgeActionsCpp : public TActionProcessorCpp {
 public:
  QV_CLASS_NAME(TCommonNodeEdgeActionsCpp)
  TPinPtr m_NodeUserSelection, m_EdgeUserSelection;
  void postCreate() override;
  std::string getTypeName() override { return "common n/e actions"; }
  pybind11::object makeActions() override;
};

class TNodeEdgeActionsForViewCpp : public TActionProcessorCpp {
 public:
  QV_CLASS_NAME(TNodeEdgeActionsForViewCpp)
  TPinPtr m_NodeUserSelection, m_EdgeUserSelection, m_EdgeData, m_CollapseStack;
  void postCreate() override;
  std::string getTypeName() override { return "n/e actions for view"; }
  pybind11::object makeActions() override;
  void OnSelectEndNodes();
  void OnUndoCollapse();
};

// Folding, unfolding and hiding of the active nodes.
class THierarchyActionsCpp : public TActionProcessorCpp, public TVisibilityKeeper {
 public:
  QV_CLASS_NAME(THierarchyActionsCpp)
  TPinPtr m_ActiveNodes, m_NodeUserSelection, m_FullHierarchy, m_FilteredHierarchy, m_CollapsedHierarchy,
      m_CollapsedAttr, m_LevelAttr;
  void postCreate() override;
  std::string getTypeName() override { return "hierarchy actions"; }
  pybind11::object makeActions() override;

  void OnCollapse(bool value);
  void OnCollapseToggle();
  void OnCollapseRecursive(bool value);
  void OnCollapseAllAtThisLevel(bool value);
  void OnEnsureInternalSelectionVisible(const std::optional<std::vector<uint32_t>>& nids) override;
  void OnHideRecursive(bool hide, const std::optional<std::vector<uint32_t>>& nids = std::nullopt);

 private:
  // Runs change on a copy of the collapsed state and sets the copy where
  // the state is held, so that the whole command is one new value.
  template <class F>
  void changeCollapsed(F change);
};

class TInternalSelectionActionsCpp : public TActionProcessorCpp {
 public:
  QV_CLASS_NAME(TInternalSelectionActionsCpp)
  TPinPtr m_InternalSelection, m_SelectionB;
  void postCreate() override;
  std::string getTypeName() override { return "internal sel actions"; }
  pybind11::object makeActions() override;
  void OnListViewRowAddToSelection(bool clear = false);
  void OnListViewRowRemoveFromSelection();
};

class TListHeaderActionsCpp : public TActionProcessorCpp {
 public:
  QV_CLASS_NAME(TListHeaderActionsCpp)
  TPinPtr m_ColumnIndex, m_Attributes, m_Sort, m_Keys;
  void postCreate() override;
  std::string getTypeName() override { return "list header actions"; }
  pybind11::object makeActions() override;
  void OnRemoveColumn();
  void OnToggleSort();
  virtual void OnConfigureColumns() {}
  // The Shift key now; a window library answers it.
  virtual bool shiftDown() const { return false; }

 private:
  std::optional<std::string> columnKey() const;
};

// Joins up to four action lists, each followed by None.
class TActionMergerCpp : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TActionMergerCpp)
  std::vector<TPinPtr> m_Inputs;
  TPinPtr m_Out;
  void postCreate() override;
  std::string getTypeName() override { return "action merger"; }
};

class TActionMerger : public TActionMergerCpp {
 public:
  QV_CLASS_NAME(TActionMerger)
  unsigned hookMask() override { return kHookProcess; }
  void process_python() override;
};

void registerActionCores();

}  // namespace quorvel
