#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "core/owned.hpp"
#include "kestro_utils.h"
#include "support/captured_stderr.hpp"
#include "support/child.hpp"
#include "support/fake_tools.hpp"
#include "support/faults.hpp"
#include "support/log.hpp"

namespace kestro::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* warning = "Got error return for iface locking\n";

TEST(IfaceLock, CommandLines) {
  FakeTools tools;
  tools.add("bash", "");
  tools.add("rm", "");
  lock_ifaces();
  unlock_ifaces();
  EXPECT_THAT(tools.calls("bash"),
              ElementsAre("[-c][while ! { set -o noclobber; > /tmp/lockifaces ; } &> /dev/null; do sleep 1; done]"));
  EXPECT_THAT(tools.calls("rm"), ElementsAre("[/tmp/lockifaces]"));
}

TEST(IfaceLock, WarnsWhenNoShellCanBeRunAndOnlyThen) {
  const auto failing = [](void (*action)()) {
    const Fault no_process("system", EAGAIN);
    return stderr_of(action);
  };
  EXPECT_THAT(failing(lock_ifaces), HasLog(Warning, "kestro_utils", warning));
  EXPECT_THAT(failing(unlock_ifaces), HasLog(Warning, "kestro_utils", warning));

  FakeTools tools;
  tools.add("bash", "exit 1");
  tools.add("rm", "exit 1");
  EXPECT_THAT(stderr_of(lock_ifaces), IsEmpty());
  EXPECT_THAT(stderr_of(unlock_ifaces), IsEmpty());
}

// The lock file's place is fixed, so these tests use the real one and put it back as it was. Meanwhile its directory is
// locked against the same tests of another build.
class SharedIfaceLock : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(flock(directory_.get(), LOCK_EX), 0);
    if (std::filesystem::exists(file_)) GTEST_SKIP() << file_ << " is held by somebody else";
  }
  void TearDown() override {
    if (!IsSkipped()) std::filesystem::remove(file_);
  }

 private:
  const Descriptor directory_{open("/tmp", O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
  const std::filesystem::path file_ = "/tmp/lockifaces";
};

TEST_F(SharedIfaceLock, IsAFileThatUnlockingRemoves) {
  lock_ifaces();
  EXPECT_TRUE(std::filesystem::exists("/tmp/lockifaces"));
  unlock_ifaces();
  EXPECT_FALSE(std::filesystem::exists("/tmp/lockifaces"));
}

TEST_F(SharedIfaceLock, KeepsASecondProcessWaitingUntilTheFirstUnlocks) {
  // Ends the sleep between two looks of the child when the test says so, and tells that the child looked.
  FakeTools tools;
  const auto looked = tools.directory().file("looked");
  const auto go_on = tools.directory().file("go-on");
  ASSERT_EQ(mkfifo(looked.c_str(), 0600), 0);
  ASSERT_EQ(mkfifo(go_on.c_str(), 0600), 0);
  tools.add("sleep", "echo looked > " + looked + "; read line < " + go_on);
  const auto wait_for_look = [&] {
    std::string word;
    std::ifstream(looked) >> word;
    EXPECT_EQ(word, "looked");
  };

  lock_ifaces();
  Child child("locker");
  wait_for_look();
  std::ofstream(go_on) << "on\n";
  wait_for_look();  // the lock is held: it had to look again
  unlock_ifaces();
  std::ofstream(go_on) << "on\n";
  EXPECT_EQ(child.hear(), "locked");
  EXPECT_TRUE(std::filesystem::exists("/tmp/lockifaces"));
  child.say("unlock");
  EXPECT_EQ(child.wait(), 0);
  EXPECT_FALSE(std::filesystem::exists("/tmp/lockifaces"));
  EXPECT_THAT(tools.calls("sleep"), ElementsAre("[1]", "[1]"));
}

TEST_F(SharedIfaceLock, OutlivesItsHolder) {
  {
    Child child("locker");
    EXPECT_EQ(child.hear(), "locked");
    child.say("end");
    EXPECT_EQ(child.wait(), 0);
  }
  EXPECT_TRUE(std::filesystem::exists("/tmp/lockifaces"));
}

// Locks, says so, and unlocks when told to.
int locker(const std::vector<std::string>& /*args*/) {
  lock_ifaces();
  std::cout << "locked" << std::endl;
  std::string line;
  std::getline(std::cin, line);
  if (line == "unlock") unlock_ifaces();
  return 0;
}

}  // namespace
}  // namespace kestro::test

int main(int argc, char** argv) {
  return kestro::test::main_with_roles(argc, argv, {{"locker", kestro::test::locker}});
}
