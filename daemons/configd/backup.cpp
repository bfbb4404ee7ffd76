#include "configd/backup.hpp"

#include <filesystem>
#include <system_error>

#include "common/log.hpp"
#include "configd/durable.hpp"
#include "kestro_db_api.h"
#include "kestro_sqlite3.h"

namespace kestro::configd {

namespace {

constexpr int busy_attempts = 20;
constexpr int busy_pause_ms = 50;
// A configuration takes a few megabytes at most, and is held in memory twice.
constexpr uintmax_t longest_file = 64U << 20;

Connection open_file(const std::string& path, int flags) {
  sqlite3* opened = nullptr;
  const int code = sqlite3_open_v2(path.c_str(), &opened, flags, nullptr);
  Connection db(opened);
  if (code != SQLITE_OK) throw Failure(status::cannot_open_file, sqlite3_errstr(code) + (": " + path));
  return db;
}

// All pages at once, tried again for a while if others are at work. SQLite's code.
int copy_pages(sqlite3* from, sqlite3* to) {
  sqlite3_backup* const backup = sqlite3_backup_init(to, "main", from, "main");
  if (backup == nullptr) return sqlite3_errcode(to);
  int code = SQLITE_BUSY;
  for (int attempt = 0; attempt < busy_attempts && (code == SQLITE_BUSY || code == SQLITE_LOCKED); ++attempt) {
    if (attempt > 0) sqlite3_sleep(busy_pause_ms);
    code = sqlite3_backup_step(backup, -1);
  }
  const int finished = sqlite3_backup_finish(backup);
  return code == SQLITE_DONE ? finished : code;
}

void copy(sqlite3* from, sqlite3* to, const std::string& what) {
  const int code = copy_pages(from, to);
  if (code == SQLITE_OK) return;
  throw Failure(code == SQLITE_BUSY || code == SQLITE_LOCKED ? status::database_busy : status::database_failed,
                what + ": " + sqlite3_errstr(code));
}

Connection copy_in_memory(sqlite3* from, const std::string& what) {
  Connection db = open_file(":memory:", SQLITE_OPEN_READWRITE | SQLITE_OPEN_MEMORY);
  copy(from, db.get(), what);
  kestro_sqlite3_exec_sql(db.get(), "PRAGMA trusted_schema = off");
  return db;
}

void refuse_live_file(const Database& database, const std::string& path) {
  std::error_code neither_there;
  if (std::filesystem::equivalent(database.path(), path, neither_there)) {
    throw Failure(status::validation_failed, "this is the configuration database itself");
  }
}

void write_copy(const Database& database, const std::string& path) {
  const Connection db = open_file(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
  copy(database.handle(), db.get(), "backup");
  if (const std::string flaw = flaw_of(db.get()); !flaw.empty()) {
    throw Failure(status::database_failed, "backup: " + flaw);
  }
}

// The uploaded file, whole and unchanged, in memory.
Connection read_candidate(const std::string& path) {
  std::error_code not_there;
  const auto size = std::filesystem::file_size(path, not_there);
  if (not_there) {
    const std::filesystem::path file(path);
    throw Failure(status::cannot_open_file, file.filename().string() + ": " + not_there.message() +
                                                "; backups are looked for in " + file.parent_path().string());
  }
  if (size > longest_file) throw Failure(status::validation_failed, "the file is too long for a configuration");
  try {
    const Connection file = open_file(path, SQLITE_OPEN_READONLY);
    return copy_in_memory(file.get(), "it cannot be read");
  } catch (const Failure& failure) {
    throw Failure(status::validation_failed, std::string("the file is refused: ") + failure.what());
  }
}

// With every switch pending before anything is replaced: whatever happens afterwards, the hardware will be told.
Connection examined_candidate(const std::string& path) {
  Connection candidate = read_candidate(path);
  if (const std::string flaw = flaw_of(candidate.get()); !flaw.empty()) {
    throw Failure(status::validation_failed, "the file is refused: " + flaw);
  }
  Statement(candidate.get(), "UPDATE edge_switch SET cfg_pending = 1").run();
  return candidate;
}

// Nobody in this process opens the database anew while it is replaced.
class CfgdbLock {
 public:
  CfgdbLock() noexcept { kestro_db_lock_cfgdb(); }
  CfgdbLock(const CfgdbLock&) = delete;
  CfgdbLock& operator=(const CfgdbLock&) = delete;
  ~CfgdbLock() { kestro_db_unlock_cfgdb(); }
};

// SQLite takes back a copy that it could not complete; what is complete and not sound is replaced by what was there.
void replace(const Database& database, sqlite3* candidate) {
  const CfgdbLock lock;
  const Connection before = copy_in_memory(database.handle(), "the present configuration cannot be kept");
  copy(candidate, database.handle(), "the configuration could not be replaced");
  kestro_sqlite3_exec_sql(database.handle(), "PRAGMA journal_mode = delete");
  const std::string flaw = flaw_of(database.handle());
  if (flaw.empty()) return;
  daemons::log_error("the restored configuration is not sound, " + flaw + "; the one before is put back");
  copy(before.get(), database.handle(), "the configuration before could not be put back");
  throw Failure(status::database_failed, "the restored configuration was not sound: " + flaw);
}

}  // namespace

int64_t create_backup(const Database& database, const std::string& path) {
  refuse_live_file(database, path);
  const std::string draft = path + "~";  // no client's name for a file ends so
  std::error_code ignored;
  std::filesystem::remove(draft, ignored);
  try {
    write_copy(database, draft);
    sync_file(draft);
    std::filesystem::rename(draft, path);
  } catch (const std::filesystem::filesystem_error& error) {
    std::filesystem::remove(draft, ignored);
    throw Failure(status::cannot_open_file, error.code().message());
  } catch (const Failure&) {
    std::filesystem::remove(draft, ignored);
    std::filesystem::remove(draft + "-journal", ignored);
    throw;
  }
  sync_name(path);
  return static_cast<int64_t>(std::filesystem::file_size(path));
}

void apply_backup(const Database& database, const std::string& path) {
  refuse_live_file(database, path);
  const Connection candidate = examined_candidate(path);
  replace(database, candidate.get());
}

}  // namespace kestro::configd
