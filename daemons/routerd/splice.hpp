// Changing one member of a JSON text without touching the rest of its bytes.
#ifndef KESTRO_ROUTERD_SPLICE_HPP
#define KESTRO_ROUTERD_SPLICE_HPP

#include <optional>
#include <string>
#include <string_view>

namespace kestro::routerd {

// Both want a text that begins with a sound JSON object; what follows it is kept. They find a member only where its key
// is written without escapes; otherwise nothing changes, and the result is false.

// Replaces the value of a member of the outermost object.
bool replace_member(std::string& text, std::string_view key, std::string_view value);

// Takes a member out of the outermost object, with its comma.
bool remove_member(std::string& text, std::string_view key);

}  // namespace kestro::routerd

#endif
