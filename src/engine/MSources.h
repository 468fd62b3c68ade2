// Processors that hold a value of their own (data sources), and the identity
// processor that serves as a named port of a box.
#pragma once

#include "data/MAttributes.h"
#include "data/MValues.h"
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

#define QV_SOURCE(NAME, VALUE, TYPENAME, DEFAULT)                 \
  class NAME : public TTypedDataSource<VALUE> {                   \
   public:                                                        \
    QV_CLASS_NAME(NAME)                                           \
    std::string getTypeName() override { return TYPENAME; }       \
                                                                  \
   protected:                                                     \
    TDataPtr makeDefault() override { return DEFAULT; }           \
  };

QV_SOURCE(TStringDataSource, TStringData, "s", std::make_shared<TStringData>())
QV_SOURCE(TStringListDataSource, TStringListData, "sl", std::make_shared<TStringListData>())
QV_SOURCE(TIntDataSource, TIntegerData, "i", std::make_shared<TIntegerData>(0))
QV_SOURCE(TFloatDataSource, TFloatData, "f", std::make_shared<TFloatData>(0.0f))
QV_SOURCE(TBooleanDataSource, TBooleanData, "b", std::make_shared<TBooleanData>(false))
QV_SOURCE(TFloatPairDataSource, TFloatPairData, "f pair", std::make_shared<TFloatPairData>(0.0f, 0.0f))
QV_SOURCE(TBoolAttributeDataSource, TBoolAttributeData, "bool attr src", nullptr)
QV_SOURCE(TPythonDataSource, TPythonData, "ps", std::make_shared<TPythonData>())
QV_SOURCE(TStringDataArraySource, TStringDataArray, "s[] src", std::make_shared<TStringDataArray>())
QV_SOURCE(TFloatDataArraySource, TFloatDataArray, "f[] src", std::make_shared<TFloatDataArray>())

class TIntegerSetDataSource : public TTypedDataSource<TIntegerSetData> {
 public:
  QV_CLASS_NAME(TIntegerSetDataSource)
  std::string getTypeName() override { return "integerset src"; }
  void postCreate() override;
};

// The processor at the start of the net that reaches `pin`, looked for
// through ports: from an input pin back along connectors, across identity
// processors, to the one output pin of another processor that feeds the
// net. Null when there is none or when several processors feed it.
TProcessorPtr findFeedingProcessor(const TPinPtr& pin);
// The same walk, giving the first data source among the feeders: the holder
// of a value that other processors on its net only pass on.
TProcessorPtr findFeedingSource(const TPinPtr& pin);

// Enters the sources and the identity processor in the processor registry.
void registerSourceClasses();

}  // namespace quorvel
