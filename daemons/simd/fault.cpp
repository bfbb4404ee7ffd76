#include "simd/fault.hpp"

#include <array>
#include <charconv>

#include "kestro_utils.h"
#include "kestro_validation.h"

namespace kestro::simd {

namespace {

constexpr std::array<const char*, 4> words = {"none", "offline", "silent", "late"};  // by FaultKind

bool parse_oec_id(const std::string& text, int32_t& oec_number) {
  int32_t port_number = 0;
  if (validate_oec_id(text.c_str()) != 0) return false;
  if (kestro_parse_oec_port_id(&oec_number, &port_number, text.c_str()) != 0) return false;
  return oec_number != KESTRO_DATA_OEC_NUMBER_HEAD_END;
}

bool parse_delay(const std::string& text, std::chrono::milliseconds& delay) {
  int32_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stopped_at, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc{} || stopped_at != end || number < 1 || number > longest_delay_ms) return false;
  delay = std::chrono::milliseconds(number);
  return true;
}

bool parse_value(const std::string& value, Fault& fault) {
  if (fault.kind == FaultKind::late) return parse_delay(value, fault.delay);
  return fault.kind != FaultKind::silent && parse_oec_id(value, fault.oec_number);
}

}  // namespace

std::optional<FaultKind> fault_kind(const std::string& word) {
  for (size_t i = 0; i < words.size(); ++i) {
    if (word == words[i]) return static_cast<FaultKind>(i);
  }
  return std::nullopt;
}

std::optional<Fault> parse_fault(const std::string& text) {
  const auto equals = text.find('=');
  const auto kind = fault_kind(text.substr(0, equals));
  if (!kind) return std::nullopt;
  Fault fault{*kind};
  const bool sound =
      equals == std::string::npos ? fault.kind != FaultKind::late : parse_value(text.substr(equals + 1), fault);
  return sound ? std::optional(fault) : std::nullopt;
}

std::string text_of(const Fault& fault) {
  std::string word = words.at(static_cast<size_t>(fault.kind));
  if (fault.kind == FaultKind::late) return word + "=" + std::to_string(fault.delay.count());
  if (fault.oec_number == 0) return word;
  return word + "=c" + std::to_string(fault.oec_number);
}

}  // namespace kestro::simd
