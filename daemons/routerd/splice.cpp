#include "routerd/splice.hpp"

namespace kestro::routerd {

namespace {

bool is_space(char c) noexcept {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

// Steps through a sound JSON text.
class Cursor {
 public:
  explicit Cursor(std::string_view text) noexcept : text_(text) {}

  [[nodiscard]] size_t at() const noexcept { return at_; }
  [[nodiscard]] char now() const noexcept { return at_ < text_.size() ? text_[at_] : '\0'; }
  [[nodiscard]] bool done() const noexcept { return at_ >= text_.size(); }
  void step() noexcept { ++at_; }

  void skip_space() noexcept {
    while (!done() && is_space(now())) step();
  }
  // From the opening quote to behind the closing one.
  void skip_string() noexcept {
    step();
    while (!done() && now() != '"') {
      if (now() == '\\') step();
      step();
    }
    step();
  }
  // Over any value, nested ones whole.
  void skip_value() noexcept {
    size_t depth = 0;
    do {
      const char c = now();
      if (c == '"') {
        skip_string();
      } else if (c == '{' || c == '[') {
        ++depth;
        step();
      } else if (c == '}' || c == ']') {
        --depth;
        step();
      } else if (depth == 0) {
        while (!done() && now() != ',' && now() != '}' && !is_space(now())) step();
      } else {
        step();
      }
    } while (depth > 0 && !done());
  }

 private:
  std::string_view text_;
  size_t at_ = 0;
};

// The places of one member: its key's quote, its value, and the commas around it.
struct Member {
  size_t begin;  // of the key
  size_t value_begin;
  size_t value_end;
  std::optional<size_t> comma_before;
  std::optional<size_t> comma_behind;
};

std::optional<Member> find_member(std::string_view text, std::string_view key) noexcept {
  Cursor cursor(text);
  cursor.skip_space();
  if (cursor.now() != '{') return std::nullopt;
  cursor.step();
  std::optional<size_t> comma;
  for (;;) {
    cursor.skip_space();
    if (cursor.now() != '"') return std::nullopt;
    const size_t begin = cursor.at();
    cursor.skip_string();
    const auto found_key = text.substr(begin + 1, cursor.at() - begin - 2);
    cursor.skip_space();
    cursor.step();  // the colon
    cursor.skip_space();
    const size_t value_begin = cursor.at();
    cursor.skip_value();
    const size_t value_end = cursor.at();
    cursor.skip_space();
    const bool more = cursor.now() == ',';
    const auto comma_behind = more ? std::optional(cursor.at()) : std::nullopt;
    if (found_key == key) return Member{begin, value_begin, value_end, comma, comma_behind};
    if (!more) return std::nullopt;
    comma = comma_behind;
    cursor.step();
  }
}

}  // namespace

bool replace_member(std::string& text, std::string_view key, std::string_view value) {
  const auto member = find_member(text, key);
  if (!member) return false;
  text.replace(member->value_begin, member->value_end - member->value_begin, value);
  return true;
}

bool remove_member(std::string& text, std::string_view key) {
  const auto member = find_member(text, key);
  if (!member) return false;
  const size_t begin = member->comma_before.value_or(member->begin);
  // The first member leaves with the comma behind it, any other one with the comma before it.
  const bool first = !member->comma_before.has_value();
  const size_t end = first && member->comma_behind ? *member->comma_behind + 1 : member->value_end;
  text.erase(begin, end - begin);
  return true;
}

}  // namespace kestro::routerd
