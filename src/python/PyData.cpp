// Bindings of the values: scalars, sets, arrays, attribute columns,
// hierarchies and edges. Lookups give (value, found) tuples to scripts.
#include "PyEngine.h"
#include "data/MAttributes.h"
#include "data/MHierarchy.h"
#include "data/MValues.h"
#include "data/MDataSources.h"

namespace quorvel::py_bindings {

namespace {

template <class T>
using Cls = py::class_<T, TAbstractData, std::shared_ptr<T>>;

// A lookup of the form `value f(key, bool& found) const` as scripts see it:
// a function giving the tuple (value, found). Self is the bound class, when
// the lookup is declared on an unbound base.
template <class Self = void, class R, class C, class A>
auto withFound(R (C::*lookup)(A, bool&) const) {
  using Bound = std::conditional_t<std::is_void_v<Self>, C, Self>;
  return [lookup](const Bound& self, A key) {
    bool found = false;
    R value = (self.*lookup)(key, found);
    return py::make_tuple(std::move(value), found);
  };
}

// The scalars: a value with getValue, setValue and m_Value.
template <class T, class V>
void bindScalar(py::module_& m, const char* name) {
  Cls<T>(m, name)
      .def(py::init<>())
      .def(py::init<V>())
      .def_readwrite("m_Value", &T::m_Value)
      .def("getValue", [](const T& d) { return d.getValue(); })
      .def("setValue", &T::setValue);
}

// Sorts a VectorUInt32 in place, or a list by writing the result back.
template <class Sorter>
void sortSequence(py::object ids, Sorter sorter) {
  if (py::isinstance<std::vector<uint32_t>>(ids)) {
    sorter(ids.cast<std::vector<uint32_t>&>());
    return;
  }
  if (!py::isinstance<py::list>(ids)) throw py::type_error("sort() takes a list or a VectorUInt32 of ids");
  py::list list = ids;
  std::vector<uint32_t> v;
  v.reserve(py::len(list));
  for (auto item : list) v.push_back(item.cast<uint32_t>());
  sorter(v);
  for (size_t i = 0; i < v.size(); ++i) list[i] = v[i];
}

template <class T, class C>
void bindTypedColumn(C& cls) {
  using Column = T;
  cls.def(py::init<>())
      .def(py::init<const std::string&>(), py::arg("key"))
      .def("addRow", &Column::addRow)
      .def("setValueById", &Column::setValueById)
      .def("getValueById", withFound<Column>(&Column::getValueById))
      .def("getRowCount", &Column::getRowCount)
      .def("getRow",
           [](const Column& c, size_t row) {
             if (row >= c.getRowCount()) throw py::index_error("row out of range");
             return py::make_tuple(c.getIdByRow(row), c.valueByRow(row));
           })
      .def("rebuildIndex", &Column::rebuildIndex);
}

py::object recordToPy(const TEdgeCollapsedData::Record& r) {
  py::set forward;
  py::set backward;
  for (uint32_t e : r.forward) forward.add(e);
  for (uint32_t e : r.backward) backward.add(e);
  return py::make_tuple(r.smallerlft, r.largerlft, forward, backward);
}

template <class Set>
py::set idSetToPy(const Set& s) {
  py::set out;
  for (uint32_t id : s) out.add(id);
  return out;
}

}  // namespace

void bindData(py::module_& m) {
  // -------------------------------------------------------------------------
  // Scalars
  bindScalar<TIntegerData, int32_t>(m, "TIntegerData");
  bindScalar<TFloatData, float>(m, "TFloatData");
  bindScalar<TBooleanData, bool>(m, "TBooleanData");
  Cls<TFloatPairData>(m, "TFloatPairData")
      .def(py::init<>())
      .def(py::init<float, float>())
      .def("getValue", [](const TFloatPairData& d) { return d.getValue(); })
      .def("setValue", [](TFloatPairData& d, std::pair<float, float> v) { d.setValue(v); })
      .def("setValue", [](TFloatPairData& d, float a, float b) { d.setValue({a, b}); })
      .def("getFirst", &TFloatPairData::getFirst)
      .def("getSecond", &TFloatPairData::getSecond);
  Cls<TStringData>(m, "TStringData")
      .def(py::init<>())
      .def(py::init<std::string>())
      .def_readwrite("m_Value", &TStringData::m_Value)
      .def("getValue", [](const TStringData& d) { return d.getValue(); });
  Cls<TStringListData>(m, "TStringListData")
      .def(py::init<>())
      .def_readwrite("m_List", &TStringListData::m_List)
      .def("add", &TStringListData::add)
      .def("removeByValue", &TStringListData::removeByValue)
      .def("removeByIndex", &TStringListData::removeByIndex)
      .def("moveRelative", &TStringListData::moveRelative);
  Cls<TPythonData>(m, "TPythonData")
      .def(py::init<>())
      .def(py::init([](py::object o) { return std::make_shared<TPythonData>(fromObject(o)); }))
      .def_readwrite("m_Object", &TPythonData::m_Object)
      .def("getValue", [](const TPythonData& d) { return toObject(d.getValue()); });

  // -------------------------------------------------------------------------
  // Sets and maps
  Cls<TIntegerSetData>(m, "TIntegerSetData")
      .def(py::init<>())
      .def(py::init<const std::string&>(), py::arg("keyname"))
      .def_property_readonly(
          "m_Set", [](const TIntegerSetData& s) -> const TIdSet& { return s.m_Set; },
          py::return_value_policy::reference_internal)
      .def_readwrite("m_ContainsAll", &TIntegerSetData::m_ContainsAll)
      .def("add", &TIntegerSetData::add)
      .def("remove", &TIntegerSetData::remove)
      .def("clear", &TIntegerSetData::clear)
      .def("setSingle", &TIntegerSetData::setSingle)
      .def("getCount", &TIntegerSetData::getCount)
      .def("contains", &TIntegerSetData::contains);
  Cls<TIntegerPairSetData>(m, "TIntegerPairSetData")
      .def(py::init<>())
      .def_property_readonly("m_Set",
                             [](const TIntegerPairSetData& s) {
                               py::list out;
                               for (const auto& p : s.m_Set) out.append(py::make_tuple(p.first, p.second));
                               return out;
                             })
      .def("addPair", &TIntegerPairSetData::addPair)
      .def("remove", &TIntegerPairSetData::remove)
      .def("clear", &TIntegerPairSetData::clear);
  Cls<TMapStringToIntegerData>(m, "TMapStringToIntegerData")
      .def(py::init<>())
      .def("put", &TMapStringToIntegerData::put)
      .def("get", withFound(&TMapStringToIntegerData::get))
      .def("clear", &TMapStringToIntegerData::clear)
      .def("keys", [](const TMapStringToIntegerData& d) {
        py::list out;
        for (const auto& [k, v] : d.m_Map) out.append(k);
        return out;
      });
  Cls<TProcessorData>(m, "TProcessorData")
      .def(py::init<TProcessorPtr, const std::string&>(), py::arg("processor"), py::arg("name"))
      .def("getValue", [](const TProcessorData& d) { return d.getValue(); });
  Cls<TDatabaseData>(m, "TDatabaseData")
      .def(py::init<>())
      .def(py::init([](py::object o) { return std::make_shared<TDatabaseData>(fromObject(o)); }))
      .def_readwrite("m_Database", &TDatabaseData::m_Database)
      .def("getValue", [](const TDatabaseData& d) { return toObject(d.getValue()); });
  Cls<TInvocationData>(m, "TInvocationData");
  Cls<TSettingData>(m, "TSettingData").def(py::init<const std::string&>(), py::arg("keyname"));
  py::class_<TFloatSettingDataCpp, TSettingData, std::shared_ptr<TFloatSettingDataCpp>>(m, "TFloatSettingDataCpp")
      .def(py::init<const std::string&, float>(), py::arg("name"), py::arg("value"))
      .def("getValue", &TFloatSettingDataCpp::getValue)
      .def("setValue", &TFloatSettingDataCpp::setValue);
  py::class_<TFloatSettingData, TFloatSettingDataCpp, std::shared_ptr<TFloatSettingData>>(m, "TFloatSettingData")
      .def(py::init([](const std::string& name, const std::string& help, float value, float minimum, float maximum,
                       py::object onchange) {
             return std::make_shared<TFloatSettingData>(name, help, value, minimum, maximum, fromObject(onchange));
           }),
           py::arg("name"), py::arg("helpstring"), py::arg("value"), py::arg("min"), py::arg("max"),
           py::arg("onchange") = py::none())
      .def_readwrite("m_HelpString", &TFloatSettingData::m_HelpString)
      .def_readwrite("m_Minimum", &TFloatSettingData::m_Minimum)
      .def_readwrite("m_Maximum", &TFloatSettingData::m_Maximum)
      .def_readwrite("m_OnChange", &TFloatSettingData::m_OnChange);

  // -------------------------------------------------------------------------
  // Arrays
  Cls<TDataArray>(m, "TDataArray")
      .def(py::init<>())
      .def("add", &TDataArray::add)
      .def("getItemCount", &TDataArray::getItemCount)
      .def("getItemByIndex", withFound(&TDataArray::getItemByIndex))
      .def("getItemByKey", withFound(&TDataArray::getItemByKey))
      .def("getIndexByKey", &TDataArray::getIndexByKey)
      .def("getItemTypeName", &TDataArray::getItemTypeName)
      .def_property_readonly("m_Items", [](const TDataArray& a) { return a.m_Items; })
      .def("__len__", &TDataArray::getItemCount);
  bindDerived<TStringDataArray, TDataArray>(m, "TStringDataArray");
  bindDerived<TFloatDataArray, TDataArray>(m, "TFloatDataArray");
  bindDerived<TPythonDataArray, TDataArray>(m, "TPythonDataArray");
  bindDerived<TIntegerSetDataArray, TDataArray>(m, "TIntegerSetDataArray");
  bindDerived<TProcessorDataArray, TDataArray>(m, "TProcessorDataArray");
  bindDerived<THierarchyDataArray, TDataArray>(m, "THierarchyDataArray");
  bindDerived<TColorMapDataArray, TDataArray>(m, "TColorMapDataArray");
  bindDerived<TSettingDataArray, TDataArray>(m, "TSettingDataArray");
  bindDerived<TAttributeDataArray, TDataArray>(m, "TAttributeDataArray");
  bindDerived<TBoolAttributeDataArray, TDataArray>(m, "TBoolAttributeDataArray");
  bindDerived<TIntegerAttributeDataArray, TDataArray>(m, "TIntegerAttributeDataArray");
  bindDerived<TFloatAttributeDataArray, TDataArray>(m, "TFloatAttributeDataArray");

  // -------------------------------------------------------------------------
  // Attribute columns
  Cls<TAttributeData>(m, "TAttributeData")
      .def("getAttributeType", &TAttributeData::getAttributeType)
      .def("sort",
           [](const TAttributeData& a, py::object ids, bool ascending) {
             sortSequence(ids, [&](std::vector<uint32_t>& v) { a.sort(v, ascending); });
           })
      .def("stable_sort",
           [](const TAttributeData& a, py::object ids, bool ascending) {
             sortSequence(ids, [&](std::vector<uint32_t>& v) { a.stable_sort(v, ascending); });
           })
      .def("getStringValueById", withFound(&TAttributeData::getStringValueById))
      .def("getTextValueById", withFound(&TAttributeData::getTextValueById))
      .def("getFloatValueById", withFound(&TAttributeData::getFloatValueById))
      .def("hasValueById", &TAttributeData::hasValueById)
      .def("createEmptyLike", &TAttributeData::createEmptyLike)
      .def("copyValueFrom", &TAttributeData::copyValueFrom)
      .def("copyFrom", &TAttributeData::copyFrom)
      .def("getRowCount", &TAttributeData::getRowCount);

  auto boolColumn = py::class_<TBoolAttributeData, TAttributeData, std::shared_ptr<TBoolAttributeData>>(
      m, "TBoolAttributeData");
  bindTypedColumn<TBoolAttributeData>(boolColumn);
  boolColumn.def("setAllValues", &TBoolAttributeData::setAllValues)
      .def("countValues", &TBoolAttributeData::countValues)
      .def("clone", &TBoolAttributeData::clone);

  auto intColumn = py::class_<TIntegerAttributeData, TAttributeData, std::shared_ptr<TIntegerAttributeData>>(
      m, "TIntegerAttributeData");
  bindTypedColumn<TIntegerAttributeData>(intColumn);
  intColumn.def("getMinimumValue", &TIntegerAttributeData::getMinimumValue)
      .def("getMaximumValue", &TIntegerAttributeData::getMaximumValue)
      .def("getIdsWhereValueIs", &TIntegerAttributeData::getIdsWhereValueIs)
      .def("getUniqueValues", [](const TIntegerAttributeData& c) {
        py::dict out;
        const auto unique = c.getUniqueValues();
        for (const auto& [v, id] : *unique) out[py::int_(v)] = id;
        return out;
      });

  auto floatColumn = py::class_<TFloatAttributeData, TAttributeData, std::shared_ptr<TFloatAttributeData>>(
      m, "TFloatAttributeData");
  bindTypedColumn<TFloatAttributeData>(floatColumn);
  floatColumn.def("getMinimumValue", &TFloatAttributeData::getMinimumValue)
      .def("getMaximumValue", &TFloatAttributeData::getMaximumValue);

  auto stringColumn = py::class_<TStringAttributeData, TAttributeData, std::shared_ptr<TStringAttributeData>>(
      m, "TStringAttributeData");
  bindTypedColumn<TStringAttributeData>(stringColumn);
  stringColumn.def("getUniqueValues", [](const TStringAttributeData& c) {
    py::dict out;
    const auto unique = c.getUniqueValues();
    for (const auto& [v, id] : *unique) out[py::str(v)] = id;
    return out;
  });

  py::class_<TVariantAttributeData, TAttributeData, std::shared_ptr<TVariantAttributeData>>(m, "TVariantAttributeData")
      .def(py::init<>())
      .def(py::init<const std::string&>(), py::arg("key"))
      .def("addRow",
           [](TVariantAttributeData& c, uint32_t id, py::handle value) {
             // Kinds in this order: text, integer, float; anything else adds
             // no row. An integer beyond 32 bits keeps its digits as text.
             if (py::isinstance<py::str>(value)) {
               c.addText(id, value.cast<std::string>());
             } else if (py::isinstance<py::bytes>(value)) {
               c.addText(id, std::string(value.cast<py::bytes>()));
             } else if (py::isinstance<py::int_>(value)) {
               const long long v = value.cast<long long>();
               if (v >= INT32_MIN && v <= INT32_MAX)
                 c.addInt(id, static_cast<int32_t>(v));
               else
                 c.addText(id, std::to_string(v));
             } else if (py::isinstance<py::float_>(value)) {
               c.addFloat(id, value.cast<float>());
             }
           })
      .def("convertToSpecific", [](const TVariantAttributeData& v) { return v.convertToSpecific(); });

  // -------------------------------------------------------------------------
  // Hierarchies and edges
  Cls<THierarchyData>(m, "THierarchyData")
      .def(py::init<>())
      .def(py::init<const std::string&>(), py::arg("name"))
      .def("addRow", &THierarchyData::addRow)
      .def("getRowCount", &THierarchyData::getRowCount)
      .def("getNidByRow", &THierarchyData::getNidByRow)
      .def("getLftByRow", &THierarchyData::getLftByRow)
      .def("getAllByRow",
           [](const THierarchyData& h, size_t row) -> py::object {
             const THierarchyRow* r = h.getAllByRow(row);
             if (!r) return py::none();
             return py::make_tuple(r->nid, r->lft, r->rgt);
           })
      .def("getRowByNid", withFound(&THierarchyData::getRowByNid))
      .def("getLftByNid", withFound(&THierarchyData::getLftByNid))
      .def("getNidByLft", withFound(&THierarchyData::getNidByLft))
      .def("getNidsBelowNid", &THierarchyData::getNidsBelowNid)
      .def("getNidsAboveNid", &THierarchyData::getNidsAboveNid)
      .def("getNidsBelowNids", &THierarchyData::getNidsBelowNids)
      .def("rebuildIndex", &THierarchyData::rebuildIndex);

  Cls<TEdgeData>(m, "TEdgeData")
      .def(py::init<>())
      .def("addRow", &TEdgeData::addRow)
      .def("getRowCount", &TEdgeData::getRowCount)
      .def("getRow",
           [](const TEdgeData& e, size_t row) {
             if (row >= e.m_Rows.size()) throw py::index_error("row out of range");
             const TEdgeRow& r = e.m_Rows[row];
             return py::make_tuple(r.eid, r.fromnid, r.tonid);
           })
      .def("getFromToNidByEid",
           [](const TEdgeData& e, uint32_t eid) {
             uint32_t from = 0;
             uint32_t to = 0;
             bool found = false;
             e.getFromToNidByEid(eid, from, to, found);
             return py::make_tuple(from, to, found);
           })
      .def(
          "addForwardNeighbours",
          [](const TEdgeData& e, uint32_t nid, const TIntegerSetData& sel, TIntegerSetData& nodes,
             TIntegerSetData* edges) { e.addForwardNeighbours(nid, sel, nodes, edges); },
          py::arg("nid"), py::arg("edgeselection"), py::arg("nodes"), py::arg("edges") = nullptr)
      .def(
          "addBackwardNeighbours",
          [](const TEdgeData& e, uint32_t nid, const TIntegerSetData& sel, TIntegerSetData& nodes,
             TIntegerSetData* edges) { e.addBackwardNeighbours(nid, sel, nodes, edges); },
          py::arg("nid"), py::arg("edgeselection"), py::arg("nodes"), py::arg("edges") = nullptr);

  Cls<TAggLftData>(m, "TAggLftData")
      .def(py::init<>())
      .def("addRow", &TAggLftData::addRow)
      .def("getRowCount", &TAggLftData::getRowCount)
      .def("getAggLftByLft", withFound(&TAggLftData::getAggLftByLft))
      .def("rebuildIndex", &TAggLftData::rebuildIndex);

  Cls<TEdgeCollapsedData>(m, "TEdgeCollapsedData")
      .def(py::init<>())
      .def("addEdge", &TEdgeCollapsedData::addEdge)
      .def("getRecordCount", &TEdgeCollapsedData::getRecordCount)
      .def("getForwardEids",
           [](const TEdgeCollapsedData& d, uint32_t a, uint32_t b) {
             bool found = false;
             const TSmallIdSet& s = d.getForwardEids(a, b, found);
             return py::make_tuple(idSetToPy(s), found);
           })
      .def("getBackwardEids",
           [](const TEdgeCollapsedData& d, uint32_t a, uint32_t b) {
             bool found = false;
             const TSmallIdSet& s = d.getBackwardEids(a, b, found);
             return py::make_tuple(idSetToPy(s), found);
           })
      .def("getRecord",
           [](const TEdgeCollapsedData& d, uint32_t a, uint32_t b) { return recordToPy(d.getRecord(a, b)); })
      .def("getRecordByIndex",
           [](const TEdgeCollapsedData& d, size_t i) {
             if (i >= d.m_Records.size()) throw py::index_error("record out of range");
             return recordToPy(d.m_Records[i]);
           })
      .def("addLftPairsOfEid", &TEdgeCollapsedData::addLftPairsOfEid)
      .def("getPairsOfSource", &TEdgeCollapsedData::getPairsOfSource)
      .def("getPairsOfTarget", &TEdgeCollapsedData::getPairsOfTarget);

  Cls<TEdgeColorData>(m, "TEdgeColorData")
      .def(py::init<>())
      .def("getRecordCount", &TEdgeColorData::getRecordCount)
      .def("getRecordByIndex", [](const TEdgeColorData& d, size_t i) {
        if (i >= d.m_Records.size()) throw py::index_error("record out of range");
        const auto& r = d.m_Records[i];
        return py::make_tuple(r.smallerlft, r.largerlft, r.forward, r.backward);
      });

  // -------------------------------------------------------------------------
  // Sources and the identity processor
  auto source = py::class_<TAbstractDataSource, TAbstractProcessor, PyDataSource<TAbstractDataSource>,
                           std::shared_ptr<TAbstractDataSource>>(m, "TAbstractDataSource");
  source.def(py::init<>())
      .def("getData", &TAbstractDataSource::getData)
      .def("setData", &TAbstractDataSource::setData, py::arg("data").none(true))
      .def("ensureDataExists", &TAbstractDataSource::ensureDataExists);
  py::class_<TAbstractIdentityProcessor, TAbstractDataSource, std::shared_ptr<TAbstractIdentityProcessor>>(
      m, "TAbstractIdentityProcessor")
      .def(py::init<>());
  bindDerived<TStringDataSource, TAbstractDataSource>(m, "TStringDataSource");
  bindDerived<TStringListDataSource, TAbstractDataSource>(m, "TStringListDataSource");
  bindDerived<TIntDataSource, TAbstractDataSource>(m, "TIntDataSource");
  bindDerived<TFloatDataSource, TAbstractDataSource>(m, "TFloatDataSource");
  bindDerived<TBooleanDataSource, TAbstractDataSource>(m, "TBooleanDataSource");
  bindDerived<TFloatPairDataSource, TAbstractDataSource>(m, "TFloatPairDataSource");
  bindDerived<TBoolAttributeDataSource, TAbstractDataSource>(m, "TBoolAttributeDataSource");
  bindDerived<TPythonDataSource, TAbstractDataSource>(m, "TPythonDataSource");
  bindDerived<TIntegerSetDataSource, TAbstractDataSource>(m, "TIntegerSetDataSource");
  bindDerived<TStringDataArraySource, TAbstractDataSource>(m, "TStringDataArraySource");
  bindDerived<TFloatDataArraySource, TAbstractDataSource>(m, "TFloatDataArraySource");
}

}  // namespace quorvel::py_bindings
