// What a database holds after its writer was killed, or its disk ran full, in the middle of a transaction.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <iostream>
#include <random>
#include <string>
#include <vector>

#include "core/owned.hpp"
#include "kestro_db_api.h"
#include "kestro_sqlite3.h"
#include "support/captured_stderr.hpp"
#include "support/child.hpp"
#include "support/database.hpp"
#include "support/log.hpp"
#include "support/temp_dir.hpp"

// SQLite's waiting for the disk, left out: what a killed process has written is in its files all the same.
extern "C" int fdatasync(int) {
  return 0;
}

namespace kestro::test {
namespace {

using Connection = Owned<sqlite3, sqlite3_close>;
using Statement = Owned<sqlite3_stmt, sqlite3_finalize>;

constexpr int batches = 4;
constexpr int rows_each = 30;

// The calls by which SQLite changes files are counted in the child, and one of them goes wrong.
struct Mishap {
  std::string kind;  // "kill" dies within the call, "full" finds the disk full from that call on
  int at = 0;
  int calls = 0;

  bool strikes() {
    ++calls;
    return kind == "kill" ? calls == at : kind == "full" && calls >= at;
  }
};
Mishap mishap;

void die() {
  kill(getpid(), SIGKILL);
}

ssize_t write_file(int fd, const void* data, size_t size, off_t offset) {
  if (!mishap.strikes()) return pwrite(fd, data, size, offset);
  if (mishap.kind == "kill") {
    const ssize_t half = pwrite(fd, data, size / 2, offset);
    die();
    return half;
  }
  errno = ENOSPC;
  return -1;
}

int truncate_file(int fd, off_t length) {
  if (mishap.strikes() && mishap.kind == "kill") die();
  return ftruncate(fd, length);
}

int unlink_file(const char* path) {
  if (mishap.strikes() && mishap.kind == "kill") die();
  return unlink(path);
}

void arm(const std::string& kind, int at) {
  mishap = {.kind = kind, .at = at};
  auto* const vfs = sqlite3_vfs_find(nullptr);
  const auto replace = [&](const char* name, auto* call) {
    if (vfs->xSetSystemCall(vfs, name, reinterpret_cast<sqlite3_syscall_ptr>(call)) != SQLITE_OK) abort();
  };
  replace("pwrite64", write_file);
  replace("ftruncate", truncate_file);
  replace("unlink", unlink_file);
}

void make_database(const std::string& path) {
  Database(path).run("CREATE TABLE t (batch, n, later DEFAULT 0, filler)");
}

// One transaction: a batch of rows, and a tick on every row of the batches before.
int32_t write_batch(sqlite3* db, const std::string& path, int batch) {
  if (const auto begun = kestro_db_open_transaction(db); begun != 0) return begun;
  if (kestro_sqlite3_exec_sql(db, "UPDATE t SET later = later + 1") != SQLITE_OK) return -7;
  sqlite3_stmt* prepared = nullptr;
  const char* const sql = "INSERT INTO t (batch, n, filler) VALUES (?, ?, zeroblob(700))";
  if (const auto code = kestro_db_prepare_statement(db, path.c_str(), &prepared, sql); code != 0) return code;
  const Statement insert(prepared);
  for (int n = 0; n < rows_each; ++n) {
    sqlite3_bind_int(prepared, 1, batch);
    sqlite3_bind_int(prepared, 2, n);
    if (const auto code = kestro_sqlite3_step_write(prepared); code != 0) return code;
    sqlite3_reset(prepared);
  }
  return kestro_db_commit_transaction(db);
}

// Writes batches, tells of each that is in, and of how many file changes there were.
int write_batches(const std::vector<std::string>& args) {
  const std::string& path = args[0];
  sqlite3* opened = nullptr;
  if (kestro_db_open_file(&opened, path.c_str()) != 0) return 1;
  Connection db(opened);
  kestro_sqlite3_exec_sql(opened, "PRAGMA cache_size = 5");  // changes reach the file before the commit, too
  arm(args[1], std::stoi(args[2]));
  int32_t code = 0;
  for (int batch = 1; batch <= batches && code == 0; ++batch) {
    code = write_batch(opened, path, batch);
    if (code == 0) std::cout << batch << std::endl;
  }
  std::cout << "status " << code << "\n" << mishap.calls << std::endl;
  return 0;
}

// Whole batches up to `acknowledged`, or to the next one, which may have been committed and not told of.
void expect_whole_batches(const std::string& path, int acknowledged) {
  const Database db(path);
  EXPECT_EQ(db.value("PRAGMA integrity_check"), "ok");
  const long last = db.number("SELECT count(DISTINCT batch) FROM t");
  EXPECT_TRUE(last == acknowledged || last == acknowledged + 1) << last << " " << acknowledged;
  for (long batch = 1; batch <= last; ++batch) {
    const std::string of_batch = "FROM t WHERE batch = " + std::to_string(batch);
    EXPECT_EQ(db.number("SELECT count(DISTINCT n) " + of_batch), rows_each);
    EXPECT_EQ(db.number("SELECT count(*) " + of_batch + " AND later = " + std::to_string(last - batch)), rows_each);
  }
  EXPECT_EQ(db.number("SELECT count(*) FROM t"), last * rows_each);
}

// Runs the writer on a fresh database and hands back the lines it said.
class Writer {
 public:
  Writer(const std::string& path, const std::string& kind, int at) {
    std::filesystem::remove(path);
    std::filesystem::remove(path + "-journal");
    make_database(path);
    Child child("write", {path, kind, std::to_string(at)});
    for (std::string line = child.hear(); !line.empty(); line = child.hear()) lines_.push_back(line);
    result_ = child.wait();
  }

  [[nodiscard]] int result() const { return result_; }
  [[nodiscard]] const std::vector<std::string>& lines() const { return lines_; }
  [[nodiscard]] int acknowledged() const {
    int count = 0;
    for (const auto& line : lines_) {
      if (line == std::to_string(count + 1)) ++count;
      if (line.starts_with("status")) break;
    }
    return count;
  }
  // How many changes of files a run without a mishap makes.
  static int changes(const std::string& path) {
    const Writer writer(path, "none", 0);
    EXPECT_EQ(writer.acknowledged(), batches);
    return std::stoi(writer.lines().back());
  }

 private:
  std::vector<std::string> lines_;
  int result_ = 0;
};

TEST(DbCrash, KilledWriterLeavesWholeTransactions) {
  const TempDir directory;
  const std::string path = directory.file("killed.db");
  const int changes = Writer::changes(path);
  ASSERT_GT(changes, 200);
  std::mt19937 random(20210304);
  std::uniform_int_distribution<int> any(1, changes);
  for (int round = 0; round < 200; ++round) {
    const int at = any(random);
    const Writer writer(path, "kill", at);
    ASSERT_EQ(writer.result(), -SIGKILL) << at;
    expect_whole_batches(path, writer.acknowledged());
    ASSERT_FALSE(testing::Test::HasFailure()) << "killed in change " << at << " of " << changes;
  }
}

TEST(DbCrash, FullDiskIsASystemAccessErrorAndLosesNothing) {
  const TempDir directory;
  const std::string path = directory.file("full.db");
  const int changes = Writer::changes(path);
  std::mt19937 random(20210305);
  std::uniform_int_distribution<int> any(1, changes - 1);  // the last change removes the journal
  for (int round = 0; round < 50; ++round) {
    const int at = any(random);
    const CapturedStderr log;
    const Writer writer(path, "full", at);
    ASSERT_EQ(writer.result(), 0) << at;
    EXPECT_THAT(writer.lines(), testing::Contains("status -7"));
    expect_whole_batches(path, writer.acknowledged());
    ASSERT_FALSE(testing::Test::HasFailure()) << "full in change " << at << " of " << changes;
  }
}

// Fills a disk of its own, which is small.
int32_t fill_up(sqlite3_stmt* insert) {
  int32_t code = 0;
  while (code == 0) {
    code = kestro_sqlite3_step_write(insert);
    sqlite3_reset(insert);
  }
  return code;
}

int fill_disk(const std::vector<std::string>& args) {
  if (unshare(CLONE_NEWNS) != 0) return 77;
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return 77;
  if (mount("none", args[0].c_str(), "tmpfs", 0, "size=128k") != 0) return 77;

  const std::string path = args[0] + "/full.db";
  make_database(path);
  Database(path).run("INSERT INTO t (batch, n) VALUES (0, 1), (0, 2)");
  sqlite3* opened = nullptr;
  sqlite3_stmt* prepared = nullptr;
  const char* const sql = "INSERT INTO t (batch, n, filler) VALUES (1, 1, zeroblob(700))";
  if (kestro_db_open_file(&opened, path.c_str()) != 0) return 1;
  const Connection db(opened);
  kestro_sqlite3_exec_sql(opened, "PRAGMA cache_size = 5");
  if (kestro_db_prepare_statement(opened, path.c_str(), &prepared, sql) != 0) return 2;
  const Statement insert(prepared);
  if (kestro_db_open_transaction(opened) != 0) return 3;
  if (fill_up(prepared) != -7) return 4;
  // A full disk may have rolled the transaction back already.
  if (sqlite3_get_autocommit(opened) == 0 && kestro_db_rollback_transaction(opened) != 0) return 5;
  const Database after(path);
  if (after.value("PRAGMA integrity_check") != "ok") return 6;
  if (after.number("SELECT count(*) FROM t") != 2) return 7;
  // With room again, the same connection goes on.
  return kestro_sqlite3_exec_sql(opened, "INSERT INTO t (batch, n) VALUES (0, 3)");
}

TEST(DbCrash, SmallFileSystemThatIsFullKeepsTheOldData) {
  const TempDir directory;
  int result = 0;
  const auto log = stderr_of([&] { result = Child("fill", {directory.path().string()}).wait(); });
  if (result == 77) GTEST_SKIP() << "no mount namespace here";
  EXPECT_EQ(result, 0) << log;
  EXPECT_THAT(log, HasLog(Error, "kestro_sqlite3", "sql error code 13 in fill_up\n"));
}

}  // namespace
}  // namespace kestro::test

int main(int argc, char** argv) {
  return kestro::test::main_with_roles(argc, argv,
                                       {{"write", kestro::test::write_batches}, {"fill", kestro::test::fill_disk}});
}
