// Owning handles, and the text of a JSON value.
#ifndef KESTRO_CONFIGD_HANDLES_HPP
#define KESTRO_CONFIGD_HANDLES_HPP

#include <string>

#include "common/handles.hpp"

namespace kestro::configd {

using daemons::Allocated;
using daemons::Json;

// Compact and in ASCII.
inline std::string text_of(const json_t* json) {
  const Allocated<char> text(json_dumps(json, JSON_COMPACT | JSON_ENSURE_ASCII));
  return text ? text.get() : "";
}

}  // namespace kestro::configd

#endif
