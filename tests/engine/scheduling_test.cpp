#include <gtest/gtest.h>

#include <random>

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

namespace {

// A processor that shows every way a pass can find work: on every third
// run it does nothing at all and so leaves its input up; it may have the
// before-hook, which now and then puts a value on its output. Each turn it
// is given goes to `log`.
class TMoody : public TRelay {
 public:
  bool hooked = false;
  int before = 0;
  std::string* log = nullptr;
  unsigned hookMask() override { return hooked ? unsigned{kHookBeforeProcess} : 0u; }
  void beforeprocess_python() override {
    *log += " b" + m_KeyName;
    if (++before % 7 == 0) out->setData(std::make_shared<TTestValue>(100 + before));
  }
  void process() override {
    *log += " p" + m_KeyName;
    if (++runs % 3 == 0) return;
    auto v = std::dynamic_pointer_cast<TTestValue>(in->getData());
    seen = v ? v->value : -1;
    out->setData(v ? std::make_shared<TTestValue>(v->value + 1) : nullptr);
    resetPins({});
  }
};

// Plays one seeded scenario of outside changes and passes on a fresh
// network and writes down what each pass did. With `scan`, every pass is
// forced to scan all pins, as if something had changed.
std::vector<std::string> playScenario(unsigned seed, bool scan) {
  Net net;
  std::vector<std::shared_ptr<TSource>> sources;
  std::vector<std::shared_ptr<TMoody>> procs;
  std::vector<TBoxPtr> boxes{net.fm, net.box(net.fm), net.box(net.fm)};
  std::mt19937 rng(seed);
  auto pick = [&rng](size_t n) { return static_cast<size_t>(rng() % n); };
  for (int i = 0; i < 4; ++i) sources.push_back(net.add<TSource>(boxes[pick(3)], static_cast<float>(pick(50))));
  std::string log;
  for (int i = 0; i < 30; ++i) {
    auto p = net.add<TMoody>(boxes[pick(3)], static_cast<float>(pick(50)));
    p->hooked = pick(4) == 0;
    p->log = &log;
    p->m_KeyName = std::to_string(i);
    TPinPtr from = sources[pick(sources.size())]->out;
    if (!procs.empty() && pick(3) != 0) from = procs[pick(procs.size())]->out;
    net.fm->createConnection(from, p->in);
    procs.push_back(p);
  }
  std::vector<std::string> trace;
  auto record = [&](bool ran) {
    std::string line = (ran ? "ran:" : "quiet:") + log + " |";
    log.clear();
    for (const auto& p : procs) {
      auto v = std::dynamic_pointer_cast<TTestValue>(p->in->getData());
      line += " " + std::to_string(p->runs) + "/" + std::to_string(p->before) + "/" +
              std::to_string(v ? v->value : -1) + (p->in->hasChanged() ? "*" : "");
    }
    trace.push_back(line);
  };
  for (int step = 0; step < 120; ++step) {
    switch (pick(9)) {
      case 0:
        sources[pick(sources.size())]->out->setData(std::make_shared<TTestValue>(step));
        break;
      case 1: {  // a value edited in place where it stands
        auto v = std::dynamic_pointer_cast<TTestValue>(procs[pick(procs.size())]->in->getData());
        if (v) {
          v->value += 1000;
          v->setHasChanged();
        }
        break;
      }
      case 2:
        procs[pick(procs.size())]->m_Area.move(TVector2(0.0f, static_cast<float>(pick(40)) - 20.0f));
        break;
      case 3:
        procs[pick(procs.size())]->touchPins();
        break;
      case 4:  // consumed from outside a turn: applied in the next one
        procs[pick(procs.size())]->resetPins({});
        break;
      case 5: {  // a flag raised the way a script raises it
        procs[pick(procs.size())]->in->m_DataFullUpdate = true;
        TFlowEpoch::advance();
        break;
      }
      default:  // nothing: the passes that follow are quiet ones
        break;
    }
    const int passes = static_cast<int>(pick(4));
    for (int i = 0; i < passes; ++i) {
      if (scan) TFlowEpoch::advance();
      net.fm->stage1();
      record(net.fm->stage2());
    }
  }
  return trace;
}

}  // namespace

// Quiet passes skip the scan of pins and the processors with nothing to do:
// whatever happens between passes, they must run exactly what a scanning
// pass runs, in the same order, with the same flags left up.
TEST(Scheduling, QuietPassesRunWhatScanningPassesRun) {
  for (unsigned seed = 1; seed <= 12; ++seed) {
    const auto quiet = playScenario(seed, false);
    const auto scanned = playScenario(seed, true);
    ASSERT_EQ(quiet.size(), scanned.size());
    for (size_t i = 0; i < quiet.size(); ++i) ASSERT_EQ(quiet[i], scanned[i]) << "seed " << seed << ", pass " << i;
  }
}

TEST(Scheduling, QuietPassesStillSeeMovesAndLeftoverInputs) {
  std::vector<std::string> order;
  g_Order = &order;
  {
    Net net;
    auto src = net.add<TSource>(net.fm, 0);
    auto a = net.add<TNamed>(net.fm, 10);
    auto b = net.add<TNamed>(net.fm, 20);
    a->m_KeyName = "a";
    b->m_KeyName = "b";
    net.fm->createConnection(src->out, a->in);
    net.fm->createConnection(src->out, b->in);
    src->out->setData(std::make_shared<TTestValue>(0));
    net.settle();
    // A move is the one change that advances nothing: the order follows it.
    b->m_Area.move(TVector2(0, -15));
    a->onProcess = [](TRelay&) {};  // leaves its input up
    src->out->setData(std::make_shared<TTestValue>(1));
    order.clear();
    net.pass();
    EXPECT_EQ(order, (std::vector<std::string>{"b", "a"}));
    order.clear();
    EXPECT_TRUE(net.pass()) << "an input left up runs its processor again";
    EXPECT_TRUE(net.pass());
    EXPECT_EQ(order, (std::vector<std::string>{"a", "a"}));
    a->onProcess = [](TRelay& self) { self.resetPins({}); };
    net.pass();
    EXPECT_FALSE(net.pass());

    // Pins consumed outside a turn are let go in the next turn, also when
    // that pass is a quiet one: they must not swallow a later change.
    a->resetPins({});
    EXPECT_FALSE(net.pass());
    a->onProcess = [](TRelay&) {};
    src->out->setData(std::make_shared<TTestValue>(2));
    order.clear();
    net.pass();
    EXPECT_TRUE(net.pass());
    EXPECT_EQ(order, (std::vector<std::string>{"b", "a", "a"}));
  }
  g_Order = nullptr;
}
