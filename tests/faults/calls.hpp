// Campaigns against the system calls of a scenario: each of its calls fails once, with each of its errors.
#ifndef KESTRO_TESTS_FAULTS_CALLS_HPP
#define KESTRO_TESTS_FAULTS_CALLS_HPP

#include <gtest/gtest.h>
#include <sys/syscall.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "faults/campaign.hpp"
#include "faults/failing_calls.hpp"

namespace kestro::test {

constexpr int shortened = FailingCalls::shortened;

enum class Way {
  Trapped,  // the nth call
  Refused,  // every call: those made while signals are blocked
};

// A system call, the errors that it fails with, and what comes of it.
struct CallRow {
  const char* name;
  long number;
  std::vector<int> errors;  // or `shortened`
  // The status that the operation returns then; nothing: the scenario knows.
  std::optional<int32_t> status;
  // What is told on standard error, before the system's text of the error.
  const char* word = nullptr;
  Way way = Way::Trapped;
};

struct CallScenario {
  const char* name;
  Play play;
  std::vector<CallRow> rows;
};
inline void PrintTo(const CallScenario& scenario, std::ostream* out) {
  *out << scenario.name;
}

// What is made to fail in this process.
struct InjectedFault {
  const CallRow* row = nullptr;
  int error = 0;
};
inline InjectedFault& current_fault() {
  static InjectedFault fault;
  return fault;
}

// Whether the last operation met the fault, and the fault is of this call.
inline bool failed(const Trial& trial, const char* call) {
  return trial.excused() && current_fault().row != nullptr && strcmp(current_fault().row->name, call) == 0;
}
inline bool failed_with(const Trial& trial, const char* call, int error) {
  return failed(trial, call) && current_fault().error == error;
}

// Makes the operation whose status the rows tell.
inline int32_t operate(Trial& trial, const std::function<int32_t()>& action) {
  int32_t status = 0;
  trial.make([&] { status = action(); });
  if (!trial.excused()) {
    EXPECT_EQ(status, 0) << trial.said();
    return status;
  }
  const auto& [row, error] = current_fault();
  if (row->status) {
    EXPECT_EQ(status, *row->status) << trial.said();
  }
  if (row->word != nullptr) {
    EXPECT_THAT(trial.said(), testing::HasSubstr(std::string(row->word) + ": " + strerror(error) + "\n"));
  }
  return status;
}

class CallCampaign : public testing::TestWithParam<CallScenario> {
 protected:
  static Outcome run(const CallRow& row, int error, int nth) {
    const bool refused = row.way == Way::Refused;
    return perform({.play = GetParam().play,
                    .plan = FailingCalls::plan(),
                    .nth = nth,
                    .persistence = refused ? Persistence::ForEver : Persistence::Once,
                    .ending = {},
                    .prologue =
                        [&] {
                          current_fault() = {&row, error};
                          if (!refused) return FailingCalls::trap(row.number, error);
                          FailingCalls::refuse(row.number, error);
                          static_cast<void>(FailingCalls::plan().fails());
                        },
                    .epilogue = [] {}});
  }

  void exhaust(const CallRow& row) {
    SCOPED_TRACE(row.name);
    int calls = 1;
    if (row.way == Way::Trapped) {
      const Outcome all_is_well = run(row, 0, 0);
      ASSERT_TRUE(all_is_well.well) << all_is_well.objection;
      calls = all_is_well.seen;
      ASSERT_GT(calls, 0) << "is not called";
    }
    for (int nth = 1; nth <= calls; ++nth) {
      if (!is_chosen(nth, 6)) continue;
      for (const int error : row.errors) {
        const Outcome outcome = run(row, error, nth);
        injections_ += outcome.failed;
        ASSERT_TRUE(outcome.well) << "call " << nth << " of " << calls << ", "
                                  << (error == shortened ? "shortened" : strerror(error)) << ": " << outcome.objection;
        // How often a pipe is read depends on who is faster.
        ASSERT_TRUE(outcome.failed > 0 || nth > 1);
      }
    }
  }

  int injections_ = 0;
};

TEST_P(CallCampaign, Fails) {
  for (const auto& row : GetParam().rows) {
    exhaust(row);
    if (HasFailure()) break;
  }
  RecordProperty("injections", injections_);
  printf("[   FAULTS ] %d calls failed\n", injections_);
}

}  // namespace kestro::test

#endif
