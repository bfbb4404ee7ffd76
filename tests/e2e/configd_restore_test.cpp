// Backups by request: made, put back with the hardware following, refused.
#include <gmock/gmock.h>

#include "e2e/configd.hpp"

namespace kestro::test {
namespace {

constexpr const char* create = R"({"db_filename":"unit.db"})";

TEST(ConfigdBackupService, WhatWasBackedUpComesBackAndTheHardwareFollows) {
  Unit unit;
  unit.register_switch();
  unit.done("ports.SetVlanAccess", R"({"port_id":"c1-1","vlan_id":10})");
  const Json made = json_of(unit.done("db.CreateBackup", create));
  EXPECT_EQ(text_of(json_object_get(made.get(), "db_filename")), R"("unit.db")");
  EXPECT_EQ(json_integer_value(json_object_get(made.get(), "bytes")),
            static_cast<json_int_t>(std::filesystem::file_size(unit.update_file("unit.db"))));

  unit.done("ports.SetVlanAccess", R"({"port_id":"c1-1","vlan_id":20})");
  unit.register_switch("VTR-E10", 2);
  EXPECT_EQ(unit.done("db.ApplyBackup", create), R"({"oecs":1})");
  EXPECT_EQ(unit.stored("SELECT vlan_id FROM port_vlan WHERE switch_number = 1"), "10");
  EXPECT_EQ(unit.core_switch().held("1-1", "vlan_ids"), "[10]");
  EXPECT_EQ(unit.call("oec.Get", R"({"oec_id":"c2"})").code, -32022);
  EXPECT_FALSE(unit.is_pending("1"));
  unit.expect_sound_database();
}

TEST(ConfigdBackupService, IsPutBackWhileTheHardwareIsSilentAndAppliedLater) {
  Unit unit("0.3");
  unit.register_switch();
  unit.done("db.CreateBackup", create);
  unit.done("ports.SetEnabled", R"({"port_id":"c1-1","enabled":false})");
  unit.core_switch().be(Mood::deaf);
  EXPECT_EQ(unit.done("db.ApplyBackup", create), R"({"oecs":1})");
  EXPECT_TRUE(unit.is_pending("1"));
  EXPECT_EQ(unit.core_switch().held("1-1", "port_status"), "0");
  unit.core_switch().be(Mood::obedient);
  EXPECT_TRUE(eventually([&] { return unit.core_switch().held("1-1", "port_status") == "1"; }));
  EXPECT_TRUE(eventually([&] { return !unit.is_pending("1"); }));
}

TEST(ConfigdBackupService, BadFilesAreRefusedWithAReasonAndChangeNothing) {
  Unit unit;
  unit.register_switch();
  unit.done("db.CreateBackup", create);
  const auto copy = [&](const std::string& name) {
    std::filesystem::copy_file(unit.update_file("unit.db"), unit.update_file(name));
    return unit.update_file(name);
  };
  std::ofstream(unit.update_file("corrupt.db")) << std::string(10'000, 'x');
  Database(unit.update_file("foreign.db")).run("CREATE TABLE shopping (item)");
  Database(copy("newer.db")).run("PRAGMA user_version = 2");
  std::filesystem::resize_file(copy("cut.db"), 9000);

  const std::string revision = unit.stored("SELECT value FROM setting WHERE name = 'revision'");
  const std::map<std::string, std::string> reasons = {
      {"corrupt.db", "not a database"},
      {"foreign.db", "it is no configuration database"},
      {"newer.db", "it is of version 2, this program knows version 1"},
      {"cut.db", "the file is refused"},
  };
  for (const auto& [name, reason] : reasons) {
    const Answer answer = unit.call("db.ApplyBackup", R"({"db_filename":")" + name + R"("})");
    EXPECT_EQ(answer.code, -32602) << name;
    EXPECT_THAT(answer.message, testing::HasSubstr(reason)) << name;
  }
  const Answer missing = unit.call("db.ApplyBackup", R"({"db_filename":"missing.db"})");
  EXPECT_EQ(missing.code, -32052);
  EXPECT_EQ(missing.message, "missing.db: No such file or directory; backups are looked for in " + unit.update_dir());
  EXPECT_EQ(unit.stored("SELECT value FROM setting WHERE name = 'revision'"), revision);
  EXPECT_FALSE(unit.is_pending("1"));
  unit.expect_sound_database();
}

TEST(ConfigdBackupService, NamesDoNotLeadOutOfTheDirectory) {
  Unit unit;
  for (const char* name : {"..", "/x", "../unit.db", "a/b", "", "-x", "a b", R"(unit.db\n)", R"(\nunit.db)"}) {
    const std::string params = R"({"db_filename":")" + std::string(name) + R"("})";
    EXPECT_EQ(unit.call("db.CreateBackup", params).code, -32602) << name;
    // Names that begin with dashes are renamed first, and that fails where there is no such file.
    EXPECT_EQ(unit.call("db.ApplyBackup", params).code, name[0] == '-' ? -32001 : -32602) << name;
  }
  EXPECT_TRUE(std::filesystem::is_empty(unit.update_dir()));
}

// Killed while it replaces the configuration again and again: one or the other is there, whole.
TEST(ConfigdBackupService, KilledWhileItReplacesItLeavesOneOrTheOther) {
  Unit unit;
  unit.register_switch();
  unit.done("db.CreateBackup", create);
  for (int round = 0; round < 5; ++round) {
    for (int i = 0; i < 10; ++i) unit.send("db.ApplyBackup", create);
    std::this_thread::sleep_for(std::chrono::milliseconds(5 + 9 * round));
    unit.daemon().signal(SIGKILL);
    unit.daemon().wait();
    unit.expect_sound_database();
    EXPECT_EQ(unit.stored("SELECT count(*) FROM port WHERE switch_number = 1"), "8");
    unit.start();
    EXPECT_TRUE(eventually([&] { return !unit.is_pending("1"); })) << unit.daemon().err();
  }
}

}  // namespace
}  // namespace kestro::test
