// Where the sources of an imported dataset stand.
#pragma once

#include <string>

#include "data/MValues.h"
#include "engine/MFlowObjects.h"

namespace quorvel {

// The folder relative "_srcloc" paths of a dataset are found in: the
// "source root" the importer recorded in the dataset's `information`
// (itself relative to the dataset's folder), or the dataset's folder.
std::string sourceRootOf(const std::string& datasetFile);

// "source root": from the dataset's file name on `in` to that folder on
// `out`.
class TSourceRootProcessor : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TSourceRootProcessor)
  TPinPtr m_In, m_Out;
  void postCreate() override;
  std::string getTypeName() override { return "source root"; }
  void process() override;
};

}  // namespace quorvel
