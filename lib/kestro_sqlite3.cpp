#include "kestro_sqlite3.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <thread>
#include <utility>

#include "core/owned.hpp"
#include "core/site.hpp"
#include "core/status.hpp"
#include "kestro_utils.h"

using namespace kestro;

namespace {

constexpr auto here = site_of("kestro_sqlite3");

constexpr uint16_t max_retries = 20;
constexpr std::chrono::microseconds retry_pause{50'000};

using Statement = Owned<sqlite3_stmt, sqlite3_finalize>;

// SQL made from a format, cut to the buffer.
class Sql {
 public:
  Sql(const char* format, va_list args) noexcept
      : formatted_(vsnprintf(text_.data(), text_.size(), format, args) >= 0) {}
  // False when the values could not be formatted: part of a statement is not to be run.
  explicit operator bool() const noexcept { return formatted_; }
  [[nodiscard]] const char* text() const noexcept { return text_.data(); }

 private:
  std::array<char, 1100> text_{};
  bool formatted_;
};

// Prepares the SQL, steps once, and lets `take` have the row; its result is then the result.
template <class Take>
int32_t take_first_row(sqlite3* db, const char* sql, va_list args, Take take) noexcept {
  sqlite3_stmt* prepared = nullptr;
  const int32_t code = kestro_sqlite3_prepare_sql_args(db, &prepared, sql, args);
  const Statement statement(prepared);
  if (code != SQLITE_OK) return code;
  const int step = sqlite3_step(statement.get());
  return step == SQLITE_ROW ? take(statement.get()) : step;
}

// A text that SQLite could not convert for want of memory is null, too; an empty text must not stand for it.
int32_t copy_text_column(sqlite3* db, sqlite3_stmt* statement, char* result, size_t size) noexcept {
  const unsigned char* const text = sqlite3_column_text(statement, 0);
  if (text == nullptr && sqlite3_errcode(db) == SQLITE_NOMEM) return SQLITE_NOMEM;
  memset(result, 0, size);
  kestro_sqlite3_copy_str(result, size, text);
  return status::ok;
}

}  // namespace

int32_t kestro_sqlite3_prepare_sql_args(sqlite3* db, sqlite3_stmt** stmt, const char* sql, va_list args) noexcept {
  if (stmt != nullptr) *stmt = nullptr;
  if (kestro_check_for_null(3, db, stmt, sql) != status::ok) return status::parameter_error;
  const Sql formatted(sql, args);
  if (!formatted) return status::parameter_error;
  return sqlite3_prepare_v2(db, formatted.text(), -1, stmt, nullptr);
}

int32_t kestro_sqlite3_prepare_sql(sqlite3* db, sqlite3_stmt** stmt, const char* sql, ...) noexcept {
  va_list args;
  va_start(args, sql);
  const int32_t result = kestro_sqlite3_prepare_sql_args(db, stmt, sql, args);
  va_end(args);
  return result;
}

int32_t kestro_sqlite3_get_single_id_result_args(sqlite3* db, int64_t* result, const char* sql, va_list args) noexcept {
  if (kestro_check_for_null(3, db, result, sql) != status::ok) return status::parameter_error;
  return take_first_row(db, sql, args, [result](sqlite3_stmt* row) noexcept {
    *result = sqlite3_column_int64(row, 0);
    return status::ok;
  });
}

int32_t kestro_sqlite3_get_single_id_result(sqlite3* db, int64_t* result, const char* sql, ...) noexcept {
  va_list args;
  va_start(args, sql);
  const int32_t code = kestro_sqlite3_get_single_id_result_args(db, result, sql, args);
  va_end(args);
  return code;
}

int32_t kestro_sqlite3_get_single_string_result(sqlite3* db, char* result, int32_t result_length, const char* sql,
                                                ...) noexcept {
  if (kestro_check_for_null(3, db, result, sql) != status::ok) return status::parameter_error;
  if (result_length < 1) return status::parameter_error;
  va_list args;
  va_start(args, sql);
  const int32_t code = take_first_row(db, sql, args, [=](sqlite3_stmt* row) noexcept {
    return copy_text_column(db, row, result, static_cast<size_t>(result_length));
  });
  va_end(args);
  return code;
}

int32_t kestro_sqlite3_step_get_int(sqlite3_stmt* stmt, int64_t* val) noexcept {
  if (kestro_check_for_null(1, val) != status::ok) return status::parameter_error;
  if (sqlite3_step(stmt) != SQLITE_ROW) return status::system_access_error;
  *val = sqlite3_column_int64(stmt, 0);
  return status::ok;
}

int32_t _kestro_sqlite3_step_write(sqlite3_stmt* stmt, const char* func_name) noexcept {
  const int code = sqlite3_step(stmt);
  if (code == SQLITE_DONE) return status::ok;
  return here().fail(Error, status::system_access_error, "sql error code %d in %s\n", code, func_name);
}

int32_t kestro_sqlite3_exec(sqlite3* db, const char* sql, int (*callback)(void*, int, char**, char**), void* arg1,
                            char** errmsg) noexcept {
  static constinit std::mutex exec_mut;
  const std::lock_guard lock(exec_mut);

  int code = sqlite3_exec(db, sql, callback, arg1, errmsg);
  for (uint16_t retry = 1; code == SQLITE_BUSY && retry <= max_retries; ++retry) {
    here().log(Debug, "DB Busy! retry #%hu...\n", retry);
    if (errmsg != nullptr) sqlite3_free(std::exchange(*errmsg, nullptr));
    std::this_thread::sleep_for(retry_pause);
    code = sqlite3_exec(db, sql, callback, arg1, errmsg);
  }
  return code;
}

int32_t kestro_sqlite3_exec_sql(sqlite3* db, const char* sql, ...) noexcept {
  if (kestro_check_for_null(2, db, sql) != status::ok) return status::parameter_error;
  va_list args;
  va_start(args, sql);
  const Sql formatted(sql, args);
  va_end(args);
  if (!formatted) return status::parameter_error;
  return kestro_sqlite3_exec(db, formatted.text(), nullptr, nullptr, nullptr);
}

int32_t kestro_sqlite3_copy_str(char* dest, size_t sz, const unsigned char* src) noexcept {
  const int length = snprintf(dest, sz, "%s", src != nullptr ? reinterpret_cast<const char*>(src) : "");
  if (sz > 0) dest[sz - 1] = '\0';
  return length;
}

void kestro_sqlite3_lock(kestro_stmt* stmt) noexcept {
  pthread_mutex_lock(&stmt->stmt_lk);
}

void kestro_sqlite3_unlock(kestro_stmt* stmt) noexcept {
  pthread_mutex_unlock(&stmt->stmt_lk);
}

void kestro_sqlite3_finalize(kestro_stmt* stmt) noexcept {
  kestro_sqlite3_lock(stmt);
  sqlite3_finalize(std::exchange(stmt->stmt, nullptr));
  kestro_sqlite3_unlock(stmt);
}
