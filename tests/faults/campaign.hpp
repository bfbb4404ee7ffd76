// Campaigns: a scenario is played again and again, each time in a process of its own, with another one of its calls
// made to fail, until none is left to fail.
//
//   void reading(Trial& trial) {
//     char* text = nullptr;
//     const int32_t status = trial.call({-1}, [&] { return kestro_read(&text); });
//     EXPECT_EQ(text != nullptr, status == 0);
//     free(text);
//   }
//
// Calls fail only inside of call() and give(). What a scenario makes there and does not release is a leak, memory and
// descriptors alike.
#ifndef KESTRO_TESTS_FAULTS_CAMPAIGN_HPP
#define KESTRO_TESTS_FAULTS_CAMPAIGN_HPP

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "faults/plan.hpp"

namespace kestro::test {

// How a process may end in the middle of a scenario, and what it says then.
struct Ending {
  int wait_status = 0;  // as from waitpid(); 0: not at all
  std::string last_words;
};
Ending aborts(const std::string& last_words);
Ending ends_by(int signal, const std::string& last_words);
Ending exits(int status);

class Trial {
 public:
  Trial(Plan& plan, std::string directory) : plan_(plan), directory_(std::move(directory)) {}
  Trial(const Trial&) = delete;
  Trial& operator=(const Trial&) = delete;

  // Makes a call that returns a status. Unless something failed in it, that must be 0; else it may be one of these,
  // too. After a failure for ever nothing succeeds for sure.
  int32_t call(std::initializer_list<int32_t> statuses, const std::function<int32_t()>& action);

  // Makes a call that gives something by its address, or null where something failed.
  template <class Action>
  auto give(Action&& action) {
    begin();
    auto* const result = action();
    end();
    if (!excused()) {
      EXPECT_NE(result, nullptr);
    }
    return result;
  }
  // Makes a call that tells nothing.
  void make(const std::function<void()>& action);

  // Whether something failed in the last call, or (for ever) before it.
  [[nodiscard]] bool excused() const noexcept { return failed_in_call_ || (plan_.is_for_ever() && plan_.failed() > 0); }
  // What the last call wrote to standard error.
  [[nodiscard]] const std::string& said() const noexcept { return said_; }
  // A directory for the scenario's files, empty at its beginning.
  [[nodiscard]] const std::string& directory() const noexcept { return directory_; }

 private:
  void begin();
  void end();

  Plan& plan_;
  std::string directory_;
  std::string said_;
  size_t said_before_ = 0;
  int32_t failed_before_ = 0;
  bool failed_in_call_ = false;
};

using Play = void (*)(Trial& trial);

// One process that plays a scenario.
struct Outcome {
  bool well = false;  // nothing to object to
  int seen = 0;       // calls that could have failed, up to the end
  int failed = 0;     // those that did
  std::string objection;
};

struct Performance {
  Play play;
  Plan& plan;
  int32_t nth = 0;
  Persistence persistence = Persistence::Once;
  Ending ending;
  // In the new process: before anything is watched, and at the end.
  std::function<void()> prologue = [] {};
  std::function<void()> epilogue = [] {};
};
// Plays it twice in the same process: at rest first, so that what is made once in a process is made, and then in
// earnest.
Outcome perform(const Performance& performance);

// Whether the environment has KESTRO_FAULTS=all, and so wants whole campaigns.
bool wants_all();

// Whether a trial belongs to the part of the campaign that is wanted: the first `few`, and from there on ever fewer.
bool is_chosen(int nth, int few);

}  // namespace kestro::test

#endif
