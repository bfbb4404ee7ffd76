#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <string>
#include <vector>

#include "kestro_utils.h"
#include "support/captured_stderr.hpp"
#include "support/fake_tools.hpp"
#include "support/faults.hpp"
#include "support/log.hpp"

namespace kestro::test {
namespace {

using testing::ElementsAre;

const char* const module = "kestro_utils";
const char* const first_null = "Found a null input parameter at varg index <0>\n";
const char* const second_null = "Found a null input parameter at varg index <1>\n";

using Bytes = std::array<uint8_t, 6>;

// ---- The normal form ----

struct Row {
  const char* name;
  const char* text;
  const char* normal;  // null: refused
};

const Row rows[] = {
    {"Dashes", "aa-bb-cc-dd-ee-ff", "AA:BB:CC:DD:EE:FF"},
    {"Colons", "aa:bb:cc:dd:ee:ff", "AA:BB:CC:DD:EE:FF"},
    {"AlreadyNormal", "01:23:45:67:89:AB", "01:23:45:67:89:AB"},
    {"MixedCase", "aA-Bb-cC-Dd-09-fF", "AA:BB:CC:DD:09:FF"},
    {"MixedDelimiters", "aa:bb-cc:dd:ee:ff", nullptr},
    {"OtherDelimiters", "aa.bb.cc.dd.ee.ff", nullptr},
    {"NoDigit", "aa:bb:cc:dd:ee:fg", nullptr},
    {"SixteenCharacters", "aa:bb:cc:dd:ee:f", nullptr},
    {"EighteenCharacters", "aa:bb:cc:dd:ee:fff", nullptr},
    {"LineFeed", "aa:bb:cc:dd:ee:f\n", nullptr},
    {"Empty", "", nullptr},
};

class MacText : public testing::TestWithParam<Row> {
  const LogLevel quiet_{0};
};

TEST_P(MacText, IsBroughtToTheNormalForm) {
  const auto& [name, text, normal] = GetParam();
  std::vector<char> mac(text, text + strlen(text) + 1);
  EXPECT_EQ(kestro_validate_and_format_mac_addr_string(mac.data()), normal != nullptr ? 0 : -4);
  EXPECT_STREQ(mac.data(), normal != nullptr ? normal : text);
}

TEST_P(MacText, IsReadIntoBytes) {
  const auto& [name, text, normal] = GetParam();
  std::vector<char> mac(text, text + strlen(text) + 1);
  Bytes bytes{1, 2, 3, 4, 5, 6};
  EXPECT_EQ(kestro_str_to_mac_address(mac.data(), bytes.data()), normal != nullptr ? 0 : -4);
  EXPECT_STREQ(mac.data(), normal != nullptr ? normal : text);
  if (normal == nullptr) {
    EXPECT_EQ(bytes, (Bytes{1, 2, 3, 4, 5, 6}));
  } else {
    char back[20];
    kestro_bytes_to_mac_address_string(back, bytes.data());
    EXPECT_STREQ(back, normal);
  }
}

INSTANTIATE_TEST_SUITE_P(All, MacText, testing::ValuesIn(rows),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(MacNormalForm, LogsItsSteps) {
  const LogLevel verbose(Verbose);
  char mac[] = "aa-bb-cc-dd-ee-ff";
  const auto log = stderr_of([&] { kestro_validate_and_format_mac_addr_string(mac); });
  EXPECT_THAT(log, HasLog(Debug, module, "Validating and reformatting given mac address string <aa-bb-cc-dd-ee-ff>\n"));
  EXPECT_THAT(log, HasLog(Verbose, module, "Converting all characters to uppercase\n"));
  EXPECT_THAT(log, HasLog(Verbose, module, "Replacing delimiters with ':'\n"));
}

TEST(MacNormalForm, LogsAWrongLength) {
  for (const char* text : {"aa:bb:cc:dd:ee:f", "aa:bb:cc:dd:ee:fff"}) {
    std::string mac = text;
    const auto log = stderr_of([&] { kestro_validate_and_format_mac_addr_string(mac.data()); });
    EXPECT_THAT(log, HasLog(Debug, module, "Incorrect mac address length, aborting reformation and validation\n"));
  }
}

TEST(MacNormalForm, RefusesNull) {
  const auto log = stderr_of([] { EXPECT_EQ(kestro_validate_and_format_mac_addr_string(nullptr), -20); });
  EXPECT_THAT(log, HasLog(Warning, module, first_null));
}

// ---- Bytes ----

TEST(MacBytes, EveryValueInEveryPlaceComesBack) {
  for (size_t place = 0; place < 6; ++place) {
    for (int value = 0; value < 256; ++value) {
      Bytes bytes{0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC};
      bytes[place] = static_cast<uint8_t>(value);
      char text[18];
      kestro_bytes_to_mac_address_string(text, bytes.data());
      Bytes read{};
      ASSERT_EQ(kestro_mac_address_to_char_array(text, read.data()), 0) << text;
      ASSERT_EQ(read, bytes) << text;
    }
  }
}

TEST(MacBytes, TextIsUpperCase) {
  const Bytes bytes{0x00, 0x01, 0x0A, 0xAB, 0xCD, 0xEF};
  char text[20];
  kestro_bytes_to_mac_address_string(text, bytes.data());
  EXPECT_STREQ(text, "00:01:0A:AB:CD:EF");
}

TEST(MacBytes, LogsWhatItReads) {
  const LogLevel verbose(Verbose);
  char mac[] = "00-1a-22-33-44-ff";
  Bytes bytes{};
  const auto log = stderr_of([&] { kestro_str_to_mac_address(mac, bytes.data()); });
  EXPECT_THAT(log, HasLog(Debug, module, "[kestro_str_to_mac_address]: Parsing MAC address <00:1A:22:33:44:FF>\n"));
  const char* const lines[] = {"Byte <0>: <00>\n", "Byte <1>: <1A>\n", "Byte <2>: <22>\n",
                               "Byte <3>: <33>\n", "Byte <4>: <44>\n", "Byte <5>: <FF>\n"};
  for (const char* line : lines) EXPECT_THAT(log, HasLog(Verbose, module, line));
}

TEST(MacBytes, ReadingRefusesNull) {
  char mac[] = "aa-bb-cc-dd-ee-ff";
  Bytes bytes{};
  const auto log = stderr_of([&] {
    EXPECT_EQ(kestro_str_to_mac_address(nullptr, bytes.data()), -20);
    EXPECT_EQ(kestro_str_to_mac_address(mac, nullptr), -20);
    EXPECT_EQ(kestro_mac_address_to_char_array(nullptr, bytes.data()), -20);
    EXPECT_EQ(kestro_mac_address_to_char_array(mac, nullptr), -20);
  });
  EXPECT_STREQ(mac, "aa-bb-cc-dd-ee-ff");
  EXPECT_EQ(count_log_lines(log, Warning, module, first_null), 2);
  EXPECT_EQ(count_log_lines(log, Warning, module, second_null), 2);
}

TEST(MacCharArray, TakesEitherCaseAndColonsOnly) {
  struct {
    const char* text;
    int32_t status;
    Bytes bytes;
  } const cases[] = {
      {"aa:bb:cc:dd:ee:ff", 0, {0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF}},
      {"AA:bb:CC:dd:EE:01", 0, {0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0x01}},
      {"1:2:3:4:5:6", 0, {1, 2, 3, 4, 5, 6}},
      {"1:2:3:4:5:6:7", 0, {1, 2, 3, 4, 5, 6}},
      {" 1: 2: 3: 4: 5: 6", 0, {1, 2, 3, 4, 5, 6}},
      {"1aa:2:3:4:5:fbb", 0, {0xAA, 2, 3, 4, 5, 0xBB}},
      {"1 :2:3:4:5:6", -4, {}},
      {"aa-bb-cc-dd-ee-ff", -4, {}},
      {"aa:bb:cc:dd:ee-ff", -4, {}},
      {"aa:bb:cc:dd:ee", -4, {}},
      {"aa:bb:cc:dd:ee:", -4, {}},
      {"aa:bb:cc:dd:ee:x", -4, {}},
      {"aabbccddeeff", -4, {}},
      {"", -4, {}},
  };
  for (const auto& [text, status, expected] : cases) {
    Bytes bytes{};
    EXPECT_EQ(kestro_mac_address_to_char_array(text, bytes.data()), status) << text;
    EXPECT_EQ(bytes, expected) << text;
  }
}

TEST(MacLastFourBytes, FirstOfThemIsTheMostSignificant) {
  const Bytes bytes{0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
  const Bytes high{0, 0, 0xFF, 0xFE, 0xFD, 0xFC};
  uint32_t number = 0;
  EXPECT_EQ(kestro_mac_last_4_bytes_to_uint32_t(bytes.data(), &number), 0);
  EXPECT_EQ(number, 0x22334455U);
  EXPECT_EQ(kestro_mac_last_4_bytes_to_uint32_t(high.data(), &number), 0);
  EXPECT_EQ(number, 0xFFFEFDFCU);
}

// ---- Network interfaces ----

// A "cat" that prints the given text, whatever it is asked for.
class FakeCat : public FakeTools {
 public:
  explicit FakeCat(const std::string& output) {
    add("cat", "exec /bin/cat '" + directory().write("output", output) + "'");
  }
};

struct Reading {
  int32_t status;
  std::string mac;
  std::string log;
};

Reading read_interface(const char* iface) {
  char mac[18] = "before";
  Reading reading{};
  reading.log = stderr_of([&] { reading.status = get_nc_mac_addr(iface, mac); });
  reading.mac = mac;
  return reading;
}

TEST(InterfaceMac, IsReadAndShownInUpperCase) {
  const FakeCat cat("0a:1b:2c:3d:4e:5f\n");
  const auto reading = read_interface("eth0");
  EXPECT_EQ(reading.status, 0);
  EXPECT_EQ(reading.mac, "0A:1B:2C:3D:4E:5F");
  EXPECT_EQ(reading.log, "");
  EXPECT_THAT(cat.calls("cat"), ElementsAre("[/sys/class/net/eth0/address]"));
}

TEST(InterfaceMac, OnlyTheFirstLineCounts) {
  const FakeCat cat("0a:1b:2c:3d:4e:5f\nmore\n");
  EXPECT_EQ(read_interface("eth0").mac, "0A:1B:2C:3D:4E:5F");
}

TEST(InterfaceMac, LinesOfAnotherLengthAreRefused) {
  for (const std::string line : {"0a:1b:2c:3d:4e:5\n", "0a:1b:2c:3d:4e:5f0\n", "0a:1b:2c:3d:4e:5f", "\n"}) {
    const FakeCat cat(line);
    const auto reading = read_interface("eth0");
    EXPECT_EQ(reading.status, -1);
    EXPECT_EQ(reading.mac, "");
    EXPECT_THAT(reading.log, HasLog(Error, module, "Str " + line + " does not look like a MAC\n"));
  }
}

TEST(InterfaceMac, LongLinesAreCutAtTheBuffer) {
  const FakeCat cat(std::string(500, 'a'));
  EXPECT_THAT(read_interface("eth0").log,
              HasLog(Error, module, "Str " + std::string(127, 'a') + " does not look like a MAC\n"));
}

TEST(InterfaceMac, NoOutput) {
  const FakeCat cat("");
  const auto reading = read_interface("eth9");
  EXPECT_EQ(reading.status, -1);
  EXPECT_EQ(reading.mac, "");
  EXPECT_THAT(reading.log, HasLog(Error, module, "No output from cmd cat /sys/class/net/eth9/address\n"));
}

TEST(InterfaceMac, NamesNearTheBound) {
  const size_t frame = std::string("cat /sys/class/net//address").size();
  const FakeCat cat("0a:1b:2c:3d:4e:5f\n");
  EXPECT_EQ(read_interface(std::string(127 - frame, 'n').c_str()).status, 0);
  for (const size_t more : {0U, 1U, 1000U}) {
    const auto reading = read_interface(std::string(128 - frame + more, 'n').c_str());
    EXPECT_EQ(reading.status, -1);
    EXPECT_EQ(reading.mac, "");
    EXPECT_THAT(reading.log, HasLog(Error, module, "OVERFLOW: wbytes " + std::to_string(128 + more) + " sz 128\n"));
  }
}

TEST(InterfaceMac, RefusesNull) {
  char mac[18] = "before";
  const auto log = stderr_of([&] {
    EXPECT_EQ(get_nc_mac_addr(nullptr, mac), -20);
    EXPECT_EQ(get_nc_mac_addr("eth0", nullptr), -20);
  });
  EXPECT_STREQ(mac, "before");
  EXPECT_THAT(log, HasLog(Warning, module, first_null));
  EXPECT_THAT(log, HasLog(Warning, module, second_null));
}

int32_t read_without_a_pipe(char (&mac)[18]) {
  const Fault no_pipe("popen", EMFILE);
  return get_nc_mac_addr("eth0", mac);
}

TEST(InterfaceMacDeathTest, PanicsWithoutAPipe) {
  char mac[18];
  EXPECT_EXIT(read_without_a_pipe(mac), testing::KilledBySignal(SIGABRT), "PANIC: could not open pipe\n");
}

TEST(InterfaceMac, PanicThatIsSurvivedGivesAStatus) {
  auto* const saved = signal(SIGABRT, SIG_IGN);
  char mac[18] = "before";
  const auto log = stderr_of([&] { EXPECT_EQ(read_without_a_pipe(mac), -1); });
  signal(SIGABRT, saved);
  EXPECT_STREQ(mac, "");
  EXPECT_THAT(log, HasLog(Error, module, "PANIC: could not open pipe\n"));
}

}  // namespace
}  // namespace kestro::test
