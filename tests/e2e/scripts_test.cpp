// The scripts that show and run the appliance: they notice what goes wrong, and leave nothing behind.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <regex>
#include <string>

#include "support/named.hpp"
#include "support/process.hpp"
#include "support/temp_dir.hpp"

namespace kestro::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

std::string script(const std::string& name) {
  return std::string(KESTRO_SCRIPTS_DIR) + "/" + name;
}

// ---- Sessions ----

struct Session {
  std::string name;
  std::string text;
  std::string shown;
  int status = 0;
};

class Play : public testing::TestWithParam<Session> {};

TEST_P(Play, ShowsAndCompares) {
  const TempDir dir;
  Process play({script("play.sh"), dir.write("session", GetParam().text)}, {"TMPDIR=" + dir.path().string()});
  EXPECT_EQ(play.wait(), GetParam().status) << play.err();
  EXPECT_EQ(play.out(), GetParam().shown);
  EXPECT_EQ(play.err(), GetParam().status == 0 ? "" : "1 lines are not as expected\n");
  std::filesystem::remove(dir.file("session"));
  EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
}

const Session sessions[] = {
    {"Empty", "", ""},
    {"Text", "# Text.\n\n# More.\n", "# Text.\n\n# More.\n"},
    {"Lines", "$ echo one; echo two >&2\none\ntwo\n", "$ echo one; echo two >&2\none\ntwo\n"},
    {"Silence", "$ true\n$ echo one\none\n", "$ true\n$ echo one\none\n"},
    {"OtherLine", "$ echo one\ntwo\n", "$ echo one\none\n!!! expected: two\n", 1},
    {"LineTooMany", "$ echo one\n", "$ echo one\none\n!!! nothing more is expected\n", 1},
    {"LineMissing", "$ true\none\n", "$ true\n!!! missing: one\n", 1},
    {"ExitStatus", "$ exit 3\n[3]\n", "$ exit 3\n[3]\n"},
    {"OtherExitStatus", "$ exit 3\n[1]\n", "$ exit 3\n[3]\n!!! expected: [1]\n", 1},
    {"ExitStatusUnexpected", "$ exit 3\n", "$ exit 3\n[3]\n!!! nothing more is expected\n", 1},
    {"Continued", "$ echo 'one\n>  two'\none\n two\n", "$ echo 'one\n>  two'\none\n two\n"},
    {"Number", "$ echo '{\"a\":[-12.5]} (x)'\n{\"a\":[<number>]} (x)\n",
     "$ echo '{\"a\":[-12.5]} (x)'\n{\"a\":[-12.5]} (x)\n"},
    {"NumberAfterBlanks", "$ echo 'a     7  b'\na <number>  b\n", "$ echo 'a     7  b'\na     7  b\n"},
    {"NoNumber", "$ echo 1x\n<number>\n", "$ echo 1x\n1x\n!!! expected: <number>\n", 1},
    {"Time", "$ echo 12:03:09.123 x\n<time> x\n", "$ echo 12:03:09.123 x\n12:03:09.123 x\n"},
    {"Anything", "$ echo abcd\na<...>d\n", "$ echo abcd\nabcd\n"},
    {"NotAnything", "$ echo abcd\na<...>e\n", "$ echo abcd\nabcd\n!!! expected: a<...>e\n", 1},
    {"NoPattern", "$ echo axc\na.c\n", "$ echo axc\naxc\n!!! expected: a.c\n", 1},
    {"NoPatternBesideOne", "$ echo axc1\na.c<number>\n", "$ echo axc1\naxc1\n!!! expected: a.c<number>\n", 1},
    {"Background", "$ sh -c 'echo one; sleep 0.1; echo two; exit 5' &\none\n$ echo three\nthree\n$ wait\ntwo\n[5]\n",
     "$ sh -c 'echo one; sleep 0.1; echo two; exit 5' &\none\n$ echo three\nthree\n$ wait\ntwo\n[5]\n"},
    {"BackgroundWithOtherEnd", "$ sh -c 'echo one; echo two' &\none\n$ wait\nthree\n",
     "$ sh -c 'echo one; echo two' &\none\n$ wait\ntwo\n!!! expected: three\n", 1},
};
INSTANTIATE_TEST_SUITE_P(Scripts, Play, testing::ValuesIn(sessions), name_of<Session>);

// ---- The appliance in the foreground ----

class Up : public testing::Test {
 protected:
  // What was started and still runs: nobody else has our directory in his command line.
  [[nodiscard]] std::string running(const std::string& program = "") const {
    Process pgrep({"pgrep", "-f", program + ".*" + directory_.path().string()});
    pgrep.wait();
    return pgrep.out();
  }
  void kill_program(const std::string& program) const {
    const auto process = running(program);
    ASSERT_THAT(process, Not(IsEmpty()));
    kill(std::stoi(process), SIGKILL);
  }
  [[nodiscard]] bool is_up() const {
    return eventually([this] { return up_.out().find("Control-C ends it.") != std::string::npos; });
  }
  [[nodiscard]] std::string find(const std::string& pattern) const {
    std::smatch match;
    const std::string out = up_.out();
    return std::regex_search(out, match, std::regex(pattern)) ? match[1].str() : "";
  }

  TempDir directory_;
  Process up_{{script("up.sh"), KESTRO_BUILD_DIR}, {"TMPDIR=" + directory_.path().string()}};
};

TEST_F(Up, TellsHowToCallItAndLeavesNothing) {
  ASSERT_TRUE(is_up()) << up_.out() << up_.err();
  const auto socket = find("export KESTRO_SOCKET=(\\S+)");
  const auto bus = find("export KESTRO_BUS=\"(.*)\"");
  Process call({KESTROCTL, "call", "oec.List"}, {"KESTRO_SOCKET=" + socket, "KESTRO_BUS=" + bus});
  EXPECT_EQ(call.wait(), 0) << call.err();
  EXPECT_EQ(call.out(), "[]\n");
  const auto stats = "/dev/shm" + find("stats --name (\\S+)");
  EXPECT_TRUE(std::filesystem::exists(stats)) << stats;

  up_.signal(SIGINT);
  EXPECT_EQ(up_.wait(), 0) << up_.err();
  EXPECT_THAT(up_.out(), testing::EndsWith("up: stopped\n"));
  EXPECT_TRUE(std::filesystem::is_empty(directory_.path()));
  EXPECT_FALSE(std::filesystem::exists(stats));
  EXPECT_THAT(running(), IsEmpty());
}

TEST_F(Up, SaysWhichProgramEnded) {
  ASSERT_TRUE(is_up()) << up_.out() << up_.err();
  ASSERT_NO_FATAL_FAILURE(kill_program("kestro-configd"));
  EXPECT_EQ(up_.wait(), 1);
  EXPECT_THAT(up_.err(), HasSubstr("kestro-configd was ended by SIGKILL; its last words:\n"));
  EXPECT_THAT(up_.err(), Not(HasSubstr("kestro-simd")));
  EXPECT_THAT(running(), IsEmpty());
}

TEST_F(Up, KeepsTheLogsWhenAProgramEnds) {
  ASSERT_TRUE(is_up()) << up_.out() << up_.err();
  ASSERT_NO_FATAL_FAILURE(kill_program("kestro-routerd"));
  EXPECT_EQ(up_.wait(), 1);
  const auto logs = find("Logs: (\\S+)/\\*\\.log");
  EXPECT_THAT(up_.err(), testing::EndsWith("the logs are kept: " + logs + "/*.log\n"));
  for (const char* program : {"kestro-simd", "kestro-configd", "kestro-routerd"}) {
    EXPECT_TRUE(std::filesystem::exists(logs + "/" + program + ".log")) << program;
  }
  EXPECT_FALSE(std::filesystem::exists("/dev/shm" + find("stats --name (\\S+)")));
}

TEST(Scripts, TellHowTheyAreUsed) {
  for (const char* name : {"up.sh", "demo.sh", "play.sh", "check_units.sh"}) {
    Process without_arguments({script(name)});
    EXPECT_EQ(without_arguments.wait(), 2) << name;
    EXPECT_THAT(without_arguments.err(), testing::StartsWith("usage: " + std::string(name) + " ")) << name;
  }
}

TEST(Scripts, TellWhatIsNotBuilt) {
  const TempDir dir;
  Process up({script("up.sh"), "/nowhere"}, {"TMPDIR=" + dir.path().string()});
  EXPECT_EQ(up.wait(), 1);
  EXPECT_EQ(up.err(), "there is no /nowhere/daemons/simd/kestro-simd; `make build` builds it\n");
  EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
}

// ---- The demonstration ----

TEST(Demo, LeavesNothingBehind) {
  const TempDir dir;
  Process demo({script("demo.sh"), KESTRO_BUILD_DIR}, {"TMPDIR=" + dir.path().string()});
  EXPECT_EQ(demo.wait(), 0) << demo.out() << demo.err();
  EXPECT_THAT(demo.out(), testing::EndsWith("demo: every answer as expected\n"));
  EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
}

}  // namespace
}  // namespace kestro::test
