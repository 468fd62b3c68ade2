#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "base/MDatabase.h"
#include "base/MErrors.h"
#include "dataset/MSourceRoot.h"
#include "shell/core/MCodeViewCore.h"
#include "support/TestProcessors.h"

using namespace quorvel;
using namespace quorvel::test;
namespace fs = std::filesystem;

TEST(CodeLocations, TheFilePrefixIsOptionalAndTheLastColumnIsIncluded) {
  const TSourceLocation plain = parseSourceLocation("src/a.cpp|3|5|7|5");
  const TSourceLocation prefixed = parseSourceLocation("FILE:src/a.cpp|3|5|7|5|x|y");
  EXPECT_EQ(plain.file, "src/a.cpp");
  EXPECT_EQ(prefixed.file, plain.file) << "both open the same tab";
  EXPECT_EQ(prefixed.extra, (std::vector<std::string>{"x", "y"}));
  const TTextRange r = zeroBased(plain);
  EXPECT_EQ(r.firstLine, 2);
  EXPECT_EQ(r.firstColumn, 4);
  EXPECT_EQ(r.lastLine, 6);
  EXPECT_EQ(r.lastColumn, 5) << "an end position after column 5, so column 5 is covered";

  for (const char* bad : {"a.cpp|1|1|x|1", "a.cpp|1|1|2", "a.cpp||1|2|1", "a.cpp|1.5|1|2|1"}) {
    try {
      parseSourceLocation(bad);
      ADD_FAILURE() << bad;
    } catch (const TFlowError& e) {
      EXPECT_NE(std::string(e.what()).find(bad), std::string::npos) << e.what();
    }
  }
  EXPECT_EQ(resolveSourcePath("/abs/a.cpp", "/root"), "/abs/a.cpp");
  EXPECT_EQ(resolveSourcePath("lib/../a.cpp", "/root"), "/root/a.cpp");
  EXPECT_EQ(resolveSourcePath("a.cpp", ""), "a.cpp");
  EXPECT_EQ(codeViewStatus(1, 0), "Could not find the location for this node.");
  EXPECT_EQ(codeViewStatus(3, 2), "Found location for 2 of 3 nodes.");
}

TEST(CodeLocations, ASelectionIsGroupedByFileAndReadUpTo99Nodes) {
  Net net;
  auto code = net.add<TCodeTextControlCpp>(net.fm);
  auto srcloc = std::make_shared<TStringAttributeData>("_srcloc");
  for (uint32_t id = 1; id <= 10000; ++id)
    if (id % 3 != 0) srcloc->addRow(id, (id % 2 ? "FILE:odd.cpp|" : "even.cpp|") + std::to_string(id) + "|1|" +
                                            std::to_string(id) + "|4");
  auto attrs = std::make_shared<TAttributeDataArray>();
  attrs->m_Items = {srcloc};
  code->m_Attributes->setData(attrs);
  code->m_BasePath->setData(std::make_shared<TStringData>("/tree"));
  code->findLocationAttribute();
  ASSERT_TRUE(code->locationattr);
  auto selection = std::make_shared<TIntegerSetData>();
  for (uint32_t id = 1; id <= 10000; ++id) selection->m_Set.insert(id);
  code->m_NodeUserSelection->setData(selection);

  const TLocationGroups groups = code->groupSelection();
  EXPECT_EQ(groups.nodes, 99u) << "at most 99 of 10,000";
  ASSERT_EQ(groups.files.size(), 2u);
  EXPECT_EQ(groups.files[0].first, "/tree/odd.cpp") << "in the order of the first node";
  size_t markers = 0;
  for (const auto& f : groups.files) markers += f.second.size();
  EXPECT_EQ(markers, 66u) << "every third node has no location";
  EXPECT_FALSE(code->getFilenameAndMarker(3));

  // A dataset without locations: no attribute, and the view stays empty.
  attrs->m_Items.clear();
  code->findLocationAttribute();
  EXPECT_FALSE(code->locationattr);
  EXPECT_TRUE(code->groupSelection().files.empty());
}

TEST(CodeLocations, TheSourceRootIsReadFromTheDatasetBesideIt) {
  fs::create_directories("roots/data");
  const std::string db = "roots/data/tree.db";
  fs::remove(db);
  {
    TDatabase d(db);
    d.execute("CREATE TABLE information(key TEXT, value)");
    d.execute("INSERT INTO information (key, value) VALUES ('source root', '../src')");
    d.commit();
  }
  const fs::path folder = fs::absolute("roots/data");
  EXPECT_EQ(sourceRootOf(db), (folder / "../src").lexically_normal().string());
  std::ofstream("roots/data/tree.xml") << "<dataset/>";
  EXPECT_EQ(sourceRootOf("roots/data/tree.xml"), folder.string()) << "no database: the dataset's folder";
  EXPECT_EQ(sourceRootOf("roots/data/gone.db"), folder.string());
  EXPECT_EQ(sourceRootOf(""), "");
}
