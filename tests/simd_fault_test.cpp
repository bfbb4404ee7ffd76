// A fault in one word.

#include "simd/fault.hpp"

#include <gtest/gtest.h>

#include <string>

#include "support/named.hpp"

namespace kestro::simd {
namespace {

using test::name_of;

struct Word {
  std::string name;
  std::string text;
  FaultKind kind;
  int32_t oec_number;
  int64_t milliseconds;
};

class GoodWord : public testing::TestWithParam<Word> {};

TEST_P(GoodWord, IsReadAndWritten) {
  const auto& expected = GetParam();
  const auto fault = parse_fault(expected.text);
  ASSERT_TRUE(fault);
  EXPECT_EQ(fault->kind, expected.kind);
  EXPECT_EQ(fault->oec_number, expected.oec_number);
  EXPECT_EQ(fault->delay.count(), expected.milliseconds);
  EXPECT_EQ(text_of(*fault), expected.text);
}

INSTANTIATE_TEST_SUITE_P(SimdFault, GoodWord,
                         testing::Values(Word{"None", "none", FaultKind::none, 0, 0},
                                         Word{"NoneOfOneSwitch", "none=c512", FaultKind::none, 512, 0},
                                         Word{"Offline", "offline", FaultKind::offline, 0, 0},
                                         Word{"OfflineSwitch", "offline=c3", FaultKind::offline, 3, 0},
                                         Word{"Silent", "silent", FaultKind::silent, 0, 0},
                                         Word{"ShortestDelay", "late=1", FaultKind::late, 0, 1},
                                         Word{"LongestDelay", "late=600000", FaultKind::late, 0, 600'000}),
                         name_of<Word>);

struct BadWord {
  std::string name;
  std::string text;
};

class RefusedWord : public testing::TestWithParam<BadWord> {};

TEST_P(RefusedWord, IsNone) {
  EXPECT_FALSE(parse_fault(GetParam().text));
}

INSTANTIATE_TEST_SUITE_P(SimdFault, RefusedWord,
                         testing::Values(BadWord{"Empty", ""}, BadWord{"Unknown", "broken"},
                                         BadWord{"UpperCase", "Silent"}, BadWord{"NoSwitch", "offline="},
                                         BadWord{"SwitchOutOfRange", "offline=c513"}, BadWord{"Port", "offline=c3-1"},
                                         BadWord{"HeadEnd", "offline=c10001"}, BadWord{"SilentSwitch", "silent=c3"},
                                         BadWord{"NoDelay", "late"}, BadWord{"EmptyDelay", "late="},
                                         BadWord{"ZeroDelay", "late=0"}, BadWord{"NegativeDelay", "late=-5"},
                                         BadWord{"TooLongDelay", "late=600001"}, BadWord{"UnitBehind", "late=15ms"},
                                         BadWord{"HugeDelay", "late=99999999999"}),
                         name_of<BadWord>);

}  // namespace
}  // namespace kestro::simd
