// Files, the log, shell commands, threads and the database while system calls fail.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "core/owned.hpp"
#include "core/site.hpp"
#include "faults/calls.hpp"
#include "kestro_conf_parser.h"
#include "kestro_db_api.h"
#include "kestro_general.h"
#include "kestro_jrpc_utils.h"
#include "kestro_lsyslog.h"
#include "kestro_sqlite3.h"
#include "kestro_string.h"
#include "kestro_utils.h"
#include "support/database.hpp"
#include "support/log.hpp"
#include "support/named.hpp"

namespace kestro::test {
namespace {

void read_a_configuration(Trial& trial) {
  const std::string path = trial.directory() + "/test.conf";
  std::ofstream(path) << "[section]\n" << std::string(6000, 'x') << "=long\nkey=value\n";
  std::array<char, 16> value = {'w', 'a', 's'};
  const auto status = operate(
      trial, [&] { return kestro_conf_parser_parse(path.c_str(), "section", "key", value.data(), value.size()); });
  EXPECT_STREQ(value.data(), status == 0 ? "value" : "was");
}

void start_the_log(Trial& trial) {
  const LogLevel level(Verbose);
  std::filesystem::create_directories(std::filesystem::path(KESTRO_LSYSLOG_CONF_FILE).parent_path());
  std::ofstream(KESTRO_LSYSLOG_CONF_FILE) << "[logging_levels]\nfaults=info\n";
  operate(trial, [] { return kestro_lsyslog_init("faults"); });
  const bool unread = trial.excused() && current_fault().error != shortened && !failed(trial, "close");
  EXPECT_EQ(_level, unread ? int32_t{Verbose} : int32_t{Info});
  std::filesystem::remove(KESTRO_LSYSLOG_CONF_FILE);
  kestro_lsyslog_init(nullptr);
}

// An interrupted line is written again; what cannot be written is lost without a word, and errno is kept.
void log_text(Trial& trial, const std::string& text) {
  const LogLevel level(Verbose);
  int kept = 0;
  operate(trial, [&] {
    errno = EDOM;
    const auto status = kestro_lsyslog_log(Info, "module", 1, "%s", text.c_str());
    kept = errno;
    return status;
  });
  EXPECT_EQ(kept, EDOM);
  const bool whole = !trial.excused() || current_fault().error == EINTR;
  EXPECT_EQ(trial.said().find(text) != std::string::npos, whole);
}

void log_a_line(Trial& trial) {
  log_text(trial, "a line\n");
}

// Too long for the pieces to be joined first.
void log_a_long_line(Trial& trial) {
  log_text(trial, std::string(2000, 'x') + "\n");
}

void read_lines(Trial& trial) {
  const std::string path = trial.directory() + "/lines";
  std::ofstream(path) << std::string(5000, 'x') << "\nsecond\n";
  str_t* const text = str_init(8);
  const File file(fopen(path.c_str(), "re"));
  int32_t status = -1;
  trial.make([&] { status = str_fgets(text, file.get()); });
  const bool broken = trial.excused() && current_fault().error != shortened;
  EXPECT_EQ(status, broken ? 0 : 1);
  EXPECT_EQ(str_slen(text), strlen(str_s(text)));
  if (!broken) {
    EXPECT_EQ(str_slen(text), 5001U);
  }
  str_free(text);
}

void rename_an_upload(Trial& trial) {
  const std::string name = "faults" + std::to_string(getpid()) + ".db";
  const Json params(json_pack("{s:s}", "name", ("-" + name).c_str()));
  std::filesystem::create_directories(KESTRO_UPDATE_DIR);
  std::ofstream(KESTRO_UPDATE_DIR "-" + name) << "contents";
  std::array<char, 64> text{};
  json_t* raw = nullptr;
  const auto status = operate(trial, [&] {
    return kestro_jrpc_utils_retrieve_input_db_filename(params.get(), &raw, "name", text.data(), text.size());
  });
  const Json err_data(raw);
  EXPECT_EQ(text.data(), status == 0 ? name : "");
  EXPECT_TRUE(std::filesystem::remove(KESTRO_UPDATE_DIR + (status == 0 ? name : "-" + name)));
}

// ---- Commands

void run_a_command(Trial& trial) {
  const LogLevel level(Verbose);
  std::array<char, 100> line = {"echo one"};
  const auto status = operate(trial, [&] { return kestro_popen_get_oneline(line.data(), line.size()); });
  EXPECT_STREQ(line.data(), status == 0 ? "one\n" : "echo one");
  if (status != 0) {
    const bool started = failed(trial, "read");
    EXPECT_THAT(trial.said(), HasLog(Error, "kestro_utils",
                                     started ? "Could not read output for cmd echo one\n"
                                             : "Could not open pipe for cmd echo one\n"));
  }
}

void run_a_program(Trial& trial) {
  std::array<char, 3200> result{};
  const auto status = operate(trial, [&] { return mw_exec_command_line("echo two", result.data()); });
  EXPECT_STREQ(result.data(), status == 0 ? "two" : "");
}

void sum_a_file(Trial& trial) {
  const std::string path = trial.directory() + "/firmware.bin";
  const std::string digest = trial.directory() + "/firmware.md5";
  std::ofstream(path) << "firmware";
  std::ofstream(digest) << "74b5b5e9570efc5c0553bb327cd41940  firmware.bin\n";
  int32_t correct = -1;
  const auto status = operate(trial, [&] { return kestro_check_md5(path.c_str(), digest.c_str(), &correct); });
  EXPECT_EQ(correct, status == 0 ? 1 : 0);
}

void list_files(Trial& trial) {
  const LogLevel level(Verbose);
  std::ofstream(trial.directory() + "/firmware.bin") << "firmware";
  char* raw = nullptr;
  const auto status = operate(trial, [&] {
    raw = kestro_file_stats(trial.directory().c_str(), "bin", nullptr, 9);
    return raw != nullptr ? 0 : -1;
  });
  const Text name(raw);
  EXPECT_STREQ(name.get(), status == 0 ? "firmware.bin\n" : nullptr);
}

void read_the_board_revision(Trial& trial) {
  const LogLevel level(Verbose);
  trial.make([] { EXPECT_EQ(kestro_get_board_rev_number(), 7); });
  if (failed(trial, "pipe2") || failed(trial, "clone3")) {
    EXPECT_THAT(trial.said(), HasLog(Error, "kestro_utils", "Could not open pipe\n"));
  }
}

void launch_a_script(Trial& trial) {
  const LogLevel level(Verbose);
  trial.make([] { fork_exec_script("true", "command", "file"); });
  int status = 0;
  if (!trial.excused()) {
    EXPECT_GT(wait(&status), 0);
    return;
  }
  EXPECT_THAT(trial.said(), HasLog(Error, "kestro_utils", "Failure to launch \"true command 'file'\"\n"));
  EXPECT_EQ(wait(&status), -1);
}

std::atomic<int> threads_run{0};
void* run_thread(void* /*input*/) {
  ++threads_run;
  return nullptr;
}

// The caller is not told when there is no thread.
void start_a_thread(Trial& trial) {
  const LogLevel level(Verbose);
  const int before = threads_run;
  trial.make([] { kestro_spawn_detached_thread(run_thread, nullptr); });
  EXPECT_THAT(trial.said(), HasLog(Info, "kestro_utils", "finished spawning thread\n"));
  while (!trial.excused() && threads_run == before) std::this_thread::yield();
  if (!trial.excused()) return;
  pthread_t another{};
  EXPECT_EQ(pthread_create(&another, nullptr, run_thread, nullptr), EAGAIN) << "threads are to be had";
  EXPECT_EQ(threads_run, before);
}

// ---- The database

std::string new_database(const Trial& trial) {
  std::string path = trial.directory() + "/test.db";
  Database(path).run("CREATE TABLE port(id INTEGER PRIMARY KEY, name TEXT); INSERT INTO port VALUES(1, 'one')");
  return path;
}

using Statuses = std::vector<int32_t>;
void expect_one_of(int32_t status, const Trial& trial, const Statuses& statuses) {
  if (status == 0) return;
  EXPECT_TRUE(trial.excused()) << trial.said();
  EXPECT_THAT(statuses, testing::Contains(status & 0xff)) << trial.said();
}

// Whatever fails on the way, the change is there whole or not at all, and the file stays sound.
void change_the_database(Trial& trial) {
  const LogLevel level(Verbose);
  const auto path = new_database(trial);
  sqlite3* db = nullptr;
  bool changed = false;
  trial.make([&] {
    if (kestro_db_open_file(&db, path.c_str()) != 0) return;
    if (kestro_db_open_transaction(db) != 0) return;
    const bool written = kestro_sqlite3_exec_sql(db, "INSERT INTO port VALUES(%d, 'two')", 2) == 0 &&
                         kestro_sqlite3_exec_sql(db, "UPDATE port SET name = 'new' WHERE id = %d", 1) == 0;
    changed = written && kestro_db_commit_transaction(db) == 0;
    if (!changed) kestro_db_rollback_transaction(db);
  });
  EXPECT_TRUE(changed || trial.excused());
  if (db != nullptr) {
    trial.make([&] { EXPECT_EQ(kestro_db_close(db), 0); });
  }
  const Database after(path);
  EXPECT_EQ(after.value("PRAGMA integrity_check"), "ok");
  // Behind the point of no return, SQLite may fail a commit that has happened.
  const bool is_new = after.number("SELECT count(*) FROM port") == 2;
  EXPECT_TRUE(is_new || !changed);
  EXPECT_EQ(after.value("SELECT name FROM port WHERE id = 1"), is_new ? "new" : "one");
}

void look_up(Trial& trial) {
  const LogLevel level(Verbose);
  const auto path = new_database(trial);
  sqlite3* db = nullptr;
  int32_t opened = 0;
  trial.make([&] { opened = kestro_db_ensure_open_file(&db, path.c_str()); });
  EXPECT_TRUE(opened == 0 || (trial.excused() && opened == -7)) << opened;
  EXPECT_EQ(db != nullptr, opened == 0);
  if (opened != 0) return;

  int64_t id = -2;
  int32_t found = 0;
  trial.make([&] {
    found = kestro_db_get_single_id_result(db, path.c_str(), "port", &id, "SELECT id FROM port WHERE id = %d", 1);
  });
  EXPECT_TRUE(found == 0 || (trial.excused() && found == -1)) << found;
  EXPECT_EQ(id, found == 0 ? 1 : -2);

  std::array<char, 16> name = {'w', 'a', 's'};
  int32_t read = 0;
  trial.make(
      [&] { read = kestro_sqlite3_get_single_string_result(db, name.data(), name.size(), "SELECT name FROM port"); });
  expect_one_of(read, trial, {SQLITE_IOERR, SQLITE_CANTOPEN, SQLITE_BUSY, SQLITE_NOTADB, SQLITE_CORRUPT});
  EXPECT_STREQ(name.data(), read == 0 ? "one" : "was");
  EXPECT_EQ(kestro_db_close(db), 0);
}

// What every function that reads from a command meets.
std::vector<CallRow> command_rows(std::optional<int32_t> failure, const char* word = nullptr) {
  return {
      {"pipe2", SYS_pipe2, {EMFILE, ENFILE}, failure, word},
      {"clone3", SYS_clone3, {EAGAIN, ENOMEM}, failure, word, Way::Refused},
      {"read", SYS_read, {EIO}, failure},
      {"read", SYS_read, {EINTR, shortened}, failure ? std::optional(0) : std::nullopt},
      {"wait4", SYS_wait4, {EINTR, ECHILD}, failure ? std::optional(0) : std::nullopt},
  };
}

INSTANTIATE_TEST_SUITE_P(
    Host, CallCampaign,
    testing::ValuesIn(std::vector<CallScenario>{
        {"ReadAConfiguration",
         read_a_configuration,
         {{"openat", SYS_openat, {EMFILE, ENFILE, EACCES, ENOENT, EINTR, EIO}, -40},
          {"read", SYS_read, {EIO, EISDIR}, -35},
          {"read", SYS_read, {shortened}, 0},
          {"close", SYS_close, {EIO, EINTR}, 0}}},
        {"StartTheLog",
         start_the_log,
         {{"openat", SYS_openat, {EMFILE, EACCES, ENOENT, EINTR}, 0},
          {"read", SYS_read, {EIO}, 0},
          {"read", SYS_read, {shortened}, 0},
          {"close", SYS_close, {EIO}, 0}}},
        {"LogALine", log_a_line, {{"write", SYS_write, {EINTR, EAGAIN, EPIPE, ENOSPC, EIO, EBADF, shortened}, 0}}},
        {"LogALongLine",
         log_a_long_line,
         {{"writev", SYS_writev, {EINTR, EAGAIN, EPIPE, ENOSPC, EIO, EBADF, shortened}, 0}}},
        {"ReadLines", read_lines, {{"read", SYS_read, {EIO, EINTR, shortened}, std::nullopt}}},
        {"RenameAnUpload", rename_an_upload, {{"rename", SYS_rename, {EACCES, EROFS, ENOSPC, EXDEV, EIO, ENOENT}, -1}}},
        {"RunACommand", run_a_command, command_rows(-1)},
        {"RunAProgram", run_a_program, command_rows(-1)},
        {"SumAFile",
         sum_a_file,
         {{"pipe2", SYS_pipe2, {EMFILE, ENFILE}, -1, "popen"},
          {"clone3", SYS_clone3, {ENOMEM}, -1, "popen", Way::Refused},  // as the C library calls every error
          {"openat", SYS_openat, {EMFILE, EACCES, ENOENT}, -1, "fopen"},
          {"read", SYS_read, {EIO}, -1},
          {"read", SYS_read, {EINTR, shortened}, 0},
          {"wait4", SYS_wait4, {EINTR, ECHILD}, 0}}},
        {"ListFiles", list_files, command_rows(-1)},
        {"ReadTheBoardRevision", read_the_board_revision, command_rows(std::nullopt)},
        {"LaunchAScript",
         launch_a_script,
         {{"clone", SYS_clone, {EAGAIN, ENOMEM}, std::nullopt, nullptr, Way::Refused}}},
        {"StartAThread",
         start_a_thread,
         {{"clone3", SYS_clone3, {EAGAIN, ENOMEM}, std::nullopt, nullptr, Way::Refused}}},
        {"ChangeTheDatabase",
         change_the_database,
         {{"openat", SYS_openat, {EMFILE, EACCES, ENOSPC}, std::nullopt},
          {"pread64", SYS_pread64, {EIO, EINTR, shortened}, std::nullopt},
          {"pwrite64", SYS_pwrite64, {ENOSPC, EIO, EINTR, shortened}, std::nullopt},
          {"fdatasync", SYS_fdatasync, {EIO, ENOSPC}, std::nullopt},
          {"fcntl", SYS_fcntl, {EAGAIN, EACCES, EIO, ENOLCK}, std::nullopt},
          {"newfstatat", SYS_newfstatat, {EIO, ENOMEM}, std::nullopt},
          {"unlink", SYS_unlink, {EACCES, EIO}, std::nullopt},
          {"close", SYS_close, {EIO}, std::nullopt}}},
        {"LookUp",
         look_up,
         {{"openat", SYS_openat, {EMFILE, EACCES, ENOENT}, std::nullopt},
          {"pread64", SYS_pread64, {EIO, EINTR, shortened}, std::nullopt},
          {"fcntl", SYS_fcntl, {EAGAIN, EACCES, EIO}, std::nullopt},
          {"newfstatat", SYS_newfstatat, {EIO, ENOMEM}, std::nullopt}}},
    }),
    name_of<CallScenario>);

}  // namespace
}  // namespace kestro::test
