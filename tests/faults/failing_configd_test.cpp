// The configuration service while its allocations and its system calls fail: each caller gets a whole answer, or none,
// the database stays sound, and what was answered is what is stored.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "configd/database.hpp"
#include "e2e/configd.hpp"
#include "faults/failing_process.hpp"
#include "support/named.hpp"

namespace kestro::test {
namespace {

using testing::AnyOf;
using testing::HasSubstr;
using testing::IsEmpty;

const std::vector<FailingCall> database_calls = {
    {"open", {EMFILE, ENOSPC, EINTR}},   {"pread", {0, EINTR, EIO}, false},
    {"pwrite", {0, EINTR, ENOSPC, EIO}}, {"fdatasync", {EIO}},
    {"fcntl", {EAGAIN, ENOLCK, EINTR}},  {"fstat", {EIO}},
    {"unlink", {EACCES, EIO}},           {"close", {EINTR, EIO}},
};

void expect_own_end(Process& daemon, const ControlFile& control) {
  EXPECT_GT(control.failed(), 0) << daemon.err();
  EXPECT_EQ(daemon.wait(), 1) << daemon.err();
  EXPECT_THAT(daemon.err(), HasSubstr("kestro-configd: "));
}

std::vector<std::string> files_in(const std::string& directory) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) names.push_back(entry.path().filename());
  return names;
}

// ---- From the start to the end

class FailingConfigdStart : public FailingStart {
 protected:
  // Starts the daemon where there is no database, and ends it as soon as it is ready.
  void live() {
    const TempDir dir;
    const std::string database = dir.file("configd.db");
    Process daemon({KESTRO_CONFIGD, "--init", "--bus-publish", address, "--bus-subscribe", address_of_others,
                    "--database", database, "--update-dir", dir.path()});
    if (const int status = FailingStart::live(daemon); status != 0) {
      EXPECT_EQ(status, 1) << daemon.err();
      EXPECT_THAT(daemon.err(), HasSubstr("kestro-configd: "));
    }
    expect_whole_or_none(database, daemon.err());
    const bool removal_failed = control->call.data() == std::string("unlink");
    if (!removal_failed) {
      EXPECT_THAT(files_in(dir.path()), AnyOf(IsEmpty(), testing::ElementsAre("configd.db"))) << daemon.err();
    }
  }
  static void expect_whole_or_none(const std::string& path, const std::string& log) {
    if (!std::filesystem::exists(path)) return;
    const Database database(path);
    EXPECT_EQ(configd::flaw_of(database), "") << log;
  }
};

TEST_F(FailingConfigdStart, EachAllocation) {
  campaign.fail_each_allocation(Persistence::Once, 8, [this] { live(); });
  campaign.fail_each_allocation(Persistence::ForEver, 2, [this] { live(); });
  tell("allocations");
}

TEST_F(FailingConfigdStart, EachSystemCall) {
  std::vector<FailingCall> rows = {
      {"signalfd", {EMFILE, ENOMEM}},   {"timerfd_create", {EMFILE, ENOMEM}},
      {"timerfd_settime", {EINVAL}},    {"poll", {EINTR, ENOMEM}},
      {"link", {EACCES, ENOSPC}},       {"fsync", {EIO}},
      {"stat", {EACCES, EIO}},          {"nn_socket", {EMFILE}},
      {"nn_setsockopt", {ENOPROTOOPT}}, {"nn_getsockopt", {ENOPROTOOPT}},
      {"nn_bind", {EADDRINUSE}},        {"nn_connect", {ENODEV}},
  };
  rows.insert(rows.end(), database_calls.begin(), database_calls.end());
  campaign.fail_each_call(rows, 2, [this] { live(); });
  tell("calls");
}

// ---- Requests

struct Operation {
  const char* name;
  const char* method;
  const char* params;
  // Whether it is done.
  bool (*is_done)(const Unit& unit);
  // At rest: so that it can be done once more.
  void (*undo)(Unit& unit);
  std::vector<FailingCall> calls;
};
void nothing_to_undo(Unit& /*unit*/) {}
void PrintTo(const Operation& operation, std::ostream* out) {
  *out << operation.name;
}

std::vector<FailingCall> with(std::vector<FailingCall> calls, const std::vector<FailingCall>& more) {
  calls.insert(calls.end(), more.begin(), more.end());
  return calls;
}

class FailingConfigd : public testing::TestWithParam<Operation> {
 protected:
  void SetUp() override {
    unit = std::make_unique<Unit>("1");
    unit->register_switch();
    must("ports.SetVlanAccess", R"({"port_id":"c1-2","vlan_id":30})");
    must("db.CreateBackup", R"({"db_filename":"with30.db"})");
    must("ports.SetVlanLocal", R"({"port_id":"c1-2"})");
    settle();
  }
  // Everybody is connected, and what is made once is made.
  void settle() {
    EXPECT_TRUE(eventually([this] { return ask() == "0 "; }));
    undo();
    held = descriptors(unit->daemon().pid());
  }

  // Sends the request while things fail. What came: the status of the answer, or nothing.
  std::string ask() {
    const auto number = unit->send(GetParam().method, GetParam().params);
    const auto came = [&] { return unit->has_come(number); };
    const auto over = [&] { return came() || control.failed() > 0 || has_ended(unit->daemon()); };
    EXPECT_TRUE(eventually(over)) << unit->daemon().err();
    // What fails for ever does so for a while.
    const auto more = std::chrono::steady_clock::now() + std::chrono::milliseconds(50);
    while (control->memory.is_for_ever() && std::chrono::steady_clock::now() < more && !came()) {
    }
    control.rest();
    // Requests are served one after the other.
    const auto next = unit->send("oec.List", "{}");
    EXPECT_TRUE(eventually([&] { return unit->has_come(next) || has_ended(unit->daemon()); })) << unit->daemon().err();
    if (!came()) return "";
    const Answer answer = unit->receive(number);
    return std::to_string(answer.code) + " " + answer.message;
  }
  // Nothing fails, but the hardware may still be taken for silent.
  void must(const std::string& method, const std::string& params) {
    EXPECT_TRUE(eventually([&] { return unit->call(method, params).code == 0; })) << unit->daemon().err();
  }
  void undo() {
    must("ports.poe.GetInstantPower", R"({"port_id":"c1-1"})");
    EXPECT_TRUE(eventually([this] {
      if (is_only_read() || !GetParam().is_done(*unit)) return true;
      GetParam().undo(*unit);
      return !GetParam().is_done(*unit);
    })) << unit->daemon().err();
  }
  [[nodiscard]] bool is_only_read() const { return GetParam().undo == nothing_to_undo; }

  void try_once() {
    const std::string status = ask();
    if (has_ended(unit->daemon())) {
      ++ends;
      expect_own_end(unit->daemon(), control);
      expect_sound();
      unit->start();
      settle();
    } else if (status == "0 ") {
      EXPECT_TRUE(GetParam().is_done(*unit)) << unit->daemon().err();
    } else {
      EXPECT_GT(control.failed(), 0) << status << unit->daemon().err();
      // The answer is made when everything is stored, and may fail.
      if (!status.empty() && status != "0 " && GetParam().is_done(*unit)) ++done_nevertheless;
    }
    expect_sound();
    ASSERT_FALSE(HasFailure()) << status << "\n" << unit->daemon().err();
    undo();
  }
  void expect_sound() const {
    const Database database(unit->database());
    database.run("PRAGMA busy_timeout = 10000");
    EXPECT_EQ(configd::flaw_of(database), "");
  }
  void expect_nothing_left() {
    EXPECT_TRUE(eventually([&] { return descriptors(unit->daemon().pid()) <= held; }))
        << descriptors(unit->daemon().pid()) << " instead of " << held;
    EXPECT_THAT(files_in(unit->update_dir()), testing::Each(AnyOf("with30.db", "b.db")));
  }

  void tell() const {
    printf("[   FAULTS ] %d failures, %d ended the daemon, %d after all was stored\n", campaign.trials(), ends,
           done_nevertheless);
  }

  ControlFile control;
  ProgramCampaign campaign{control, From::Trial, Extent::Sparse};
  std::unique_ptr<Unit> unit;
  std::ptrdiff_t held = 0;
  int ends = 0;
  int done_nevertheless = 0;
};

TEST_P(FailingConfigd, EachAllocation) {
  campaign.fail_each_allocation(Persistence::Once, 4, [this] { try_once(); });
  // Which ends the service nearly every time, and starting it takes long.
  const bool one_of_many = std::string_view(GetParam().name) == "SetVlan";
  if (wants_all() || one_of_many) campaign.fail_each_allocation(Persistence::ForEver, 1, [this] { try_once(); });
  expect_nothing_left();
  tell();
}

TEST_P(FailingConfigd, EachSystemCall) {
  const std::vector<FailingCall> always = {
      {"poll", {EINTR, ENOMEM}, false},
      {"nn_recv", {EINTR, ENOMEM}},
      {"nn_send", {EINTR, EBADF}},
  };
  campaign.fail_each_call(with(GetParam().calls, always), 1, [this] { try_once(); });
  expect_nothing_left();
  tell();
}

bool is_stored(const Unit& unit, const char* sql) {
  return unit.stored(sql) == "1";
}

const std::vector<Operation> operations = {
    {"List", "oec.List", "{}", [](const Unit&) { return true; }, nothing_to_undo, {}},
    {"Register", "oec.Register", R"({"oec_id":"c2","model":"VTR-E30p","mac_address":"02:00:01:00:00:77"})",
     [](const Unit& unit) { return is_stored(unit, "SELECT count(*) FROM edge_switch WHERE number = 2"); },
     [](Unit& unit) { unit.call("oec.Remove", R"({"oec_id":"c2"})"); }, database_calls},
    {"SetVlan", "ports.SetVlanAccess", R"({"port_id":"c1-1","vlan_id":20})",
     [](const Unit& unit) { return is_stored(unit, "SELECT count(*) FROM port_vlan WHERE vlan_id = 20"); },
     [](Unit& unit) { unit.call("ports.SetVlanLocal", R"({"port_id":"c1-1"})"); }, database_calls},
    {"CreateBackup", "db.CreateBackup", R"({"db_filename":"b.db"})",
     [](const Unit& unit) {
       if (!std::filesystem::exists(unit.update_file("b.db"))) return false;
       EXPECT_EQ(configd::flaw_of(Database(unit.update_file("b.db"))), "");
       return true;
     },
     [](Unit& unit) { std::filesystem::remove(unit.update_file("b.db")); },
     with(database_calls, {{"fsync", {EIO}}, {"rename", {EACCES, ENOSPC}}})},
    {"ApplyBackup", "db.ApplyBackup", R"({"db_filename":"with30.db"})",
     [](const Unit& unit) { return is_stored(unit, "SELECT count(*) FROM port_vlan WHERE vlan_id = 30"); },
     [](Unit& unit) { unit.call("ports.SetVlanLocal", R"({"port_id":"c1-2"})"); }, database_calls},
};
INSTANTIATE_TEST_SUITE_P(Operations, FailingConfigd, testing::ValuesIn(operations), name_of<Operation>);

}  // namespace
}  // namespace kestro::test
