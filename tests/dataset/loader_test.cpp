// Loading datasets: the numbering walk, attribute columns, selections, the
// failure table, and both sample forms through BMain.
#include <gtest/gtest.h>
#include <pybind11/embed.h>
#include <pybind11/stl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "data/MColorMap.h"
#include "dataset/MDatasetLoader.h"
#include "dataset/MXmlReader.h"
#include "engine/MLibrary.h"
#include "engine/MMediator.h"
#include "support/TestHelpers.h"
#include "support/TestProcessors.h"

namespace py = pybind11;
using namespace quorvel;
using namespace quorvel::test;

namespace {

std::string sourceDir() { return std::getenv("QUORVEL_SOURCE_DIR"); }
std::string binaryDir() { return std::getenv("QUORVEL_BINARY_DIR"); }

// A dataset database with the given hierarchy links (hid, nid, parent or -1
// for NULL, childorder).
std::shared_ptr<TDatabase> datasetWith(const std::vector<std::array<int64_t, 4>>& links) {
  auto db = std::make_shared<TDatabase>(":memory:");
  TXmlReader::createDatasetTables(*db);
  for (const auto& l : links)
    db->execute("INSERT INTO hierarchy VALUES (?,?,?,?)",
                {l[0], l[1], l[2] < 0 ? TDbValue{} : TDbValue{l[2]}, l[3]});
  return db;
}

std::vector<THierarchyRow> rowsOf(TDatabase& db, size_t index = 0) {
  auto array = readHierarchies(db);
  return array->itemAs<THierarchyData>(index)->m_Rows;
}

// The dictionary text a loader failure carries.
py::dict failureOf(const std::function<void()>& f) {
  const std::string text = errorOf(f);
  return py::module_::import("ast").attr("literal_eval")(text).cast<py::dict>();
}

struct LoadedDataset {
  std::shared_ptr<TFlowManager> savedLib = me.flowlib;
  std::shared_ptr<TFlowManager> savedLayout = me.flowlayout;
  TBoxPtr main;
  explicit LoadedDataset(const std::string& file) {
    setUpNetworks(binaryDir() + "/bin/library");
    main = instantiateLibBox("BMain", {{{"dataset filename", file}}, {}});
    doflow(*me.flowlayout);
  }
  ~LoadedDataset() {
    me.flowlayout->destroy();
    me.flowlib->destroy();
    me.flowlib = savedLib;
    me.flowlayout = savedLayout;
  }
  template <class T>
  std::shared_ptr<T> port(const std::string& name) {
    TProcessorPtr p = main->getIdentityProcessorByInputName(name);
    return p ? std::dynamic_pointer_cast<T>(p->getOnlyOutputPin()->getData()) : nullptr;
  }
};

}  // namespace

TEST(Loader, NumberingWalk) {
  auto one = datasetWith({{1, 7, -1, 0}});
  EXPECT_EQ(rowsOf(*one), (std::vector<THierarchyRow>{{0, 1, 4}, {7, 2, 3}}));
  // r with children a and b, c below a; b's childorder is the smaller.
  auto small = datasetWith({{1, 1, -1, 0}, {1, 2, 1, 2}, {1, 3, 1, 1}, {1, 4, 2, 1}, {1, 9, 77, 1}});
  EXPECT_EQ(rowsOf(*small), (std::vector<THierarchyRow>{{0, 1, 10}, {1, 2, 9}, {3, 3, 4}, {2, 5, 8}, {4, 6, 7}}))
      << "children in childorder; the unreachable node 9 is not read";
  // Ties in childorder come in the order the database gives them.
  auto ties = datasetWith({{1, 1, -1, 0}, {1, 5, 1, 1}, {1, 3, 1, 1}, {1, 4, 1, 1}});
  const auto tied = rowsOf(*ties);
  EXPECT_EQ(tied[2].nid, 5u);
  EXPECT_EQ(tied[3].nid, 3u);
  EXPECT_EQ(tied[4].nid, 4u);
  // Two hierarchies over the same nodes, and a second root that is ignored.
  auto two = datasetWith({{1, 1, -1, 0}, {1, 2, 1, 1}, {2, 2, -1, 0}, {2, 1, 2, 1}, {2, 8, -1, 0}});
  auto array = readHierarchies(*two);
  ASSERT_EQ(array->getItemCount(), 2u);
  EXPECT_EQ(array->itemAs<THierarchyData>(1)->m_KeyName, "hierarchy 2");
  EXPECT_EQ(array->itemAs<THierarchyData>(1)->m_Rows[1].nid, 2u);
  EXPECT_EQ(array->itemAs<THierarchyData>(1)->getRowCount(), 3u);
  EXPECT_EQ(readHierarchies(*datasetWith({}))->getItemCount(), 0u);
}

TEST(Loader, BrokenHierarchiesFailInsteadOfCrashing) {
  EXPECT_EQ(errorOf([] { readHierarchies(*datasetWith({{3, 1, 2, 0}})); }),
            "Could not find root node for hierarchy 3");
  // A cycle through the root: 1 -> 2 -> 3 -> 1.
  const std::string cycle =
      errorOf([] { readHierarchies(*datasetWith({{1, 1, -1, 0}, {1, 2, 1, 0}, {1, 3, 2, 0}, {1, 1, 3, 0}})); });
  EXPECT_EQ(cycle, "Cycle in hierarchy 1: node 1 lies below itself");
  // Not trees: two parents, a node twice below one parent, the root's id.
  EXPECT_EQ(errorOf([] { readHierarchies(*datasetWith({{1, 1, -1, 0}, {1, 2, 1, 0}, {1, 3, 1, 1}, {1, 4, 2, 0},
                                                       {1, 4, 3, 0}})); }),
            "Node 4 has two parents in hierarchy 1: nodes 2 and 3");
  EXPECT_EQ(errorOf([] { readHierarchies(*datasetWith({{1, 1, -1, 0}, {1, 2, 1, 0}, {1, 2, 1, 1}})); }),
            "Node 2 is listed twice below node 1 in hierarchy 1");
  EXPECT_EQ(errorOf([] { readHierarchies(*datasetWith({{1, 1, -1, 0}, {1, 0, 1, 0}})); }),
            "Node 0 in hierarchy 1: 0 is the id of the synthetic root");
  EXPECT_EQ(errorOf([] { readHierarchies(*datasetWith({{1, 0, -1, 0}, {1, 2, 0, 0}})); }),
            "Node 0 in hierarchy 1: 0 is the id of the synthetic root");
  // A chain far deeper than any stack.
  auto deep = std::make_shared<TDatabase>(":memory:");
  TXmlReader::createDatasetTables(*deep);
  std::vector<TDbParams> links{{int64_t(1), int64_t(1), TDbValue{}, int64_t(0)}};
  for (int64_t n = 2; n <= 200000; ++n) links.push_back({int64_t(1), n, n - 1, int64_t(0)});
  deep->executeMany("INSERT INTO hierarchy VALUES (?,?,?,?)", links);
  const auto rows = rowsOf(*deep);
  ASSERT_EQ(rows.size(), 200001u);
  EXPECT_EQ(rows.back(), (THierarchyRow{200000, 200001, 200002}));
}

TEST(Loader, AttributeColumnsAndTheirOrder) {
  auto db = datasetWith({});
  const std::vector<std::tuple<int64_t, std::string, TDbValue>> rows = {
      {1, "zeta", int64_t(1)},  {1, "_hidden", std::string("x")}, {1, "type", std::string("file")},
      {1, "name", std::string("a")}, {1, "alpha", 2.5},  {2, "alpha", int64_t(3)},
      {1, "size", int64_t(1)},  {2, "size", int64_t(2)},  {3, "size", std::string("n/a")},
      {1, "nulls", TDbValue{}}, {2, "nulls", TDbValue{}}, {1, "_a", int64_t(5)},
      {1, "bytes", int64_t(5000000000)}, {2, "bytes", int64_t(9)}, {3, "bytes", int64_t(40000000000)}};
  for (const auto& [id, key, value] : rows)
    db->execute("INSERT INTO nodeattr (nid,key,value) VALUES (?,?,?)", {id, key, value});
  auto array = readAttributes(*db, "SELECT nid,key,value FROM nodeattr", true);
  std::vector<std::string> keys;
  for (size_t i = 0; i < array->getItemCount(); ++i) keys.push_back(array->m_Items[i]->getKeyName());
  EXPECT_EQ(keys, (std::vector<std::string>{"name", "type", "alpha", "bytes", "size", "zeta", "_a", "_hidden"}))
      << "an attribute of NULL values only is dropped";
  auto alpha = array->itemByKeyAs<TAttributeData>("alpha");
  EXPECT_EQ(alpha->getAttributeType(), "float");
  auto size = array->itemByKeyAs<TStringAttributeData>("size");
  ASSERT_TRUE(size);
  bool found = false;
  EXPECT_EQ(size->getValueById(2, found), "2");
  EXPECT_EQ(size->getValueById(3, found), "n/a");
  EXPECT_EQ(array->itemByKeyAs<TAttributeData>("zeta")->getAttributeType(), "int");
  // Integers beyond 32 bits: a number column, whose order is that of the
  // numbers, not of their texts.
  auto bytes = array->itemByKeyAs<TAttributeData>("bytes");
  EXPECT_EQ(bytes->getAttributeType(), "float");
  std::vector<uint32_t> ids{1, 2, 3};
  bytes->sort(ids, true);
  EXPECT_EQ(ids, (std::vector<uint32_t>{2, 1, 3}));
}

TEST(Loader, BothSampleFormsGiveTheSameDataset) {
  // Loading writes indexes into a database: work on copies.
  const std::string dir = sourceDir() + "/samples/orbit/";
  for (const char* f : {"orbit.db", "orbit.xml"})
    std::filesystem::copy_file(dir + f, f, std::filesystem::copy_options::overwrite_existing);
  LoadedDataset fromDb("orbit.db");
  LoadedDataset fromXml("orbit.xml");
  for (auto* d : {&fromDb, &fromXml}) {
    auto hierarchies = d->port<THierarchyDataArray>("hierarchies");
    ASSERT_TRUE(hierarchies) << "the dataset flowed through BMain";
    ASSERT_EQ(hierarchies->getItemCount(), 2u);
    auto h1 = hierarchies->itemAs<THierarchyData>(0);
    EXPECT_EQ(h1->getRowCount(), 28u) << "27 nodes and the synthetic root";
    EXPECT_EQ(h1->getNidsBelowNid(12), (std::vector<uint32_t>{12, 13, 14}));
    auto nodes = d->port<TIntegerSetDataArray>("node selections")->itemAs<TIntegerSetData>(0);
    EXPECT_EQ(nodes->m_KeyName, "all nodes");
    EXPECT_FALSE(nodes->contains(27)) << "a node without attributes";
    EXPECT_EQ(nodes->getCount(), 29u);
    auto edges = d->port<TEdgeData>("edges");
    EXPECT_EQ(edges->getRowCount(), 18u);
    auto allEdges = d->port<TIntegerSetDataArray>("edge selections")->itemAs<TIntegerSetData>(0);
    EXPECT_FALSE(allEdges->contains(1017));
    // The dataset's columns, then the derived ones.
    auto attributes = d->port<TDataArray>("node attributes");
    ASSERT_TRUE(attributes);
    std::vector<std::string> keys;
    for (const auto& item : attributes->m_Items) keys.push_back(item->getKeyName() + ":" +
                                                                 std::static_pointer_cast<TAttributeData>(item)->getAttributeType());
    EXPECT_EQ(keys, (std::vector<std::string>{"name:string", "type:string", "complexity:float", "language:string",
                                              "lines:int", "size:string", "_srcloc:string", "fan out (*):int",
                                              "fan in (*):int", "id (*):int"}));
    auto colormaps = d->port<TColorMapDataArray>("colormaps");
    ASSERT_TRUE(colormaps);
    EXPECT_EQ(colormaps->getItemCount(), 4u);
  }
  // Value by value, the two forms agree.
  auto same = [](const std::shared_ptr<TDataArray>& a, const std::shared_ptr<TDataArray>& b) {
    ASSERT_EQ(a->getItemCount(), b->getItemCount());
    for (size_t i = 0; i < a->getItemCount(); ++i) {
      auto x = a->itemAs<TAttributeData>(i);
      auto y = b->itemAs<TAttributeData>(i);
      ASSERT_EQ(x->getRowCount(), y->getRowCount()) << x->getKeyName();
      for (size_t r = 0; r < x->getRowCount(); ++r) {
        bool f1 = false;
        bool f2 = false;
        const uint32_t id = x->getIdByRow(r);
        EXPECT_EQ(x->getTextValueById(id, f1), y->getTextValueById(id, f2)) << x->getKeyName() << " " << id;
        EXPECT_TRUE(f1 && f2);
      }
    }
  };
  same(fromDb.port<TDataArray>("node attributes"), fromXml.port<TDataArray>("node attributes"));
  same(fromDb.port<TDataArray>("edge attributes"), fromXml.port<TDataArray>("edge attributes"));
  for (size_t i = 0; i < 2; ++i)
    EXPECT_TRUE(fromDb.port<THierarchyDataArray>("hierarchies")
                    ->itemAs<THierarchyData>(i)
                    ->sameRows(*fromXml.port<THierarchyDataArray>("hierarchies")->itemAs<THierarchyData>(i)));
  EXPECT_EQ(fromDb.port<TEdgeData>("edges")->m_Rows, fromXml.port<TEdgeData>("edges")->m_Rows);
}

TEST(Loader, FailureTable) {
  Net net;
  auto loader = net.add<TDatasetLoader>(net.fm);
  auto run = [&](const std::string& file) {
    loader->m_In->setData(std::make_shared<TStringData>(file));
    loader->process_python();
  };
  auto saved = me.logger;
  me.logger = std::make_shared<TLogger>("loader.log");
  run("no-such-file.db");
  EXPECT_EQ(me.logger->records().back().text, "File does not exist: 'no-such-file.db'");
  EXPECT_EQ(loader->m_Hierarchies->getData(), nullptr);

  {
    std::ofstream junk("junk.db", std::ios::binary);
    junk << std::string(2048, 'j');
  }
  py::dict d = failureOf([&] { run("junk.db"); });
  EXPECT_EQ(d["title"].cast<std::string>(), "Dataset loader");
  EXPECT_EQ(d["msg"].cast<std::string>(), "file is not a database");
  EXPECT_EQ(d["actions"].cast<std::vector<std::string>>(), (std::vector<std::string>{"closeFile", "popup"}));

  std::filesystem::remove("empty.db");
  TDatabase("empty.db").execute("CREATE TABLE x (a)");
  d = failureOf([&] { run("empty.db"); });
  EXPECT_EQ(d["msg"].cast<std::string>(), "no such table: hierarchy");

  std::filesystem::remove("rootless.db");
  {
    TDatabase rootless("rootless.db");
    TXmlReader::createDatasetTables(rootless);
    rootless.execute("INSERT INTO hierarchy VALUES (4, 1, 2, 0)");
    rootless.commit();
  }
  d = failureOf([&] { run("rootless.db"); });
  EXPECT_EQ(d["msg"].cast<std::string>(), "Could not find root node for hierarchy 4");

  {
    std::ofstream bad("bad.xml");
    bad << "<dataset><nodes><node nid=\"0\"/></nodes></dataset>";
  }
  d = failureOf([&] { run("bad.xml"); });
  EXPECT_EQ(d["title"].cast<std::string>(), "XML reader");
  EXPECT_EQ(d["msg"].cast<std::string>(), "<node>: attribute 'nid' should not be 0 (line 1, column 16)");
  // The test of the name is case sensitive: .XML is opened as a database.
  std::filesystem::copy_file("bad.xml", "bad.XML", std::filesystem::copy_options::overwrite_existing);
  d = failureOf([&] { run("bad.XML"); });
  EXPECT_EQ(d["title"].cast<std::string>(), "Dataset loader");

  // Pipes are no datasets: a clear failure, not a reader that waits for a
  // writer forever.
  for (const char* pipe : {"pipe.xml", "pipe.db"}) {
    std::filesystem::remove(pipe);
    ASSERT_EQ(::mkfifo(pipe, 0600), 0);
    d = failureOf([&] { run(pipe); });
    EXPECT_NE(d["msg"].cast<std::string>().find("not a regular file"), std::string::npos) << pipe;
    std::filesystem::remove(pipe);
  }

  // Bytes that are not UTF-8 in a failure reach the message and the log
  // as escapes.
  std::filesystem::remove("latin1.db");
  {
    TDatabase latin1("latin1.db");
    TXmlReader::createDatasetTables(latin1);
    latin1.execute("INSERT INTO hierarchy VALUES (1, CAST(x'4dfc6c6c6572' AS TEXT), NULL, 0)");
    latin1.commit();
  }
  d = failureOf([&] { run("latin1.db"); });
  EXPECT_EQ(d["msg"].cast<std::string>(), "Root node 'M\\xfcller' of hierarchy 1 is no node id");
  me.logger->error(std::string("M\xfcller"));
  EXPECT_NE(py::cast(me.logger->getLastMessages()).cast<std::string>().find("M\\xfcller"), std::string::npos);

  // The outputs set before a failure stay: hierarchies come first.
  std::filesystem::remove("partial.db");
  {
    TDatabase partial("partial.db");
    partial.execute("CREATE TABLE hierarchy (hid INTEGER, nid INTEGER, parentnid INTEGER, childorder INTEGER)");
    partial.execute("INSERT INTO hierarchy VALUES (1, 5, NULL, 0)");
    partial.commit();
  }
  d = failureOf([&] { run("partial.db"); });
  EXPECT_EQ(d["msg"].cast<std::string>(), "no such table: nodeattr");
  EXPECT_TRUE(loader->m_Hierarchies->getData());
  me.logger = saved;
}

TEST(Loader, ReadOnlyDatasetsLoad) {
  // Root may write anywhere; the check needs an ordinary user.
  if (::geteuid() == 0) GTEST_SKIP() << "runs as root; the read-only case is covered by test_readonly";
  const std::string file = "readonly.db";
  std::filesystem::copy_file(sourceDir() + "/samples/orbit/orbit.db", file,
                             std::filesystem::copy_options::overwrite_existing);
  std::filesystem::permissions(file, std::filesystem::perms::owner_read | std::filesystem::perms::group_read |
                                         std::filesystem::perms::others_read);
  TDatabase db(file);
  EXPECT_TRUE(db.isReadOnly());
  Net net;
  auto loader = net.add<TDatasetLoader>(net.fm);
  EXPECT_NO_THROW(loader->readDatabase(db)) << "the indexes fail quietly";
  EXPECT_EQ(dataAs<TEdgeData>(loader->m_Edges)->getRowCount(), 18u);
  std::filesystem::permissions(file, std::filesystem::perms::owner_write, std::filesystem::perm_options::add);
}

TEST(Loader, SmallLoaders) {
  Net net;
  auto dbLoader = net.add<TDatabaseLoader>(net.fm);
  dbLoader->m_In->setData(std::make_shared<TStringData>("nothing.db"));
  net.pass();
  EXPECT_EQ(dbLoader->getError(), "File does not exist: 'nothing.db'\n");
  EXPECT_EQ(dbLoader->m_Out->getData(), nullptr);
  std::filesystem::remove("there.db");
  TDatabase("there.db").execute("CREATE TABLE t (a)");
  dbLoader->m_In->setData(std::make_shared<TStringData>("there.db"));
  net.pass();
  EXPECT_EQ(dataAs<TStringData>(dbLoader->m_Out)->getValue(), "there.db");
  EXPECT_EQ(dbLoader->m_Out->getAcceptedType(), "TDatabaseData");

  auto savedIcons = me.imagelistmap;
  me.imagelistmap = TPyRef::steal(py::eval("{'folder': 3, 'file': 4}").release().ptr());
  auto icons = net.add<TIconLoader>(net.fm);
  net.pass();
  auto map = dataAs<TMapStringToIntegerData>(icons->m_Output);
  ASSERT_TRUE(map);
  bool found = false;
  EXPECT_EQ(map->get("file", found), 4);
  me.imagelistmap = TPyRef::steal(py::eval("{}").release().ptr());
  net.pass();
  EXPECT_EQ(dataAs<TMapStringToIntegerData>(icons->m_Output), map) << "the first time only";
  me.imagelistmap = savedIcons;

  auto colormaps = net.add<TColorMapLoader>(net.fm);
  auto array = dataAs<TColorMapDataArray>(colormaps->m_Output);
  ASSERT_TRUE(array) << "made with the implementation, in the running network";
  EXPECT_EQ(array->itemAs<TColorMapData>(0)->m_KeyName, "GreenYellowRed");
  EXPECT_EQ(array->itemAs<TColorMapData>(0)->getColorMap()->getName(), "green-red");
  auto lib = makeFlowManager(false);
  auto inLibrary = lib->constructProcessor<TColorMapLoader>();
  EXPECT_EQ(inLibrary->m_Output->getData(), nullptr);
  inLibrary->destroy();
}

TEST(Loader, ReadingInRangesOnTwoThreadsGivesWhatOneReadGives) {
  const std::string file = "ranges.db";
  std::filesystem::remove(file);
  {
    TDatabase db(file);
    TXmlReader::createDatasetTables(db);
    std::vector<TDbParams> links{{int64_t(1), int64_t(1), TDbValue{}, int64_t(0)}};
    std::vector<TDbParams> nodes;
    for (int64_t n = 2; n <= 42; ++n) links.push_back({int64_t(1), n, int64_t(1), n});
    for (int64_t n = 1; n <= 40; ++n) {
      nodes.push_back({n, std::string("name"), "n" + std::to_string(n)});
      // Numbers with one text far down make a text column; integers with
      // one float a float column.
      nodes.push_back({n, std::string("size"), n == 30 ? TDbValue{std::string("n/a")} : TDbValue{n}});
      nodes.push_back({n, std::string("weight"), n == 35 ? TDbValue{2.5} : TDbValue{n * 7}});
    }
    nodes.push_back({int64_t(5), std::string("name"), std::string("again")});  // takes over node 5
    nodes.push_back({int64_t(39), std::string("late"), std::string("x")});
    nodes.push_back({std::string("x"), std::string("name"), std::string("no id")});
    for (int64_t n : {41, 42}) nodes.push_back({n, std::string("nulls"), TDbValue{}});
    std::vector<TDbParams> edges;
    std::vector<TDbParams> edgeRows;
    for (int64_t e = 1; e <= 30; ++e) {
      edges.push_back({e, e % 40 + 1, (e * 7) % 40 + 1});
      if (e == 29) edgeRows.push_back({e, std::string("late"), int64_t(1)});
      edgeRows.push_back({e, std::string("kind"), e % 3 ? std::string("call") : std::string("use")});
    }
    db.executeMany("INSERT INTO hierarchy VALUES (?,?,?,?)", links);
    db.executeMany("INSERT INTO nodeattr (nid,key,value) VALUES (?,?,?)", nodes);
    db.executeMany("INSERT INTO edges VALUES (?,?,?)", edges);
    db.executeMany("INSERT INTO edgeattr (eid,key,value) VALUES (?,?,?)", edgeRows);
    db.execute("DELETE FROM nodeattr WHERE rowid % 13 = 0");  // gaps in the rowids
    // Rowids across the whole range of 64 bits: a bounded number of ranges.
    db.execute("INSERT INTO nodeattr (rowid,nid,key,value) VALUES (-9223372036854775807,41,'late','first')");
    db.execute("INSERT INTO nodeattr (rowid,nid,key,value) VALUES (9223372036854775807,38,'late','last')");
    db.commit();
  }
  Net one;
  Net two;
  auto load = [&](Net& net, int64_t rowsPerRead) {
    auto loader = net.add<TDatasetLoader>(net.fm);
    loader->m_RowsPerRead = rowsPerRead;
    TDatabase db(file);
    loader->readDatabase(db);
    return loader;
  };
  auto whole = load(one, 1000000);
  auto ranges = load(two, 4);
  auto columns = [](const TPinPtr& pin) {
    std::vector<std::string> out;
    auto array = dataAs<TDataArray>(pin);
    for (size_t i = 0; i < array->getItemCount(); ++i) {
      auto c = array->itemAs<TAttributeData>(i);
      std::string text = c->getKeyName() + ":" + c->getAttributeType();
      for (size_t r = 0; r < c->getRowCount(); ++r) {
        bool found = false;
        text += " " + std::to_string(c->getIdByRow(r)) + "=" + c->getTextValueById(c->getIdByRow(r), found);
      }
      out.push_back(text);
    }
    return out;
  };
  const auto nodeColumns = columns(whole->m_NodeAttributes);
  ASSERT_EQ(nodeColumns.size(), 4u);
  EXPECT_EQ(nodeColumns[0].substr(0, 25), "name:string 1=n1 2=n2 3=n");
  EXPECT_NE(nodeColumns[0].find(" 5=again"), std::string::npos);
  EXPECT_EQ(nodeColumns[1].substr(0, 12), "late:string ");
  EXPECT_EQ(nodeColumns[2].substr(0, 12), "size:string ");
  EXPECT_EQ(nodeColumns[3].substr(0, 13), "weight:float ");
  EXPECT_EQ(columns(ranges->m_NodeAttributes), nodeColumns);
  const auto edgeColumns = columns(whole->m_EdgeAttributes);
  ASSERT_EQ(edgeColumns.size(), 2u);
  EXPECT_EQ(edgeColumns[0].substr(0, 12), "kind:string ") << "keys in the order they first came";
  EXPECT_EQ(columns(ranges->m_EdgeAttributes), edgeColumns);
  auto ids = [](const TPinPtr& pin) {
    return dataAs<TIntegerSetDataArray>(pin)->itemAs<TIntegerSetData>(0)->m_Set.ids();
  };
  EXPECT_EQ(ids(ranges->m_NodeSelections), ids(whole->m_NodeSelections));
  EXPECT_EQ(ids(whole->m_NodeSelections).back(), 42u) << "a node of NULL values only is a node";
  EXPECT_EQ(ids(ranges->m_EdgeSelections), ids(whole->m_EdgeSelections));
  EXPECT_EQ(dataAs<TEdgeData>(ranges->m_Edges)->m_Rows, dataAs<TEdgeData>(whole->m_Edges)->m_Rows);
  EXPECT_TRUE(dataAs<THierarchyDataArray>(ranges->m_Hierarchies)
                  ->itemAs<THierarchyData>(0)
                  ->sameRows(*dataAs<THierarchyDataArray>(whole->m_Hierarchies)->itemAs<THierarchyData>(0)));

  // A part that fails: what was read before it in order is set, the rest
  // is not, and the failure is raised.
  TDatabase(file).execute("DROP TABLE edgeattr");
  Net net;
  auto loader = net.add<TDatasetLoader>(net.fm);
  loader->m_RowsPerRead = 4;
  TDatabase db(file);
  EXPECT_EQ(errorOf([&] { loader->readDatabase(db); }), "no such table: edgeattr");
  EXPECT_TRUE(loader->m_Hierarchies->getData());
  EXPECT_EQ(columns(loader->m_NodeAttributes), nodeColumns);
  EXPECT_TRUE(loader->m_NodeSelections->getData());
  EXPECT_FALSE(loader->m_EdgeAttributes->getData());
  EXPECT_FALSE(loader->m_Edges->getData());
}
