#include "MViewCores.h"

#include "data/MAttributes.h"
#include "engine/MRegistry.h"

namespace py = pybind11;

namespace quorvel {

void applySortList(std::vector<uint32_t>& ids, const TDataArray& attributes, py::handle sortlist) {
  if (!sortlist || sortlist.is_none() || attributes.getItemCount() == 0) return;
  if (!py::isinstance<py::list>(sortlist) && !py::isinstance<py::tuple>(sortlist)) return;
  py::sequence pairs = py::reinterpret_borrow<py::sequence>(sortlist);
  for (size_t i = pairs.size(); i-- > 0;) {
    py::object pair = pairs[i];
    if (!py::isinstance<py::sequence>(pair) || py::len(pair) < 2) continue;
    const std::string key = py::str(pair[py::int_(0)]).cast<std::string>();
    const bool ascending = py::bool_(pair[py::int_(1)]).cast<bool>();
    auto column = attributes.itemByKeyAs<TAttributeData>(key);
    if (column) column->stable_sort(ids, ascending);
  }
}

void TListGuiProcessorCpp::postCreate() {
  m_GuiParent = addInputPin<TPythonData>("gui parent");
  m_Attributes = addInputPin<TAttributeDataArray>("attributes");
  m_Sort = addInputPin<TAbstractData>("sort");
  m_Selection = addInputPin<TIntegerSetData>("selection");
  m_SelectionB = addInputPin<TIntegerSetData>("selection b");
  m_InternalSelection = addInputPin<TIntegerSetData>("internal selection");
  m_IconAttr = addInputPin<TIntegerAttributeData>("icon attr");
  m_Keys = addInputPin<TStringListData>("keys");
  m_Settings = addInputPin<TPythonData>("settings");
  m_OnLeftClick = addOutputPin<TIntegerData>("on left click");
  m_OnColumnRightClick = addOutputPin<TIntegerData>("on column right click");
  m_Actions = addInputPin<TPythonData>("actions");
  m_HeaderActions = addInputPin<TPythonData>("header actions");
}

bool TListGuiProcessorCpp::ensureDefaults() {
  bool given = false;
  if (!m_InternalSelection->getData()) {
    m_InternalSelection->setData(std::make_shared<TIntegerSetData>());
    given = true;
  }
  if (!m_Sort->getData()) {
    py::list pairs;
    pairs.append(py::make_tuple(py::none(), true));
    m_Sort->setData(std::make_shared<TPythonData>(TPyRef::borrow(pairs.ptr())));
    given = true;
  }
  return given;
}

void TListGuiProcessorCpp::process() {
  ensureDefaults();
  if (haveChanged({m_Attributes, m_Selection, m_Sort})) buildRow2Id();
  resetPins({});
}

void TListGuiProcessorCpp::buildRow2Id() {
  m_Row2Id.clear();
  auto selection = std::dynamic_pointer_cast<TIntegerSetData>(m_Selection->getData());
  if (!selection) return;
  const auto& ids = selection->m_Set.ids();
  m_Row2Id.assign(ids.begin(), ids.end());
  auto attributes = std::dynamic_pointer_cast<TDataArray>(m_Attributes->getData());
  auto sort = std::dynamic_pointer_cast<TPythonData>(m_Sort->getData());
  if (attributes && attributes->getItemCount() > 0 && sort && sort->getValue() && !sort->getValue().isNone())
    applySortList(m_Row2Id, *attributes, sort->getValue().get());
}

}  // namespace quorvel
