// Bindings of the database wrapper and of the dataset processors.
#include "PyEngine.h"
#include "data/MColorMap.h"
#include "base/MDatabase.h"
#include "dataset/MDatasetLoader.h"
#include "dataset/MXmlReader.h"

namespace quorvel::py_bindings {

namespace {

// Colour maps written in a script.
class PyColorMap : public TColorMap {
 public:
  void getColor(float v, TVector4& color) override { PYBIND11_OVERRIDE_PURE(void, TColorMap, getColor, v, &color); }
  void getColorForNominal(const std::string& text, TVector4& color) override {
    {
      py::gil_scoped_acquire gil;
      py::function f = py::get_override(static_cast<const TColorMap*>(this), "getColorForNominal");
      if (f) {
        // The script writes into the caller's colour.
        f(text, py::cast(&color, py::return_value_policy::reference));
        return;
      }
    }
    TColorMap::getColorForNominal(text, color);
  }
  std::string getName() override { PYBIND11_OVERRIDE_PURE(std::string, TColorMap, getName); }
  bool acceptsNominalValues() override { PYBIND11_OVERRIDE(bool, TColorMap, acceptsNominalValues); }
};

py::object valueToPy(const TDbValue& v) {
  if (const auto* i = std::get_if<int64_t>(&v)) return py::int_(*i);
  if (const auto* d = std::get_if<double>(&v)) return py::float_(*d);
  if (const auto* s = std::get_if<std::string>(&v)) {
    PyObject* text = PyUnicode_DecodeUTF8(s->data(), static_cast<Py_ssize_t>(s->size()), "surrogateescape");
    if (!text) throw py::error_already_set();
    return py::reinterpret_steal<py::object>(text);
  }
  if (const auto* b = std::get_if<TDbBlob>(&v)) return py::bytes(b->bytes);
  return py::none();
}

TDbValue valueFromPy(py::handle h) {
  if (h.is_none()) return std::monostate{};
  if (py::isinstance<py::bool_>(h)) return static_cast<int64_t>(h.cast<bool>());
  if (py::isinstance<py::int_>(h)) return h.cast<int64_t>();
  if (py::isinstance<py::float_>(h)) return h.cast<double>();
  if (py::isinstance<py::str>(h)) return h.cast<std::string>();
  if (py::isinstance<py::bytes>(h)) return TDbBlob{h.cast<std::string>()};
  throw py::type_error("Error binding parameter: type '" +
                       py::str(py::type::handle_of(h).attr("__name__")).cast<std::string>() + "' is not supported");
}

TDbParams paramsFromPy(const py::object& param) {
  TDbParams out;
  if (param.is_none()) return out;
  for (auto item : param) out.push_back(valueFromPy(item));
  return out;
}

py::tuple rowToTuple(const TDbRow& row) {
  py::tuple t(row.size());
  for (size_t i = 0; i < row.size(); ++i) t[i] = valueToPy(row[i]);
  return t;
}

}  // namespace

bool isScriptColorMap(const TColorMap* m) { return dynamic_cast<const PyColorMap*>(m) != nullptr; }

void bindDataset(py::module_& m) {
  static py::exception<TSqliteError> sqliteError(m, "TSqliteError", PyExc_RuntimeError);
  static py::exception<TDatabaseException> databaseException(m, "TDatabaseException", PyExc_Exception);

  py::class_<TDbRow>(m, "TDbRow")
      .def("__len__", &TDbRow::size)
      .def("__getitem__",
           [](const TDbRow& r, py::handle key) {
             if (py::isinstance<py::str>(key)) return valueToPy(r[key.cast<std::string>()]);
             long i = key.cast<long>();
             if (i < 0) i += static_cast<long>(r.size());
             if (i < 0 || static_cast<size_t>(i) >= r.size()) throw py::index_error("tuple index out of range");
             return valueToPy(r[static_cast<size_t>(i)]);
           })
      .def("keys", &TDbRow::names)
      .def("__iter__", [](const TDbRow& r) { return py::iter(rowToTuple(r)); })
      .def("__eq__", [](const TDbRow& r, py::object other) { return rowToTuple(r).equal(other); })
      .def("__repr__", [](const TDbRow& r) { return py::repr(rowToTuple(r)).cast<std::string>(); });

  py::class_<TCursor, TCursorPtr>(m, "TCursor")
      .def_property_readonly("description",
                             [](const TCursor& c) -> py::object {
                               if (!c.hasResultSet()) return py::none();
                               py::list out;
                               for (const auto& name : c.description())
                                 out.append(py::make_tuple(name, py::none(), py::none(), py::none(), py::none(),
                                                           py::none(), py::none()));
                               return py::tuple(out);
                             })
      .def("fetchone", &TCursor::fetchone)
      .def("fetchall", &TCursor::fetchall)
      .def("__iter__", [](py::object self) { return self; })
      .def("__next__", [](TCursor& c) {
        auto row = c.fetchone();
        if (!row) throw py::stop_iteration();
        return *row;
      });

  py::class_<TDatabase, TDatabasePtr>(m, "TDatabase")
      .def(py::init<const std::string&>(), py::arg("filename"))
      .def_readwrite("showplan", &TDatabase::showplan)
      .def_readwrite("keepstats", &TDatabase::keepstats)
      .def_readonly("querytimes", &TDatabase::querytimes)
      .def_readonly("queryfrequency", &TDatabase::queryfrequency)
      .def(
          "execute",
          [](TDatabase& db, const std::string& query, py::object param, bool showplan, bool many,
             bool allowfail) -> TCursorPtr {
            if (many && !param.is_none() && py::len(param) > 0) {
              std::vector<TDbParams> rows;
              for (auto row : param) rows.push_back(paramsFromPy(py::reinterpret_borrow<py::object>(row)));
              return db.executeMany(query, rows, showplan, allowfail);
            }
            return db.execute(query, paramsFromPy(param), showplan, allowfail);
          },
          py::arg("query"), py::arg("param") = py::none(), py::arg("showplan") = false, py::arg("many") = false,
          py::arg("allowfail") = false)
      .def(
          "execute2",
          [](TDatabase& db, const std::string& query, py::object param) {
            return db.execute2(query, paramsFromPy(param));
          },
          py::arg("query"), py::arg("param") = py::none())
      .def("executescript", &TDatabase::executescript)
      .def("commit", &TDatabase::commit)
      .def("close", &TDatabase::close)
      .def("isReadOnly", &TDatabase::isReadOnly)
      .def(
          "showPlan",
          [](TDatabase& db, const std::string& query, py::object param) {
            return db.showPlan(query, paramsFromPy(param));
          },
          py::arg("query"), py::arg("param") = py::none())
      .def("showTables", &TDatabase::showTables)
      .def("showStats", &TDatabase::showStats)
      .def(
          "prn",
          [](TDatabase& db, const std::string& query, py::object param) { return db.prn(query, paramsFromPy(param)); },
          py::arg("query"), py::arg("param") = py::none())
      .def(
          "pp",
          [](TDatabase&, TCursor* cursor, py::object data, int, int maxrow) -> std::string {
            if (!cursor) return "#### NO RESULTS ###";
            if (data.is_none()) return TDatabase::pp(*cursor, nullptr, maxrow);
            auto rows = data.cast<std::vector<TDbRow>>();
            return TDatabase::pp(*cursor, &rows, maxrow);
          },
          py::arg("cursor").none(true), py::arg("data") = py::none(), py::arg("rowlens") = 0,
          py::arg("maxrow") = 30);

  // -------------------------------------------------------------------------
  // Colour maps
  py::class_<TColorMap, PyColorMap, TColorMapPtr>(m, "TColorMap")
      .def(py::init<>())
      .def("getColor", &TColorMap::getColor)
      .def("getColorForNominal", &TColorMap::getColorForNominal)
      .def("getName", &TColorMap::getName)
      .def("acceptsNominalValues", &TColorMap::acceptsNominalValues);
  bindDerived<TColorMap_GreenYellowRed, TColorMap>(m, "TColorMap_GreenYellowRed");
  bindDerived<TColorMap_Rainbow, TColorMap>(m, "TColorMap_Rainbow");
  bindDerived<TColorMap_BlueYellow, TColorMap>(m, "TColorMap_BlueYellow");
  bindDerived<TColorMap_Monochrome, TColorMap>(m, "TColorMap_Monochrome");
  bindDerived<TColorMap_TypeNames, TColorMap>(m, "TColorMap_TypeNames")
      .def("getType", &TColorMap_TypeNames::getType)
      .def("iterkeys", &TColorMap_TypeNames::iterkeys);
  py::class_<TColorMapData, TAbstractData, std::shared_ptr<TColorMapData>>(m, "TColorMapData")
      .def(py::init<const std::string&, TColorMapPtr>(), py::arg("name"), py::arg("map"))
      .def(py::init<const std::string&, TColorMapPtr, float, float>(), py::arg("name"), py::arg("map"),
           py::arg("clampminimum"), py::arg("clampmaximum"))
      .def("getColorMap", &TColorMapData::getColorMap)
      .def("getColor", &TColorMapData::getColor)
      .def("getColorForNominal", &TColorMapData::getColorForNominal)
      .def("acceptsNominalValues", &TColorMapData::acceptsNominalValues)
      .def("getClampMinimum", &TColorMapData::getClampMinimum)
      .def("getClampMaximum", &TColorMapData::getClampMaximum);
  bindDerived<TColormapRescaler, TAbstractProcessor>(m, "TColormapRescaler");

  // -------------------------------------------------------------------------
  // Loaders
  bindDerived<TDatasetLoaderCpp, TAbstractProcessor>(m, "TDatasetLoaderCpp");
  bindDerived<TDatasetLoader, TDatasetLoaderCpp>(m, "TDatasetLoader")
      .def("readDatabase", &TDatasetLoader::readDatabase)
      .def("process_python", &TDatasetLoader::process_python);
  bindDerived<TDatabaseLoaderCpp, TAbstractProcessor>(m, "TDatabaseLoaderCpp");
  bindDerived<TDatabaseLoader, TDatabaseLoaderCpp>(m, "TDatabaseLoader")
      .def("process_python", &TDatabaseLoader::process_python);
  bindDerived<TIconLoaderCpp, TAbstractProcessor>(m, "TIconLoaderCpp");
  bindDerived<TIconLoader, TIconLoaderCpp>(m, "TIconLoader")
      .def_readwrite("initialized", &TIconLoader::initialized)
      .def("beforeprocess_python", &TIconLoader::beforeprocess_python);
  bindDerived<TColorMapLoaderCpp, TAbstractProcessor>(m, "TColorMapLoaderCpp");
  bindDerived<TColorMapLoader, TColorMapLoaderCpp>(m, "TColorMapLoader")
      .def("createImplementation_python", &TColorMapLoader::createImplementation_python);

  py::class_<TXmlReader>(m, "TXmlReader")
      .def(py::init<std::string>(), py::arg("filename"))
      .def("convertToDatabase", &TXmlReader::convertToDatabase)
      .def("stopParsing", &TXmlReader::stopParsing);
}

}  // namespace quorvel::py_bindings
