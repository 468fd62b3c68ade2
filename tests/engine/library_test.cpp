// The library file the build makes, and instantiating its boxes into a
// running network.
#include <gtest/gtest.h>
#include <pybind11/embed.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "data/MValues.h"
#include "engine/MHookProcessor.h"
#include "engine/MLibrary.h"
#include "engine/MMediator.h"
#include "data/MDataSources.h"
#include "support/TestHelpers.h"
#include "support/TestProcessors.h"

namespace py = pybind11;
using namespace quorvel;
using namespace quorvel::test;

namespace {

std::string builtLibrary() { return std::string(std::getenv("QUORVEL_BINARY_DIR")) + "/bin/library"; }

// me.flowlib from the built library and an empty running network.
struct Networks {
  std::shared_ptr<TFlowManager> savedLib = me.flowlib;
  std::shared_ptr<TFlowManager> savedLayout = me.flowlayout;
  Networks() { setUpNetworks(builtLibrary()); }
  ~Networks() {
    me.flowlayout->destroy();
    me.flowlib->destroy();
    me.flowlib = savedLib;
    me.flowlayout = savedLayout;
  }
};

}  // namespace

TEST(Library, BuiltFileKeepsTheContractOfBMain) {
  Networks nets;
  TBoxPtr main = me.flowlib->getBoxByType("BMain");
  ASSERT_TRUE(main);
  EXPECT_TRUE(me.flowlib->exceptions.empty());
  ASSERT_TRUE(main->getIdentityProcessorByInputName("dataset filename"));
  auto filename = std::dynamic_pointer_cast<TAbstractDataSource>(main->getProcessorByName("dataset filename"));
  ASSERT_TRUE(filename);
  EXPECT_EQ(filename->getOnlyOutputPin()->getAcceptedType(), "TStringData");
  for (const char* name : {"node primary selection", "edge primary selection"}) {
    TProcessorPtr sel = main->getProcessorByName(name);
    ASSERT_TRUE(sel) << name;
    ASSERT_EQ(sel->m_OutputPins.size(), 1u);
    EXPECT_EQ(sel->getOnlyOutputPin()->getAcceptedType(), "TIntegerSetData");
    auto hook = std::dynamic_pointer_cast<THookProcessor>(main->getProcessorByName(std::string(name) + " hook"));
    ASSERT_TRUE(hook) << name;
    EXPECT_EQ(hook->getConnectedProcessor("in"), sel);
    EXPECT_TRUE(main->getIdentityProcessorByInputName(name)) << "an output port for views";
  }
}

TEST(Library, MissingLibraryLogsAndStaysEmpty) {
  auto saved = me.logger;
  me.logger = std::make_shared<TLogger>("library.log");
  auto lib = makeFlowManager(false);
  EXPECT_FALSE(loadLibrary(*lib, "no-such-library"));
  EXPECT_TRUE(lib->m_Children.empty());
  const auto& records = me.logger->records();
  ASSERT_GE(records.size(), 2u);
  EXPECT_EQ(records[records.size() - 2].text, "Error while loading 'no-such-library'") << "one line";
  EXPECT_EQ(records[records.size() - 2].level, TLogger::kError);
  EXPECT_EQ(records.back().level, TLogger::kDebug) << "the traceback in a debug line";
  {
    std::ofstream junk("junk-library", std::ios::binary);
    junk << "not a database at all, but long enough to be read as one..........................";
  }
  EXPECT_FALSE(loadLibrary(*lib, "junk-library"));
  EXPECT_EQ(records[records.size() - 2].text, "Error while loading 'junk-library'");
  me.logger = saved;
}

TEST(Library, InstantiatedBoxGetsItsAssignedValueThroughItsPorts) {
  Networks nets;
  me.manualupdate = true;
  EXPECT_EQ(errorOf([] { instantiateLibBox("BNoSuchBox"); }), "Cannot find box by name 'BNoSuchBox'");
  EXPECT_FALSE(me.manualupdate) << "the only change before the failure";
  EXPECT_TRUE(me.flowlayout->m_Children.empty());

  ::testing::internal::CaptureStdout();
  TBoxPtr main = instantiateLibBox("BMain", {{{"dataset filename", "x.db"}, {"nope", "1"}}, {{"missing", "y"}}});
  const std::string out = ::testing::internal::GetCapturedStdout();
  EXPECT_NE(out.find("rename: could not find pin with name 'missing'"), std::string::npos);
  EXPECT_NE(out.find("assign: could not find pin with name 'nope'"), std::string::npos);
  ASSERT_TRUE(main);
  EXPECT_EQ(main->m_Type, "BMain");
  doflow(*me.flowlayout);
  auto filename = std::dynamic_pointer_cast<TAbstractDataSource>(main->getProcessorByName("dataset filename"));
  ASSERT_TRUE(filename->getData());
  EXPECT_EQ(filename->getData()->toString(), "x.db");
}

TEST(Library, AutoconnectJoinsSiblingPortsByName) {
  Net net;
  auto a = net.box(net.fm, "A");
  auto b = net.box(net.fm, "B");
  auto aOut = net.add<TAbstractIdentityProcessor>(a);
  aOut->m_OutputPin->m_Name = "x";
  auto bIn = net.add<TAbstractIdentityProcessor>(b);
  bIn->m_InputPin->m_Name = "x";
  // Same names within one box, an unnamed port, and a non-port.
  auto aIn = net.add<TAbstractIdentityProcessor>(a);
  aIn->m_InputPin->m_Name = "x";
  auto unnamed = net.add<TAbstractIdentityProcessor>(b);
  auto inOut = net.add<TAbstractIdentityProcessor>(a);
  inOut->m_OutputPin->m_Name = "in";
  auto relay = net.add<TRelay>(b);
  relay->in->m_Name = "x";
  // A box inside a box sees only its own siblings.
  auto inner = net.box(b, "inner");
  auto innerIn = net.add<TAbstractIdentityProcessor>(inner);
  innerIn->m_InputPin->m_Name = "x";

  net.fm->autoconnect();
  EXPECT_EQ(bIn->m_InputPin->m_Connectors.size(), 1u);
  EXPECT_TRUE(aOut->m_OutputPin->m_DataReplaced) << "the match spreads at the next pass";
  EXPECT_TRUE(aIn->m_InputPin->m_Connectors.empty()) << "no match within one box";
  EXPECT_TRUE(unnamed->m_InputPin->m_Connectors.empty());
  EXPECT_TRUE(relay->in->m_Connectors.empty()) << "only ports take part";
  EXPECT_TRUE(innerIn->m_InputPin->m_Connectors.empty());
  net.fm->autoconnect();
  EXPECT_EQ(bIn->m_InputPin->m_Connectors.size(), 2u) << "every call connects again";

  auto v = std::make_shared<TIntegerData>(4);
  aOut->m_OutputPin->setData(v);
  net.settle();
  EXPECT_EQ(bIn->m_OutputPin->getData(), v);
}

TEST(Library, FreeGuiTitles) {
  Networks nets;
  auto titled = [](const std::string& title) {
    auto box = makeBox("BView");
    me.flowlayout->addBox(box);
    auto port = addPort(*me.flowlayout, box, "gui title", 0, 0);
    port->m_OutputPins[0]->setData(std::make_shared<TStringData>(title));
    return box;
  };
  EXPECT_EQ(getFreeGuiTitle("Treemap"), "Treemap");
  titled("Treemap");
  auto second = titled("Treemap (1)");
  EXPECT_EQ(getFreeGuiTitle("Treemap"), "Treemap (2)");
  second->destroy();
  EXPECT_EQ(getFreeGuiTitle("Treemap"), "Treemap (1)") << "a closed view frees its title";
}
