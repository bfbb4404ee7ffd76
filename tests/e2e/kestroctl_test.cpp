// kestroctl, verb by verb: in front of a running router and two services, in a pipe and on a terminal.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "core/owned.hpp"
#include "kestro_general.h"
#include "kestro_jrpc.h"
#include "support/bus.hpp"
#include "support/json.hpp"
#include "support/process.hpp"
#include "support/shm_name.hpp"
#include "support/stream.hpp"
#include "support/temp_dir.hpp"
#include "support/terminal.hpp"

namespace kestro::test {
namespace {

using testing::AllOf;
using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

using Words = std::vector<std::string>;

constexpr int server_queue = 10;  // of the library's sockets; the system takes one more

struct Ended {
  int status;
  std::string out;
  std::string err;
};

Words with_program(Words arguments) {
  arguments.insert(arguments.begin(), KESTROCTL);
  return arguments;
}

Ended run(const Words& arguments, const Words& environment = {}) {
  Process process(with_program(arguments), environment);
  const int status = process.wait();
  return {status, process.out(), process.err()};
}

// A router, a service for "ports." and one for the rest, for all tests: they change nothing there.
class Unit {
 public:
  Unit() {
    start_router();
    ports_ = start_service(ports_address_, KESTRO_JRPC_CHANNEL_3A6F8F51);
    board_ = start_service(board_address_, KESTRO_JRPC_CHANNEL_DEFAULT);
    const bool up = eventually([this] { return run({"list"}, environment()).status == 0; });
    if (!up) throw std::runtime_error(router_->err());
  }
  Unit(const Unit&) = delete;
  Unit& operator=(const Unit&) = delete;
  ~Unit() { EXPECT_EQ(router_->terminate(), 0) << router_->err(); }

  [[nodiscard]] Words environment() const {
    return {"KESTRO_SOCKET=" + socket(),
            "KESTRO_BUS= " + router_address_ + "  " + ports_address_ + " " + board_address_ + " "};
  }
  [[nodiscard]] std::string socket() const { return dir_.file("router.sock"); }
  [[nodiscard]] int port() const { return port_; }
  [[nodiscard]] const std::string& stats_name() const { return stats_name_.str(); }
  [[nodiscard]] const Words& bus() const { return bus_; }
  [[nodiscard]] Process& router() { return *router_; }
  void stop_board() { board_.reset(); }

 private:
  void start_router() {
    router_ = std::make_unique<Process>(Words{
        KESTRO_ROUTERD, "--listen-unix", socket(), "--listen-tcp", std::to_string(port_), "--bus-publish",
        router_address_, "--bus-subscribe", ports_address_, "--bus-subscribe", board_address_, "--stats-name",
        stats_name_.str(), "--timeout", "events.List=0.2", "--timeout", "rpc.discover=1", "--drain-timeout", "0.1"});
  }
  [[nodiscard]] std::unique_ptr<Process> start_service(const std::string& address, const char* channel) const {
    return std::make_unique<Process>(Words{DESCRIBED_SERVICE, address, router_address_, channel});
  }

  TempDir dir_;
  int port_ = free_port();
  std::string router_address_ = free_bus_address();
  std::string ports_address_ = free_bus_address();
  std::string board_address_ = free_bus_address();
  ShmName stats_name_;
  Words bus_{"--bus", router_address_, "--bus", ports_address_, "--bus", board_address_};
  std::unique_ptr<Process> router_;
  std::unique_ptr<Process> ports_;
  std::unique_ptr<Process> board_;
};

class Kestroctl : public testing::Test {
 protected:
  static void SetUpTestSuite() { unit_ = std::make_unique<Unit>(); }
  static void TearDownTestSuite() { unit_.reset(); }

  static Unit& unit() { return *unit_; }
  static Ended ctl(const Words& arguments) { return run(arguments, unit_->environment()); }
  static Shown on_terminal(const Words& arguments, Words more = {}, unsigned short columns = 80) {
    for (const auto& variable : unit_->environment()) more.push_back(variable);
    more.emplace_back("TERM=xterm");
    return run_on_terminal(with_program(arguments), more, columns);
  }
  // Through a shell, in which "ctl" is the program.
  static Ended shell(const std::string& script) {
    Process process({"/bin/bash", "-c", "ctl() { '" KESTROCTL "' \"$@\"; }; " + script}, unit_->environment());
    const int status = process.wait();
    return {status, process.out(), process.err()};
  }
  static std::unique_ptr<Process> start(const Words& arguments) {
    return std::make_unique<Process>(with_program(arguments), unit_->environment());
  }

 private:
  static std::unique_ptr<Unit> unit_;
};
std::unique_ptr<Unit> Kestroctl::unit_;

constexpr const char* port = R"({"port_id": "c1-1"})";

// ---- call ----

TEST_F(Kestroctl, CallPrintsTheResult) {
  const auto ended = ctl({"call", "ports.Get", port});
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.out, "{\"port_id\":\"c1-1\",\"enabled\":true,\"watts\":5.1}\n");
  EXPECT_EQ(ended.err, "");
}

TEST_F(Kestroctl, CallByTcp) {
  EXPECT_EQ(run({"--tcp", std::to_string(unit().port()), "call", "ports.Get", port}).status, 0);
  EXPECT_EQ(run({"call", "ports.Get", port, "--socket", unit().socket()}).status, 0);
  EXPECT_EQ(ctl({"call", "--tcp", std::to_string(unit().port()), "ports.Get", port}).status, 0);
}

TEST_F(Kestroctl, CallTakesParametersFromAFileAndAPipe) {
  const TempDir dir;
  EXPECT_EQ(ctl({"call", "ports.Get", "@" + dir.write("p", port)}).status, 0);
  EXPECT_EQ(shell(R"(echo '{"port_id":"c1-1"}' | ctl call ports.Get -)").out,
            "{\"port_id\":\"c1-1\",\"enabled\":true,\"watts\":5.1}\n");
}

TEST_F(Kestroctl, CallShowsTheWholeAnswer) {
  const auto ended = ctl({"call", "ports.Get", port, "--raw"});
  EXPECT_EQ(ended.status, 0);
  EXPECT_THAT(ended.out, StartsWith(R"({"jsonrpc":"2.0","id":"ports.Get","result":{"port_id":"c1-1")"));
  const auto error = ctl({"call", "ports.Get", "{}", "--raw"});
  EXPECT_EQ(error.status, 1);
  EXPECT_THAT(error.out, HasSubstr(R"("error":{"code":-32602)"));
  EXPECT_EQ(error.err, "");
}

TEST_F(Kestroctl, CallTellsAnError) {
  const auto ended = ctl({"call", "ports.Get", R"({"port_id":"c9-9"})"});
  EXPECT_EQ(ended.status, 1);
  EXPECT_EQ(ended.out, "");
  EXPECT_EQ(ended.err,
            "kestroctl: ports.Get: error -32030\n"
            "  message  The given Port ID is invalid.\n"
            "  data     {\"ports\":[\"c1-1\",\"d1\"],\"asked\":\"c9-9\"}\n"
            "  more     `kestroctl explain -32030`\n");
  EXPECT_THAT(ctl({"call", "ports.Get"}).err, EndsWith("\n  because  port_id: a text is expected\n"
                                                       "  look at  `kestroctl describe ports.Get`: what it wants\n"));
  EXPECT_THAT(ctl({"call", "ports.Fly"}).err, EndsWith("\n  look at  `kestroctl list`: the methods that there are\n"));
}

TEST_F(Kestroctl, CallSaysWhatIsWrongWithParameters) {
  const auto ended = ctl({"call", "ports.Get", R"({"port_id": c1})"});
  EXPECT_EQ(ended.status, 2);
  EXPECT_THAT(ended.err,
              HasSubstr("line 1, column 13: invalid token near 'c'\n  {\"port_id\": c1}\n              ^\n"));
  EXPECT_EQ(ctl({"call", "ports.Get", "[]"}).status, 2);
  EXPECT_EQ(ctl({"call", "ports.Get", "@/nowhere"}).status, 2);
  EXPECT_EQ(ctl({"call"}).status, 2);
}

TEST_F(Kestroctl, CallTellsThatNoAnswerCame) {
  const auto ended = ctl({"call", "events.List"});
  EXPECT_EQ(ended.status, 3);
  EXPECT_THAT(ended.err, AllOf(HasSubstr("error -32005"), HasSubstr("Command timed out")));
  const auto impatient = ctl({"call", "events.Slow", "--timeout", "0.05"});
  EXPECT_EQ(impatient.status, 3);
  EXPECT_THAT(impatient.err, HasSubstr("within 0.05 s"));
}

TEST_F(Kestroctl, CallDoesNotQueueForEver) {
  const StreamServer nobody_accepts;
  std::vector<StreamClient> before;
  for (int i = 0; i <= server_queue; ++i) before.emplace_back(nobody_accepts);
  const auto ended = run({"--socket", nobody_accepts.path(), "call", "ports.Get", "--timeout", "0.9999999"});
  EXPECT_EQ(ended.status, 3);
  EXPECT_THAT(ended.err, HasSubstr("no answer from " + nobody_accepts.path()));
}

TEST_F(Kestroctl, CallTellsThatItCannotConnect) {
  const TempDir dir;
  const auto ended = ctl({"--socket", dir.file("none"), "call", "ports.Get"});
  EXPECT_EQ(ended.status, 4);
  EXPECT_THAT(ended.err, HasSubstr("cannot connect to " + dir.file("none") + ": No such file or directory"));
  EXPECT_EQ(run({"--tcp", std::to_string(free_port()), "call", "ports.Get"}).status, 4);
  EXPECT_EQ(ctl({"--socket", std::string(200, 's'), "call", "ports.Get"}).status, 2);
}

TEST_F(Kestroctl, CallTellsThatTheRouterRefused) {
  const auto ended = ctl({"call", "ports.Get", R"({"pad":")" + std::string(100'000, 'x') + R"("})"});
  EXPECT_EQ(ended.status, 1);  // such a long one is fine; the service misses its parameter
  const TempDir dir;
  const auto longest = dir.write("long", R"({"pad":")" + std::string(1'100'000, 'x') + R"("})");
  const auto refused = ctl({"call", "ports.Get", "@" + longest});
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.err, AllOf(HasSubstr("closed the connection without an answer"), HasSubstr("kestroctl stats")));
}

TEST_F(Kestroctl, CallAgainAndAgain) {
  const auto ended = ctl({"call", "ports.Get", port, "--repeat", "3", "--id", "7"});
  EXPECT_EQ(ended.status, 0);
  const std::string line = "{\"port_id\":\"c1-1\",\"enabled\":true,\"watts\":5.1}\n";
  EXPECT_EQ(ended.out, line + line + line);
  EXPECT_THAT(ended.err, ContainsRegex("3 calls: .* ms at best"));
}

TEST_F(Kestroctl, CallIsPrettyOnATerminalOnly) {
  const auto shown = on_terminal({"call", "ports.Get", port});
  EXPECT_EQ(shown.status, 0);
  EXPECT_EQ(shown.text,
            "{\n  \33[34m\"port_id\"\33[0m: \33[32m\"c1-1\"\33[0m,\n  \33[34m\"enabled\"\33[0m: \33[33mtrue\33[0m,\n"
            "  \33[34m\"watts\"\33[0m: \33[36m5.1\33[0m\n}\n");
  EXPECT_THAT(on_terminal({"call", "ports.Get", "{}"}).text, HasSubstr("\33[31merror -32602\33[0m"));
}

TEST_F(Kestroctl, ColoursAreLeftOutWhereNobodyWantsThem) {
  const std::string plain = "{\n  \"port_id\": \"c1-1\",\n  \"enabled\": true,\n  \"watts\": 5.1\n}\n";
  EXPECT_EQ(on_terminal({"call", "ports.Get", port}, {"NO_COLOR=1"}).text, plain);
  EXPECT_NE(on_terminal({"call", "ports.Get", port}, {"NO_COLOR="}).text, plain);
}

// ---- notify ----

TEST_F(Kestroctl, NotifyReachesTheRouter) {
  const auto ended = ctl({"notify", "router.SetMaintenance", R"({"enable":true})"});
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.out + ended.err, "");
  const auto busy = ctl({"call", "ports.Get", port});
  EXPECT_EQ(busy.status, 5);
  EXPECT_THAT(busy.err, AllOf(HasSubstr("error -32014"), HasSubstr("System is busy.")));
  EXPECT_EQ(ctl({"notify", "router.SetMaintenance", R"({"enable":false})"}).status, 0);
  EXPECT_EQ(ctl({"call", "ports.Get", port}).status, 0);
}

// ---- list, describe ----

TEST_F(Kestroctl, ListShowsEveryMethodOnce) {
  const auto ended = ctl({"list"});
  EXPECT_EQ(ended.status, 0);
  EXPECT_THAT(ended.out, HasSubstr("\nports.Get                        One port.\n"));
  const auto names = ctl({"list", "--names"});
  EXPECT_EQ(names.out,
            "emac.service.CoreSwitchGetTemps\nlogger.ReloadConf\nnetwork.service.Discover\nports.Announce\nports.Get\n"
            "ports.Junk\nports.Login\nrpc.discover\n");
}

TEST_F(Kestroctl, ListOnATerminalIsCutToItsWidth) {
  const auto shown = on_terminal({"list"}, {"NO_COLOR=1"}, 36);
  EXPECT_THAT(shown.text, HasSubstr("\nports.Get                        On~\n"));
}

TEST_F(Kestroctl, DescribeShowsParametersAndACall) {
  const auto ended = ctl({"describe", "ports.Get"});
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.out,
            "ports.Get (ports)\n  One port.\n\nParameters:\n"
            "  port_id string   required which\n"
            "  brief   boolean  optional less of it\n"
            "\nExample:\n  kestroctl call ports.Get '{\"port_id\": \"c1-1\"}'\n");
  EXPECT_THAT(ctl({"describe", "ports.Junk"}).out,
              HasSubstr("No parameters.\n\nExample:\n  kestroctl call ports.Junk\n"));
  const auto unknown = ctl({"describe", "ports.Nothing"});
  EXPECT_EQ(unknown.status, 1);
  EXPECT_THAT(unknown.err, HasSubstr("no service describes ports.Nothing"));
}

TEST(KestroctlUnit, ListNamesAServiceThatDoesNotAnswer) {
  Unit unit;
  unit.stop_board();
  const auto ended = run({"list"}, unit.environment());
  EXPECT_EQ(ended.status, 3);
  EXPECT_THAT(ended.err, HasSubstr("the hardware service does not describe itself (rpc.discover): Command timed out"));
  EXPECT_THAT(ended.out, HasSubstr("ports.Get "));

  const auto missing = run({"describe", "emac.Missing"}, unit.environment());
  EXPECT_EQ(missing.status, 3);
  EXPECT_THAT(missing.err, HasSubstr("no service that answered describes emac.Missing"));
}

// ---- monitor, wait ----

TEST_F(Kestroctl, MonitorShowsRequestsResponsesAndEvents) {
  const auto monitor = start({"monitor", "--limit", "7"});
  ASSERT_TRUE(eventually([&] { return monitor->err().find("listening to 3 publishers") != std::string::npos; }));
  ctl({"call", "ports.Get", port});
  ctl({"call", "ports.Get", R"({"port_id":"c9-9"})"});
  ctl({"call", "ports.Announce", R"({"event":"events.Test"})"});
  EXPECT_EQ(monitor->wait(), 0);
  const std::string time = "[0-9:]+\\.[0-9]{3} ";
  const auto out = monitor->out();
  EXPECT_THAT(out, ContainsRegex(time + "config   -> ports.Get \\{\"port_id\":\"c1-1\"\\}\n"));
  EXPECT_THAT(out, ContainsRegex(time + "reply    <- ports.Get [0-9.]+ ms \\{\"port_id\":\"c1-1\",\"enabled\":true"));
  EXPECT_THAT(out, ContainsRegex("<- ports.Get [0-9.]+ ms error -32030 The given Port ID is invalid. \\{\"ports\""));
  EXPECT_THAT(out, ContainsRegex("events   \\*\\* events.Test \\{\"event\":\"events.Test\"\\}\n"));
}

TEST_F(Kestroctl, MonitorMasksSecrets) {
  for (const Words& more : {Words{}, Words{"--json"}}) {
    Words arguments{"monitor", "--limit", "5"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const auto monitor = start(arguments);
    ASSERT_TRUE(eventually([&] { return monitor->err().find("listening to 3") != std::string::npos; }));
    ctl({"call", "ports.Login", R"({"password":"hunter2","more":[{"Snmp_Community":"hunter2"}]})"});
    ctl({"call", "ports.Junk"});
    EXPECT_EQ(monitor->wait(), 0);
    EXPECT_THAT(monitor->out(), Not(HasSubstr("hunter2")));
    EXPECT_THAT(monitor->out(), HasSubstr(R"({"password":"***","more":[{"Snmp_Community":"***"}]})"));
    EXPECT_THAT(monitor->out(), HasSubstr(R"({"session_secret":"***"})"));
  }
}

TEST_F(Kestroctl, MonitorAsJson) {
  const auto monitor = start({"monitor", "--json", "--method", "ports.G*", "--limit", "2"});
  ASSERT_TRUE(eventually([&] { return monitor->err().find("listening to 3") != std::string::npos; }));
  ctl({"call", "ports.Announce", R"({"event":"events.Test"})"});
  ctl({"call", "ports.Get", port});
  EXPECT_EQ(monitor->wait(), 0);
  const auto out = monitor->out();
  for (size_t begin = 0; begin < out.size(); begin = out.find('\n', begin) + 1) {
    const Json line = json_of(out.substr(begin, out.find('\n', begin) - begin));
    EXPECT_STREQ(json_string_value(json_object_get(line.get(), "method")), "ports.Get");
    EXPECT_TRUE(json_is_integer(json_object_get(line.get(), "transaction_id")));
  }
  EXPECT_THAT(out, HasSubstr(R"("channel":"config","kind":"request")"));
  EXPECT_THAT(out, HasSubstr(R"("channel":"reply","kind":"response")"));
}

TEST_F(Kestroctl, MonitorOfOneChannel) {
  const auto monitor = start({"monitor", "--channel", "events", "--limit", "2"});
  ASSERT_TRUE(eventually([&] { return monitor->err().find("listening to 3") != std::string::npos; }));
  ctl({"call", "ports.Junk"});
  ctl({"call", "ports.Announce", R"({"event":"events.Test"})"});
  EXPECT_EQ(monitor->wait(), 0);
  EXPECT_THAT(monitor->out(), ContainsRegex("^[0-9:.]+ events   \\?\\? no JSON-RPC, 21 bytes\n[0-9:.]+ events   "
                                            "\\*\\* events.Test [^\n]*\n$"));
}

TEST_F(Kestroctl, MonitorEndsOnAnInterrupt) {
  const auto monitor = start({"monitor"});
  ASSERT_TRUE(eventually([&] { return monitor->err().find("listening to 3") != std::string::npos; }));
  monitor->signal(SIGINT);
  EXPECT_EQ(monitor->wait(), 0);
}

TEST_F(Kestroctl, MonitorNeedsABus) {
  const auto ended = run({"monitor"}, {"KESTRO_BUS="});
  EXPECT_EQ(ended.status, 2);
  EXPECT_THAT(ended.err, HasSubstr("which bus?"));
  EXPECT_EQ(run({"monitor", "--bus", "ipc://x"}).status, 2);
  EXPECT_EQ(run({"monitor"}, {"KESTRO_BUS=nowhere"}).status, 2);
}

TEST_F(Kestroctl, WaitPrintsTheEvent) {
  Words arguments{"wait", "events.Test"};
  arguments.insert(arguments.end(), unit().bus().begin(), unit().bus().end());
  Process waiting(with_program(arguments));
  ASSERT_TRUE(eventually([&] { return waiting.err().find("waiting for events.Test\n") != std::string::npos; }));
  ctl({"call", "ports.Announce", R"({"event":"events.Other"})"});
  ctl({"call", "ports.Junk"});
  ctl({"call", "ports.Announce", R"({"event":"events.Test","oec_id":"c3"})"});
  EXPECT_EQ(waiting.wait(), 0);
  EXPECT_EQ(waiting.out(), "{\"event\":\"events.Test\",\"oec_id\":\"c3\"}\n");
}

TEST_F(Kestroctl, WaitGivesUp) {
  const auto ended = ctl({"wait", "events.Never", "--timeout", "0.2"});
  EXPECT_EQ(ended.status, 3);
  EXPECT_EQ(ended.out, "");
  EXPECT_THAT(ended.err, HasSubstr("no events.Never in time"));
  const auto alone = run({"wait", "events.Never", "--timeout", "0.2", "--bus", free_bus_address()});
  EXPECT_EQ(alone.status, 4);
  EXPECT_THAT(alone.err, HasSubstr("no publisher came in time"));
}

// ---- stats ----

TEST_F(Kestroctl, StatsShowTheCounters) {
  ctl({"call", "ports.Get", port});
  EXPECT_TRUE(eventually([] {
    const auto ended = ctl({"stats", "--name", unit().stats_name(), "--json"});
    return ended.status == 0 && json_integer_value(json_object_get(json_of(ended.out).get(), "answered")) > 0;
  }));
  const auto table = ctl({"stats", "--name", unit().stats_name()});
  EXPECT_THAT(table.out,
              ContainsRegex(unit().stats_name() + "\nconnections\naccepted +[1-9][0-9]*\n  answered +[1-9]"));
  EXPECT_THAT(table.out, HasSubstr("time that services took\n"));
}

TEST_F(Kestroctl, StatsAgainEachSecond) {
  const auto watching = start({"stats", "--watch", "--name", unit().stats_name()});
  ASSERT_TRUE(eventually([&] { return watching->out().find("/s") != std::string::npos; }));
  watching->signal(SIGINT);
  EXPECT_EQ(watching->wait(), 0);
}

TEST_F(Kestroctl, StatsOfNoRouter) {
  const auto ended = ctl({"stats", "--name", unit().stats_name() + "-none"});
  EXPECT_EQ(ended.status, 4);
  EXPECT_THAT(ended.err,
              HasSubstr("No such file or directory; does kestro-routerd run, and is this its --stats-name?"));
}

// ---- log ----

TEST_F(Kestroctl, LogReadsAndSetsALevel) {
  const TempDir dir;
  const auto file = dir.write("log.conf", "# levels\n[logging_levels]\nsimd=loud\n");
  EXPECT_EQ(ctl({"log", "router", "verbose", "--file", file, "--no-reload"}).status, 0);
  EXPECT_EQ(ctl({"log", "router", "--file", file}).out, "verbose\n");
  const auto all = ctl({"log", "--file", file});
  EXPECT_EQ(all.out, "simd   loud\nrouter verbose\n");
  EXPECT_THAT(all.err, HasSubstr("simd: \"loud\" is no level"));
  const auto none = ctl({"log", "configd", "--file", file});
  EXPECT_EQ(none.status, 1);
  EXPECT_THAT(none.err, HasSubstr("no level for configd"));
  EXPECT_EQ(ctl({"log", "router", "loud", "--file", file}).status, 2);
  EXPECT_EQ(ctl({"log", "a=b", "info", "--file", file}).status, 2);
}

TEST_F(Kestroctl, LogReachesTheRouterAndTheServices) {
  std::filesystem::create_directories(std::filesystem::path(KESTRO_LSYSLOG_CONF_FILE).parent_path());
  const Finally remove_conf([]() noexcept { std::filesystem::remove(KESTRO_LSYSLOG_CONF_FILE); });
  EXPECT_EQ(ctl({"log", "router", "info"}).status, 0);
  EXPECT_TRUE(eventually([] { return unit().router().err().find("Logging level set to info.") != std::string::npos; }));
  const auto monitor = start({"monitor", "--method", "logger.*", "--limit", "2"});
  ASSERT_TRUE(eventually([&] { return monitor->err().find("listening to 3") != std::string::npos; }));
  EXPECT_EQ(ctl({"log", "configd", "debug"}).status, 0);
  EXPECT_EQ(monitor->wait(), 0);
  EXPECT_THAT(monitor->out(), HasSubstr("config   -> logger.ReloadConf"));
}

TEST_F(Kestroctl, LogTellsThatTheDaemonWasNotTold) {
  const TempDir dir;
  const auto ended = ctl({"--socket", dir.file("none"), "log", "router", "info", "--file", dir.file("log.conf")});
  EXPECT_EQ(ended.status, 4);
  EXPECT_THAT(ended.err, HasSubstr("is changed, but the daemon was not told"));
  EXPECT_EQ(ctl({"log", "router", "--file", dir.file("log.conf")}).out, "info\n");
}

// ---- explain, check ----

TEST_F(Kestroctl, ExplainAStatus) {
  const auto ended = run({"explain", "-6"});
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.out,
            "status -6: Invalid port\na client sees the JSON-RPC error\n  -32030 The given Port ID is invalid.\n");
  EXPECT_EQ(run({"explain", "6"}).out, ended.out);
  EXPECT_THAT(run({"explain", "-57"}).out, HasSubstr("converts back to\n  -35    Request parameter not found\n"));
  EXPECT_THAT(run({"explain", "-5"}).out, HasSubstr("  -32001 Unknown Error\n"));
  EXPECT_THAT(run({"explain", "0"}).out, HasSubstr("success"));
}

TEST_F(Kestroctl, ExplainAJsonRpcCode) {
  EXPECT_EQ(run({"explain", "-32010"}).out,
            "JSON-RPC error -32010: The database encountered an error while processing the data.\n"
            "statuses that become this error\n"
            "  -7     System access error (what it converts back to)\n"
            "  -11    Internal Error - DB Busy\n"
            "  -12    Internal Error - DB Access Unfinished\n");
  EXPECT_THAT(run({"explain", "-32700"}).out, HasSubstr("no status becomes this error"));
}

TEST_F(Kestroctl, ExplainWhatIsUnknown) {
  for (const std::string code : {"-78", "-81", "-82", "-1000", "-32017", "-2147483648"}) {
    const auto ended = run({"explain", code});
    EXPECT_EQ(ended.status, 1) << code;
    EXPECT_THAT(ended.err, StartsWith("kestroctl: " + code + " is no code; ")) << code;
  }
  EXPECT_EQ(run({"explain", "12345"}).err,
            "kestroctl: neither 12345 nor -12345 is a code; `kestroctl explain` lists all that there are\n");
  EXPECT_EQ(run({"explain", "six"}).status, 2);
  EXPECT_THAT(run({"explain"}).out, AllOf(HasSubstr("  -80    Failed to apply"), HasSubstr("  -32700 Parse error\n")));
}

TEST_F(Kestroctl, CheckJudgesAValue) {
  const auto accepted = run({"check", "port_id", "c1-1"});
  EXPECT_EQ(accepted.status, 0);
  EXPECT_EQ(accepted.out, "port_id: accepted\n");
  EXPECT_EQ(accepted.err, "");
  const auto refused = run({"check", "password", "abc"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.out, "password: refused: it is too short (-5)\n  the rule: 4 to 15 letters, digits and !?_@-\n");
  EXPECT_EQ(run({"check", "onu_id", "-1"}).status, 0);
  EXPECT_EQ(run({"check", "description", ""}).status, 0);
  EXPECT_EQ(run({"check", "nothing", "x"}).status, 2);
  EXPECT_EQ(run({"check", "vlan_id"}).out, "vlan_id: 1 to 4050\n");
  EXPECT_THAT(run({"check"}).out, HasSubstr("\nvlan_mode                 local, access, trunk or discovery\n"));
  EXPECT_THAT(on_terminal({"check", "port_id", "x"}).text, HasSubstr("\33[31mrefused:\33[0m"));
}

// ---- bench ----

TEST_F(Kestroctl, BenchAccountsForEveryRequest) {
  const auto ended =
      ctl({"bench", "--method", "ports.Get", "--params", port, "--requests", "200", "--clients", "5", "--json"});
  EXPECT_EQ(ended.status, 0);
  EXPECT_THAT(ended.out, StartsWith(R"({"requests":200,"answered":200,"errors":{},"timed_out":0,"busy":0,"closed":0,)"
                                    R"("lost":0,"mixed_up":0,"not_connected":0,"seconds":)"));
  EXPECT_EQ(ended.err, "");
  const auto table = ctl({"bench", "--method", "ports.Get", "--requests", "20"});
  EXPECT_EQ(table.status, 0);
  EXPECT_THAT(table.out,
              ContainsRegex("^20 requests in [0-9.]+ s, [0-9]+/s\n  error -32602 +20\nlatency in ms\n  min "));
  EXPECT_THAT(table.out, AllOf(HasSubstr("\n  p50 "), HasSubstr("\n  p99.9 "), HasSubstr("\n  max ")));
}

TEST_F(Kestroctl, BenchForATime) {
  const auto ended = ctl({"bench", "--method", "ports.Get", "--duration", "0.3", "--json"});
  EXPECT_EQ(ended.status, 0);
  const Json ledger = json_of(ended.out);
  EXPECT_GE(json_real_value(json_object_get(ledger.get(), "seconds")), 0.3);
  EXPECT_EQ(ctl({"bench", "--duration", "1", "--requests", "1"}).status, 2);
}

TEST_F(Kestroctl, BenchOfNothing) {
  const TempDir dir;
  const auto ended = ctl({"--socket", dir.file("none"), "bench"});
  EXPECT_EQ(ended.status, 4);
  EXPECT_THAT(ended.err, HasSubstr("cannot connect to " + dir.file("none")));
}

TEST_F(Kestroctl, BenchEndsInGoodOrderOnAnInterrupt) {
  const auto bench = start({"bench", "--method", "ports.Get", "--params", port, "--duration", "600", "--json"});
  const auto answered = [] {
    const auto ended = ctl({"stats", "--name", unit().stats_name(), "--json"});
    return json_integer_value(json_object_get(json_of(ended.out).get(), "answered"));
  };
  const auto before = answered();
  ASSERT_TRUE(eventually([&] { return answered() > before + 10; }));
  bench->signal(SIGINT);
  EXPECT_EQ(bench->wait(), 0);
  EXPECT_GT(json_integer_value(json_object_get(json_of(bench->out()).get(), "answered")), 0);
}

TEST_F(Kestroctl, BenchShowsItsProgressOnATerminal) {
  const auto shown = on_terminal({"bench", "--method", "ports.Get", "--duration", "0.5"});
  EXPECT_EQ(shown.status, 0);
  EXPECT_THAT(shown.text, HasSubstr("###"));
  EXPECT_THAT(shown.text, HasSubstr(" %  "));
}

// ---- The program as a whole ----

TEST_F(Kestroctl, HelpIsToBeHadEverywhere) {
  const auto help = run({"--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_THAT(help.out,
              AllOf(HasSubstr("Calling services:\n  call"), HasSubstr("Watching:\n"),
                    HasSubstr("Looking up (without a router):\n  check"), HasSubstr("  5  the system is busy\n")));
  for (const char* verb :
       {"bench", "call", "check", "describe", "explain", "list", "log", "monitor", "notify", "stats", "wait"}) {
    const auto of_verb = run({verb, "--help"});
    EXPECT_EQ(of_verb.status, 0) << verb;
    EXPECT_THAT(of_verb.out, HasSubstr(std::string("Examples:\n  kestroctl ") + verb)) << verb;
    EXPECT_THAT(of_verb.out, HasSubstr("\n`kestroctl --help` shows the options of all verbs")) << verb;
    EXPECT_THAT(help.out, HasSubstr(std::string("\n  ") + verb + " ")) << verb;
  }
  EXPECT_THAT(run({"--version"}).out, StartsWith("kestroctl "));
}

TEST_F(Kestroctl, WrongUsageIsTold) {
  for (const Words& arguments : {Words{}, Words{"fly"}, Words{"call", "--no-such"}, Words{"--tcp", "x", "list"},
                                 Words{"--tcp", "1", "--socket", "s", "list"}}) {
    const auto ended = run(arguments);
    EXPECT_EQ(ended.status, 2);
    EXPECT_EQ(ended.out, "");
    EXPECT_NE(ended.err, "");
  }
}

TEST_F(Kestroctl, WrongUsageIsNamed) {
  EXPECT_EQ(run({}).err, "kestroctl: a verb is required\n`kestroctl --help` shows how it is used.\n");
  EXPECT_THAT(run({"fly"}).err, AllOf(StartsWith("kestroctl: "), HasSubstr(" fly\n`kestroctl --help` shows")));
  EXPECT_EQ(run({"call", "oec.List", "--repeat", "0"}).err,
            "kestroctl call: --repeat: a number is expected, 1 or more\n"
            "`kestroctl call --help` shows how it is used.\n");
  EXPECT_THAT(run({"describe"}).err, StartsWith("kestroctl describe: METHOD is required\n"));
  for (const Words& arguments :
       {Words{"bench", "--requests", "none"}, Words{"monitor", "--limit", "0"}, Words{"monitor", "--limit", "-1"}}) {
    EXPECT_THAT(run(arguments).err,
                StartsWith("kestroctl " + arguments[0] + ": " + arguments[1] + ": a number is expected, 1 or more\n"));
  }
}

TEST_F(Kestroctl, EndsQuietlyWhenNobodyReadsOn) {
  for (const char* before : {"", "trap '' PIPE; "}) {
    const auto ended = shell(before + std::string("ctl call ports.Get '") + port +
                             "' --repeat 1000000 | head -n 1; echo ${PIPESTATUS[0]}");
    EXPECT_EQ(ended.out,
              "{\"port_id\":\"c1-1\",\"enabled\":true,\"watts\":5.1}\n" + std::to_string(128 + SIGPIPE) + "\n");
    EXPECT_EQ(ended.err, "");
  }
}

TEST_F(Kestroctl, TellsThatItsOutputIsLost) {
  const auto ended = shell("ctl explain -6 > /dev/full");
  EXPECT_EQ(ended.status, 1);
  EXPECT_THAT(ended.err, HasSubstr("cannot write to standard output: No space left on device"));
}

TEST_F(Kestroctl, TheLibrarysLogIsHeardWhenAskedFor) {
  EXPECT_THAT(run({"--debug", "check", "vlan_mode", "x"}).err, HasSubstr("[VERB] [kestroctl: kestro_validation:"));
}

// ---- Completion ----

// What is offered for the last word.
std::string completed(const Unit& unit, const std::string& words, const std::string& directory = "/") {
  Process process({"/bin/bash", "-c",
                   "cd " + directory + "; source '" KESTROCTL_COMPLETION "'; COMP_WORDS=('" KESTROCTL "' " + words +
                       "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _kestroctl; echo \"${COMPREPLY[*]}\""},
                  unit.environment());
  process.wait();
  EXPECT_EQ(process.err(), "");
  return process.out();
}

TEST_F(Kestroctl, CompletionKnowsWords) {
  EXPECT_EQ(completed(unit(), "''"), "bench call check describe explain list log monitor notify stats wait\n");
  EXPECT_EQ(completed(unit(), "de"), "describe\n");
  EXPECT_EQ(completed(unit(), "call ports.G"), "ports.Get\n");
  EXPECT_EQ(completed(unit(), "call --raw --timeout 5 ports.A"), "ports.Announce\n");
  EXPECT_EQ(completed(unit(), "--socket /nowhere call ports.G"), "\n");
  EXPECT_EQ(completed(unit(), "describe rpc"), "rpc.discover\n");
  EXPECT_EQ(completed(unit(), "bench --method net"), "network.service.Discover\n");
  EXPECT_EQ(completed(unit(), "check vlan"), "vlan_id vlan_mode vlan_name_id\n");
  EXPECT_EQ(completed(unit(), "log rou"), "router\n");
  EXPECT_EQ(completed(unit(), "log router ''"), "debug info off verbose\n");
  EXPECT_EQ(completed(unit(), "stats --w"), "--watch\n");
  EXPECT_EQ(completed(unit(), "call --r"), "--raw --repeat\n");
  EXPECT_EQ(completed(unit(), "call --so"), "--socket\n");
  EXPECT_EQ(completed(unit(), "monitor --channel h"), "hardware\n");
}

TEST_F(Kestroctl, CompletionKnowsFiles) {
  const TempDir dir;
  dir.write("params.json", "{}");
  EXPECT_EQ(completed(unit(), "call ports.Get @par", dir.path()), "@params.json\n");
  EXPECT_EQ(completed(unit(), "log --file par", dir.path()), "params.json\n");
}

}  // namespace
}  // namespace kestro::test
