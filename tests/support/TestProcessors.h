// Small processors and values for exercising the engine.
#pragma once

#include <functional>
#include <string>

#include "engine/MFlowManager.h"
#include "engine/MRegistry.h"

namespace quorvel::test {

// An integer value with a text form.
class TTestValue : public TAbstractData {
 public:
  QV_CLASS_NAME(TTestValue)
  explicit TTestValue(int v = 0) : value(v) {}
  int value;
  std::string toString() const override { return std::to_string(value); }
};

// Copies its input to its output with one added, and counts its runs.
class TRelay : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TRelay)
  int runs = 0;
  int seen = -1;
  TPinPtr in, out;
  std::function<void(TRelay&)> onProcess;
  void postCreate() override {
    in = addInputPin("TAbstractData", "in");
    out = addOutputPin("TAbstractData", "out");
  }
  std::string getTypeName() override { return "relay"; }
  void process() override {
    ++runs;
    if (onProcess) {
      onProcess(*this);
      return;
    }
    auto v = std::dynamic_pointer_cast<TTestValue>(in->getData());
    seen = v ? v->value : -1;
    out->setData(v ? std::make_shared<TTestValue>(v->value + 1) : nullptr);
    resetPins({});
  }
};

// A value source with one output.
class TSource : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TSource)
  TPinPtr out;
  void postCreate() override { out = addOutputPin("TAbstractData", "out"); }
  void process() override {}
};

// Builds managers and processors with less ceremony; the test processors are
// known to the registry, so flow files can hold them.
struct Net {
  Net() {
    TProcessorRegistry::instance().add<TRelay>();
    TProcessorRegistry::instance().add<TSource>();
  }
  std::shared_ptr<TFlowManager> fm = makeFlowManager(true);
  ~Net() { fm->release(); }
  template <class T>
  std::shared_ptr<T> add(const TBoxPtr& box, float y = 0.0f) {
    auto p = fm->constructProcessor<T>();
    p->m_Area = TBox(0.0f, y, 80.0f, y + 20.0f);
    box->addProcessor(p);
    return p;
  }
  TBoxPtr box(const TBoxPtr& parent, const std::string& type = "noname box") {
    auto b = makeBox(type);
    parent->addBox(b);
    return b;
  }
  // One pass; true when a processor ran.
  bool pass() {
    fm->stage1();
    return fm->stage2();
  }
  int settle(int limit = 50) {
    int n = 0;
    while (n < limit && pass()) ++n;
    return n;
  }
};

}  // namespace quorvel::test
