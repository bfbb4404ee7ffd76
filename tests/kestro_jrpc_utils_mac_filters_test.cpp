#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "core/owned.hpp"
#include "kestro_jrpc_utils.h"
#include "support/captured_stderr.hpp"
#include "support/faults.hpp"
#include "support/json.hpp"
#include "support/log.hpp"
#include "support/named.hpp"
#include "support/request.hpp"
#include "support/scarce_json.hpp"

namespace kestro::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr const char* module = "kestro_jrpc_utils";
constexpr int32_t oec = 12;
constexpr int32_t port = 34;

using Filters = Owned<kestro_mac_filter, std::free>;

// What a caller holds after a call. Owns the filters only where that is the caller's part.
struct Retrieved {
  explicit Retrieved(Request& request) {
    status = kestro_jrpc_utils_retrieve_input_mac_filters(request.params(), request.err_data(), "value", &filters,
                                                          &count, oec, port);
    if (status == 0) owned.reset(filters);
  }
  const kestro_mac_filter& operator[](size_t i) const { return owned.get()[i]; }

  int32_t status = 1;
  // Not null at first, so that what hands nothing out must say so.
  kestro_mac_filter* filters = reinterpret_cast<kestro_mac_filter*>(this);
  int32_t count = -1;
  Filters owned;
};

TEST(MacFilters, AreReadIntoTheNormalForm) {
  const LogLevel off(0);
  Request request = Request::of(json_of(R"([{"mac":"aa-bb-cc-dd-ee-ff","mask":"ff:ff:ff:ff:ff:00"},)"
                                        R"({"mask":"FF-FF-FF-FF-FF-FF","mac":"01:02:03:04:05:0a","more":1}])"));
  const Retrieved got(request);
  ASSERT_EQ(got.status, 0);
  ASSERT_EQ(got.count, 2);
  EXPECT_STREQ(got[0].mac, "AA:BB:CC:DD:EE:FF");
  EXPECT_STREQ(got[0].mask, "FF:FF:FF:FF:FF:00");
  EXPECT_STREQ(got[1].macaddr_allowed, "01:02:03:04:05:0A");
  EXPECT_STREQ(got[1].macaddr_mask, "FF:FF:FF:FF:FF:FF");
  for (size_t i = 0; i < 2; ++i) {
    EXPECT_EQ(got[i].oec_num, oec);
    EXPECT_EQ(got[i].port_num, port);
  }
}

TEST(MacFilters, AnEmptySetStillNamesItsPort) {
  const LogLevel off(0);
  Request request = Request::of(Json(json_array()));
  const Retrieved got(request);
  ASSERT_EQ(got.status, 0);
  EXPECT_EQ(got.count, 0);
  EXPECT_EQ(got[0].oec_number, oec);
  EXPECT_EQ(got[0].port_number, port);
}

TEST(MacFilters, ManyAreTaken) {
  const LogLevel off(0);
  Json list(json_array());
  const Json filter = json_of(R"({"mac":"00:00:00:00:00:01","mask":"FF:FF:FF:FF:FF:FF"})");
  for (int i = 0; i < 513; ++i) json_array_append(list.get(), filter.get());
  Request request = Request::of(std::move(list));
  const Retrieved got(request);
  ASSERT_EQ(got.status, 0);
  EXPECT_EQ(got.count, 513);
  EXPECT_STREQ(got[512].mac, "00:00:00:00:00:01");
}

TEST(MacFilters, ListIsAnnounced) {
  const LogLevel level(Verbose);
  Request request = Request::of(Json(json_array()));
  EXPECT_THAT(stderr_of([&] { const Retrieved got(request); }),
              HasLog(Verbose, module, "jrpc utils input mac filters\n"));
}

struct Refusal {
  const char* name;
  const char* list;
  int32_t status;
  const char* explanation;
};

const Refusal refusals[] = {
    {"NoMac", R"([{"mask":"FF:FF:FF:FF:FF:FF"}])", -35, "Missing expected parameter: 'mac'"},
    {"NoMask", R"([{"mac":"00:00:00:00:00:01"}])", -35, "Missing expected parameter: 'mask'"},
    {"NumberForMac", R"([{"mac":1,"mask":"FF:FF:FF:FF:FF:FF"}])", -31, "Parameter 'mac' is not of type 'string'."},
    {"ListForMask", R"([{"mac":"00:00:00:00:00:01","mask":[]}])", -31, "Parameter 'mask' is not of type 'string'."},
    {"InvalidMac", R"([{"mac":"00:00:00:00:00:0g","mask":"FF:FF:FF:FF:FF:FF"}])", -34, ""},
    {"InvalidMask", R"([{"mac":"00:00:00:00:00:01","mask":"FF:FF:FF:FF:FF-FF"}])", -34, ""},
    {"NoneIsNoFilter", R"([{"mac":"none","mask":"FF:FF:FF:FF:FF:FF"}])", -34, ""},
    {"MacOf19Characters", R"([{"mac":"00:00:00:00:00:01  ","mask":"FF:FF:FF:FF:FF:FF"}])", -34, ""},
    {"MacOf20Characters", R"([{"mac":"00:00:00:00:00:01   ","mask":"FF:FF:FF:FF:FF:FF"}])", -31,
     "mac: overflow detected: 20 characters written, 20 characters allowed."},
    {"ElementIsNoObject", R"(["00:00:00:00:00:01"])", -35, "Missing expected parameter: 'mac'"},
    {"ElementIsNull", "[null]", -35, "Missing expected parameter: 'mac'"},
    {"FaultInTheLast", R"([{"mac":"00:00:00:00:00:01","mask":"FF:FF:FF:FF:FF:FF"},{}])", -35,
     "Missing expected parameter: 'mac'"},
};

class RefusedMacFilters : public testing::TestWithParam<Refusal> {};

// The array is released: a leak, or a second release, would end this program under the address sanitizer.
TEST_P(RefusedMacFilters, LeaveNothingToRelease) {
  const LogLevel off(0);
  Request request = Request::of(json_of(GetParam().list));
  const Retrieved got(request);
  EXPECT_EQ(got.status, GetParam().status);
  EXPECT_EQ(request.explanation(), GetParam().explanation);
  EXPECT_NE(got.filters, nullptr);  // an address stays, as callers have it
  EXPECT_EQ(got.count, static_cast<int32_t>(json_array_size(json_of(GetParam().list).get())));
}
INSTANTIATE_TEST_SUITE_P(All, RefusedMacFilters, testing::ValuesIn(refusals), name_of<Refusal>);

TEST(MacFilters, WithoutAListNothingIsHandedOut) {
  const LogLevel off(0);
  Request missing("{}");
  const Retrieved none(missing);
  EXPECT_EQ(none.status, -35);
  EXPECT_EQ(none.filters, nullptr);
  EXPECT_EQ(none.count, 0);
  EXPECT_EQ(missing.explanation(), "Missing expected parameter: 'value'");
  Request text = Request::of("text");
  const Retrieved no_list(text);
  EXPECT_EQ(no_list.status, -31);
  EXPECT_EQ(no_list.filters, nullptr);
  EXPECT_EQ(text.explanation(), "Parameter 'value' is not of type 'array'.");
}

TEST(MacFilters, NullsAreRefusedAndCounted) {
  const LogLevel level(Warning);
  Request request = Request::of(Json(json_array()));
  const json_t* const params = request.params();
  json_t** const err = request.err_data();
  auto* const untouched = reinterpret_cast<kestro_mac_filter*>(&request);
  kestro_mac_filter* filters = untouched;
  int32_t count = 4711;
  const auto* const name = "value";
  const auto refused = [&](int index, const auto&... arguments) {
    const auto log = stderr_of(
        [&] { EXPECT_EQ(kestro_jrpc_utils_retrieve_input_mac_filters(arguments..., oec, port), -20) << index; });
    EXPECT_THAT(log, HasLog(Warning, "kestro_utils",
                            "Found a null input parameter at varg index <" + std::to_string(index) + ">\n"));
  };
  refused(0, nullptr, err, name, &filters, &count);
  refused(1, params, nullptr, name, &filters, &count);
  refused(2, params, err, nullptr, &filters, &count);
  refused(3, params, err, name, nullptr, &count);
  refused(4, params, err, name, &filters, nullptr);
  EXPECT_EQ(filters, untouched);
  EXPECT_EQ(count, 4711);
}

TEST(MacFilters, MemoryRunsOut) {
  const LogLevel off(0);
  for (const char* const list : {"[]", R"([{"mac":"00:00:00:00:00:01","mask":"FF:FF:FF:FF:FF:FF"}])"}) {
    Request request = Request::of(json_of(list));
    const Fault no_memory("calloc", ENOMEM);
    const Retrieved got(request);
    EXPECT_TRUE(no_memory.fired());
    EXPECT_EQ(got.status, -22) << list;
    EXPECT_EQ(got.filters, nullptr) << list;
    EXPECT_EQ(got.count, static_cast<int32_t>(json_array_size(json_of(list).get())));
  }
}

TEST(MacFilters, MemoryForTheExplanationRunsOut) {
  const LogLevel off(0);
  bool fired = true;
  for (int nth = 1; fired; ++nth) {
    Request request = Request::of(json_of("[{}]"));
    {
      const ScarceJson scarce(nth);
      const Retrieved got(request);
      EXPECT_EQ(got.status, -35) << nth;
      fired = scarce.fired();
    }
    ASSERT_LT(nth, 100);
  }
}

// ---- Secure ports

int32_t parse(Request& request, kestro_data_secure_options* option) {
  return kestro_jrpc_utils_parse_input_secure_option(request.params(), request.err_data(), "value", option);
}

TEST(SecureOption, EveryWordHasItsNumber) {
  const LogLevel level(Config);
  const struct {
    const char* text;
    kestro_data_secure_options option;
  } cases[] = {
      {"current", KESTRO_DATA_SECURE_CURRENT},
      {"enable", KESTRO_DATA_SECURE_ENABLE},
      {"disable", KESTRO_DATA_SECURE_DISABLE},
      {"clear", KESTRO_DATA_SECURE_CLEAR},
  };
  for (const auto& each : cases) {
    Request request = Request::of(each.text);
    kestro_data_secure_options option = KESTRO_DATA_SECURE_MAX_VALUE;
    const auto log = stderr_of([&] { EXPECT_EQ(parse(request, &option), 0) << each.text; });
    EXPECT_EQ(option, each.option) << each.text;
    EXPECT_THAT(log, HasLog(Config, module, std::string("SealGuard - value: <") + each.text + ">\n"));
  }
}

TEST(SecureOption, OtherWordsAreRefusedAndOnRecord) {
  const LogLevel level(Error);
  for (const std::string text : {"Enable", "", "enabled", "enable ", "enabl"}) {
    Request request = Request::of(text);
    kestro_data_secure_options option = KESTRO_DATA_SECURE_MAX_VALUE;
    const auto log = stderr_of([&] { EXPECT_EQ(parse(request, &option), -31) << text; });
    EXPECT_EQ(option, KESTRO_DATA_SECURE_CURRENT);
    EXPECT_EQ(request.explanation(), "");
    EXPECT_THAT(log, AllOf(HasLog(Config, module, "SealGuard - value: <" + text + ">\n"),
                           HasLog(Error, module, "Invalid parameter <" + text + "> for field: <value>\n")));
  }
}

TEST(SecureOption, EveryFailureToReadIsTheSame) {
  const LogLevel level(Error);
  const struct {
    const char* params;
    std::string explanation;
  } cases[] = {
      {"{}", "Missing expected parameter: 'value'"},
      {R"({"value":1})", "Parameter 'value' is not of type 'string'."},
  };
  for (const auto& each : cases) {
    Request request(each.params);
    kestro_data_secure_options option = KESTRO_DATA_SECURE_MAX_VALUE;
    const auto log = stderr_of([&] { EXPECT_EQ(parse(request, &option), -31) << each.params; });
    EXPECT_EQ(request.explanation(), each.explanation);
    EXPECT_EQ(option, KESTRO_DATA_SECURE_CURRENT);
    EXPECT_THAT(log, Not(HasSubstr("SealGuard")));
  }
}

TEST(SecureOption, HasRoomFor99Characters) {
  const LogLevel off(0);
  kestro_data_secure_options option = KESTRO_DATA_SECURE_MAX_VALUE;
  Request fits = Request::of(std::string(99, 'x'));
  EXPECT_EQ(parse(fits, &option), -31);
  EXPECT_EQ(fits.explanation(), "");
  Request too_long = Request::of(std::string(100, 'x'));
  EXPECT_EQ(parse(too_long, &option), -31);
  EXPECT_EQ(too_long.explanation(), "value: overflow detected: 100 characters written, 100 characters allowed.");
}

TEST(SecureOption, NullsAreRefusedWithTheSameStatus) {
  const Request request = Request::of("enable");
  kestro_data_secure_options option = KESTRO_DATA_SECURE_MAX_VALUE;
  // This line alone has no end of its own.
  const auto line = HasSubstr("kestro_jrpc_utils_parse_input_secure_option received NULL input");
  EXPECT_THAT(stderr_of([&] {
                EXPECT_EQ(kestro_jrpc_utils_parse_input_secure_option(request.params(), nullptr, nullptr, &option),
                          -31);
              }),
              AllOf(line, HasSubstr("[ERR!]"), Not(HasSubstr("\n"))));
  EXPECT_EQ(option, KESTRO_DATA_SECURE_MAX_VALUE);
  EXPECT_THAT(stderr_of([&] {
                EXPECT_EQ(kestro_jrpc_utils_parse_input_secure_option(request.params(), nullptr, "value", nullptr),
                          -31);
              }),
              line);
}

}  // namespace
}  // namespace kestro::test
