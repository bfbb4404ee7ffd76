// A database as tests look at it: through SQLite alone.
#ifndef KESTRO_TESTS_DATABASE_HPP
#define KESTRO_TESTS_DATABASE_HPP

#include <sqlite3.h>

#include <stdexcept>
#include <string>

#include "core/owned.hpp"

namespace kestro::test {

class Database {
 public:
  // Creates the file if there is none.
  explicit Database(const std::string& path = ":memory:") {
    sqlite3* opened = nullptr;
    const int code = sqlite3_open(path.c_str(), &opened);
    db_.reset(opened);
    if (code != SQLITE_OK) throw std::runtime_error("cannot open " + path);
  }
  operator sqlite3*() const { return db_.get(); }

  void run(const std::string& sql) const {
    if (sqlite3_exec(*this, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) fail();
  }
  // The first column of the first row, as text; empty when there is no row.
  [[nodiscard]] std::string value(const std::string& sql) const {
    sqlite3_stmt* prepared = nullptr;
    if (sqlite3_prepare_v2(*this, sql.c_str(), -1, &prepared, nullptr) != SQLITE_OK) fail();
    const Owned<sqlite3_stmt, sqlite3_finalize> statement(prepared);
    const int step = sqlite3_step(prepared);
    if (step != SQLITE_ROW && step != SQLITE_DONE) fail();
    const auto* const text = reinterpret_cast<const char*>(sqlite3_column_text(prepared, 0));
    return text != nullptr ? text : "";
  }
  [[nodiscard]] long number(const std::string& sql) const { return std::stol(value(sql)); }

 private:
  [[noreturn]] void fail() const { throw std::runtime_error(sqlite3_errmsg(*this)); }

  Owned<sqlite3, sqlite3_close> db_;
};

}  // namespace kestro::test

#endif
