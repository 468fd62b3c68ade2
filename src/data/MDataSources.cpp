#include "MDataSources.h"

#include "data/MColorMap.h"
#include "data/MHierarchy.h"
#include "engine/MRegistry.h"

namespace quorvel {

void registerDataSources() {
  auto& reg = TProcessorRegistry::instance();
  reg.add<TStringDataSource>();
  reg.add<TStringListDataSource>();
  reg.add<TIntDataSource>();
  reg.add<TFloatDataSource>();
  reg.add<TBooleanDataSource>();
  reg.add<TFloatPairDataSource>();
  reg.add<TBoolAttributeDataSource>();
  reg.add<TPythonDataSource>();
  reg.add<TIntegerSetDataSource>();
  reg.add<TStringDataArraySource>();
  reg.add<TFloatDataArraySource>();
}

void registerDataClasses() {
  static bool done = false;
  if (done) return;
  done = true;
  registerEngineClasses();
  registerValueClasses();
  registerStructureClasses();
  registerColorMapClasses();
  registerDataSources();
}

void TIntegerSetDataSource::postCreate() {
  TTypedDataSource::postCreate();
  m_OutputPin->setData(std::make_shared<TIntegerSetData>("<noname>"));
}

}  // namespace quorvel
