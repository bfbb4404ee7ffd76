#include "kestro_jrpc/methods.hpp"

#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <string_view>

namespace kestro {

namespace {

// Comparing the names of so many rows costs no more than remembering where a method was.
constexpr size_t few_rows = 8;

// Where a method was found. A daemon may change its table, or have another one at the same place: what is remembered
// counts while the table reaches that far, the rows before have the same names, and the row still has the method's.
struct Place {
  uint16_t table = 0;
  uint16_t row = 0;
  uint32_t names_before = 0;

  [[nodiscard]] bool holds(const kestro_jrpc_mapping_t* table_now, const char* method) const noexcept;
};

// Of all threads and tables. Whatever stands here, only what holds is believed.
constinit std::array<std::atomic<Place>, 256> places{};
static_assert(std::atomic<Place>::is_always_lock_free);

uint16_t bits_of(const kestro_jrpc_mapping_t* table) noexcept {
  return static_cast<uint16_t>(reinterpret_cast<uintptr_t>(table) >> 3);
}

uint32_t bits_of(const char* name) noexcept {
  return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(name));
}

bool is(const kestro_jrpc_mapping_t& row, const char* method) noexcept {
  return strcmp(row.method, method) == 0;
}

bool Place::holds(const kestro_jrpc_mapping_t* table_now, const char* method) const noexcept {
  if (table != bits_of(table_now)) return false;
  uint32_t names = 0;
  for (size_t i = 0; i < row; ++i) {
    if (table_now[i].methodHandler == nullptr) return false;
    names += bits_of(table_now[i].method);
  }
  return names == names_before && table_now[row].methodHandler != nullptr && is(table_now[row], method);
}

}  // namespace

const kestro_jrpc_mapping_t* find_method(const kestro_jrpc_mapping_t* table, const char* method) noexcept {
  size_t row = 0;
  uint32_t names = 0;
  for (; row < few_rows; ++row) {
    if (table[row].methodHandler == nullptr) return nullptr;
    if (is(table[row], method)) return &table[row];
    names += bits_of(table[row].method);
  }
  auto& remembered = places[std::hash<std::string_view>()(method) % places.size()];
  const Place place = remembered.load(std::memory_order_relaxed);
  if (place.holds(table, method)) return &table[place.row];

  for (; table[row].methodHandler != nullptr; ++row) {
    if (!is(table[row], method)) {
      names += bits_of(table[row].method);
      continue;
    }
    if (row <= std::numeric_limits<uint16_t>::max()) {
      remembered.store({bits_of(table), static_cast<uint16_t>(row), names}, std::memory_order_relaxed);
    }
    return &table[row];
  }
  return nullptr;
}

}  // namespace kestro
