#include "kestro_error.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <limits>
#include <string>

#include "kestro_jrpc.h"
#include "kestro_jrpc/error_codes.hpp"
#include "kestro_lsyslog.h"
#include "support/captured_stderr.hpp"
#include "support/log.hpp"

namespace kestro::test {
namespace {

struct Text {
  int32_t code;
  const char* message;
};

// clang-format off
constexpr Text statuses[] = {
    {0, "No Error or invalid error code"},
    {-1, "General error"},
    {-2, "Time out error"},
    {-3, "Unimplemented function error"},
    {-4, "Parameter error"},
    {-5, "Invalid Edge Switch ID"},
    {-6, "Invalid port"},
    {-7, "System access error"},
    {-8, "Edge Switch offline"},
    {-9, "Invalid Error Code - No Message available"},
    {-10, "System variables uninitialized"},
    {-11, "Internal Error - DB Busy"},
    {-12, "Internal Error - DB Access Unfinished"},
    {-13, "Expected Converter Port.  Only a C-port is valid for this command"},
    {-14, "Expected Dedicated Port.  Only a D-port is valid for this command"},
    {-15, "Expected an Edge Switch."},
    {-16, "Hardware Error"},
    {-17, "Invalid Error Code - No Message available"},
    {-18, "This command doesn't accept multiple VLANS"},
    {-19, "The number of VLAN IDs entered exceed the maximum number allowed."},
    {-20, "The input to an internal function was null"},
    {-21, "Data was about to be written to unallocated memory"},
    {-22, "Unable to allocate memory"},
    {-23, "Unable to find entry in database"},
    {-24, "Multiple Instances of Same Input Parameter"},
    {-25, "No timer expiration have occurred on read fd"},
    {-26, "Edge Switch already exists."},
    {-27, "MAC Address already exists."},
    {-28, "Edge Switch model does not exist."},
    {-29, "Edge Switch is online."},
    {-30, "An error occurred when trying to formulate the json response."},
    {-31, "A given parameter in a JSON Request was invalid."},
    {-32, "The unit is not in ACTIVE mode."},
    {-33, "Invalid date and time. Input format should be YYYY-MM-DD HH:MM"},
    {-34, "Validation has failed"},
    {-35, "Request parameter not found"},
    {-36, "The maximum number of Edge Switches that can be registered has been reached"},
    {-37, "The given port/switch does not support PoE"},
    {-38, "No records found for given database query"},
    {-39, "Data constraint violation"},
    {-40, "File could not be opened"},
    {-41, "Insufficient buffer space for the output string value"},
    {-42, "Invalid entry in the conf file"},
    {-43, "Invalid result entry"},
    {-44, "No JSON ID in request"},
    {-45, "System is busy"},
    {-46, "Nanomsg socket timeout"},
    {-47, "The given port does not exist"},
    {-48, "The current software version matches the factory default version"},
    {-49, "The given value is reserved internally"},
    {-50, "Could not receive a response from the system"},
    {-51, "Timed out while trying to connect to a remote TCP port"},
    {-52, "Multiple lasers are configured to be redundant with different IP addresses"},
    {-53, "A VTR-H9 may not perform a config database sync while one of its lasers is in protect mode"},
    {-54, "A VTR-H9 may not perform a config database sync while no lasers are in active mode"},
    {-55, "The entity is invalid"},
    {-56, "Failed to communicate with the Edge Switch"},
    {-57, "Unexpected parameter detected"},
    {-58, "The given port or Edge Switch does not support MAC address authorization"},
    {-59, "The given Edge Switch ID does not represent an existing Edge Switch"},
    {-60, "Unknown Edge Switch model detected"},
    {-61, "MAC Address expected"},
    {-62, "The given IP address is already in use"},
    {-63, "Subnets of VLAN and LOCAL management IPs are conflicting"},
    {-64, "Connected MAC addresses cannot be retrieved from this Edge Switch model while MAC address restrictions are applied"},
    {-65, "Edge Switch model does not support this feature"},
    {-66, "Unit date must be set"},
    {-67, "E30p can only limit on one port per MAC address"},
    {-68, "Port d4 cannot be changed while peer to peer communication is enabled"},
    {-69, "Cannot set configuration where management VLAN is not on any D port"},
    {-70, "Configuration queue is busy. Cannot perform this action."},
    {-71, "There are pending configurations for this edge switch. Cannot perform this action"},
    {-72, "Attempted to set unique parameter to a value that already exists."},
    {-73, "Attempted to set too many entries for the switch or port."},
    {-74, "The core switch is offline"},
    {-75, "The core switch is offline"},
    {-76, "Attempted to set duplicate/invalid username"},
    {-77, "A required device is offline"},
    {-79, "A required device is online"},
    {-80, "Failed to apply command to router"},
    {-81, nullptr},
};

constexpr Text jrpc_errors[] = {
    {-32001, "Unknown Error"},
    {-32002, "JSONRPC Version not supported"},
    {-32003, "This feature is not supported in this version, or the API may be incorrectly formed.  Please check the API documentation for further details."},
    {-32004, "Unable to formulate a JSON response"},
    {-32005, "Command timed out"},
    {-32006, "The given value is reserved internally"},
    {-32007, "Attempted to set unique parameter to a value that already exists."},
    {-32015, "Attempted to set pair with STP disabled, or attempted to disable STP with port pairs existing."},
    {-32008, "A required device is offline."},
    {-32016, "A required device is online."},
    {-32020, "The Edge Switch for the given Edge Switch ID is offline, and is expected to be online."},
    {-32021, "The Edge Switch for the given Edge Switch ID is online, and is expected to be offline."},
    {-32022, "The given Edge Switch ID does not represent an existing Edge Switch."},
    {-32023, "The given Edge Switch ID represents an Edge Switch that already exists."},
    {-32024, "An Edge Switch ID was expected."},
    {-32025, "The maximum allowed limit for Edge Switch has been reached."},
    {-32026, "MAC address limiting is not supported by the Edge Switch or port."},
    {-32027, "Switch model does not support this feature, or switch is in failed state."},
    {-32028, "Configuration queue is busy. Cannot perform this action."},
    {-32029, "There are pending configurations for this edge switch. Cannot perform this action."},
    {-32030, "The given Port ID is invalid."},
    {-32034, "The given id does not represent any existing port(s)."},
    {-32031, "The given Port ID does not represent a D-port."},
    {-32032, "The given Port ID does not represent a C-port."},
    {-32033, "The number of VLAN IDs entered exceed the maximum number allowed."},
    {-32035, "The given port(s) do not support POE."},
    {-32036, "Connected MAC addresses cannot be retrieved from this Edge Switch model while MAC address restrictions are applied"},
    {-32037, "Cannot put same MAC address allowed on more than one E30p port"},
    {-32038, "Cannot changed status or VLAN of port d4 while peer to peer communication is enabled"},
    {-32058, "Cannot set configuration where the management VLAN is not on a D port"},
    {-32039, "Attempted to set too many entries for the switch or port."},
    {-32050, "The state is not active."},
    {-32051, "Invalid date and time. Input format should be YYYY-MM-DD HH:MM"},
    {-32052, "Firmware file not present in filesystem"},
    {-32053, "Software is already the factory default version"},
    {-32054, "Multiple lasers are configured to be redundant with different IP addresses"},
    {-32055, "A VTR-H9 may not perform a config database sync while one of its lasers is in protect mode"},
    {-32056, "A VTR-H9 may not perform a config database sync while no lasers are in active mode"},
    {-32044, "The given IP address is already in use"},
    {-32045, "Subnets of VLAN and LOCAL management IP addresses are conflicting"},
    {-32057, "Date on the VTR-H9 must be set"},
    {-32059, "The core switch is offline"},
    {-32060, "Username already exists or is invalid"},
    {-32061, "Failed to apply command to router"},
    {-32010, "The database encountered an error while processing the data."},
    {-32013, "No records in the database are found."},
    {-32011, "Insufficient memory error. Please reset the H9."},
    {-32012, "One of the dependent hardware components returned an error."},
    {-32014, "System is busy."},
    {-32040, "The given MAC Address already exists."},
    {-32041, "The given MAC Address does not exist."},
    {-32042, "The given model does not exist."},
    {-32043, "A Switch MAC address is required for this operation."},
    {-32600, "Invalid Request"},
    {-32601, "Method not found"},
    {-32602, "Invalid parameter(s)"},
    {-32603, "Internal error"},
    {-32700, "Parse error"},
};

constexpr struct { int32_t status, jrpc_code; } conversions[] = {
    {-1, -32001},
    {-30, -32004},
    {-3, -32003},
    {-35, -32602},
    {-2, -32005},
    {-49, -32006},
    {-57, -32602},
    {-72, -32007},
    {-75, -32015},
    {-34, -32602},
    {-55, -32602},
    {-8, -32020},
    {-29, -32021},
    {-59, -32022},
    {-26, -32023},
    {-15, -32024},
    {-36, -32025},
    {-58, -32026},
    {-70, -32028},
    {-71, -32029},
    {-65, -32027},
    {-6, -32030},
    {-47, -32034},
    {-14, -32031},
    {-13, -32032},
    {-19, -32033},
    {-37, -32035},
    {-64, -32036},
    {-67, -32037},
    {-68, -32038},
    {-73, -32039},
    {-32, -32050},
    {-33, -32051},
    {-40, -32052},
    {-48, -32053},
    {-52, -32054},
    {-53, -32055},
    {-54, -32056},
    {-62, -32044},
    {-63, -32045},
    {-66, -32057},
    {-76, -32060},
    {-7, -32010},
    {-11, -32010},
    {-12, -32010},
    {-38, -32013},
    {-21, -32011},
    {-22, -32011},
    {-16, -32012},
    {-45, -32014},
    {-61, -32043},
    {-69, -32058},
    {-77, -32008},
    {-79, -32016},
    {-80, -32061},
    {-27, -32040},
    {-28, -32042},
    {-74, -32059},
    {-4, -32602},
    {-31, -32602},
};
// clang-format on

TEST(ErrorDecode, EveryStatusHasItsText) {
  for (const auto& row : statuses) {
    EXPECT_STREQ(kestro_error_decode(row.code), row.message) << row.code;
    EXPECT_STREQ(kestro_error_decode(-row.code), row.message) << -row.code;
  }
}

TEST(ErrorDecode, GivesTheTextsOfTheTableItself) {
  for (const auto& row : statuses) {
    EXPECT_EQ(kestro_error_decode(row.code), kestro_error_strings[-row.code]) << row.code;
  }
  EXPECT_EQ(std::size(kestro_error_strings), 82U);
  EXPECT_EQ(kestro_error_strings[78], nullptr);
}

TEST(ErrorDecode, MagnitudesFrom83AreNoError) {
  constexpr auto highest = std::numeric_limits<int32_t>::max();
  constexpr auto lowest = std::numeric_limits<int32_t>::min();
  for (const int32_t code : {83, -83, 84, 1000, -1000, -32602, highest, -highest, lowest}) {
    EXPECT_STREQ(kestro_error_decode(code), "No Error or invalid error code") << code;
  }
}

TEST(ErrorDecode, MagnitudesWithoutATextAreNull) {
  for (const int32_t code : {78, 81, 82}) {
    EXPECT_EQ(kestro_error_decode(code), nullptr) << code;
    EXPECT_EQ(kestro_error_decode(-code), nullptr) << -code;
  }
}

TEST(JrpcErrorTable, HoldsItsRowsInOrderAndAnEnd) {
  ASSERT_EQ(std::size(kestro_jrpc_err_mapping_tbl), std::size(jrpc_errors) + 1);
  for (size_t i = 0; i < std::size(jrpc_errors); ++i) {
    EXPECT_EQ(kestro_jrpc_err_mapping_tbl[i].error_code, jrpc_errors[i].code) << i;
    EXPECT_STREQ(kestro_jrpc_err_mapping_tbl[i].message, jrpc_errors[i].message) << i;
  }
  EXPECT_EQ(std::rbegin(kestro_jrpc_err_mapping_tbl)->error_code, 0);
}

TEST(JrpcErrorDecode, EveryCodeHasItsMessage) {
  for (const auto& row : jrpc_errors) EXPECT_STREQ(kestro_jrpc_error_decode(row.code), row.message) << row.code;
}

TEST(JrpcErrorDecode, UnknownCodesAreUnknownErrors) {
  for (const int32_t code : {0, 1, -1, -20, -32000, -32017, -32019, -32046, -32049, -32062, -32099, -32604, 32602}) {
    EXPECT_STREQ(kestro_jrpc_error_decode(code), "Unknown Error") << code;
  }
}

TEST(StatusToJrpcError, TableHoldsItsRowsInOrder) {
  ASSERT_EQ(std::size(kestro_err_to_jrpc_err_mapping_tbl), std::size(conversions));
  for (size_t i = 0; i < std::size(conversions); ++i) {
    EXPECT_EQ(kestro_err_to_jrpc_err_mapping_tbl[i].kestro_error_code, conversions[i].status) << i;
    EXPECT_EQ(kestro_err_to_jrpc_err_mapping_tbl[i].jrpc_error_code, conversions[i].jrpc_code) << i;
  }
}

TEST(StatusToJrpcError, EveryRowConverts) {
  const LogLevel quiet(KESTRO_LSYSLOG_LOGGING_LEVEL_OFF);
  for (const auto& row : conversions) EXPECT_EQ(convert_status_to_jrpc_error(row.status), row.jrpc_code) << row.status;
}

TEST(StatusToJrpcError, StatusesWithoutARowAreUnknownErrors) {
  const LogLevel quiet(KESTRO_LSYSLOG_LOGGING_LEVEL_OFF);
  for (const int32_t status : {-5,  -9,  -10, -17, -18, -20, -23, -24, -25, -39, -41, -42,   -43,
                               -44, -46, -50, -51, -56, -60, -78, -81, -82, 0,   4,   -32602}) {
    EXPECT_EQ(convert_status_to_jrpc_error(status), -32001) << status;
  }
  EXPECT_STREQ(kestro_jrpc_error_decode(convert_status_to_jrpc_error(-5)), "Unknown Error");
}

TEST(StatusToJrpcError, EveryResultHasARowOfItsOwn) {
  for (const auto& conversion : conversions) {
    EXPECT_TRUE(std::ranges::any_of(jrpc_errors, [&](const auto& row) { return row.code == conversion.jrpc_code; }))
        << conversion.jrpc_code;
  }
}

TEST(StatusToJrpcError, CoreSwitchCodesCross) {
  const LogLevel quiet(KESTRO_LSYSLOG_LOGGING_LEVEL_OFF);
  EXPECT_EQ(convert_status_to_jrpc_error(-74), -32059);
  EXPECT_EQ(convert_status_to_jrpc_error(-75), -32015);
}

TEST(StatusToJrpcError, TellsWhatItConverts) {
  for (const int32_t status : {-4, -5}) {
    EXPECT_THAT(stderr_of([&] { convert_status_to_jrpc_error(status); }),
                HasLog(Debug, "kestro_jrpc",
                       "Received error code <" + std::to_string(status) + "> to convert to jrpc error\n"));
  }
}

TEST(JrpcErrorToStatus, FirstRowOfACodeWins) {
  const LogLevel quiet(KESTRO_LSYSLOG_LOGGING_LEVEL_OFF);
  for (const auto& row : conversions) {
    const auto* const first =
        std::ranges::find_if(conversions, [&](const auto& other) { return other.jrpc_code == row.jrpc_code; });
    EXPECT_EQ(kestro_jrpc_error_convert_jrpc_to_kestro(row.jrpc_code), first->status) << row.jrpc_code;
  }
  EXPECT_EQ(kestro_jrpc_error_convert_jrpc_to_kestro(-32602), -35);
  EXPECT_EQ(kestro_jrpc_error_convert_jrpc_to_kestro(-32010), -7);
  EXPECT_EQ(kestro_jrpc_error_convert_jrpc_to_kestro(-32011), -21);
}

TEST(JrpcErrorToStatus, CodesWithoutAStatusComeBackAsUnknownError) {
  const LogLevel quiet(KESTRO_LSYSLOG_LOGGING_LEVEL_OFF);
  for (const int32_t code : {-32600, -32601, -32603, -32700, -32002, -32041, -32017, 0, -4, 1}) {
    EXPECT_EQ(kestro_jrpc_error_convert_jrpc_to_kestro(code), -32001) << code;
  }
}

TEST(JrpcErrorToStatus, TellsWhatItConverts) {
  for (const int32_t code : {-32602, -32700}) {
    EXPECT_THAT(stderr_of([&] { kestro_jrpc_error_convert_jrpc_to_kestro(code); }),
                HasLog(Debug, "kestro_jrpc",
                       "Received jrpc error code <" + std::to_string(code) + "> to convert to kestro error\n"));
  }
}

}  // namespace
}  // namespace kestro::test
