#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

#include "kestro_utils.h"
#include "support/captured_stderr.hpp"
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

using testing::IsEmpty;

const char* const module = "kestro_utils";

kestro_data_oec edge_switch(int32_t id, const char* alias = "") {
  kestro_data_oec oec{};
  oec.oec_id = id;
  oec.model = KESTRO_DATA_OEC_MODEL_VTR_E30P;
  strncpy(oec.alias, alias, sizeof oec.alias - 1);
  strcpy(oec.description, "Lobby, 2nd floor");
  strcpy(oec.ip_addr, "10.0.0.12");
  strcpy(oec.switch_mac_address, "02:00:01:00:00:0A");
  strcpy(oec.mac_address, "02:00:01:00:00:0B");
  return oec;
}

TEST(OecName, AliasOrElseIdentifier) {
  char name[16];
  const auto plain = edge_switch(12);
  const auto named = edge_switch(12, "lobby");
  EXPECT_EQ(kestro_form_oec_name(&plain, name, sizeof name), 0);
  EXPECT_STREQ(name, "c12");
  EXPECT_EQ(kestro_form_oec_name(&named, name, sizeof name), 0);
  EXPECT_STREQ(name, "lobby");
}

TEST(OecName, EverySizeCutsToFit) {
  for (const char* alias : {"", "lobby123"}) {
    const auto oec = edge_switch(1234567, alias);
    const std::string text = *alias != '\0' ? alias : "c1234567";
    for (size_t size = 0; size <= 10; ++size) {
      std::vector<char> name(12, 'x');
      EXPECT_EQ(kestro_form_oec_name(&oec, name.data(), size), 0);
      if (size > 0) {
        EXPECT_EQ(std::string(name.data()), text.substr(0, size - 1));
      }
      EXPECT_EQ(std::string(name.begin() + static_cast<ptrdiff_t>(size), name.end()), std::string(12 - size, 'x'));
    }
  }
}

TEST(OecName, RefusesNull) {
  char name[] = "before";
  const auto oec = edge_switch(1);
  const auto log = stderr_of([&] {
    EXPECT_EQ(kestro_form_oec_name(nullptr, name, sizeof name), -20);
    EXPECT_EQ(kestro_form_oec_name(&oec, nullptr, 8), -20);
  });
  EXPECT_STREQ(name, "before");
  EXPECT_THAT(log, HasLog(Warning, module, "Found a null input parameter at varg index <1>\n"));
}

TEST(PrintOec, LogsTheEdgeSwitch) {
  const auto oec = edge_switch(12, "lobby");
  const auto log = stderr_of([&] { EXPECT_EQ(kestro_print_oec(&oec, "Registered"), 0); });
  EXPECT_THAT(log, HasLog(Info, module,
                          "Registered:\noec_id: c12\nmodel: VTR-E30p\n mac: 02:00:01:00:00:0A\n ip: 10.0.0.12\n\n"));
}

TEST(PrintOec, NumbersThatAreNoModelAreUnknown) {
  for (const int32_t model : {-1, 0, 20, INT_MAX}) {
    auto oec = edge_switch(12);
    memcpy(&oec.model, &model, sizeof model);
    const auto log = stderr_of([&] { kestro_print_oec(&oec, "Seen"); });
    EXPECT_THAT(
        log, HasLog(Info, module, "Seen:\noec_id: c12\nmodel: unknown\n mac: 02:00:01:00:00:0A\n ip: 10.0.0.12\n\n"));
  }
}

TEST(PrintOec, RefusesNull) {
  const auto oec = edge_switch(1);
  const auto log = stderr_of([&] {
    EXPECT_EQ(kestro_print_oec(nullptr, "text"), -20);
    EXPECT_EQ(kestro_print_oec(&oec, nullptr), -20);
  });
  EXPECT_THAT(log, HasLog(Warning, module, "Found a null input parameter at varg index <0>\n"));
  EXPECT_THAT(log, HasLog(Warning, module, "Found a null input parameter at varg index <1>\n"));
}

TEST(OecIsOnline, WhileItHasAnOnuNumber) {
  struct {
    int32_t onu;
    bool online;
  } const rows[] = {{INT_MIN, false}, {-1, false}, {0, false}, {1, true}, {64, true}, {INT_MAX, true}};
  for (const auto& [onu, online] : rows) {
    auto oec = edge_switch(1);
    oec.onu_id = onu;
    EXPECT_EQ(kestro_oec_is_online(&oec), online) << onu;
  }
}

TEST(RecentlyOnline, FromOneSecondUpToTwoMinutes) {
  auto oec = edge_switch(1);
  oec.onu_id = 1;
  const int64_t now = 1'700'000'000;
  for (int64_t age = -130; age <= 130; ++age) {
    oec.offline_online_transition_time = now - age;
    EXPECT_EQ(kestro_esw_is_recently_online(&oec, now), age >= 1 && age <= 119) << age;
  }
}

TEST(RecentlyOnline, ExtremeTimes) {
  auto oec = edge_switch(1);
  oec.onu_id = 1;
  oec.offline_online_transition_time = INT64_MIN;
  EXPECT_FALSE(kestro_esw_is_recently_online(&oec, INT64_MAX - 200));
  // The clock of unsigned numbers goes round.
  EXPECT_TRUE(kestro_esw_is_recently_online(&oec, INT64_MIN + 1));
  oec.offline_online_transition_time = INT64_MAX;
  EXPECT_TRUE(kestro_esw_is_recently_online(&oec, INT64_MIN));
  EXPECT_FALSE(kestro_esw_is_recently_online(&oec, 0));
}

TEST(RecentlyOnline, NeverWhileOffline) {
  auto oec = edge_switch(1);
  oec.onu_id = 0;
  oec.offline_online_transition_time = 1000;
  EXPECT_FALSE(kestro_esw_is_recently_online(&oec, 1060));
}

TEST(RecentlyOnlineWarning, OnlyForTheGenericModel) {
  for (int32_t model = 0; model < KESTRO_DATA_OEC_MODEL_MAX_ENUM_VAL; ++model) {
    auto oec = edge_switch(1);
    oec.model = static_cast<kestro_data_oec_model_name>(model);
    oec.onu_id = 1;
    oec.offline_online_transition_time = time(nullptr) - 30;
    EXPECT_EQ(kestro_esw_show_recently_online_warning(&oec), model == 7) << model;
    oec.offline_online_transition_time -= 1000;
    EXPECT_FALSE(kestro_esw_show_recently_online_warning(&oec));
  }
}

TEST(RecentlyOnlineWarning, NumbersThatAreNoModelAreNotGeneric) {
  const int32_t model = -1;
  auto oec = edge_switch(1);
  memcpy(&oec.model, &model, sizeof model);
  oec.onu_id = 1;
  oec.offline_online_transition_time = time(nullptr) - 30;
  EXPECT_FALSE(kestro_esw_show_recently_online_warning(&oec));
}

TEST(EswStr, TellsWhatIdentifiesTheSwitch) {
  const auto oec = edge_switch(12, "lobby");
  const auto log = stderr_of([&] {
    EXPECT_STREQ(kestro_esw_str(&oec),
                 "{c12; lobby; Lobby, 2nd floor; ip 10.0.0.12; emac 02:00:01:00:00:0A; omac 02:00:01:00:00:0B}");
  });
  EXPECT_THAT(log, IsEmpty());
}

// Texts without their zero byte run on into the fields behind them, up to the software version: so a record whose
// description takes 255 characters and those of its MAC address can be had.
kestro_data_oec overlong(const std::string& mac_address) {
  auto oec = edge_switch(1);
  memset(oec.switch_mac_address, 'e', sizeof oec.switch_mac_address);
  memset(oec.description, 'd', sizeof oec.description);
  memset(oec.hw_version, 'h', sizeof oec.hw_version);
  memset(oec.sw_version, 's', 21);
  oec.sw_version[21] = '\0';
  oec.ip_addr[0] = '\0';
  strcpy(oec.mac_address, mac_address.c_str());
  return oec;
}

const std::string overlong_description = std::string(51, 'd') + std::string(32, 'h') + std::string(21, 's');
const std::string overlong_text =
    "{c1; ; " + overlong_description + "; ip ; emac " + std::string(20, 'e') + overlong_description + "; omac ";

TEST(EswStr, TextThatJustFits) {
  const auto oec = overlong("");
  stack_traces = 0;
  const auto log = stderr_of([&] { EXPECT_EQ(kestro_esw_str(&oec), overlong_text + "}"); });
  EXPECT_EQ(overlong_text.size() + 1, 255U);
  EXPECT_THAT(log, IsEmpty());
  EXPECT_EQ(stack_traces, 0);
}

TEST(EswStr, TextThatDoesNotFitIsCutAndReported) {
  for (const size_t more : {1U, 2U, 17U}) {
    const auto oec = overlong(std::string(more, 'o'));
    stack_traces = 0;
    const auto log =
        stderr_of([&] { EXPECT_EQ(kestro_esw_str(&oec), (overlong_text + std::string(more, 'o')).substr(0, 255)); });
    EXPECT_THAT(log, HasLog(Error, module, "OVERFLOW: wbytes " + std::to_string(255 + more) + " sz 256\n"));
    EXPECT_THAT(log, HasLog(Error, module, "overflowed esw str\n"));
    EXPECT_EQ(stack_traces, 1);
  }
}

TEST(EswIdStr, Identifier) {
  struct {
    int32_t id;
    const char* text;
  } const rows[] = {{0, "c0"},
                    {12, "c12"},
                    {10001, "c10001"},
                    {9999999, "c9999999"},
                    {-12, "c-12"},
                    {12345678, "c1234567"},
                    {INT_MIN, "c-214748"}};
  for (const auto& [id, text] : rows) {
    const auto oec = edge_switch(id, "alias");
    EXPECT_STREQ(kestro_esw_id_str(&oec), text);
  }
}

TEST(EswIdOrAlias, AliasIfThereIsOne) {
  const auto plain = edge_switch(12);
  const auto named = edge_switch(12, "lobby123");
  EXPECT_STREQ(kestro_esw_id_or_alias(&plain), "c12");
  EXPECT_STREQ(kestro_esw_id_or_alias(&named), "lobby123");
}

TEST(EswTexts, EachFunctionHasItsOwnBuffer) {
  const auto first = edge_switch(1, "first");
  const auto second = edge_switch(2, "second");
  const char* const text = kestro_esw_str(&first);
  const char* const id = kestro_esw_id_str(&first);
  const char* const name = kestro_esw_id_or_alias(&second);
  EXPECT_EQ(std::string(text).substr(0, 10), "{c1; first");
  EXPECT_STREQ(id, "c1");
  EXPECT_STREQ(name, "second");
  EXPECT_EQ(kestro_esw_id_str(&second), id);
  EXPECT_STREQ(id, "c2");
}

TEST(EswTexts, EachThreadHasItsOwnBuffers) {
  std::vector<std::thread> threads;
  std::vector<int> mismatches(4, 0);
  for (int32_t n = 0; n < 4; ++n) {
    threads.emplace_back([n, &mismatches] {
      const auto named = edge_switch(n, ("name" + std::to_string(n)).c_str());
      const std::string id = "c" + std::to_string(n);
      const std::string name = "name" + std::to_string(n);
      const std::string start = "{" + id + "; " + name + ";";
      for (int round = 0; round < 1000; ++round) {
        const char* const text = kestro_esw_str(&named);
        const char* const id_text = kestro_esw_id_str(&named);
        const char* const name_text = kestro_esw_id_or_alias(&named);
        std::this_thread::yield();
        if (std::string(text).rfind(start, 0) != 0 || id != id_text || name != name_text)
          ++mismatches[static_cast<size_t>(n)];
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_THAT(mismatches, testing::Each(0));
}

TEST(EswTexts, BuffersOfThreadsAreDifferentPlaces) {
  const auto oec = edge_switch(1, "one");
  std::vector<const void*> here = {kestro_esw_str(&oec), kestro_esw_id_str(&oec), kestro_esw_id_or_alias(&oec)};
  std::vector<const void*> there;
  std::thread([&] { there = {kestro_esw_str(&oec), kestro_esw_id_str(&oec), kestro_esw_id_or_alias(&oec)}; }).join();
  for (size_t i = 0; i < here.size(); ++i) EXPECT_NE(here[i], there[i]);
}

}  // namespace
}  // namespace kestro::test
