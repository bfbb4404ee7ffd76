#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <ctime>

#include "core/site.hpp"
#include "core/status.hpp"
#include "kestro_utils.h"

using namespace kestro;

namespace {

constexpr auto here = site_of("kestro_utils");

constexpr const char* date_and_time = "%Y-%m-%d %X";
constexpr size_t milliseconds_size = sizeof ".000";
constexpr size_t max_sentence = sizeof "-2147483648 days -23:-59:-59";

// Writes local time to the buffer, leaving it empty, after a log line, when that gives no text. Returns the length.
size_t format_local(char* output, size_t size, int64_t seconds, const char* format) noexcept {
  tzset();  // the zone may have changed since the last time
  const time_t moment = seconds;
  tm local{};
  const bool known = localtime_r(&moment, &local) != nullptr;
  const size_t length = known ? strftime(output, size, format, &local) : 0;
  if (length > 0) return length;
  if (size > 0) output[0] = '\0';
  here().log(Error, "Error in strftime\n");
  return 0;
}

}  // namespace

int32_t kestro_utils_format_seconds_as_time_sentence(int64_t seconds, char* time) noexcept {
  if (kestro_check_for_null(1, time) != status::ok) return status::parameter_error;
  const auto days = static_cast<int32_t>(seconds / 86400);
  const auto hours = static_cast<int32_t>((seconds / 3600) % 24);
  const auto minutes = static_cast<int32_t>((seconds / 60) % 60);
  snprintf(time, max_sentence, "%d days %02d:%02d:%02d", days, hours, minutes, static_cast<int32_t>(seconds % 60));
  here().log(Verbose, "Finished formatting seconds <%" PRId64 "> into <%s>\n", seconds, time);
  return status::ok;
}

void kestro_date_str(char* output_str, size_t sz) noexcept {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  const size_t length = format_local(output_str, sz, now.tv_sec, date_and_time);
  const size_t room = sz - length;
  if (room < milliseconds_size) here().log(Error, "Not enough room for milliseconds\n");
  snprintf(output_str + length, room, ".%03u", static_cast<unsigned>(now.tv_nsec / 1'000'000));
}

void kestro_ept_fmt(char* output_str, size_t sz, int64_t ept, const char* fmt) noexcept {
  format_local(output_str, sz, ept, fmt);
}

int64_t kestro_str_to_ept(const char* date) noexcept {
  tm local{};
  if (date == nullptr || strptime(date, date_and_time, &local) == nullptr) {
    here().log(Error, "strptime error for %s\n", printable(date));
    return 0;
  }
  local.tm_isdst = -1;  // the zone's rules tell whether daylight saving time was in force
  return mktime(&local);
}
