// The database, shared memory and the configuration file while memory runs out.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "core/owned.hpp"
#include "faults/memory.hpp"
#include "kestro_conf_parser.h"
#include "kestro_db_api.h"
#include "kestro_lsyslog.h"
#include "kestro_shm.h"
#include "kestro_sqlite3.h"
#include "support/database.hpp"
#include "support/log.hpp"
#include "support/named.hpp"
#include "support/shm_name.hpp"

namespace kestro::test {
namespace {

std::string new_database(const Trial& trial) {
  std::string path = trial.directory() + "/test.db";
  Database(path).run("CREATE TABLE port(id INTEGER PRIMARY KEY, name TEXT); INSERT INTO port VALUES(1, 'one')");
  return path;
}

// A connection for a scenario, closed at its end.
using Connection = Owned<sqlite3, sqlite3_close>;
Connection connection_to(const std::string& path) {
  sqlite3* raw = nullptr;
  EXPECT_EQ(kestro_db_open_file(&raw, path.c_str()), 0);
  return Connection(raw);
}

void open_and_close(Trial& trial) {
  const LogLevel level(Verbose);
  const auto path = new_database(trial);
  sqlite3* db = nullptr;
  const auto opened = trial.call({-7}, [&] { return kestro_db_open_file(&db, path.c_str()); });
  EXPECT_EQ(db != nullptr, opened == 0);
  if (opened == 0) {
    trial.call({}, [&] { return kestro_db_close(db); });
  }
  db = nullptr;
  const auto ensured = trial.call({-7}, [&] { return kestro_db_ensure_open_file(&db, path.c_str()); });
  EXPECT_EQ(db != nullptr, ensured == 0);
  if (ensured == 0) {
    EXPECT_EQ(kestro_db_close(db), 0);
  }
}

void look_up(Trial& trial) {
  const LogLevel level(Verbose);
  const auto path = new_database(trial);
  const auto db = connection_to(path);
  int64_t number = -2;
  const auto found = trial.call({-1}, [&] {
    return kestro_db_get_single_id_result(db.get(), path.c_str(), "port", &number, "SELECT id FROM port WHERE id = %d",
                                          1);
  });
  EXPECT_EQ(number, found == 0 ? 1 : -2);
  std::array<char, 16> text = {'w', 'a', 's'};
  const auto read = trial.call({SQLITE_NOMEM}, [&] {
    return kestro_sqlite3_get_single_string_result(db.get(), text.data(), text.size(), "SELECT name FROM port");
  });
  EXPECT_STREQ(text.data(), read == 0 ? "one" : "was");
}

void use_statements(Trial& trial) {
  const LogLevel level(Verbose);
  const auto path = new_database(trial);
  const auto db = connection_to(path);
  sqlite3_stmt* raw = nullptr;
  const auto prepared = trial.call(
      {-7}, [&] { return kestro_db_prepare_statement(db.get(), path.c_str(), &raw, "SELECT count(*) FROM port"); });
  EXPECT_EQ(raw != nullptr, prepared == 0);
  if (prepared == 0) {
    int64_t count = -2;
    const auto stepped = trial.call({-7}, [&] { return kestro_sqlite3_step_get_int(raw, &count); });
    EXPECT_EQ(count, stepped == 0 ? 1 : -2);
  }
  sqlite3_finalize(raw);
  const auto write =
      trial.call({SQLITE_NOMEM}, [&] { return kestro_sqlite3_prepare_sql(db.get(), &raw, "DELETE FROM port"); });
  EXPECT_EQ(raw != nullptr, write == 0);
  if (write == 0) {
    trial.call({-7}, [&] { return kestro_sqlite3_step_write(raw); });
  }
  sqlite3_finalize(raw);
}

// A transaction happens whole, or not at all.
void change_in_a_transaction(Trial& trial) {
  const LogLevel level(Verbose);
  const auto path = new_database(trial);
  bool committed = false;
  {
    const auto db = connection_to(path);
    const auto begun = trial.call({-7}, [&] { return kestro_db_open_transaction(db.get()); });
    const auto written = trial.call({SQLITE_NOMEM, SQLITE_IOERR, SQLITE_IOERR_NOMEM}, [&] {
      return kestro_sqlite3_exec_sql(db.get(), "INSERT INTO port VALUES(%d, 'new')", 2);
    });
    if (begun == 0 && written == 0) {
      committed = trial.call({-7}, [&] { return kestro_db_commit_transaction(db.get()); }) == 0;
    }
    if (begun == 0 && !committed && sqlite3_get_autocommit(db.get()) == 0) {
      trial.call({-7}, [&] { return kestro_db_rollback_transaction(db.get()); });
    }
    if (begun != 0 && written == 0) committed = true;
  }
  const Database after(path);
  EXPECT_EQ(after.value("PRAGMA integrity_check"), "ok");
  if (committed) {
    EXPECT_EQ(after.number("SELECT count(*) FROM port"), 2);
  } else {
    EXPECT_LE(after.number("SELECT count(*) FROM port"), 2);
  }
}

void share_variables(Trial& trial) {
  const LogLevel level(Verbose);
  const ShmName name;
  const ShmName nobodys;
  std::array<char, 16> text{};
  trial.call({-1}, [&] { return kestro_shm_create(name.c_str(), text.size()); });
  trial.call({-1}, [&] { return kestro_shm_set_string(name.c_str(), text.size(), "a text"); });
  trial.call({-1}, [&] { return kestro_shm_get_string(name.c_str(), text.size(), text.data()); });
  EXPECT_TRUE(trial.excused() || std::string(text.data()) == "a text");
  // Told on standard error, whose own buffer is an allocation.
  trial.make([&] { EXPECT_EQ(kestro_shm_get_string(nobodys.c_str(), text.size(), text.data()), -1); });
}

void read_a_configuration(Trial& trial) {
  const LogLevel level(Verbose);
  const std::string path = trial.directory() + "/test.conf";
  std::ofstream(path) << "[other]\nkey=1\n[section]\n" << std::string(5000, 'x') << "=long\nkey=value\n";
  std::array<char, 16> value = {'w', 'a', 's'};
  const auto status = trial.call(
      {-40, -35}, [&] { return kestro_conf_parser_parse(path.c_str(), "section", "key", value.data(), value.size()); });
  EXPECT_STREQ(value.data(), status == 0 ? "value" : "was");
}

// The level that cannot be read leaves the old one.
void start_and_reload_the_log(Trial& trial) {
  const LogLevel level(Verbose);
  std::filesystem::create_directories(std::filesystem::path(KESTRO_LSYSLOG_CONF_FILE).parent_path());
  std::ofstream(KESTRO_LSYSLOG_CONF_FILE) << "[logging_levels]\nfaults=info\n";
  trial.call({}, [] { return kestro_lsyslog_init("faults"); });
  EXPECT_TRUE(_level == Info || (trial.excused() && _level == Verbose)) << _level;
  trial.call({-40, -35}, [] { return kestro_lsyslog_reload_conf(); });
  std::filesystem::remove(KESTRO_LSYSLOG_CONF_FILE);
  kestro_lsyslog_init(nullptr);
}

INSTANTIATE_TEST_SUITE_P(Storage, MemoryCampaign,
                         testing::ValuesIn(std::vector<MemoryScenario>{
                             {"OpenAndClose", open_and_close},
                             {"LookUp", look_up},
                             {"UseStatements", use_statements},
                             {"ChangeInATransaction", change_in_a_transaction},
                             {"ShareVariables", share_variables},
                             {"ReadAConfiguration", read_a_configuration},
                             {"StartAndReloadTheLog", start_and_reload_the_log},
                         }),
                         name_of<MemoryScenario>);

}  // namespace
}  // namespace kestro::test
