// Campaigns against whole programs: they are linked with failing_program.cpp, and fail as the test says.
#ifndef KESTRO_TESTS_FAULTS_FAILING_PROCESS_HPP
#define KESTRO_TESTS_FAULTS_FAILING_PROCESS_HPP

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>

#include <bit>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iterator>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "core/owned.hpp"
#include "faults/campaign.hpp"
#include "faults/failing_program.hpp"
#include "support/bus.hpp"
#include "support/process.hpp"
#include "support/temp_dir.hpp"

namespace kestro::test {

// The file through which the programs that are started from now on are told what to fail.
class ControlFile {
 public:
  ControlFile() {
    const std::string path = dir_.write("control", std::string(sizeof(Control), '\0'));
    const Descriptor file(open(path.c_str(), O_RDWR | O_CLOEXEC));
    page_ = mmap(nullptr, sizeof(Control), PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0);
    if (page_ == MAP_FAILED) throw std::runtime_error("no control");
    control_ = new (page_) Control();
    setenv(control_variable, path.c_str(), 1);
  }
  ControlFile(const ControlFile&) = delete;
  ControlFile& operator=(const ControlFile&) = delete;
  ~ControlFile() {
    unsetenv(control_variable);
    munmap(page_, sizeof(Control));
  }
  Control* operator->() const { return control_; }

  void rest() const {
    control_->memory.rest();
    control_->calls.rest();
  }
  // Of what was to fail.
  [[nodiscard]] int failed() const { return control_->memory.failed() + control_->calls.failed(); }

 private:
  TempDir dir_;
  void* page_ = nullptr;
  Control* control_ = nullptr;
};

// Whether the process has ended; its status is still there to be waited for.
inline bool has_ended(const Process& process) {
  siginfo_t info{};
  return waitid(P_PID, static_cast<id_t>(process.pid()), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid != 0;
}

inline auto descriptors(pid_t pid) {
  return std::distance(std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd"), {});
}

// A call, and the errors that it fails with; 0: it transfers one byte.
struct FailingCall {
  const char* call;
  std::vector<int> errors;
  bool always = true;  // it is made every time, not just where one side is slower
};

// When what is to fail may do so.
enum class From {
  Start,  // of the program
  Trial   // of which there are several to a program
};

// What is tried where not everything is wanted.
enum class Extent {
  Usual,  // as other campaigns, with each error
  Sparse  // where a trial takes a tenth of a second: fewer, with one error each
};

class ProgramCampaign {
 public:
  ProgramCampaign(const ControlFile& control, From from, Extent extent = Extent::Usual)
      : control_(control), from_(from), sparse_(extent == Extent::Sparse && !wants_all()) {}

  // Tries again and again, each time with another allocation that fails, until none is left or a check failed.
  void fail_each_allocation(Persistence persistence, int few, const std::function<void()>& trial) {
    control_->error = ENOMEM;
    fail_each("allocation", few, trial, [&](int nth) {
      control_->memory.make(nth, persistence);
      control_->memory_from_start = from_ == From::Start;
      if (from_ == From::Trial) control_->memory.watch_again();
    });
    control_->memory_from_start = false;
  }
  // As well, with each occurrence of each call and its errors.
  void fail_each_call(const std::vector<FailingCall>& rows, int few, const std::function<void()>& trial) {
    for (const auto& row : rows) {
      const size_t rounds = sparse_ ? 1 : row.errors.size();
      for (size_t round = 0; round < rounds; ++round) {
        size_t next = round;
        const int failed = fail_each(row.call, few, trial, [&](int nth) {
          const int error = row.errors[next % row.errors.size()];
          next += sparse_ ? 1 : 0;
          control_->calls.make(nth, Persistence::Once);
          control_->choose(row.call, error);
          control_->calls_from_start = from_ == From::Start;
          if (from_ == From::Trial) control_->calls.watch_again();
        });
        if (row.always) {
          EXPECT_GT(failed, 0) << row.call << " is not called";
        }
        if (testing::Test::HasFailure()) return;
      }
    }
    control_->calls_from_start = false;
  }
  [[nodiscard]] int trials() const { return trials_; }

 private:
  [[nodiscard]] bool is_wanted(int nth, int few) const {
    if (!sparse_) return is_chosen(nth, few);
    return nth <= few || (std::has_single_bit(static_cast<unsigned>(nth)) && nth % 3 == 1);  // 1, 4, 16, 64 ...
  }
  // How often something failed.
  int fail_each(const std::string& what, int few, const std::function<void()>& trial,
                const std::function<void(int nth)>& make_plan) {
    int failed = 0;
    for (int nth = 1;; ++nth) {
      if (!is_wanted(nth, few)) continue;
      make_plan(nth);
      SCOPED_TRACE(what + " number " + std::to_string(nth) + ": " +
                   (control_->error == 0 ? "shortened" : strerror(control_->error)));
      trial();
      control_.rest();
      if (testing::Test::HasFailure() || control_.failed() == 0) return failed;
      ++failed;
      ++trials_;
    }
  }

  const ControlFile& control_;
  From from_;
  bool sparse_;
  int trials_ = 0;
};

// A daemon from its start on, ended as soon as it is ready.
class FailingStart : public testing::Test {
 protected:
  // Its exit status.
  int live(Process& daemon) {
    EXPECT_TRUE(eventually([&] { return has_ended(daemon) || daemon.err().find("ready: ") != std::string::npos; }))
        << "neither ready nor ended: " << daemon.err();
    const bool refused = has_ended(daemon);
    daemon.signal(SIGTERM);
    EXPECT_TRUE(eventually([&] { return has_ended(daemon); })) << daemon.err();
    const int status = daemon.wait();
    EXPECT_TRUE(status == 0 || control.failed() > 0) << daemon.err();
    control.rest();
    (refused ? ended_ : came_up_) += control.failed() > 0 ? 1 : 0;
    return status;
  }
  void tell(const char* what) const {
    printf("[   FAULTS ] %d %s ended the daemon, %d did not\n", ended_, what, came_up_);
  }

  std::string address = free_bus_address();
  std::string address_of_others = free_bus_address();
  ControlFile control;
  ProgramCampaign campaign{control, From::Start, Extent::Sparse};

 private:
  int ended_ = 0;
  int came_up_ = 0;
};

}  // namespace kestro::test

#endif
