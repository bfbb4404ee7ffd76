#ifndef KESTRO_CONF_PARSER_HPP
#define KESTRO_CONF_PARSER_HPP

#include <cstdint>

namespace kestro {

// Position of the first `search_for` in the text, or -1.
int64_t kestro_conf_parser_index_of(const char* string, char search_for) noexcept;

}  // namespace kestro

#endif
