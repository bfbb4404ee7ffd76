// The fields whose values the library checks, and the rule of each in words.
#ifndef KESTRO_CTL_FIELDS_HPP
#define KESTRO_CTL_FIELDS_HPP

#include <cstdint>
#include <span>
#include <string>
#include <variant>

namespace kestro::ctl {

using TextCheck = int32_t (*)(const char*) noexcept;
using NumberCheck = int32_t (*)(int32_t) noexcept;
using PairCheck = int32_t (*)(const char*, const char*) noexcept;

struct Field {
  const char* name;  // of the validator, without validate_
  std::variant<TextCheck, NumberCheck, PairCheck> check;
  const char* rule;
};

// By name.
std::span<const Field> fields();
// Null where there is none.
const Field* find_field(const std::string& name);

struct Verdict {
  bool accepted = false;
  std::string reason;  // why it was refused
};
// The library's own validator decides. A pair is two words with a blank between.
Verdict judge(const Field& field, const std::string& value);

}  // namespace kestro::ctl

#endif
