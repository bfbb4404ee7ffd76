#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "core/owned.hpp"
#include "kestro_utils.h"
#include "support/captured_stderr.hpp"
#include "support/faults.hpp"
#include "support/log.hpp"

namespace kestro::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const char* const module = "kestro_utils";
const char* const first_null = "Found a null input parameter at varg index <0>\n";
const char* const second_null = "Found a null input parameter at varg index <1>\n";
const char* const terminating = "Terminating, raise SIGTERM\n";

std::string mac_of(int n) {
  char text[20];
  snprintf(text, sizeof text, "02:00:00:00:00:%02X", static_cast<unsigned>(n) & 0xFFU);
  return text;
}

std::vector<std::string> texts(const port_macs& list) {
  std::vector<std::string> result;
  for (int32_t i = 0; i < list.n_macs; ++i) result.emplace_back(list.macs[i]);
  return result;
}

// A list under construction.
class MacVector : public testing::Test {
 protected:
  MacVector() { EXPECT_EQ(kestro_mac_vector_init(&vector, &list), 0); }
  ~MacVector() override { free(list.macs); }

  void push(int count) {
    for (int n = 0; n < count; ++n) ASSERT_EQ(kestro_mac_vector_push(&vector, mac_of(n).c_str(), MAC_STR), 0);
  }

  port_macs list{};
  kestro_mac_vector vector{};
};

// SIGTERM does nothing while the object lives, so that what follows the attempt to end can be seen.
class IgnoredTermination {
 public:
  IgnoredTermination() : saved_(signal(SIGTERM, SIG_IGN)) {}
  IgnoredTermination(const IgnoredTermination&) = delete;
  IgnoredTermination& operator=(const IgnoredTermination&) = delete;
  ~IgnoredTermination() { signal(SIGTERM, saved_); }

 private:
  void (*saved_)(int);
};

TEST_F(MacVector, StartsEmptyWithRoomForEight) {
  EXPECT_EQ(vector.pmacs, &list);
  EXPECT_EQ(vector.size, 8U);
  EXPECT_EQ(list.n_macs, 0);
  ASSERT_NE(list.macs, nullptr);
  memset(list.macs, 'x', 160);
}

TEST_F(MacVector, DoublesWhenFull) {
  push(8);
  EXPECT_EQ(vector.size, 8U);
  for (int n = 8; n < 100; ++n) {
    ASSERT_EQ(kestro_mac_vector_push(&vector, mac_of(n).c_str(), MAC_STR), 0);
    const size_t expected = n < 16 ? 16 : n < 32 ? 32 : n < 64 ? 64 : 128;
    ASSERT_EQ(vector.size, expected) << n;
  }
  ASSERT_EQ(list.n_macs, 100);
  for (int n = 0; n < 100; ++n) EXPECT_EQ(list.macs[n], mac_of(n));
}

TEST_F(MacVector, TextsAreCopiedAsTheyAre) {
  kestro_mac_vector_push(&vector, "aa-bb", MAC_STR);
  kestro_mac_vector_push(&vector, "", MAC_STR);
  kestro_mac_vector_push(&vector, "1234567890123456789", MAC_STR);
  EXPECT_THAT(texts(list), ElementsAre("aa-bb", "", "1234567890123456789"));
}

TEST_F(MacVector, TextsThatDoNotFitStayInTheirEntry) {
  push(7);
  kestro_mac_vector_push(&vector, "12345678901234567890123", MAC_STR);
  EXPECT_STREQ(list.macs[7], "1234567890123456789");
}

TEST_F(MacVector, BytesAreFormatted) {
  const uint8_t bytes[] = {0x0A, 0xB1, 0x00, 0xFF, 0x10, 0x02};
  EXPECT_EQ(kestro_mac_vector_push(&vector, bytes, MAC_BYTES), 0);
  EXPECT_THAT(texts(list), ElementsAre("0A:B1:00:FF:10:02"));
}

TEST_F(MacVector, OtherTypesAreRefused) {
  for (const int32_t type : {-1, 2, INT_MIN, INT_MAX}) {
    EXPECT_EQ(kestro_mac_vector_push(&vector, "text", type), -4);
  }
  EXPECT_EQ(list.n_macs, 0);
  EXPECT_EQ(vector.size, 8U);
}

TEST_F(MacVector, OtherTypesAreRefusedAfterGrowing) {
  push(8);
  EXPECT_EQ(kestro_mac_vector_push(&vector, "text", 2), -4);
  EXPECT_EQ(list.n_macs, 8);
  EXPECT_EQ(vector.size, 16U);
}

TEST_F(MacVector, GrowthWithoutMemoryTerminates) {
  push(8);
  const auto entries = texts(list);
  const IgnoredTermination survived;
  int32_t result = 0;
  const auto log = stderr_of([&] {
    const Fault no_memory("realloc", ENOMEM);
    result = kestro_mac_vector_push(&vector, "text", MAC_STR);
  });
  EXPECT_EQ(result, -1);
  EXPECT_THAT(log, HasLog(Error, module, terminating));
  EXPECT_EQ(texts(list), entries);
  EXPECT_EQ(vector.size, 8U);
  EXPECT_EQ(kestro_mac_vector_push(&vector, "text", MAC_STR), 0);
}

TEST_F(MacVector, RefusesNull) {
  const auto log = stderr_of([&] {
    EXPECT_EQ(kestro_mac_vector_push(nullptr, "text", MAC_STR), -20);
    EXPECT_EQ(kestro_mac_vector_push(&vector, nullptr, MAC_STR), -20);
  });
  EXPECT_EQ(list.n_macs, 0);
  EXPECT_THAT(log, HasLog(Warning, module, first_null));
  EXPECT_THAT(log, HasLog(Warning, module, second_null));
}

TEST(MacVectorInit, TakesTheListAsEmptyWhateverStandsInIt) {
  mac_str elsewhere[] = {"02:00:00:00:00:01"};
  port_macs list{.macs = elsewhere, .n_macs = 77};
  kestro_mac_vector vector{.pmacs = nullptr, .size = 99};
  EXPECT_EQ(kestro_mac_vector_init(&vector, &list), 0);
  const Owned<mac_str, std::free> owner(list.macs);
  EXPECT_NE(list.macs, elsewhere);
  EXPECT_EQ(list.n_macs, 0);
  EXPECT_EQ(vector.pmacs, &list);
  EXPECT_EQ(vector.size, 8U);
}

TEST(MacVectorInit, WithoutMemoryTerminates) {
  port_macs list{};
  kestro_mac_vector vector{};
  const IgnoredTermination survived;
  int32_t result = 0;
  const auto log = stderr_of([&] {
    const Fault no_memory("realloc", ENOMEM);
    result = kestro_mac_vector_init(&vector, &list);
  });
  EXPECT_EQ(result, -22);
  EXPECT_THAT(log, HasLog(Error, module, terminating));
  EXPECT_EQ(list.macs, nullptr);
  EXPECT_EQ(list.n_macs, 0);
  EXPECT_EQ(vector.size, 0U);
}

TEST(MacVectorInit, AFailedVectorCanStillBeFilledLater) {
  port_macs list{};
  kestro_mac_vector vector{};
  const IgnoredTermination survived;
  stderr_of([&] {
    const Fault no_memory("realloc", ENOMEM);
    kestro_mac_vector_init(&vector, &list);
  });
  EXPECT_EQ(kestro_mac_vector_push(&vector, "text", MAC_STR), 0);
  EXPECT_EQ(vector.size, 8U);
  free(list.macs);
}

TEST(MacVectorDeathTest, WithoutMemoryTheProcessEndsBySigterm) {
  port_macs list{};
  kestro_mac_vector vector{};
  EXPECT_EXIT(
      {
        const Fault no_memory("realloc", ENOMEM);
        kestro_mac_vector_init(&vector, &list);
      },
      testing::KilledBySignal(SIGTERM), "Terminating, raise SIGTERM");
}

TEST(MacVectorInit, RefusesNull) {
  port_macs list{.macs = nullptr, .n_macs = 3};
  kestro_mac_vector vector{};
  const auto log = stderr_of([&] {
    EXPECT_EQ(kestro_mac_vector_init(nullptr, &list), -20);
    EXPECT_EQ(kestro_mac_vector_init(&vector, nullptr), -20);
  });
  EXPECT_EQ(list.n_macs, 3);
  EXPECT_THAT(log, HasLog(Warning, module, first_null));
  EXPECT_THAT(log, HasLog(Warning, module, second_null));
}

// ---- Lists of ports ----

TEST(PortMacsArray, IsReleasedWithItsLists) {
  auto* const ports = static_cast<port_macs*>(calloc(3, sizeof(port_macs)));
  kestro_mac_vector vector{};
  kestro_mac_vector_init(&vector, &ports[0]);
  kestro_mac_vector_init(&vector, &ports[2]);  // the one between stays null
  kestro_free_port_macs_array(ports, 3);
}

TEST(PortMacsArray, NullDoesNothing) {
  kestro_free_port_macs_array(nullptr, 3);
}

TEST(PortMacsArray, OfNoPorts) {
  kestro_free_port_macs_array(static_cast<port_macs*>(calloc(1, sizeof(port_macs))), 0);
}

TEST(PortMacsConcat, FirstThenSecond) {
  mac_str first[] = {"02:00:00:00:00:01", "02:00:00:00:00:02"};
  mac_str second[] = {"02:00:00:00:00:03"};
  const port_macs a{.macs = first, .n_macs = 2};
  const port_macs b{.macs = second, .n_macs = 1};
  const auto both = kestro_port_macs_concat(&a, &b);
  const Owned<mac_str, std::free> owner(both.macs);
  EXPECT_THAT(texts(both), ElementsAre("02:00:00:00:00:01", "02:00:00:00:00:02", "02:00:00:00:00:03"));
  EXPECT_NE(both.macs, first);
  EXPECT_THAT(texts(a), ElementsAre("02:00:00:00:00:01", "02:00:00:00:00:02"));
  EXPECT_THAT(texts(b), ElementsAre("02:00:00:00:00:03"));
}

TEST(PortMacsConcat, EmptyAndNullLists) {
  mac_str one[] = {"02:00:00:00:00:01"};
  const port_macs list{.macs = one, .n_macs = 1};
  const port_macs empty{};
  const port_macs* const lists[] = {&list, &empty, nullptr};
  for (const auto* left : lists) {
    for (const auto* right : lists) {
      const auto both = kestro_port_macs_concat(left, right);
      const Owned<mac_str, std::free> owner(both.macs);
      EXPECT_NE(both.macs, nullptr);
      EXPECT_EQ(both.n_macs, (left == &list ? 1 : 0) + (right == &list ? 1 : 0));
    }
  }
}

TEST(PortMacsConcatDeathTest, EndsTheProcessWithoutMemory) {
  const port_macs empty{};
  EXPECT_EXIT(
      {
        const Fault no_memory("malloc", ENOMEM);
        kestro_port_macs_concat(&empty, &empty);
      },
      testing::KilledBySignal(SIGABRT), "");
}

TEST(NumMacsToList, IsCappedAt512) {
  for (const int32_t number : {INT_MIN, -1, 0, 5, 511, 512}) EXPECT_EQ(kestro_get_num_macs_to_list(number), number);
  for (const int32_t number : {513, 600, INT_MAX}) EXPECT_EQ(kestro_get_num_macs_to_list(number), 512);
}

}  // namespace
}  // namespace kestro::test
