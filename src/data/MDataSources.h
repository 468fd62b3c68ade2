// Data sources that hold a value of one of the value classes.
#pragma once

#include "data/MAttributes.h"
#include "data/MValues.h"
#include "engine/MSources.h"

namespace quorvel {

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

// Enters the typed sources in the processor registry.
void registerDataSources();
// Every class of this library: values, structures, colour maps, sources.
void registerDataClasses();

}  // namespace quorvel
