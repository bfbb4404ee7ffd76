// How the configuration service starts, and what it says when it cannot.
#include <gmock/gmock.h>

#include "e2e/configd.hpp"
#include "support/named.hpp"

namespace kestro::test {
namespace {

struct CommandLine {
  std::string name;
  std::vector<std::string> arguments;
  int status;
  std::string says;
};
class ConfigdCommandLine : public testing::TestWithParam<CommandLine> {};

TEST_P(ConfigdCommandLine, EndsWithItsStatus) {
  const TempDir dir;
  std::vector<std::string> arguments = {KESTRO_CONFIGD};
  for (const auto& argument : GetParam().arguments) {
    arguments.push_back(argument == "DATABASE" ? dir.file("none.db") : argument);
  }
  Process daemon(arguments);
  EXPECT_EQ(daemon.wait(), GetParam().status);
  EXPECT_THAT(daemon.out() + daemon.err(), testing::HasSubstr(GetParam().says));
}

const CommandLine command_lines[] = {
    {"Help", {"--help"}, 0, "Example:"},
    {"Version", {"--version"}, 0, "kestro-configd " KESTRO_VERSION},
    {"Nothing", {}, 2, "kestro-configd: --bus-publish is required\n"},
    {"NoBusAddress", {"--bus-publish", "here", "--bus-subscribe", "tcp://127.0.0.1:1"}, 2, "a bus address looks like"},
    {"TimeOutOfNothing",
     {"--bus-publish", "tcp://127.0.0.1:1", "--bus-subscribe", "tcp://127.0.0.1:2", "--hardware-timeout", "0"},
     2,
     "--hardware-timeout: 0.01 to 60 seconds are expected\n"},
    {"TimeOutOfNoNumber",
     {"--bus-publish", "tcp://127.0.0.1:1", "--bus-subscribe", "tcp://127.0.0.1:2", "--hardware-timeout", "nan"},
     2,
     "--hardware-timeout: 0.01 to 60 seconds are expected\n"},
    {"DatabaseOfNoName",
     {"--init", "--bus-publish", "tcp://127.0.0.1:1", "--bus-subscribe", "tcp://127.0.0.1:2", "--database", ""},
     2,
     "--database: a path is expected\n"},
    {"BackupsNowhere",
     {"--bus-publish", "tcp://127.0.0.1:1", "--bus-subscribe", "tcp://127.0.0.1:2", "--update-dir", ""},
     2,
     "--update-dir: a path is expected\n"},
    {"NoDatabase",
     {"--bus-publish", "tcp://127.0.0.1:1", "--bus-subscribe", "tcp://127.0.0.1:2", "--database", "DATABASE"},
     1,
     "start once with --init to create it"},
    {"NoPlaceForADatabase",
     {"--init", "--bus-publish", "tcp://127.0.0.1:1", "--bus-subscribe", "tcp://127.0.0.1:2", "--database",
      "/dev/null/x"},
     1,
     "/dev/null/x"},
};
INSTANTIATE_TEST_SUITE_P(Rows, ConfigdCommandLine, testing::ValuesIn(command_lines), name_of<CommandLine>);

TEST(ConfigdStart, ADamagedDatabaseIsLeftForTheEngineer) {
  const TempDir dir;
  const std::string path = dir.write("unit.db", std::string(10'000, 'x'));
  Process daemon({KESTRO_CONFIGD, "--init", "--bus-publish", free_bus_address(), "--bus-subscribe", free_bus_address(),
                  "--database", path});
  EXPECT_EQ(daemon.wait(), 1);
  EXPECT_THAT(daemon.err(), testing::HasSubstr("put a backup in its place"));
  EXPECT_EQ(std::filesystem::file_size(path), 10'000U);
}

TEST(ConfigdStart, ADatabaseThatCannotBeOpenedIsToldWithTheReason) {
  const TempDir dir;
  Process daemon({KESTRO_CONFIGD, "--bus-publish", free_bus_address(), "--bus-subscribe", free_bus_address(),
                  "--database", dir.path().string()});
  EXPECT_EQ(daemon.wait(), 1);
  EXPECT_THAT(daemon.err(), testing::HasSubstr("cannot open the database " + dir.path().string() + ": Is a directory"));
}

TEST(ConfigdStart, AnAddressInUseIsAnError) {
  BusSocket holder(KESTRO_MQ_SP_PUB);
  const std::string address = free_bus_address();
  holder.bind(address);
  const TempDir dir;
  Process daemon({KESTRO_CONFIGD, "--init", "--bus-publish", address, "--bus-subscribe", free_bus_address(),
                  "--database", dir.file("unit.db")});
  EXPECT_EQ(daemon.wait(), 1);
  EXPECT_THAT(daemon.err(), testing::HasSubstr("cannot publish at " + address + ": Address already in use"));
}

TEST(ConfigdStart, AMissingDirectoryOfBackupsIsToldAtOnce) {
  const TempDir dir;
  const std::string missing = dir.file("none");
  Process daemon({KESTRO_CONFIGD, "--init", "--bus-publish", free_bus_address(), "--bus-subscribe", free_bus_address(),
                  "--database", dir.file("unit.db"), "--update-dir", missing});
  EXPECT_TRUE(eventually([&] {
    return count_log_lines(daemon.err(), Warning, "",
                           "there is no directory " + missing + ": no backup can be written or applied\n") == 1;
  })) << daemon.err();
  EXPECT_EQ(daemon.terminate(), 0);
}

TEST(ConfigdStart, WhatIsStoredIsThereAfterARestart) {
  Unit unit;
  unit.register_switch();
  unit.done("ports.SetDescription", R"({"port_id":"c1-1","description":"camera"})");
  const std::string before = unit.done("ports.Get", R"({"port_id":"all"})");
  EXPECT_EQ(unit.daemon().terminate(), 0);
  unit.start();
  EXPECT_EQ(unit.done("ports.Get", R"({"port_id":"all"})"), before);
}

TEST(ConfigdStart, RequestsOfAnyShapeAreSurvived) {
  Unit unit;
  for (const char* params : {"[]", "5", "null", "{", "\"\"", R"({"port_id":{"port_id":1}})"}) {
    unit.send("ports.Get", params);
  }
  EXPECT_EQ(unit.done("oec.List", "{}"), "[]");
}

TEST(ConfigdStart, WhatClientsWriteBeginsNoLineOfTheLog) {
  Unit unit;
  unit.done("dhcp.SetService", R"({"service_name":"a\u001b[31mb\n","address_range":"10.0.0.0/24","dhcp_range":"",)"
                               R"("static_leases":[]})");
  EXPECT_TRUE(unit.logs("DHCP service a?[31mb?: is now 10.0.0.0/24 "));
}

// Someone has the database open and writes: calls fail as busy, and work again.
TEST(ConfigdStart, ABusyDatabaseIsSurvived) {
  Unit unit;
  unit.register_switch();
  {
    const Database other(unit.database());
    other.run("PRAGMA busy_timeout = 10000; BEGIN IMMEDIATE");
    const Answer answer = unit.call("ports.SetDescription", R"({"port_id":"c1-1","description":"x"})");
    EXPECT_EQ(answer.code, -32010);
    EXPECT_THAT(answer.message, testing::HasSubstr("locked"));
    EXPECT_EQ(unit.call("ports.SetEnabled", R"({"port_id":"c1-1","enabled":false})").code, -32010);
    other.run("ROLLBACK");
  }
  unit.done("ports.SetEnabled", R"({"port_id":"c1-1","enabled":false})");
}

// The hardware did it, and storing fails at the last step: the hardware is put back.
TEST(ConfigdStart, ACommitThatFailsIsTakenBackInTheHardware) {
  Unit unit;
  unit.register_switch();
  {
    const Database reader(unit.database());
    unit.core_switch().be(Mood::holding);
    const auto number = unit.send("ports.SetEnabled", R"({"port_id":"c1-1","enabled":false})");
    ASSERT_TRUE(eventually([&] { return unit.core_switch().held("1-1", "port_status") == "0"; }));
    reader.run("BEGIN; SELECT * FROM port");
    unit.core_switch().be(Mood::obedient);
    unit.core_switch().answer_what_was_kept();
    EXPECT_EQ(unit.receive(number).code, -32010);
    reader.run("COMMIT");
  }
  EXPECT_EQ(unit.stored("SELECT enabled FROM port WHERE switch_number = 1 AND port_number = 1"), "1");
  EXPECT_TRUE(eventually([&] { return unit.core_switch().held("1-1", "port_status") == "1"; }));
  EXPECT_TRUE(eventually([&] { return !unit.is_pending("1"); }));
}

}  // namespace
}  // namespace kestro::test
