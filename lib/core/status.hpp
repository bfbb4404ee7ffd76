// Names for the status codes that this code speaks of. Callers know them by number and text (kestro_error.h).
#ifndef KESTRO_CORE_STATUS_HPP
#define KESTRO_CORE_STATUS_HPP

#include <cstdint>

namespace kestro::status {

inline constexpr int32_t ok = 0;
inline constexpr int32_t general_error = -1;
inline constexpr int32_t parameter_error = -4;
inline constexpr int32_t invalid_oec_id = -5;
inline constexpr int32_t invalid_port = -6;
inline constexpr int32_t system_access_error = -7;
inline constexpr int32_t db_busy = -11;
inline constexpr int32_t db_unfinished = -12;
inline constexpr int32_t not_a_c_port = -13;
inline constexpr int32_t not_a_d_port = -14;
inline constexpr int32_t not_an_oec = -15;
inline constexpr int32_t too_many_vlans = -19;
inline constexpr int32_t null_argument = -20;
inline constexpr int32_t buffer_too_small = -21;
inline constexpr int32_t out_of_memory = -22;
inline constexpr int32_t duplicate_parameter = -24;
inline constexpr int32_t timer_not_expired = -25;
inline constexpr int32_t response_not_formed = -30;
inline constexpr int32_t invalid_request_parameter = -31;
inline constexpr int32_t validation_failed = -34;
inline constexpr int32_t not_found = -35;
inline constexpr int32_t no_records = -38;
inline constexpr int32_t constraint_violation = -39;
inline constexpr int32_t cannot_open_file = -40;
inline constexpr int32_t value_too_long = -41;
inline constexpr int32_t invalid_conf_entry = -42;
inline constexpr int32_t invalid_result = -43;
inline constexpr int32_t no_request_id = -44;
inline constexpr int32_t no_message = -46;
inline constexpr int32_t no_such_port = -47;
inline constexpr int32_t reserved_value = -49;
inline constexpr int32_t no_response = -50;
inline constexpr int32_t connect_timed_out = -51;
inline constexpr int32_t invalid_entity = -55;
inline constexpr int32_t unexpected_parameter = -57;
inline constexpr int32_t not_unique = -72;

}  // namespace kestro::status

#endif
