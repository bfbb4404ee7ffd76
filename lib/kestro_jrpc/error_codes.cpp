#include "kestro_jrpc/error_codes.hpp"

#include <algorithm>
#include <iterator>

#include "core/site.hpp"
#include "kestro_jrpc.h"

using namespace kestro;

namespace {

constexpr auto here = site_of("kestro_jrpc");

}  // namespace

namespace kestro {

// Several statuses share a code; searches in either direction stop at the first match.
constexpr kestro_jrpc_error_tuple_t kestro_err_to_jrpc_err_mapping_tbl[err_to_jrpc_err_rows] = {
    // clang-format off
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
    // clang-format on
};

constexpr kestro_jrpc_error_t kestro_jrpc_err_mapping_tbl[jrpc_err_rows] = {
    // clang-format off
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
    {0, "Unknown Error"},  // the end: what an unknown code is called
    // clang-format on
};

namespace {

constexpr const kestro_jrpc_error_t& jrpc_error_row(int32_t code) noexcept {
  const auto* row = std::begin(kestro_jrpc_err_mapping_tbl);
  while (row->error_code != code && row->error_code != 0) ++row;
  return *row;
}

constexpr bool every_conversion_has_a_message() noexcept {
  return std::ranges::all_of(kestro_err_to_jrpc_err_mapping_tbl,
                             [](const auto& row) { return jrpc_error_row(row.jrpc_error_code).error_code != 0; });
}
static_assert(std::rbegin(kestro_err_to_jrpc_err_mapping_tbl)->kestro_error_code == -31);
static_assert(std::rbegin(kestro_jrpc_err_mapping_tbl)->error_code == 0);
static_assert(every_conversion_has_a_message());

}  // namespace

char* kestro_jrpc_error_decode(int32_t error_code) noexcept {
  return const_cast<char*>(jrpc_error_row(error_code).message);
}

int32_t convert_status_to_jrpc_error(int32_t status) noexcept {
  here().log(Debug, "Received error code <%d> to convert to jrpc error\n", status);
  for (const auto& row : kestro_err_to_jrpc_err_mapping_tbl) {
    if (row.kestro_error_code == status) return row.jrpc_error_code;
  }
  return jrpc_code::unknown_error;
}

}  // namespace kestro

int32_t kestro_jrpc_error_convert_jrpc_to_kestro(int32_t jrpc_error_code) noexcept {
  here().log(Debug, "Received jrpc error code <%d> to convert to kestro error\n", jrpc_error_code);
  for (const auto& row : kestro_err_to_jrpc_err_mapping_tbl) {
    if (row.jrpc_error_code == jrpc_error_code) return row.kestro_error_code;
  }
  return jrpc_code::unknown_error;
}
