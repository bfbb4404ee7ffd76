// One row of a database, one shared-memory variable.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>

#include "core/owned.hpp"
#include "kestro_shm.h"
#include "kestro_sqlite3.h"
#include "work.hpp"

namespace kestro::bench {

namespace {

void expect(bool condition, const char* what) {
  if (!condition) throw std::runtime_error(what);
}

// A table of a hundred ports, opened as the configuration database is.
std::shared_ptr<sqlite3> make_database() {
  sqlite3* db = nullptr;
  const int opened =
      sqlite3_open_v2(":memory:", &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX, nullptr);
  std::shared_ptr<sqlite3> database(db, sqlite3_close);
  expect(opened == SQLITE_OK, "sqlite3_open_v2");
  expect(sqlite3_exec(db,
                      "CREATE TABLE ports (id INTEGER PRIMARY KEY, name TEXT UNIQUE);"
                      "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 100)"
                      "INSERT INTO ports SELECT i, 'c12-' || i FROM n",
                      nullptr, nullptr, nullptr) == SQLITE_OK,
         "sqlite3_exec");
  return database;
}

Pair look_up_row() {
  const auto db = make_database();
  return {repeat([db] {
            int64_t id = 0;
            expect(kestro_sqlite3_get_single_id_result(db.get(), &id, "SELECT id FROM ports WHERE name='%s'",
                                                       "c12-77") == 0,
                   "row");
            benchmark::DoNotOptimize(id);
          }),
          repeat([db] {
            sqlite3_stmt* statement = nullptr;
            sqlite3_prepare_v2(db.get(), "SELECT id FROM ports WHERE name='c12-77'", -1, &statement, nullptr);
            expect(sqlite3_step(statement) == SQLITE_ROW, "row");
            benchmark::DoNotOptimize(sqlite3_column_int64(statement, 0));
            sqlite3_finalize(statement);
          })};
}

// A variable that is gone at the end.
class Variable {
 public:
  explicit Variable(int32_t size) : name_("/kestro-bench-" + std::to_string(::getpid())) {
    expect(kestro_shm_create(name_.c_str(), size) == 0, "kestro_shm_create");
  }
  Variable(const Variable&) = delete;
  Variable& operator=(const Variable&) = delete;
  ~Variable() { ::shm_unlink(name_.c_str()); }
  [[nodiscard]] const char* name() const { return name_.c_str(); }

 private:
  std::string name_;
};

template <class Read>
void read_barely(const char* name, size_t size, Read read) {
  const int fd = ::shm_open(name, O_RDONLY, 0666);
  void* const start = ::mmap(nullptr, size, PROT_READ, MAP_SHARED, fd, 0);
  read(start);
  ::munmap(start, size);
  ::close(fd);
}

Pair read_integer() {
  const auto variable = std::make_shared<Variable>(sizeof(int32_t));
  return {repeat([variable] {
            int32_t value = 0;
            expect(kestro_shm_get_int(variable->name(), &value) == 0, "kestro_shm_get_int");
            benchmark::DoNotOptimize(value);
          }),
          repeat([variable] {
            read_barely(variable->name(), sizeof(int32_t), [](const void* start) {
              benchmark::DoNotOptimize(*static_cast<const volatile int32_t*>(start) + 0);
            });
          })};
}

Pair read_text() {
  constexpr int32_t size = 256;
  const auto variable = std::make_shared<Variable>(size);
  expect(kestro_shm_set_string(variable->name(), size, "in service since 2021-03-04 17:05") == 0, "set");
  return {repeat([variable] {
            std::array<char, size> text;
            expect(kestro_shm_get_string(variable->name(), size, text.data()) == 0, "kestro_shm_get_string");
            benchmark::DoNotOptimize(text);
          }),
          repeat([variable] {
            std::array<char, size> text;
            read_barely(variable->name(), size,
                        [&text](const void* start) { memcpy(text.data(), start, text.size()); });
            benchmark::DoNotOptimize(text);
          })};
}

}  // namespace

std::vector<Work> storage_work() {
  return {
      {.name = "database: one row", .target = 1.10, .prepare = look_up_row},
      {.name = "shared memory: read an integer", .target = 1.05, .prepare = read_integer},
      {.name = "shared memory: read a text", .target = 1.05, .prepare = read_text},
  };
}

}  // namespace kestro::bench
