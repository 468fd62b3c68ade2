#include "MDatabase.h"

#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <csignal>
#include <cerrno>
#include <filesystem>
#include <iostream>

#include "base/MTextForm.h"

namespace quorvel {

namespace {

[[noreturn]] void fail(sqlite3* db) { throw TSqliteError(db ? sqlite3_errmsg(db) : "unable to open database file"); }

void bindValue(sqlite3* db, sqlite3_stmt* stmt, int index, const TDbValue& v) {
  int rc = SQLITE_OK;
  if (std::holds_alternative<std::monostate>(v)) {
    rc = sqlite3_bind_null(stmt, index);
  } else if (const auto* i = std::get_if<int64_t>(&v)) {
    rc = sqlite3_bind_int64(stmt, index, *i);
  } else if (const auto* d = std::get_if<double>(&v)) {
    rc = sqlite3_bind_double(stmt, index, *d);
  } else if (const auto* s = std::get_if<std::string>(&v)) {
    rc = sqlite3_bind_text(stmt, index, s->data(), static_cast<int>(s->size()), SQLITE_TRANSIENT);
  } else if (const auto* b = std::get_if<TDbBlob>(&v)) {
    rc = sqlite3_bind_blob(stmt, index, b->bytes.data(), static_cast<int>(b->bytes.size()), SQLITE_TRANSIENT);
  }
  if (rc != SQLITE_OK) fail(db);
}

std::string upperFirstWord(const std::string& query) {
  size_t b = query.find_first_not_of(" \t\r\n");
  if (b == std::string::npos) return "";
  size_t e = b;
  while (e < query.size() && std::isalpha(static_cast<unsigned char>(query[e]))) ++e;
  std::string word = query.substr(b, e - b);
  for (char& c : word) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return word;
}

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

std::string format3(const char* fmt, double v) {
  char buf[64];
  std::snprintf(buf, sizeof buf, fmt, v);
  return buf;
}

}  // namespace

std::string dbValueText(const TDbValue& v) {
  if (const auto* i = std::get_if<int64_t>(&v)) return std::to_string(*i);
  if (const auto* d = std::get_if<double>(&v)) return formatScriptFloat(*d);
  if (const auto* s = std::get_if<std::string>(&v)) return *s;
  if (const auto* b = std::get_if<TDbBlob>(&v)) return b->bytes;
  return "";
}

const TDbValue& TDbRow::operator[](const std::string& name) const {
  for (size_t i = 0; i < m_Names->size(); ++i)
    if ((*m_Names)[i] == name) return m_Values[i];
  throw TFlowError("No item with that key");
}

// ---------------------------------------------------------------------------
// TConnection

TConnection::~TConnection() {
  for (auto& [query, stmts] : cache)
    for (sqlite3_stmt* stmt : stmts) sqlite3_finalize(stmt);
  sqlite3_close_v2(db);
}

sqlite3_stmt* TConnection::take(const std::string& query) {
  auto it = cache.find(query);
  if (it == cache.end() || it->second.empty()) return nullptr;
  sqlite3_stmt* stmt = it->second.back();
  it->second.pop_back();
  --cached;
  return stmt;
}

void TConnection::giveBack(const std::string& query, sqlite3_stmt* stmt) {
  // A small cache, as the usual binding keeps: statements run again and again
  // (the loader's per-node query, the flow file inserts) skip preparing.
  if (cached >= 128) {
    sqlite3_finalize(stmt);
    return;
  }
  sqlite3_reset(stmt);
  sqlite3_clear_bindings(stmt);
  cache[query].push_back(stmt);
  ++cached;
}

// ---------------------------------------------------------------------------
// TCursor

TCursor::TCursor(std::shared_ptr<TConnection> connection, std::string query, sqlite3_stmt* stmt)
    : m_Connection(std::move(connection)), m_Query(std::move(query)), m_Stmt(stmt) {
  auto names = std::make_shared<std::vector<std::string>>();
  const int n = sqlite3_column_count(m_Stmt);
  for (int i = 0; i < n; ++i) names->push_back(sqlite3_column_name(m_Stmt, i));
  m_Names = std::move(names);
}

TCursor::~TCursor() { m_Connection->giveBack(m_Query, m_Stmt); }

void TCursor::start() {
  const int rc = sqlite3_step(m_Stmt);
  if (rc == SQLITE_ROW) {
    m_Pending = true;
  } else if (rc == SQLITE_DONE) {
    m_Done = true;
  } else {
    m_Done = true;
    fail(m_Connection->db);
  }
}

bool TCursor::step() {
  if (m_Pending) {
    m_Pending = false;
    return true;
  }
  if (m_Done) return false;
  const int rc = sqlite3_step(m_Stmt);
  if (rc == SQLITE_ROW) return true;
  m_Done = true;
  if (rc != SQLITE_DONE) fail(m_Connection->db);
  return false;
}

int TCursor::columnCount() const { return static_cast<int>(m_Names->size()); }

bool TCursor::columnIsNull(int i) const { return sqlite3_column_type(m_Stmt, i) == SQLITE_NULL; }

int64_t TCursor::columnInt(int i) const { return sqlite3_column_int64(m_Stmt, i); }

double TCursor::columnDouble(int i) const { return sqlite3_column_double(m_Stmt, i); }

int TCursor::columnType(int i) const { return sqlite3_column_type(m_Stmt, i); }

std::string_view TCursor::columnBytes(int i) const {
  const void* p = sqlite3_column_type(m_Stmt, i) == SQLITE_BLOB ? sqlite3_column_blob(m_Stmt, i)
                                                                 : static_cast<const void*>(sqlite3_column_text(m_Stmt, i));
  const int n = sqlite3_column_bytes(m_Stmt, i);
  return p ? std::string_view(static_cast<const char*>(p), static_cast<size_t>(n)) : std::string_view();
}

TDbValue TCursor::column(int i) const {
  switch (sqlite3_column_type(m_Stmt, i)) {
    case SQLITE_INTEGER:
      return sqlite3_column_int64(m_Stmt, i);
    case SQLITE_FLOAT:
      return sqlite3_column_double(m_Stmt, i);
    case SQLITE_TEXT: {
      const auto* p = reinterpret_cast<const char*>(sqlite3_column_text(m_Stmt, i));
      return std::string(p, static_cast<size_t>(sqlite3_column_bytes(m_Stmt, i)));
    }
    case SQLITE_BLOB: {
      const auto* p = static_cast<const char*>(sqlite3_column_blob(m_Stmt, i));
      return TDbBlob{std::string(p ? p : "", static_cast<size_t>(sqlite3_column_bytes(m_Stmt, i)))};
    }
    default:
      return std::monostate{};
  }
}

std::optional<TDbRow> TCursor::fetchone() {
  if (!step()) return std::nullopt;
  std::vector<TDbValue> values;
  values.reserve(m_Names->size());
  for (int i = 0; i < columnCount(); ++i) values.push_back(column(i));
  return TDbRow(m_Names, std::move(values));
}

std::vector<TDbRow> TCursor::fetchall() {
  std::vector<TDbRow> rows;
  while (auto row = fetchone()) rows.push_back(std::move(*row));
  return rows;
}

// ---------------------------------------------------------------------------
// TDatabase

TDatabase::TDatabase(const std::string& filename) : m_Filename(filename) {
  // One connection, used from one thread: no locking inside SQLite.
  int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
  if (filename != ":memory:" && !filename.empty()) {
    std::error_code ec;
    // A pipe, a device or a folder would block or read without end: only
    // regular files are databases.
    const auto st = std::filesystem::status(filename, ec);
    if (!ec && std::filesystem::exists(st) && !std::filesystem::is_regular_file(st))
      throw TSqliteError("unable to open database file: '" + filename + "' is not a regular file");
    if (std::filesystem::exists(filename, ec) && ::access(filename.c_str(), W_OK) != 0) {
      flags = SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX;
      m_ReadOnly = true;
    }
  }
  sqlite3* raw = nullptr;
  const int rc = sqlite3_open_v2(filename.c_str(), &raw, flags, nullptr);
  if (rc != SQLITE_OK) {
    const std::string text = raw ? sqlite3_errmsg(raw) : "unable to open database file";
    sqlite3_close_v2(raw);
    throw TSqliteError(text);
  }
  m_Db = std::make_shared<TConnection>(raw);
  if (sqlite3_db_readonly(raw, "main") == 1) m_ReadOnly = true;
  for (const char* pragma : {"PRAGMA journal_mode = OFF", "PRAGMA synchronous = 0", "PRAGMA temp_store = 2"})
    execute2(pragma);
}

TDatabase::~TDatabase() = default;

TCursorPtr TDatabase::prepare(const std::string& query, const TDbParams& param) {
  if (!m_Db) throw TSqliteError("Cannot operate on a closed database.");
  sqlite3* db = m_Db->db;
  sqlite3_stmt* stmt = m_Db->take(query);
  if (!stmt) {
    const char* tail = nullptr;
    if (sqlite3_prepare_v2(db, query.c_str(), static_cast<int>(query.size()), &stmt, &tail) != SQLITE_OK) fail(db);
    if (!stmt) {
      // Only white space or a comment: nothing to run.
      sqlite3_prepare_v2(db, "SELECT 1 WHERE 0", -1, &stmt, nullptr);
    }
  }
  auto cursor = std::make_shared<TCursor>(m_Db, query, stmt);
  if (static_cast<int>(param.size()) != sqlite3_bind_parameter_count(stmt)) {
    throw TSqliteError("Incorrect number of bindings supplied. The current statement uses " +
                       std::to_string(sqlite3_bind_parameter_count(stmt)) + ", and there are " +
                       std::to_string(param.size()) + " supplied.");
  }
  for (size_t i = 0; i < param.size(); ++i) bindValue(db, stmt, static_cast<int>(i + 1), param[i]);
  return cursor;
}

void TDatabase::beginIfWriting(const std::string& query) {
  // As the usual binding does: a statement that changes rows opens a
  // transaction, which commit() ends.
  static const char* kWriting[] = {"INSERT", "UPDATE", "DELETE", "REPLACE"};
  const std::string word = upperFirstWord(query);
  if (std::find(std::begin(kWriting), std::end(kWriting), word) == std::end(kWriting)) return;
  if (sqlite3_get_autocommit(m_Db->db)) {
    if (sqlite3_exec(m_Db->db, "BEGIN", nullptr, nullptr, nullptr) != SQLITE_OK) fail(m_Db->db);
  }
}

TCursorPtr TDatabase::execute2(const std::string& query, const TDbParams& param) {
  if (m_Db) beginIfWriting(query);
  TCursorPtr cursor = prepare(query, param);
  cursor->start();
  return cursor;
}

TCursorPtr TDatabase::measured(const std::string& query, bool plan, bool allowfail,
                               const std::function<TCursorPtr()>& run) {
  const auto start = std::chrono::steady_clock::now();
  if (plan || showplan) showPlan(query);
  TCursorPtr cursor;
  try {
    cursor = run();
  } catch (...) {
    if (allowfail) return nullptr;
    std::cout << "\n***************\nException in query:" << query << std::endl;
    throw;
  }
  const double elapsed = secondsSince(start);
  if (plan || showplan || elapsed > 0.5) std::cout << format3("Query Took %.3f s ", elapsed) << std::endl;
  if (keepstats) {
    double& worst = querytimes[query];
    worst = std::max(worst, elapsed);
    ++queryfrequency[query];
  }
  if (elapsed > 0.5) std::cout << query << "\n*** WARNING: query took a lot of time: " << std::endl;
  return cursor;
}

TCursorPtr TDatabase::execute(const std::string& query, const TDbParams& param, bool plan, bool allowfail) {
  return measured(query, plan, allowfail, [&] { return execute2(query, param); });
}

TCursorPtr TDatabase::executeMany(const std::string& query, const std::vector<TDbParams>& params, bool plan,
                                  bool allowfail) {
  return measured(query, plan, allowfail, [&]() -> TCursorPtr {
    if (params.empty()) return execute2(query);
    TCursorPtr last;
    for (const auto& row : params) {
      last = execute2(query, row);
      while (last->step()) {
      }
    }
    return last;
  });
}

void TDatabase::executescript(const std::string& script) {
  if (!m_Db) throw TSqliteError("Cannot operate on a closed database.");
  commit();
  char* error = nullptr;
  if (sqlite3_exec(m_Db->db, script.c_str(), nullptr, nullptr, &error) != SQLITE_OK) {
    const std::string text = error ? error : "executescript failed";
    sqlite3_free(error);
    throw TSqliteError(text);
  }
}

void TDatabase::commit() {
  if (!m_Db) return;
  if (!sqlite3_get_autocommit(m_Db->db)) {
    if (sqlite3_exec(m_Db->db, "COMMIT", nullptr, nullptr, nullptr) != SQLITE_OK) fail(m_Db->db);
  }
}

void TDatabase::close() { m_Db.reset(); }

std::string TDatabase::showPlan(const std::string& query, const TDbParams& param) {
  std::string out = "Query: " + query + "\n";
  TCursorPtr plan = prepare("EXPLAIN QUERY PLAN " + query, param);
  plan->start();
  while (auto row = plan->fetchone()) {
    std::string line;
    for (size_t i = 0; i < row->size(); ++i) line += (i ? " " : "") + dbValueText((*row)[i]);
    out += line + "\n";
    // The plan's detail text, in whatever column this SQLite puts it.
    const std::string detail = dbValueText((*row)[row->size() - 1]);
    const bool indexed = detail.find("WITH INDEX") != std::string::npos ||
                         detail.find("USING PRIMARY") != std::string::npos ||
                         detail.find("USING INDEX") != std::string::npos ||
                         detail.find("USING COVERING INDEX") != std::string::npos ||
                         detail.find("USING INTEGER PRIMARY KEY") != std::string::npos;
    if (!indexed) out += "--- NO INDEX ---\n";
  }
  std::cout << out << std::flush;
  return out;
}

std::string TDatabase::showTables() {
  std::string out;
  auto list = [this, &out](const char* title, const char* query) {
    out += title;
    TCursorPtr c = execute2(query);
    while (auto row = c->fetchone()) out += dbValueText((*row)[1]) + "\n";
  };
  list("--- Permanent tables:\n", "SELECT * FROM sqlite_master WHERE type='table'");
  list("--- Temporary tables:\n", "SELECT * FROM sqlite_temp_master WHERE type='table'");
  std::cout << out << std::flush;
  return out;
}

std::string TDatabase::showStats() const {
  std::vector<std::pair<std::string, double>> byTime(querytimes.begin(), querytimes.end());
  std::stable_sort(byTime.begin(), byTime.end(), [](const auto& a, const auto& b) { return a.second > b.second; });
  std::string out;
  for (const auto& [query, seconds] : byTime) {
    char buf[160];
    const auto freq = queryfrequency.find(query);
    std::snprintf(buf, sizeof buf, "%s %.2f %i x\n", query.substr(0, 60).c_str(), seconds,
                  freq == queryfrequency.end() ? 0 : static_cast<int>(freq->second));
    out += buf;
  }
  std::cout << out << std::flush;
  return out;
}

std::string TDatabase::pp(TCursor& cursor, const std::vector<TDbRow>* data, int maxrow) {
  if (!cursor.hasResultSet()) return "#### NO RESULTS ###";
  std::vector<TDbRow> fetched;
  if (!data) {
    fetched = cursor.fetchall();
    data = &fetched;
  }
  const auto& names = cursor.description();
  std::vector<size_t> widths;
  for (size_t c = 0; c < names.size(); ++c) {
    size_t w = std::max<size_t>(6, names[c].size());
    for (const auto& row : *data) {
      const std::string text = dbValueText(row[c]);
      if (!text.empty()) w = std::max(w, text.size());
    }
    widths.push_back(w);
  }
  auto line = [&widths](const std::function<std::string(size_t)>& cell) {
    std::string out;
    for (size_t c = 0; c < widths.size(); ++c) {
      std::string text = cell(c);
      text.resize(std::max(text.size(), widths[c]), ' ');
      out += (c ? " " : "") + text;
    }
    return out;
  };
  std::string out = line([&names](size_t c) { return names[c]; });
  out += "\n" + line([&widths](size_t c) { return std::string(widths[c], '-'); });
  for (size_t r = 0; r < data->size() && static_cast<int>(r) <= maxrow; ++r)
    out += "\n" + line([&](size_t c) { return dbValueText((*data)[r][c]); });
  out += "\nCount: " + std::to_string(data->size());
  return out;
}

std::string TDatabase::prn(const std::string& query, const TDbParams& param) {
  TCursorPtr c = execute(query, param);
  return "\n" + pp(*c);
}

namespace {

// Temporary files of earlier writes to `target` whose process is gone (it
// was killed before it could rename or remove them).
void removeStaleTemporaries(const std::filesystem::path& target) {
  namespace fs = std::filesystem;
  const std::string prefix = target.filename().string() + ".writing-";
  const fs::path folder = target.has_parent_path() ? target.parent_path() : fs::path(".");
  std::error_code ec;
  for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
    const std::string name = it->path().filename().string();
    if (name.size() <= prefix.size() || name.compare(0, prefix.size(), prefix) != 0) continue;
    const std::string digits = name.substr(prefix.size());
    if (digits.find_first_not_of("0123456789") != std::string::npos || digits.size() > 9) continue;
    const pid_t pid = static_cast<pid_t>(std::stol(digits));
    if (pid == ::getpid()) continue;
    // A process that no longer exists, or one we may not signal but which
    // exists (EPERM), tells the two apart.
    if (::kill(pid, 0) == 0 || errno == EPERM) continue;
    std::error_code rec;
    fs::remove(it->path(), rec);
  }
}

}  // namespace

TRepeatedStatement::TRepeatedStatement(TDatabase& db, const std::string& query) : m_Db(db), m_Query(query) {
  if (!db.m_Db) throw TSqliteError("Cannot operate on a closed database.");
  if (sqlite3_prepare_v2(db.m_Db->db, query.c_str(), static_cast<int>(query.size()), &m_Stmt, nullptr) != SQLITE_OK)
    fail(db.m_Db->db);
}

TRepeatedStatement::~TRepeatedStatement() { sqlite3_finalize(m_Stmt); }

TRepeatedStatement& TRepeatedStatement::bind(int i, int64_t value) {
  sqlite3_bind_int64(m_Stmt, i, value);
  return *this;
}

TRepeatedStatement& TRepeatedStatement::bind(int i, std::string_view text) {
  sqlite3_bind_text(m_Stmt, i, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
  return *this;
}

TRepeatedStatement& TRepeatedStatement::bindNull(int i) {
  sqlite3_bind_null(m_Stmt, i);
  return *this;
}

void TRepeatedStatement::run() {
  if (!m_Db.m_Db) throw TSqliteError("Cannot operate on a closed database.");
  if (sqlite3_get_autocommit(m_Db.m_Db->db)) m_Db.beginIfWriting(m_Query);
  const int rc = sqlite3_step(m_Stmt);
  sqlite3_reset(m_Stmt);
  sqlite3_clear_bindings(m_Stmt);
  if (rc != SQLITE_DONE && rc != SQLITE_ROW) fail(m_Db.m_Db->db);
}

void writeDatabaseReplacing(const std::string& target, const std::function<void(TDatabase&)>& fill) {
  namespace fs = std::filesystem;
  fs::path temp(target);
  temp += ".writing-" + std::to_string(::getpid());
  std::error_code ec;
  removeStaleTemporaries(fs::path(target));
  fs::remove(temp, ec);
  try {
    TDatabase db(temp.string());
    fill(db);
    db.commit();
    db.close();
    fs::rename(temp, target);
  } catch (...) {
    fs::remove(temp, ec);
    throw;
  }
}

}  // namespace quorvel
