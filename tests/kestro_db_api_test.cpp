#include "kestro_db_api.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <iostream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "core/owned.hpp"
#include "kestro_sqlite3.h"
#include "support/captured_stderr.hpp"
#include "support/cfgdb.hpp"
#include "support/child.hpp"
#include "support/database.hpp"
#include "support/faults.hpp"
#include "support/log.hpp"
#include "support/sleeps.hpp"
#include "support/temp_dir.hpp"

namespace kestro::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

using Connection = Owned<sqlite3, sqlite3_close>;
using Statement = Owned<sqlite3_stmt, sqlite3_finalize>;

constexpr const char* module = "kestro_db_api";

// Watches the connections that are opened while it lives, and what runs on them.
class Opened {
 public:
  Opened() {
    connections_.clear();
    statements_.clear();
    sqlite3_auto_extension(reinterpret_cast<void (*)()>(note_connection));
  }
  Opened(const Opened&) = delete;
  Opened& operator=(const Opened&) = delete;
  ~Opened() { sqlite3_cancel_auto_extension(reinterpret_cast<void (*)()>(note_connection)); }

  [[nodiscard]] static const std::vector<sqlite3*>& connections() { return connections_; }
  [[nodiscard]] static const std::vector<std::string>& statements() { return statements_; }

 private:
  static int note_connection(sqlite3* db, char**, const void*) {
    connections_.push_back(db);
    return sqlite3_trace_v2(db, SQLITE_TRACE_STMT, note_statement, nullptr);
  }
  static int note_statement(unsigned, void*, void*, void* sql) {
    statements_.emplace_back(static_cast<const char*>(sql));
    return 0;
  }

  static inline std::vector<sqlite3*> connections_;
  static inline std::vector<std::string> statements_;
};

size_t open_descriptors() {
  return static_cast<size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

int64_t pragma(sqlite3* db, const char* name) {
  int64_t value = -1;
  EXPECT_EQ(kestro_sqlite3_get_single_id_result(db, &value, "PRAGMA %s", name), 0);
  return value;
}

// A database file with one table of two rows.
class DbFile : public testing::Test {
 protected:
  DbFile() { make(path_); }

  static void make(const std::string& path) {
    const Database db(path);
    db.run("CREATE TABLE port (id INTEGER PRIMARY KEY, alias TEXT)");
    db.run("INSERT INTO port VALUES (11, 'lobby'), (12, 'roof')");
  }
  Connection open() const {
    sqlite3* opened = nullptr;
    EXPECT_EQ(kestro_db_open_file(&opened, path_.c_str()), 0);
    return Connection(opened);
  }

  TempDir directory_;
  std::string path_ = directory_.file("devices.db");
};

using DbOpenFile = DbFile;

TEST_F(DbOpenFile, OpensForThreadsToReadAndWrite) {
  sqlite3* opened = nullptr;
  EXPECT_THAT(stderr_of([&] { EXPECT_EQ(kestro_db_open_file(&opened, path_.c_str()), 0); }), IsEmpty());
  const Connection db(opened);
  ASSERT_NE(opened, nullptr);
  EXPECT_EQ(sqlite3_db_readonly(opened, "main"), 0);
  EXPECT_NE(sqlite3_db_mutex(opened), nullptr);
}

TEST_F(DbOpenFile, AppliesTheSettingsInOrder) {
  const Opened watch;
  const Connection db = open();
  EXPECT_THAT(Opened::statements(),
              ElementsAre("PRAGMA foreign_keys = on", "PRAGMA recursive_triggers = on;", "PRAGMA busy_timeout = 100;"));
  EXPECT_EQ(pragma(db.get(), "foreign_keys"), 1);
  EXPECT_EQ(pragma(db.get(), "recursive_triggers"), 1);
  EXPECT_EQ(pragma(db.get(), "busy_timeout"), 100);
}

TEST_F(DbOpenFile, FailureIsLoggedLeavesNullAndNothingOpen) {
  const size_t before = open_descriptors();
  for (const std::string& path :
       {directory_.file("missing.db"), directory_.file("no/such/directory.db"), directory_.path().string()}) {
    auto* db = reinterpret_cast<sqlite3*>(1);
    const auto log = stderr_of([&] { EXPECT_EQ(kestro_db_open_file(&db, path.c_str()), -7); });
    EXPECT_EQ(db, nullptr) << path;
    EXPECT_THAT(log, HasLog(Error, module, "Failed to open a database connection to file <" + path + ">\n"));
  }
  EXPECT_FALSE(std::filesystem::exists(directory_.file("missing.db")));
  EXPECT_EQ(open_descriptors(), before);
}

TEST_F(DbOpenFile, WhatIsNoDatabaseIsNoticedByTheFirstQuery) {
  const std::string whole = [&] {
    std::ifstream file(path_, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
  }();
  const struct {
    const char* name;
    std::string bytes;
    int code;
  } rows[] = {
      {"text", std::string(4096, 'x'), SQLITE_NOTADB},
      {"truncated", whole.substr(0, whole.size() / 2), SQLITE_CORRUPT},
      // Nothing, or less than a header, is an empty database: it has no such table.
      {"empty", "", SQLITE_ERROR},
      {"one byte", "x", SQLITE_ERROR},
  };
  for (const auto& row : rows) {
    const std::string path = directory_.write("damaged.db", row.bytes);
    sqlite3* opened = nullptr;
    EXPECT_EQ(kestro_db_open_file(&opened, path.c_str()), 0) << row.name;
    const Connection db(opened);
    int64_t count = 77;
    EXPECT_EQ(kestro_sqlite3_get_single_id_result(opened, &count, "SELECT count(*) FROM port"), row.code) << row.name;
    EXPECT_EQ(kestro_db_get_single_id_result(opened, path.c_str(), "ports", &count, "SELECT count(*) FROM port"), -1);
    EXPECT_EQ(count, 77) << row.name;
  }
}

TEST(DbNull, ArgumentsAreParameterErrors) {
  sqlite3* none = nullptr;
  sqlite3_stmt* statement = nullptr;
  int64_t number = 0;
  const char* const no_query = nullptr;
  const struct {
    const char* name;
    int index;
    std::function<int32_t()> call;
  } rows[] = {
      {"open_file db", 0, [&] { return kestro_db_open_file(nullptr, "/x"); }},
      {"open_file name", 1, [&] { return kestro_db_open_file(&none, nullptr); }},
      {"open", 0, [&] { return kestro_db_open(nullptr); }},
      {"ensure_open_file db", 0, [&] { return kestro_db_ensure_open_file(nullptr, "/x"); }},
      {"ensure_open_file name", 1, [&] { return kestro_db_ensure_open_file(&none, nullptr); }},
      {"ensure_open", 0, [&] { return kestro_db_ensure_open(nullptr); }},
      {"close", 0, [&] { return kestro_db_close(nullptr); }},
      {"prepare file", 0, [&] { return kestro_db_prepare_statement(none, nullptr, &statement, "SELECT 1"); }},
      {"prepare stmt", 1, [&] { return kestro_db_prepare_statement(none, "/x", nullptr, "SELECT 1"); }},
      {"prepare query", 2, [&] { return kestro_db_prepare_statement(none, "/x", &statement, nullptr); }},
      {"id file", 0, [&] { return kestro_db_get_single_id_result(none, nullptr, "r", &number, "SELECT 1"); }},
      {"id record", 1, [&] { return kestro_db_get_single_id_result(none, "/x", nullptr, &number, "SELECT 1"); }},
      {"id result", 2, [&] { return kestro_db_get_single_id_result(none, "/x", "r", nullptr, "SELECT 1"); }},
      {"id query", 3, [&] { return kestro_db_get_single_id_result(none, "/x", "r", &number, no_query); }},
  };
  for (const auto& row : rows) {
    const auto log = stderr_of([&] { EXPECT_EQ(row.call(), -4) << row.name; });
    const std::string line = "Found a null input parameter at varg index <" + std::to_string(row.index) + ">\n";
    EXPECT_THAT(log, HasLog(Warning, "kestro_utils", line)) << row.name;
  }
}

using DbEnsureOpenFile = DbFile;

TEST_F(DbEnsureOpenFile, OpensWhatIsNotOpen) {
  kestro_db_lock_cfgdb();  // concerns the configuration database only
  sqlite3* opened = nullptr;
  const auto log = stderr_of([&] { EXPECT_EQ(kestro_db_ensure_open_file(&opened, path_.c_str()), 0); });
  const Connection db(opened);
  ASSERT_NE(opened, nullptr);
  EXPECT_THAT(log, HasLog(Debug, module, "Database file <" + path_ + "> was not open, opening now...\n"));
  EXPECT_EQ(pragma(opened, "busy_timeout"), 100);
}

TEST_F(DbEnsureOpenFile, LeavesAnOpenConnectionAlone) {
  const Connection db = open();
  sqlite3* handle = db.get();
  const LogLevel verbose(Verbose);
  const auto log = stderr_of([&] { EXPECT_EQ(kestro_db_ensure_open_file(&handle, "/another/file"), 0); });
  EXPECT_EQ(handle, db.get());
  EXPECT_THAT(log,
              HasLog(Verbose, module, "Database file </another/file> was already open, no further action required.\n"));
}

TEST_F(DbEnsureOpenFile, FailureIsThatOfTheOpening) {
  const std::string missing = directory_.file("missing.db");
  sqlite3* db = nullptr;
  const auto log = stderr_of([&] { EXPECT_EQ(kestro_db_ensure_open_file(&db, missing.c_str()), -7); });
  EXPECT_EQ(db, nullptr);
  EXPECT_THAT(log, HasLog(Error, module, "Failed to open a database connection to file <" + missing + ">\n"));
  // The next attempt is not kept out.
  EXPECT_EQ(kestro_db_ensure_open_file(&db, path_.c_str()), 0);
  EXPECT_EQ(kestro_db_close(db), 0);
}

TEST_F(DbEnsureOpenFile, ThreadsOpenASharedHandleOnceAndReady) {
  for (int round = 0; round < 20; ++round) {
    sqlite3* shared = nullptr;
    const auto log = stderr_of([&] {
      std::vector<std::thread> threads;
      threads.reserve(8);
      for (int n = 0; n < 8; ++n) {
        threads.emplace_back([&] {
          ASSERT_EQ(kestro_db_ensure_open_file(&shared, path_.c_str()), 0);
          EXPECT_EQ(pragma(shared, "busy_timeout"), 100);
        });
      }
      for (auto& thread : threads) thread.join();
    });
    const Connection db(shared);
    EXPECT_EQ(count_log_lines(log, Debug, module, "Database file <" + path_ + "> was not open, opening now...\n"), 1);
  }
}

TEST_F(DbEnsureOpenFile, HoldsItsLockWhileItWaitsForTheExecutionOfStatements) {
  std::promise<void> executing;
  std::promise<void> finish;
  std::pair both{&executing, finish.get_future().share()};
  const auto block = [](void* arg, int, char**, char**) {
    auto& [started, may_finish] = *static_cast<decltype(both)*>(arg);
    started->set_value();
    may_finish.wait();
    return 0;
  };
  const Database unrelated;
  std::thread executor([&] { kestro_sqlite3_exec(unrelated, "SELECT 1", block, &both, nullptr); });
  executing.get_future().wait();

  sqlite3* opened = nullptr;
  std::atomic<bool> locked = false;
  const CapturedStderr log;
  std::thread opener([&] { kestro_db_ensure_open_file(&opened, path_.c_str()); });
  while (log.text().find("opening now") == std::string::npos) std::this_thread::yield();
  std::thread locker([&] {
    kestro_db_lock_cfgdb();
    locked = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(locked);

  finish.set_value();
  executor.join();
  opener.join();
  locker.join();
  EXPECT_EQ(kestro_db_close(opened), 0);
}

class Cfgdb : public CfgdbTest {
 protected:
  void SetUp() override {
    CfgdbTest::SetUp();
    kestro_db_lock_cfgdb();
  }
};

// What a process finds before and after it declares itself ready.
int fresh(const std::vector<std::string>&) {
  sqlite3* db = nullptr;
  std::cout << kestro_db_ensure_open(&db) << " " << (db == nullptr ? "null" : "open") << std::endl;
  kestro_db_unlock_cfgdb();
  std::cout << kestro_db_ensure_open(&db) << " " << (db == nullptr ? "null" : "open") << std::endl;
  return -kestro_db_close(db);
}

TEST_F(Cfgdb, ProcessStartsLocked) {
  Child process("fresh");
  EXPECT_EQ(process.hear(), "-11 null");
  EXPECT_EQ(process.hear(), "0 open");
  EXPECT_EQ(process.wait(), 0);
}

TEST_F(Cfgdb, LockedIsRefusedUntilUnlocked) {
  sqlite3* db = nullptr;
  const auto log = stderr_of([&] { EXPECT_EQ(kestro_db_ensure_open(&db), -11); });
  EXPECT_EQ(db, nullptr);
  EXPECT_EQ(count_log_lines(log, Warning, module, "cfgdb is currently locked - not re-opening\n"), 1);
  EXPECT_THAT(log, Not(HasSubstr("opening now")));
  EXPECT_EQ(kestro_db_ensure_open_file(&db, path_.c_str()), -11);

  kestro_db_unlock_cfgdb();
  EXPECT_EQ(kestro_db_ensure_open(&db), 0);
  EXPECT_EQ(pragma(db, "foreign_keys"), 1);
  EXPECT_EQ(kestro_db_close(db), 0);

  db = nullptr;
  kestro_db_lock_cfgdb();
  EXPECT_EQ(kestro_db_ensure_open(&db), -11);
}

TEST_F(Cfgdb, LockDoesNotConcernOpenConnections) {
  kestro_db_unlock_cfgdb();
  sqlite3* db = nullptr;
  ASSERT_EQ(kestro_db_ensure_open(&db), 0);
  kestro_db_lock_cfgdb();
  EXPECT_EQ(kestro_db_ensure_open(&db), 0);
  EXPECT_EQ(kestro_sqlite3_exec_sql(db, "CREATE TABLE port (id)"), 0);
  EXPECT_EQ(kestro_db_close(db), 0);
}

TEST_F(Cfgdb, LockDoesNotConcernTheDirectOpening) {
  sqlite3* db = nullptr;
  EXPECT_EQ(kestro_db_open(&db), 0);
  EXPECT_STREQ(sqlite3_db_filename(db, "main"), KESTRO_CFGDB_FILE);
  EXPECT_EQ(kestro_db_close(db), 0);
  EXPECT_EQ(kestro_db_open_file(&db, path_.c_str()), 0);
  EXPECT_EQ(kestro_db_close(db), 0);
}

TEST_F(Cfgdb, AnotherSpellingOfThePathIsNotCaught) {
  const std::filesystem::path path(path_);
  const std::string spelling = (path.parent_path() / "." / path.filename()).string();
  sqlite3* db = nullptr;
  EXPECT_EQ(kestro_db_ensure_open_file(&db, spelling.c_str()), 0);
  EXPECT_EQ(kestro_db_close(db), 0);
}

TEST_F(Cfgdb, LockedIsTheCodeOfTheQueriesToo) {
  sqlite3_stmt* statement = nullptr;
  int64_t number = 77;
  EXPECT_EQ(kestro_db_prepare_statement(nullptr, KESTRO_CFGDB_FILE, &statement, "SELECT 1"), -11);
  EXPECT_EQ(kestro_db_get_single_id_result(nullptr, KESTRO_CFGDB_FILE, "r", &number, "SELECT 1"), -11);
  EXPECT_EQ(statement, nullptr);
  EXPECT_EQ(number, 77);
}

using DbClose = DbFile;

TEST_F(DbClose, UnfinishedStatementKeepsItOpen) {
  sqlite3* db = open().release();
  sqlite3_stmt* prepared = nullptr;
  ASSERT_EQ(kestro_db_prepare_statement(db, path_.c_str(), &prepared, "SELECT id FROM port"), 0);
  EXPECT_EQ(kestro_db_close(db), -12);
  EXPECT_EQ(sqlite3_step(prepared), SQLITE_ROW);
  sqlite3_finalize(prepared);
  EXPECT_EQ(kestro_db_close(db), 0);
}

TEST_F(DbClose, OtherFailuresAreSystemAccessErrors) {
  const Connection db = open();
  const Fault fault("sqlite3_close", 0);
  EXPECT_EQ(kestro_db_close(db.get()), -7);
}

using DbPrepare = DbFile;

TEST_F(DbPrepare, UsesTheGivenConnection) {
  const Connection db = open();
  sqlite3_stmt* prepared = nullptr;
  EXPECT_EQ(kestro_db_prepare_statement(db.get(), "/not/looked/at", &prepared, "SELECT alias FROM port"), 0);
  const Statement statement(prepared);
  EXPECT_EQ(sqlite3_db_handle(prepared), db.get());
  EXPECT_EQ(sqlite3_step(prepared), SQLITE_ROW);
}

TEST_F(DbPrepare, NullConnectionIsOpenedAndStaysOpen) {
  sqlite3_stmt* prepared = nullptr;
  EXPECT_EQ(kestro_db_prepare_statement(nullptr, path_.c_str(), &prepared, "SELECT alias FROM port"), 0);
  ASSERT_NE(prepared, nullptr);
  const Connection opened(sqlite3_db_handle(prepared));
  const Statement statement(prepared);
  EXPECT_EQ(sqlite3_step(prepared), SQLITE_ROW);
}

TEST_F(DbPrepare, RefusedQueryIsLogged) {
  const Connection db = open();
  auto* prepared = reinterpret_cast<sqlite3_stmt*>(1);
  const auto log =
      stderr_of([&] { EXPECT_EQ(kestro_db_prepare_statement(db.get(), path_.c_str(), &prepared, "SELEKT %d"), -7); });
  EXPECT_EQ(prepared, nullptr);
  EXPECT_THAT(log, HasLog(Warning, module, "[RC:1] Unable to prepare query <SELEKT %d>\n"));
}

TEST_F(DbPrepare, FailedOpeningIsTheResult) {
  auto* prepared = reinterpret_cast<sqlite3_stmt*>(1);
  const std::string missing = directory_.file("missing.db");
  EXPECT_EQ(kestro_db_prepare_statement(nullptr, missing.c_str(), &prepared, "SELECT 1"), -7);
  EXPECT_EQ(prepared, nullptr);
}

using DbSingleId = DbFile;

TEST_F(DbSingleId, FindsAndSaysSo) {
  const Connection db = open();
  const LogLevel verbose(Verbose);
  int64_t id = 0;
  const auto log = stderr_of([&] {
    EXPECT_EQ(kestro_db_get_single_id_result(db.get(), path_.c_str(), "port", &id,
                                             "SELECT id FROM port WHERE alias = '%s'", "roof"),
              0);
  });
  EXPECT_EQ(id, 12);
  EXPECT_THAT(log, HasLog(Verbose, module, "Found [port] id/count <12>\n"));
}

TEST_F(DbSingleId, NoRowAndFailureAreGeneralErrors) {
  const Connection db = open();
  const LogLevel verbose(Verbose);
  for (const char* const query : {"SELECT id FROM port WHERE alias = 'cellar'", "SELEKT"}) {
    int64_t id = 77;
    const auto log = stderr_of(
        [&] { EXPECT_EQ(kestro_db_get_single_id_result(db.get(), path_.c_str(), "port", &id, "%s", query), -1); });
    EXPECT_EQ(id, 77);
    EXPECT_THAT(log, HasLog(Verbose, module, "Unable to get [port] id/count from database [" + path_ + "]\n"));
  }
}

TEST_F(DbSingleId, OutcomesAreNotLoggedBelowVerbose) {
  const Connection db = open();
  int64_t id = 0;
  const auto log = stderr_of([&] {
    kestro_db_get_single_id_result(db.get(), path_.c_str(), "port", &id, "SELECT 1");
    kestro_db_get_single_id_result(db.get(), path_.c_str(), "port", &id, "SELECT 1 WHERE 0");
  });
  EXPECT_THAT(log, IsEmpty());
}

TEST_F(DbSingleId, NullConnectionIsOpenedForTheCallAndStaysOpen) {
  const Opened watch;
  int64_t count = 0;
  EXPECT_EQ(kestro_db_get_single_id_result(nullptr, path_.c_str(), "ports", &count, "SELECT count(*) FROM port"), 0);
  EXPECT_EQ(count, 2);
  ASSERT_EQ(Opened::connections().size(), 1U);
  EXPECT_EQ(pragma(Opened::connections()[0], "busy_timeout"), 100);
  EXPECT_EQ(kestro_db_close(Opened::connections()[0]), 0);
}

TEST_F(DbSingleId, FailedOpeningIsTheResult) {
  int64_t id = 77;
  EXPECT_EQ(kestro_db_get_single_id_result(nullptr, directory_.path().c_str(), "port", &id, "SELECT 1"), -7);
  EXPECT_EQ(id, 77);
}

using DbTransaction = DbFile;

TEST_F(DbTransaction, CommitKeepsAndRollbackDrops) {
  const Connection db = open();
  const Database other(path_);
  const auto log = stderr_of([&] {
    EXPECT_EQ(kestro_db_open_transaction(db.get()), 0);
    EXPECT_EQ(kestro_sqlite3_exec_sql(db.get(), "INSERT INTO port VALUES (13, 'yard')"), 0);
    EXPECT_EQ(other.number("SELECT count(*) FROM port"), 2);
    EXPECT_EQ(kestro_db_commit_transaction(db.get()), 0);
    EXPECT_EQ(other.number("SELECT count(*) FROM port"), 3);

    EXPECT_EQ(kestro_db_open_transaction(db.get()), 0);
    EXPECT_EQ(kestro_sqlite3_exec_sql(db.get(), "DELETE FROM port"), 0);
    EXPECT_EQ(kestro_db_rollback_transaction(db.get()), 0);
    EXPECT_EQ(other.number("SELECT count(*) FROM port"), 3);
  });
  EXPECT_THAT(log, IsEmpty());
}

TEST_F(DbTransaction, RunsBeginCommitAndRollback) {
  const Opened watch;
  const Connection db = open();
  kestro_db_open_transaction(db.get());
  kestro_db_commit_transaction(db.get());
  kestro_db_open_transaction(db.get());
  kestro_db_rollback_transaction(db.get());
  const std::vector<std::string> statements(Opened::statements().begin() + 3, Opened::statements().end());
  EXPECT_THAT(statements, ElementsAre("BEGIN", "COMMIT", "BEGIN", "ROLLBACK"));
}

TEST_F(DbTransaction, FailuresAreLogged) {
  const Connection db = open();
  const auto outside = stderr_of([&] {
    EXPECT_EQ(kestro_db_commit_transaction(db.get()), -7);
    EXPECT_EQ(kestro_db_rollback_transaction(db.get()), -7);
  });
  EXPECT_THAT(outside, AllOf(HasLog(Error, module, "Unable to commit sql transaction due to SQLite error <1>\n"),
                             HasLog(Error, module, "Unable to rollback sql transaction due to SQLite error <1>\n")));

  EXPECT_EQ(kestro_db_open_transaction(db.get()), 0);
  EXPECT_THAT(stderr_of([&] { EXPECT_EQ(kestro_db_open_transaction(db.get()), -7); }),
              HasLog(Error, module, "Unable to begin sql transaction due to SQLite error <1>\n"));
  EXPECT_THAT(stderr_of([&] { EXPECT_EQ(kestro_db_open_transaction(nullptr), -7); }),
              HasLog(Error, module, "Unable to begin sql transaction due to SQLite error <21>\n"));
}

TEST_F(DbTransaction, BusyCommitFailsWithoutRetryAndCanBeRepeated) {
  const Connection db = open();
  const Database other(path_);
  sqlite3_stmt* prepared = nullptr;
  ASSERT_EQ(kestro_db_prepare_statement(other, path_.c_str(), &prepared, "SELECT id FROM port"), 0);
  Statement reading(prepared);
  ASSERT_EQ(sqlite3_step(prepared), SQLITE_ROW);

  ASSERT_EQ(kestro_db_open_transaction(db.get()), 0);
  ASSERT_EQ(kestro_sqlite3_exec_sql(db.get(), "INSERT INTO port VALUES (13, 'yard')"), 0);
  const auto log = stderr_of([&] { EXPECT_EQ(kestro_db_commit_transaction(db.get()), -7); });
  EXPECT_THAT(log, HasLog(Error, module, "Unable to commit sql transaction due to SQLite error <5>\n"));
  EXPECT_THAT(log, Not(HasSubstr("retry")));

  reading.reset();
  EXPECT_EQ(kestro_db_commit_transaction(db.get()), 0);
  EXPECT_EQ(other.number("SELECT count(*) FROM port"), 3);
}

TEST_F(DbTransaction, ReaderThatTurnsWriterMeetsAnotherWriterInVain) {
  const Connection reader = open();
  const Connection writer = open();
  ASSERT_EQ(kestro_db_open_transaction(reader.get()), 0);
  int64_t count = 0;
  ASSERT_EQ(kestro_sqlite3_get_single_id_result(reader.get(), &count, "SELECT count(*) FROM port"), 0);
  ASSERT_EQ(kestro_db_open_transaction(writer.get()), 0);
  ASSERT_EQ(kestro_sqlite3_exec_sql(writer.get(), "INSERT INTO port VALUES (13, 'yard')"), 0);

  {
    const Sleeps sleeps;
    EXPECT_EQ(kestro_sqlite3_exec_sql(reader.get(), "DELETE FROM port"), SQLITE_BUSY);
  }
  EXPECT_EQ(kestro_db_rollback_transaction(reader.get()), 0);
  EXPECT_EQ(kestro_db_commit_transaction(writer.get()), 0);
  EXPECT_EQ(kestro_sqlite3_exec_sql(reader.get(), "DELETE FROM port"), 0);
}

}  // namespace
}  // namespace kestro::test

int main(int argc, char** argv) {
  return kestro::test::main_with_roles(argc, argv, {{"fresh", kestro::test::fresh}});
}
