// What a validator meets when memory, the stack or the value's length is not what one expects.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pcre.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "kestro_validation.h"
#include "kestro_validation/engines.hpp"
#include "support/captured_stderr.hpp"
#include "support/faults.hpp"
#include "support/log.hpp"
#include "support/named.hpp"

namespace kestro::test {
namespace {

using namespace validation;

// ---- The matcher's memory

// Counts what the matcher holds, and refuses the nth allocation.
class MatcherMemory {
 public:
  explicit MatcherMemory(int refused = 0) {
    held = 0;
    taken = 0;
    refused_ = refused;
    pcre_malloc = [](size_t size) -> void* {
      if (++taken == refused_) return nullptr;
      ++held;
      return malloc(size);
    };
    pcre_free = [](void* block) {
      if (block != nullptr) --held;
      free(block);
    };
  }
  MatcherMemory(const MatcherMemory&) = delete;
  MatcherMemory& operator=(const MatcherMemory&) = delete;
  ~MatcherMemory() {
    pcre_malloc = malloc;
    pcre_free = free;
  }

  static inline int held = 0;
  static inline int taken = 0;

 private:
  static inline int refused_ = 0;
};

// The pattern, its study, and nothing else: what one match takes.
constexpr int allocations_per_match = 2;

TEST(MatcherMemory, IsTakenAndGivenBackByEveryCall) {
  const LogLevel off(0);
  const MatcherMemory memory;
  EXPECT_EQ(validate_hostname("host"), acceptable);
  EXPECT_EQ(MatcherMemory::held, 0);
  EXPECT_EQ(MatcherMemory::taken, allocations_per_match);
  EXPECT_EQ(validate_hostname("host!"), no_match);
  EXPECT_EQ(MatcherMemory::held, 0);
  EXPECT_EQ(MatcherMemory::taken, 2 * allocations_per_match);
}

TEST(MatcherMemory, NoneForThePatternIsAnInternalError) {
  const MatcherMemory memory(1);
  int32_t result = 0;
  const auto log = stderr_of([&] { result = validate_hostname("host"); });
  EXPECT_EQ(result, internal_error);
  EXPECT_EQ(MatcherMemory::held, 0);
  EXPECT_THAT(
      log, HasLog(Error, "kestro_validation", "ERROR: Could not compile '^[0-9a-zA-Z.-]+$': failed to get memory\n"));
}

TEST(MatcherMemory, NoneForTheStudyIsAnInternalError) {
  const MatcherMemory memory(2);
  int32_t result = 0;
  const auto log = stderr_of([&] { result = validate_hostname("host"); });
  EXPECT_EQ(result, internal_error);
  EXPECT_EQ(MatcherMemory::held, 0);
  EXPECT_THAT(log,
              HasLog(Error, "kestro_validation", "ERROR: Could not study '^[0-9a-zA-Z.-]+$': failed to get memory\n"));
}

TEST(MatcherMemory, NoneForOneStepOfSeveral) {
  const LogLevel off(0);
  const auto with_refusal = [](int nth, auto&& action) {
    const MatcherMemory memory(nth);
    const int32_t result = action();
    EXPECT_EQ(MatcherMemory::held, 0) << nth;
    return result;
  };
  for (int nth = 1; nth <= 2 * allocations_per_match; ++nth) {
    EXPECT_EQ(with_refusal(nth, [] { return validate_unit_sw_upgrade_filename("vtr1.2.3-4.x"); }), internal_error);
    EXPECT_EQ(with_refusal(nth, [] { return validate_date_time("2021-1-1", "00:00"); }), internal_error);
  }
  // Whatever the steps met, these know only one answer.
  EXPECT_EQ(with_refusal(2 * allocations_per_match + 1, [] { return validate_entity_name("v1"); }), no_match);
  EXPECT_EQ(with_refusal(1, [] { return validate_preferred_time_servers("host"); }), -34);
}

TEST(TimeServersDeathTest, NoMemoryForTheCopyEndsTheProcess) {
  EXPECT_DEATH(
      {
        const Fault no_memory("malloc", ENOMEM);
        validate_preferred_time_servers("10.0.0.1");
      },
      "malloc 9 unsuccessful");
}

// ---- Patterns

// Runs the action on a thread with a stack of 64 KiB, which ends in a guarded page.
void on_small_stack(const std::function<void()>& action) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, size_t{64} << 10), 0);
  const auto run = [](void* argument) -> void* {
    (*static_cast<const std::function<void()>*>(argument))();
    return nullptr;
  };
  pthread_t thread{};
  ASSERT_EQ(pthread_create(&thread, &attributes, run, const_cast<std::function<void()>*>(&action)), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
}

TEST(CheckRegex, BadPatternIsAnInternalError) {
  int32_t result = 0;
  const auto log = stderr_of([&] { result = check_regex("(a", "a", "Label"); });
  EXPECT_EQ(result, internal_error);
  EXPECT_THAT(log, HasLog(Error, "kestro_validation", "ERROR: Could not compile '(a': missing )\n"));
}

TEST(CheckRegex, MatchesAsThePlainLibraryDoes) {
  const LogLevel off(0);
  EXPECT_EQ(check_regex("b", "abc", "Label"), acceptable) << "not anchored";
  EXPECT_EQ(check_regex("B", "abc", "Label"), no_match) << "case matters";
  EXPECT_EQ(check_regex("a.c", "a\nc", "Label"), no_match) << "a dot is no line feed";
  EXPECT_EQ(check_regex("c$", "abc\n", "Label"), acceptable) << "the end is also before a last line feed";
  EXPECT_EQ(check_regex("b$", "ab\nc", "Label"), no_match) << "and before no other";
  EXPECT_EQ(check_regex("^..$", "\u00e9", "Label"), acceptable) << "bytes, not characters";
  EXPECT_EQ(check_regex("a b", "ab", "Label"), no_match) << "blanks count";
  EXPECT_EQ(check_regex("", "", "Label"), acceptable);
  EXPECT_EQ(check_regex("^(a)(b)(c)(d)(e)$", "abcde", "Label"), acceptable) << "more groups than reported offsets";
}

TEST(CheckRegex, PatternThatNestsTooDeepIsAnInternalError) {
  const std::string shallow(10, 'a');
  const std::string deep(1 << 20, 'a');
  EXPECT_EQ(check_regex("^(a|b)*$", shallow.c_str(), "Label"), acceptable);
  int32_t result = 0;
  const auto log = stderr_of([&] { on_small_stack([&] { result = check_regex("^(a|b)*$", deep.c_str(), "Label"); }); });
  EXPECT_EQ(result, internal_error);
  EXPECT_THAT(log, HasLog(Error, "kestro_validation", "Error code received from pcre_exec: -21\n"));
}

TEST(LengthAndFormat, LengthIsJudgedBeforeTheForm) {
  const LogLevel off(0);
  EXPECT_EQ(validate_length_and_format("", 1, 3, "(", "Label"), too_short);
  EXPECT_EQ(validate_length_and_format("aaaa", 1, 3, "(", "Label"), too_long);
  EXPECT_EQ(validate_length_and_format("a", 1, 3, "(", "Label"), internal_error);
  EXPECT_EQ(validate_length_and_format("a", 1, 3, "b", "Label"), no_match);
  EXPECT_EQ(validate_length_and_format("aaa", 1, 3, "a", "Label"), acceptable);
}

TEST(Options, NoneAtAllAcceptNothing) {
  const LogLevel off(0);
  EXPECT_EQ(validate_options("a", nullptr, 0, "Label"), not_an_option);
}

// ---- Values without measure

constexpr size_t megabyte = size_t{1} << 20;

// The piece as often as it takes to fill the size.
std::string filled(std::string_view piece, size_t size = megabyte) {
  const size_t whole = (size + piece.size() - 1) / piece.size() * piece.size();
  std::string text(piece);
  while (text.size() < whole) text += text;
  text.resize(whole);
  return text;
}

struct HugeCase {
  const char* name;
  int32_t (*validate)(const char*);
  const char* good;
  int32_t letters;   // the judgement of a megabyte of "a"
  int32_t repeated;  // and of a megabyte of good values
};

const HugeCase huge_cases[] = {
    {"PortId", validate_port_id, "c512-99", no_match, no_match},
    {"CPortId", validate_c_port_id, "c512-99", no_match, no_match},
    {"DPortId", validate_d_port_id, "c10001-49", no_match, acceptable},
    {"VlanNameId", validate_vlan_name_id, "v4092", no_match, no_match},
    {"Status", validate_status, "disable", not_an_option, not_an_option},
    {"OecId", validate_oec_id, "c10001", no_match, no_match},
    {"VlanMode", validate_vlan_mode, "discovery", not_an_option, not_an_option},
    {"Description", validate_description, "text", too_long, too_long},
    {"OecModel", validate_oec_model, "VTR-R6620GT", not_an_option, not_an_option},
    {"EntityName", validate_entity_name, "v4092", no_match, no_match},
    {"EntityExtension", validate_entity_extension, "text", too_long, too_long},
    {"IpAddress", validate_ip_address, "255.255.255.255", too_long, too_long},
    {"MacAddress", validate_mac_address, "aa:bb:cc:dd:ee:ff", too_long, too_long},
    {"AddressRange", validate_address_range, "255.255.255.255/24", no_match, no_match},
    {"DhcpRange", validate_dhcp_range, "255.255.255.255-255.255.255.255", no_match, no_match},
    {"GeneralAddressRange", validate_general_address_range, "255.255.255.255/32", no_match, no_match},
    {"Hostname", validate_hostname, "time-server.1", acceptable, acceptable},
    {"TimeServers", validate_preferred_time_servers, "time-server", acceptable, acceptable},
    {"OecSwUpgradeFilename", validate_oec_sw_upgrade_filename, "a.bin", acceptable, acceptable},
    {"UnitSwUpgradeFilename", validate_unit_sw_upgrade_filename, "vtr1.2.3-4.bin", no_match, acceptable},
    {"DbFilename", validate_db_filename, "a.db", acceptable, acceptable},
    {"Filename", validate_filename, "a.bin", acceptable, acceptable},
    {"UnitSwBank", validate_unit_sw_bank, "previous", not_an_option, not_an_option},
    {"Username", validate_username, "admin", too_long, too_long},
    {"Password", validate_password, "p_ss-w0rd!", too_long, too_long},
    {"Uuid", validate_uuid, "01234567-0123-0123-0123-0123456789ab", no_match, no_match},
    {"Date", validate_date, "2021-12-31", no_match, no_match},
    {"Time", validate_time, "23:59", no_match, no_match},
    {"Zone", validate_zone, "America/New_York", acceptable, acceptable},
};

class HugeValue : public testing::TestWithParam<HugeCase> {
 protected:
  static void expect(const std::string& value, int32_t expected) {
    EXPECT_EQ(GetParam().validate(value.c_str()), expected) << value.substr(0, 20) << "... " << value.size();
  }
};

TEST_P(HugeValue, IsJudgedOnASmallStack) {
  const auto log = stderr_of([] {
    const LogLevel verbose(Verbose);
    on_small_stack([] {
      expect(filled("a"), GetParam().letters);
      expect(filled(GetParam().good), GetParam().repeated);
      EXPECT_EQ(GetParam().validate(GetParam().good), acceptable);
    });
  });
  EXPECT_THAT(log, testing::Not(testing::HasSubstr("pcre_exec")));
}

// Values that make a matcher go back and forth. Whatever comes out, nothing is ended and nothing passes by accident.
TEST_P(HugeValue, OfHostileTextIsRefused) {
  const LogLevel off(0);
  on_small_stack([] {
    const std::string good = GetParam().good;
    for (const auto& value :
         {filled(good) + "\x01", good + filled("!"), filled("\n"), filled("\x01") + good + "\x01"}) {
      const bool loose = GetParam().validate == validate_d_port_id || GetParam().validate == validate_port_id;
      const int32_t result = GetParam().validate(value.c_str());
      EXPECT_TRUE(result < 0 || loose) << value.substr(0, 20);
    }
  });
}

INSTANTIATE_TEST_SUITE_P(Fields, HugeValue, testing::ValuesIn(huge_cases), name_of<HugeCase>);

TEST(LongValue, FormsWithoutMaximumAreJudgedToTheLastByte) {
  const LogLevel off(0);
  EXPECT_EQ(validate_hostname((filled("a") + "!").c_str()), no_match);
  EXPECT_EQ(validate_filename((filled("a") + "!").c_str()), no_match);
  EXPECT_EQ(validate_db_filename((filled("a") + "/").c_str()), no_match);
  EXPECT_EQ(validate_zone((filled("a") + "1").c_str()), no_match);
  EXPECT_EQ(validate_d_port_id((filled("x") + "d48").c_str()), acceptable);
  EXPECT_EQ(validate_port_id((filled("x") + "c10001-49").c_str()), acceptable);
  EXPECT_EQ(validate_unit_sw_upgrade_filename((filled("a") + "vtr" + "1.2.3-4.x").c_str()), acceptable);
  EXPECT_EQ(validate_unit_sw_upgrade_filename(("vtr1.2.3-4." + filled("a")).c_str()), acceptable);
}

TEST(LongValue, ThatAsksForTooMuchWorkIsAnInternalError) {
  const std::string value = filled("vtr") + "1.2.3-4";
  int32_t result = 0;
  const auto log = stderr_of([&] { result = validate_unit_sw_upgrade_filename(value.c_str()); });
  EXPECT_EQ(result, internal_error);
  EXPECT_THAT(log, HasLog(Error, "kestro_validation", "Error code received from pcre_exec: -8\n"));
}

TEST(LongValue, LongPathsAreWellWithinTheLimits) {
  const LogLevel off(0);
  EXPECT_EQ(validate_unit_sw_upgrade_filename((filled("vtr", PATH_MAX) + "1.2.3-4.x").c_str()), acceptable);
  EXPECT_EQ(validate_unit_sw_upgrade_filename((filled("vtr", PATH_MAX) + "1.2.3-4").c_str()), no_match);
}

TEST(LongValue, ListOfManyTimeServers) {
  const LogLevel off(0);
  EXPECT_EQ(validate_preferred_time_servers(filled("10.0.0.1 ", 20000).c_str()), acceptable);
  EXPECT_EQ(validate_preferred_time_servers((filled("10.0.0.1 ", 20000) + "!").c_str()), -34);
  EXPECT_EQ(validate_preferred_time_servers(filled(" ").c_str()), acceptable);
}

// A text of this many letters "a", made of one small file that is mapped again and again.
class EndlessText {
 public:
  explicit EndlessText(size_t length) : size_(length / block * block + block) {
    const int file = memfd_create("text", MFD_CLOEXEC);
    const std::string letters(block, 'a');
    if (write(file, letters.data(), block) != static_cast<ssize_t>(block)) throw std::runtime_error("cannot write");
    text_ = static_cast<char*>(mmap(nullptr, size_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
    for (size_t at = 0; at < size_; at += block) {
      mmap(text_ + at, block, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_FIXED, file, 0);
    }
    close(file);
    text_[length] = '\0';
  }
  EndlessText(const EndlessText&) = delete;
  EndlessText& operator=(const EndlessText&) = delete;
  ~EndlessText() { munmap(text_, size_); }

  [[nodiscard]] const char* c_str() const { return text_; }

 private:
  static constexpr size_t block = size_t{4} << 20;
  size_t size_;
  char* text_;
};

// Four letters more than a 32-bit number counts: cut to one, the length would look fine.
TEST(LongValue, LengthBeyond32BitsIsNotCut) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "the sanitizer remembers every byte that is read, four times over";
#endif
  const EndlessText text((size_t{1} << 32) + 4);
  int32_t result = 0;
  const auto log = stderr_of([&] { result = validate_hostname(text.c_str()); });
  EXPECT_EQ(result, internal_error);
  EXPECT_THAT(log, HasLog(Error, "kestro_validation", "Error code received from pcre_exec: -32\n"));
  const LogLevel off(0);
  EXPECT_EQ(validate_username(text.c_str()), too_long);
  EXPECT_EQ(validate_entity_extension(text.c_str()), too_long);
}

// ---- Threads

TEST(Threads, ValidateAtTheSameTime) {
  const LogLevel off(0);
  std::vector<std::thread> threads;
  std::array<int, 4> wrong{};
  for (int& mistakes : wrong) {
    threads.emplace_back([&mistakes] {
      for (int round = 0; round < 50; ++round) {
        for (const auto& each : huge_cases) mistakes += each.validate(each.good) != acceptable;
        mistakes += validate_preferred_time_servers("10.0.0.1 bad_host! x") != -34;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_THAT(wrong, testing::Each(0));
}

}  // namespace
}  // namespace kestro::test
