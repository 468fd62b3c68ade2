// Processor classes written in the script language, and exceptions crossing
// between the script and the core.
#include <gtest/gtest.h>
#include <pybind11/embed.h>
#include <pybind11/stl.h>

#include "engine/MFlowManager.h"
#include "engine/MMediator.h"
#include "engine/MPython.h"
#include "support/TestProcessors.h"

namespace py = pybind11;
using namespace quorvel;

namespace {

py::dict scriptNamespace() {
  py::dict ns;
  py::exec(R"(
from MQuorvel import *

class Doubler(TAbstractProcessor):
    def postCreate(self):
        self.addInputPin("TAbstractData", "in")
        self.addOutputPin("TAbstractData", "out")
        self.calls = []
    def getTypeName(self):
        return "doubler"
    def beforeprocess_python(self):
        self.calls.append("before")
    def process_python(self):
        self.calls.append("process")
        self.getOutputPinByName("out").setData(self.getInputPinByName("in").getData())
        self.resetPins([])

class Plain(TAbstractProcessor):
    def postCreate(self):
        self.addInputPin("TAbstractData", "in")
        self.ran = 0
    def process(self):
        self.ran += 1
        self.resetPins(["in"])

class Failing(TAbstractProcessor):
    def postCreate(self):
        self.addInputPin("TAbstractData", "in")
    def process_python(self):
        self.resetPins([])
        raise ValueError("{'msg': 'from a script', 'actions': ['closeFile', 'popup'], 'title': 'Script'}")

class Lifecycle(TAbstractProcessor):
    log = []
    def createImplementation_python(self):
        Lifecycle.log.append("impl")
    def destroy_python(self):
        Lifecycle.log.append("destroyed")
)",
           ns);
  return ns;
}

// Constructs a script class the way the bindings do: the script object lives
// while the manager takes hold of it.
TProcessorPtr construct(TFlowManager& fm, py::dict& ns, const char* cls) {
  py::object obj = ns[cls]();
  return fm.constructProcessor([&obj] { return obj.cast<TProcessorPtr>(); });
}

}  // namespace

TEST(Scripts, ProcessorClassesFromScriptsRunWithTheirHooks) {
  py::dict ns = scriptNamespace();
  auto fm = makeFlowManager(true);
  auto src = fm->constructProcessor<test::TSource>();
  fm->addProcessor(src);
  // Made from the script; no script reference is kept beyond this block.
  std::weak_ptr<TAbstractProcessor> weakDoubler;
  {
    TProcessorPtr d = construct(*fm, ns, "Doubler");
    fm->addProcessor(d);
    fm->createConnection(src->out, d->getInputPinByName("in"));
    weakDoubler = d;
  }
  py::exec("import gc; gc.collect()");
  auto d = weakDoubler.lock();
  ASSERT_TRUE(d);
  EXPECT_EQ(d->getTypeName(), "doubler");
  EXPECT_EQ(d->getClassName(), "Doubler");
  EXPECT_TRUE(d->hasHook(TAbstractProcessor::kHookProcess));

  auto v = std::make_shared<test::TTestValue>(3);
  src->out->setData(v);
  EXPECT_EQ(doflow(*fm), 2);
  EXPECT_EQ(d->getOutputPinByName("out")->getData(), v);
  py::list calls = py::cast(d).attr("calls");
  // A run, then a quiet pass: before, process, before.
  ASSERT_EQ(py::len(calls), 3u);
  EXPECT_EQ(py::str(calls[0]).cast<std::string>(), "before");
  EXPECT_EQ(py::str(calls[1]).cast<std::string>(), "process");

  // A class without hooks runs through its process().
  TProcessorPtr plain = construct(*fm, ns, "Plain");
  fm->addProcessor(plain);
  fm->createConnection(src->out, plain->getInputPinByName("in"));
  src->out->setData(v);
  doflow(*fm);
  EXPECT_EQ(py::cast(plain).attr("ran").cast<int>(), 1);
  EXPECT_FALSE(plain->hasHook(TAbstractProcessor::kHookProcess));

  auto having = fm->getProcessorsHavingAttribute("calls");
  ASSERT_EQ(having.size(), 1u);
  EXPECT_EQ(having[0], d);
  having.clear();

  fm->destroy();
  py::exec("import gc; gc.collect()");
  d.reset();
  EXPECT_TRUE(weakDoubler.expired());
}

TEST(Scripts, CreateAndDestroyHooksOnlyInTheRunningNetwork) {
  py::dict ns = scriptNamespace();
  py::list log = ns["Lifecycle"].attr("log");
  for (bool program : {false, true}) {
    auto fm = makeFlowManager(program);
    auto p = construct(*fm, ns, "Lifecycle");
    fm->addProcessor(p);
    fm->destroy();
  }
  ASSERT_EQ(py::len(log), 2u);
  EXPECT_EQ(py::str(log[0]).cast<std::string>(), "impl");
  EXPECT_EQ(py::str(log[1]).cast<std::string>(), "destroyed");
}

TEST(Scripts, ExceptionTextsCrossTheBoundaryIntact) {
  py::dict ns = scriptNamespace();
  auto ui = std::make_shared<THeadlessUi>();
  auto saved = me.ui;
  me.ui = ui;
  auto fm = makeFlowManager(true);
  auto savedLayout = me.flowlayout;
  me.flowlayout = fm;
  auto src = fm->constructProcessor<test::TSource>();
  fm->addProcessor(src);
  auto f = construct(*fm, ns, "Failing");
  fm->addProcessor(f);
  fm->createConnection(src->out, f->getInputPinByName("in"));
  src->out->setData(std::make_shared<test::TTestValue>(1));
  doflow(*fm);
  // A processor that fails for good closes the file, so it fails once.
  ASSERT_EQ(ui->popups.size(), 1u);
  EXPECT_EQ(ui->popups[0].msg, "from a script");
  EXPECT_EQ(ui->popups[0].title, "Script");
  EXPECT_TRUE(fm->m_Processors.empty());
  me.ui = saved;
  me.flowlayout = savedLayout;

  // C++ failures reach scripts with their texts.
  py::exec(R"(
fm = TFlowManager(True)
fm.postCreate(fm)
p = fm.constructProcessor(Plain)
texts = []
for call in (lambda: p.requireData(["nosuch"]),
             lambda: p.resetPins("in"),
             lambda: p.haveChanged([3]),
             lambda: p.getOnlyOutputPin(),
             lambda: fm.addBox(fm, fm)):
    try:
        call()
    except Exception as e:
        texts.append(str(e))
fm.addProcessor(fm, p)
try:
    fm.addProcessor(p)
except RuntimeError as e:
    texts.append(str(e))
fm.destroy()
)",
           ns);
  EXPECT_EQ(ns["texts"].cast<std::vector<std::string>>(),
            (std::vector<std::string>{"Cannot find pin with name nosuch", "python_reset(): obj is not a list",
                                      "obj is neither a string or input pin", "Not only one output pin",
                                      "Cannot add box as child to itself", "Already registered"}));
}

TEST(Scripts, UserExceptionCarriesItsTraceback) {
  py::dict ns;
  py::exec(R"(
import MQuorvel
try:
    raise MQuorvel.TUserException("Error while writing to 'x'", "tb text")
except MQuorvel.TUserException as e:
    got = (str(e), e.traceback)
)",
           ns);
  auto got = ns["got"].cast<std::pair<std::string, std::string>>();
  EXPECT_EQ(got.first, "Error while writing to 'x'");
  EXPECT_EQ(got.second, "tb text");

  py::module_ m = py::module_::import("MQuorvel");
  EXPECT_TRUE(py::isinstance(py::module_::import("MQuorvel").attr("me"), m.attr("TMediator")));
}
