#include "kestro_string.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/owned.hpp"
#include "kestro_utils.h"
#include "support/captured_stderr.hpp"
#include "support/faults.hpp"
#include "support/log.hpp"

namespace {
int stack_traces = 0;
}
// The library's own is empty and weak: this one takes its place.
void print_stacktrace(void) noexcept {
  ++stack_traces;
}

namespace kestro::test {
namespace {

using testing::ElementsAre;

using Str = Owned<str_t, str_free>;

// A stream that yields the given bytes.
class Stream {
 public:
  explicit Stream(std::string bytes) : bytes_(std::move(bytes)) {
    file_.reset(bytes_.empty() ? fopen("/dev/null", "r") : fmemopen(bytes_.data(), bytes_.size(), "r"));
  }
  operator FILE*() { return file_.get(); }

 private:
  std::string bytes_;
  File file_;
};

TEST(Str, StartsEmpty) {
  const Str s(str_init(16));
  EXPECT_STREQ(str_s(s.get()), "");
  EXPECT_EQ(str_slen(s.get()), 0U);
  EXPECT_EQ(s->bufsz, 16U);
}

TEST(Str, SizeZeroCanGrow) {
  const Str s(str_init(0));
  EXPECT_STREQ(str_s(s.get()), "");
  EXPECT_EQ(str_printf(s.get(), "%s", "text"), 0);
  EXPECT_EQ(str_slen(s.get()), 4U);
}

TEST(Str, FreeOfNullDoesNothing) {
  str_free(nullptr);
}

TEST(Str, ClearKeepsTheBuffer) {
  const Str s(str_init(4));
  str_printf(s.get(), "0123456789");
  str_clear(s.get());
  EXPECT_STREQ(str_s(s.get()), "");
  EXPECT_EQ(str_slen(s.get()), 0U);
  EXPECT_EQ(s->bufsz, 16U);
}

TEST(StrPrintf, AppendsWithoutGrowingWhileThereIsRoom) {
  const Str s(str_init(16));
  EXPECT_EQ(str_printf(s.get(), "%s-%d", "port", 7), 0);
  EXPECT_EQ(str_printf(s.get(), "%s", "!"), 0);
  EXPECT_STREQ(str_s(s.get()), "port-7!");
  EXPECT_EQ(str_slen(s.get()), 7U);
  EXPECT_EQ(s->bufsz, 16U);
}

TEST(StrPrintf, DoublesUntilTheTextFits) {
  const Str s(str_init(16));
  str_printf(s.get(), "0123456789");
  str_printf(s.get(), "abcdefghijklmnopqrst");
  EXPECT_STREQ(str_s(s.get()), "0123456789abcdefghijklmnopqrst");
  EXPECT_EQ(str_slen(s.get()), 30U);
  EXPECT_EQ(s->bufsz, 32U);
}

TEST(StrPrintf, LengthEqualToTheDoubledSizeCutsTheLastCharacter) {
  const Str s(str_init(4));
  str_printf(s.get(), "12345678");
  EXPECT_EQ(s->bufsz, 8U);
  EXPECT_EQ(str_slen(s.get()), 8U);
  EXPECT_STREQ(str_s(s.get()), "1234567");
}

TEST(StrPrintf, LengthEqualToTheUndoubledSizeCutsTheLastCharacterToo) {
  const Str s(str_init(8));
  str_printf(s.get(), "12345678");
  EXPECT_EQ(s->bufsz, 8U);
  EXPECT_EQ(str_slen(s.get()), 8U);
  EXPECT_STREQ(str_s(s.get()), "1234567");
}

TEST(StrPrintf, EveryLengthAgainstEveryBuffer) {
  for (size_t size = 1; size <= 20; ++size) {
    for (size_t length = 0; length <= 50; ++length) {
      const Str s(str_init(size));
      const std::string text(length, 'x');
      str_printf(s.get(), "%s", text.c_str());
      size_t expected_size = size;
      if (length >= size) {
        while (expected_size < length) expected_size *= 2;
      }
      EXPECT_EQ(s->bufsz, expected_size) << size << " " << length;
      EXPECT_EQ(s->len, length);
      EXPECT_EQ(std::string(s->s).size(), std::min(length, expected_size - 1));
    }
  }
}

TEST(StrDeathTest, FailureToAllocateEndsTheProcess) {
  const auto init = [](const char* call) {
    const Fault no_memory(call, ENOMEM);
    str_init(24);
  };
  EXPECT_DEATH(init("calloc"), "^calloc [0-9]+ unsuccessful\n$");
  EXPECT_DEATH(init("malloc"), "^malloc 24 unsuccessful\n$");
  EXPECT_DEATH(
      {
        const Str s(str_init(4));
        const Fault no_memory("realloc", ENOMEM);
        str_printf(s.get(), "%s", "0123456789");
      },
      "^realloc 16 unsuccessful\n$");
}

TEST(StrFgets, AppendsLinesAndThenNothing) {
  const Str s(str_init(64));
  Stream stream("first\nsecond\nlast");
  EXPECT_EQ(str_fgets(s.get(), stream), 1);
  EXPECT_STREQ(str_s(s.get()), "first\n");
  EXPECT_EQ(str_fgets(s.get(), stream), 1);
  EXPECT_STREQ(str_s(s.get()), "first\nsecond\n");
  EXPECT_EQ(str_fgets(s.get(), stream), 1);
  EXPECT_STREQ(str_s(s.get()), "first\nsecond\nlast");
  EXPECT_EQ(str_slen(s.get()), 17U);
  EXPECT_EQ(str_fgets(s.get(), stream), 0);
  EXPECT_STREQ(str_s(s.get()), "first\nsecond\nlast");
}

TEST(StrFgets, ReadsALineOfAnyLengthWhole) {
  const std::string line = std::string(1000, 'x') + "\n";
  for (const size_t size : {1U, 2U, 3U, 500U, 1000U, 1001U, 1002U}) {
    const Str s(str_init(size));
    Stream stream(line + "next\n");
    EXPECT_EQ(str_fgets(s.get(), stream), 1) << size;
    EXPECT_EQ(str_s(s.get()), line);
    EXPECT_EQ(str_slen(s.get()), line.size());
  }
}

TEST(StrFgets, BufferWithoutRoomIsGrownFirst) {
  const Str s(str_init(8));
  str_printf(s.get(), "1234567");
  Stream stream("line\n");
  EXPECT_EQ(str_fgets(s.get(), stream), 1);
  EXPECT_STREQ(str_s(s.get()), "1234567line\n");
}

TEST(StrFgets, LastPartThatFillsTheBufferStaysWhenNothingFollows) {
  const Str s(str_init(8));
  Stream stream("1234567");
  EXPECT_EQ(str_fgets(s.get(), stream), 0);
  EXPECT_STREQ(str_s(s.get()), "1234567");
  EXPECT_EQ(str_slen(s.get()), 7U);
}

TEST(StrFgets, NewlineAsTheLastCharacterThatFitsEndsTheLine) {
  const Str s(str_init(8));
  Stream stream("123456\nnext\n");
  EXPECT_EQ(str_fgets(s.get(), stream), 1);
  EXPECT_STREQ(str_s(s.get()), "123456\n");
  EXPECT_EQ(s->bufsz, 8U);
}

TEST(StrFgets, LinesOfZeroBytesEndAndDoNotGrowTheBuffer) {
  const Str s(str_init(8));
  Stream stream(std::string("\0\n\0\n\0\n", 6));
  for (int line = 0; line < 3; ++line) EXPECT_EQ(str_fgets(s.get(), stream), 1);
  EXPECT_EQ(str_fgets(s.get(), stream), 0);
  EXPECT_EQ(s->bufsz, 8U);
}

// Gives some characters, and an error behind them.
ssize_t give_seven_characters(void* given, char* to, size_t size) {
  auto& before = *static_cast<bool*>(given);
  if (std::exchange(before, true) || size < 7) {
    errno = EIO;
    return -1;
  }
  memcpy(to, "seven x", 7);
  return 7;
}

TEST(StrFgets, ReadErrorInsideOfALineLeavesAnEndedText) {
  const Str s(str_init(16));
  str_printf(s.get(), "before ");
  memset(str_s(s.get()) + str_slen(s.get()) + 1, '#', 8);  // what is behind the text is no matter of anybody
  bool given = false;
  const File stream(fopencookie(&given, "r", {.read = give_seven_characters, .write = {}, .seek = {}, .close = {}}));
  EXPECT_EQ(str_fgets(s.get(), stream.get()), 0);
  EXPECT_STREQ(str_s(s.get()), "before ");
  EXPECT_EQ(str_slen(s.get()), 7U);
}

TEST(StrFgets, ReadErrorIsTheEndOfInput) {
  const Str s(str_init(16));
  const File only_writes(fopen("/dev/null", "w"));
  EXPECT_EQ(str_fgets(s.get(), only_writes.get()), 0);
  EXPECT_STREQ(str_s(s.get()), "");
}

TEST(StrFgets, FailureToGrowIsReportedAndTraced) {
  const Str s(str_init(4));
  Stream stream("a long line\n");
  stack_traces = 0;
  int32_t result = 0;
  const auto log = stderr_of([&] {
    const Fault no_memory("realloc", ENOMEM);
    result = str_fgets(s.get(), stream);
  });
  EXPECT_EQ(result, -1);
  EXPECT_EQ(stack_traces, 1);
  EXPECT_STREQ(str_s(s.get()), "a l");
  EXPECT_THAT(log, HasLog(Error, "kestro_string", "Allocation error Cannot allocate memory\n"));
}

std::vector<std::string> split(const char* text, const char* separator) {
  std::vector<std::string> tokens;
  str_iter_t iter = str_iter_new(text, separator);
  while (const char* token = str_iter_next(&iter)) tokens.emplace_back(token);
  EXPECT_EQ(str_iter_next(&iter), nullptr);
  return tokens;
}

TEST(StrIter, Splits) {
  EXPECT_THAT(split("a,,b", ","), ElementsAre("a", "", "b"));
  EXPECT_THAT(split("a,", ","), ElementsAre("a", ""));
  EXPECT_THAT(split(",a", ","), ElementsAre("", "a"));
  EXPECT_THAT(split("", ","), ElementsAre(""));
  EXPECT_THAT(split("abc", ","), ElementsAre("abc"));
}

TEST(StrIter, SeparatorOfSeveralCharactersIsTakenWhole) {
  EXPECT_THAT(split("a, b,c ,d, e", ", "), ElementsAre("a", "b,c ,d", "e"));
}

TEST(StrIter, EmptySeparatorSplitsNothing) {
  EXPECT_THAT(split("abc", ""), ElementsAre("abc"));
}

TEST(StrIter, LongTokensAreCut) {
  const std::string fits(255, 'x');
  const std::string too_long(256, 'y');
  const std::string text = fits + "," + too_long + "," + too_long;
  EXPECT_THAT(split(text.c_str(), ","), ElementsAre(fits, too_long.substr(1), too_long.substr(1)));
}

TEST(StrIter, NextTokenOverwritesTheLast) {
  str_iter_t iter = str_iter_new("a,b", ",");
  const char* const first = str_iter_next(&iter);
  const char* const second = str_iter_next(&iter);
  EXPECT_EQ(first, second);
  EXPECT_STREQ(first, "b");
}

TEST(StrIter, NullIteratorIsDone) {
  EXPECT_EQ(str_iter_next(nullptr), nullptr);
}

}  // namespace
}  // namespace kestro::test
