#include "faults/campaign.hpp"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <filesystem>
#include <utility>

#include "core/owned.hpp"
#include "support/descriptors.hpp"
#include "support/temp_dir.hpp"

namespace kestro::test {

namespace {

constexpr int well = 0;
constexpr int objected = 1;
constexpr unsigned patience = 60;  // seconds that no scenario comes near

size_t stderr_size() {
  struct stat status {};
  fstat(STDERR_FILENO, &status);
  return static_cast<size_t>(status.st_size);
}

std::string contents(int fd, size_t from) {
  struct stat status {};
  fstat(fd, &status);
  std::string text(static_cast<size_t>(status.st_size) - from, '\0');
  const ssize_t count = pread(fd, text.data(), text.size(), static_cast<off_t>(from));
  text.resize(count > 0 ? static_cast<size_t>(count) : 0);
  return text;
}

// Where the processes of a trial meet.
struct Shared {
  int seen;
  int failed;
};

void empty(const std::string& directory) {
  for (const auto& entry : std::filesystem::directory_iterator(directory)) std::filesystem::remove_all(entry.path());
}

// The child's side, from its first word to its last.
void play_twice(const Performance& what, const std::string& directory, Shared& shared) {
  Plan& plan = what.plan;
  tzset();  // the first line of a log reads the time zone, which stays
  plan.make(0, Persistence::Once);
  {
    Trial rehearsal(plan, directory);
    what.play(rehearsal);
  }
  if (testing::Test::HasFailure()) return;

  empty(directory);
  const auto before = open_descriptors();
  plan.make(what.nth, what.persistence);
  what.prologue();
  {
    Trial trial(plan, directory);
    what.play(trial);
  }
  shared = {.seen = plan.seen(), .failed = plan.failed()};
  what.epilogue();
  EXPECT_EQ(open_descriptors(), before);
}

// An exception must not lead the child into the rest of the parent's tests.
void play(const Performance& what, const std::string& directory, Shared& shared) noexcept {
  try {
    play_twice(what, directory, shared);
  } catch (const std::exception& thrown) {
    what.plan.rest();
    ADD_FAILURE() << "thrown: " << thrown.what();
  }
}

std::string describe(int status) {
  if (WIFSIGNALED(status)) return std::string("ended by ") + strsignal(WTERMSIG(status));
  return "exit status " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

Ending ends_by(int signal, const std::string& last_words) {
  return {.wait_status = signal, .last_words = last_words};
}
Ending aborts(const std::string& last_words) {
  return ends_by(SIGABRT, last_words);
}
Ending exits(int status) {
  return {.wait_status = status << 8, .last_words = ""};
}

void Trial::begin() {
  said_before_ = stderr_size();
  failed_before_ = plan_.failed();
  plan_.watch();
}

void Trial::end() {
  plan_.rest();
  failed_in_call_ = plan_.failed() > failed_before_;
  said_ = contents(STDERR_FILENO, said_before_);
}

int32_t Trial::call(std::initializer_list<int32_t> statuses, const std::function<int32_t()>& action) {
  begin();
  const int32_t status = action();
  end();
  if (status == 0) return status;
  EXPECT_TRUE(excused()) << "status " << status << " although nothing failed\n" << said_;
  EXPECT_THAT(statuses, testing::Contains(status)) << said_;
  return status;
}

void Trial::make(const std::function<void()>& action) {
  begin();
  action();
  end();
}

Outcome perform(const Performance& what) {
  const TempDir directory;
  const Descriptor log(memfd_create("log", MFD_CLOEXEC));
  fcntl(log.get(), F_SETFL, O_APPEND);
  void* const page = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  auto& shared = *new (page) Shared{};
  fflush(stdout);

  const pid_t child = fork();
  if (child == 0) {
    alarm(patience);
    dup2(log.get(), STDERR_FILENO);
    setenv("TMPDIR", directory.path().c_str(), 1);  // what a child that is to abort leaves goes with it
    play(what, directory.path(), shared);
    fflush(stdout);
    _exit(testing::Test::HasFailure() ? objected : well);
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  Outcome outcome{.well = status == well, .seen = shared.seen, .failed = shared.failed, .objection = ""};
  munmap(page, sizeof(Shared));

  const std::string said = contents(log.get(), 0);
  if (what.nth > 0 && what.ending.wait_status != 0 && status == what.ending.wait_status) {
    outcome.well = said.find(what.ending.last_words) != std::string::npos;
    outcome.failed = 1;
  }
  if (!outcome.well) outcome.objection = describe(status) + "\n" + said;
  return outcome;
}

bool wants_all() {
  static const char* const wish = getenv("KESTRO_FAULTS");
  return wish != nullptr && strcmp(wish, "all") == 0;
}

bool is_chosen(int nth, int few) {
  if (wants_all()) return true;
  // Behind the first few: two of them to each doubling.
  if (nth <= few) return true;
  const auto number = static_cast<unsigned>(nth);
  return number == std::bit_floor(number) || number == std::bit_floor(number) * 3 / 2;
}

}  // namespace kestro::test
