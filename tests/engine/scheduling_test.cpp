#include <gtest/gtest.h>

#include "engine/MMediator.h"
#include "support/TestProcessors.h"

using namespace quorvel;
using namespace quorvel::test;

namespace {

// Records the order in which processors of a test run.
std::vector<std::string>* g_Order = nullptr;

class TNamed : public TRelay {
 public:
  void process() override {
    if (g_Order) g_Order->push_back(m_KeyName);
    TRelay::process();
  }
};

// A processor with the pins of the prefix rules.
class TPrefixed : public TAbstractProcessor {
 public:
  TPinPtr ax, ay, a, b;
  void postCreate() override {
    ax = addInputPin("TAbstractData", "a.x");
    ay = addInputPin("TAbstractData", "a.y");
    a = addInputPin("TAbstractData", "a");
    b = addInputPin("TAbstractData", "b");
  }
  void process() override { resetPins({}); }
};

// An array value whose items the scheduler walks.
class TTestArray : public TAbstractData {
 public:
  std::vector<TDataPtr> items;
  TTestArray() { m_IsArray = true; }
  const std::vector<TDataPtr>* arrayItems() const override { return &items; }
};

std::shared_ptr<TTestValue> keyed(int v, const std::string& key) {
  auto d = std::make_shared<TTestValue>(v);
  d->m_KeyName = key;
  return d;
}

}  // namespace

TEST(Scheduling, EmptyNetworkIsQuietAtOnce) {
  Net net;
  net.fm->stage1();
  EXPECT_FALSE(net.fm->stage2());
  EXPECT_EQ(doflow(*net.fm), 1);
}

TEST(Scheduling, ChainSettlesOneProcessorPerPass) {
  Net net;
  auto src = net.add<TSource>(net.fm, 0);
  auto b = net.add<TRelay>(net.fm, 10);
  auto c = net.add<TRelay>(net.fm, 20);
  net.fm->createConnection(src->out, b->in);
  net.fm->createConnection(b->out, c->in);
  src->out->setData(std::make_shared<TTestValue>(1));

  net.fm->stage1();
  EXPECT_TRUE(b->in->m_DataFullUpdate);
  EXPECT_FALSE(src->out->m_DataFullUpdate) << "output pins lose their flags in stage1";
  EXPECT_TRUE(net.fm->stage2());
  EXPECT_EQ(b->runs, 1);
  EXPECT_EQ(c->runs, 0);
  EXPECT_TRUE(net.pass());
  EXPECT_EQ(c->runs, 1);
  EXPECT_EQ(c->seen, 2);
  EXPECT_FALSE(net.pass());
  // Values travel by pointer: the whole net holds one object.
  EXPECT_EQ(b->out->getData(), c->in->getData());
}

TEST(Scheduling, RunOrderFollowsTopEdgeThenWalk) {
  std::vector<std::string> order;
  g_Order = &order;
  {
    Net net;
    auto inner = net.box(net.fm);
    auto src = net.add<TSource>(net.fm, 0);
    auto deep = net.add<TNamed>(inner, 5);
    auto first = net.add<TNamed>(net.fm, 5);
    auto low = net.add<TNamed>(net.fm, 1);
    deep->m_KeyName = "deep";
    first->m_KeyName = "first";
    low->m_KeyName = "low";
    for (auto& p : {deep, first, low}) net.fm->createConnection(src->out, p->in);
    src->out->setData(std::make_shared<TTestValue>(0));
    net.pass();
    // Equal tops run in walk order: the manager's own processors come
    // before those of its child boxes.
    EXPECT_EQ(order, (std::vector<std::string>{"low", "first", "deep"}));

    order.clear();
    deep->m_Area.move(TVector2(0, -10));
    src->out->setData(std::make_shared<TTestValue>(0));
    net.pass();
    EXPECT_EQ(order, (std::vector<std::string>{"deep", "low", "first"}));
  }
  g_Order = nullptr;
}

TEST(Scheduling, SpreadingRulesOfSetDataTouchPinsAndSetDataFromSource) {
  Net net;
  auto src1 = net.add<TSource>(net.fm);
  auto src2 = net.add<TSource>(net.fm);
  auto a = net.add<TRelay>(net.fm);
  auto b = net.add<TRelay>(net.fm);
  // Two outputs on the input of a, and b on the same net.
  net.fm->createConnection(src1->out, a->in);
  net.fm->createConnection(src2->out, a->in);
  net.fm->createConnection(src1->out, b->in);

  // setData on an input reaches both outputs and every other input of the
  // net, and the pin's own processor runs.
  auto v = std::make_shared<TTestValue>(7);
  a->in->setData(v);
  net.pass();
  EXPECT_EQ(src1->out->getData(), v);
  EXPECT_EQ(src2->out->getData(), v);
  EXPECT_EQ(b->in->getData(), v);
  EXPECT_EQ(a->runs, 1);
  EXPECT_EQ(b->runs, 1);

  // setDataFromSource tells the net but leaves the own processor alone.
  auto w = std::make_shared<TTestValue>(8);
  a->in->setDataFromSource(w);
  net.pass();
  EXPECT_EQ(b->in->getData(), w);
  EXPECT_EQ(a->runs, 1);
  EXPECT_EQ(b->runs, 2);

  // touchPins does the same, but not on a pin that once had setData: the
  // flag m_DataSetHere stays.
  Net fresh;
  auto s = fresh.add<TSource>(fresh.fm);
  auto x = fresh.add<TRelay>(fresh.fm);
  auto y = fresh.add<TRelay>(fresh.fm);
  fresh.fm->createConnection(s->out, x->in);
  fresh.fm->createConnection(s->out, y->in);
  s->out->setData(std::make_shared<TTestValue>(1));
  fresh.pass();
  x->touchPins();
  fresh.pass();
  EXPECT_EQ(x->runs, 1);
  EXPECT_EQ(y->runs, 2);
  x->in->touch();
  fresh.pass();
  EXPECT_EQ(x->runs, 2);
  x->touchPins();
  fresh.pass();
  EXPECT_EQ(x->runs, 3);
}

TEST(Scheduling, EmptyValueSpreadsAsFullUpdate) {
  Net net;
  auto src = net.add<TSource>(net.fm);
  auto p = net.add<TPrefixed>(net.fm);
  net.fm->createConnection(src->out, p->b);
  src->out->setData(std::make_shared<TTestValue>(1));
  net.fm->stage1();
  EXPECT_TRUE(p->requireData({"b"}));
  net.fm->stage2();
  src->out->setData(nullptr);
  net.fm->stage1();
  EXPECT_TRUE(p->b->m_DataFullUpdate);
  EXPECT_FALSE(p->requireData({"b"}));
}

TEST(Scheduling, FirstChangeOnTheQueueDecidesTheNet) {
  Net net;
  auto s1 = net.add<TSource>(net.fm);
  auto s2 = net.add<TSource>(net.fm);
  auto r = net.add<TRelay>(net.fm);
  net.fm->createConnection(s1->out, r->in);
  net.fm->createConnection(s2->out, r->in);
  auto v1 = std::make_shared<TTestValue>(1);
  auto v2 = std::make_shared<TTestValue>(2);
  s2->out->setData(v2);
  s1->out->setData(v1);
  net.fm->stage1();
  EXPECT_EQ(r->in->getData(), v1) << "s1 stands first in the walk";
}

TEST(Scheduling, InPlaceEditReachesEveryHolderInOnePass) {
  Net net;
  auto src = net.add<TSource>(net.fm);
  auto a = net.add<TRelay>(net.fm);
  auto b = net.add<TRelay>(net.fm);
  net.fm->createConnection(src->out, a->in);
  auto v = std::make_shared<TTestValue>(1);
  src->out->setData(v);
  net.pass();
  // b holds the same object without a connector.
  b->in->setData(v);
  net.pass();
  const int before = a->runs;
  v->setHasChanged();
  net.fm->stage1();
  EXPECT_TRUE(a->in->m_DataHasChanged);
  EXPECT_TRUE(b->in->m_DataHasChanged);
  EXPECT_FALSE(v->m_HasChanged) << "stage1 clears the value's flag";
  net.fm->stage2();
  EXPECT_EQ(a->runs, before + 1);
}

TEST(Scheduling, ArrayItemsChangedInPlaceCarryTheirKeys) {
  Net net;
  auto src = net.add<TSource>(net.fm);
  auto a = net.add<TRelay>(net.fm);
  auto b = net.add<TRelay>(net.fm);
  net.fm->createConnection(src->out, a->in);
  net.fm->createConnection(src->out, b->in);
  auto arr = std::make_shared<TTestArray>();
  arr->items = {keyed(1, "one"), keyed(2, "two"), keyed(3, "three")};
  src->out->setData(arr);
  net.pass();

  std::set<std::string> seenInStage2;
  a->onProcess = [&](TRelay& self) {
    if (self.in->m_ArrayKeysChanged) seenInStage2 = *self.in->m_ArrayKeysChanged;
    self.resetPins({});
  };
  arr->items[0]->setHasChanged();
  arr->items[2]->setHasChanged();
  net.fm->stage1();
  ASSERT_TRUE(a->in->m_ArrayKeysChanged);
  EXPECT_EQ(a->in->m_ArrayKeysChanged, b->in->m_ArrayKeysChanged) << "one shared set";
  EXPECT_TRUE(a->in->m_DataHasChanged);
  EXPECT_FALSE(arr->items[0]->m_HasChanged);
  net.fm->stage2();
  EXPECT_EQ(seenInStage2, (std::set<std::string>{"one", "three"}));
  EXPECT_FALSE(a->in->m_ArrayKeysChanged) << "dropped at the end of stage2";

  // The array's own flag takes precedence: items are not examined.
  arr->items[1]->setHasChanged();
  arr->setHasChanged();
  net.fm->stage1();
  EXPECT_FALSE(a->in->m_ArrayKeysChanged);
  EXPECT_TRUE(arr->items[1]->m_HasChanged);
  net.fm->stage2();
}

TEST(Scheduling, PinListsByNamePrefixAndPin) {
  Net net;
  auto p = net.add<TPrefixed>(net.fm);
  EXPECT_TRUE(p->requireData({}));
  EXPECT_FALSE(p->haveChanged({}));
  p->ax->m_Data = std::make_shared<TTestValue>(1);
  EXPECT_FALSE(p->requireData({"a."})) << "a.y has no value";
  p->ay->m_Data = std::make_shared<TTestValue>(2);
  EXPECT_TRUE(p->requireData({"a."})) << "the pin 'a' is not part of the prefix";
  EXPECT_FALSE(p->requireData({"a.", "a"}));
  EXPECT_TRUE(p->requireData({p->ax}));
  p->ay->m_DataFullUpdate = true;
  EXPECT_TRUE(p->haveChanged({"a."}));
  EXPECT_FALSE(p->haveChanged({"zz."})) << "a prefix matching nothing is no error";
  // Lists stop at the first pin that settles the answer.
  EXPECT_TRUE(p->haveChanged({"a.y", "nosuchpin"}));
  try {
    p->requireData({"nosuchpin"});
    FAIL();
  } catch (const TFlowError& e) {
    EXPECT_STREQ(e.what(), "Cannot find pin with name nosuchpin");
  }
  p->resetPins({"a."});
  EXPECT_EQ(p->m_PinsToReset.size(), 2u);
  net.fm->activateProcessor(p);
  EXPECT_FALSE(p->ay->m_DataFullUpdate);
}

TEST(Scheduling, ProcessorThatNeverResetsEndsInManualMode) {
  Net net;
  auto src = net.add<TSource>(net.fm);
  auto stuck = net.add<TRelay>(net.fm);
  stuck->onProcess = [](TRelay&) {};
  net.fm->createConnection(src->out, stuck->in);
  src->out->setData(std::make_shared<TTestValue>(1));
  me.manualupdate = false;
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(doflow(*net.fm), 31);
  const std::string out = ::testing::internal::GetCapturedStdout();
  EXPECT_NE(out.find("Too many updates, enabling manual update mode"), std::string::npos);
  EXPECT_TRUE(me.manualupdate);
  EXPECT_EQ(stuck->runs, 31);
  me.manualupdate = false;
}

TEST(Scheduling, ExceptionEndsThePassAndLeavesFlagsUp) {
  Net net;
  auto src = net.add<TSource>(net.fm, 0);
  auto failing = net.add<TRelay>(net.fm, 10);
  auto behind = net.add<TRelay>(net.fm, 20);
  net.fm->createConnection(src->out, failing->in);
  net.fm->createConnection(src->out, behind->in);
  bool fail = true;
  failing->onProcess = [&fail](TRelay& self) {
    self.resetPins({});
    if (fail) throw TFlowError("boom");
  };
  src->out->setData(std::make_shared<TTestValue>(1));
  net.fm->stage1();
  EXPECT_THROW(net.fm->stage2(), TFlowError);
  EXPECT_EQ(behind->runs, 0);
  EXPECT_TRUE(failing->in->m_DataFullUpdate) << "m_PinsToReset is not applied";
  EXPECT_TRUE(behind->in->m_DataFullUpdate);
  fail = false;
  net.fm->stage1();
  EXPECT_TRUE(net.fm->stage2());
  EXPECT_EQ(behind->runs, 1);
  EXPECT_EQ(behind->seen, 1);
}

TEST(Scheduling, ConnectorToItselfFailsInStage1) {
  Net net;
  auto src = net.add<TSource>(net.fm);
  net.fm->createConnection(src->out, src->out);
  src->out->setData(std::make_shared<TTestValue>(1));
  try {
    net.fm->stage1();
    FAIL();
  } catch (const TFlowError& e) {
    EXPECT_STREQ(e.what(), "otherpin == pin");
  }
}

TEST(Scheduling, ActivateByHandWithoutChangesOnlyCallsTheHookBefore) {
  class THooked : public TRelay {
   public:
    int before = 0;
    unsigned hookMask() override { return kHookBeforeProcess; }
    void beforeprocess_python() override {
      ++before;
      // Reset from the hook works too.
      resetPins({});
    }
  };
  Net net;
  auto p = net.add<THooked>(net.fm);
  EXPECT_FALSE(net.fm->activateProcessor(p));
  EXPECT_EQ(p->before, 1);
  EXPECT_EQ(p->runs, 0);
  p->in->m_DataFullUpdate = true;
  EXPECT_TRUE(net.fm->activateProcessor(p));
  EXPECT_EQ(p->before, 2);
  EXPECT_FALSE(p->in->m_DataFullUpdate);
}

TEST(Scheduling, ProcessorDestroyedDuringAPassIsSkipped) {
  Net net;
  auto src = net.add<TSource>(net.fm, 0);
  auto killer = net.add<TRelay>(net.fm, 10);
  auto victim = net.add<TRelay>(net.fm, 20);
  net.fm->createConnection(src->out, killer->in);
  net.fm->createConnection(src->out, victim->in);
  std::weak_ptr<TRelay> weakVictim = victim;
  killer->onProcess = [&victim](TRelay& self) {
    self.resetPins({});
    victim->destroy();
    victim.reset();
  };
  src->out->setData(std::make_shared<TTestValue>(1));
  EXPECT_TRUE(net.pass());
  EXPECT_FALSE(net.pass());
  EXPECT_TRUE(weakVictim.expired());
}

TEST(Scheduling, AProcessorCannotRunTheNetworkFromItsProcessing) {
  Net net;
  auto source = net.add<TSource>(net.fm);
  auto relay = net.add<TRelay>(net.fm, 10);
  net.fm->createConnection(source->out, relay->in);
  std::string failure;
  relay->onProcess = [&](TRelay& r) {
    r.resetPins({});
    try {
      doflow(*net.fm);
    } catch (const std::exception& e) {
      failure = e.what();
    }
  };
  source->out->setData(std::make_shared<TTestValue>(1));
  const int passes = doflow(*net.fm);
  EXPECT_LT(passes, 5) << "no pass inside a pass";
  EXPECT_EQ(failure, "doflow(): the network is running already; a processor cannot run it");
  EXPECT_EQ(relay->runs, 1);
  EXPECT_EQ(doflow(*net.fm), 1) << "the network runs again afterwards";
}
