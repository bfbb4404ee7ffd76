#include "kestro_jrpc/methods.hpp"

#include <array>
#include <atomic>
#include <bit>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string_view>

namespace kestro {

namespace {

// Comparing the names of so many rows costs no more than remembering where a method was.
constexpr size_t few_rows = 8;

// Where a method was found. A daemon may change its table, or have another one at the same place: what is remembered
// counts while the table reaches that far, the pointers to the names before are the same, as far as 48 bits of a hash
// tell, and the row still has the method's name.
class Place {
 public:
  static constexpr size_t last_row = 0xffff;

  Place() = default;
  Place(size_t row, uint64_t names_before) noexcept : bits_(names_before << 16 | row) {}
  [[nodiscard]] size_t row() const noexcept { return bits_ & last_row; }
  [[nodiscard]] bool follows(uint64_t names) const noexcept { return bits_ >> 16 == (names << 16) >> 16; }

 private:
  uint64_t bits_ = 0;
};

// Of all threads and tables. Whatever stands here, only what holds is believed.
constinit std::array<std::atomic<Place>, 256> places{};
static_assert(std::atomic<Place>::is_always_lock_free);

// The pointers to names, one after the other.
class Names {
 public:
  void add(const char* name) noexcept { bits_ = std::rotl(bits_ + reinterpret_cast<uintptr_t>(name), 7); }
  [[nodiscard]] uint64_t hash() const noexcept { return bits_ * 0x9e3779b97f4a7c15 >> 16; }

 private:
  uint64_t bits_ = 0;
};

bool is(const kestro_jrpc_mapping_t& row, const char* method) noexcept {
  return strcmp(row.method, method) == 0;
}

bool holds(const Place& place, const kestro_jrpc_mapping_t* table, const char* method) noexcept {
  Names names;
  for (size_t i = 0; i < place.row(); ++i) {
    if (table[i].methodHandler == nullptr) return false;
    names.add(table[i].method);
  }
  const auto& row = table[place.row()];
  return place.follows(names.hash()) && row.methodHandler != nullptr && is(row, method);
}

}  // namespace

const kestro_jrpc_mapping_t* find_method(const kestro_jrpc_mapping_t* table, const char* method) noexcept {
  size_t row = 0;
  Names names;
  for (; row < few_rows; ++row) {
    if (table[row].methodHandler == nullptr) return nullptr;
    if (is(table[row], method)) return &table[row];
    names.add(table[row].method);
  }
  auto& remembered = places[std::hash<std::string_view>()(method) % places.size()];
  const Place place = remembered.load(std::memory_order_relaxed);
  if (holds(place, table, method)) return &table[place.row()];

  for (; table[row].methodHandler != nullptr; ++row) {
    if (is(table[row], method)) {
      if (row <= Place::last_row) remembered.store({row, names.hash()}, std::memory_order_relaxed);
      return &table[row];
    }
    names.add(table[row].method);
  }
  return nullptr;
}

}  // namespace kestro
