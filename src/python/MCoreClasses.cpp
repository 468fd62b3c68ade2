#include "MCoreClasses.h"

#include "analysis/MAttributeDerivation.h"
#include "analysis/MCollapse.h"
#include "analysis/MControlCores.h"
#include "analysis/MEdgeAggregation.h"
#include "analysis/MInspectors.h"
#include "analysis/MMainBox.h"
#include "analysis/MSelection.h"
#include "dataset/MDatasetLoader.h"
#include "data/MDataSources.h"
#include "engine/MRegistry.h"
#include "shell/core/MCodeViewCore.h"
#include "views/core/MViewCores.h"

namespace quorvel {

void registerCoreClasses() {
  static bool done = false;
  if (done) return;
  done = true;
  registerDataClasses();
  registerDatasetProcessors();
  registerCollapseProcessors();
  registerEdgeAggregationProcessors();
  registerDerivationProcessors();
  registerSelectionProcessors();
  registerControlCores();
  registerInspectorCores();
  registerCodeViewCore();
  registerMainBox();
  registerViewCores();
}

}  // namespace quorvel
