// The list view's rows without a window: ids in order, sorted by a sort
// list of one or two keys; and the library's view box headless.
#include <gtest/gtest.h>
#include <pybind11/embed.h>

#include <cstdlib>
#include <filesystem>

#include "base/MDatabase.h"
#include "engine/MLibrary.h"
#include "engine/MMediator.h"
#include "data/MDataSources.h"
#include "support/TestData.h"
#include "views/core/MViewCores.h"

namespace py = pybind11;
using namespace quorvel;
using namespace quorvel::test;

namespace {

std::shared_ptr<TPythonData> sortList(const char* literal) {
  return std::make_shared<TPythonData>(TPyRef::steal(py::eval(literal).release().ptr()));
}

}  // namespace

TEST(ViewCores, RowsFollowTheSortListFromItsLastPairToItsFirst) {
  auto fm = makeFlowManager(false);
  auto list = fm->constructProcessor<TListGuiProcessorCpp>();
  auto columns = std::make_shared<TAttributeDataArray>();
  columns->add(column<TStringAttributeData, std::string>("type", {{1, "b"}, {2, "a"}, {3, "b"}, {4, "a"}}));
  columns->add(column<TIntegerAttributeData, int32_t>("size", {{1, 5}, {2, 7}, {3, 1}}));
  list->m_Attributes->setData(columns);
  list->m_Selection->setData(ids({4, 1, 3, 2}));

  list->buildRow2Id();
  EXPECT_EQ(list->m_Row2Id, (std::vector<uint32_t>{1, 2, 3, 4})) << "no sort: ascending ids";
  list->m_Sort->setData(sortList("[(None, True)]"));
  list->buildRow2Id();
  EXPECT_EQ(list->m_Row2Id, (std::vector<uint32_t>{1, 2, 3, 4})) << "None names no column";

  list->m_Sort->setData(sortList("[('size', False)]"));
  list->buildRow2Id();
  EXPECT_EQ(list->m_Row2Id, (std::vector<uint32_t>{2, 1, 3, 4})) << "no value sorts last descending";

  // Two keys: type first, size breaking ties, the sort stable.
  list->m_Sort->setData(sortList("[('type', True), ('size', True)]"));
  list->buildRow2Id();
  EXPECT_EQ(list->m_Row2Id, (std::vector<uint32_t>{4, 2, 3, 1}));
  list->m_Sort->setData(sortList("[('gone', True), ('type', False)]"));
  list->buildRow2Id();
  EXPECT_EQ(list->m_Row2Id, (std::vector<uint32_t>{1, 3, 2, 4})) << "a key that is no column is skipped";

  list->m_Selection->setData(nullptr);
  list->buildRow2Id();
  EXPECT_TRUE(list->m_Row2Id.empty());
  fm->release();
}

TEST(ViewCores, TheLibraryWithItsViewBoxesLoadsAndRunsHeadless) {
  auto savedLib = me.flowlib;
  auto savedLayout = me.flowlayout;
  std::filesystem::copy_file(std::string(std::getenv("QUORVEL_SOURCE_DIR")) + "/samples/orbit/orbit.db", "orbit.db",
                             std::filesystem::copy_options::overwrite_existing);
  setUpNetworks(std::string(std::getenv("QUORVEL_BINARY_DIR")) + "/bin/library");
  ASSERT_TRUE(me.flowlib->getBoxByType("BListView"));
  instantiateLibBox("BMain", {{{"dataset filename", "orbit.db"}}, {}});
  TBoxPtr view = instantiateLibBox("BListView", {{{"gui title", "Node list view"}},
                                                 {{"attributes", "node attributes"},
                                                  {"selections", "node selections"},
                                                  {"selection b", "node primary selection"},
                                                  {"icon attributes", "node icon attributes"}}});
  doflow(*me.flowlayout);
  EXPECT_FALSE(me.manualupdate);
  // Without the window library the list is its core class, with the pins.
  auto list = view->getProcessorByType<TListGuiProcessorCpp>();
  ASSERT_TRUE(list);
  EXPECT_EQ(list->getClassName(), "TListGuiProcessorCpp");
  auto selection = std::dynamic_pointer_cast<TIntegerSetData>(list->m_Selection->getData());
  ASSERT_TRUE(selection);
  EXPECT_EQ(selection->getCount(), 29u) << "all nodes";
  auto columns = std::dynamic_pointer_cast<TDataArray>(list->m_Attributes->getData());
  ASSERT_TRUE(columns);
  EXPECT_EQ(columns->m_Items.front()->getKeyName(), "name");
  for (const auto& item : columns->m_Items) EXPECT_NE(item->getKeyName()[0], '_') << "internal columns stay out";
  // Stored, the core class goes by its plain name.
  me.flowlayout->store(me.flowlayout->m_Children, "headless.qvperspective");
  TDatabase db("headless.qvperspective");
  EXPECT_EQ(std::get<int64_t>((*db.execute("SELECT count(*) FROM processors WHERE ctor='TListGuiProcessor'")->fetchone())[0]), 1);
  me.flowlayout->destroy();
  me.flowlib->destroy();
  me.flowlib = savedLib;
  me.flowlayout = savedLayout;
}
