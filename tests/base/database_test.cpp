#include <gtest/gtest.h>

#include <fstream>

#include "base/MDatabase.h"
#include "support/TestHelpers.h"

using namespace quorvel;
using quorvel::test::errorOf;

namespace {

const char* kNodeAttr = "CREATE TABLE nodeattr (nid INTEGER KEY, key STRING, value STRING, type STRING)";

}  // namespace

TEST(Database, PragmasAndTheStringAffinity) {
  TDatabase db(":memory:");
  auto mode = db.execute("PRAGMA journal_mode")->fetchone();
  EXPECT_EQ(std::get<std::string>((*mode)[0]), "off");
  TDatabase file("affinity.db");
  EXPECT_EQ(std::get<std::string>((*file.execute("PRAGMA journal_mode")->fetchone())[0]), "off");
  EXPECT_EQ(std::get<int64_t>((*file.execute("PRAGMA synchronous")->fetchone())[0]), 0);
  EXPECT_EQ(std::get<int64_t>((*file.execute("PRAGMA temp_store")->fetchone())[0]), 2);

  db.execute(kNodeAttr);
  db.executeMany("INSERT INTO nodeattr (nid,key,value) VALUES (?,?,?)",
                 {{int64_t(1), "size", "12"}, {int64_t(2), "size", "12x"}, {int64_t(3), "size", 2.5}});
  auto rows = db.execute("SELECT nid,value FROM nodeattr ORDER BY nid")->fetchall();
  ASSERT_EQ(rows.size(), 3u);
  EXPECT_EQ(std::get<int64_t>(rows[0]["value"]), 12) << "digits come back as an integer";
  EXPECT_EQ(std::get<std::string>(rows[1]["value"]), "12x");
  EXPECT_EQ(std::get<double>(rows[2][1]), 2.5);
  EXPECT_EQ(errorOf([&] { rows[0]["nosuch"]; }), "No item with that key");
}

TEST(Database, FailuresStatisticsAndParameters) {
  TDatabase db(":memory:");
  EXPECT_EQ(db.execute("SELECT * FROM missing", {}, false, true), nullptr) << "allowfail swallows";
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(errorOf([&] { db.execute("SELECT * FROM missing"); }), "no such table: missing");
  const std::string out = ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(out, "\n***************\nException in query:SELECT * FROM missing\n");

  db.execute("CREATE TABLE t (a INTEGER, b TEXT)");
  // An empty parameter list runs the statement without parameters; so does
  // "many" with no parameter rows.
  db.execute("INSERT INTO t VALUES (1, 'x')", {});
  db.executeMany("INSERT INTO t VALUES (2, 'y')", {});
  db.execute("INSERT INTO t VALUES (?, ?)", {int64_t(3), std::string("z")});
  db.commit();
  EXPECT_EQ(std::get<int64_t>((*db.execute("SELECT count(*) FROM t")->fetchone())[0]), 3);
  EXPECT_EQ(db.queryfrequency["INSERT INTO t VALUES (?, ?)"], 1);
  EXPECT_EQ(db.querytimes.count("SELECT count(*) FROM t"), 1u);
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(errorOf([&] { db.execute("INSERT INTO t VALUES (?, ?)", {int64_t(1)}); }).find("Incorrect number"), 0u);
  ::testing::internal::GetCapturedStdout();

  db.keepstats = false;
  db.execute("SELECT 1");
  EXPECT_EQ(db.querytimes.count("SELECT 1"), 0u);
  EXPECT_NE(db.showStats().find("SELECT count(*) FROM t"), std::string::npos);
}

TEST(Database, PrettyPrintLayout) {
  TDatabase db(":memory:");
  db.execute("CREATE TABLE t (name TEXT, n INTEGER)");
  db.execute("INSERT INTO t VALUES ('a long value', 1)");
  db.execute("INSERT INTO t VALUES (NULL, 22)");
  auto cursor = db.execute("SELECT name, n FROM t");
  EXPECT_EQ(TDatabase::pp(*cursor),
            "name         n     \n"
            "------------ ------\n"
            "a long value 1     \n"
            "             22    \n"
            "Count: 2");
  auto none = db.execute("CREATE TABLE u (x)");
  EXPECT_EQ(TDatabase::pp(*none), "#### NO RESULTS ###");
  for (int i = 0; i < 40; ++i) db.execute("INSERT INTO t VALUES ('r', ?)", {int64_t(i)});
  const std::string text = db.prn("SELECT n FROM t");
  EXPECT_EQ(text.front(), '\n');
  EXPECT_NE(text.find("Count: 42"), std::string::npos);
  // The header, the rule and rows 0 to maxrow.
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1 + 2 + 31);
}

TEST(Database, QueryPlansAndTables) {
  TDatabase db(":memory:");
  db.execute(kNodeAttr);
  ::testing::internal::CaptureStdout();
  std::string plan = db.showPlan("SELECT * FROM nodeattr WHERE nid=?", {int64_t(1)});
  EXPECT_NE(plan.find("--- NO INDEX ---"), std::string::npos);
  db.execute("CREATE INDEX nodeattr_nid ON nodeattr (nid)");
  plan = db.showPlan("SELECT * FROM nodeattr WHERE nid=?", {int64_t(1)});
  EXPECT_EQ(plan.find("--- NO INDEX ---"), std::string::npos) << plan;
  const std::string tables = db.showTables();
  ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(tables, "--- Permanent tables:\nnodeattr\n--- Temporary tables:\n");
  EXPECT_EQ(db.execute("CREATE INDEX nodeattr_nid ON nodeattr (nid)", {}, false, true), nullptr);
}

TEST(Database, BrokenFilesGiveSqliteTexts) {
  {
    std::ofstream junk("junk.db", std::ios::binary);
    junk << std::string(4096, 'x');
  }
  std::string text = errorOf([] {
    TDatabase db("junk.db");
    db.execute("SELECT * FROM edges");
  });
  EXPECT_EQ(text, "file is not a database");
  EXPECT_EQ(errorOf([] { TDatabase db("/nonexistent-folder/x.db"); }), "unable to open database file");
  TDatabase db(":memory:");
  db.close();
  EXPECT_EQ(errorOf([&] { db.execute("SELECT 1"); }), "Cannot operate on a closed database.");
}
