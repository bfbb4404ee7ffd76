#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "kestro_utils.h"
#include "support/captured_stderr.hpp"
#include "support/fake_tools.hpp"
#include "support/faults.hpp"
#include "support/log.hpp"

namespace kestro::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char* module = "kestro_utils";
constexpr const char* empty_digest = "d41d8cd98f00b204e9800998ecf8427e";

struct Check {
  int32_t status = 0;
  int32_t correct = -7;
  std::string log;
};

Check check_md5(const std::string& file, const std::string& digest_file) {
  Check check;
  check.log = stderr_of([&] { check.status = kestro_check_md5(file.c_str(), digest_file.c_str(), &check.correct); });
  return check;
}

TEST(CheckMd5, ComparesTheDigestsAndNothingElse) {
  const std::string digest = empty_digest;
  const struct {
    const char* name;
    std::string printed, list;
    int32_t correct;
  } rows[] = {
      {"equal with names", digest + "  image", digest + " another-name\n", 1},
      {"list without a name", digest + "  image", digest + "\n", 1},
      {"list without a newline", digest + "  image", digest, 1},
      {"first line of the list counts", digest + "  image", digest + " a\n0000 b\n", 1},
      {"another digest", digest + "  image", "e" + digest.substr(1) + " image\n", 0},
      {"list holds the beginning", digest + "  image", digest.substr(1) + " image\n", 0},
      {"upper case", "abcd  image", "ABCD  image\n", 0},
      {"list begins with a blank", digest + "  image", " " + digest + "\n", 0},
  };
  for (const auto& row : rows) {
    FakeTools tools;
    tools.add("md5sum", "echo '" + row.printed + "'; echo '0000  another'");
    const auto list = tools.directory().write("image.md5", row.list);
    const auto check = check_md5("/tmp/update/image", list);
    EXPECT_EQ(check.status, 0) << row.name;
    EXPECT_EQ(check.correct, row.correct) << row.name;
    EXPECT_THAT(tools.calls("md5sum"), ElementsAre("[/tmp/update/image]")) << row.name;
    EXPECT_THAT(check.log, IsEmpty()) << row.name;
  }
}

TEST(CheckMd5, RealTool) {
  const TempDir directory;
  const auto image = directory.write("image", "");
  const auto list = directory.write("image.md5", std::string(empty_digest) + "  image\n");
  EXPECT_EQ(check_md5(image, list).correct, 1);
  directory.write("image", "changed");
  EXPECT_EQ(check_md5(image, list).correct, 0);
}

TEST(CheckMd5, SilentToolAndEmptyList) {
  FakeTools tools;
  const auto list = tools.directory().write("image.md5", "0000\n");
  tools.add("md5sum", "");
  const auto silent = check_md5("image", list);
  EXPECT_EQ(silent.status, -1);
  EXPECT_EQ(silent.correct, 0);
  EXPECT_THAT(silent.log, HasLog(Error, module, "No result from md5sum\n"));

  tools.add("md5sum", "echo 0000");
  const auto empty = check_md5("image", tools.directory().write("empty.md5", ""));
  EXPECT_EQ(empty.status, -1);
  EXPECT_EQ(empty.correct, 0);
  EXPECT_THAT(empty.log, HasLog(Error, module, "No result from md5sum\n"));
}

TEST(CheckMd5, WhatCannotBeOpenedIsToldOnStandardErrorAlone) {
  const TempDir directory;
  const auto image = directory.write("image", "");
  const auto missing = check_md5(image, directory.file("missing.md5"));
  EXPECT_EQ(missing.status, -1);
  EXPECT_EQ(missing.correct, 0);
  EXPECT_EQ(missing.log, "fopen: No such file or directory\n");

  const Fault no_pipe("popen", EMFILE);
  const auto no_command = check_md5(image, directory.write("image.md5", "0000\n"));
  EXPECT_EQ(no_command.status, -1);
  EXPECT_EQ(no_command.correct, 0);
  EXPECT_EQ(no_command.log, "popen: Too many open files\n");
}

TEST(CheckMd5, CommandOfThe255CharactersThatFitIsRunAndALongerOneIsNot) {
  FakeTools tools;
  tools.add("md5sum", "echo 0000");
  const auto list = tools.directory().write("image.md5", "0000\n");
  const std::string fits(255 - 7, 'f');
  EXPECT_EQ(check_md5(fits, list).correct, 1);
  const auto too_long = check_md5(fits + "f", list);
  EXPECT_EQ(too_long.status, -1);
  EXPECT_EQ(too_long.correct, 0);
  EXPECT_THAT(too_long.log, HasLog(Error, module, "OVERFLOW: wbytes 256 sz 256\n"));
  EXPECT_THAT(too_long.log, HasLog(Error, module, "No result from md5sum\n"));
  EXPECT_THAT(tools.calls("md5sum"), ElementsAre("[" + fits + "]"));
}

TEST(CheckMd5, RefusesNull) {
  int32_t correct = 0;
  EXPECT_EQ(kestro_check_md5(nullptr, "list", &correct), -20);
  EXPECT_EQ(kestro_check_md5("file", nullptr, &correct), -20);
  EXPECT_EQ(kestro_check_md5("file", "list", nullptr), -20);
}

TEST(BoardRevision, IsTheDigitBehindTheEqualsSign) {
  const struct {
    const char* name;
    const char* script;
    int revision;
  } rows[] = {
      {"set", "echo brdrev=3", 3},
      {"another line follows", "echo brdrev=0; echo brdrev=4", 0},
      {"first equals sign counts", "echo brdrev=9=5", 9},
      {"one digit counts", "echo brdrev=12", 1},
      {"told on standard error", "echo brdrev=5 >&2", 5},
      {"not installed", "echo 'fw_printenv=1 is not installed'", 7},
      {"no equals sign", "echo brdrev", 7},
      {"letter", "echo brdrev=A", 'A' - '0'},
  };
  for (const auto& row : rows) {
    FakeTools tools;
    tools.add("fw_printenv", row.script);
    int revision = -1;
    const auto log = stderr_of([&] { revision = kestro_get_board_rev_number(); });
    EXPECT_EQ(revision, row.revision) << row.name;
    EXPECT_THAT(tools.calls("fw_printenv"), ElementsAre("[brdrev]")) << row.name;
    EXPECT_THAT(log, IsEmpty()) << row.name;
  }
}

TEST(BoardRevision, DefaultWithALogLine) {
  FakeTools tools;
  const auto log_of = [&](const char* script) {
    tools.add("fw_printenv", script);
    return stderr_of([] { EXPECT_EQ(kestro_get_board_rev_number(), 7); });
  };
  EXPECT_THAT(log_of("echo '## Error: brdrev=1 not defined'"), HasLog(Error, module, "Board rev# env var not set\n"));
  EXPECT_THAT(log_of(""), HasLog(Error, module, "Couldn't get result from syscall\n"));
  const Fault no_pipe("popen", EMFILE);
  EXPECT_THAT(log_of("echo brdrev=3"), HasLog(Error, module, "Could not open pipe\n"));
}

constexpr const char* answered = R"(cat <<END
PING 10.0.0.1 (10.0.0.1) 56(84) bytes of data.
64 bytes from 10.0.0.1: icmp_seq=1 ttl=64 time=0.040 ms

--- 10.0.0.1 ping statistics ---
1 packets transmitted, 1 received, 0% packet loss, time 0ms
END)";
constexpr const char* unanswered = R"(cat <<END
PING 10.0.0.1 (10.0.0.1) 56(84) bytes of data.

--- 10.0.0.1 ping statistics ---
1 packets transmitted, 0 received, 100% packet loss, time 0ms
END)";

TEST(IpAlive, IsWhatPingTells) {
  const struct {
    const char* name;
    const char* script;
    bool alive;
  } rows[] = {
      {"answer", answered, true},
      {"no answer", unanswered, false},
      {"loss before the statistics", "echo ', 100% packet loss'; echo 'ping statistics'", false},
      {"statistics alone", "echo '--- ping statistics ---'", true},
      {"loss of another kind", "echo 'ping statistics'; echo '(100% packet loss'", true},
      {"no statistics", "echo '1 received'", false},
      {"silence", "", false},
      {"unknown host", "echo 'ping: unknown: Name or service not known' >&2", false},
  };
  for (const auto& row : rows) {
    FakeTools tools;
    tools.add("ping", row.script);
    stderr_of([&] {
      EXPECT_EQ(kestro_check_ip_alive_no_log("10.0.0.1", 3), row.alive) << row.name;
      EXPECT_EQ(kestro_check_ip_alive("10.0.0.1", 3), row.alive) << row.name;
    });
    EXPECT_THAT(tools.calls("ping"), ElementsAre("[-c1][-w3][10.0.0.1]", "[-c1][-w3][10.0.0.1]")) << row.name;
  }
}

TEST(IpAlive, RealTool) {
  if (system("ping -c1 -w1 127.0.0.1 > /dev/null 2>&1") != 0) GTEST_SKIP() << "no ping here";
  EXPECT_TRUE(kestro_check_ip_alive_no_log("127.0.0.1", 5));
}

TEST(IpAlive, TakesAddressesAndNamesAndNothingElse) {
  FakeTools tools;
  tools.add("ping", answered);
  EXPECT_TRUE(kestro_check_ip_alive_no_log("router-1.example", 1));
  for (const char* const bad : {"", "10.0.0.1; reboot", "a_b", "10.0.0.1 10.0.0.2", "$(reboot)"}) {
    const auto log = stderr_of([&] { EXPECT_FALSE(kestro_check_ip_alive_no_log(bad, 1)) << bad; });
    EXPECT_THAT(log, HasLog(Warning, module, "invalid input to ip alive check\n")) << bad;
  }
  const auto log = stderr_of([] { EXPECT_FALSE(kestro_check_ip_alive_no_log(nullptr, 1)); });
  EXPECT_THAT(log, HasLog(Warning, module, "invalid input to ip alive check\n"));
  EXPECT_THAT(tools.calls("ping"), ElementsAre("[-c1][-w1][router-1.example]"));
}

TEST(IpAlive, LogsItsResultUnlessAskedNotTo) {
  FakeTools tools;
  tools.add("ping", answered);
  EXPECT_THAT(stderr_of([] { kestro_check_ip_alive("10.0.0.1", 1); }),
              HasLog(Info, module, "IP 10.0.0.1 is alive: 1\n"));
  EXPECT_THAT(stderr_of([] { kestro_check_ip_alive_no_log("10.0.0.1", 1); }), Not(HasSubstr("is alive")));
  tools.add("ping", unanswered);
  EXPECT_THAT(stderr_of([] { kestro_check_ip_alive("10.0.0.1", 1); }),
              HasLog(Info, module, "IP 10.0.0.1 is alive: 0\n"));
  EXPECT_THAT(stderr_of([] { kestro_check_ip_alive(nullptr, 1); }), HasLog(Info, module, "IP (null) is alive: 0\n"));
}

TEST(IpAlive, PipeThatCannotBeOpened) {
  const Fault no_pipe("popen", EMFILE);
  EXPECT_FALSE(kestro_check_ip_alive_no_log("10.0.0.1", 1));
  EXPECT_TRUE(no_pipe.fired());
}

TEST(IpAlive, CommandOfThe255CharactersThatFitIsRunAndALongerOneIsNot) {
  FakeTools tools;
  tools.add("ping", R"(echo "--- $3 ping statistics ---")");
  const std::string fits(255 - 13, 'h');
  EXPECT_TRUE(kestro_check_ip_alive_no_log(fits.c_str(), 1));
  EXPECT_FALSE(kestro_check_ip_alive_no_log((fits + "h").c_str(), 1));
  EXPECT_THAT(tools.calls("ping"), ElementsAre("[-c1][-w1][" + fits + "]"));
}

TEST(IpAliveV2, TriesOnceASecondUntilAnAnswer) {
  const std::string one_try = "[-c1][-w1][10.0.0.1]";
  FakeTools tools;
  tools.add("ping", unanswered);
  EXPECT_FALSE(kestro_check_ip_alive_v2("10.0.0.1", 3));
  EXPECT_THAT(tools.calls("ping"), ElementsAre(one_try, one_try, one_try));

  FakeTools second_answers;
  const auto seen = second_answers.directory().file("seen");
  second_answers.add("ping", "test -e " + seen + " && echo ping statistics; touch " + seen);
  EXPECT_TRUE(kestro_check_ip_alive_v2("10.0.0.1", 5));
  EXPECT_THAT(second_answers.calls("ping"), ElementsAre(one_try, one_try));
}

TEST(IpAliveV2, NoSecondsNoPing) {
  FakeTools tools;
  tools.add("ping", answered);
  EXPECT_FALSE(kestro_check_ip_alive_v2("10.0.0.1", 0));
  EXPECT_FALSE(kestro_check_ip_alive_v2("10.0.0.1", -1));
  EXPECT_THAT(tools.calls("ping"), IsEmpty());
}

}  // namespace
}  // namespace kestro::test
