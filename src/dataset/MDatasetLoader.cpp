#include "MDatasetLoader.h"

#include <pybind11/pybind11.h>
#include <sqlite3.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <unordered_map>
#include <unordered_set>

#include "base/MParallel.h"
#include "data/MColorMap.h"
#include "dataset/MSourceRoot.h"
#include "dataset/MXmlReader.h"
#include "engine/MMediator.h"
#include "engine/MPython.h"
#include "engine/MRegistry.h"

namespace py = pybind11;

namespace quorvel {

namespace {

// Node and edge ids are integers from 0 to 2^32 - 1.
bool idInRange(int64_t v, uint32_t& out) {
  out = static_cast<uint32_t>(v);
  return v >= 0 && v <= static_cast<int64_t>(UINT32_MAX);
}

bool toId(const TDbValue& v, uint32_t& out) {
  const auto* i = std::get_if<int64_t>(&v);
  return i && idInRange(*i, out);
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

namespace {

// What a read of attribute rows gathered: a column for each key, in the
// order the keys first came, and the ids of the rows, those with a NULL
// value too, a run of rows of one id kept once.
struct TAttributeRows {
  std::vector<std::shared_ptr<TVariantAttributeData>> columns;
  std::vector<uint32_t> ids;
};

TAttributeRows readAttributeRows(TDatabase& db, const std::string& query, const TDbParams& params) {
  TAttributeRows out;
  std::unordered_map<std::string, TVariantAttributeData*> columns;
  // Datasets have few keys: the columns seen so far are searched in a
  // short list before the map.
  std::vector<std::pair<std::string, TVariantAttributeData*>> recent;
  auto columnFor = [&](std::string_view key) {
    for (auto& [k, column] : recent)
      if (k == key) return column;
    auto& column = columns[std::string(key)];
    if (!column) {
      out.columns.push_back(std::make_shared<TVariantAttributeData>(std::string(key)));
      column = out.columns.back().get();
    }
    if (recent.size() < 32) recent.emplace_back(std::string(key), column);
    return column;
  };
  TCursorPtr c = db.execute(query, params);
  while (c->step()) {
    if (c->columnType(0) != SQLITE_INTEGER) continue;
    const int64_t rawId = c->columnInt(0);
    if (rawId < 0 || rawId > static_cast<int64_t>(UINT32_MAX)) continue;
    const uint32_t id = static_cast<uint32_t>(rawId);
    if (out.ids.empty() || out.ids.back() != id) out.ids.push_back(id);
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
  return out;
}

// The typed columns of reads of consecutive ranges of rows, as one read of
// them all would make them; with `ordered`, keys in byte order with "name"
// and "type" first and "_" keys last, else in the order they first came.
// The pieces' columns go as they are decided.
std::shared_ptr<TAttributeDataArray> typedColumns(std::vector<TAttributeRows>& pieces, bool ordered) {
  struct Key {
    std::string name;
    std::vector<std::shared_ptr<TVariantAttributeData>*> parts;
  };
  std::vector<Key> keys;
  std::unordered_map<std::string, size_t> numberOf;
  for (auto& piece : pieces)
    for (auto& column : piece.columns) {
      auto [it, added] = numberOf.try_emplace(column->m_KeyName, keys.size());
      if (added) keys.push_back({column->m_KeyName, {}});
      keys[it->second].parts.push_back(&column);
    }
  if (ordered) {
    std::sort(keys.begin(), keys.end(), [](const Key& a, const Key& b) { return a.name < b.name; });
    auto toFront = [&keys](const std::string& k) {
      auto it = std::find_if(keys.begin(), keys.end(), [&k](const Key& key) { return key.name == k; });
      if (it != keys.end()) std::rotate(keys.begin(), it, it + 1);
    };
    toFront("type");
    toFront("name");
    std::stable_partition(keys.begin(), keys.end(), [](const Key& k) { return k.name.empty() || k.name[0] != '_'; });
  }
  std::vector<TAttributePtr> typed(keys.size());
  auto decide = [&](size_t k) {
    std::vector<std::shared_ptr<TVariantAttributeData>> parts;
    for (auto* part : keys[k].parts) parts.push_back(std::move(*part));
    typed[k] = TVariantAttributeData::convertToSpecific(std::move(parts));
    // The pieces were read on two threads.
    if (pieces.size() > 1) returnFreedMemory();
  };
  // Columns read in pieces are large: two are decided at a time.
  if (pieces.size() > 1) {
    runTasks(keys.size(), [&](size_t k, unsigned) { decide(k); });
  } else {
    for (size_t k = 0; k < keys.size(); ++k) decide(k);
  }
  auto array = std::make_shared<TAttributeDataArray>();
  for (const TAttributePtr& column : typed)
    if (column) array->add(column);
  return array;
}

// The ids of the rows of all pieces, in order.
std::vector<uint32_t> joinIds(std::vector<TAttributeRows>& pieces) {
  if (pieces.size() == 1) return std::move(pieces.front().ids);
  size_t count = 0;
  for (const auto& piece : pieces) count += piece.ids.size();
  std::vector<uint32_t> ids;
  ids.reserve(count);
  for (auto& piece : pieces) {
    ids.insert(ids.end(), piece.ids.begin(), piece.ids.end());
    std::vector<uint32_t>().swap(piece.ids);
  }
  return ids;
}

// The set of the ids of rows read, alone in an array.
std::shared_ptr<TIntegerSetDataArray> idSet(const char* name, std::vector<uint32_t>& ids) {
  if (!std::is_sorted(ids.begin(), ids.end())) std::sort(ids.begin(), ids.end());
  ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
  auto set = std::make_shared<TIntegerSetData>(name);
  set->m_Set.reserve(ids.size());
  for (uint32_t id : ids) set->m_Set.insert(id);
  std::vector<uint32_t>().swap(ids);
  auto array = std::make_shared<TIntegerSetDataArray>();
  array->add(set);
  return array;
}

}  // namespace

std::shared_ptr<TAttributeDataArray> readAttributes(TDatabase& db, const std::string& query, bool ordered) {
  std::vector<TAttributeRows> rows(1, readAttributeRows(db, query, {}));
  return typedColumns(rows, ordered);
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

namespace {

// Consecutive ranges of rowids that hold every row of `table` between
// them, each about `rowsPerRange` wide and at most 64; none when one read
// would do, or the table has no rows, no rowids, or a column that takes
// the rowid's name.
std::vector<std::pair<int64_t, int64_t>> rowidRanges(TDatabase& db, const std::string& table, int64_t rowsPerRange) {
  std::vector<std::pair<int64_t, int64_t>> ranges;
  TCursorPtr named = db.execute(
      "SELECT count(*) FROM pragma_table_info(?) WHERE lower(name) IN ('rowid','_rowid_','oid')", {table}, false, true);
  if (!named || named->columnInt(0) != 0) return ranges;
  // Each query alone is answered from the ends of the table's tree.
  auto end = [&](const char* which) -> std::optional<int64_t> {
    TCursorPtr c = db.execute(std::string("SELECT ") + which + "(rowid) FROM " + table, {}, false, true);
    if (!c || c->columnType(0) != SQLITE_INTEGER) return std::nullopt;
    return c->columnInt(0);
  };
  const std::optional<int64_t> first = end("min");
  const std::optional<int64_t> last = end("max");
  if (!first || !last || rowsPerRange < 1) return ranges;
  // Widths in unsigned arithmetic: rowids may span the whole 64 bits.
  const uint64_t span = static_cast<uint64_t>(*last) - static_cast<uint64_t>(*first);
  constexpr uint64_t kMostRanges = 64;
  const uint64_t width = std::max(static_cast<uint64_t>(rowsPerRange), span / kMostRanges + 1);
  if (span < width) return ranges;
  for (uint64_t from = 0; from <= span; from += width) {
    const uint64_t to = span - from < width ? span : from + (width - 1);
    ranges.emplace_back(static_cast<int64_t>(static_cast<uint64_t>(*first) + from),
                        static_cast<int64_t>(static_cast<uint64_t>(*first) + to));
    if (to == span) break;
  }
  return ranges;
}

std::shared_ptr<TEdgeData> readEdges(TDatabase& db) {
  auto edges = std::make_shared<TEdgeData>();
  const int64_t count = db.execute("SELECT count(*) FROM edges")->columnInt(0);
  edges->reserve(static_cast<size_t>(std::max<int64_t>(0, count)));
  TCursorPtr c = db.execute("SELECT eid,fromnid,tonid FROM edges");
  // Read from the cursor without making a value of each.
  auto idAt = [&c](int i, uint32_t& out) {
    return c->columnType(i) == SQLITE_INTEGER && idInRange(c->columnInt(i), out);
  };
  uint32_t eid = 0;
  uint32_t from = 0;
  uint32_t to = 0;
  while (c->step())
    if (idAt(0, eid) && idAt(1, from) && idAt(2, to)) edges->addRow(eid, from, to);
  return edges;
}

}  // namespace

void TDatasetLoader::readDatabase(TDatabase& db) {
  for (const char* index : {"CREATE INDEX nodeattr_nid ON nodeattr (nid)", "CREATE INDEX edgeattr_eid ON edgeattr (eid)",
                            "CREATE INDEX hierarchy_parentnid_hid ON hierarchy (parentnid,hid)",
                            "CREATE INDEX hierarchy_parentnid ON hierarchy (parentnid)"})
    db.execute(index, {}, false, true);

  // Large attribute tables are read in ranges of rows by two connections
  // side by side; a database in memory has only the one.
  std::vector<std::pair<int64_t, int64_t>> nodeRanges;
  std::vector<std::pair<int64_t, int64_t>> edgeRanges;
  std::unique_ptr<TDatabase> second;
  if (!db.filename().empty() && db.filename() != ":memory:") {
    nodeRanges = rowidRanges(db, "nodeattr", m_RowsPerRead);
    edgeRanges = rowidRanges(db, "edgeattr", m_RowsPerRead);
    if (!nodeRanges.empty() || !edgeRanges.empty()) {
      try {
        second = std::make_unique<TDatabase>(db.filename());
      } catch (const TFlowError&) {
        nodeRanges.clear();
        edgeRanges.clear();
      }
    }
  }

  std::shared_ptr<THierarchyDataArray> hierarchies;
  std::shared_ptr<TEdgeData> edges;
  std::vector<TAttributeRows> nodePieces(std::max<size_t>(1, nodeRanges.size()));
  std::vector<TAttributeRows> edgePieces(std::max<size_t>(1, edgeRanges.size()));
  auto readPiece = [](TDatabase& from, const std::string& query, const auto& ranges, size_t k) {
    if (ranges.empty()) return readAttributeRows(from, query, {});
    return readAttributeRows(from, query + " WHERE rowid BETWEEN ? AND ?", {ranges[k].first, ranges[k].second});
  };
  // The hierarchies and the edges first, as they are read in one piece
  // each; the tasks' order is also the order of reading on one connection.
  enum Task : size_t { kHierarchies, kNodeAttributes, kEdgeAttributes, kEdges };
  std::vector<std::pair<Task, size_t>> tasks{{kHierarchies, 0}};
  if (second) tasks.emplace_back(kEdges, 0);
  for (size_t k = 0; k < nodePieces.size(); ++k) tasks.emplace_back(kNodeAttributes, k);
  for (size_t k = 0; k < edgePieces.size(); ++k) tasks.emplace_back(kEdgeAttributes, k);
  if (!second) tasks.emplace_back(kEdges, 0);
  auto run = [&](size_t t, TDatabase& from) {
    const auto [task, k] = tasks[t];
    switch (task) {
      case kHierarchies:
        hierarchies = readHierarchies(from);
        break;
      case kNodeAttributes:
        nodePieces[k] = readPiece(from, "SELECT nid,key,value FROM nodeattr", nodeRanges, k);
        break;
      case kEdgeAttributes:
        edgePieces[k] = readPiece(from, "SELECT eid,key,value FROM edgeattr", edgeRanges, k);
        break;
      case kEdges:
        edges = readEdges(from);
        break;
    }
  };
  std::vector<std::exception_ptr> thrown(tasks.size());
  if (second) {
    thrown = shareTasks(tasks.size(), [&](size_t t, unsigned worker) { run(t, worker == 0 ? db : *second); });
  } else {
    // One connection reads in order and stops at the first failure.
    for (size_t t = 0; t < tasks.size(); ++t) {
      try {
        run(t, db);
      } catch (...) {
        thrown[t] = std::current_exception();
        break;
      }
    }
  }
  // The outputs are set in the order of reading, up to the first part
  // that failed.
  auto check = [&](Task task) {
    for (size_t t = 0; t < tasks.size(); ++t)
      if (tasks[t].first == task && thrown[t]) std::rethrow_exception(thrown[t]);
  };
  check(kHierarchies);
  m_Hierarchies->setData(hierarchies);
  check(kNodeAttributes);
  m_NodeAttributes->setData(typedColumns(nodePieces, true));
  std::vector<uint32_t> ids = joinIds(nodePieces);
  m_NodeSelections->setData(idSet("all nodes", ids));
  check(kEdgeAttributes);
  m_EdgeAttributes->setData(typedColumns(edgePieces, false));
  ids = joinIds(edgePieces);
  check(kEdges);
  m_Edges->setData(edges);
  m_EdgeSelections->setData(idSet("all edges", ids));
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
