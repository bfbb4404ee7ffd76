#include "kestro_lsyslog.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <new>
#include <regex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "core/owned.hpp"
#include "core/site.hpp"
#include "support/captured_stderr.hpp"
#include "support/faults.hpp"
#include "support/log.hpp"
#include "support/temp_dir.hpp"

#ifndef KESTRO_THREAD_SANITIZER
// C++ allocations, too, go to the malloc that tests can watch. (Inlined, each half alone looks like a mismatch to gcc.)
[[gnu::noinline]] void* operator new(size_t size) {
  void* const block = malloc(size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
[[gnu::noinline]] void operator delete(void* block) noexcept {
  free(block);
}
[[gnu::noinline]] void operator delete(void* block, size_t /*size*/) noexcept {
  free(block);
}
#endif

namespace {
std::vector<timespec> pauses;
const char* const first_source = kestro::_source;
const int32_t first_level = kestro::_level;
}  // namespace

// Takes the place of the C library's: notes the pauses instead of making them.
extern "C" int nanosleep(const timespec* duration, timespec* /*rest*/) {
  pauses.push_back(*duration);
  return 0;
}

namespace kestro::test {
namespace {

using namespace std::string_literals;
using testing::HasSubstr;

// The name in the lines while the object lives.
class Source {
 public:
  explicit Source(const char* source) : saved_(_source.exchange(source)) {}
  Source(const Source&) = delete;
  Source& operator=(const Source&) = delete;
  ~Source() { _source = saved_; }

 private:
  const char* saved_;
};

constexpr std::string_view time_pattern = R"(\[[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\.[0-9]{3}\] )";

bool is_line(const std::string& text, const std::string& rest) {
  const std::string time = text.substr(0, std::min<size_t>(text.size(), 26));
  return std::regex_match(time, std::regex(time_pattern.begin(), time_pattern.end())) && text.substr(26) == rest;
}

std::string logged(int32_t severity, int32_t level, const char* message = "message\n") {
  const LogLevel at(level);
  return stderr_of([&] { EXPECT_EQ(kestro_lsyslog_log(severity, "module", 42, "%s", message), 0); });
}

// ---- Numbers and tags ----

TEST(LsyslogSeverity, NumbersAndTags) {
  const struct {
    int32_t severity, value;
    const char* tag;
  } rows[] = {
      {KESTRO_LSYSLOG_SEVERITY_MIN, 0, "UNKW"},     {KESTRO_LSYSLOG_SEVERITY_CONFIG, 1, "CONF"},
      {KESTRO_LSYSLOG_SEVERITY_ERROR, 2, "ERR!"},   {KESTRO_LSYSLOG_SEVERITY_WARNING, 3, "WARN"},
      {KESTRO_LSYSLOG_SEVERITY_INFO, 4, "INFO"},    {KESTRO_LSYSLOG_SEVERITY_DEBUG, 5, "DEBG"},
      {KESTRO_LSYSLOG_SEVERITY_VERBOSE, 6, "VERB"}, {KESTRO_LSYSLOG_SEVERITY_MAX, 7, "UNKW"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(row.severity, row.value);
    EXPECT_STREQ(kestro_lsyslog_severity_to_string(row.value), row.tag) << row.value;
  }
  for (int32_t i = 0; i < 7; ++i) EXPECT_STREQ(kestro_lsyslog_severity_string[i], rows[i].tag) << i;
  for (const int32_t none : {-1, 8, 256, INT32_MAX, INT32_MIN}) {
    EXPECT_STREQ(kestro_lsyslog_severity_to_string(none), "UNKW") << none;
  }
  EXPECT_EQ(std::size(kestro_lsyslog_severity_string), 7U);
}

TEST(LsyslogLevel, Numbers) {
  EXPECT_EQ(KESTRO_LSYSLOG_LOGGING_LEVEL_UNDEF, -1);
  EXPECT_EQ(KESTRO_LSYSLOG_LOGGING_LEVEL_OFF, 0);
  EXPECT_EQ(KESTRO_LSYSLOG_LOGGING_LEVEL_INFO, 4);
  EXPECT_EQ(KESTRO_LSYSLOG_LOGGING_LEVEL_DEBUG, 5);
  EXPECT_EQ(KESTRO_LSYSLOG_LOGGING_LEVEL_VERBOSE, 6);
}

TEST(LsyslogLevel, IsDebugAndTheNameUnknownBeforeInit) {
  EXPECT_EQ(first_level, 5);
  EXPECT_STREQ(first_source, "unknown");
}

// ---- The line ----

struct Form {
  int32_t severity;
  const char* rest;
};

TEST(LsyslogLog, FormOfEverySeverity) {
  const Source source("router");
  const Form forms[] = {
      {INT32_MIN, "[UNKW] [router: module:42] message\n"},
      {-1, "[UNKW] [router: module:42] message\n"},
      {0, "[UNKW] [router] message\n"},
      {1, "[CONF] [router] message\n"},
      {2, "[ERR!] [router: module:42] message\n"},
      {3, "[WARN] [router] message\n"},
      {4, "[INFO] [router] message\n"},
      {5, "[DEBG] [router: module:42] message\n"},
      {6, "[VERB] [router: module:42] message\n"},
      {7, "[UNKW] [router: module:42] message\n"},
      {8, "[UNKW] [router: module:42] message\n"},
      {INT32_MAX, "[UNKW] [router: module:42] message\n"},
  };
  for (const auto& [severity, rest] : forms) {
    const auto line = logged(severity, INT32_MAX);
    EXPECT_TRUE(is_line(line, rest)) << line;
  }
}

TEST(LsyslogLog, LineNumbersAreSigned) {
  const Source source("router");
  for (const int32_t number : {0, 1, 327, INT32_MAX, INT32_MIN}) {
    const auto line = stderr_of([&] { kestro_lsyslog_log(Error, "module", number, "!\n"); });
    EXPECT_TRUE(is_line(line, "[ERR!] [router: module:" + std::to_string(number) + "] !\n")) << line;
  }
}

TEST(LsyslogLog, FormatsItsValuesAndAddsNoLineFeed) {
  const auto line = stderr_of([] { kestro_lsyslog_log(Info, "module", 1, "%s %d %5.2f %c%%", "text", -7, 1.5, 'x'); });
  EXPECT_TRUE(is_line(line, "[INFO] [unknown] text -7  1.50 x%")) << line;
}

TEST(LsyslogLog, MessageIsNoFormat) {
  EXPECT_THAT(logged(Info, 4, "%s%n%d\n"), HasSubstr("] %s%n%d\n"));
}

TEST(LsyslogLog, MissingNamesAreShownAsSuch) {
  const Source source(nullptr);
  const auto line = stderr_of([] { kestro_lsyslog_log(Error, nullptr, 1, "!\n"); });
  EXPECT_TRUE(is_line(line, "[ERR!] [(null): (null):1] !\n")) << line;
}

TEST(LsyslogLog, MessagesAreCutAt8000Characters) {
  for (const size_t length : {7999U, 8000U, 8001U, 20'000U}) {
    const std::string message = std::string(length - 1, 'm') + "\n";
    const auto line = logged(Info, 4, message.c_str());
    EXPECT_TRUE(is_line(line, "[INFO] [unknown] " + message.substr(0, 8000))) << length;
  }
}

// The wall clock in the form of a line, in the zone of the process.
std::string stamp_now() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  tm local{};
  localtime_r(&now.tv_sec, &local);
  std::array<char, 64> text{};
  const auto length = strftime(text.data(), text.size(), "[%Y-%m-%d %X.", &local);
  const auto milliseconds = std::to_string(1000 + now.tv_nsec / 1'000'000).substr(1);
  return std::string(text.data(), length) + milliseconds + "] ";
}

TEST(LsyslogLog, TimeIsLocalToTheMillisecond) {
  setenv("TZ", "XXX-05:30", 1);
  tzset();
  for (int i = 0; i < 20; ++i) {
    const auto before = stamp_now();
    const auto line = logged(Info, 4);
    const auto after = stamp_now();
    EXPECT_LE(before, line.substr(0, before.size()));
    EXPECT_GE(after, line.substr(0, after.size()));
  }
  unsetenv("TZ");
  tzset();
}

TEST(LsyslogLog, TimeFollowsTheZoneWithinASecond) {
  for (const char* const zone : {"AAA-1", "BBB-2", "BBB-2CCC", "DDD11", "AAA-1"}) {
    setenv("TZ", zone, 1);
    tzset();
    const auto before = stamp_now();
    const auto line = logged(Info, 4);
    const auto after = stamp_now();
    EXPECT_LE(before, line.substr(0, before.size())) << zone;
    EXPECT_GE(after, line.substr(0, after.size())) << zone;
  }
  unsetenv("TZ");
  tzset();
}

TEST(LsyslogLog, EveryThreadTellsTheTime) {
  logged(Info, 4);
  const auto line = stderr_of([] { std::thread([] { kestro_lsyslog_log(Info, "module", 1, "!\n"); }).join(); });
  EXPECT_TRUE(is_line(line, "[INFO] [unknown] !\n")) << line;
}

TEST(LsyslogLog, FailureToFormatWritesNothing) {
  int32_t result = 0;
  const auto log = stderr_of([&] {
    const Fault fault("vsnprintf", EOVERFLOW);
    errno = ENOENT;
    result = kestro_lsyslog_log(Info, "module", 1, "%s", "text");
    EXPECT_EQ(errno, ENOENT);
  });
  EXPECT_EQ(result, -1);
  EXPECT_EQ(log, "");
}

// Lines of usual length are joined before they are written, long ones are gathered by the kernel.
const struct {
  const char* call;
  std::string message;
} write_rows[] = {{"write", "short\n"}, {"writev", std::string(2000, 'l') + "\n"}};

TEST(LsyslogLog, ErrorsOfTheWriteAreIgnored) {
  for (const auto& row : write_rows) {
    const auto log = stderr_of([&] {
      const Fault fault(row.call, EIO);
      EXPECT_EQ(kestro_lsyslog_log(Info, "module", 1, "%s", row.message.c_str()), 0);
      EXPECT_TRUE(fault.fired()) << row.call;
    });
    EXPECT_EQ(log, "");
  }
}

TEST(LsyslogLog, InterruptedWriteIsMadeAgain) {
  for (const auto& row : write_rows) {
    const auto log = stderr_of([&] {
      const Fault fault(row.call, EINTR);
      EXPECT_EQ(kestro_lsyslog_log(Info, "module", 1, "%s", row.message.c_str()), 0);
      EXPECT_TRUE(fault.fired()) << row.call;
    });
    EXPECT_TRUE(is_line(log, "[INFO] [unknown] " + row.message)) << log;
  }
}

// At and about the length at which the way of writing changes, and with names that alone are longer.
TEST(LsyslogLog, LinesOfEveryLengthAreWhole) {
  const std::string name(1500, 'n');
  for (const char* const source_name : {"router", name.c_str()}) {
    const Source source(source_name);
    for (size_t length = 960; length < 1030; ++length) {
      const std::string message = std::string(length - 1, 'm') + "\n";
      const auto line = logged(Info, 4, message.c_str());
      EXPECT_TRUE(is_line(line, "[INFO] [" + std::string(source_name) + "] " + message)) << length;
    }
  }
}

TEST(LsyslogLog, KeepsErrno) {
  const auto log = stderr_of([] {
    errno = ENOTTY;
    kestro_lsyslog_log(Info, "module", 1, "one\n");
    EXPECT_EQ(errno, ENOTTY);
    kestro_lsyslog_log(Verbose, "module", 1, "suppressed\n");
    EXPECT_EQ(errno, ENOTTY);
    const Fault fault("write", EIO);
    kestro_lsyslog_log(Info, "module", 1, "two\n");
    EXPECT_TRUE(fault.fired());
    EXPECT_EQ(errno, ENOTTY);
  });
  EXPECT_THAT(log, HasSubstr("one\n"));
}

TEST(LsyslogLog, AllocatesNothing) {
  const std::string longest(9000, 'x');
  stderr_of([&] {
    const Fault faults[] = {{"malloc", ENOMEM}, {"calloc", ENOMEM}, {"realloc", ENOMEM}};
    for (const int32_t severity : {Error, Info, Debug}) {
      kestro_lsyslog_log(severity, "module", 1, "%s %d\n", longest.c_str(), severity);
    }
    site_of("module")().log(Error, "%s\n", longest.c_str());
    for (const auto& fault : faults) EXPECT_FALSE(fault.fired());
  });
}

TEST(LsyslogLog, SuppressedLinesAreNotFormatted) {
  const LogLevel level(KESTRO_LSYSLOG_LOGGING_LEVEL_INFO);
  const Fault formatting("vsnprintf", EOVERFLOW);
  const auto log = stderr_of([] {
    const auto site = site_of("module")();
    site.log(Debug, "%d\n", 1);
    EXPECT_EQ(site.fail(Debug, -7, "%d\n", 1), -7);
    site.log_unchecked(Debug, "%d\n", 1);
    EXPECT_EQ(kestro_lsyslog_log(Debug, "module", 1, "%d\n", 1), 0);
  });
  EXPECT_FALSE(formatting.fired());
  EXPECT_EQ(log, "");
}

// ---- One write a line ----

// Standard error as a socket that keeps every write apart.
class WritesOnStderr {
 public:
  WritesOnStderr() : saved_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)) {
    int ends[2] = {-1, -1};
    socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends);
    reader_ = Descriptor(ends[0]);
    dup2(ends[1], STDERR_FILENO);
    close(ends[1]);
  }
  WritesOnStderr(const WritesOnStderr&) = delete;
  WritesOnStderr& operator=(const WritesOnStderr&) = delete;
  ~WritesOnStderr() { restore(); }

  // What was written, write by write; standard error is itself again.
  std::vector<std::string> take() {
    restore();
    std::vector<std::string> writes;
    std::array<char, 65'536> buffer{};
    ssize_t count = 0;
    while ((count = recv(reader_.get(), buffer.data(), buffer.size(), 0)) > 0) {
      writes.emplace_back(buffer.data(), static_cast<size_t>(count));
    }
    return writes;
  }

 private:
  void restore() {
    if (saved_.get() < 0) return;
    dup2(saved_.get(), STDERR_FILENO);
    close(saved_.release());
  }

  Descriptor saved_;
  Descriptor reader_;
};

TEST(LsyslogLog, EveryLineIsOneWrite) {
  const LogLevel level(KESTRO_LSYSLOG_LOGGING_LEVEL_VERBOSE);
  const std::string longest(8000, 'x');
  WritesOnStderr stderr_writes;
  kestro_lsyslog_log(Info, "module", 1, "one\n");
  kestro_lsyslog_log(Error, "module", 2, "two\nlines\n");
  kestro_lsyslog_log(Verbose, "module", 3, "%s", longest.c_str());
  kestro_lsyslog_log(Debug, "module", 4, "%s", "");
  const auto writes = stderr_writes.take();
  ASSERT_EQ(writes.size(), 4U);
  EXPECT_TRUE(is_line(writes[0], "[INFO] [unknown] one\n"));
  EXPECT_TRUE(is_line(writes[1], "[ERR!] [unknown: module:2] two\nlines\n"));
  EXPECT_TRUE(is_line(writes[2], "[VERB] [unknown: module:3] " + longest));
  EXPECT_TRUE(is_line(writes[3], "[DEBG] [unknown: module:4] "));
}

constexpr size_t writers = 3;
constexpr size_t threads_of_a_writer = 3;
constexpr int lines_of_a_thread = 50;

// One process: several threads that each write long lines of a letter of their own.
[[noreturn]] void write_lines(int fd, char letter) {
  dup2(fd, STDERR_FILENO);
  std::array<std::thread, threads_of_a_writer> threads;
  for (auto& thread : threads) {
    thread = std::thread([text = std::string(7999, letter++)] {
      for (int n = 0; n < lines_of_a_thread; ++n) kestro_lsyslog_log(Error, "module", 1, "%s\n", text.c_str());
    });
  }
  for (auto& thread : threads) thread.join();
  _exit(0);
}

TEST(LsyslogLog, LinesOfThreadsAndProcessesOnOneFileDoNotMix) {
  const TempDir dir;
  const Descriptor file(open(dir.file("log").c_str(), O_CREAT | O_WRONLY | O_APPEND | O_CLOEXEC, 0600));
  ASSERT_GE(file.get(), 0);
  for (size_t i = 0; i < writers; ++i) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) write_lines(file.get(), static_cast<char>('a' + i * threads_of_a_writer));
  }
  for (size_t i = 0; i < writers; ++i) {
    int status = -1;
    ASSERT_GT(wait(&status), 0);
    EXPECT_EQ(status, 0);
  }

  std::ifstream lines(dir.file("log"));
  std::string line;
  std::array<int, writers * threads_of_a_writer> counts{};
  while (std::getline(lines, line)) {
    ASSERT_EQ(line.size(), 26 + "[ERR!] [unknown: module:1] "s.size() + 7999);
    const char letter = line.back();
    ASSERT_TRUE(is_line(line, "[ERR!] [unknown: module:1] " + std::string(7999, letter))) << line;
    ++counts.at(static_cast<size_t>(letter - 'a'));
  }
  EXPECT_THAT(counts, testing::Each(lines_of_a_thread));
}

// ---- Levels ----

struct Admission {
  int32_t level;
  int32_t severity;
  bool checked;
  bool written;
};

TEST(LsyslogLevel, AdmitsByTheCheckUnsignedAndByTheWriterSigned) {
  const Admission admissions[] = {
      // OFF lets through what is no severity, and nothing from CONFIG up.
      {0, 0, true, true},
      {0, 1, false, false},
      {0, 2, false, false},
      {0, 6, false, false},
      {0, 7, false, false},
      {0, -1, false, true},
      // INFO
      {4, 0, true, true},
      {4, 1, true, true},
      {4, 2, true, true},
      {4, 3, true, true},
      {4, 4, true, true},
      {4, 5, false, false},
      {4, 6, false, false},
      {4, -1, false, true},
      // DEBUG
      {5, 4, true, true},
      {5, 5, true, true},
      {5, 6, false, false},
      // VERBOSE
      {6, 6, true, true},
      {6, 7, false, false},
      {6, INT32_MIN, false, true},
      // UNDEF: the check knows no greater number, the writer hardly a smaller one.
      {-1, 0, true, false},
      {-1, 1, true, false},
      {-1, 6, true, false},
      {-1, INT32_MAX, true, false},
      {-1, -1, true, true},
      {-1, INT32_MIN, true, true},
  };
  for (const auto& row : admissions) {
    const LogLevel level(row.level);
    EXPECT_EQ(kestro_lsyslog_check_severity(row.severity), row.checked ? 1 : 0) << row.level << " " << row.severity;
    EXPECT_EQ(!logged(row.severity, row.level).empty(), row.written) << row.level << " " << row.severity;
  }
}

// ---- Sites of the modules ----

TEST(Site, TellsModuleAndLineOfTheCaller) {
  constexpr auto here = site_of("some_module");
  const auto expected = "[DEBG] [unknown: some_module:" + std::to_string(__LINE__ + 1) + "] text 1\n";
  const auto line = stderr_of([&] { here().log(Debug, "text %d\n", 1); });
  EXPECT_TRUE(is_line(line, expected)) << line;
}

TEST(Site, FailGivesTheStatusBackWhetherItWritesOrNot) {
  constexpr auto here = site_of("some_module");
  for (const auto level : {KESTRO_LSYSLOG_LOGGING_LEVEL_OFF, KESTRO_LSYSLOG_LOGGING_LEVEL_DEBUG}) {
    const LogLevel at(level);
    int32_t result = 0;
    const auto log = stderr_of([&] { result = here().fail(Debug, -34, "failed: %s\n", "why"); });
    EXPECT_EQ(result, -34);
    EXPECT_EQ(log.empty(), level == KESTRO_LSYSLOG_LOGGING_LEVEL_OFF);
  }
}

TEST(Site, CheckedLinesNeedTheCheckAndTheWriter) {
  constexpr auto here = site_of("some_module");
  const LogLevel level(4);
  constexpr auto negative = static_cast<Severity>(-1);  // for the writer it is below every level
  EXPECT_EQ(stderr_of([&] { here().log(negative, "text\n"); }), "");
  EXPECT_THAT(stderr_of([&] { here().log_unchecked(negative, "text\n"); }), HasSubstr("text\n"));
}

// ---- Configuration ----

class LsyslogConf : public testing::Test {
 protected:
  void SetUp() override {
    if (file_.string().starts_with("/etc/")) GTEST_SKIP() << "would write the daemons' own " << file_;
    std::filesystem::create_directories(file_.parent_path());
  }
  void TearDown() override {
    std::error_code ignored;
    if (!file_.string().starts_with("/etc/")) std::filesystem::remove(file_, ignored);
  }
  void write(std::string_view text) const { std::ofstream(file_, std::ios::binary) << text; }

 private:
  std::filesystem::path file_ = KESTRO_LSYSLOG_CONF_FILE;
  LogLevel level_{KESTRO_LSYSLOG_LOGGING_LEVEL_DEBUG};
  Source source_{"router"};
};

TEST_F(LsyslogConf, EveryLevelWordSetsItsLevel) {
  const struct {
    const char* word;
    int32_t level;
    bool told;
  } words[] = {{"off", 0, false}, {"info", 4, true}, {"debug", 5, true}, {"verbose", 6, true}};
  for (const auto& [word, level, told] : words) {
    write("[logging_levels]\nsimd=info\nrouter="s + word + "\n");
    _level = level == 5 ? 0 : 5;
    const auto log = stderr_of([] { EXPECT_EQ(kestro_lsyslog_reload_conf(), 0); });
    EXPECT_EQ(_level, level) << word;
    EXPECT_TRUE(told ? is_line(log, "[INFO] [router] Logging level set to "s + word + ".\n") : log.empty()) << log;
  }
}

TEST_F(LsyslogConf, AnyOtherWordIsRefusedAndTheLevelStays) {
  for (const std::string word :
       {"warn", "error", "config", "INFO", "Debug", "info ", " info", "info\r", "", "5", "offf", "inf", "\"info\""}) {
    write("[logging_levels]\nrouter=" + word + "\n");
    const auto log = stderr_of([] { EXPECT_EQ(kestro_lsyslog_reload_conf(), -42); });
    EXPECT_EQ(_level, 5) << word;
    EXPECT_EQ(log, "");
  }
}

TEST_F(LsyslogConf, StatusOfTheReaderIsPassedOnAndTheLevelStays) {
  const struct {
    const char* name;
    std::string text;
    int32_t status;
  } rows[] = {
      {"no section", "router=info\n", -35},
      {"other section", "[levels]\nrouter=info\n", -35},
      {"other daemon", "[logging_levels]\nsimd=info\n", -35},
      {"no line end", "[logging_levels]\nrouter=info", -35},
      {"blanks around the sign", "[logging_levels]\nrouter = info\n", -35},
      {"second section", "[logging_levels]\n[logging_levels]\nrouter=info\n", -35},
      {"50 characters", "[logging_levels]\nrouter=" + std::string(50, 'x') + "\n", -42},
      {"51 characters", "[logging_levels]\nrouter=" + std::string(51, 'x') + "\n", -41},
  };
  for (const auto& row : rows) {
    write(row.text);
    const auto log = stderr_of([&] { EXPECT_EQ(kestro_lsyslog_reload_conf(), row.status) << row.name; });
    EXPECT_EQ(_level, 5) << row.name;
    EXPECT_EQ(log, "") << row.name;
  }
}

TEST_F(LsyslogConf, MissingFileIsReportedAndTheLevelStays) {
  const auto log = stderr_of([] { EXPECT_EQ(kestro_lsyslog_reload_conf(), -40); });
  EXPECT_EQ(_level, 5);
  EXPECT_EQ(log, "");
}

TEST_F(LsyslogConf, InitNamesTheDaemonAndReadsItsLevel) {
  write("[logging_levels]\nsimd=verbose\nrouter=off\n");
  const auto log = stderr_of([] { EXPECT_EQ(kestro_lsyslog_init("simd"), 0); });
  EXPECT_EQ(_level, 6);
  EXPECT_TRUE(is_line(log, "[INFO] [simd] Logging level set to verbose.\n")) << log;
}

TEST_F(LsyslogConf, InitKeepsThePointer) {
  char name[] = "first";
  EXPECT_EQ(kestro_lsyslog_init(name), 0);
  name[0] = 'F';
  EXPECT_THAT(logged(Info, 4), HasSubstr("[First] "));
}

TEST_F(LsyslogConf, InitSwallowsAFailedReload) {
  const auto log = stderr_of([] { EXPECT_EQ(kestro_lsyslog_init("simd"), 0); });
  EXPECT_EQ(_level, 5);
  EXPECT_EQ(log, "");
  EXPECT_THAT(logged(Info, 4), HasSubstr("[simd] "));
}

TEST_F(LsyslogConf, InitWithoutANameIsUnknown) {
  EXPECT_EQ(kestro_lsyslog_init(nullptr), 0);
  EXPECT_THAT(logged(Info, 4), HasSubstr("[unknown] "));
}

TEST_F(LsyslogConf, MethodHandlerReloadsAndLeavesItsOutputsAlone) {
  const Json params(json_object());
  auto* result = params.get();
  auto* err_data = params.get();
  stderr_of([&] {
    write("[logging_levels]\nrouter=verbose\n");
    EXPECT_EQ(kestro_lsyslog_reload_conf_api(params.get(), &result, &err_data), 0);
    EXPECT_EQ(_level, 6);
    write("[logging_levels]\nrouter=no level\n");
    EXPECT_EQ(kestro_lsyslog_reload_conf_api(nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(_level, 6);
  });
  EXPECT_EQ(result, params.get());
  EXPECT_EQ(err_data, params.get());
}

TEST_F(LsyslogConf, ReloadMethodIsTakenByItsExactName) {
  write("[logging_levels]\nrouter=verbose\n");
  for (const char* other : {"logger.reloadconf", "logger.ReloadConf ", "logger.Reload", "logger", "", "Port.Get"}) {
    EXPECT_EQ(kestro_lsyslog_is_json_method_lsyslog(other), 0) << other;
    EXPECT_EQ(_level, 5) << other;
  }
  const auto log = stderr_of([] { EXPECT_EQ(kestro_lsyslog_is_json_method_lsyslog("logger.ReloadConf"), 1); });
  EXPECT_EQ(_level, 6);
  EXPECT_THAT(log, HasSubstr("Logging level set to verbose.\n"));
}

TEST_F(LsyslogConf, ReloadMethodIsTakenAlsoWhenTheReloadFails) {
  EXPECT_EQ(kestro_lsyslog_is_json_method_lsyslog("logger.ReloadConf"), 1);
  EXPECT_EQ(_level, 5);
}

// ---- The rest ----

TEST(Lsyslog, ShutdownChangesNothing) {
  EXPECT_EQ(kestro_lsyslog_shutdown(), 0);
  EXPECT_TRUE(is_line(logged(Info, 4), "[INFO] [unknown] message\n"));
}

TEST(Lsyslog, SetSocketPausesForHalfASecondAndKeepsNothing) {
  pauses.clear();
  const auto log = stderr_of([] {
    EXPECT_EQ(kestro_lsyslog_set_socket(7), 0);
    EXPECT_EQ(kestro_lsyslog_set_socket(-1), 0);
  });
  ASSERT_EQ(pauses.size(), 2U);
  for (const auto& pause : pauses) {
    EXPECT_EQ(pause.tv_sec, 0);
    EXPECT_EQ(pause.tv_nsec, 500'000'000);
  }
  EXPECT_EQ(log, "");
}

}  // namespace
}  // namespace kestro::test
