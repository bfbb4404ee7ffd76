// Backups: written whole or not at all; what is no sound configuration never replaces one.
#include "configd/backup.hpp"

#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "core/status.hpp"
#include "support/captured_stderr.hpp"
#include "support/database.hpp"
#include "support/faults.hpp"
#include "support/log.hpp"
#include "support/named.hpp"
#include "support/temp_dir.hpp"

namespace kestro::test {
namespace {

using configd::Failure;

class ConfigdBackup : public testing::Test {
 protected:
  ConfigdBackup() {
    configd::Database::create(path_);
    database_ = std::make_unique<configd::Database>(path_);
    database_->write("INSERT INTO dhcp_service VALUES ('kept', '10.0.0.0/24', '')");
    database_->write("UPDATE edge_switch SET cfg_pending = 0");
  }
  // The status with which it is refused, and why.
  std::pair<int32_t, std::string> refusal(const std::string& path) {
    try {
      configd::apply_backup(*database_, path);
    } catch (const Failure& failure) {
      return {failure.status(), failure.what()};
    }
    return {0, ""};
  }
  std::string live_bytes() {
    std::stringstream bytes;
    // The live file must not be opened by the process that has it open: the shell reads it.
    const std::string copy = dir_.file("copy");
    EXPECT_EQ(system(("cp " + path_ + " " + copy).c_str()), 0);
    bytes << std::ifstream(copy, std::ios::binary).rdbuf();
    return bytes.str();
  }
  [[nodiscard]] std::vector<std::string> files() const {
    std::vector<std::string> names;
    for (const auto& file : std::filesystem::directory_iterator(dir_.path())) names.push_back(file.path().filename());
    return names;
  }
  int32_t services() { return database_->number(-1, "SELECT count(*) FROM dhcp_service WHERE name = 'kept'"); }

  const LogLevel quiet_{0};
  TempDir dir_;
  const std::string path_ = dir_.file("live.db");
  const std::string backup_ = dir_.file("backup.db");
  std::unique_ptr<configd::Database> database_;
};

TEST_F(ConfigdBackup, ACopyIsWholeAndOneFile) {
  const int64_t bytes = configd::create_backup(*database_, backup_);
  EXPECT_EQ(bytes, static_cast<int64_t>(std::filesystem::file_size(backup_)));
  EXPECT_EQ(Database(backup_).value("SELECT name FROM dhcp_service"), "kept");
  EXPECT_THAT(files(), testing::UnorderedElementsAre("live.db", "backup.db"));
}

TEST_F(ConfigdBackup, ACopyThatMayNotBeOnTheDiskIsNone) {
  const Fault fault("fsync", EIO);
  try {
    configd::create_backup(*database_, backup_);
    FAIL() << "it was called written";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.status(), status::cannot_open_file);
    EXPECT_STREQ(failure.what(), "Input/output error");
  }
  EXPECT_THAT(files(), testing::UnorderedElementsAre("live.db"));
}

TEST_F(ConfigdBackup, ANameThatMayNotLastIsToldInTheLog) {
  const LogLevel level(Warning);
  const std::string log = stderr_of([&] {
    const Fault fault("fsync", EIO, 2);
    EXPECT_GT(configd::create_backup(*database_, backup_), 0);
  });
  EXPECT_EQ(count_log_lines(log, Warning, "", backup_ + " may not last through a power cut: Input/output error\n"), 1);
}

TEST_F(ConfigdBackup, ACopyLeavesOthersAlone) {
  dir_.write("backup.db.new", "another one");
  configd::create_backup(*database_, backup_);
  EXPECT_EQ(std::filesystem::file_size(backup_ + ".new"), strlen("another one"));
}

TEST_F(ConfigdBackup, AnOlderCopyIsReplaced) {
  dir_.write("backup.db", "of yesterday");
  dir_.write("backup.db~", "half");
  configd::create_backup(*database_, backup_);
  EXPECT_EQ(Database(backup_).value("SELECT name FROM dhcp_service"), "kept");
}

TEST_F(ConfigdBackup, WithoutADirectoryThereIsNone) {
  EXPECT_THROW(configd::create_backup(*database_, dir_.file("none/backup.db")), Failure);
}

TEST_F(ConfigdBackup, OntoADirectoryThereIsNone) {
  std::filesystem::create_directories(dir_.file("backup.db/occupied"));
  try {
    configd::create_backup(*database_, backup_);
    ADD_FAILURE();
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.status(), -40);
  }
  EXPECT_THAT(files(), testing::UnorderedElementsAre("live.db", "backup.db"));
}

TEST_F(ConfigdBackup, TheDatabaseIsNoBackupOfItself) {
  EXPECT_THROW(configd::create_backup(*database_, path_), Failure);
  EXPECT_EQ(refusal(path_).second, "this is the configuration database itself");
  EXPECT_EQ(services(), 1);
}

TEST_F(ConfigdBackup, IsPutBackWithEverySwitchPending) {
  configd::create_backup(*database_, backup_);
  database_->write("DELETE FROM dhcp_service");
  EXPECT_EQ(refusal(backup_).first, 0);
  EXPECT_EQ(services(), 1);
  EXPECT_EQ(database_->number(-1, "SELECT cfg_pending FROM edge_switch WHERE number = 10001"), 1);
  EXPECT_EQ(Database(backup_).number("SELECT cfg_pending FROM edge_switch WHERE number = 10001"), 0);
}

TEST_F(ConfigdBackup, AMissingFileIsToldApart) {
  EXPECT_EQ(refusal(backup_).first, -40);
}

// What arrives as a backup, made from a sound one.
struct FileCase {
  std::string name;
  void (*spoil)(const std::string& path);
  std::string why;
};

void write_at(const std::string& path, std::streamoff offset, const std::string& bytes) {
  std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
  file.seekp(offset);
  file << bytes;
}

class ConfigdBadBackup : public ConfigdBackup, public testing::WithParamInterface<FileCase> {};

TEST_P(ConfigdBadBackup, IsRefusedAndNothingIsTouched) {
  configd::create_backup(*database_, backup_);
  GetParam().spoil(backup_);
  const std::string before = live_bytes();
  const auto [status, why] = refusal(backup_);
  EXPECT_EQ(status, -34);
  EXPECT_THAT(why, testing::StartsWith("the file is refused: "));
  EXPECT_THAT(why, testing::HasSubstr(GetParam().why));
  EXPECT_TRUE(live_bytes() == before);
  EXPECT_EQ(configd::flaw_of(database_->handle()), "");
}

const FileCase files[] = {
    {"Empty", [](const std::string& path) { std::ofstream(path, std::ios::trunc).flush(); }, "no configuration"},
    {"Text", [](const std::string& path) { std::ofstream(path, std::ios::trunc) << std::string(5000, 'x'); },
     "not a database"},
    {"Cut", [](const std::string& path) { std::filesystem::resize_file(path, 4096 * 5); }, ""},
    {"ATableOverwritten", [](const std::string& path) { write_at(path, 4096L * 3, std::string(4096, 'x')); }, ""},
    {"Foreign", [](const std::string& path) { Database(path).run("PRAGMA application_id = 1"); },
     "it is no configuration database"},
    {"Newer", [](const std::string& path) { Database(path).run("PRAGMA user_version = 2"); },
     "it is of version 2, this program knows version 1"},
    {"Older", [](const std::string& path) { Database(path).run("PRAGMA user_version = 0"); },
     "it is of version 0, this program knows version 1"},
    {"OtherTables", [](const std::string& path) { Database(path).run("DROP TABLE dhcp_lease"); }, "its tables"},
    {"Orphans",
     [](const std::string& path) {
       Database(path).run("INSERT INTO dhcp_lease VALUES ('none', 0, '10.0.0.1', '02:00:00:00:00:01')");
     },
     "rows that are not there"},
    {"ASwitchWithoutPorts",
     [](const std::string& path) {
       Database(path).run("INSERT INTO edge_switch (number, model, mac_address) VALUES (1, 1, '02:00:00:00:00:01')");
     },
     "the ports of its model"},
};
INSTANTIATE_TEST_SUITE_P(Files, ConfigdBadBackup, testing::ValuesIn(files), name_of<FileCase>);

TEST_F(ConfigdBackup, AnotherPageSizeIsNoHindrance) {
  configd::create_backup(*database_, backup_);
  Database(backup_).run("PRAGMA page_size = 1024; VACUUM");
  database_->write("DELETE FROM dhcp_service");
  EXPECT_EQ(refusal(backup_).second, "");
  EXPECT_EQ(services(), 1);
  EXPECT_EQ(configd::flaw_of(database_->handle()), "");
}

TEST_F(ConfigdBackup, AWriteAheadLogIsNotTakenOver) {
  configd::create_backup(*database_, backup_);
  Database(backup_).run("PRAGMA journal_mode = wal");
  EXPECT_EQ(refusal(backup_).second, "");
  EXPECT_EQ(Database(path_).value("PRAGMA journal_mode"), "delete");
  database_->write("DELETE FROM dhcp_service");
  EXPECT_FALSE(std::filesystem::exists(path_ + "-wal"));
}

TEST_F(ConfigdBackup, AReaderInTheWayLeavesTheOldOne) {
  configd::create_backup(*database_, backup_);
  database_->write("DELETE FROM dhcp_service");
  const Database other(path_);
  other.run("BEGIN; SELECT * FROM port");
  EXPECT_EQ(refusal(backup_).first, -11);
  other.run("COMMIT");
  EXPECT_EQ(services(), 0);
  EXPECT_EQ(configd::flaw_of(database_->handle()), "");
  EXPECT_EQ(refusal(backup_).first, 0);
}

TEST_F(ConfigdBackup, AFullDiskLeavesTheOldOne) {
  database_->write(
      "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 2000)"
      " INSERT INTO dhcp_service SELECT i, '10.0.0.0/24', '' FROM n");
  configd::create_backup(*database_, backup_);
  database_->write("DELETE FROM dhcp_service");
  database_->write("VACUUM");
  ASSERT_EQ(sqlite3_exec(database_->handle(), "PRAGMA max_page_count = 10", nullptr, nullptr, nullptr), SQLITE_OK);
  EXPECT_NE(refusal(backup_).first, 0);
  EXPECT_EQ(services(), 0);
  EXPECT_EQ(configd::flaw_of(database_->handle()), "");
}

}  // namespace
}  // namespace kestro::test
