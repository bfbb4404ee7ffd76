#include "kestro_jrpc/methods.hpp"

#include <cstring>

namespace kestro {

const kestro_jrpc_mapping_t* find_method(const kestro_jrpc_mapping_t* table, const char* method) noexcept {
  for (; table->methodHandler != nullptr; ++table) {
    if (strcmp(table->method, method) == 0) return table;
  }
  return nullptr;
}

}  // namespace kestro
