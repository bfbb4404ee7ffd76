// Changing members of a JSON text without touching the rest of its bytes, after one pass over them.
#ifndef KESTRO_ROUTERD_SPLICE_HPP
#define KESTRO_ROUTERD_SPLICE_HPP

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace kestro::routerd {

struct Span {
  size_t begin;
  size_t end;
};

// Where a member of the outermost object stands.
struct Member {
  Span value;
  Span whole;  // with the comma that goes when it goes

  [[nodiscard]] std::string_view value_in(std::string_view text) const {
    return text.substr(value.begin, value.end - value.begin);
  }
};

// The members of an object that the router is after, and where the object ends.
struct Outline {
  std::optional<Member> transaction_id;
  std::optional<Member> id;
  std::optional<Member> method;
  size_t end = 0;
  bool compact = true;  // neither blanks between the parts, nor bytes beyond ASCII
};

// Reads a text that begins with an object and is plain. Whatever is read here, the JSON library accepts as well, with
// distinct keys at every level. The converse does not hold: nothing is returned for a broken text, and for a sound one
// with what hardly ever occurs: keys with escapes, surrogates, numbers beyond 18 digits or 99 powers of ten, more than
// 64 levels. The library has to judge those. What follows the object is not looked at.
std::optional<Outline> outline(const std::string& text);

}  // namespace kestro::routerd

#endif
