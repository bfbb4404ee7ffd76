#include "kestro_sqlite3.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "core/owned.hpp"
#include "support/captured_stderr.hpp"
#include "support/database.hpp"
#include "support/log.hpp"

namespace kestro::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* module = "kestro_sqlite3";
constexpr size_t longest_sql = 1099;

using Statement = Owned<sqlite3_stmt, sqlite3_finalize>;

Statement prepare(sqlite3* db, const char* sql) {
  sqlite3_stmt* prepared = nullptr;
  EXPECT_EQ(kestro_sqlite3_prepare_sql(db, &prepared, "%s", sql), 0) << sql;
  return Statement(prepared);
}

// "SELECT 'x...x'" of the given length.
std::string select_of_length(size_t length) {
  return "SELECT '" + std::string(length - 9, 'x') + "'";
}

// Statements that are not finalised keep a connection from closing.
void expect_no_statement_left(sqlite3* db) {
  EXPECT_EQ(sqlite3_next_stmt(db, nullptr), nullptr);
}

TEST(SqlitePrepare, FormatsItsValues) {
  const Database db;
  sqlite3_stmt* prepared = nullptr;
  EXPECT_EQ(kestro_sqlite3_prepare_sql(db, &prepared, "SELECT %d + %d, '%s'", 40, 2, "text"), 0);
  const Statement statement(prepared);
  ASSERT_EQ(sqlite3_step(prepared), SQLITE_ROW);
  EXPECT_EQ(sqlite3_column_int(prepared, 0), 42);
  EXPECT_STREQ(reinterpret_cast<const char*>(sqlite3_column_text(prepared, 1)), "text");
}

TEST(SqlitePrepare, FailureIsSqlitesCodeAndNoStatement) {
  const Database db;
  auto* prepared = reinterpret_cast<sqlite3_stmt*>(1);
  EXPECT_EQ(kestro_sqlite3_prepare_sql(db, &prepared, "SELEKT"), SQLITE_ERROR);
  EXPECT_EQ(prepared, nullptr);
}

TEST(SqlitePrepare, LongestSqlIsPreparedWholeAndALongerOneCut) {
  const Database db;
  const Statement whole = prepare(db, select_of_length(longest_sql).c_str());
  EXPECT_EQ(select_of_length(longest_sql), sqlite3_sql(whole.get()));

  // The closing quote is cut off.
  sqlite3_stmt* prepared = nullptr;
  const std::string too_long = select_of_length(longest_sql + 1);
  EXPECT_EQ(kestro_sqlite3_prepare_sql(db, &prepared, "%s", too_long.c_str()), SQLITE_ERROR);
  EXPECT_THAT(sqlite3_errmsg(db), HasSubstr("unrecognized token"));

  // Only blanks are.
  const std::string padded = "SELECT 7" + std::string(2000, ' ');
  EXPECT_EQ(std::string(sqlite3_sql(prepare(db, padded.c_str()).get())).size(), longest_sql);
}

TEST(SqlitePrepare, FormatThatCannotBePrintedIsRefused) {
  const Database db;
  db.run("CREATE TABLE t (n)");
  db.run("INSERT INTO t VALUES (1)");
  const wchar_t no_character[] = {static_cast<wchar_t>(0x7fffffff), 0};
  sqlite3_stmt* prepared = nullptr;
  EXPECT_EQ(kestro_sqlite3_prepare_sql(db, &prepared, "DELETE FROM t -- %ls", no_character), -4);
  EXPECT_EQ(prepared, nullptr);
  EXPECT_EQ(kestro_sqlite3_exec_sql(db, "DELETE FROM t -- %ls", no_character), -4);
  EXPECT_EQ(db.number("SELECT count(*) FROM t"), 1);
}

TEST(SqliteNull, ArgumentsAreParameterErrors) {
  const Database db;
  sqlite3_stmt* prepared = nullptr;
  int64_t number = 7;
  char text[4] = "abc";
  const char* const no_sql = nullptr;
  const struct {
    const char* name;
    int index;
    std::function<int32_t()> call;
  } rows[] = {
      {"prepare db", 0, [&] { return kestro_sqlite3_prepare_sql(nullptr, &prepared, "SELECT 1"); }},
      {"prepare stmt", 1, [&] { return kestro_sqlite3_prepare_sql(db, nullptr, "SELECT 1"); }},
      {"prepare sql", 2, [&] { return kestro_sqlite3_prepare_sql(db, &prepared, no_sql); }},
      {"id db", 0, [&] { return kestro_sqlite3_get_single_id_result(nullptr, &number, "SELECT 1"); }},
      {"id result", 1, [&] { return kestro_sqlite3_get_single_id_result(db, nullptr, "SELECT 1"); }},
      {"id sql", 2, [&] { return kestro_sqlite3_get_single_id_result(db, &number, no_sql); }},
      {"string db", 0, [&] { return kestro_sqlite3_get_single_string_result(nullptr, text, 4, "SELECT 1"); }},
      {"string result", 1, [&] { return kestro_sqlite3_get_single_string_result(db, nullptr, 4, "SELECT 1"); }},
      {"string sql", 2, [&] { return kestro_sqlite3_get_single_string_result(db, text, 4, no_sql); }},
      {"exec db", 0, [&] { return kestro_sqlite3_exec_sql(nullptr, "SELECT 1"); }},
      {"exec sql", 1, [&] { return kestro_sqlite3_exec_sql(db, no_sql); }},
      {"step val", 0, [&] { return kestro_sqlite3_step_get_int(nullptr, nullptr); }},
  };
  for (const auto& row : rows) {
    const auto log = stderr_of([&] { EXPECT_EQ(row.call(), -4) << row.name; });
    const std::string line = "Found a null input parameter at varg index <" + std::to_string(row.index) + ">\n";
    EXPECT_THAT(log, HasLog(Warning, "kestro_utils", line)) << row.name;
  }
  EXPECT_EQ(number, 7);
  EXPECT_STREQ(text, "abc");
}

TEST(SqliteSingleId, TakesColumnZeroOfTheFirstRow) {
  const Database db;
  const struct {
    const char* sql;
    int64_t expected;
  } rows[] = {
      {"SELECT 1, 2 UNION SELECT 3, 4", 1},
      {"SELECT 9223372036854775807", INT64_MAX},
      {"SELECT -5", -5},
      {"SELECT NULL", 0},
      {"SELECT '12'", 12},
      {"SELECT 'text'", 0},
  };
  for (const auto& row : rows) {
    int64_t result = 77;
    EXPECT_EQ(kestro_sqlite3_get_single_id_result(db, &result, "%s", row.sql), 0) << row.sql;
    EXPECT_EQ(result, row.expected) << row.sql;
  }
  expect_no_statement_left(db);
}

TEST(SqliteSingleId, NoRowIs101AndLeavesTheResult) {
  const Database db;
  int64_t result = 77;
  EXPECT_EQ(kestro_sqlite3_get_single_id_result(db, &result, "SELECT %d WHERE 0", 1), 101);
  EXPECT_EQ(result, 77);
  expect_no_statement_left(db);
}

TEST(SqliteSingleId, FailuresAreSqlitesCodes) {
  const Database db;
  int64_t result = 77;
  EXPECT_EQ(kestro_sqlite3_get_single_id_result(db, &result, "SELECT * FROM nowhere"), SQLITE_ERROR);
  EXPECT_EQ(kestro_sqlite3_get_single_id_result(db, &result, "SELECT abs(-9223372036854775808)"), SQLITE_ERROR);
  EXPECT_EQ(kestro_sqlite3_get_single_id_result(db, &result, "%s", ""), SQLITE_MISUSE);
  EXPECT_EQ(result, 77);
  expect_no_statement_left(db);
}

TEST(SqliteSingleString, CutsAndClears) {
  const Database db;
  const struct {
    const char* name;
    const char* sql;
    int32_t length;
    std::string expected;
  } rows[] = {
      {"fits", "SELECT 'abc', 'other'", 6, std::string("abc\0\0\0xx", 8)},
      {"exact", "SELECT 'abcde'", 6, std::string("abcde\0xx", 8)},
      {"one over", "SELECT 'abcdef'", 6, std::string("abcde\0xx", 8)},
      {"size one", "SELECT 'abc'", 1, std::string("\0xxxxxxx", 8)},
      {"null", "SELECT NULL", 6, std::string("\0\0\0\0\0\0xx", 8)},
      {"empty", "SELECT ''", 6, std::string("\0\0\0\0\0\0xx", 8)},
      {"empty blob", "SELECT x''", 6, std::string("\0\0\0\0\0\0xx", 8)},
      {"number", "SELECT 12.5", 6, std::string("12.5\0\0xx", 8)},
      {"zero byte within", "SELECT CAST(x'610062' AS TEXT)", 6, std::string("a\0\0\0\0\0xx", 8)},
  };
  for (const auto& row : rows) {
    std::string result(8, 'x');
    EXPECT_EQ(kestro_sqlite3_get_single_string_result(db, result.data(), row.length, "%s", row.sql), 0) << row.name;
    EXPECT_EQ(result, row.expected) << row.name;
  }
  expect_no_statement_left(db);
}

TEST(SqliteSingleString, FailuresAreSqlitesCodesAndLeaveTheResult) {
  const Database db;
  std::string result = "before";
  EXPECT_EQ(kestro_sqlite3_get_single_string_result(db, result.data(), 6, "SELECT 1 WHERE 0"), SQLITE_DONE);
  EXPECT_EQ(kestro_sqlite3_get_single_string_result(db, result.data(), 6, "SELEKT"), SQLITE_ERROR);
  for (const int32_t length : {0, -1, INT32_MIN}) {
    EXPECT_EQ(kestro_sqlite3_get_single_string_result(db, result.data(), length, "SELECT 'text'"), -4) << length;
  }
  EXPECT_EQ(result, "before");
  expect_no_statement_left(db);
}

TEST(SqliteSingleString, MemoryExhaustionIsNeverAnEmptyText) {
  const Database db;
  db.run("PRAGMA encoding = 'UTF-16'");
  db.run("CREATE TABLE t (x)");
  db.run("INSERT INTO t VALUES (printf('%.1000000c', 'x'))");
  std::vector<char> result(1'000'001);
  int exhausted = 0;
  int32_t code = SQLITE_NOMEM;
  // A little more memory each time, until it is enough.
  for (sqlite3_int64 limit = sqlite3_memory_used() + 4096; code == SQLITE_NOMEM; limit += 65536) {
    sqlite3_hard_heap_limit64(limit);
    code = kestro_sqlite3_get_single_string_result(db, result.data(), 1'000'001, "SELECT x FROM t");
    sqlite3_hard_heap_limit64(0);
    if (code == SQLITE_NOMEM) ++exhausted;
  }
  EXPECT_EQ(code, 0);
  EXPECT_GT(exhausted, 10);
  EXPECT_EQ(std::string(result.data()), std::string(1'000'000, 'x'));
}

TEST(SqliteStepGetInt, ReadsOneRowAfterTheOther) {
  const Database db;
  const Statement statement = prepare(db, "SELECT 5 UNION SELECT 6 ORDER BY 1");
  int64_t value = 77;
  EXPECT_EQ(kestro_sqlite3_step_get_int(statement.get(), &value), 0);
  EXPECT_EQ(value, 5);
  EXPECT_EQ(kestro_sqlite3_step_get_int(statement.get(), &value), 0);
  EXPECT_EQ(value, 6);
  EXPECT_EQ(kestro_sqlite3_step_get_int(statement.get(), &value), -7);
  EXPECT_EQ(kestro_sqlite3_step_get_int(nullptr, &value), -7);
  EXPECT_EQ(value, 6);
}

TEST(SqliteStepWrite, OneStepMustDoIt) {
  const Database db;
  db.run("CREATE TABLE t (n UNIQUE)");
  const Statement insert = prepare(db, "INSERT INTO t VALUES (1)");
  EXPECT_THAT(stderr_of([&] { EXPECT_EQ(kestro_sqlite3_step_write(insert.get()), 0); }), IsEmpty());
  EXPECT_EQ(db.number("SELECT count(*) FROM t"), 1);
}

// The macro names the function that it stands in.
int32_t set_port_alias(sqlite3_stmt* statement) {
  return kestro_sqlite3_step_write(statement);
}

TEST(SqliteStepWrite, AnythingElseIsLoggedWithTheCallersName) {
  const Database db;
  db.run("CREATE TABLE t (n UNIQUE)");
  db.run("INSERT INTO t VALUES (1)");
  const Statement twice = prepare(db, "INSERT INTO t VALUES (1)");
  const Statement row = prepare(db, "SELECT 1");
  const struct {
    sqlite3_stmt* statement;
    const char* line;
  } rows[] = {
      {twice.get(), "sql error code 19 in set_port_alias\n"},
      {row.get(), "sql error code 100 in set_port_alias\n"},
      {nullptr, "sql error code 21 in set_port_alias\n"},
  };
  for (const auto& each : rows) {
    const auto log = stderr_of([&] { EXPECT_EQ(set_port_alias(each.statement), -7); });
    EXPECT_EQ(count_log_lines(log, Error, module, each.line), 1) << log;
  }
  EXPECT_NE(sqlite3_next_stmt(db, nullptr), nullptr) << "statements stay prepared";
}

TEST(SqliteExec, PassesCallbackArgumentAndErrorText) {
  const Database db;
  std::vector<std::string> seen;
  const auto collect = [](void* rows, int, char** values, char**) {
    static_cast<std::vector<std::string>*>(rows)->emplace_back(values[0]);
    return 0;
  };
  char* error = nullptr;
  EXPECT_EQ(kestro_sqlite3_exec(db, "SELECT 1 UNION SELECT 2", collect, &seen, &error), 0);
  EXPECT_THAT(seen, testing::ElementsAre("1", "2"));
  EXPECT_EQ(error, nullptr);

  EXPECT_EQ(kestro_sqlite3_exec(db, "SELEKT", nullptr, nullptr, &error), SQLITE_ERROR);
  EXPECT_STREQ(error, "near \"SELEKT\": syntax error");
  sqlite3_free(error);
  EXPECT_EQ(kestro_sqlite3_exec(nullptr, "SELECT 1", nullptr, nullptr, nullptr), SQLITE_MISUSE);
}

TEST(SqliteExecSql, FormatsAndRuns) {
  const Database db;
  EXPECT_EQ(kestro_sqlite3_exec_sql(db, "CREATE TABLE t (n, s)"), 0);
  EXPECT_EQ(kestro_sqlite3_exec_sql(db, "INSERT INTO t VALUES (%d, '%s')", 7, "seven"), 0);
  EXPECT_EQ(db.value("SELECT s FROM t WHERE n = 7"), "seven");
  EXPECT_EQ(kestro_sqlite3_exec_sql(db, "INSERT INTO nowhere VALUES (%d)", 7), SQLITE_ERROR);
}

TEST(SqliteExecSql, TruncatedSqlIsRun) {
  const Database db;
  db.run("CREATE TABLE t (n)");
  db.run("INSERT INTO t VALUES (1), (2)");
  // What would have kept row 2 stands behind the limit.
  const std::string sql = "DELETE FROM t" + std::string(longest_sql, ' ') + "WHERE n = 1";
  EXPECT_EQ(kestro_sqlite3_exec_sql(db, "%s", sql.c_str()), 0);
  EXPECT_EQ(db.number("SELECT count(*) FROM t"), 0);
}

TEST(SqliteCopyStr, CutsEndsAndTellsTheWholeLength) {
  const struct {
    const char* name;
    const char* source;
    size_t size;
    int32_t result;
    std::string expected;
  } rows[] = {
      {"cut", "abcdef", 4, 6, std::string("abc\0xx", 6)},
      {"exact", "abc", 4, 3, std::string("abc\0xx", 6)},
      {"short", "a", 4, 1, std::string("a\0x\0xx", 6)},
      {"empty", "", 4, 0, std::string("\0xx\0xx", 6)},
      {"null", nullptr, 4, 0, std::string("\0xx\0xx", 6)},
      {"size one", "abc", 1, 3, std::string("\0xxxxx", 6)},
      {"size zero", "abc", 0, 3, "xxxxxx"},
      {"null into size zero", nullptr, 0, 0, "xxxxxx"},
  };
  for (const auto& row : rows) {
    std::string dest(6, 'x');
    const auto* const source = reinterpret_cast<const unsigned char*>(row.source);
    EXPECT_EQ(kestro_sqlite3_copy_str(dest.data(), row.size, source), row.result) << row.name;
    EXPECT_EQ(dest, row.expected) << row.name;
  }
}

TEST(SqliteStmt, ThreadsShareAStatement) {
  const Database db;
  db.run("CREATE TABLE t (thread, n)");
  sqlite3_stmt* prepared = nullptr;
  ASSERT_EQ(kestro_sqlite3_prepare_sql(db, &prepared, "INSERT INTO t VALUES (?, ?)"), 0);
  kestro_stmt insert = {prepared, PTHREAD_MUTEX_INITIALIZER};
  std::vector<std::thread> threads;
  for (int number = 0; number < 8; ++number) {
    threads.emplace_back([&, number] {
      for (int n = 0; n < 100; ++n) {
        kestro_sqlite3_lock(&insert);
        sqlite3_bind_int(insert.stmt, 1, number);
        sqlite3_bind_int(insert.stmt, 2, n);
        EXPECT_EQ(kestro_sqlite3_step_write(insert.stmt), 0);
        sqlite3_reset(insert.stmt);
        kestro_sqlite3_unlock(&insert);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(db.number("SELECT count(*) FROM (SELECT DISTINCT thread, n FROM t)"), 800);
  kestro_sqlite3_finalize(&insert);
}

TEST(SqliteStmt, FinalizeLeavesNullAndTheLockFree) {
  const Database db;
  sqlite3_stmt* prepared = nullptr;
  ASSERT_EQ(kestro_sqlite3_prepare_sql(db, &prepared, "SELECT 1"), 0);
  kestro_stmt shared = {prepared, PTHREAD_MUTEX_INITIALIZER};
  for (int time = 0; time < 2; ++time) {
    kestro_sqlite3_finalize(&shared);
    EXPECT_EQ(shared.stmt, nullptr);
    EXPECT_EQ(pthread_mutex_trylock(&shared.stmt_lk), 0);
    kestro_sqlite3_unlock(&shared);
  }
  expect_no_statement_left(db);
}

TEST(SqliteStmt, FinalizeWaitsForTheLock) {
  const Database db;
  sqlite3_stmt* prepared = nullptr;
  ASSERT_EQ(kestro_sqlite3_prepare_sql(db, &prepared, "SELECT 1"), 0);
  kestro_stmt shared = {prepared, PTHREAD_MUTEX_INITIALIZER};
  kestro_sqlite3_lock(&shared);
  std::thread finalizer([&] { kestro_sqlite3_finalize(&shared); });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ(shared.stmt, prepared);
  kestro_sqlite3_unlock(&shared);
  finalizer.join();
  EXPECT_EQ(shared.stmt, nullptr);
}

}  // namespace
}  // namespace kestro::test
