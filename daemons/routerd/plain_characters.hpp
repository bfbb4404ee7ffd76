// Most of a JSON text stands in its strings, and most characters there mean nothing but themselves.
#ifndef KESTRO_ROUTERD_PLAIN_CHARACTERS_HPP
#define KESTRO_ROUTERD_PLAIN_CHARACTERS_HPP

namespace kestro::routerd {

// The first quote, backslash, control character or byte beyond ASCII; `end` when there is none.
const char* end_of_plain_characters(const char* from, const char* end) noexcept;

}  // namespace kestro::routerd

#endif
