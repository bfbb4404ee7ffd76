#include "kestro_db_api.h"

#include <atomic>
#include <cstring>
#include <mutex>
#include <utility>

#include "core/owned.hpp"
#include "core/site.hpp"
#include "core/status.hpp"
#include "kestro_sqlite3.h"
#include "kestro_utils.h"

using namespace kestro;

namespace {

constexpr auto here = site_of("kestro_db_api");

using Connection = Owned<sqlite3, sqlite3_close>;

// Guards the flag and the lazy opening. Taken before the execution mutex of kestro_sqlite3_exec, never after it.
constinit std::mutex cfgdb_mut;

// Starts locked: a process says when it is ready for the configuration database.
int8_t kestro_cfgdb_locked = 1;

void set_cfgdb_locked(int8_t locked) noexcept {
  const std::lock_guard lock(cfgdb_mut);
  kestro_cfgdb_locked = locked;
}

// Run on each new connection, whatever they return.
constexpr const char* settings[] = {
    "PRAGMA foreign_keys = on",
    "PRAGMA recursive_triggers = on;",
    "PRAGMA busy_timeout = 100;",
};

// A handle that threads may share: whoever sees it open sees it with its settings.
bool is_open(sqlite3*& db) noexcept {
  return std::atomic_ref(db).load(std::memory_order_acquire) != nullptr;
}

void publish(sqlite3*& db, Connection connection) noexcept {
  std::atomic_ref(db).store(connection.release(), std::memory_order_release);
}

Connection open_connection(const char* filename) noexcept {
  sqlite3* opened = nullptr;
  const int code = sqlite3_open_v2(filename, &opened, SQLITE_OPEN_READWRITE | SQLITE_OPEN_FULLMUTEX, nullptr);
  Connection connection(opened);  // there is a handle even after most failures
  if (code != SQLITE_OK) return nullptr;
  for (const char* const setting : settings) kestro_sqlite3_exec_sql(opened, "%s", setting);
  return connection;
}

bool is_locked_cfgdb(const char* filename) noexcept {
  return kestro_cfgdb_locked != 0 && strcmp(filename, KESTRO_CFGDB_FILE) == 0;
}

// A statement about a transaction, and what is logged when it fails.
struct TransactionStep {
  const char* sql;
  const char* failure;
};
constexpr TransactionStep begin{"BEGIN", "Unable to begin sql transaction due to SQLite error <%d>\n"};
constexpr TransactionStep commit{"COMMIT", "Unable to commit sql transaction due to SQLite error <%d>\n"};
constexpr TransactionStep rollback{"ROLLBACK", "Unable to rollback sql transaction due to SQLite error <%d>\n"};

// Straight to SQLite: a busy database fails a transaction after the connection's own timeout.
int32_t run(const TransactionStep& step, sqlite3* db, Site site) noexcept {
  const int code = sqlite3_exec(db, step.sql, nullptr, nullptr, nullptr);
  if (code == SQLITE_OK) return status::ok;
  return site.fail(Error, status::system_access_error, step.failure, code);
}

}  // namespace

int32_t kestro_db_open_file(sqlite3** db, const char* filename) noexcept {
  if (db != nullptr) publish(*db, nullptr);
  if (kestro_check_for_null(2, db, filename) != status::ok) return status::parameter_error;
  Connection connection = open_connection(filename);
  if (connection == nullptr) {
    return here().fail(Error, status::system_access_error, "Failed to open a database connection to file <%s>\n",
                       filename);
  }
  publish(*db, std::move(connection));
  return status::ok;
}

int32_t kestro_db_open(sqlite3** db) noexcept {
  return kestro_db_open_file(db, KESTRO_CFGDB_FILE);
}

int32_t kestro_db_ensure_open_file(sqlite3** db, const char* filename) noexcept {
  if (kestro_check_for_null(2, db, filename) != status::ok) return status::parameter_error;
  if (is_open(*db)) {
    here().log(Verbose, "Database file <%s> was already open, no further action required.\n", filename);
    return status::ok;
  }

  std::unique_lock lock(cfgdb_mut);
  if (is_open(*db)) return status::ok;
  if (is_locked_cfgdb(filename)) {
    lock.unlock();
    return here().fail(Warning, status::db_busy, "cfgdb is currently locked - not re-opening\n");
  }
  here().log(Debug, "Database file <%s> was not open, opening now...\n", filename);
  return kestro_db_open_file(db, filename);
}

int32_t kestro_db_ensure_open(sqlite3** db) noexcept {
  return kestro_db_ensure_open_file(db, KESTRO_CFGDB_FILE);
}

int32_t kestro_db_close(sqlite3* db) noexcept {
  if (kestro_check_for_null(1, db) != status::ok) return status::parameter_error;
  switch (sqlite3_close(db)) {
    case SQLITE_OK:
      return status::ok;
    case SQLITE_BUSY:
      return status::db_unfinished;
    default:
      return status::system_access_error;
  }
}

void kestro_db_lock_cfgdb(void) noexcept {
  set_cfgdb_locked(1);
}

void kestro_db_unlock_cfgdb(void) noexcept {
  set_cfgdb_locked(0);
}

int32_t kestro_db_prepare_statement(sqlite3* db, const char* db_file, sqlite3_stmt** stmt, const char* query) noexcept {
  if (stmt != nullptr) *stmt = nullptr;
  if (kestro_check_for_null(3, db_file, stmt, query) != status::ok) return status::parameter_error;
  if (const auto opened = kestro_db_ensure_open_file(&db, db_file); opened != status::ok) return opened;

  const int code = sqlite3_prepare_v2(db, query, -1, stmt, nullptr);
  if (code == SQLITE_OK) return status::ok;
  return here().fail(Warning, status::system_access_error, "[RC:%d] Unable to prepare query <%s>\n", code, query);
}

int32_t kestro_db_get_single_id_result_args(sqlite3* db, const char* db_file_name, const char* record_name,
                                            int64_t* result, const char* query, va_list args) noexcept {
  if (kestro_check_for_null(4, db_file_name, record_name, result, query) != status::ok) return status::parameter_error;
  if (const auto opened = kestro_db_ensure_open_file(&db, db_file_name); opened != status::ok) return opened;

  if (kestro_sqlite3_get_single_id_result_args(db, result, query, args) != SQLITE_OK) {
    return here().fail(Verbose, status::general_error, "Unable to get [%s] id/count from database [%s]\n", record_name,
                       db_file_name);
  }
  here().log(Verbose, "Found [%s] id/count <%ld>\n", record_name, *result);
  return status::ok;
}

int32_t kestro_db_get_single_id_result(sqlite3* db, const char* db_file_name, const char* record_name, int64_t* result,
                                       const char* query, ...) noexcept {
  va_list args;
  va_start(args, query);
  const int32_t code = kestro_db_get_single_id_result_args(db, db_file_name, record_name, result, query, args);
  va_end(args);
  return code;
}

int32_t kestro_db_open_transaction(sqlite3* db) noexcept {
  return run(begin, db, here());
}

int32_t kestro_db_commit_transaction(sqlite3* db) noexcept {
  return run(commit, db, here());
}

int32_t kestro_db_rollback_transaction(sqlite3* db) noexcept {
  return run(rollback, db, here());
}
