#include "configd/database.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include "common/log.hpp"
#include "configd/durable.hpp"
#include "configd/schema.hpp"
#include "kestro_data.h"
#include "kestro_db_api.h"
#include "kestro_sqlite3.h"

namespace kestro::configd {

namespace {

constexpr int commit_attempts = 20;  // each waits the connection's own 100 milliseconds

Connection open_raw(const std::string& path, int flags) {
  sqlite3* opened = nullptr;
  const int code = sqlite3_open_v2(path.c_str(), &opened, flags, nullptr);
  Connection db(opened);
  if (code != SQLITE_OK) throw std::runtime_error(path + ": " + sqlite3_errstr(code));
  return db;
}

void run_schema(sqlite3* db, const std::string& where) {
  if (kestro_sqlite3_exec(db, schema_sql, nullptr, nullptr, nullptr) != SQLITE_OK) {
    throw std::runtime_error(where + ": " + sqlite3_errmsg(db));
  }
}

// Removes a file at the end of the scope, however that is reached.
struct Gone {
  const std::string& path;
  ~Gone() { ::unlink(path.c_str()); }
};

// Under a name of its own until it is complete. A file that came meanwhile stays: link() replaces none.
void place_new(const std::string& path) {
  const std::string draft = path + ".new";
  ::unlink(draft.c_str());
  const Gone gone{draft};
  run_schema(open_raw(draft, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE).get(), draft);
  if (::link(draft.c_str(), path.c_str()) == 0 || errno == EEXIST) return;
  throw std::runtime_error("cannot create " + path + ": " + strerror(errno));
}

// Why a file that is there could not be opened.
std::string reason_of(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
  if (fd < 0) return strerror(errno);
  ::close(fd);
  return "out of memory";
}

int64_t number_of(sqlite3* db, const char* sql) {
  Statement query(db, sql);
  return query.step() ? query.integer(0) : 0;
}

std::string text_of(sqlite3* db, const char* sql) {
  Statement query(db, sql);
  return query.step() ? query.text(0) : "";
}

// All definitions, one after the other: two databases with the same have the same schema.
std::string definitions(sqlite3* db) {
  return text_of(db,
                 "SELECT group_concat(sql, char(10)) FROM"
                 " (SELECT sql FROM sqlite_schema WHERE sql IS NOT NULL ORDER BY type, name)");
}

// A switch has the ports of its model, and the unit its own eight.
bool has_ports_of_models(sqlite3* db) {
  constexpr int head_end_ports = 8;
  Statement query(db,
                  "SELECT model, (SELECT count(*) FROM port WHERE switch_number = number),"
                  " (SELECT max(port_number) FROM port WHERE switch_number = number) FROM edge_switch");
  while (query.step()) {
    const int32_t model = query.integer(0);
    const int32_t expected = model == 0 ? head_end_ports : kestro_data_oec_num_of_ports[model];
    if (query.integer(1) != expected || query.integer(2) != expected) return false;
  }
  return true;
}

std::string look_for_flaws(sqlite3* db) {
  const Connection model = new_database_in_memory();
  const int64_t version = number_of(db, "PRAGMA user_version");
  const int64_t known = number_of(model.get(), "PRAGMA user_version");
  if (number_of(db, "PRAGMA application_id") != number_of(model.get(), "PRAGMA application_id")) {
    return "it is no configuration database";
  }
  if (version != known) {
    return "it is of version " + std::to_string(version) + ", this program knows version " + std::to_string(known);
  }
  // What the file itself defines is not evaluated before it is known to be ours.
  if (definitions(db) != definitions(model.get())) return "its tables are not those of its version";
  if (const std::string result = text_of(db, "PRAGMA integrity_check(1)"); result != "ok") {
    return "it is damaged: " + result;
  }
  if (Statement(db, "PRAGMA foreign_key_check").step()) return "it refers to rows that are not there";
  if (!has_ports_of_models(db)) return "a switch has not the ports of its model";
  if (number_of(db, "SELECT count(*) FROM setting") != 2) return "a setting is missing";
  if (number_of(db, "SELECT count(*) FROM edge_switch WHERE number = 10001") != 1) return "the unit itself is missing";
  return "";
}

}  // namespace

Failure database_failure(sqlite3* db) {
  const std::string why = std::string("database: ") + sqlite3_errmsg(db);
  switch (sqlite3_errcode(db)) {
    case SQLITE_BUSY:
      return Failure(status::database_busy, why);
    case SQLITE_CONSTRAINT:
      return Failure(status::constraint_violated, why);
    case SQLITE_NOMEM:
      return Failure(status::out_of_memory, why);
    default:
      return Failure(status::database_failed, why);
  }
}

Statement::Statement(sqlite3* db, const char* sql) : db_(db) {
  sqlite3_stmt* prepared = nullptr;
  // The file name counts only where there is no connection.
  const int32_t status = kestro_db_prepare_statement(db, "", &prepared, sql);
  statement_.reset(prepared);
  if (status != status::ok) throw database_failure(db);
}

void Statement::bind_one(int index, int64_t value) {
  if (sqlite3_bind_int64(statement_.get(), index, value) != SQLITE_OK) throw database_failure(db_);
}

void Statement::bind_one(int index, const std::string& value) {
  if (sqlite3_bind_text(statement_.get(), index, value.data(), static_cast<int>(value.size()), SQLITE_TRANSIENT) !=
      SQLITE_OK) {
    throw database_failure(db_);
  }
}

bool Statement::step() {
  const int code = sqlite3_step(statement_.get());
  if (code != SQLITE_ROW && code != SQLITE_DONE) throw database_failure(db_);
  return code == SQLITE_ROW;
}

void Statement::run() {
  if (kestro_sqlite3_step_write(statement_.get()) != status::ok) throw database_failure(db_);
  sqlite3_reset(statement_.get());
}

int32_t Statement::integer(int column) const {
  return sqlite3_column_int(statement_.get(), column);
}

std::string Statement::text(int column) const {
  const auto* const text = reinterpret_cast<const char*>(sqlite3_column_text(statement_.get(), column));
  return text != nullptr ? text : "";
}

void Database::create(const std::string& path) {
  if (std::filesystem::exists(path)) return;
  place_new(path);
  sync_name(path);
  daemons::log_info("created the database " + path);
}

Database::Database(std::string path) : path_(std::move(path)) {
  if (!std::filesystem::exists(path_)) {
    throw std::runtime_error("there is no database " + path_ + "; start once with --init to create it");
  }
  kestro_db_unlock_cfgdb();
  sqlite3* opened = nullptr;
  const int32_t status = kestro_db_ensure_open_file(&opened, path_.c_str());
  db_.reset(opened);
  if (status != status::ok) {
    throw std::runtime_error("cannot open the database " + path_ + ": " + reason_of(path_));
  }
  kestro_sqlite3_exec_sql(opened, "PRAGMA trusted_schema = off");
  kestro_sqlite3_exec_sql(opened, "PRAGMA journal_mode = delete");
  if (const std::string flaw = flaw_of(opened); !flaw.empty()) {
    throw std::runtime_error("the database " + path_ + " cannot be used: " + flaw +
                             "; move it away and put a backup in its place");
  }
}

Transaction::Transaction(const Database& database) : db_(database.handle()) {
  if (kestro_db_open_transaction(db_) != status::ok) throw database_failure(db_);
  // Tries again while the database is busy, for three seconds at most.
  if (kestro_sqlite3_exec_sql(db_, "UPDATE setting SET value = value + 1 WHERE name = 'revision'") != SQLITE_OK) {
    fail();
  }
}

void Transaction::commit() {
  for (int attempt = 0; attempt < commit_attempts; ++attempt) {
    if (kestro_db_commit_transaction(db_) == status::ok) return;
    if (sqlite3_errcode(db_) != SQLITE_BUSY) break;
  }
  fail();
}

// What failed is asked before the roll-back, which is a statement too.
void Transaction::fail() {
  Failure failure = database_failure(db_);
  roll_back();
  throw Failure(std::move(failure));
}

void Transaction::roll_back() noexcept {
  // Some failures, a full disk among them, have ended the transaction already.
  if (sqlite3_get_autocommit(db_) == 0) kestro_db_rollback_transaction(db_);
}

Connection new_database_in_memory() {
  Connection db = open_raw(":memory:", SQLITE_OPEN_READWRITE | SQLITE_OPEN_MEMORY);
  run_schema(db.get(), "schema");
  return db;
}

std::string flaw_of(sqlite3* db) {
  try {
    return look_for_flaws(db);
  } catch (const Failure& failure) {
    return std::string("it cannot be read: ") + failure.what();
  }
}

}  // namespace kestro::configd
