// A dataset through BMain in a running network: what the views will draw,
// and how a collapse and its undo travel.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <pybind11/pybind11.h>

#include "analysis/MEdgeAggregation.h"
#include "analysis/MSelection.h"
#include "data/MColorMap.h"
#include "base/MDatabase.h"
#include "dataset/MXmlReader.h"
#include "engine/MLibrary.h"
#include "engine/MMediator.h"
#include "data/MDataSources.h"

using namespace quorvel;

namespace {

struct Opened {
  std::shared_ptr<TFlowManager> savedLib = me.flowlib;
  std::shared_ptr<TFlowManager> savedLayout = me.flowlayout;
  TBoxPtr main;
  // Opens a sample; with an expand level, the nodes below it start folded.
  explicit Opened(const std::string& sample = "orbit.db", int expandLevel = -1) {
    std::filesystem::copy_file(std::string(std::getenv("QUORVEL_SOURCE_DIR")) + "/samples/orbit/" + sample, sample,
                               std::filesystem::copy_options::overwrite_existing);
    setUpNetworks(std::string(std::getenv("QUORVEL_BINARY_DIR")) + "/bin/library");
    main = instantiateLibBox("BMain", {{{"dataset filename", sample}}, {}});
    if (expandLevel >= 0) {
      auto settings = std::dynamic_pointer_cast<TAbstractDataSource>(main->getProcessorByName("collapse settings"));
      namespace py = pybind11;
      py::dict d;
      d["expandlevel"] = expandLevel;
      settings->setData(std::make_shared<TPythonData>(TPyRef::borrow(d.ptr())));
    }
    settle();
  }
  ~Opened() {
    me.flowlayout->destroy();
    me.flowlib->destroy();
    me.flowlib = savedLib;
    me.flowlayout = savedLayout;
  }
  void settle() {
    me.manualupdate = false;
    doflow(*me.flowlayout);
    ASSERT_FALSE(me.manualupdate);
  }
  template <class T>
  std::shared_ptr<T> port(const std::string& name) {
    TProcessorPtr p = main->getIdentityProcessorByInputName(name);
    return p ? std::dynamic_pointer_cast<T>(p->getOnlyOutputPin()->getData()) : nullptr;
  }
  // The edges folded onto what BMain shows, as a view folds them.
  std::shared_ptr<TEdgeCollapsedData> foldedEdges() {
    return aggregateEdges(*port<THierarchyData>("full hierarchy"), *port<TAggLftData>("agglft"),
                          *port<TEdgeData>("edges"), *port<TIntegerSetData>("edge selection"));
  }
  uint32_t lftOf(uint32_t nid) {
    bool found = false;
    return port<THierarchyData>("full hierarchy")->getLftByNid(nid, found);
  }
  std::shared_ptr<TAbstractDataSource> collapsedAttr() {
    return std::dynamic_pointer_cast<TAbstractDataSource>(main->getProcessorByName("collapsed attr"));
  }
};

}  // namespace

TEST(MainBox, SampleDatasetBecomesWhatTheViewsDraw) {
  Opened o;
  auto full = o.port<THierarchyData>("full hierarchy");
  ASSERT_TRUE(full);
  EXPECT_EQ(full->m_KeyName, "hierarchy 1");
  auto visible = o.port<THierarchyData>("collapsed hierarchy");
  EXPECT_EQ(visible->getRowCount(), full->getRowCount()) << "nothing is collapsed at first";
  auto agglft = o.port<TAggLftData>("agglft");
  for (const auto& [lft, agg] : agglft->m_Rows) EXPECT_EQ(lft, agg);
  EXPECT_EQ(o.port<TIntegerData>("max level")->getValue(), 5);

  auto collapsed = o.foldedEdges();
  EXPECT_EQ(collapsed->getRecordCount(), 16u) << "17 edges with attributes, 11 and 22 joined both ways";
  const auto& both = collapsed->getRecord(std::min(o.lftOf(11), o.lftOf(22)), std::max(o.lftOf(11), o.lftOf(22)));
  EXPECT_EQ(both.forward.size() + both.backward.size(), 2u);

  EXPECT_EQ(o.port<TIntegerSetData>("node selection")->getCount(), 29u) << "the filter lets everything pass";
  auto ordnorm = o.port<TFloatAttributeDataArray>("node attributes ordnorm");
  ASSERT_TRUE(ordnorm);
  EXPECT_EQ(ordnorm->getItemCount(), o.port<TDataArray>("node attributes")->getItemCount());

  // A primary selection reaches its neighbours.
  auto primary = o.port<TIntegerSetData>("node primary selection");
  primary->add(20);
  o.settle();
  EXPECT_EQ(o.port<TIntegerSetData>("node secondary selection")->m_Set, (TIdSet{21, 22}));
}

TEST(MainBox, CollapseFoldsSubtreesAndUndoBringsStatesBack) {
  Opened o;
  auto before = o.foldedEdges();
  auto state = std::dynamic_pointer_cast<TBoolAttributeData>(o.collapsedAttr()->getData());
  ASSERT_TRUE(state);

  // Edited in place: shape.h (9) folds its classes and methods away.
  state->setValueById(9, true);
  o.settle();
  auto visible = o.port<THierarchyData>("collapsed hierarchy");
  bool found = false;
  visible->getRowByNid(10, found);
  EXPECT_FALSE(found) << "Shape is hidden";
  visible->getRowByNid(9, found);
  EXPECT_TRUE(found) << "a folded node stays visible";
  EXPECT_EQ(o.port<TAggLftData>("agglft")->getAggLftByLft(o.lftOf(13), found), o.lftOf(9));
  auto after = o.foldedEdges();
  EXPECT_TRUE(after->findRecord(o.lftOf(9), o.lftOf(9))) << "inheritance inside shape.h became one record";
  EXPECT_LT(after->getRecordCount(), before->getRecordCount());

  // Changed the way the actions do: a clone, changed, set anew.
  auto open = state->clone();
  open->setValueById(9, false);
  o.collapsedAttr()->setData(open);
  o.settle();
  o.port<THierarchyData>("collapsed hierarchy")->getRowByNid(10, found);
  EXPECT_TRUE(found);

  // Undo: the state before the clone, with shape.h folded.
  auto undo = std::dynamic_pointer_cast<TStackStore>(o.main->getProcessorByName("collapse undo"));
  ASSERT_TRUE(undo);
  undo->pop();
  o.settle();
  EXPECT_EQ(o.collapsedAttr()->getData(), state);
  o.port<THierarchyData>("collapsed hierarchy")->getRowByNid(10, found);
  EXPECT_FALSE(found);
}

TEST(MainBox, ACollapseThatKeepsTheMapWakesNoAggregation) {
  Opened o;
  auto agglft = o.port<TAggLftData>("agglft");
  auto state = std::dynamic_pointer_cast<TBoolAttributeData>(o.collapsedAttr()->getData());
  state->setValueById(6, true);  // the field x is a leaf
  o.settle();
  EXPECT_EQ(o.port<TAggLftData>("agglft"), agglft) << "the edges' folders downstream are not woken";
}

TEST(MainBox, EverySampleOpensAtEveryExpandLevel) {
  for (const char* sample : {"orbit.db", "orbit.xml", "orbit-code.db"}) {
    for (int level = 0; level <= 6; ++level) {
      Opened o(sample, level);
      auto visible = o.port<THierarchyData>("collapsed hierarchy");
      ASSERT_TRUE(visible) << sample << " at level " << level;
      ASSERT_TRUE(o.port<TAggLftData>("agglft")) << sample << " at level " << level;
      EXPECT_GT(o.foldedEdges()->getRecordCount(), 0u) << sample << " at level " << level;
    }
  }
}

TEST(MainBox, ADatasetThatYieldsNothingSettlesQuietly) {
  // An empty hierarchy table, and a file that is not a database at all.
  {
    std::filesystem::remove("nothing.db");
    TDatabase db("nothing.db");
    TXmlReader::createDatasetTables(db);
    db.commit();
  }
  {
    std::ofstream junk("junk.db", std::ios::binary);
    junk << std::string(4096, 'j');
  }
  for (const char* file : {"nothing.db", "junk.db", "no-such-file.db"}) {
    std::shared_ptr<TFlowManager> savedLib = me.flowlib;
    std::shared_ptr<TFlowManager> savedLayout = me.flowlayout;
    setUpNetworks(std::string(std::getenv("QUORVEL_BINARY_DIR")) + "/bin/library");
    instantiateLibBox("BMain", {{{"dataset filename", file}}, {}});
    const int passes = doflow(*me.flowlayout);
    EXPECT_FALSE(me.manualupdate) << file;
    EXPECT_LT(passes, 15) << file;
    EXPECT_EQ(doflow(*me.flowlayout), 1) << file << ": a second run finds nothing to do";
    me.manualupdate = false;
    me.flowlayout->destroy();
    me.flowlib->destroy();
    me.flowlib = savedLib;
    me.flowlayout = savedLayout;
  }
}

TEST(MainBox, PortsTheViewsShare) {
  namespace py = pybind11;
  py::dict icons;
  icons["class"] = 3;
  icons["method"] = 5;
  const TPyRef savedIcons = me.imagelistmap;
  me.imagelistmap = TPyRef::borrow(icons.ptr());
  {
    Opened o;
    EXPECT_TRUE(o.port<TAttributeDataArray>("node attributes")) << "columns, not a plain array";
    EXPECT_TRUE(o.port<TAttributeDataArray>("edge attributes"));
    EXPECT_TRUE(o.port<TIntegerSetData>("brushed nodes"));
    EXPECT_TRUE(o.main->getIdentityProcessorByInputName("brushed edges"));
    auto nodeIcons = o.port<TIntegerAttributeDataArray>("node icon attributes");
    ASSERT_TRUE(nodeIcons);
    ASSERT_EQ(nodeIcons->getItemCount(), 1u) << "only the type column names icons";
    auto column = nodeIcons->itemAs<TIntegerAttributeData>(0);
    EXPECT_EQ(column->m_KeyName, "icon for 'type'");
    bool found = false;
    EXPECT_EQ(column->getValueById(10, found), 3) << "Shape is a class";
    EXPECT_TRUE(o.port<TIntegerAttributeDataArray>("edge icon attributes"));

    // A view box reaches the undo memory through its port "collapse stack".
    auto view = makeBox("BSomeView");
    me.flowlayout->addBox(view);
    auto port = addPort(*me.flowlayout, view, "collapse stack", 0, 0);
    auto user = me.flowlayout->constructProcessor<TInputPrintProcessor>();
    view->addProcessor(user);
    view->createConnection(port->getOnlyOutputPin(), user->getOnlyInputPin());
    me.flowlayout->autoconnect();
    me.flowlayout->autoconnect();  // parallel connectors change nothing
    auto stack = std::dynamic_pointer_cast<TStackStore>(findFeedingProcessor(user->getOnlyInputPin()));
    ASSERT_TRUE(stack);
    EXPECT_EQ(stack, o.main->getProcessorByName("collapse undo"));
  }
  me.imagelistmap = savedIcons;
}
