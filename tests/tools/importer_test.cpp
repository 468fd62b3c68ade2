// The importer on a fixture tree of C, C++ and Python files.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>

#include "MSourceImporter.h"
#include "dataset/MDatasetLoader.h"
#include "support/TestHelpers.h"

namespace fs = std::filesystem;
using namespace quorvel;
using quorvel::test::errorOf;

namespace {

void write(const fs::path& path, const std::string& text) {
  fs::create_directories(path.parent_path());
  std::ofstream(path) << text;
}

// The fixture: includes that resolve relative to the file, through an
// include folder, with "..", and one that does not; Python imports absolute,
// relative, of a submodule and of the standard library; nested classes and
// inheritance in both languages; a file that cannot be read; a hidden folder.
fs::path fixture() {
  const fs::path root = fs::absolute("tree");
  fs::remove_all(root);
  write(root / "include/lib/api.h", "#pragma once\n#include \"detail.h\"\nint api();\n");
  write(root / "include/lib/detail.h", "#pragma once\nstruct Detail {\n  int x;\n};\n");
  write(root / "core/impl.cpp",
        "#include \"lib/api.h\"\n#include <missing.h>\n#include \"../include/lib/detail.h\"\n"
        "static int helper() { return 1; }\nint api() {\n  return helper();\n}\n");
  write(root / "core/nested.hpp",
        "namespace ns {\nclass Outer {\n class Inner {\n  int v;\n };\n void f();\n};\n}  // namespace ns\n"
        "struct Derived : public ns::Outer {\n};\n");
  write(root / "py/pkg/__init__.py", "");
  write(root / "py/pkg/helper.py", "class Base:\n    pass\n");
  write(root / "py/pkg/sub/__init__.py", "");
  write(root / "py/pkg/sub/deep.py", "X = 1\n");
  write(root / "py/pkg/mod.py",
        "\"\"\"import nothing from here\"\"\"\nimport os\nfrom . import helper\nimport pkg.sub.deep\n"
        "from pkg.helper import (Base,\n    Other)\n\nclass Child(Base):\n    def run(self):\n        return 1\n");
  write(root / ".git/config", "[core]\n");
  fs::create_symlink("loop.h", root / "core/loop.h");  // a link to itself: unreadable, also for root
  return root;
}

struct Imported {
  std::vector<std::string> report;
  TImportCounts counts;
  std::map<std::string, uint32_t> nidByPath;  // folder/file/definition path -> nid
  std::map<uint32_t, std::map<std::string, TDbValue>> attrs;
  std::map<uint32_t, std::pair<uint32_t, int64_t>> parents;  // nid -> parent, childorder
  std::vector<std::tuple<uint32_t, uint32_t, std::string>> edges;

  explicit Imported(const fs::path& root, const std::string& out = "tree.db") {
    TImportOptions options;
    options.report = [this](const std::string& line) { report.push_back(line); };
    counts = importSourceTree(root.string(), out, options);
    TDatabase db(out);
    for (const auto& row : db.execute("SELECT nid,key,value FROM nodeattr")->fetchall())
      attrs[static_cast<uint32_t>(std::get<int64_t>(row[0]))][std::get<std::string>(row[1])] = row[2];
    for (const auto& row : db.execute("SELECT nid,parentnid,childorder FROM hierarchy")->fetchall())
      parents[static_cast<uint32_t>(std::get<int64_t>(row[0]))] = {
          isNull(row[1]) ? 0u : static_cast<uint32_t>(std::get<int64_t>(row[1])), std::get<int64_t>(row[2])};
    for (const auto& row : db.execute("SELECT e.fromnid,e.tonid,a.value FROM edges e, edgeattr a WHERE a.eid=e.eid")
                               ->fetchall())
      edges.emplace_back(static_cast<uint32_t>(std::get<int64_t>(row[0])),
                         static_cast<uint32_t>(std::get<int64_t>(row[1])), std::get<std::string>(row[2]));
    for (const auto& [nid, a] : attrs) nidByPath[pathOf(nid)] = nid;
  }
  std::string text(uint32_t nid, const std::string& key) {
    auto it = attrs[nid].find(key);
    return it == attrs[nid].end() ? "" : dbValueText(it->second);
  }
  std::string pathOf(uint32_t nid) {
    const uint32_t parent = parents[nid].first;
    const std::string name = text(nid, "name");
    return parent ? pathOf(parent) + "/" + name : name;
  }
  uint32_t nid(const std::string& path) {
    auto it = nidByPath.find(path);
    return it == nidByPath.end() ? 0 : it->second;
  }
  bool hasEdge(const std::string& from, const std::string& to, const std::string& kind) {
    return std::find(edges.begin(), edges.end(), std::make_tuple(nid(from), nid(to), kind)) != edges.end();
  }
};

}  // namespace

TEST(Importer, HierarchyOfFoldersFilesAndDefinitions) {
  Imported t(fixture());
  EXPECT_TRUE(t.counts.ctags);
  EXPECT_EQ(t.counts.files, 9u) << "the unreadable link and the hidden folder are not counted";
  EXPECT_TRUE(t.nid("tree/core/impl.cpp"));
  EXPECT_FALSE(t.nid("tree/.git")) << "hidden folders are skipped";
  EXPECT_FALSE(t.nid("tree/core/loop.h"));
  // Folders come before files; definitions nest by scope, in source order.
  EXPECT_EQ(t.parents[t.nid("tree/core")].second, 1);
  EXPECT_EQ(t.text(t.nid("tree/core/nested.hpp/ns/Outer/Inner"), "type"), "class");
  EXPECT_EQ(t.text(t.nid("tree/core/nested.hpp/ns/Outer/Inner/v"), "type"), "field");
  EXPECT_EQ(t.text(t.nid("tree/core/nested.hpp/ns/Outer/f"), "type"), "method");
  EXPECT_EQ(t.text(t.nid("tree/core/nested.hpp/ns"), "type"), "namespace");
  EXPECT_LT(t.parents[t.nid("tree/core/impl.cpp/helper")].second, t.parents[t.nid("tree/core/impl.cpp/api")].second);
  EXPECT_EQ(t.text(t.nid("tree/py/pkg/mod.py/Child/run"), "type"), "method");

  const uint32_t impl = t.nid("tree/core/impl.cpp");
  EXPECT_EQ(t.text(impl, "language"), "C++");
  EXPECT_EQ(t.text(impl, "lines"), "7");
  EXPECT_EQ(t.text(impl, "definitions"), "2");
  EXPECT_EQ(t.text(impl, "_srcloc"), "core/impl.cpp|1|1|7|1");
  EXPECT_EQ(t.text(t.nid("tree/core/impl.cpp/api"), "_srcloc"), "core/impl.cpp|5|1|7|1");
  EXPECT_EQ(t.text(t.nid("tree/py/pkg/mod.py"), "language"), "Python");
  EXPECT_EQ(t.text(t.nid("tree/core"), "bytes"),
            std::to_string(fs::file_size("tree/core/impl.cpp") + fs::file_size("tree/core/nested.hpp")));
  EXPECT_GE(std::stoi(t.text(t.nid("tree"), "definitions")), 12);
}

TEST(Importer, EdgesResolveWithinTheTreeAndCountTheRest) {
  Imported t(fixture());
  EXPECT_TRUE(t.hasEdge("tree/include/lib/api.h", "tree/include/lib/detail.h", "include")) << "beside the file";
  EXPECT_TRUE(t.hasEdge("tree/core/impl.cpp", "tree/include/lib/api.h", "include")) << "through an include folder";
  EXPECT_TRUE(t.hasEdge("tree/core/impl.cpp", "tree/include/lib/detail.h", "include")) << "with ..";
  EXPECT_EQ(t.counts.includesUnresolved, 1u) << "<missing.h>";
  EXPECT_TRUE(t.hasEdge("tree/py/pkg/mod.py", "tree/py/pkg/helper.py", "import")) << "relative";
  EXPECT_TRUE(t.hasEdge("tree/py/pkg/mod.py", "tree/py/pkg/sub/deep.py", "import")) << "from the script's folder";
  EXPECT_EQ(t.counts.importsUnresolved, 1u) << "os is not in the tree; the docstring is no import";
  EXPECT_TRUE(t.hasEdge("tree/py/pkg/mod.py/Child", "tree/py/pkg/helper.py/Base", "inherits"));
  EXPECT_TRUE(t.hasEdge("tree/core/nested.hpp/Derived", "tree/core/nested.hpp/ns/Outer", "inherits"));
  EXPECT_EQ(t.counts.edges, t.edges.size());
}

TEST(Importer, ProtocolFailuresAndLoading) {
  const fs::path root = fixture();
  Imported t(root);
  ASSERT_FALSE(t.report.empty());
  for (const auto& line : t.report)
    EXPECT_TRUE(line.rfind("***STATUS: ", 0) == 0 || line.rfind("***ERROR: ", 0) == 0) << line;
  EXPECT_TRUE(std::any_of(t.report.begin(), t.report.end(),
                          [](const std::string& l) { return l.rfind("***ERROR: Cannot read '", 0) == 0; }));

  // The result loads as a dataset.
  TDatabase db("tree.db");
  auto loader = std::make_shared<TDatasetLoader>();
  loader->postCreate();
  loader->readDatabase(db);
  auto h = dataAs<THierarchyDataArray>(loader->m_Hierarchies)->itemAs<THierarchyData>(0);
  EXPECT_EQ(h->getRowCount(), t.attrs.size() + 1);
  loader->destroy();

  // A missing folder: a clear error, and no file at all.
  fs::remove("none.db");
  EXPECT_EQ(errorOf([] { importSourceTree("no/such/folder", "none.db", {}); }),
            "Folder does not exist: 'no/such/folder'");
  EXPECT_FALSE(fs::exists("none.db"));
  // Without ctags only folders and files remain.
  TImportOptions plain;
  plain.ctags.clear();
  const TImportCounts c = importSourceTree(root.string(), "plain.db", plain);
  EXPECT_FALSE(c.ctags);
  EXPECT_EQ(c.definitions, 0u);
  EXPECT_EQ(c.includesResolved, 3u);
}

TEST(Importer, SpecialFilesAndHostileNames) {
  const fs::path root = fs::absolute("special");
  fs::remove_all(root);
  write(root / "ok.c", "int ok;\n");
  ASSERT_EQ(::mkfifo((root / "pipe.c").c_str(), 0600), 0);
  fs::create_symlink("/dev/zero", root / "zero.c");
  // A name that would start a protocol line of its own.
  write(root / "evil\n***ERROR: forged.c", "int evil;\n");
  TImportOptions options;
  std::vector<std::string> report;
  options.ctags.clear();
  options.report = [&report](const std::string& line) { report.push_back(line); };
  const TImportCounts counts = importSourceTree(root.string(), "special.db", options);  // returns: no hang
  EXPECT_EQ(counts.files, 2u);
  EXPECT_EQ(counts.unreadable, 2u) << "the pipe and the device";
  for (const auto& line : report) {
    EXPECT_EQ(line.find('\n'), std::string::npos) << line;
    EXPECT_NE(line.rfind("***ERROR: forged", 0), 0u);
  }
  EXPECT_EQ(protocolLine("***STATUS: ", "a\nb\\c\x01"), "***STATUS: a\\nb\\\\c\\x01");
}
