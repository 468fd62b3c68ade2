// The importer's edges of Java, Kotlin, JavaScript, TypeScript, Go, Rust and
// C# on the sample trees, and the history of a git work tree made here.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>

#include "MDependencyResolver.h"
#include "MDependencyScanners.h"
#include "MGitHistory.h"
#include "MSourceImporter.h"
#include "base/MDatabase.h"

namespace fs = std::filesystem;
using namespace quorvel;

namespace {

using Edge = std::tuple<std::string, std::string, std::string>;  // kind, from, to

// A dataset as paths below the root: each node's attributes and the edges.
struct Dataset {
  std::vector<std::string> report;
  TImportCounts counts;
  std::map<std::string, std::map<std::string, std::string>> attrs;
  std::set<Edge> edges;
  std::map<std::string, std::string> information;

  Dataset(const fs::path& root, TImportOptions options, const std::string& out = "languages.db") {
    options.report = [this](const std::string& line) { report.push_back(line); };
    counts = importSourceTree(root.string(), out, options);
    TDatabase db(out);
    std::map<int64_t, std::map<std::string, std::string>> byNid;
    for (const auto& row : db.execute("SELECT nid,key,value FROM nodeattr")->fetchall())
      byNid[std::get<int64_t>(row[0])][std::get<std::string>(row[1])] = dbValueText(row[2]);
    std::map<int64_t, int64_t> parent;
    for (const auto& row : db.execute("SELECT nid,parentnid FROM hierarchy")->fetchall())
      parent[std::get<int64_t>(row[0])] = isNull(row[1]) ? 0 : std::get<int64_t>(row[1]);
    std::map<int64_t, std::string> path;
    for (const auto& [nid, a] : byNid) {
      std::string p;
      for (int64_t n = nid; parent[n]; n = parent[n]) p = byNid[n]["name"] + (p.empty() ? "" : "/" + p);
      path[nid] = p;
      attrs[p] = a;
    }
    for (const auto& row :
         db.execute("SELECT a.value,e.fromnid,e.tonid FROM edges e, edgeattr a WHERE a.eid=e.eid")->fetchall())
      edges.emplace(std::get<std::string>(row[0]), path[std::get<int64_t>(row[1])], path[std::get<int64_t>(row[2])]);
    for (const auto& row : db.execute("SELECT key,value FROM information")->fetchall())
      information[std::get<std::string>(row[0])] = dbValueText(row[1]);
  }
  bool said(const std::string& part) const {
    return std::any_of(report.begin(), report.end(), [&](const auto& l) { return l.find(part) != std::string::npos; });
  }
};

TImportOptions plain() {
  TImportOptions o;
  o.ctags.clear();
  o.history = TImportOptions::History::Off;
  return o;
}

fs::path sample(const std::string& name) {
  return fs::path(std::getenv("QUORVEL_SOURCE_DIR")) / "samples/languages" / name;
}

void write(const fs::path& path, const std::string& text) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << text;
}

// Runs a shell command in `dir` and asserts that it worked.
void sh(const fs::path& dir, const std::string& command) {
  const std::string full = "cd '" + dir.string() + "' && " + command + " >/dev/null 2>&1";
  ASSERT_EQ(std::system(full.c_str()), 0) << command;
}

}  // namespace

TEST(ImportLanguages, JavaAndKotlinPackagesClassesAndWildcards) {
  Dataset d(sample("java"), plain());
  const std::string j = "src/main/java/com/acme/", k = "src/main/kotlin/com/acme/";
  EXPECT_EQ(d.edges, (std::set<Edge>{
                         {"import", j + "app/App.java", j + "util/Strings.java"},
                         {"import", j + "app/App.java", j + "model"},               // a wildcard: the package
                         {"import", j + "app/App.java", j + "model/Shape.java"},    // static: its class
                         {"import", j + "model/Shape.java", j + "model/Circle.java"},  // a cycle
                         {"import", j + "model/Circle.java", j + "model/Shape.java"},
                         {"import", k + "app/Main.kt", j + "util/Strings.java"},
                         {"import", k + "app/Main.kt", k + "app/Greeting.kt"},  // a function, renamed
                     }));
  EXPECT_EQ(d.counts.kinds["import"].leftOut, 2u) << "java.util.List and kotlinx; comments and strings are no imports";
  EXPECT_EQ(d.attrs[j + "app/App.java"]["language"], "Java");
  EXPECT_EQ(d.attrs[k + "app/Main.kt"]["language"], "Kotlin");
  EXPECT_TRUE(d.said("Edges by kind: import 8 resolved, 2 left out")) << "Strings.java imports itself: no edge";
}

TEST(ImportLanguages, ScriptModulesRelativeMappedAndReexported) {
  Dataset d(sample("typescript"), plain());
  EXPECT_EQ(d.edges, (std::set<Edge>{
                         {"import", "src/index.ts", "src/math.ts"},
                         {"import", "src/index.ts", "src/shapes/index.ts"},
                         {"import", "src/index.ts", "src/lib/log.ts"},  // "@lib/*" of tsconfig's paths
                         {"export", "src/index.ts", "src/shapes/index.ts"},  // a folder's index file
                         {"dynamic import", "src/index.ts", "src/lazy.ts"},
                         {"import", "src/math.ts", "src/index.ts"},  // a cycle
                         {"export", "src/shapes/index.ts", "src/shapes/circle.ts"},
                         {"import", "src/util/paths.ts", "src/math.ts"},  // through baseUrl
                         {"require", "src/legacy.js", "src/math.ts"},
                     }));
  EXPECT_EQ(d.counts.kinds["import"].leftOut, 2u) << "react and ./missing";
  EXPECT_EQ(d.counts.kinds["require"].leftOut, 1u) << "fs";

  // Kept, a bare package becomes a node of the folder "external".
  TImportOptions keep = plain();
  keep.keepExternal = true;
  Dataset e(sample("typescript"), keep, "external.db");
  EXPECT_TRUE(e.edges.count({"import", "src/index.ts", "external/react"}));
  EXPECT_TRUE(e.edges.count({"require", "src/legacy.js", "external/fs"}));
  EXPECT_EQ(e.attrs["external/react"]["type"], "package");
}

TEST(ImportLanguages, GoRustAndCSharp) {
  Dataset go(sample("go"), plain());
  EXPECT_EQ(go.edges, (std::set<Edge>{
                          {"import", "main.go", "internal/cart"},
                          {"import", "main.go", "payment"},
                          {"import", "internal/cart/cart.go", "payment"},
                          {"import", "payment/pay.go", "internal/cart"},
                          {"import", "payment/pay_test.go", "payment"},
                      }));
  EXPECT_EQ(go.counts.kinds["import"].leftOut, 4u) << "fmt, testing, a missing package, and below a bad go.mod";
  EXPECT_TRUE(go.said("'tools/go.mod' has no module line"));

  Dataset rust(sample("rust"), plain());
  EXPECT_EQ(rust.edges, (std::set<Edge>{
                            {"mod", "src/lib.rs", "src/shapes/mod.rs"},
                            {"mod", "src/lib.rs", "src/util.rs"},
                            {"use", "src/lib.rs", "src/shapes/circle.rs"},
                            {"mod", "src/shapes/mod.rs", "src/shapes/circle.rs"},
                            {"mod", "src/shapes/mod.rs", "src/shapes/square.rs"},
                            {"use", "src/shapes/mod.rs", "src/util.rs"},  // super::util::{self, clamp}
                            {"use", "src/shapes/circle.rs", "src/shapes/square.rs"},
                            {"use", "src/shapes/circle.rs", "src/util.rs"},  // super::super
                            {"use", "src/shapes/square.rs", "src/shapes/circle.rs"},  // a cycle
                            {"use", "src/util.rs", "src/lib.rs"},  // crate::*
                        }));
  EXPECT_EQ(rust.counts.kinds["mod"].leftOut, 1u) << "mod missing";
  EXPECT_EQ(rust.counts.kinds["use"].leftOut, 1u) << "std::fmt";

  Dataset cs(sample("csharp"), plain());
  EXPECT_EQ(cs.edges, (std::set<Edge>{
                          {"using", "App/Program.cs", "Models/Item.cs"},  // every file of the namespace
                          {"using", "App/Program.cs", "Models/Order.cs"},
                          {"using", "App/Program.cs", "Util/Text.cs"},  // using static of a class
                          {"using", "Models/Order.cs", "Util/Text.cs"},  // nested namespace Shop.Util
                          {"using", "Util/Text.cs", "Models/Item.cs"},
                          {"using", "Util/Text.cs", "Models/Order.cs"},
                      }));
  EXPECT_EQ(cs.counts.kinds["using"].leftOut, 1u) << "System; using statements are no directives";
}

// The samples' datasets hold what the importer gives their trees: the same
// edges, with inheritance besides where ctags read definitions.
TEST(ImportLanguages, SampleDatasetsAreWhatTheTreesGive) {
  for (const char* name : {"java", "typescript", "go", "rust", "csharp"}) {
    Dataset fresh(sample(name), plain(), std::string(name) + ".db");
    TDatabase db(sample(name).string() + ".db");
    size_t stored = 0;
    for (const auto& row : db.execute("SELECT value FROM edgeattr WHERE key='kind'")->fetchall())
      stored += std::get<std::string>(row[0]) != "inherits";
    EXPECT_EQ(stored, fresh.edges.size()) << name;
  }
}

// What the scanners must not take for a dependency, and forms they must.
TEST(ImportLanguages, ScannersReadPastCommentsStringsAndOddForms) {
  auto targets = [](TSourceLanguage l, const std::string& text) {
    std::vector<std::string> out;
    for (const auto& r : scanSource(l, text).references) out.push_back(r.kind + " " + r.target);
    return out;
  };
  EXPECT_EQ(targets(TSourceLanguage::TypeScript,
                    "const s = `${a} import x from './no'`;\n/* require('./no') */\nimport {\n  a,\n  b,\n} from "
                    "\"./multi\";\nexport type { T } from './types';\nimport.meta.url;\nx.require('./no');\n"
                    "import json from './data.json' assert { type: 'json' };\n"),
            (std::vector<std::string>{"import ./multi", "export ./types", "import ./data.json"}));
  EXPECT_EQ(targets(TSourceLanguage::Rust,
                    "fn f<'a>(x: &'a str) -> char { '{' }\nlet s = r#\"use crate::no;\"#;\n/* /* use crate::no; */ "
                    "*/\nuse crate::a::{b::{c, d as e}, f::*};\npub(crate) use ::std::io;\n"),
            (std::vector<std::string>{"use crate::a::b::c", "use crate::a::b::d", "use crate::a::f", "use std::io"}));
  EXPECT_EQ(targets(TSourceLanguage::CSharp,
                    "global using A.B;\nnamespace N { class C { void M() { using (x) {} } } }\nusing D = E.F<G>;\n"),
            (std::vector<std::string>{"using A.B", "using E.F"}));
  auto kotlin = scanSource(TSourceLanguage::Kotlin, "package p.q\nfun <T> List<T>.second(): T = this[1]\n"
                                                    "val String.size get() = length\nenum class Color { RED }\n");
  EXPECT_EQ(kotlin.package, "p.q");
  EXPECT_EQ(kotlin.declared, (std::vector<std::string>{"second", "size", "Color"}));
  // Bytes that are no UTF-8 and a file on one long line pass through.
  std::string noise = "import x from './a';\xff\xfe\x80 require('./b')";
  noise += std::string(5'000'000, 'x') + " import('./c')";
  EXPECT_EQ(targets(TSourceLanguage::JavaScript, noise),
            (std::vector<std::string>{"import ./a", "require ./b", "dynamic import ./c"}));
  EXPECT_THROW(parseJsonWithComments("{ \"a\": [1, 2,, ] }"), std::runtime_error);
  EXPECT_EQ(parseJsonWithComments("{ /* c */ \"a\": [\"x\",], } // end")
                .member("a")
                ->items.at(0)
                .text,
            "x");
}

TEST(ImportLanguages, BadConfigurationsGoOnWhereTheyCan) {
  const fs::path root = fs::absolute("badconfig");
  fs::remove_all(root);
  write(root / "tsconfig.json", "{ this is not json");
  write(root / "a.ts", "import { b } from './b';\nimport { c } from 'c/d';\n");
  write(root / "b.ts", "import { a } from './a';\nimport { me } from './b';\n");  // a cycle and itself
  fs::create_directories(root / "loop");
  fs::create_symlink("..", root / "loop/up");  // a loop of folders
  Dataset d(root, plain(), "bad.db");
  EXPECT_EQ(d.edges, (std::set<Edge>{{"import", "a.ts", "b.ts"}, {"import", "b.ts", "a.ts"}}));
  EXPECT_TRUE(d.said("'tsconfig.json' is not JSON"));
}

// A work tree made here: known authors, dates, a rename and a deletion.
TEST(ImportHistory, CommitsAuthorsChurnAndDatesPerFileAndFolder) {
  const fs::path root = fs::absolute("history");
  fs::remove_all(root);
  fs::create_directories(root);
  sh(root, "git init -q . && git config user.name Nobody && git config user.email nobody@example.com");
  const int64_t day = 86400, start = 1700000000;
  auto commit = [&](const std::string& who, int64_t at, const std::string& message) {
    const std::string date = "@" + std::to_string(at) + " +0000";
    sh(root, "git add -A && GIT_AUTHOR_NAME='" + who + "' GIT_AUTHOR_EMAIL='" + who + "@example.com' GIT_AUTHOR_DATE='" +
                 date + "' GIT_COMMITTER_DATE='" + date + "' git commit -q -m '" + message + "'");
  };
  write(root / "src/a.c", "1\n2\n3\n");
  write(root / "src/old.c", "x\ny\n");
  write(root / "gone.c", "z\n");
  commit("Ann", start, "first");
  write(root / "src/a.c", "1\n2\nthree\n4\n");  // +2 -1
  fs::remove(root / "gone.c");
  commit("Bob", start + 10 * day, "second");
  fs::create_directories(root / "lib");
  fs::rename(root / "src/old.c", root / "lib/new.c");
  write(root / "lib/new.c", "x\ny\nw\n");  // renamed, +1
  commit("ann", start + 30 * day, "third");  // the same author in other case

  Dataset d(root, [] {
    TImportOptions o = plain();
    o.history = TImportOptions::History::Auto;
    return o;
  }());
  auto at = [&](const std::string& path, const std::string& key) { return d.attrs[path][key]; };
  EXPECT_EQ(at("src/a.c", "commits"), "2");
  EXPECT_EQ(at("src/a.c", "authors"), "2");
  EXPECT_EQ(at("src/a.c", "churn"), "6");  // 3 added, then 2 added and 1 removed
  EXPECT_EQ(at("src/a.c", "last change"), "20");
  EXPECT_EQ(at("src/a.c", "first change"), "30");
  EXPECT_EQ(at("lib/new.c", "commits"), "2") << "its life as src/old.c counts";
  EXPECT_EQ(at("lib/new.c", "authors"), "1");
  EXPECT_EQ(at("lib/new.c", "churn"), "3");
  EXPECT_EQ(at("lib/new.c", "first change"), "30");
  EXPECT_EQ(at("lib/new.c", "last change"), "0");
  EXPECT_EQ(at("", "commits"), "3") << "the root: each commit once";
  EXPECT_EQ(at("", "authors"), "2");
  EXPECT_EQ(at("", "churn"), "9") << "the deleted file's lines are not in the tree";
  EXPECT_EQ(at("src", "commits"), "2");
  EXPECT_EQ(at("lib", "first change"), "30");
  EXPECT_EQ(d.counts.commits, 3u);
  EXPECT_EQ(d.information["commit"].size(), 40u);

  // A folder within the work tree: its files by their paths below it.
  TImportOptions history = plain();
  history.history = TImportOptions::History::On;
  Dataset below(root / "src", history, "below.db");
  EXPECT_EQ(below.attrs["a.c"]["commits"], "2");
  EXPECT_EQ(below.attrs[""]["churn"], "6");

  // A window of the last 15 days.
  TImportOptions recent = plain();
  recent.history = TImportOptions::History::On;
  recent.since = "2023-11-29";  // 15 days after the first commit
  Dataset r(root, recent, "recent.db");
  EXPECT_EQ(r.attrs["src/a.c"]["commits"], "0");
  EXPECT_EQ(r.attrs["lib/new.c"]["commits"], "1");
  EXPECT_EQ(r.information["history since"], recent.since);
}

TEST(ImportHistory, WhereThereIsNoHistoryItSaysWhy) {
  const fs::path base = fs::absolute("nohistory");
  fs::remove_all(base);
  write(base / "empty/a.c", "int a;\n");
  sh(base / "empty", "git init -q .");
  write(base / "plain/a.c", "int a;\n");
  sh(base, "git init -q --bare bare.git");
  auto asked = [](const std::string& git = "git") {
    TImportOptions o = plain();
    o.history = TImportOptions::History::On;
    o.git = git;
    return o;
  };
  Dataset empty(base / "empty", asked(), "e.db");
  EXPECT_TRUE(empty.said("has no commits"));
  EXPECT_TRUE(empty.attrs["a.c"].count("lines"));
  EXPECT_FALSE(empty.attrs["a.c"].count("commits"));
  Dataset bare(base / "bare.git", asked(), "b.db");
  EXPECT_TRUE(bare.said("is not in a git work tree (a bare repository)"));
  Dataset missing(base / "plain", asked("/no/such/git"), "m.db");
  EXPECT_TRUE(missing.said("git is not available"));
  EXPECT_FALSE(missing.information.count("commit"));

  // A shallow clone: the history it has, and a word that it is partial.
  const fs::path origin = base / "origin";
  write(origin / "a.c", "1\n");
  sh(origin, "git init -q . && git add -A && git -c user.name=A -c user.email=a@x commit -q -m one");
  write(origin / "a.c", "1\n2\n");
  sh(origin, "git add -A && git -c user.name=A -c user.email=a@x commit -q -m two");
  sh(base, "git clone -q --depth 1 file://" + origin.string() + " shallow");
  Dataset shallow(base / "shallow", asked(), "s.db");
  EXPECT_TRUE(shallow.said("shallow clone"));
  EXPECT_EQ(shallow.attrs["a.c"]["commits"], "1");
}

// The log reader on its own: chunks that split anywhere, a rename chain.
TEST(ImportHistory, LogReaderFollowsRenamesAcrossChunks) {
  using namespace std::string_literals;
  const std::string log = "\x01h3\x02" "30\x02" "a@x\0\n1\t0\t\0b\0c\0"s +   // b renamed to c
                          "\x01h2\x02" "20\x02" "b@x\0\n0\t0\t\0a\0b\0" "2\t1\tother\0"s +  // a to b
                          "\x01h1\x02" "10\x02" "a@x\0\n5\t0\ta\0-\t-\tpic.png\0"s;
  for (size_t chunk : {1ul, 3ul, log.size()}) {
    TGitLogReader reader;
    std::vector<std::string> seen;
    reader.onCommit = [&](const TGitLogReader::Commit& c) { seen.push_back(std::string(c.hash)); };
    reader.onChange = [&](const std::string& p, uint64_t a, uint64_t r) {
      seen.push_back(p + " " + std::to_string(a) + " " + std::to_string(r));
    };
    for (size_t i = 0; i < log.size(); i += chunk) reader.feed(log.data() + i, std::min(chunk, log.size() - i));
    reader.finish();
    EXPECT_EQ(seen, (std::vector<std::string>{"h3", "c 1 0", "h2", "c 0 0", "other 2 1", "h1", "c 5 0", "pic.png 0 0"}))
        << chunk;
  }
}
