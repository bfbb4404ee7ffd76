// kestroctl while its allocations and its system calls fail: each run ends with a status of its own, and with a word
// where it is not 0. What it prints is whole where it ends with 0, and the file that it edits is the old one or the new
// one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "faults/failing_process.hpp"
#include "kestro_jrpc.h"
#include "support/bus.hpp"
#include "support/named.hpp"
#include "support/shm_name.hpp"

namespace kestro::test {
namespace {

using testing::AllOf;
using testing::AnyOf;
using testing::Ge;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Le;
using testing::Not;

using Words = std::vector<std::string>;

// A router and two services, for all tests.
class Unit {
 public:
  Unit() {
    router_ = std::make_unique<Process>(Words{
        KESTRO_ROUTERD, "--listen-unix", socket(), "--bus-publish", router_address_, "--bus-subscribe", ports_address_,
        "--bus-subscribe", board_address_, "--stats-name", stats_name_.str(), "--drain-timeout", "0.1",
        "--read-timeout", "0.2", "--timeout", "rpc.discover=2", "--timeout", "network.service.Discover=2"});
    ports_ = start_service(ports_address_, KESTRO_JRPC_CHANNEL_3A6F8F51);
    board_ = start_service(board_address_, KESTRO_JRPC_CHANNEL_DEFAULT);
    const bool up = eventually([this] {
      return Process({KESTRO_KESTROCTL, "list", "--socket", socket()}).wait() == 0;
    });
    if (!up) throw std::runtime_error(router_->err());
  }
  [[nodiscard]] std::string socket() const { return dir_.file("router.sock"); }

 private:
  [[nodiscard]] std::unique_ptr<Process> start_service(const std::string& address, const char* channel) const {
    return std::make_unique<Process>(Words{DESCRIBED_SERVICE, address, router_address_, channel});
  }

  TempDir dir_;
  ShmName stats_name_;
  std::string router_address_ = free_bus_address();
  std::string ports_address_ = free_bus_address();
  std::string board_address_ = free_bus_address();
  std::unique_ptr<Process> router_;
  std::unique_ptr<Process> ports_;
  std::unique_ptr<Process> board_;
};

// A call, and what it prints when nothing fails.
struct Verb {
  const char* name;
  Words arguments;
  std::vector<FailingCall> calls;
  int status = 0;
  const char* own_word = "kestroctl: ";  // what may be said instead, where something failed
};
void PrintTo(const Verb& verb, std::ostream* out) {
  *out << verb.name;
}

const std::vector<FailingCall> output_calls = {{"fwrite", {ENOSPC, EIO}}, {"fflush", {ENOSPC, EINTR, EIO}}};
std::vector<FailingCall> with_output(std::vector<FailingCall> calls) {
  calls.insert(calls.end(), output_calls.begin(), output_calls.end());
  return calls;
}
std::vector<FailingCall> with_threads(std::vector<FailingCall> calls) {
  calls.push_back({"pthread_create", {EAGAIN}});
  return calls;
}
const std::vector<FailingCall> exchange_calls = {
    {"socket", {EMFILE, ENFILE, ENOMEM, EACCES}},
    {"setsockopt", {ENOMEM}},
    {"connect", {EACCES, EAGAIN, ECONNREFUSED, EINTR}},
    {"poll", {EINTR, ENOMEM}},
    {"send", {0, EAGAIN, EINTR, EPIPE, ECONNRESET, ENOBUFS}},
    {"recv", {0, EAGAIN, EINTR, ECONNRESET, ENOMEM}},
};

constexpr const char* old_levels = "# levels\n[logging_levels]\nsimd=info\nrouter=off\n\n[more]\na=b\n";
constexpr const char* new_levels = "# levels\n[logging_levels]\nsimd=info\nrouter=verbose\n\n[more]\na=b\n";

class FailingKestroctl : public testing::TestWithParam<Verb> {
 protected:
  static void SetUpTestSuite() { unit_ = new Unit(); }
  static void TearDownTestSuite() { delete unit_; }

  void SetUp() override {
    expected_ = run();
    ASSERT_FALSE(HasFailure());
    ASSERT_THAT(expected_, Not(IsEmpty()));
  }

  // From its start to its end. What it printed.
  std::string run() {
    Words words = {KESTRO_KESTROCTL};
    words.insert(words.end(), GetParam().arguments.begin(), GetParam().arguments.end());
    Process process(words, {"KESTRO_SOCKET=" + unit_->socket()});
    const int status = process.wait();
    control.rest();
    const bool as_ever = status == GetParam().status && (expected_.empty() || process.out() == expected_);
    if (!as_ever) {
      EXPECT_GT(control.failed(), 0) << process.err();
      EXPECT_THAT(status, AllOf(Ge(1), Le(5))) << process.out() << process.err();
      EXPECT_THAT(process.err() + process.out(), AnyOf(HasSubstr("kestroctl: "), HasSubstr(GetParam().own_word)))
          << status;
    }
    ++(as_ever ? done_ : failed_);
    return process.out();
  }
  void tell() const { printf("[   FAULTS ] %d runs failed, %d did not\n", failed_, done_); }

  ControlFile control;
  ProgramCampaign campaign{control, From::Start, Extent::Sparse};
  std::string expected_;
  int done_ = 0;
  int failed_ = 0;
  static inline Unit* unit_ = nullptr;
};

TEST_P(FailingKestroctl, EachAllocation) {
  control->all_threads = true;
  campaign.fail_each_allocation(Persistence::Once, 8, [this] { run(); });
  campaign.fail_each_allocation(Persistence::ForEver, 4, [this] { run(); });
  tell();
}

TEST_P(FailingKestroctl, EachSystemCall) {
  control->all_threads = true;
  campaign.fail_each_call(GetParam().calls, 4, [this] { run(); });
  tell();
}

INSTANTIATE_TEST_SUITE_P(
    Verbs, FailingKestroctl,
    testing::ValuesIn(std::vector<Verb>{
        {"Call", {"call", "ports.Get", R"({"port_id":"c1-1"})"}, with_output(exchange_calls)},
        {"Refused", {"call", "--raw", "ports.Get"}, with_output(exchange_calls), 1},
        {"List", {"list"}, with_output(with_threads(exchange_calls))},
        {"Explain", {"explain", "-6"}, output_calls},
        {"Check", {"check", "port_id", "c1-1"}, output_calls, 0, "refused: it takes too much work to check (-1)"},
    }),
    name_of<Verb>);

// ---- The file of log levels

class FailingKestroctlLog : public testing::Test {
 protected:
  void edit() {
    const std::string file = dir.write("log.conf", old_levels);
    Process process({KESTRO_KESTROCTL, "log", "router", "verbose", "--file", file, "--no-reload"});
    const int status = process.wait();
    control.rest();
    const std::string after = contents(file);
    if (status == 0) {
      EXPECT_EQ(after, new_levels);
    } else {
      EXPECT_EQ(status, 1) << process.err();
      EXPECT_GT(control.failed(), 0) << process.err();
      EXPECT_THAT(process.err(), HasSubstr("kestroctl: "));
      EXPECT_THAT(after, AnyOf(old_levels, new_levels));
    }
    const auto count = std::distance(std::filesystem::directory_iterator(dir.path()), {});
    EXPECT_EQ(count, 1) << "a file is left behind: " << process.err();
  }
  static std::string contents(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  TempDir dir;
  ControlFile control;
  ProgramCampaign campaign{control, From::Start, Extent::Sparse};
};

TEST_F(FailingKestroctlLog, EachAllocation) {
  campaign.fail_each_allocation(Persistence::Once, 8, [this] { edit(); });
  campaign.fail_each_allocation(Persistence::ForEver, 4, [this] { edit(); });
}

TEST_F(FailingKestroctlLog, EachSystemCall) {
  const std::vector<FailingCall> rows = {
      {"open", {EACCES, EMFILE, EIO}},
      {"read", {0, EINTR, EIO}},
      {"realpath", {EACCES, ENOMEM, ELOOP}},
      {"mkostemp", {EACCES, EROFS, EMFILE}},
      {"stat", {EACCES, EIO}},
      {"fchmod", {EPERM, EIO}},
      {"write", {0, EINTR, ENOSPC, EIO}},
      {"fsync", {EIO, ENOSPC}},
      {"rename", {EACCES, ENOSPC, EROFS}},
      {"close", {EINTR, EIO}},
  };
  campaign.fail_each_call(rows, 8, [this] { edit(); });
  printf("[   FAULTS ] %d calls failed\n", campaign.trials());
}

}  // namespace
}  // namespace kestro::test
