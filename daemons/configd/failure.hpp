// How the service fails: with a status and an explanation for whoever asked.
#ifndef KESTRO_CONFIGD_FAILURE_HPP
#define KESTRO_CONFIGD_FAILURE_HPP

#include <cstdint>
#include <stdexcept>
#include <string>

namespace kestro::configd {

// Names for the statuses that the service gives; their texts are in kestro_error.h.
namespace status {

inline constexpr int32_t ok = 0;
inline constexpr int32_t general_error = -1;
inline constexpr int32_t database_failed = -7;
inline constexpr int32_t database_busy = -11;
inline constexpr int32_t hardware_failed = -16;
inline constexpr int32_t out_of_memory = -22;
inline constexpr int32_t switch_exists = -26;
inline constexpr int32_t mac_exists = -27;
inline constexpr int32_t no_such_model = -28;
inline constexpr int32_t answer_not_formed = -30;
inline constexpr int32_t validation_failed = -34;
inline constexpr int32_t too_many_switches = -36;
inline constexpr int32_t no_poe = -37;
inline constexpr int32_t no_records = -38;
inline constexpr int32_t constraint_violated = -39;
inline constexpr int32_t cannot_open_file = -40;
inline constexpr int32_t no_such_port = -47;
inline constexpr int32_t no_mac_filters = -58;
inline constexpr int32_t no_such_switch = -59;
inline constexpr int32_t ip_in_use = -62;
inline constexpr int32_t mgmt_vlan_on_no_port = -69;
inline constexpr int32_t not_unique = -72;
inline constexpr int32_t too_many_entries = -73;
inline constexpr int32_t core_switch_offline = -74;

}  // namespace status

// What a handler throws; the client gets the status as code and message, and the text as "data".
class Failure : public std::runtime_error {
 public:
  explicit Failure(int32_t status, const std::string& why = "") : std::runtime_error(why), status_(status) {}
  [[nodiscard]] int32_t status() const noexcept { return status_; }

 private:
  int32_t status_;
};

}  // namespace kestro::configd

#endif
