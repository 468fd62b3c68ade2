#include "MDatasetLoader.h"

#include <pybind11/pybind11.h>
#include <sqlite3.h>

#include <algorithm>
#include <filesystem>
#include <unordered_map>
#include <unordered_set>

#include "data/MColorMap.h"
#include "dataset/MSourceRoot.h"
#include "dataset/MXmlReader.h"
#include "engine/MMediator.h"
#include "engine/MPython.h"
#include "engine/MRegistry.h"

namespace py = pybind11;

namespace quorvel {

namespace {

bool toId(const TDbValue& v, uint32_t& out) {
  const auto* i = std::get_if<int64_t>(&v);
  if (!i || *i < 0 || *i > static_cast<int64_t>(UINT32_MAX)) return false;
  out = static_cast<uint32_t>(*i);
  return true;
}

// SQLite's order of values: NULL, numbers, texts, blobs.
int typeRank(const TDbValue& v) {
  if (isNull(v)) return 0;
  if (std::holds_alternative<int64_t>(v) || std::holds_alternative<double>(v)) return 1;
  if (std::holds_alternative<std::string>(v)) return 2;
  return 3;
}

double numberOf(const TDbValue& v) {
  if (const auto* i = std::get_if<int64_t>(&v)) return static_cast<double>(*i);
  return std::get<double>(v);
}

bool sqliteLess(const TDbValue& a, const TDbValue& b) {
  const int ra = typeRank(a);
  const int rb = typeRank(b);
  if (ra != rb) return ra < rb;
  switch (ra) {
    case 1:
      return numberOf(a) < numberOf(b);
    case 2:
      return std::get<std::string>(a) < std::get<std::string>(b);
    case 3:
      return std::get<TDbBlob>(a).bytes < std::get<TDbBlob>(b).bytes;
    default:
      return false;
  }
}

std::string hidText(const TDbValue& hid) { return dbValueText(hid); }

}  // namespace

// ---------------------------------------------------------------------------
// Hierarchies

std::shared_ptr<THierarchyDataArray> readHierarchies(TDatabase& db) {
  auto array = std::make_shared<THierarchyDataArray>();
  std::vector<TDbValue> hids;
  {
    TCursorPtr c = db.execute("SELECT DISTINCT(hid) FROM hierarchy");
    while (c->step()) hids.push_back(c->column(0));
  }
  for (const TDbValue& hid : hids) {
    if (!std::holds_alternative<int64_t>(hid))
      throw TFlowError("Hierarchy id '" + hidText(hid) + "' is not an integer");
    const std::string name = "hierarchy " + hidText(hid);
    auto h = std::make_shared<THierarchyData>(name);

    TCursorPtr rootCursor = db.execute("SELECT nid FROM hierarchy WHERE hid=? AND parentnid IS NULL", {hid});
    auto rootRow = rootCursor->fetchone();
    rootCursor.reset();
    if (!rootRow) throw TFlowError("Could not find root node for hierarchy " + hidText(hid));
    uint32_t root = 0;
    if (!toId((*rootRow)[0], root))
      throw TFlowError("Root node '" + dbValueText((*rootRow)[0]) + "' of " + name + " is no node id");

    // Every link of this hierarchy, then the children of each parent in
    // childorder, ties in the order the database gives them.
    struct Link {
      int64_t parent;
      TDbValue order;
      uint32_t nid;
      uint32_t seq;
    };
    std::vector<Link> links;
    {
      TCursorPtr c = db.execute2("SELECT nid, parentnid, childorder FROM hierarchy WHERE hid=?", {hid});
      while (c->step()) {
        if (c->columnIsNull(1)) continue;
        uint32_t nid = 0;
        const TDbValue parent = c->column(1);
        if (!std::holds_alternative<int64_t>(parent)) continue;  // matches no node id
        if (!toId(c->column(0), nid))
          throw TFlowError("Node '" + dbValueText(c->column(0)) + "' of " + name + " is no node id");
        links.push_back({std::get<int64_t>(parent), c->column(2), nid, static_cast<uint32_t>(links.size())});
      }
    }
    // The synthetic root has id 0; and in a tree every node has one parent
    // and stands once.
    if (root == 0) throw TFlowError("Node 0 in " + name + ": 0 is the id of the synthetic root");
    {
      std::unordered_map<uint32_t, int64_t> parentOf;
      parentOf.reserve(links.size());
      for (const Link& l : links) {
        if (l.nid == 0) throw TFlowError("Node 0 in " + name + ": 0 is the id of the synthetic root");
        auto [it, added] = parentOf.emplace(l.nid, l.parent);
        if (added) continue;
        if (it->second == l.parent)
          throw TFlowError("Node " + std::to_string(l.nid) + " is listed twice below node " +
                           std::to_string(l.parent) + " in " + name);
        throw TFlowError("Node " + std::to_string(l.nid) + " has two parents in " + name + ": nodes " +
                         std::to_string(it->second) + " and " + std::to_string(l.parent));
      }
    }
    std::stable_sort(links.begin(), links.end(), [](const Link& a, const Link& b) {
      if (a.parent != b.parent) return a.parent < b.parent;
      return sqliteLess(a.order, b.order);
    });
    std::unordered_map<int64_t, std::pair<size_t, size_t>> children;  // parent -> [begin, end)
    for (size_t i = 0; i < links.size();) {
      size_t j = i;
      while (j < links.size() && links[j].parent == links[i].parent) ++j;
      children[links[i].parent] = {i, j};
      i = j;
    }

    // The numbering walk, with an explicit stack: any depth, and a cycle
    // is a failure rather than an endless walk.
    struct Frame {
      uint32_t nid;
      size_t row;
      size_t next;
      size_t end;
    };
    std::vector<THierarchyRow> rows;
    rows.push_back({0, 1, 0});
    std::vector<Frame> stack;
    std::unordered_set<uint32_t> onPath;
    const size_t limit = 4 * links.size() + 16;
    uint32_t next = 2;
    auto enter = [&](uint32_t nid) {
      if (!onPath.insert(nid).second)
        throw TFlowError("Cycle in " + name + ": node " + std::to_string(nid) + " lies below itself");
      if (rows.size() > limit) throw TFlowError("Hierarchy " + hidText(hid) + " is not a tree");
      rows.push_back({nid, next++, 0});
      auto range = children.find(nid);
      stack.push_back({nid, rows.size() - 1, range == children.end() ? 0 : range->second.first,
                       range == children.end() ? 0 : range->second.second});
    };
    enter(root);
    while (!stack.empty()) {
      Frame& f = stack.back();
      if (f.next < f.end) {
        enter(links[f.next++].nid);
        continue;
      }
      rows[f.row].rgt = next++;
      onPath.erase(f.nid);
      stack.pop_back();
    }
    rows[0].rgt = next;
    h->reserve(rows.size());
    for (const auto& r : rows) h->addRow(r.nid, r.lft, r.rgt);
    array->add(h);
  }
  return array;
}

// ---------------------------------------------------------------------------
// Attributes

std::shared_ptr<TAttributeDataArray> readAttributes(TDatabase& db, const std::string& query, bool ordered) {
  std::unordered_map<std::string, std::shared_ptr<TVariantAttributeData>> columns;
  std::vector<std::string> keys;
  {
    // Datasets have few keys: the columns seen so far are searched in a
    // short list before the map.
    std::vector<std::pair<std::string, TVariantAttributeData*>> recent;
    auto columnFor = [&](std::string_view key) {
      for (auto& [k, column] : recent)
        if (k == key) return column;
      auto& column = columns[std::string(key)];
      if (!column) {
        column = std::make_shared<TVariantAttributeData>(std::string(key));
        keys.emplace_back(key);
      }
      if (recent.size() < 32) recent.emplace_back(std::string(key), column.get());
      return column.get();
    };
    TCursorPtr c = db.execute(query);
    while (c->step()) {
      if (c->columnType(0) != SQLITE_INTEGER) continue;
      const int64_t rawId = c->columnInt(0);
      if (rawId < 0 || rawId > static_cast<int64_t>(UINT32_MAX)) continue;
      const uint32_t id = static_cast<uint32_t>(rawId);
      std::string keyText;
      std::string_view key;
      switch (c->columnType(1)) {
        case SQLITE_TEXT:
        case SQLITE_BLOB:
          key = c->columnBytes(1);
          break;
        default:
          keyText = dbValueText(c->column(1));
          key = keyText;
      }
      TVariantAttributeData* column = columnFor(key);
      switch (c->columnType(2)) {
        case SQLITE_INTEGER: {
          const int64_t v = c->columnInt(2);
          if (v >= INT32_MIN && v <= INT32_MAX)
            column->addInt(id, static_cast<int32_t>(v));
          else
            column->addFloat(id, static_cast<float>(v));  // sizes and ids keep their order
          break;
        }
        case SQLITE_FLOAT:
          column->addFloat(id, static_cast<float>(c->columnDouble(2)));
          break;
        case SQLITE_TEXT:
        case SQLITE_BLOB:
          column->addText(id, c->columnBytes(2));
          break;
        default:
          break;  // NULL adds no row
      }
    }
  }
  if (ordered) {
    std::sort(keys.begin(), keys.end());
    auto toFront = [&keys](const std::string& k) {
      auto it = std::find(keys.begin(), keys.end(), k);
      if (it != keys.end()) std::rotate(keys.begin(), it, it + 1);
    };
    toFront("type");
    toFront("name");
    std::stable_partition(keys.begin(), keys.end(), [](const std::string& k) { return k.empty() || k[0] != '_'; });
  }
  auto array = std::make_shared<TAttributeDataArray>();
  for (const auto& key : keys) {
    auto& variant = columns[key];
    if (TAttributePtr typed = variant->convertToSpecific()) array->add(typed);
    variant.reset();
  }
  return array;
}

// ---------------------------------------------------------------------------
// TDatasetLoader

void TDatasetLoaderCpp::postCreate() {
  m_In = addInputPin<TStringData>("in");
  m_Hierarchies = addOutputPin<THierarchyDataArray>("hierarchies");
  m_NodeAttributes = addOutputPin<TAttributeDataArray>("node attributes");
  m_EdgeAttributes = addOutputPin<TAttributeDataArray>("edge attributes");
  m_Edges = addOutputPin<TEdgeData>("edges");
  m_NodeSelections = addOutputPin<TIntegerSetDataArray>("node selections");
  m_EdgeSelections = addOutputPin<TIntegerSetDataArray>("edge selections");
}

void TDatasetLoader::readDatabase(TDatabase& db) {
  for (const char* index : {"CREATE INDEX nodeattr_nid ON nodeattr (nid)", "CREATE INDEX edgeattr_eid ON edgeattr (eid)",
                            "CREATE INDEX hierarchy_parentnid_hid ON hierarchy (parentnid,hid)",
                            "CREATE INDEX hierarchy_parentnid ON hierarchy (parentnid)"})
    db.execute(index, {}, false, true);

  auto hierarchies = readHierarchies(db);
  m_Hierarchies->setData(hierarchies);
  m_NodeAttributes->setData(readAttributes(db, "SELECT nid,key,value FROM nodeattr", true));

  auto selectionOf = [&db](const char* name, const char* query) {
    auto set = std::make_shared<TIntegerSetData>(name);
    TCursorPtr c = db.execute(query);
    uint32_t id = 0;
    while (c->step())
      if (toId(c->column(0), id)) set->m_Set.insert(id);
    // The set stays as long as the dataset: without the room it grew into.
    set->m_Set.shrinkToFit();
    auto array = std::make_shared<TIntegerSetDataArray>();
    array->add(set);
    return array;
  };
  m_NodeSelections->setData(selectionOf("all nodes", "SELECT DISTINCT(nid) FROM nodeattr"));
  m_EdgeAttributes->setData(readAttributes(db, "SELECT eid,key,value FROM edgeattr", false));

  auto edges = std::make_shared<TEdgeData>();
  {
    const int64_t count = db.execute("SELECT count(*) FROM edges")->columnInt(0);
    edges->reserve(static_cast<size_t>(std::max<int64_t>(0, count)));
    TCursorPtr c = db.execute("SELECT eid,fromnid,tonid FROM edges");
    uint32_t eid = 0;
    uint32_t from = 0;
    uint32_t to = 0;
    while (c->step())
      if (toId(c->column(0), eid) && toId(c->column(1), from) && toId(c->column(2), to)) edges->addRow(eid, from, to);
  }
  m_Edges->setData(edges);
  m_EdgeSelections->setData(selectionOf("all edges", "SELECT DISTINCT(eid) FROM edgeattr"));
}

void TDatasetLoader::process_python() {
  if (!requireData({m_In})) {
    // A processor resets what it dealt with also when it does nothing.
    resetPins({m_In});
    return;
  }
  resetPins({m_In});
  const std::string filename = dataAs<TStringData>(m_In)->getValue();
  std::error_code ec;
  if (!std::filesystem::exists(filename, ec)) {
    logError("File does not exist: '" + filename + "'");
    return;
  }
  auto failWith = [](const std::string& title) {
    const TExceptionText info = describeException(std::current_exception());
    throw TFlowError(userMessage(info.text, {"closeFile", "popup"}, title));
  };
  std::shared_ptr<TDatabase> db;
  const bool xml = filename.size() >= 4 && filename.compare(filename.size() - 4, 4, ".xml") == 0;
  try {
    db = xml ? TXmlReader(filename).convertToDatabase() : std::make_shared<TDatabase>(filename);
  } catch (...) {
    failWith(xml ? "XML reader" : "Dataset loader");
  }
  try {
    readDatabase(*db);
  } catch (...) {
    failWith("Dataset loader");
  }
  m_Database = db;
  if (auto h = dataAs<THierarchyDataArray>(m_Hierarchies); !h || h->getItemCount() == 0)
    logWarning("'" + filename + "' holds no hierarchy: there is nothing to show");
  else
    logMessage("Loaded '" + filename + "'");
}

// ---------------------------------------------------------------------------
// The small loaders

void TDatabaseLoaderCpp::postCreate() {
  m_In = addInputPin<TStringData>("in");
  m_Out = addOutputPin("TDatabaseData", "out");
}

void TDatabaseLoader::process_python() {
  if (m_In->getData()) {
    const std::string filename = dataAs<TStringData>(m_In)->getValue();
    std::error_code ec;
    if (!std::filesystem::exists(filename, ec))
      setError("File does not exist: '" + filename + "'");
    else
      m_Out->setData(std::make_shared<TStringData>(filename));
  }
  resetPins({});
}

void TIconLoader::beforeprocess_python() {
  if (initialized) return;
  initialized = true;
  auto map = std::make_shared<TMapStringToIntegerData>();
  if (me.imagelistmap && !me.imagelistmap.isNone()) {
    py::dict icons = py::reinterpret_borrow<py::dict>(me.imagelistmap.get());
    for (auto [name, index] : icons) map->put(py::str(name).cast<std::string>(), index.cast<int32_t>());
  }
  m_Output->setData(map);
}

void TColorMapLoader::createImplementation_python() {
  auto array = std::make_shared<TColorMapDataArray>();
  for (const auto& map : publishedColorMaps()) array->add(map);
  m_Output->setData(array);
}

void registerDatasetProcessors() {
  auto& reg = TProcessorRegistry::instance();
  reg.add<TDatasetLoaderCpp>();
  reg.add<TDatasetLoader>();
  reg.add<TDatabaseLoaderCpp>();
  reg.add<TDatabaseLoader>();
  reg.add<TIconLoaderCpp>();
  reg.add<TIconLoader>();
  reg.add<TColorMapLoaderCpp>();
  reg.add<TSourceRootProcessor>();
  reg.add<TColorMapLoader>();
}

}  // namespace quorvel
