#include <array>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <span>

#include "core/owned.hpp"
#include "core/site.hpp"
#include "core/status.hpp"
#include "kestro_malloc.h"
#include "kestro_utils.h"

using namespace kestro;

namespace {

constexpr auto here = site_of("kestro_utils");

constexpr size_t max_message = 8000;
constexpr size_t bytes_dump_size = 10'000;
constexpr size_t packet_dump_size = 65'536;

// How a dump is broken up: a line feed before each group, a gap before the second half of one.
struct DumpLayout {
  size_t group;
  const char* gap;
};
constexpr DumpLayout bytes_layout = {.group = 16, .gap = "  "};
constexpr DumpLayout packet_layout = {.group = 12, .gap = "    "};

const char* space_before(const DumpLayout& layout, size_t index) noexcept {
  const size_t place = index % layout.group;
  if (place == 0) return "\n";
  return place == layout.group / 2 ? layout.gap : "";
}

// A heading and the bytes behind it, as many as the buffer takes whole.
void dump(std::span<char> text, const char* heading, std::span<const uint8_t> bytes,
          const DumpLayout& layout) noexcept {
  auto used = static_cast<size_t>(snprintf(text.data(), text.size(), "%s", heading));
  for (size_t i = 0; i < bytes.size() && used < text.size(); ++i) {
    char* const end = text.data() + used;
    const size_t room = text.size() - used;
    const auto written = static_cast<size_t>(snprintf(end, room, "%s%02hhX ", space_before(layout, i), bytes[i]));
    if (written >= room) *end = '\0';
    used += written;
  }
}

}  // namespace

void kestro_utils_system_log(const char* file, const char* function, int32_t line, const char* format, ...) noexcept {
  std::array<char, max_message + 1> message{};
  va_list args;
  va_start(args, format);
  vsnprintf(message.data(), message.size(), format, args);
  va_end(args);

  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  tm utc{};
  gmtime_r(&now.tv_sec, &utc);
  std::array<char, 80> date;
  strftime(date.data(), date.size(), "%Y-%m-%d %X", &utc);
  const long microseconds = now.tv_nsec / 1000;
  fprintf(stderr, "[%s.%06ld] [%s] [%s:%d] %s", date.data(), microseconds, file, function, line, message.data());
}

void kestro_debug_print_bytes(const uint8_t* bytes, int32_t len, const char* message) noexcept {
  if (kestro_check_for_null(2, bytes, message) != status::ok) return;
  const Text text(static_cast<char*>(omalloc(bytes_dump_size)));
  const std::span<char> buffer(text.get(), bytes_dump_size);
  dump(buffer, message, {bytes, len > 0 ? static_cast<size_t>(len) : 0}, bytes_layout);
  here().log(Info, "%s\n", text.get());
}

void kestro_print_packet(const uint8_t* buf, size_t sz, const char* prefix) noexcept {
  if (kestro_check_for_null(2, buf, prefix) != status::ok) return;
  static std::array<char, packet_dump_size> text;
  dump(text, "", {buf, sz}, packet_layout);
  fprintf(stderr, "\n%s%s\n\n", prefix, text.data());
}
