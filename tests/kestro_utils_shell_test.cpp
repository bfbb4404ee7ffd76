#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string>

#include "core/owned.hpp"
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
using testing::StrEq;

constexpr const char* module = "kestro_utils";

// A buffer of exactly `size` bytes on the heap, where the sanitizers watch both ends.
std::unique_ptr<char[]> buffer_with(const std::string& text, size_t size) {
  auto buffer = std::make_unique<char[]>(size);
  memcpy(buffer.get(), text.data(), std::min(text.size(), size));
  return buffer;
}

TEST(PopenGetOneline, ReplacesTheCommandByTheFirstLineOfItsOutput) {
  const auto buffer = buffer_with("printf 'one\\ntwo\\n'", 64);
  EXPECT_EQ(kestro_popen_get_oneline(buffer.get(), 64), 0);
  EXPECT_STREQ(buffer.get(), "one\n");
}

TEST(PopenGetOneline, LineIsCutToTheBuffer) {
  const struct {
    const char* command;
    int32_t size;
    const char* line;
  } rows[] = {
      {"echo 3456789", 13, "3456789\n"},
      {"printf 123456789012345", 23, "123456789012345"},
      {"printf '12345678901234567890\\n'", 20, "1234567890123456789"},
      {"printf '12345678901234567890\\n'", 21, "12345678901234567890"},
      {"printf '12345678901234567890\\n'", 22, "12345678901234567890\n"},
      {"echo 1", 2, "1"},
      {"echo 1", 1, ""},
  };
  for (const auto& row : rows) {
    const auto buffer = buffer_with(row.command, strlen(row.command) + 1);
    EXPECT_EQ(kestro_popen_get_oneline(buffer.get(), row.size), 0) << row.command << row.size;
    EXPECT_STREQ(buffer.get(), row.line) << row.command << row.size;
  }
}

TEST(PopenGetOneline, NoRoomIsNoLine) {
  for (const int32_t size : {0, -1}) {
    const auto buffer = buffer_with("echo 1", 7);
    EXPECT_EQ(kestro_popen_get_oneline(buffer.get(), size), -1);
    EXPECT_STREQ(buffer.get(), "echo 1");
  }
}

TEST(PopenGetOneline, CommandWithoutOutputStaysInTheBuffer) {
  const auto buffer = buffer_with("true", 16);
  int32_t result = 0;
  const auto log = stderr_of([&] { result = kestro_popen_get_oneline(buffer.get(), 16); });
  EXPECT_EQ(result, -1);
  EXPECT_STREQ(buffer.get(), "true");
  EXPECT_THAT(log, HasLog(Error, module, "Could not read output for cmd true\n"));
}

TEST(PopenGetOneline, PipeThatCannotBeOpened) {
  const auto buffer = buffer_with("echo 1", 16);
  int32_t result = 0;
  const auto log = stderr_of([&] {
    const Fault no_pipe("popen", EMFILE);
    result = kestro_popen_get_oneline(buffer.get(), 16);
  });
  EXPECT_EQ(result, -1);
  EXPECT_STREQ(buffer.get(), "echo 1");
  EXPECT_THAT(log, HasLog(Error, module, "Could not open pipe for cmd echo 1\n"));
}

TEST(PopenGetOneline, RefusesNull) {
  EXPECT_EQ(kestro_popen_get_oneline(nullptr, 10), -20);
}

volatile sig_atomic_t interruptions = 0;

TEST(PopenGetOneline, SignalsThatInterruptTheReadingDoNotEndIt) {
  kestro_signal(SIGUSR1, [](int) { interruptions = interruptions + 1; });
  const std::string command = "for i in 1 2 3 4 5; do kill -USR1 $PPID; sleep 0.02; done; echo $PPID";
  const auto buffer = buffer_with(command, 128);
  EXPECT_EQ(kestro_popen_get_oneline(buffer.get(), 128), 0);
  kestro_signal(SIGUSR1, SIG_DFL);
  EXPECT_EQ(buffer.get(), std::to_string(getpid()) + "\n");
  EXPECT_GT(interruptions, 0);
}

TEST(PopenGetOneline, PipeIsClosedOnExec) {
  int inheritable = 0;
  for (int fd = 0; fd < 1024; ++fd) {
    const int flags = fcntl(fd, F_GETFD);
    inheritable += flags >= 0 && (flags & FD_CLOEXEC) == 0;
  }
  // The command counts its parent's descriptors without O_CLOEXEC (02000000) while the pipe is open.
  const auto buffer = buffer_with("grep -LE '^flags:.*[2367][0-7]{6}$' /proc/$PPID/fdinfo/* 2> /dev/null | wc -l", 128);
  EXPECT_EQ(kestro_popen_get_oneline(buffer.get(), 128), 0);
  EXPECT_EQ(buffer.get(), std::to_string(inheritable) + "\n");
}

struct CommandOutput {
  int32_t status = 0;
  std::array<char, 3300> text{};
  std::string said;
};

CommandOutput exec_command_line(const char* program) {
  CommandOutput output;
  output.said = stderr_of([&] { output.status = mw_exec_command_line(program, output.text.data()); });
  return output;
}

TEST(ExecCommandLine, GivesTheFirstLineWithoutItsNewline) {
  const struct {
    const char* name;
    const char* program;
    std::string text;
  } rows[] = {
      {"first of two", "printf 'one\\ntwo\\n'", "one"},
      {"no newline", "printf one", "one"},
      {"one newline goes", "printf 'one\\n\\n'", "one"},
      {"empty line", "echo", ""},
      {"longest line", "printf '%03199d' 7", std::string(3198, '0') + "7"},
      {"longest line with its newline", "printf '%03198d\\n' 7", std::string(3197, '0') + "7"},
      {"too long a line", "printf '%03200d' 7", std::string(3199, '0')},
  };
  for (const auto& row : rows) {
    const auto output = exec_command_line(row.program);
    EXPECT_EQ(output.status, 0) << row.name;
    EXPECT_EQ(output.text.data(), row.text) << row.name;
    EXPECT_THAT(output.said, IsEmpty()) << row.name;
  }
}

TEST(ExecCommandLine, AddsNoZeroByte) {
  std::array<char, 8> text = {"xxxxxxx"};
  EXPECT_EQ(mw_exec_command_line("echo one", text.data()), 0);
  EXPECT_STREQ(text.data(), "onexxxx");
}

TEST(ExecCommandLine, SilenceIsToldOnStandardErrorAndNotInTheLog) {
  const auto output = exec_command_line("true");
  EXPECT_EQ(output.status, -1);
  EXPECT_STREQ(output.text.data(), "");
  EXPECT_EQ(output.said, "Output of the following command was empty or NULL: 'true'.\nOutput was: ''.\n");
}

TEST(ExecCommandLine, PipeThatCannotBeOpened) {
  const Fault no_pipe("popen", EMFILE);
  const auto output = exec_command_line("echo one");
  EXPECT_EQ(output.status, -1);
  EXPECT_EQ(output.said, "Popen error for cmd: echo one.\n");
}

TEST(ExecCommandLine, RefusesNull) {
  char text = 'x';
  EXPECT_EQ(mw_exec_command_line(nullptr, &text), -20);
  EXPECT_EQ(mw_exec_command_line("echo one", nullptr), -20);
  EXPECT_EQ(text, 'x');
}

// Forks and waits for the child: fork_exec_script does not.
std::string fork_exec_and_wait(const std::string& script, const std::string& cmd, const std::string& filename) {
  return stderr_of([&] {
    fork_exec_script(script.c_str(), cmd.c_str(), filename.c_str());
    while (waitpid(-1, nullptr, 0) > 0) {
    }
  });
}

TEST(ForkExecScript, RunsTheLineInBash) {
  FakeTools tools;
  tools.add("install-image", "printf '%s' \"$BASH_VERSION\"");
  const auto log = fork_exec_and_wait("install-image", "--bank 2", "some file.img");
  EXPECT_THAT(tools.calls("install-image"), ElementsAre("[--bank][2][some file.img]"));
  EXPECT_THAT(log, HasLog(Info, module, "Fork \"install-image --bank 2 'some file.img'\" successful\n"));
}

TEST(ForkExecScript, ShellIsBash) {
  const TempDir directory;
  const auto file = directory.file("version");
  fork_exec_and_wait("printf", "'%s' $0$BASH_VERSION >", file);
  std::string version;
  std::ifstream(file) >> version;
  EXPECT_THAT(version, testing::MatchesRegex("bash[0-9].*"));
}

TEST(ForkExecScript, DoesNotWait) {
  const TempDir directory;
  const auto fifo = directory.file("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  // The child hangs until somebody reads the fifo: only a caller that did not wait can.
  fork_exec_script("echo", "done >", fifo.c_str());
  std::string word;
  std::ifstream(fifo) >> word;
  EXPECT_EQ(word, "done");
  EXPECT_GT(wait(nullptr), 0);
}

TEST(ForkExecScript, FailureToFork) {
  const auto log = stderr_of([] {
    const Fault no_process("fork", EAGAIN);
    fork_exec_script("script", "cmd", "file");
  });
  EXPECT_THAT(log, HasLog(Error, module, "Failure to launch \"script cmd 'file'\"\n"));
  EXPECT_THAT(log, Not(HasSubstr("successful")));
}

TEST(ForkExecScript, ChildThatCannotExecReturnsIntoTheCallersCode) {
  const auto log = stderr_of([] {
    const pid_t parent = getpid();
    {
      const Fault no_bash("execv", ENOENT);
      fork_exec_script("script", "cmd", "file");
    }
    if (getpid() != parent) _exit(42);
    int status = 0;
    EXPECT_GT(wait(&status), 0);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 42);
  });
  EXPECT_THAT(log, HasSubstr("execv failed: No such file or directory\n"));
  EXPECT_THAT(log, HasLog(Error, module, "Unable to exec \"script cmd 'file'\"\n"));
  EXPECT_THAT(log, HasLog(Info, module, "Fork \"script cmd 'file'\" successful\n"));
}

TEST(ForkExecScript, LineOfThe3199CharactersThatFitIsRunAndALongerOneIsNot) {
  FakeTools tools;
  tools.add("tool", "");
  // "tool x '" and the last quote are 9 characters.
  const std::string fits(3190, 'f');
  fork_exec_and_wait("tool", "x", fits);
  const auto log = fork_exec_and_wait("tool", "x", fits + "f");
  EXPECT_THAT(tools.calls("tool"), ElementsAre("[x][" + fits + "]"));
  EXPECT_THAT(log, HasLog(Error, module, "OVERFLOW: wbytes 3200 sz 3200\n"));
  EXPECT_THAT(log, HasSubstr("Failure to launch \"tool x 'fff"));
}

TEST(ForkExecScript, RefusesNull) {
  const auto log = stderr_of([] { fork_exec_script("script", nullptr, "file"); });
  EXPECT_THAT(log, HasLog(Warning, module, "Found a null input parameter at varg index <1>\n"));
  EXPECT_THAT(log, Not(HasSubstr("Fork")));
}

TEST(FileStats, EveryPartOfTheCommandIsThereWhenAskedFor) {
  const struct {
    const char* name;
    const char* prefix;
    const char* suffix;
    std::vector<std::string> greps;
  } rows[] = {
      {"both", "vtr", "img", {"[vtr]", "[img]"}},
      {"prefix", "vtr", "", {"[vtr]"}},
      {"suffix", nullptr, "img", {"[img]"}},
      {"neither", "", nullptr, {}},
  };
  for (const auto& row : rows) {
    FakeTools tools;
    tools.add("ls", "echo listed");
    tools.add("grep", "cat");
    tools.add("awk", "cat");
    const Text line(kestro_file_stats("/media/usb", row.prefix, row.suffix, 9));
    EXPECT_THAT(line.get(), StrEq("listed\n")) << row.name;
    EXPECT_THAT(tools.calls("ls"), ElementsAre("[-l][/media/usb]")) << row.name;
    EXPECT_THAT(tools.calls("grep"), testing::UnorderedElementsAreArray(row.greps)) << row.name;
    EXPECT_THAT(tools.calls("awk"), ElementsAre("[{print $9}]")) << row.name;
  }
}

TEST(FileStats, RealToolsFindTheFirmwareOfADirectory) {
  const TempDir directory;
  directory.write("readme.txt", "");
  directory.write("vtr-1.2.3.img", "firmware");
  directory.write("vtr-1.2.3.txt", "");
  const Text name(kestro_file_stats(directory.path().c_str(), "vtr", "img", 9));
  EXPECT_THAT(name.get(), StrEq("vtr-1.2.3.img\n"));
  const Text size(kestro_file_stats(directory.path().c_str(), "vtr", "img", 5));
  EXPECT_THAT(size.get(), StrEq("8\n"));
}

TEST(FileStats, TracesTheGrowthOfTheCommandAndItsResult) {
  FakeTools tools;
  tools.add("ls", "echo vtr.img; echo vtr2.img");
  const LogLevel verbose(Verbose);
  const auto log = stderr_of([] { const Text line(kestro_file_stats("/usb", "vtr", "img", 1)); });
  for (const char* const command : {
           "ls -l /usb",
           "ls -l /usb | grep vtr",
           "ls -l /usb | grep vtr | grep img",
           "ls -l /usb | grep vtr | grep img | awk '{print $1}'",
       }) {
    const auto line = std::string("[kestro_file_stats]: cmd_str = ") + command + "\n";
    EXPECT_EQ(count_log_lines(log, Verbose, module, line), 1) << line;
  }
  EXPECT_THAT(log, HasLog(Verbose, module, "[kestro_file_stats]: cmd_ret = vtr.img\n\n"));
}

TEST(FileStats, NoOutput) {
  FakeTools tools;
  tools.add("ls", "");
  Text line;
  const auto log = stderr_of([&] { line.reset(kestro_file_stats("/usb", "vtr", "", 9)); });
  EXPECT_EQ(line, nullptr);
  EXPECT_THAT(log, HasLog(Error, module, "Kestro Firmware not found in root folder of USB.\n"));
}

TEST(FileStats, PipeThatCannotBeOpened) {
  Text line;
  const auto log = stderr_of([&] {
    const Fault no_pipe("popen", EMFILE);
    line.reset(kestro_file_stats("/usb", "", "", 9));
  });
  EXPECT_EQ(line, nullptr);
  EXPECT_THAT(log, HasLog(Error, module, "System: Command failed. Aborting.\n"));
}

TEST(FileStats, NullDirectory) {
  EXPECT_EQ(kestro_file_stats(nullptr, "vtr", "img", 9), nullptr);
}

TEST(FileStats, CommandOfThe3200CharactersThatFitIsRunAndALongerOneIsNot) {
  FakeTools tools;
  tools.add("ls", "echo listed");
  // "ls -l ", " | awk '{print $1}'"
  const std::string fits(3200 - 6 - 19, 'd');
  const Text line(kestro_file_stats(fits.c_str(), "", "", 1));
  EXPECT_THAT(line.get(), StrEq("listed\n"));
  Text too_long;
  const auto log = stderr_of([&] { too_long.reset(kestro_file_stats((fits + "d").c_str(), "", "", 1)); });
  EXPECT_EQ(too_long, nullptr);
  EXPECT_THAT(log, HasLog(Error, module, "OVERFLOW: wbytes 3201 sz 3201\n"));
  EXPECT_THAT(log, HasLog(Error, module, "System: Command failed. Aborting.\n"));
  EXPECT_THAT(tools.calls("ls"), ElementsAre("[-l][" + fits + "]"));
}

TEST(FileStats, LongOutputIsCut) {
  FakeTools tools;
  tools.add("ls", "printf '%04000d\\n' 7");
  const Text line(kestro_file_stats("/usb", "", "", 1));
  EXPECT_THAT(line.get(), StrEq(std::string(3200, '0')));
}

}  // namespace
}  // namespace kestro::test
