#include "kestro_shm.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "support/captured_stderr.hpp"
#include "support/child.hpp"
#include "support/descriptors.hpp"
#include "support/faults.hpp"
#include "support/log.hpp"
#include "support/shm_name.hpp"

namespace kestro::test {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* module = "kestro_shm";

class Variable : public ShmName {
 public:
  operator const char*() const { return c_str(); }
  [[nodiscard]] std::string line(std::string_view before) const { return std::string(before) + str() + ".\n"; }

  [[nodiscard]] std::string bytes() const {
    std::ifstream file(path(), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  void put(std::string_view bytes) const { std::ofstream(path(), std::ios::binary) << bytes; }
};

std::string zeros(size_t count) {
  return std::string(count, '\0');
}

// What the calling thread asked the system for while the object lives: how it opened and mapped objects, and what of
// that is still mapped.
class Requests {
 public:
  struct Opening {
    int flags = -1;
    mode_t mode = 0;
  };
  struct Mapping {
    size_t size = 0;
    int protection = -1;
    int flags = -1;
  };

  Requests() { current_ = this; }
  Requests(const Requests&) = delete;
  Requests& operator=(const Requests&) = delete;
  ~Requests() { current_ = nullptr; }

  static Requests* current() { return current_; }
  void note_opening(int flags, mode_t mode) { openings_.push_back({flags, mode}); }
  void note_mapping(void* start, int fd, const Mapping& mapping) {
    mappings_.push_back(mapping);
    if (start != MAP_FAILED) mapped_.emplace(start, Mapped{mapping.size, fd});
  }
  void note_unmapping(void* start, size_t size) {
    const auto found = mapped_.find(start);
    if (found == mapped_.end() || found->second.size != size) return;
    if (fcntl(found->second.fd, F_GETFD) < 0) ++closed_first_;
    mapped_.erase(found);
  }

  [[nodiscard]] const std::vector<Opening>& openings() const { return openings_; }
  [[nodiscard]] const std::vector<Mapping>& mappings() const { return mappings_; }
  [[nodiscard]] size_t still_mapped() const { return mapped_.size(); }
  [[nodiscard]] size_t closed_before_unmapped() const { return closed_first_; }

 private:
  struct Mapped {
    size_t size;
    int fd;
  };

  static thread_local Requests* current_;
  std::vector<Opening> openings_;
  std::vector<Mapping> mappings_;
  std::map<void*, Mapped> mapped_;
  size_t closed_first_ = 0;
};
thread_local Requests* Requests::current_ = nullptr;

TEST(ShmCreate, MakesAnObjectOfZeroBytes) {
  const Variable variable;
  EXPECT_THAT(stderr_of([&] { EXPECT_EQ(kestro_shm_create(variable, 5), 0); }), IsEmpty());
  EXPECT_EQ(variable.bytes(), zeros(5));
}

TEST(ShmCreate, WipesAndResizesAnExistingVariable) {
  const Variable variable;
  ASSERT_EQ(kestro_shm_create(variable, 8), 0);
  ASSERT_EQ(kestro_shm_set_string(variable, 8, "content"), 0);
  for (const int32_t size : {8, 3, 12}) {
    variable.put("dirty dirty dirty");
    EXPECT_EQ(kestro_shm_create(variable, size), 0);
    EXPECT_EQ(variable.bytes(), zeros(static_cast<size_t>(size)));
  }
}

TEST(ShmCreate, PermissionsAreTheHexadecimalNumber) {
  const Variable variable;
  const mode_t saved = umask(0);
  EXPECT_EQ(kestro_shm_create(variable, 4), 0);
  umask(saved);
  struct stat status {};
  ASSERT_EQ(stat(variable.path().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 03146U);
}

TEST(ShmCreate, GoesOnWhenTheLengthCannotBeSet) {
  const Variable variable;
  ASSERT_EQ(kestro_shm_create(variable, 4), 0);
  ASSERT_EQ(kestro_shm_set_string(variable, 4, "old"), 0);
  const auto log = stderr_of([&] {
    const Fault fault("ftruncate", EIO);
    EXPECT_EQ(kestro_shm_create(variable, 4), 0);
  });
  EXPECT_THAT(log, AllOf(HasLog(Error, module, "ftruncate failed\n"), EndsWith("ftruncate: Input/output error\n")));
  EXPECT_EQ(variable.bytes(), zeros(4));
}

TEST(ShmCreate, ObjectThatStaysEmptyIsAFailureAndNoBusError) {
  const Variable variable;
  const auto log = stderr_of([&] {
    const Fault fault("ftruncate", EIO);
    EXPECT_EQ(kestro_shm_create(variable, 4), -1);
  });
  EXPECT_THAT(log, HasLog(Error, module, variable.line("Mmap error with ")));
}

TEST(ShmCreate, NegativeSizeFailsInTheSystemCalls) {
  const Variable variable;
  for (const int32_t size : {-1, -4096, INT32_MIN}) {
    const auto log = stderr_of([&] { EXPECT_EQ(kestro_shm_create(variable, size), -1); });
    EXPECT_THAT(log, AllOf(HasLog(Error, module, "ftruncate failed\n"), HasSubstr("ftruncate: Invalid argument\n"),
                           HasLog(Error, module, variable.line("Mmap error with "))))
        << size;
  }
}

TEST(ShmString, ComesBackAsItWasSet) {
  const Variable variable;
  ASSERT_EQ(kestro_shm_create(variable, 8), 0);
  const struct {
    const char* name;
    const char* input;
    const char* stored;
  } rows[] = {
      {"empty", "", ""},
      {"short", "ab", "ab"},
      {"exact", "1234567", "1234567"},
      {"one over", "12345678", "1234567"},
      {"far over", "123456789012345678901234567890", "1234567"},
  };
  for (const auto& row : rows) {
    std::string output(9, 'x');
    EXPECT_EQ(kestro_shm_set_string(variable, 8, row.input), 0);
    EXPECT_EQ(kestro_shm_get_string(variable, 8, output.data()), 0);
    const std::string padded = row.stored + zeros(8 - std::string_view(row.stored).size());
    EXPECT_EQ(variable.bytes(), padded) << row.name;
    EXPECT_EQ(output, padded + "x") << row.name;
  }
}

TEST(ShmString, SixCharactersIntoFourBytesLeaveThree) {
  const Variable variable;
  ASSERT_EQ(kestro_shm_create(variable, 4), 0);
  EXPECT_EQ(kestro_shm_set_string(variable, 4, "abcdef"), 0);
  EXPECT_EQ(variable.bytes(), std::string("abc\0", 4));
  char output[4];
  EXPECT_EQ(kestro_shm_get_string(variable, 4, output), 0);
  EXPECT_STREQ(output, "abc");
}

TEST(ShmString, ShortTextLeavesNothingOfALongerOne) {
  const Variable variable;
  ASSERT_EQ(kestro_shm_create(variable, 8), 0);
  ASSERT_EQ(kestro_shm_set_string(variable, 8, "longest"), 0);
  EXPECT_EQ(kestro_shm_set_string(variable, 8, "ab"), 0);
  EXPECT_EQ(variable.bytes(), "ab" + zeros(6));
}

TEST(ShmString, SizeOneHoldsTheEmptyText) {
  const Variable variable;
  ASSERT_EQ(kestro_shm_create(variable, 1), 0);
  variable.put("x");
  char output = 'x';
  EXPECT_EQ(kestro_shm_get_string(variable, 1, &output), 0);
  EXPECT_EQ(output, '\0');
  EXPECT_EQ(kestro_shm_set_string(variable, 1, "abc"), 0);
  EXPECT_EQ(variable.bytes(), zeros(1));
}

TEST(ShmString, RegionWithoutAnEndIsCut) {
  const Variable variable;
  ASSERT_EQ(kestro_shm_create(variable, 4), 0);
  variable.put("abcdefgh");
  std::string output(5, 'x');
  EXPECT_EQ(kestro_shm_get_string(variable, 4, output.data()), 0);
  EXPECT_EQ(output, std::string("abc\0x", 5));
}

TEST(ShmString, TextThatFillsWholePagesIsMeasuredWithinThem) {
  const Variable variable;
  const auto page = static_cast<int32_t>(sysconf(_SC_PAGESIZE));
  const auto bytes = static_cast<size_t>(page);
  ASSERT_EQ(kestro_shm_create(variable, page), 0);
  variable.put(std::string(bytes, 'x'));
  std::string output(bytes, 'y');
  EXPECT_EQ(kestro_shm_get_string(variable, page, output.data()), 0);
  EXPECT_EQ(output, std::string(bytes - 1, 'x') + zeros(1));
  EXPECT_EQ(kestro_shm_set_string(variable, page, std::string(bytes, 'z').c_str()), 0);
  EXPECT_EQ(variable.bytes(), std::string(bytes - 1, 'z') + zeros(1));
}

TEST(ShmInt, ComesBackAsItWasSet) {
  const Variable variable;
  ASSERT_EQ(kestro_shm_create(variable, sizeof(int32_t)), 0);
  for (const int32_t value : {0, 1, -1, INT32_MAX, INT32_MIN, 0x01020304}) {
    int32_t output = 99;
    EXPECT_EQ(kestro_shm_set_int(variable, &value), 0);
    EXPECT_EQ(kestro_shm_get_int(variable, &output), 0);
    EXPECT_EQ(output, value);
  }
  EXPECT_EQ(variable.bytes(), std::string("\x04\x03\x02\x01", 4));
}

TEST(ShmInt, TouchesTheFirstFourBytesOnly) {
  const Variable variable;
  ASSERT_EQ(kestro_shm_create(variable, 8), 0);
  ASSERT_EQ(kestro_shm_set_string(variable, 8, "1234567"), 0);
  const int32_t zero = 0;
  EXPECT_EQ(kestro_shm_set_int(variable, &zero), 0);
  EXPECT_EQ(variable.bytes(), zeros(4) + "567" + zeros(1));
}

TEST(ShmInt, ThreadsNeverSeeHalfAValue) {
  const Variable variable;
  ASSERT_EQ(kestro_shm_create(variable, sizeof(int32_t)), 0);
  std::atomic<bool> done = false;
  std::thread writer([&] {
    for (int round = 0; round < 500; ++round) {
      const int32_t value = round % 2 == 0 ? -1 : 0;
      kestro_shm_set_int(variable, &value);
    }
    done = true;
  });
  while (!done) {
    int32_t value = 1;
    EXPECT_EQ(kestro_shm_get_int(variable, &value), 0);
    EXPECT_TRUE(value == 0 || value == -1) << value;
  }
  writer.join();
}

TEST(ShmClear, ZeroesTheBytesAskedFor) {
  const Variable variable;
  ASSERT_EQ(kestro_shm_create(variable, 8), 0);
  variable.put("12345678");
  EXPECT_EQ(kestro_shm_clear(variable, 3), 0);
  EXPECT_EQ(variable.bytes(), zeros(3) + "45678");
  EXPECT_EQ(kestro_shm_clear(variable, 8), 0);
  EXPECT_EQ(variable.bytes(), zeros(8));
}

// One operation with everything else in order, to be refused for its name or its size.
struct Operation {
  const char* label;
  const char* null_message;
  const char* zero_message;  // null: has no size
  int32_t (*run)(const char* name, int32_t size);
};

char text_output[16];
int32_t int_output;

constexpr Operation operations[] = {
    {"create", "NULL Pointer!\n", "Zero size!\n", kestro_shm_create},
    {"get_string", "NULL POINTER!\n", "ERROR: Zero size!\n",
     [](const char* name, int32_t size) { return kestro_shm_get_string(name, size, text_output); }},
    {"set_string", "NULL POINTER!\n", "Zero size!\n",
     [](const char* name, int32_t size) { return kestro_shm_set_string(name, size, "text"); }},
    {"get_int", "NULL POINTER!\n", nullptr,
     [](const char* name, int32_t) { return kestro_shm_get_int(name, &int_output); }},
    {"set_int", "NULL POINTER!\n", nullptr,
     [](const char* name, int32_t) { return kestro_shm_set_int(name, &int_output); }},
    {"clear", "NULL POINTER!\n", "Zero size!\n", kestro_shm_clear},
};

TEST(ShmRefusal, NullName) {
  for (const auto& operation : operations) {
    const auto log = stderr_of([&] { EXPECT_EQ(operation.run(nullptr, 8), -1); });
    EXPECT_EQ(count_log_lines(log, Error, module, operation.null_message), 1) << operation.label;
  }
}

TEST(ShmRefusal, NullSecondPointer) {
  const Variable variable;
  ASSERT_EQ(kestro_shm_create(variable, 8), 0);
  const auto log = stderr_of([&] {
    EXPECT_EQ(kestro_shm_get_string(variable, 8, nullptr), -1);
    EXPECT_EQ(kestro_shm_set_string(variable, 8, nullptr), -1);
    EXPECT_EQ(kestro_shm_get_int(variable, nullptr), -1);
    EXPECT_EQ(kestro_shm_set_int(variable, nullptr), -1);
  });
  EXPECT_EQ(count_log_lines(log, Error, module, "NULL POINTER!\n"), 4);
}

TEST(ShmRefusal, ZeroSizeOpensNothing) {
  const Variable variable;
  for (const auto& operation : operations) {
    if (operation.zero_message == nullptr) continue;
    const auto log = stderr_of([&] { EXPECT_EQ(operation.run(variable, 0), -1); });
    EXPECT_EQ(count_log_lines(log, Error, module, operation.zero_message), 1) << operation.label;
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << operation.label;
    EXPECT_FALSE(std::filesystem::exists(variable.path())) << operation.label;
  }
}

TEST(ShmRefusal, NullNameIsSeenBeforeSizeZero) {
  for (const auto& operation : operations) {
    EXPECT_THAT(stderr_of([&] { operation.run(nullptr, 0); }), HasLog(Error, module, operation.null_message));
  }
}

TEST(ShmRefusal, VariableThatWasNeverCreated) {
  const Variable variable;
  for (const auto& operation : operations) {
    if (operation.run == kestro_shm_create) continue;
    const auto log = stderr_of([&] { EXPECT_EQ(operation.run(variable, 8), -1) << operation.label; });
    EXPECT_THAT(log, HasLog(Error, module, variable.line("Shm_open error with "))) << operation.label;
    EXPECT_FALSE(std::filesystem::exists(variable.path())) << operation.label;
  }
}

TEST(ShmRefusal, NameThatTheSystemRefuses) {
  EXPECT_THAT(stderr_of([] { EXPECT_EQ(kestro_shm_create("/two/parts", 8), -1); }),
              HasLog(Error, module, "Shm_open error with /two/parts.\n"));
}

TEST(ShmRefusal, SizesThatCannotBeMappedLeaveNothingBehind) {
  const Variable variable;
  ASSERT_EQ(kestro_shm_create(variable, 8), 0);
  const auto descriptors = open_descriptors();
  const Requests requests;
  for (const auto& operation : operations) {
    if (operation.zero_message == nullptr || operation.run == kestro_shm_create) continue;
    for (const int32_t size : {-1, INT32_MIN, 1 << 20}) {
      std::string large(1 << 20, 'x');
      const auto log = stderr_of([&] {
        const bool get = std::string_view(operation.label) == "get_string";
        EXPECT_EQ(get ? kestro_shm_get_string(variable, size, large.data()) : operation.run(variable, size), -1);
      });
      EXPECT_THAT(log, HasLog(Error, module, variable.line("Mmap error with "))) << operation.label << size;
    }
  }
  EXPECT_EQ(open_descriptors(), descriptors);
  EXPECT_EQ(requests.still_mapped(), 0U);
}

TEST(ShmRefusal, EmptyObjectIsAFailureAndNoBusError) {
  const Variable variable;
  ASSERT_EQ(kestro_shm_create(variable, 8), 0);
  variable.put("");
  for (const auto& operation : operations) {
    if (operation.run == kestro_shm_create) continue;
    const auto log = stderr_of([&] { EXPECT_EQ(operation.run(variable, 8), -1) << operation.label; });
    EXPECT_THAT(log, HasLog(Error, module, variable.line("Mmap error with "))) << operation.label;
  }
}

TEST(ShmRefusal, FailedReadEmptiesATextAndKeepsAnInteger) {
  const Variable variable;
  std::string text(4, 'x');
  int32_t number = 7;
  EXPECT_EQ(kestro_shm_get_string(variable, 4, text.data()), -1);
  EXPECT_EQ(text, zeros(4));
  EXPECT_EQ(kestro_shm_get_int(variable, &number), -1);
  EXPECT_EQ(number, 7);
}

TEST(ShmRefusal, LinesAreWrittenAtEveryLevelThatShowsErrors) {
  const LogLevel level(Error);
  EXPECT_THAT(stderr_of([] { kestro_shm_clear(nullptr, 1); }), HasLog(Error, module, "NULL POINTER!\n"));
}

TEST(Shm, SuccessIsSilentAndKeepsNothingOpen) {
  const Variable variable;
  const auto descriptors = open_descriptors();
  const Requests requests;
  const auto log = stderr_of([&] {
    for (const auto& operation : operations) EXPECT_EQ(operation.run(variable, 16), 0) << operation.label;
  });
  EXPECT_THAT(log, IsEmpty());
  EXPECT_EQ(open_descriptors(), descriptors);
  EXPECT_EQ(requests.still_mapped(), 0U);
  EXPECT_EQ(requests.closed_before_unmapped(), 0U);
}

// Root may do more than an object's own bits and a mapping's protection let on, so the requests are looked at.
TEST(Shm, EachOperationAsksForNoMoreThanItNeeds) {
  constexpr int read_write = PROT_READ | PROT_WRITE;
  const struct {
    const Operation& operation;
    int flags;
    size_t size;
    int protection;
  } rows[] = {
      {operations[0], O_CREAT | O_RDWR, 16, read_write},
      {operations[1], O_RDONLY, 16, PROT_READ},
      {operations[2], O_RDWR, 16, read_write},
      {operations[3], O_RDONLY, 4, PROT_READ},
      {operations[4], O_RDWR, 4, read_write},
      {operations[5], O_RDWR, 16, read_write},
  };
  const Variable variable;
  for (const auto& row : rows) {
    const Requests requests;
    EXPECT_EQ(row.operation.run(variable, 16), 0) << row.operation.label;
    ASSERT_EQ(requests.openings().size(), 1U) << row.operation.label;
    EXPECT_EQ(requests.openings()[0].flags, row.flags) << row.operation.label;
    EXPECT_EQ(requests.openings()[0].mode, 0x666U) << row.operation.label;
    ASSERT_EQ(requests.mappings().size(), 1U) << row.operation.label;
    EXPECT_EQ(requests.mappings()[0].size, row.size) << row.operation.label;
    EXPECT_EQ(requests.mappings()[0].protection, row.protection) << row.operation.label;
    EXPECT_EQ(requests.mappings()[0].flags, MAP_SHARED) << row.operation.label;
    EXPECT_EQ(requests.still_mapped(), 0U) << row.operation.label;
  }
}

// Answers each number it finds in one variable with a text in another.
int answer(const std::vector<std::string>& args) {
  std::string line;
  while (std::getline(std::cin, line)) {
    int32_t number = 0;
    if (kestro_shm_get_int(args[0].c_str(), &number) != 0) return 1;
    const std::string text = "got " + std::to_string(number);
    if (kestro_shm_set_string(args[1].c_str(), 32, text.c_str()) != 0) return 2;
    std::cout << "answered" << std::endl;
  }
  return 0;
}

TEST(Shm, TwoProcessesShareVariables) {
  const Variable number;
  const Variable text;
  ASSERT_EQ(kestro_shm_create(number, sizeof(int32_t)), 0);
  ASSERT_EQ(kestro_shm_create(text, 32), 0);
  const Child other("answer", {static_cast<const char*>(number), static_cast<const char*>(text)});
  for (const int32_t value : {17, -4, INT32_MAX}) {
    ASSERT_EQ(kestro_shm_set_int(number, &value), 0);
    other.say("go");
    ASSERT_EQ(other.hear(), "answered");
    std::array<char, 32> output{};
    EXPECT_EQ(kestro_shm_get_string(text, 32, output.data()), 0);
    EXPECT_EQ(std::string(output.data()), "got " + std::to_string(value));
  }
}

// With a shared-memory file system of four pages, private to this process.
int fill(const std::vector<std::string>&) {
  if (unshare(CLONE_NEWNS) != 0) return 77;
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return 77;
  if (mount("none", "/dev/shm", "tmpfs", 0, "size=16k") != 0) return 77;
  if (kestro_shm_create("/small", 8) != 0) return 1;
  if (kestro_shm_create("/large", 16384) != -1) return 2;
  // An object with a length and, while nothing is left, without memory behind it.
  const int fd = shm_open("/hole", O_RDWR | O_CREAT, 0600);
  if (ftruncate(fd, 16384) != 0) return 3;
  close(fd);
  static char output[16384];
  if (kestro_shm_set_string("/hole", 16384, "text") != -1) return 4;
  if (kestro_shm_get_string("/hole", 16384, output) != -1) return 5;
  return kestro_shm_set_string("/small", 8, "kept") == 0 ? 0 : 6;
}

TEST(Shm, FullFileSystemIsAFailureAndNoBusError) {
  int result = 0;
  const auto log = stderr_of([&] { result = Child("fill").wait(); });
  if (result == 77) GTEST_SKIP() << "no mount namespace here";
  EXPECT_EQ(result, 0);
  EXPECT_EQ(count_log_lines(log, Error, module, "Mmap error with /large.\n"), 1);
  EXPECT_EQ(count_log_lines(log, Error, module, "Mmap error with /hole.\n"), 2);
}

}  // namespace
}  // namespace kestro::test

// What the linker leads the module's requests to, and the real ones behind it.
extern "C" {
int __real_shm_open(const char* name, int flags, mode_t mode);
int __wrap_shm_open(const char* name, int flags, mode_t mode) {
  if (auto* const requests = kestro::test::Requests::current()) requests->note_opening(flags, mode);
  return __real_shm_open(name, flags, mode);
}
void* __real_mmap(void* address, size_t size, int protection, int flags, int fd, off_t offset);
void* __wrap_mmap(void* address, size_t size, int protection, int flags, int fd, off_t offset) {
  void* const start = __real_mmap(address, size, protection, flags, fd, offset);
  const int error = errno;
  if (auto* const requests = kestro::test::Requests::current())
    requests->note_mapping(start, fd, {size, protection, flags});
  errno = error;
  return start;
}
int __real_munmap(void* start, size_t size);
int __wrap_munmap(void* start, size_t size) {
  if (auto* const requests = kestro::test::Requests::current()) requests->note_unmapping(start, size);
  return __real_munmap(start, size);
}
}

int main(int argc, char** argv) {
  return kestro::test::main_with_roles(argc, argv, {{"answer", kestro::test::answer}, {"fill", kestro::test::fill}});
}
