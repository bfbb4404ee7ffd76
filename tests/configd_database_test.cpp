// The configuration database: creating, opening, what its tables refuse, transactions.
#include "configd/database.hpp"

#include <gmock/gmock.h>

#include "configd/schema.hpp"
#include "support/captured_stderr.hpp"
#include "support/database.hpp"
#include "support/log.hpp"
#include "support/named.hpp"
#include "support/temp_dir.hpp"

namespace kestro::test {
namespace {

using configd::Failure;
using configd::Transaction;

constexpr const char* revision = "SELECT value FROM setting WHERE name = 'revision'";

class ConfigdDatabase : public testing::Test {
 protected:
  std::string why_not(const std::string& path) {
    try {
      const configd::Database opened(path);
    } catch (const std::runtime_error& failure) {
      return failure.what();
    }
    return "";
  }

  const LogLevel quiet_{0};
  TempDir dir_;
  const std::string path_ = dir_.file("unit.db");
};

TEST_F(ConfigdDatabase, ANewOneIsSoundAndHasTheUnit) {
  configd::Database::create(path_);
  EXPECT_EQ(why_not(path_), "");
  const Database seen(path_);
  EXPECT_EQ(seen.number("SELECT count(*) FROM port WHERE switch_number = 10001"), 8);
  EXPECT_EQ(seen.number("SELECT count(*) FROM edge_switch"), 1);
  EXPECT_EQ(seen.value("PRAGMA journal_mode"), "delete");
  EXPECT_EQ(seen.number("PRAGMA user_version"), 1);
  EXPECT_FALSE(std::filesystem::exists(path_ + ".new"));
}

TEST_F(ConfigdDatabase, OneThatIsThereIsLeftAlone) {
  dir_.write("unit.db", "mine");
  configd::Database::create(path_);
  EXPECT_EQ(std::filesystem::file_size(path_), 4U);
}

TEST_F(ConfigdDatabase, WhatAKilledProcessLeftIsNoHindrance) {
  dir_.write("unit.db.new", "half of a database");
  configd::Database::create(path_);
  EXPECT_EQ(why_not(path_), "");
}

TEST_F(ConfigdDatabase, AMissingDirectoryIsAnError) {
  EXPECT_THROW(configd::Database::create(dir_.file("none/unit.db")), std::runtime_error);
}

TEST_F(ConfigdDatabase, AMissingOneIsNotCreatedAndToldWhatToDo) {
  EXPECT_EQ(why_not(path_), "there is no database " + path_ + "; start once with --init to create it");
  EXPECT_FALSE(std::filesystem::exists(path_));
}

struct FlawCase {
  std::string name;
  std::string sql;
  std::string flaw;
};
class ConfigdFlaw : public ConfigdDatabase, public testing::WithParamInterface<FlawCase> {};

TEST_P(ConfigdFlaw, IsFound) {
  configd::Database::create(path_);
  Database(path_).run(GetParam().sql);
  EXPECT_EQ(why_not(path_), "the database " + path_ + " cannot be used: " + GetParam().flaw +
                                "; move it away and put a backup in its place");
}

constexpr const char* a_switch =
    "INSERT INTO edge_switch (number, model, mac_address) VALUES (1, 1, '02:00:00:00:00:01');";
const FlawCase flaws[] = {
    {"Foreign", "PRAGMA application_id = 7", "it is no configuration database"},
    {"Newer", "PRAGMA user_version = 2", "it is of version 2, this program knows version 1"},
    {"Older", "PRAGMA user_version = 0", "it is of version 0, this program knows version 1"},
    {"MoreTables", "CREATE TABLE more (x)", "its tables are not those of its version"},
    {"FewerTables", "DROP TABLE dhcp_lease", "its tables are not those of its version"},
    {"ATrigger", "CREATE TRIGGER t AFTER INSERT ON port BEGIN DELETE FROM port; END",
     "its tables are not those of its version"},
    {"Orphan", "INSERT INTO dhcp_lease VALUES ('none', 0, '10.0.0.1', '02:00:00:00:00:01')",
     "it refers to rows that are not there"},
    {"BrokenCheck", "PRAGMA ignore_check_constraints = on; UPDATE port SET vlan_mode = 9 WHERE port_number = 1",
     "it is damaged: CHECK constraint failed in port"},
    {"TooFewPorts", a_switch, "a switch has not the ports of its model"},
    {"OtherPorts", std::string(a_switch) + "INSERT INTO port (switch_number, port_number) VALUES (1, 2)",
     "a switch has not the ports of its model"},
    {"NoUnit", "DELETE FROM port; DELETE FROM edge_switch", "the unit itself is missing"},
    {"NoSetting", "DELETE FROM setting WHERE name = 'revision'", "a setting is missing"},
};
INSTANTIATE_TEST_SUITE_P(Flaws, ConfigdFlaw, testing::ValuesIn(flaws), name_of<FlawCase>);

TEST_F(ConfigdDatabase, ADamagedFileIsRefused) {
  configd::Database::create(path_);
  std::fstream file(path_, std::ios::in | std::ios::out | std::ios::binary);
  file.seekp(4096 * 3);
  file << std::string(4096, 'x');
  file.close();
  EXPECT_THAT(why_not(path_), testing::AnyOf(testing::HasSubstr("it is damaged"), testing::HasSubstr("malformed")));
}

TEST_F(ConfigdDatabase, AFileThatIsNoDatabaseIsRefused) {
  dir_.write("unit.db", std::string(8192, 'x'));
  EXPECT_THAT(why_not(path_), testing::HasSubstr("file is not a database"));
}

struct ConstraintCase {
  std::string name;
  std::string sql;
};
class ConfigdConstraint : public ConfigdDatabase, public testing::WithParamInterface<ConstraintCase> {};

TEST_P(ConfigdConstraint, IsKept) {
  configd::Database::create(path_);
  const configd::Database database(path_);
  database.write("INSERT INTO edge_switch (number, model, mac_address) VALUES (1, 1, '02:00:00:00:00:01')");
  database.write("INSERT INTO port (switch_number, port_number) VALUES (1, 1)");
  database.write("INSERT INTO port_vlan VALUES (1, 1, 0, 10)");
  database.write("INSERT INTO mac_filter VALUES (1, 1, 0, '02:00:00:00:00:01', 'FF:FF:FF:FF:FF:FF')");
  database.write("INSERT INTO dhcp_service VALUES ('a', '10.0.0.0/24', '')");
  database.write("INSERT INTO dhcp_lease VALUES ('a', 0, '10.0.0.1', '02-00-00-00-00-0a')");
  try {
    database.write(GetParam().sql.c_str());
    ADD_FAILURE() << "stored";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.status(), -39) << failure.what();
  }
}

const ConstraintCase constraints[] = {
    {"SwitchZero", "INSERT INTO edge_switch (number, model, mac_address) VALUES (0, 1, '02:00:00:00:00:02')"},
    {"Switch513", "INSERT INTO edge_switch (number, model, mac_address) VALUES (513, 1, '02:00:00:00:00:02')"},
    {"SwitchTwice", "INSERT INTO edge_switch (number, model, mac_address) VALUES (1, 1, '02:00:00:00:00:02')"},
    {"MacTwice", "INSERT INTO edge_switch (number, model, mac_address) VALUES (2, 1, '02:00:00:00:00:01')"},
    {"MacInLowerCase", "INSERT INTO edge_switch (number, model, mac_address) VALUES (2, 1, '02:00:00:00:00:0a')"},
    {"NoMac", "INSERT INTO edge_switch (number, model) VALUES (2, 1)"},
    {"UnknownModel", "INSERT INTO edge_switch (number, model, mac_address) VALUES (2, 0, '02:00:00:00:00:02')"},
    {"ModelTwenty", "INSERT INTO edge_switch (number, model, mac_address) VALUES (2, 20, '02:00:00:00:00:02')"},
    {"LongAlias", "UPDATE edge_switch SET alias = '123456789'"},
    {"LongDescription", "UPDATE edge_switch SET description = printf('%51s', 'x')"},
    {"Pending", "UPDATE edge_switch SET cfg_pending = 2"},
    {"PortOfNoSwitch", "INSERT INTO port (switch_number, port_number) VALUES (2, 1)"},
    {"PortZero", "INSERT INTO port (switch_number, port_number) VALUES (1, 0)"},
    {"Port65", "INSERT INTO port (switch_number, port_number) VALUES (1, 65)"},
    {"PortTwice", "INSERT INTO port (switch_number, port_number) VALUES (1, 1)"},
    {"EnabledTwo", "UPDATE port SET enabled = 2"},
    {"EnabledText", "UPDATE port SET enabled = 'yes'"},
    {"VlanMode", "UPDATE port SET vlan_mode = 4"},
    {"VlanOfNoPort", "INSERT INTO port_vlan VALUES (1, 2, 0, 10)"},
    {"VlanTwice", "INSERT INTO port_vlan VALUES (1, 1, 1, 10)"},
    {"VlanZero", "INSERT INTO port_vlan VALUES (1, 1, 1, 0)"},
    {"Vlan4051", "INSERT INTO port_vlan VALUES (1, 1, 1, 4051)"},
    {"Vlan131", "INSERT INTO port_vlan VALUES (1, 1, 130, 11)"},
    {"FilterTwice", "INSERT INTO mac_filter VALUES (1, 1, 1, '02:00:00:00:00:01', 'FF:FF:FF:FF:FF:FF')"},
    {"FilterOfHeadEnd", "INSERT INTO mac_filter VALUES (10001, 1, 0, '02:00:00:00:00:01', 'FF:FF:FF:FF:FF:FF')"},
    {"Filter65", "INSERT INTO mac_filter VALUES (1, 1, 64, '02:00:00:00:00:02', 'FF:FF:FF:FF:FF:FF')"},
    {"ServiceTwice", "INSERT INTO dhcp_service VALUES ('a', '10.0.0.0/24', '')"},
    {"ServiceWithoutName", "INSERT INTO dhcp_service VALUES ('', '10.0.0.0/24', '')"},
    {"LeaseOfNoService", "INSERT INTO dhcp_lease VALUES ('b', 1, '10.0.0.2', '02:00:00:00:00:01')"},
    {"LeasedIpTwice", "INSERT INTO dhcp_lease VALUES ('a', 1, '10.0.0.1', '02:00:00:00:00:01')"},
    {"LeasedMacTwice", "INSERT INTO dhcp_lease VALUES ('a', 1, '10.0.0.2', '02:00:00:00:00:0A')"},
    {"OtherSetting", "INSERT INTO setting VALUES ('colour', 1)"},
    {"MgmtVlan", "UPDATE setting SET value = 4051 WHERE name = 'mgmt_vlan_id'"},
};
INSTANTIATE_TEST_SUITE_P(Rows, ConfigdConstraint, testing::ValuesIn(constraints), name_of<ConstraintCase>);

class ConfigdTransaction : public ConfigdDatabase {
 protected:
  ConfigdTransaction() { configd::Database::create(path_); }
  void change(const configd::Database& database) {
    database.write("UPDATE port SET enabled = 0 WHERE port_number = 1");
  }
};

TEST_F(ConfigdTransaction, CommitsAndCounts) {
  const configd::Database database(path_);
  {
    Transaction transaction(database);
    change(database);
    transaction.commit();
  }
  EXPECT_EQ(database.number(-1, revision), 1);
  EXPECT_EQ(database.number(-1, "SELECT enabled FROM port WHERE port_number = 1"), 0);
}

TEST_F(ConfigdTransaction, IsTakenBackUnlessCommitted) {
  const configd::Database database(path_);
  {
    const Transaction transaction(database);
    change(database);
  }
  EXPECT_EQ(database.number(-1, revision), 0);
  EXPECT_EQ(database.number(-1, "SELECT enabled FROM port WHERE port_number = 1"), 1);
}

TEST_F(ConfigdTransaction, GivesUpWhereAnotherWriterStays) {
  const configd::Database database(path_);
  const Database other(path_);
  other.run("BEGIN IMMEDIATE");
  try {
    const Transaction transaction(database);
    ADD_FAILURE() << "begun";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.status(), -11);
  }
  other.run("ROLLBACK");
  Transaction afterwards(database);
  afterwards.commit();
}

TEST_F(ConfigdTransaction, GivesUpWhereAReaderStaysInTheWayOfTheCommit) {
  const configd::Database database(path_);
  const Database other(path_);
  other.run("BEGIN; SELECT * FROM port");
  try {
    Transaction transaction(database);
    change(database);
    transaction.commit();
    ADD_FAILURE() << "committed";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.status(), -11);
  }
  other.run("COMMIT");
  EXPECT_EQ(database.number(-1, "SELECT enabled FROM port WHERE port_number = 1"), 1);
  Transaction afterwards(database);
  afterwards.commit();
}

TEST_F(ConfigdTransaction, AFullDiskIsSurvived) {
  const configd::Database database(path_);
  const int32_t pages = database.number(0, "PRAGMA page_count");
  ASSERT_EQ(sqlite3_exec(database.handle(), ("PRAGMA max_page_count = " + std::to_string(pages)).c_str(), nullptr,
                         nullptr, nullptr),
            SQLITE_OK);
  try {
    Transaction transaction(database);
    for (int i = 0; i < 10'000; ++i) {
      database.write("INSERT INTO dhcp_service VALUES (?1, '10.0.0.0/24', '')", std::to_string(i));
    }
    transaction.commit();
    ADD_FAILURE() << "stored";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.status(), -7);
    EXPECT_STREQ(failure.what(), "database: database or disk is full");
  }
  EXPECT_EQ(database.number(-1, "SELECT count(*) FROM dhcp_service"), 0);
  Transaction afterwards(database);
  change(database);
  afterwards.commit();
  EXPECT_EQ(configd::flaw_of(database.handle()), "");
}

TEST_F(ConfigdTransaction, ATextIsStoredWhateverItsLengthAndSigns) {
  const configd::Database database(path_);
  const std::string text = "'; DROP TABLE port; --" + std::string(3000, 'x');
  database.write("INSERT INTO dhcp_service VALUES ('a', ?1, '')", text);
  configd::Statement row = database.prepare("SELECT address_range FROM dhcp_service");
  ASSERT_TRUE(row.step());
  EXPECT_EQ(row.text(0), text);
}

}  // namespace
}  // namespace kestro::test
