// The configuration database: one connection, statements with bound values, transactions that write.
//
// It keeps SQLite's rollback journal rather than a write-ahead log: between transactions the one file is all there is, so
// that whoever copies it has everything, and a process that is killed leaves at most a journal that the next one rolls
// back. There is one writer, and it writes when people change things: what a write-ahead log is good for is not needed.
#ifndef KESTRO_CONFIGD_DATABASE_HPP
#define KESTRO_CONFIGD_DATABASE_HPP

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <string>

#include "configd/failure.hpp"

namespace kestro::configd {

// A prepared statement. Values are bound, never formatted: they come from outside, and may be long.
class Statement {
 public:
  Statement(sqlite3* db, const char* sql);

  // Binds the values to ?1, ?2, ...; texts are copied.
  template <class... Values>
  Statement& bind(const Values&... values) {
    int index = 0;
    (bind_one(++index, values), ...);
    return *this;
  }
  // The next row, if there is one.
  bool step();
  // Runs what gives no rows, and is ready to be bound again.
  void run();

  [[nodiscard]] int32_t integer(int column) const;
  [[nodiscard]] std::string text(int column) const;

 private:
  struct Finalize {
    void operator()(sqlite3_stmt* statement) const noexcept { sqlite3_finalize(statement); }
  };

  void bind_one(int index, int64_t value);
  void bind_one(int index, const std::string& value);

  sqlite3* db_;
  std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

struct CloseConnection {
  void operator()(sqlite3* db) const noexcept { sqlite3_close(db); }
};
using Connection = std::unique_ptr<sqlite3, CloseConnection>;

class Database {
 public:
  // Creates the file with the schema, unless there is one: whole, or not at all. Throws std::runtime_error.
  static void create(const std::string& path);

  // Opens the file and examines it. Throws std::runtime_error, saying what to do, when it is not there or not sound.
  explicit Database(std::string path);

  [[nodiscard]] const std::string& path() const noexcept { return path_; }
  [[nodiscard]] sqlite3* handle() const noexcept { return db_.get(); }
  [[nodiscard]] Statement prepare(const char* sql) const { return {handle(), sql}; }

  // The first column of the first row; `otherwise` where there is no row.
  template <class... Values>
  [[nodiscard]] int32_t number(int32_t otherwise, const char* sql, const Values&... values) const {
    Statement query = prepare(sql);
    return query.bind(values...).step() ? query.integer(0) : otherwise;
  }
  // Runs one statement that writes.
  template <class... Values>
  void write(const char* sql, const Values&... values) const {
    prepare(sql).bind(values...).run();
  }

 private:
  std::string path_;
  Connection db_;
};

// Rolled back at the end of the scope unless committed. It begins with a write, the count of changes: a transaction that
// began with reading could find its first write busy for as long as it lasts. While another process writes it waits a
// bounded time, here and at the end, and then fails with "busy".
class Transaction {
 public:
  explicit Transaction(const Database& database);
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  ~Transaction() { roll_back(); }

  void commit();

 private:
  [[noreturn]] void fail();
  void roll_back() noexcept;

  sqlite3* db_;
};

// An in-memory database with the schema, as --init leaves it.
Connection new_database_in_memory();

// What is wrong with a database, in words; empty when it is a sound configuration of this version.
std::string flaw_of(sqlite3* db);

// SQLite's code as a failure of the service.
[[nodiscard]] Failure database_failure(sqlite3* db);

}  // namespace kestro::configd

#endif
