// A thin wrapper over one SQLite connection: pragmas on opening, measured
// statements, statistics and diagnostic printing. Datasets, the in-memory
// database of an XML import and flow files all open through it.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "base/MErrors.h"

struct sqlite3;
struct sqlite3_stmt;

namespace quorvel {

// SQLite's own failure, with SQLite's text.
class TSqliteError : public TFlowError {
 public:
  using TFlowError::TFlowError;
};

// Declared with the wrapper; nothing raises it.
class TDatabaseException : public TFlowError {
 public:
  using TFlowError::TFlowError;
};

struct TDbBlob {
  std::string bytes;
  bool operator==(const TDbBlob&) const = default;
};

// One value as SQLite gives it: NULL, integer, real, text or blob.
using TDbValue = std::variant<std::monostate, int64_t, double, std::string, TDbBlob>;
using TDbParams = std::vector<TDbValue>;

inline bool isNull(const TDbValue& v) { return std::holds_alternative<std::monostate>(v); }
// The value as the interpreter's str() would show it; "" for NULL.
std::string dbValueText(const TDbValue& v);

// A row with access by index and by column name.
class TDbRow {
 public:
  TDbRow(std::shared_ptr<const std::vector<std::string>> names, std::vector<TDbValue> values)
      : m_Names(std::move(names)), m_Values(std::move(values)) {}
  size_t size() const { return m_Values.size(); }
  const TDbValue& operator[](size_t i) const { return m_Values.at(i); }
  // Raises for an unknown column name.
  const TDbValue& operator[](const std::string& name) const;
  const std::vector<std::string>& names() const { return *m_Names; }
  const std::vector<TDbValue>& values() const { return m_Values; }

 private:
  std::shared_ptr<const std::vector<std::string>> m_Names;
  std::vector<TDbValue> m_Values;
};

class TDatabase;

// A connection with a cache of prepared statements, shared by the database
// and its open cursors; the last one to go closes it.
struct TConnection {
  explicit TConnection(sqlite3* db) : db(db) {}
  ~TConnection();
  sqlite3_stmt* take(const std::string& query);
  void giveBack(const std::string& query, sqlite3_stmt* stmt);
  sqlite3* db;
  std::map<std::string, std::vector<sqlite3_stmt*>> cache;
  size_t cached = 0;
};

// The result of a statement: rows are stepped out of SQLite as they are
// read, so a large table streams.
class TCursor {
 public:
  TCursor(std::shared_ptr<TConnection> connection, std::string query, sqlite3_stmt* stmt);
  ~TCursor();
  TCursor(const TCursor&) = delete;
  TCursor& operator=(const TCursor&) = delete;

  // Column names, or empty for a statement without a result set.
  const std::vector<std::string>& description() const { return *m_Names; }
  bool hasResultSet() const { return !m_Names->empty(); }
  std::optional<TDbRow> fetchone();
  std::vector<TDbRow> fetchall();
  // Reads the current row without making a TDbRow: for hot loops.
  bool step();
  int columnCount() const;
  TDbValue column(int i) const;
  bool columnIsNull(int i) const;
  int64_t columnInt(int i) const;
  double columnDouble(int i) const;
  // SQLITE_INTEGER, SQLITE_FLOAT, SQLITE_TEXT, SQLITE_BLOB or SQLITE_NULL.
  int columnType(int i) const;
  // The bytes of a text or blob column, valid until the next step.
  std::string_view columnBytes(int i) const;

  // Runs the first step; a statement without a result set runs to its end.
  void start();

 private:
  std::shared_ptr<TConnection> m_Connection;
  std::string m_Query;
  sqlite3_stmt* m_Stmt;
  std::shared_ptr<const std::vector<std::string>> m_Names;
  // A row was stepped to and not yet handed out.
  bool m_Pending = false;
  bool m_Done = false;
};

using TCursorPtr = std::shared_ptr<TCursor>;

class TDatabase {
 public:
  // ":memory:" gives an in-memory database. A file that cannot be opened
  // for writing is opened read-only.
  explicit TDatabase(const std::string& filename);
  ~TDatabase();
  TDatabase(const TDatabase&) = delete;
  TDatabase& operator=(const TDatabase&) = delete;

  bool showplan = false;
  bool keepstats = true;
  std::map<std::string, double> querytimes;
  std::map<std::string, int64_t> queryfrequency;

  // The measured form. With many, params holds one parameter row per run.
  // Under allowfail a failure gives null; otherwise the statement is printed
  // and SQLite's exception raised.
  TCursorPtr execute(const std::string& query, const TDbParams& param = {}, bool showplan = false,
                     bool allowfail = false);
  TCursorPtr executeMany(const std::string& query, const std::vector<TDbParams>& params, bool showplan = false,
                         bool allowfail = false);
  // Unmeasured; no failure handling.
  TCursorPtr execute2(const std::string& query, const TDbParams& param = {});
  void executescript(const std::string& script);
  void commit();
  void close();
  bool isOpen() const { return m_Db != nullptr; }
  bool isReadOnly() const { return m_ReadOnly; }
  const std::string& filename() const { return m_Filename; }

  std::string showPlan(const std::string& query, const TDbParams& param = {});
  std::string showTables();
  std::string showStats() const;
  std::string prn(const std::string& query, const TDbParams& param = {});

  // A cursor as a text table.
  static std::string pp(TCursor& cursor, const std::vector<TDbRow>* data = nullptr, int maxrow = 30);

 private:
  friend class TRepeatedStatement;
  TCursorPtr prepare(const std::string& query, const TDbParams& param);
  void beginIfWriting(const std::string& query);
  TCursorPtr measured(const std::string& query, bool showplan, bool allowfail,
                      const std::function<TCursorPtr()>& run);

  std::shared_ptr<TConnection> m_Db;
  std::string m_Filename;
  bool m_ReadOnly = false;
};

using TDatabasePtr = std::shared_ptr<TDatabase>;

// One writing statement run many times with new values, for bulk writes:
// prepared once, no cursor, no result, no measuring. The first run opens a
// transaction as TDatabase's own writes do; commit() ends it.
class TRepeatedStatement {
 public:
  TRepeatedStatement(TDatabase& db, const std::string& query);
  ~TRepeatedStatement();
  TRepeatedStatement(const TRepeatedStatement&) = delete;
  TRepeatedStatement& operator=(const TRepeatedStatement&) = delete;
  // Parameters count from 1.
  TRepeatedStatement& bind(int i, int64_t value);
  TRepeatedStatement& bind(int i, std::string_view text);
  TRepeatedStatement& bindNull(int i);
  // Runs the statement with the values bound, then clears them.
  void run();
  TDatabase& database() { return m_Db; }

 private:
  TDatabase& m_Db;
  std::string m_Query;
  sqlite3_stmt* m_Stmt = nullptr;
};

// Writes a database file through `fill` under a temporary name in the
// target's folder, then commits, closes and renames it over `target`. On any
// failure the temporary file goes, `target` stays as it was, and the failure
// reaches the caller; a failed rename raises std::filesystem::filesystem_error.
void writeDatabaseReplacing(const std::string& target, const std::function<void(TDatabase&)>& fill);

}  // namespace quorvel
