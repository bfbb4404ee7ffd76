// Looking up methods in the tables of daemons.
#ifndef KESTRO_JRPC_METHODS_HPP
#define KESTRO_JRPC_METHODS_HPP

#include "kestro_jrpc.h"

namespace kestro {

// The first row with that name, or null. Nothing is kept from one call to the next. The method must not be null.
const kestro_jrpc_mapping_t* find_method(const kestro_jrpc_mapping_t* table, const char* method) noexcept;

}  // namespace kestro

#endif
