// Processors that hold a value of their own (data sources), and the identity
// processor that serves as a named port of a box.
#pragma once

#include "engine/MFlowObjects.h"

namespace quorvel {

class TAbstractDataSource : public TAbstractProcessor {
 public:
  static constexpr const char* kClassName = "TAbstractDataSource";
  bool isDataSource() override { return true; }
  void process() override {}
  void createImplementation() override {}

  // The value on the output pin, may be empty.
  virtual TDataPtr getData();
  // Puts the value on the output pin; it goes out in the next stage1.
  virtual void setData(const TDataPtr& data);
  // Makes the default value when the output pin has none.
  virtual void ensureDataExists();

  TPinPtr m_OutputPin;

 protected:
  // The default of ensureDataExists; null means the class has none.
  virtual TDataPtr makeDefault() { return nullptr; }
};

class TAbstractIdentityProcessor : public TAbstractDataSource {
 public:
  QV_CLASS_NAME(TAbstractIdentityProcessor)
  TPinPtr m_InputPin;

  void postCreate() override;
  std::string getTypeName() override { return "i"; }
  bool isIdentity() override { return true; }
  // Not the value but the pin names, "in|out", so that a flow file keeps a
  // renamed port.
  TDataPtr getData() override;
  // Renames the pins from a TStringData holding "in|out".
  void setData(const TDataPtr& data) override;
  void process() override;
};

template <class V>
class TTypedDataSource : public TAbstractDataSource {
 public:
  void postCreate() override { m_OutputPin = addOutputPin<V>("out"); }
};

// The processor at the start of the net that reaches `pin`, looked for
// through ports: from an input pin back along connectors, across identity
// processors, to the one output pin of another processor that feeds the
// net. Null when there is none or when several processors feed it.
TProcessorPtr findFeedingProcessor(const TPinPtr& pin);
// The same walk, giving the first data source among the feeders: the holder
// of a value that other processors on its net only pass on.
TProcessorPtr findFeedingSource(const TPinPtr& pin);

// Enters the identity processor in the processor registry.
void registerSourceClasses();

}  // namespace quorvel
