// JSON values as tests write and read them.
#ifndef KESTRO_TESTS_JSON_HPP
#define KESTRO_TESTS_JSON_HPP

#include <jansson.h>

#include <cstdlib>
#include <stdexcept>
#include <string>

#include "core/owned.hpp"

namespace kestro::test {

inline Json json_of(const std::string& text) {
  Json value(json_loads(text.c_str(), JSON_DECODE_ANY, nullptr));
  if (!value) throw std::invalid_argument("no JSON: " + text);
  return value;
}

// Compact, members in their order; "null" also where there is no value.
inline std::string text_of(const json_t* value) {
  const Text text(json_dumps(value, JSON_COMPACT | JSON_ENCODE_ANY));
  return text ? text.get() : "null";
}

// The value that a function hands out, released at the end of the scope.
class JsonOut {
 public:
  // Not null at first, so that a function must clear it.
  JsonOut() : value_(json_true()) {}
  JsonOut(const JsonOut&) = delete;
  JsonOut& operator=(const JsonOut&) = delete;
  ~JsonOut() { json_decref(value_); }

  operator json_t**() { return &value_; }
  [[nodiscard]] json_t* get() const { return value_; }
  [[nodiscard]] bool empty() const { return value_ == nullptr; }
  [[nodiscard]] std::string text() const { return text_of(value_); }

 private:
  json_t* value_;
};

}  // namespace kestro::test

#endif
