// kestro_sqlite3_exec while others, in other processes and threads, use the same database file.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "core/owned.hpp"
#include "kestro_db_api.h"
#include "kestro_sqlite3.h"
#include "support/captured_stderr.hpp"
#include "support/child.hpp"
#include "support/database.hpp"
#include "support/log.hpp"
#include "support/sleeps.hpp"
#include "support/temp_dir.hpp"

namespace kestro::test {
namespace {

using std::chrono::milliseconds;
using testing::AllOf;
using testing::Each;
using testing::IsEmpty;
using testing::SizeIs;

using Connection = Owned<sqlite3, sqlite3_close>;

// Holds the database for itself until it hears a line.
int hold(const std::vector<std::string>& args) {
  const Database db(args[0]);
  db.run("BEGIN EXCLUSIVE");
  std::cout << "held" << std::endl;
  std::string line;
  std::getline(std::cin, line);
  db.run("COMMIT");
  std::cout << "released" << std::endl;
  return 0;
}

// Writes rows until each is in.
void write_rows(const std::string& path, int writer, int rows) {
  sqlite3* opened = nullptr;
  ASSERT_EQ(kestro_db_open_file(&opened, path.c_str()), 0);
  const Connection db(opened);
  for (int n = 0; n < rows; ++n) {
    int32_t code = SQLITE_BUSY;
    while (code == SQLITE_BUSY) code = kestro_sqlite3_exec_sql(opened, "INSERT INTO t VALUES (%d, %d)", writer, n);
    ASSERT_EQ(code, 0);
  }
}

int write(const std::vector<std::string>& args) {
  write_rows(args[0], std::stoi(args[1]), std::stoi(args[2]));
  return testing::Test::HasFailure() ? 1 : 0;
}

// A database with an empty table, and a second process that holds it.
class Busy : public testing::Test {
 protected:
  Busy() {
    const Database created(path_);
    created.run("CREATE TABLE t (writer, n)");
    holder_ = std::make_unique<Child>("hold", std::vector{path_});
    EXPECT_EQ(holder_->hear(), "held");
    db_ = std::make_unique<Database>(path_);
    // Counts the attempts in the place of SQLite's own waiting.
    sqlite3_busy_handler(
        *db_, [](void* count, int) { return ++*static_cast<int*>(count), 0; }, &attempts_);
  }

  void release() const {
    holder_->say("release");
    EXPECT_EQ(holder_->hear(), "released");
  }

  static void expect_retries(const std::string& log, int count) {
    for (int retry = 1; retry <= 21; ++retry) {
      const std::string line = "DB Busy! retry #" + std::to_string(retry) + "...\n";
      EXPECT_EQ(count_log_lines(log, Debug, "kestro_sqlite3", line), retry <= count ? 1 : 0) << line;
    }
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), count);
  }

  TempDir directory_;
  std::string path_ = directory_.file("busy.db");
  std::unique_ptr<Child> holder_;
  std::unique_ptr<Database> db_;
  int attempts_ = 0;
};

TEST_F(Busy, DatabaseThatStaysBusyIsTried21Times) {
  const Sleeps sleeps;
  const auto log =
      stderr_of([&] { EXPECT_EQ(kestro_sqlite3_exec_sql(*db_, "INSERT INTO t VALUES (%d, 1)", 1), SQLITE_BUSY); });
  EXPECT_EQ(attempts_, 21);
  EXPECT_THAT(sleeps.lengths(), AllOf(SizeIs(20), Each(milliseconds(50))));
  expect_retries(log, 20);
  release();
  EXPECT_EQ(db_->number("SELECT count(*) FROM t"), 0);
}

TEST_F(Busy, ConnectionOfTheLibraryGivesUpAfterRealWaiting) {
  sqlite3* opened = nullptr;
  ASSERT_EQ(kestro_db_open_file(&opened, path_.c_str()), 0);
  const Connection connection(opened);
  const auto log =
      stderr_of([&] { EXPECT_EQ(kestro_sqlite3_exec_sql(opened, "INSERT INTO t VALUES (1, 1)"), SQLITE_BUSY); });
  expect_retries(log, 20);
}

TEST_F(Busy, RetriesAreSilentBelowDebug) {
  const LogLevel level(Info);
  const Sleeps sleeps;
  EXPECT_THAT(stderr_of([&] { kestro_sqlite3_exec_sql(*db_, "INSERT INTO t VALUES (1, 1)"); }), IsEmpty());
  EXPECT_EQ(attempts_, 21);
}

class BusyUntil : public Busy, public testing::WithParamInterface<int> {};

TEST_P(BusyUntil, SucceedsOnceTheOtherProcessLetsGo) {
  const auto last = static_cast<size_t>(GetParam());
  const Sleeps sleeps([&](size_t retry) {
    if (retry == last) release();
  });
  const auto log = stderr_of([&] { EXPECT_EQ(kestro_sqlite3_exec_sql(*db_, "INSERT INTO t VALUES (1, 1)"), 0); });
  EXPECT_EQ(attempts_, GetParam());
  expect_retries(log, GetParam());
  EXPECT_EQ(db_->number("SELECT count(*) FROM t"), 1);
}
INSTANTIATE_TEST_SUITE_P(Retry, BusyUntil, testing::Values(1, 2, 19, 20));

TEST_F(Busy, ErrorTextsOfTheRetriesAreReleased) {
  const auto try_once = [&] {
    const Sleeps sleeps;
    char* error = nullptr;
    EXPECT_EQ(kestro_sqlite3_exec(*db_, "INSERT INTO t VALUES (1, 1)", nullptr, nullptr, &error), SQLITE_BUSY);
    EXPECT_STREQ(error, "database is locked");
    sqlite3_free(error);
  };
  try_once();  // warms SQLite's caches
  const sqlite3_int64 before = sqlite3_memory_used();
  try_once();
  EXPECT_EQ(sqlite3_memory_used(), before);
}

TEST_F(Busy, SuccessAfterRetriesLeavesNoErrorText) {
  const Sleeps sleeps([&](size_t retry) {
    if (retry == 3) release();
  });
  char* error = nullptr;
  EXPECT_EQ(kestro_sqlite3_exec(*db_, "INSERT INTO t VALUES (1, 1)", nullptr, nullptr, &error), 0);
  EXPECT_EQ(error, nullptr);
}

TEST_F(Busy, OtherThreadsWaitThroughTheSleeps) {
  const Database unrelated;
  std::atomic<bool> done = false;
  std::thread other;
  {
    const Sleeps sleeps([&](size_t retry) {
      if (retry > 1) return;
      other = std::thread([&] {
        EXPECT_EQ(kestro_sqlite3_exec_sql(unrelated, "CREATE TABLE t (n)"), 0);
        done = true;
      });
      std::this_thread::sleep_for(milliseconds(100));
      EXPECT_FALSE(done);
    });
    EXPECT_EQ(kestro_sqlite3_exec_sql(*db_, "INSERT INTO t VALUES (1, 1)"), SQLITE_BUSY);
  }
  other.join();
  EXPECT_TRUE(done);
}

TEST(NotBusy, PreparedStatementsTakeNoLock) {
  const Database db;
  db.run("CREATE TABLE t (n)");
  // The callback runs while the execution is held: whoever wanted to hold it, too, would wait for ever.
  const auto within = [](void* connection, int, char**, char**) {
    auto* const same = static_cast<sqlite3*>(connection);
    sqlite3_stmt* prepared = nullptr;
    EXPECT_EQ(kestro_sqlite3_prepare_sql(same, &prepared, "INSERT INTO t VALUES (%d)", 7), 0);
    EXPECT_EQ(kestro_sqlite3_step_write(prepared), 0);
    sqlite3_finalize(prepared);
    int64_t number = 0;
    EXPECT_EQ(kestro_sqlite3_get_single_id_result(same, &number, "SELECT n FROM t"), 0);
    EXPECT_EQ(number, 7);
    char text[4];
    EXPECT_EQ(kestro_sqlite3_get_single_string_result(same, text, sizeof text, "SELECT n FROM t"), 0);
    EXPECT_STREQ(text, "7");
    return 0;
  };
  EXPECT_EQ(kestro_sqlite3_exec(db, "SELECT 1", within, static_cast<sqlite3*>(db), nullptr), 0);
}

TEST(NotBusy, LockedIsNotRetried) {
  const Database db;
  db.run("CREATE TABLE t (n)");
  db.run("INSERT INTO t VALUES (1), (2)");
  sqlite3_stmt* prepared = nullptr;
  ASSERT_EQ(kestro_sqlite3_prepare_sql(db, &prepared, "SELECT n FROM t"), 0);
  const Owned<sqlite3_stmt, sqlite3_finalize> reading(prepared);
  ASSERT_EQ(sqlite3_step(prepared), SQLITE_ROW);

  const Sleeps sleeps;
  EXPECT_EQ(kestro_sqlite3_exec_sql(db, "DROP TABLE t"), SQLITE_LOCKED);
  EXPECT_THAT(sleeps.lengths(), IsEmpty());
}

TEST(NotBusy, ErrorsAreNotRetried) {
  const Database db;
  const Sleeps sleeps;
  EXPECT_EQ(kestro_sqlite3_exec_sql(db, "SELEKT"), SQLITE_ERROR);
  EXPECT_THAT(sleeps.lengths(), IsEmpty());
}

// Looks at the table until told to stop: what it sees only grows.
void read_rows(const std::string& path, const std::atomic<bool>& stop) {
  sqlite3* opened = nullptr;
  ASSERT_EQ(kestro_db_open_file(&opened, path.c_str()), 0);
  const Connection db(opened);
  int64_t before = 0;
  while (!stop) {
    int64_t count = before;
    const int32_t code = kestro_sqlite3_get_single_id_result(opened, &count, "SELECT count(*) FROM t");
    ASSERT_TRUE(code == 0 || code == SQLITE_BUSY) << code;
    ASSERT_GE(count, before);
    before = count;
  }
}

TEST(Crowd, NothingIsLost) {
  constexpr int writers = 8;
  constexpr int readers = 2;
  constexpr int rows = 25;
  const LogLevel quiet(Info);
  const TempDir directory;
  const std::string path = directory.file("crowd.db");
  const Database db(path);
  db.run("CREATE TABLE t (writer, n)");

  std::atomic<bool> stop = false;
  std::vector<std::thread> reading;
  std::vector<std::thread> writing;
  reading.reserve(readers);
  writing.reserve(writers);
  for (int reader = 0; reader < readers; ++reader) reading.emplace_back([&] { read_rows(path, stop); });
  Child other("write", {path, std::to_string(writers), std::to_string(rows)});
  for (int writer = 0; writer < writers; ++writer) {
    writing.emplace_back([&, writer] { write_rows(path, writer, rows); });
  }
  for (auto& thread : writing) thread.join();
  EXPECT_EQ(other.wait(), 0);
  stop = true;
  for (auto& thread : reading) thread.join();

  EXPECT_EQ(db.number("SELECT count(*) FROM t"), (writers + 1) * rows);
  EXPECT_EQ(db.number("SELECT count(*) FROM (SELECT DISTINCT writer, n FROM t)"), (writers + 1) * rows);
  EXPECT_EQ(db.value("PRAGMA integrity_check"), "ok");
}

TEST(Crowd, ThreadsShareOneConnection) {
  const TempDir directory;
  const std::string path = directory.file("shared.db");
  Database(path).run("CREATE TABLE t (writer, n)");
  sqlite3* opened = nullptr;
  ASSERT_EQ(kestro_db_open_file(&opened, path.c_str()), 0);
  const Connection db(opened);

  std::vector<std::thread> threads;
  threads.reserve(8);
  for (int writer = 0; writer < 8; ++writer) {
    threads.emplace_back([&, writer] {
      for (int n = 0; n < 25; ++n) {
        EXPECT_EQ(kestro_sqlite3_exec_sql(opened, "INSERT INTO t VALUES (%d, %d)", writer, n), 0);
        int64_t own = -1;
        EXPECT_EQ(kestro_sqlite3_get_single_id_result(opened, &own, "SELECT count(*) FROM t WHERE writer=%d", writer),
                  0);
        EXPECT_EQ(own, n + 1);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(Database(path).number("SELECT count(*) FROM t"), 200);
}

}  // namespace
}  // namespace kestro::test

int main(int argc, char** argv) {
  return kestro::test::main_with_roles(argc, argv, {{"hold", kestro::test::hold}, {"write", kestro::test::write}});
}
