// The core classes of the views: their pins and what they compute without a
// window. The window library derives the presentation classes.
#pragma once

#include <pybind11/pybind11.h>

#include <cstdint>
#include <vector>

#include "data/MValues.h"
#include "engine/MFlowObjects.h"

namespace quorvel {

// A sort list is a list of pairs (attribute key, ascending), most
// significant first. Applies it to `ids` by stable sorts from its last pair
// to its first; a key is looked up by its text, so None and keys that are no
// column are skipped.
void applySortList(std::vector<uint32_t>& ids, const TDataArray& attributes, pybind11::handle sortlist);

// The list view: a report list of ids and attributes.
class TListGuiProcessorCpp : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TListGuiProcessorCpp)
  TPinPtr m_GuiParent, m_Attributes, m_Sort, m_Selection, m_SelectionB, m_InternalSelection, m_IconAttr, m_Keys,
      m_Settings, m_OnLeftClick, m_OnColumnRightClick, m_Actions, m_HeaderActions;
  std::vector<uint32_t> m_Row2Id;

  void postCreate() override;
  std::string getTypeName() override { return "list view"; }
  // Without a window: the defaults of the pins and the rows.
  void process() override;
  // Gives `internal selection` and `sort` their first values; true when
  // one was given.
  bool ensureDefaults();
  // The ids of `selection` in ascending order, then sorted by the sort list
  // when there are columns.
  void buildRow2Id();
};

void registerViewCores();

}  // namespace quorvel
