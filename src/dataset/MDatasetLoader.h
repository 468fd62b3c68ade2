// Processors that bring a dataset into the network: the dataset loader, the
// file name check, the icon table and the colour maps.
#pragma once

#include <memory>

#include "data/MAttributes.h"
#include "data/MHierarchy.h"
#include "data/MValues.h"
#include "base/MDatabase.h"
#include "engine/MFlowObjects.h"

namespace quorvel {

class TDatasetLoaderCpp : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TDatasetLoaderCpp)
  TPinPtr m_In;
  TPinPtr m_Hierarchies, m_NodeAttributes, m_EdgeAttributes, m_Edges, m_NodeSelections, m_EdgeSelections;
  void postCreate() override;
  std::string getTypeName() override { return "dataset loader"; }
};

class TDatasetLoader : public TDatasetLoaderCpp {
 public:
  QV_CLASS_NAME(TDatasetLoader)
  unsigned hookMask() override { return kHookProcess; }
  void process_python() override;

  // Reads a dataset database into the six outputs. A database in a file
  // with attribute tables longer than m_RowsPerRead is read on two threads,
  // each with its own connection, in ranges of that many rows. The outputs
  // are set in order up to the first part that failed to read, whose
  // failure is then raised.
  void readDatabase(TDatabase& db);
  int64_t m_RowsPerRead = 250000;

  // The open dataset; the connection stays open after reading.
  std::shared_ptr<TDatabase> m_Database;
};

// Builds the hierarchies of a dataset database: nested-set numbers from the
// parent links, the synthetic root first. Raises for a hierarchy without a
// root, a cycle, or one that is no tree.
std::shared_ptr<THierarchyDataArray> readHierarchies(TDatabase& db);

// Reads an attribute table ("SELECT id,key,value FROM ...") into typed
// columns; with `ordered`, "name" and "type" first and "_" keys last.
std::shared_ptr<TAttributeDataArray> readAttributes(TDatabase& db, const std::string& query, bool ordered);

class TDatabaseLoaderCpp : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TDatabaseLoaderCpp)
  TPinPtr m_In, m_Out;
  void postCreate() override;
  std::string getTypeName() override { return "database loader"; }
};

class TDatabaseLoader : public TDatabaseLoaderCpp {
 public:
  QV_CLASS_NAME(TDatabaseLoader)
  unsigned hookMask() override { return kHookProcess; }
  void process_python() override;
};

class TIconLoaderCpp : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TIconLoaderCpp)
  TPinPtr m_Output;
  void postCreate() override { m_Output = addOutputPin<TMapStringToIntegerData>("output"); }
  std::string getTypeName() override { return "icon loader"; }
};

class TIconLoader : public TIconLoaderCpp {
 public:
  QV_CLASS_NAME(TIconLoader)
  bool initialized = false;
  unsigned hookMask() override { return kHookBeforeProcess; }
  // The first time only: the icon table of the application on the output.
  void beforeprocess_python() override;
};

class TColorMapLoaderCpp : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TColorMapLoaderCpp)
  TPinPtr m_Output;
  void postCreate() override { m_Output = addOutputPin<TColorMapDataArray>("output"); }
  std::string getTypeName() override { return "colormap loader"; }
};

class TColorMapLoader : public TColorMapLoaderCpp {
 public:
  QV_CLASS_NAME(TColorMapLoader)
  unsigned hookMask() override { return kHookCreateImplementation; }
  void createImplementation_python() override;
};

void registerDatasetProcessors();

}  // namespace quorvel
