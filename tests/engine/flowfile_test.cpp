#include <gtest/gtest.h>
#include <pybind11/embed.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "base/MDatabase.h"
#include "engine/MMediator.h"
#include "data/MDataSources.h"
#include "support/TestHelpers.h"
#include "support/TestProcessors.h"

namespace py = pybind11;
namespace fs = std::filesystem;
using namespace quorvel;
using namespace quorvel::test;

namespace {

template <class T>
std::shared_ptr<T> source(Net& net, const TBoxPtr& box, const std::string& key, TDataPtr value, float y = 0) {
  auto p = net.add<T>(box, y);
  p->m_KeyName = key;
  p->setData(std::move(value));
  return p;
}

template <class T>
std::shared_ptr<T> valueOf(const TBoxPtr& box, const std::string& key) {
  auto p = std::dynamic_pointer_cast<TAbstractDataSource>(box->getProcessorByName(key));
  return p ? std::dynamic_pointer_cast<T>(p->getData()) : nullptr;
}

int64_t count(const std::string& file, const std::string& query) {
  TDatabase db(file);
  return std::get<int64_t>((*db.execute(query)->fetchone())[0]);
}

}  // namespace

TEST(FlowFiles, StoreAndLoadKeepStructureValuesAndPortNames) {
  Net net;
  auto outer = net.box(net.fm, "BOuter");
  auto inner = net.box(outer, "BInner");
  auto list = std::make_shared<TStringListData>();
  list->add("two words");
  list->add("line\nend");
  auto set = std::make_shared<TIntegerSetData>("sel");
  set->add(4);
  set->add(9);
  auto names = std::make_shared<TStringDataArray>();
  names->add(std::make_shared<TStringData>("node attributes"));
  source<TStringDataSource>(net, outer, "s", std::make_shared<TStringData>("a text"));
  source<TIntDataSource>(net, outer, "i", std::make_shared<TIntegerData>(-3));
  source<TFloatDataSource>(net, outer, "f", std::make_shared<TFloatData>(0.1f));
  source<TBooleanDataSource>(net, inner, "b", std::make_shared<TBooleanData>(true));
  source<TFloatPairDataSource>(net, inner, "fp", std::make_shared<TFloatPairData>(1.5f, 2.0f));
  source<TStringListDataSource>(net, inner, "sl", list);
  source<TIntegerSetDataSource>(net, inner, "set", set);
  source<TStringDataArraySource>(net, inner, "arr", names);
  auto py = source<TPythonDataSource>(
      net, inner, "py",
      std::make_shared<TPythonData>(TPyRef::steal(py::eval("{'pass': 2, 'key_op': 'or'}").release().ptr())));
  auto port = net.add<TAbstractIdentityProcessor>(inner, 50);
  port->m_InputPin->m_Name = "node attributes";
  port->m_KeyName = "port";
  auto relay = net.add<TRelay>(outer, 60);
  relay->m_KeyName = "relay";
  relay->m_Area = TBox(10, 60, 500, 75);
  // Parallel connectors, and a connector between two boxes.
  net.fm->createConnection(port->m_OutputPin, relay->in);
  net.fm->createConnection(port->m_OutputPin, relay->in);
  net.fm->createConnection(py->m_OutputPin, port->m_InputPin);
  net.fm->store(outer, "net.qvperspective");
  EXPECT_EQ(count("net.qvperspective", "SELECT count(*) FROM connectors"), 3);
  EXPECT_EQ(count("net.qvperspective", "SELECT count(*) FROM boxes"), 2);

  Net back;
  auto objs = back.fm->load(back.fm, "net.qvperspective");
  ASSERT_TRUE(objs);
  ASSERT_EQ(back.fm->m_Children.size(), 1u);
  auto b = back.fm->m_Children[0];
  EXPECT_EQ(b->m_Type, "BOuter");
  ASSERT_EQ(b->m_Children.size(), 1u);
  EXPECT_EQ(b->m_Children[0]->m_Type, "BInner");
  EXPECT_EQ(std::dynamic_pointer_cast<TAbstractBox>(objs->front()), b) << "boxes come first";
  EXPECT_EQ(valueOf<TStringData>(b, "s")->getValue(), "a text");
  EXPECT_EQ(valueOf<TIntegerData>(b, "i")->getValue(), -3);
  EXPECT_EQ(valueOf<TFloatData>(b, "f")->getValue(), 0.1f);
  EXPECT_TRUE(valueOf<TBooleanData>(b, "b")->getValue());
  EXPECT_EQ(valueOf<TFloatPairData>(b, "fp")->getSecond(), 2.0f);
  EXPECT_EQ(valueOf<TStringListData>(b, "sl")->m_List, list->m_List);
  EXPECT_EQ(valueOf<TIntegerSetData>(b, "set")->m_Set, set->m_Set);
  EXPECT_EQ(valueOf<TStringDataArray>(b, "arr")->itemAs<TStringData>(0)->getValue(), "node attributes");
  py::dict d = py::reinterpret_borrow<py::dict>(valueOf<TPythonData>(b, "py")->getValue().get());
  EXPECT_EQ(d["key_op"].cast<std::string>(), "or");

  auto loadedPort = std::dynamic_pointer_cast<TAbstractIdentityProcessor>(b->getProcessorByName("port"));
  ASSERT_TRUE(loadedPort);
  EXPECT_EQ(loadedPort->m_InputPin->m_Name, "node attributes");
  EXPECT_EQ(loadedPort->m_OutputPin->m_Connectors.size(), 2u) << "parallel connectors come back";
  EXPECT_EQ(loadedPort->m_InputPin->m_Connectors.size(), 1u);
  auto loadedRelay = b->getProcessorByName("relay");
  EXPECT_EQ(loadedRelay->m_Area.tl, TVector2(10, 60));
  EXPECT_EQ(loadedRelay->m_Area.br.y, 75.0f);
  EXPECT_EQ(loadedRelay->m_Area.br.x, 10.0f + 8.0f * 5 + 2.0f) << "the right edge follows the type name";
  // Loading gives every object a new id.
  net.fm->load(net.fm, "net.qvperspective");
  auto reloaded = net.fm->m_Children.back()->getProcessorByName("relay");
  ASSERT_NE(reloaded, relay);
  EXPECT_GT(reloaded->m_Id, relay->m_Id);
}

TEST(FlowFiles, PartialFilesUnknownClassesAndBoxesOutsideTheFile) {
  Net net;
  auto main = net.box(net.fm, "BMain");
  auto view = net.box(net.fm, "BView");
  auto out = net.add<TAbstractIdentityProcessor>(main);
  out->m_OutputPin->m_Name = "x";
  auto in = net.add<TAbstractIdentityProcessor>(view);
  in->m_InputPin->m_Name = "x";
  net.fm->createConnection(out->m_OutputPin, in->m_InputPin);
  net.fm->store(view, "view.db");
  EXPECT_EQ(count("view.db", "SELECT count(*) FROM connectors"), 1) << "stored from the view's side";

  Net back;
  auto holder = back.box(back.fm, "holder");
  auto objs = back.fm->load(holder, "view.db");
  ASSERT_TRUE(objs);
  ASSERT_EQ(holder->m_Children.size(), 1u) << "a parent outside the file: under topbox";
  EXPECT_TRUE(holder->m_Children[0]->m_Processors[0]->m_InputPins[0]->m_Connectors.empty());

  {
    TDatabase db("view.db");
    db.execute("UPDATE processors SET ctor='TNoSuchClass'");
    db.commit();
  }
  Net third;
  objs = third.fm->load(third.fm, "view.db");
  ASSERT_TRUE(objs);
  EXPECT_EQ(objs->size(), 1u) << "only the box";
  ASSERT_EQ(third.fm->exceptions.size(), 1u);
  EXPECT_NE(third.fm->exceptions[0].find("TNoSuchClass"), std::string::npos);

  EXPECT_FALSE(third.fm->load(third.fm, "no-such-file.db"));
  EXPECT_TRUE(third.fm->exceptions.empty());

  // A network without boxes: processors with NULL boxes.
  Net flat;
  flat.add<TRelay>(flat.fm);
  flat.fm->store(flat.fm, "flat.db");
  EXPECT_EQ(count("flat.db", "SELECT count(*) FROM processors WHERE boxid IS NULL"), 1);
  EXPECT_EQ(count("flat.db", "SELECT count(*) FROM boxes"), 0);
}

TEST(FlowFiles, StoreReplacesWholeAndAFailureKeepsTheOldFile) {
  Net net;
  auto box = net.box(net.fm, "BOne");
  net.add<TRelay>(box);
  net.add<TRelay>(box);
  net.fm->store(box, "keep.db");
  EXPECT_EQ(count("keep.db", "SELECT count(*) FROM processors"), 2);
  box->m_Processors[0]->destroy();
  net.fm->store(box, "keep.db");
  EXPECT_EQ(count("keep.db", "SELECT count(*) FROM processors"), 1) << "replaced whole";

  // A source whose value cannot be read fails the store half way.
  py::dict ns;
  py::exec(R"(
from MQuorvel import *
class Broken(TAbstractDataSource):
    def postCreate(self):
        self.addOutputPin("TStringData", "out")
    def getData(self):
        raise ValueError("cannot read")
)",
           ns);
  py::object broken = ns["Broken"]();
  auto brokenProc = net.fm->constructProcessor([&broken] { return broken.cast<TProcessorPtr>(); });
  box->addProcessor(brokenProc);
  EXPECT_THROW(net.fm->store(box, "keep.db"), TUserException) << "the user is told, as for a full disk";
  EXPECT_EQ(count("keep.db", "SELECT count(*) FROM processors"), 1) << "the earlier file is intact";
  for (const auto& entry : fs::directory_iterator("."))
    EXPECT_EQ(entry.path().string().find(".writing-"), std::string::npos) << entry.path();

  try {
    net.fm->store(box, "/no/such/folder/x.db");
    FAIL();
  } catch (const TUserException& e) {
    EXPECT_STREQ(e.what(), "Error while writing to '/no/such/folder/x.db'");
    EXPECT_FALSE(e.traceback.empty());
  }
}

TEST(FlowFiles, ValuesThatCannotBeWrittenOrRead) {
  Net net;
  auto box = net.box(net.fm, "B");
  py::exec("class NoRepr:\n    def __repr__(self):\n        raise ValueError('no repr')\n",
           py::module_::import("__main__").attr("__dict__"));
  auto p = source<TPythonDataSource>(net, box, "p",
                                     std::make_shared<TPythonData>(TPyRef::steal(py::eval("NoRepr()").release().ptr())));
  ::testing::internal::CaptureStdout();
  net.fm->store(box, "values.db");
  const std::string out = ::testing::internal::GetCapturedStdout();
  EXPECT_NE(out.find("Exception while writing 'ps'"), std::string::npos);
  EXPECT_NE(out.find("\ninternalvalue of "), std::string::npos);
  EXPECT_EQ(count("values.db", "SELECT count(*) FROM processors WHERE internalvalue IS NULL"), 1);

  {
    TDatabase db("values.db");
    db.execute("UPDATE processors SET ctor='TIntDataSource', internalvalue=?",
               {std::string("{'class': 'TIntegerData', 'data': '12x'}")});
    db.commit();
  }
  me.manualupdate = false;
  Net back;
  ::testing::internal::CaptureStdout();
  back.fm->load(back.fm, "values.db");
  EXPECT_NE(::testing::internal::GetCapturedStdout().find("Exception while reading {'class'"), std::string::npos);
  EXPECT_TRUE(me.manualupdate) << "a broken value stops the network";
  me.manualupdate = false;

  // A class that cannot be made without arguments: printed, no value.
  {
    TDatabase db("values.db");
    db.execute("UPDATE processors SET internalvalue=?", {std::string("{'class': 'TProcessorData', 'data': ''}")});
    db.commit();
  }
  Net third;
  ::testing::internal::CaptureStdout();
  auto objs = third.fm->load(third.fm, "values.db");
  ::testing::internal::GetCapturedStdout();
  EXPECT_FALSE(me.manualupdate);
  ASSERT_EQ(objs->size(), 2u);
  EXPECT_EQ(std::static_pointer_cast<TAbstractDataSource>((*objs)[1])->getData(), nullptr);
}

TEST(FlowFiles, PasteLinesBoxesUpFromTheFreeSpot) {
  Net lib;
  auto box = lib.box(lib.fm, "BView");
  auto p = lib.add<TRelay>(box, 40);
  p->m_Area.move(TVector2(30, 0));
  lib.fm->copy(box);
  Net layout;
  EXPECT_EQ(layout.fm->freespot, TVector2(0, 300));
  auto first = layout.fm->paste(layout.fm);
  ASSERT_TRUE(first);
  auto firstBox = std::dynamic_pointer_cast<TAbstractBox>(first->front());
  EXPECT_EQ(firstBox->m_Area.tl, TVector2(0, 300));
  const float width = firstBox->m_Area.getWidth();
  EXPECT_EQ(layout.fm->freespot, TVector2(width + 20, 300));
  auto second = layout.fm->paste(layout.fm);
  EXPECT_EQ(std::dynamic_pointer_cast<TAbstractBox>(second->front())->m_Area.tl, TVector2(width + 20, 300));
  auto at = layout.fm->paste(layout.fm, TVector2(5, 7));
  EXPECT_EQ(std::dynamic_pointer_cast<TAbstractBox>(at->front())->m_Area.tl, TVector2(5, 7));
  // Processors keep their place within the group.
  auto proc = std::dynamic_pointer_cast<TAbstractProcessor>((*at)[1]);
  EXPECT_EQ(proc->m_Area.tl.y - 7, p->m_Area.tl.y - box->m_Area.tl.y);

  EXPECT_FALSE(layout.fm->paste(p)) << "only a box takes a paste";
  fs::remove("clipboard.db");
  EXPECT_THROW(layout.fm->paste(layout.fm), TFlowError);
}

TEST(FlowFiles, HostileFilesRunNothingAndLoadTheRest) {
  // One good source between rows that would run code, name things that are
  // no processor classes, or hold values of the wrong form.
  Net net;
  auto box = net.box(net.fm, "B");
  source<TIntDataSource>(net, box, "good", std::make_shared<TIntegerData>(7));
  net.fm->store(box, "hostile.db");
  const std::string marker = fs::absolute("ran-code").string();
  fs::remove(marker);
  const std::vector<std::pair<std::string, std::string>> rows = {
      {"TPythonDataSource",
       "{'class': 'TPythonData', 'data': \"__import__('os').system('touch " + marker + "')\"}"},
      {"TPythonDataSource", "{'class': 'TPythonData', 'data': \"open('" + marker + "', 'w')\"}"},
      {"TIntDataSource", "__import__('os').system('touch " + marker + "')"},
      {"TIntDataSource", "[1, 2]"},
      {"TIntDataSource", "{'class': 'TIntegerData'}"},
      {"TIntDataSource", "{'class': 'os', 'data': ''}"},
      {"setUpNetworks", ""},
      {"os", ""},
      {"__loader__", ""},
      {"me", ""},
      {"TAbstractDataSource", ""},
  };
  {
    TDatabase db("hostile.db");
    int64_t id = 100;
    for (const auto& [ctor, value] : rows)
      db.execute("INSERT INTO processors VALUES (?,NULL,?,'hostile',0,0,10,10,?)",
                 {id++, ctor, value.empty() ? TDbValue{} : TDbValue{value}});
    db.commit();
  }
  Net back;
  ::testing::internal::CaptureStdout();
  auto objs = back.fm->load(back.fm, "hostile.db");
  ::testing::internal::GetCapturedStdout();
  me.manualupdate = false;
  ASSERT_TRUE(objs);
  EXPECT_FALSE(fs::exists(marker)) << "a stored text ran code";
  EXPECT_EQ(valueOf<TIntegerData>(back.fm, "good")->getValue(), 7) << "the rest of the file loads";
  EXPECT_EQ(back.fm->exceptions.size(), 5u) << "each name that is no registered class skips its row";
  size_t sources = 0;
  back.fm->forEachProcessor([&](const TProcessorPtr& p) { sources += p->m_KeyName == "hostile"; });
  EXPECT_EQ(sources, 6u) << "values that cannot be read leave their processor without a value";

  // A stored script value in the forms the program writes is read back.
  TPythonData d;
  d.unstringify("{'a': [1, 2.5, -3, (True, None)], 'b': {1, 2}, 'c': set(), 'd': inf, 'e': TVector2(1.0, 2.0)}");
  py::dict back2 = py::reinterpret_borrow<py::dict>(d.getValue().get());
  EXPECT_EQ(py::len(back2), 5u);
  EXPECT_THROW(d.unstringify("(lambda: 1)()"), py::error_already_set);
  EXPECT_THROW(d.unstringify("TVector2.__init__"), py::error_already_set);
}

TEST(FlowFiles, StaleTemporariesOfDeadProcessesGo) {
  Net net;
  auto box = net.box(net.fm, "B");
  // A pid that cannot be running: beyond the system's limit.
  std::ofstream("stale.db.writing-999999999") << "half written";
  std::ofstream("stale.db.writing-" + std::to_string(::getppid())) << "another process, still writing";
  net.fm->store(box, "stale.db");
  EXPECT_FALSE(fs::exists("stale.db.writing-999999999"));
  EXPECT_TRUE(fs::exists("stale.db.writing-" + std::to_string(::getppid())));
  fs::remove("stale.db.writing-" + std::to_string(::getppid()));
}

TEST(FlowFiles, LoadingIsLinearInTheProcessorsOfABox) {
  // Sizes are worked out once, also for a large box; the areas are those
  // that adding one by one gives.
  Net net;
  auto box = net.box(net.fm, "B");
  for (int i = 0; i < 3; ++i) net.add<TRelay>(box, float(40 * i));
  net.fm->store(box, "sized.db");
  Net back;
  auto objs = back.fm->load(back.fm, "sized.db");
  ASSERT_TRUE(objs);
  auto loaded = std::dynamic_pointer_cast<TAbstractBox>((*objs)[0]);
  TBox expected = loaded->m_Area;
  loaded->computeSize();
  EXPECT_EQ(loaded->m_Area, expected);
  EXPECT_GE(loaded->m_Area.getHeight(), 80.0f);
}
