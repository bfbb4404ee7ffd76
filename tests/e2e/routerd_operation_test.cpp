// Operating the router daemon: its command line, its own requests, its counters, its end.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "e2e/routerd.hpp"
#include "kestro_mq.h"
#include "support/named.hpp"
#include "support/shm_name.hpp"

namespace kestro::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

constexpr auto on = R"({"jsonrpc":"2.0","method":"router.SetMaintenance","params":{"enable":true}})";
constexpr auto off = R"({"jsonrpc":"2.0","method":"router.SetMaintenance","params":{"enable":false}})";
const std::string echo = request("ports.Echo", "{}", R"("mine")");
const std::string echoed = answer("ports.Echo", "{}");

// ---- Requests of its own ----

TEST(RouterdMaintenance, AnswersBusyUntilItEnds) {
  Road road;
  const auto before = road.connect();
  before.send(request("ports.Late", "{}", "1"));
  ASSERT_TRUE(road.counts("in_flight", 1));

  EXPECT_EQ(road.call(on), "");
  EXPECT_EQ(road.call(echo), busy("mine"));
  EXPECT_EQ(road.connect_by_tcp().call(echo), busy("mine"));
  road.ports().signal(SIGUSR1);
  EXPECT_EQ(before.receive(), answer("ports.Late", "{}"));

  EXPECT_EQ(road.call(off), "");
  EXPECT_EQ(road.call(echo), echoed);
  EXPECT_TRUE(road.counts("handled", 2));
  EXPECT_THAT(road.router().err(),
              AllOf(HasLog(Warning, "kestro_routerd", "maintenance on: every request is answered busy\n"),
                    HasLog(Warning, "kestro_routerd", "maintenance off\n")));
}

TEST(RouterdMaintenance, WantsABoolean) {
  const Road road;
  for (const char* params : {"{}", R"({"enable":1})", R"({"enable":"true"})", R"({"enable":null})"}) {
    road.call(std::string(R"({"jsonrpc":"2.0","method":"router.SetMaintenance","params":)") + params + "}");
  }
  road.call(R"({"jsonrpc":"2.0","method":"router.SetMaintenance"})");
  EXPECT_EQ(road.call(echo), echoed);
  EXPECT_TRUE(road.counts("no_id", 5));
  EXPECT_TRUE(road.counts("handled", 0));
}

TEST(RouterdMaintenance, IsNotForTcpClients) {
  const Road road;
  EXPECT_EQ(road.connect_by_tcp().call(on), "");
  EXPECT_EQ(road.call(echo), echoed);
  EXPECT_TRUE(road.counts("not_permitted", 1));
}

TEST(RouterdMaintenance, IsNotForOtherUsers) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to become another user";
  const Road road;
  std::filesystem::permissions(road.directory(), std::filesystem::perms(0755));
  const pid_t other = fork();
  if (other == 0) {
    const bool became = setgid(65'534) == 0 && setuid(65'534) == 0;
    _exit(became && road.call(on).empty() && road.call(echo) == echoed ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(other, &status, 0), other);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  EXPECT_TRUE(road.counts("not_permitted", 1));
}

TEST(RouterdMaintenance, WithAnIdIsARequestForAService) {
  const Road road({"--timeout", "router.SetMaintenance=0.05"});
  EXPECT_EQ(road.call(request("router.SetMaintenance", R"({"enable":true})", "1")), timed_out("1"));
  EXPECT_EQ(road.call(echo), echoed);
}

TEST(RouterdLog, LevelIsReadAgainWhenAskedFor) {
  Road road;
  std::filesystem::create_directories(std::filesystem::path(KESTRO_LSYSLOG_CONF_FILE).parent_path());
  const Finally remove_conf([]() noexcept { std::filesystem::remove(KESTRO_LSYSLOG_CONF_FILE); });
  std::ofstream(KESTRO_LSYSLOG_CONF_FILE) << "[logging_levels]\nrouter=info\n";
  EXPECT_EQ(road.connect_by_tcp().call(R"({"jsonrpc":"2.0","method":"logger.ReloadConf"})"), "");
  EXPECT_THAT(road.router().err(), HasSubstr("[INFO] [router] Logging level set to info.\n"));
  EXPECT_TRUE(road.counts("handled", 1));
}

// ---- Descriptors ----

// Where a descriptor of a process leads; empty when there is none.
std::filesystem::path where(const std::filesystem::path& process, const std::filesystem::path& fd) {
  std::error_code ignored;
  return std::filesystem::read_symlink(process / "fd" / fd, ignored);
}

bool is_closed_on_exec(const std::filesystem::path& process, const std::filesystem::path& fd) {
  std::ifstream info(process / "fdinfo" / fd);
  std::string word;
  while (info >> word && word != "flags:") {
  }
  unsigned flags = 0;
  info >> std::oct >> flags;
  return (flags & O_CLOEXEC) != 0;
}

// But for what it was started with.
TEST(RouterdDescriptors, AreClosedOnExec) {
  Road road;
  const auto client = road.connect();
  const auto other = road.connect_by_tcp();
  ASSERT_TRUE(road.counts("clients", 2));
  const std::filesystem::path process = "/proc/" + std::to_string(road.router().pid());
  size_t looked_at = 0;
  for (const auto& entry : std::filesystem::directory_iterator(process / "fd")) {
    const auto fd = entry.path().filename();
    const bool was_passed_on = std::stoi(fd) <= STDERR_FILENO || where(process, fd) == where("/proc/self", fd);
    if (was_passed_on) continue;
    EXPECT_TRUE(is_closed_on_exec(process, fd)) << where(process, fd);
    ++looked_at;
  }
  EXPECT_GT(looked_at, 10U);
}

// ---- Counters ----

TEST(RouterdCounters, EverybodyReadsWhatTheRouterAloneWrites) {
  const Road road;
  struct stat variable {};
  ASSERT_EQ(stat(("/dev/shm" + road.stats_name()).c_str(), &variable), 0);
  EXPECT_EQ(variable.st_mode & 07777U, 0644U);
  EXPECT_EQ(variable.st_uid, geteuid());
}

// Whoever had put it there could shrink it under the router's hands.
TEST(RouterdCounters, AreNotKeptInAVariableOfSomebodyElse) {
  const TempDir dir;
  const ShmName name;
  const Descriptor found(shm_open(name.c_str(), O_CREAT | O_EXCL | O_RDWR, 0666));
  ASSERT_GE(found.get(), 0);
  Process router({KESTRO_ROUTERD, "--listen-unix", dir.file("router.sock"), "--bus-publish", free_bus_address(),
                  "--bus-subscribe", free_bus_address(), "--stats-name", name.str()});
  std::array<char, routerd::StatsVariable::size> text{};
  EXPECT_TRUE(
      eventually([&] { return kestro_shm_get_string(name.c_str(), text.size(), text.data()) == 0 && text[0] == '{'; }));
  struct stat old {};
  ASSERT_EQ(fstat(found.get(), &old), 0);
  EXPECT_EQ(old.st_size, 0);
  EXPECT_EQ(old.st_nlink, 0U);
  EXPECT_EQ(router.terminate(), 0);
}

TEST(RouterdCounters, AreMissedWhereThereIsNoRoomForThem) {
  const TempDir dir;
  const ShmName name;
  std::filesystem::create_directory(name.path());
  const Finally remove_it([&]() noexcept { std::filesystem::remove(name.path()); });
  Process router({KESTRO_ROUTERD, "--listen-unix", dir.file("router.sock"), "--bus-publish", free_bus_address(),
                  "--bus-subscribe", free_bus_address(), "--stats-name", name.str()});
  EXPECT_TRUE(eventually([&] { return router.err().find("ready: clients at") != std::string::npos; }));
  EXPECT_THAT(router.err(),
              HasLog(Error, "kestro_routerd", "no counters: cannot create " + name.str() + ": File exists\n"));
  EXPECT_EQ(router.terminate(), 0);
}

TEST(RouterdCounters, TellBytesAndTimes) {
  const Road road;
  for (int turn = 0; turn < 10; ++turn) road.call(echo);
  ASSERT_TRUE(road.counts("answered", 10));
  EXPECT_GE(road.counter("bytes_in"), static_cast<int64_t>(10 * echo.size()));
  EXPECT_GE(road.counter("bytes_out"), static_cast<int64_t>(10 * echoed.size()));

  std::array<char, routerd::StatsVariable::size> text{};
  kestro_shm_get_string(road.stats_name().c_str(), routerd::StatsVariable::size, text.data());
  const Json counters(json_loads(text.data(), 0, nullptr));
  const json_t* const histogram = json_object_get(counters.get(), "latency_below_2_to_n_ms");
  EXPECT_EQ(json_array_size(histogram), 20U);
  json_int_t sum = 0;
  for (size_t slot = 0; slot < json_array_size(histogram); ++slot) {
    sum += json_integer_value(json_array_get(histogram, slot));
  }
  EXPECT_EQ(sum, json_integer_value(json_object_get(counters.get(), "answered")));
}

TEST(RouterdCounters, LatencySlotsArePowersOfTwo) {
  using namespace std::chrono_literals;
  routerd::Stats stats;
  for (const auto took : {0ns, 999'999ns}) stats.count_latency(took);
  stats.count_latency(1ms);
  stats.count_latency(2ms);
  stats.count_latency(3ms);
  stats.count_latency(4ms);
  stats.count_latency(1h);
  EXPECT_EQ(stats.latency_ms[0], 2U);
  EXPECT_EQ(stats.latency_ms[1], 1U);
  EXPECT_EQ(stats.latency_ms[2], 2U);
  EXPECT_EQ(stats.latency_ms[3], 1U);
  EXPECT_EQ(stats.latency_ms[19], 1U);
}

// ---- The end ----

class RouterdEnd : public testing::TestWithParam<int> {
 protected:
  void end(Road& road) const {
    road.router().signal(GetParam());
    ASSERT_TRUE(road.logs("ending: "));
  }
};

TEST_P(RouterdEnd, IsCleanWhenNothingIsInFlight) {
  Road road;
  EXPECT_TRUE(std::filesystem::exists(road.path()));
  road.router().signal(GetParam());
  EXPECT_EQ(road.router().wait(), 0);
  EXPECT_FALSE(std::filesystem::exists(road.path()));
  EXPECT_FALSE(std::filesystem::exists("/dev/shm" + road.stats_name()));
}

TEST_P(RouterdEnd, WaitsForWhatIsInFlight) {
  Road road({"--drain-timeout", "600"});
  const auto held = road.connect();
  held.send(request("ports.Late", "{}", "1"));
  const auto unfinished = road.connect();
  unfinished.send(echo.substr(0, 20));
  ASSERT_TRUE(road.counts("in_flight", 1));
  ASSERT_TRUE(road.counts("clients", 2));
  end(road);

  EXPECT_THROW(static_cast<void>(road.connect()), std::runtime_error);
  EXPECT_THROW(static_cast<void>(road.connect_by_tcp()), std::runtime_error);
  EXPECT_EQ(unfinished.call(echo.substr(20)), busy("mine"));
  EXPECT_FALSE(held.has_news());
  road.ports().signal(SIGUSR1);
  EXPECT_EQ(held.receive(), answer("ports.Late", "{}"));
  EXPECT_EQ(road.router().wait(), 0);
}

TEST_P(RouterdEnd, AnswersTheRestBusyWhenTheTimeIsOver) {
  Road road({"--drain-timeout", "0.1"});
  const auto held = road.connect();
  held.send(request("ports.Silent", "{}", R"("mine")"));
  const auto silent = road.connect();
  ASSERT_TRUE(road.counts("in_flight", 1));
  ASSERT_TRUE(road.counts("clients", 2));
  end(road);
  EXPECT_EQ(held.receive(), busy("mine"));
  EXPECT_EQ(silent.receive(), "");
  EXPECT_EQ(road.router().wait(), 0);
  EXPECT_FALSE(std::filesystem::exists(road.path()));
  EXPECT_THAT(road.router().err(),
              HasLog(Warning, "kestro_routerd", "request not forwarded, connection closed: shutting_down\n"));
}

TEST_P(RouterdEnd, ComesAtOnceWithASecondSignal) {
  Road road({"--drain-timeout", "3600"});
  const auto held = road.connect();
  held.send(request("ports.Silent", "{}", "1"));
  ASSERT_TRUE(road.counts("in_flight", 1));
  end(road);
  road.router().signal(GetParam());
  EXPECT_EQ(road.router().wait(), 1);
  EXPECT_EQ(held.receive(), "");
  EXPECT_FALSE(std::filesystem::exists(road.path()));
  EXPECT_FALSE(std::filesystem::exists("/dev/shm" + road.stats_name()));
}

TEST_P(RouterdEnd, ComesUnderAFloodToo) {
  Road road;
  road.call(request("ports.Flood", "{}", "1"));
  road.router().signal(GetParam());
  EXPECT_EQ(road.router().wait(), 0);
}

INSTANTIATE_TEST_SUITE_P(Signals, RouterdEnd, testing::Values(SIGTERM, SIGINT),
                         [](const auto& signal) { return signal.param == SIGTERM ? "Term" : "Int"; });

// ---- The command line ----

TEST(RouterdUsage, HelpNamesEveryOption) {
  Process process({KESTRO_ROUTERD, "--help"});
  EXPECT_EQ(process.wait(), 0);
  for (const char* option : {"--listen-unix", "--listen-tcp", "--bus-publish", "--bus-subscribe", "--max-clients",
                             "--max-in-flight", "--max-request", "--read-timeout", "--write-timeout", "--drain-timeout",
                             "--timeout", "--stats-name", "--strict-ids", "--help", "--version"}) {
    EXPECT_THAT(process.out(), HasSubstr(option));
  }
  EXPECT_THAT(process.out(), HasSubstr("2 the command line is wrong"));
}

TEST(RouterdUsage, VersionIsTold) {
  Process process({KESTRO_ROUTERD, "--version"});
  EXPECT_EQ(process.wait(), 0);
  EXPECT_THAT(process.out(), StartsWith("kestro-routerd " KESTRO_VERSION "\n"));
}

struct Usage {
  const char* name;
  std::vector<std::string> arguments;
  const char* complaint;
};

std::ostream& operator<<(std::ostream& out, const Usage& u) {
  return out << u.name;
}

const std::vector<std::string> sound = {"--listen-unix",         "/nowhere/router.sock", "--bus-publish",
                                        "tcp://127.0.0.1:10001", "--bus-subscribe",      "tcp://127.0.0.1:10002"};

std::vector<std::string> sound_and(std::initializer_list<std::string> more) {
  auto all = sound;
  all.insert(all.end(), more);
  return all;
}

const Usage usages[] = {
    {"Nothing", {}, "kestro-routerd: --bus-publish is required\n"},
    {"NoListener",
     {"--bus-publish", "tcp://127.0.0.1:10001", "--bus-subscribe", "tcp://127.0.0.1:10002"},
     "kestro-routerd: --listen-unix or --listen-tcp is required\n"},
    {"UnknownOption", sound_and({"--fast"}), "--fast"},
    {"NotABusAddress", sound_and({"--bus-subscribe", "ipc:///tmp/x"}), "--bus-subscribe"},
    {"LongBusAddress", sound_and({"--bus-subscribe", "tcp://" + std::string(123, '1')}), "--bus-subscribe"},
    {"LongPath", sound_and({"--listen-unix", "/" + std::string(107, 'x')}), "--listen-unix"},
    {"NoPort", sound_and({"--listen-tcp", "0"}), "--listen-tcp"},
    {"PortTooHigh", sound_and({"--listen-tcp", "65536"}), "--listen-tcp"},
    {"NoClients", sound_and({"--max-clients", "0"}), "--max-clients: a number is expected, 1 or more\n"},
    {"NegativeClients", sound_and({"--max-clients", "-1"}), "--max-clients"},
    {"NoneInFlight", sound_and({"--max-in-flight", "0"}), "--max-in-flight"},
    {"RequestsTooLongForTheBus", sound_and({"--max-request", "1048576"}), "--max-request"},
    {"NoTimeToRead", sound_and({"--read-timeout", "0"}), "--read-timeout: 0.001 to 604800 seconds are expected\n"},
    {"NanTimeToRead", sound_and({"--read-timeout", "nan"}), "--read-timeout: 0.001 to 604800 seconds are expected\n"},
    {"EndlessTimeToWrite", sound_and({"--write-timeout", "inf"}), "--write-timeout"},
    {"NoNumberToDrain", sound_and({"--drain-timeout", "soon"}), "--drain-timeout"},
    {"MethodWithoutTime", sound_and({"--timeout", "ports.Get"}), "--timeout"},
    {"TimeWithoutMethod", sound_and({"--timeout", "=5"}), "--timeout"},
    {"MethodWithWrongTime", sound_and({"--timeout", "ports.Get=5x"}), "--timeout"},
    {"MethodWithNoTime", sound_and({"--timeout", "ports.Get=0"}), "--timeout"},
    {"MethodWithEndlessTime", sound_and({"--timeout", "ports.Get=inf"}), "--timeout"},
    {"MethodWithNanTime", sound_and({"--timeout", "ports.Get=nan"}), "--timeout"},
    {"StatsWithoutSlash", sound_and({"--stats-name", "router"}), "--stats-name"},
};

class RouterdUsages : public testing::TestWithParam<Usage> {};

TEST_P(RouterdUsages, AreToldAndEndWithTwo) {
  std::vector<std::string> arguments = {KESTRO_ROUTERD};
  arguments.insert(arguments.end(), GetParam().arguments.begin(), GetParam().arguments.end());
  Process process(arguments);
  EXPECT_EQ(process.wait(), 2);
  EXPECT_THAT(process.err(), HasSubstr(GetParam().complaint));
}

INSTANTIATE_TEST_SUITE_P(Wrong, RouterdUsages, testing::ValuesIn(usages), name_of<Usage>);

TEST(RouterdStart, FailsWithAWordWhereThereIsNoPlace) {
  Process nowhere({KESTRO_ROUTERD, "--listen-unix", "/nowhere/router.sock", "--bus-publish", free_bus_address(),
                   "--bus-subscribe", free_bus_address()});
  EXPECT_EQ(nowhere.wait(), 1);
  EXPECT_THAT(nowhere.err(), HasSubstr("kestro-routerd: cannot listen at /nowhere/router.sock\n"));

  const BusSocket taken(KESTRO_MQ_SP_PUB);
  const auto address = free_bus_address();
  int32_t eid = 0;
  ASSERT_EQ(kestro_mq_socket_bind(taken.handle(), KESTRO_MQ_TRANSPORT_TCP, address.c_str(), &eid), 0);
  const TempDir dir;
  Process second({KESTRO_ROUTERD, "--listen-unix", dir.file("router.sock"), "--bus-publish", address, "--bus-subscribe",
                  free_bus_address()});
  EXPECT_EQ(second.wait(), 1);
  EXPECT_THAT(second.err(), HasSubstr("kestro-routerd: cannot publish at " + address + ": Address already in use"));
}

}  // namespace
}  // namespace kestro::test
