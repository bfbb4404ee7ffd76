#include "routerd/splice.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "routerd/plain_characters.hpp"

namespace kestro::routerd {

namespace {

constexpr size_t max_depth = 64;
// Integers of so many digits fit into 64 bits; with so many digits of an exponent no number is too large for a double.
constexpr size_t max_digits = 18;
constexpr size_t max_exponent_digits = 2;
// Keys are compared with each other up to so many, sorted beyond.
constexpr size_t few_keys = 16;
constexpr size_t usual_keys = 32;

bool is_digit(char c) noexcept {
  return c >= '0' && c <= '9';
}

int hex_digit(char c) noexcept {
  if (is_digit(c)) return c - '0';
  const char lower = static_cast<char>(c | 0x20);
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

uint64_t hash_of(std::string_view key) noexcept {
  constexpr uint64_t factor = 0x9e3779b97f4a7c15;
  uint64_t hash = key.size();
  while (!key.empty()) {
    uint64_t word = 0;
    const size_t taken = std::min(key.size(), sizeof word);
    memcpy(&word, key.data(), taken);
    key.remove_prefix(taken);
    hash = (hash ^ word) * factor;
    hash ^= hash >> 32;
  }
  return hash;
}

// One pass over a text, which is followed by a zero byte. Each step moves behind what it names and returns true, or
// returns false for what is broken or odd.
class Pass {
 public:
  explicit Pass(const std::string& text) : begin_(text.data()), at_(text.data()), end_(text.data() + text.size()) {
    keys_.reserve(usual_keys);
  }

  bool outermost() {
    skip_space();
    return *at_ == '{' && object(0);
  }
  [[nodiscard]] Outline found() const noexcept {
    Outline all = found_;
    all.end = position(at_);
    return all;
  }

 private:
  bool value(size_t depth);
  bool object(size_t depth);
  bool array(size_t depth);
  bool key();
  bool string();
  bool escape();
  bool character();
  bool number();
  bool literal(std::string_view word) noexcept;

  void skip_space() noexcept {
    for (; *at_ == ' ' || *at_ == '\n' || *at_ == '\t' || *at_ == '\r'; ++at_) found_.compact = false;
  }
  bool take(char c) noexcept {
    if (*at_ != c) return false;
    ++at_;
    return true;
  }
  size_t take_digits() noexcept {
    const char* const first = at_;
    while (is_digit(*at_)) ++at_;
    return static_cast<size_t>(at_ - first);
  }
  [[nodiscard]] bool keys_are_distinct(size_t first);
  void note(std::string_view key, const char* value, const char* comma) noexcept;
  [[nodiscard]] std::optional<Member>* place_of(std::string_view key) noexcept;

  [[nodiscard]] size_t left() const noexcept { return static_cast<size_t>(end_ - at_); }
  [[nodiscard]] size_t position(const char* place) const noexcept { return static_cast<size_t>(place - begin_); }

  const char* begin_;
  const char* at_;
  const char* end_;
  bool escaped_ = false;        // the last string
  std::vector<uint64_t> keys_;  // hashes, of all objects that are open
  Outline found_;
};

bool Pass::value(size_t depth) {
  switch (*at_) {
    case '"':
      return string();
    case '{':
      return object(depth);
    case '[':
      return array(depth);
    case 't':
      return literal("true");
    case 'f':
      return literal("false");
    case 'n':
      return literal("null");
    default:
      return number();
  }
}

bool Pass::object(size_t depth) {
  if (depth == max_depth) return false;
  ++at_;
  skip_space();
  if (take('}')) return true;
  const size_t first_key = keys_.size();
  const char* comma = nullptr;
  do {
    skip_space();
    const char* const key_begin = at_;
    if (!key()) return false;
    const std::string_view name(key_begin, static_cast<size_t>(at_ - key_begin));
    skip_space();
    if (!take(':')) return false;
    skip_space();
    const char* const value_begin = at_;
    if (!value(depth + 1)) return false;
    if (depth == 0) note(name, value_begin, comma);
    skip_space();
    comma = at_;
  } while (take(','));
  if (!take('}') || !keys_are_distinct(first_key)) return false;
  keys_.resize(first_key);
  return true;
}

bool Pass::array(size_t depth) {
  if (depth == max_depth) return false;
  ++at_;
  skip_space();
  if (take(']')) return true;
  do {
    skip_space();
    if (!value(depth + 1)) return false;
    skip_space();
  } while (take(','));
  return take(']');
}

// At the end of the value, the first member leaves with the comma behind it, any other one with the comma before it.
void Pass::note(std::string_view key, const char* value, const char* comma) noexcept {
  auto* const place = place_of(key);
  if (place == nullptr) return;
  Member member{.value = {position(value), position(at_)}, .whole = {position(key.data()), position(at_)}};
  if (comma != nullptr) {
    member.whole.begin = position(comma);
  } else {
    skip_space();
    if (*at_ == ',') member.whole.end = position(at_ + 1);
  }
  *place = member;
}

std::optional<Member>* Pass::place_of(std::string_view key) noexcept {
  if (key == "\"transaction_id\"") return &found_.transaction_id;
  if (key == "\"id\"") return &found_.id;
  if (key == "\"method\"") return &found_.method;
  return nullptr;
}

// The same hash may come from different keys: the library tells.
bool Pass::keys_are_distinct(size_t first) {
  const auto begin = keys_.begin() + static_cast<std::ptrdiff_t>(first);
  const auto end = keys_.end();
  if (keys_.size() - first > few_keys) {
    std::sort(begin, end);
    return std::adjacent_find(begin, end) == end;
  }
  for (auto one = begin; one != end; ++one) {
    if (std::find(begin, one, *one) != one) return false;
  }
  return true;
}

bool Pass::key() {
  const char* const quote = at_;
  if (*at_ != '"' || !string() || escaped_) return false;
  keys_.push_back(hash_of({quote + 1, static_cast<size_t>(at_ - quote - 2)}));
  return true;
}

bool Pass::string() {
  escaped_ = false;
  ++at_;
  for (;;) {
    at_ = end_of_plain_characters(at_, end_);
    const char c = *at_;
    if (c == '"') {
      ++at_;
      return true;
    }
    const bool sound = c == '\\' ? escape() : static_cast<signed char>(c) < 0 && character();
    if (!sound) return false;
  }
}

bool Pass::escape() {
  escaped_ = true;
  if (left() < 2) return false;
  if (at_[1] != 'u') {
    if (strchr("\"\\/bfnrt", at_[1]) == nullptr || at_[1] == '\0') return false;
    at_ += 2;
    return true;
  }
  if (left() < 6) return false;
  int code = 0;
  for (int i = 2; i < 6; ++i) {
    const int digit = hex_digit(at_[i]);
    if (digit < 0) return false;
    code = code * 16 + digit;
  }
  if (code == 0 || (code >= 0xd800 && code < 0xe000)) return false;
  at_ += 6;
  return true;
}

// One character beyond ASCII.
bool Pass::character() {
  const auto lead = static_cast<unsigned char>(*at_);
  const size_t length = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
  if (lead < 0xc2 || lead > 0xf4 || left() < length) return false;
  uint32_t code = lead & (0xffU >> (length + 1));
  for (size_t i = 1; i < length; ++i) {
    const auto byte = static_cast<unsigned char>(at_[i]);
    if ((byte & 0xc0) != 0x80) return false;
    code = code << 6 | (byte & 0x3fU);
  }
  constexpr uint32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
  if (code < least[length] || code > 0x10ffff || (code >= 0xd800 && code < 0xe000)) return false;
  found_.compact = false;
  at_ += length;
  return true;
}

bool Pass::number() {
  take('-');
  const bool zero = *at_ == '0';
  const size_t digits = take_digits();
  if (digits == 0 || digits > max_digits || (zero && digits > 1)) return false;
  if (take('.') && take_digits() == 0) return false;
  if (*at_ != 'e' && *at_ != 'E') return true;
  ++at_;
  if (!take('-')) take('+');
  const size_t exponent = take_digits();
  return exponent > 0 && exponent <= max_exponent_digits;
}

bool Pass::literal(std::string_view word) noexcept {
  if (left() < word.size() || memcmp(at_, word.data(), word.size()) != 0) return false;
  at_ += word.size();
  return true;
}

}  // namespace

std::optional<Outline> outline(const std::string& text) {
  Pass pass(text);
  if (!pass.outermost()) return std::nullopt;
  return pass.found();
}

}  // namespace kestro::routerd
