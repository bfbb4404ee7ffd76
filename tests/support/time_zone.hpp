// Time as tests see it: zones and the present.
#ifndef KESTRO_TESTS_TIME_ZONE_HPP
#define KESTRO_TESTS_TIME_ZONE_HPP

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

namespace kestro::test {

// Zones as rules, so that no test depends on the zone files of the system.
inline constexpr const char* utc = "UTC0";
inline constexpr const char* central_europe = "CET-1CEST,M3.5.0,M10.5.0/3";
inline constexpr const char* new_york = "EST5EDT,M3.2.0,M11.1.0";
inline constexpr const char* india = "IST-5:30";
inline constexpr const char* new_zealand = "NZST-12NZDT,M9.5.0,M4.1.0/3";

// The zone of the process while the object lives. It does not call tzset(): code that needs it must do so itself.
class TimeZone {
 public:
  explicit TimeZone(const char* zone) {
    if (const char* const current = getenv("TZ")) saved_ = current;
    setenv("TZ", zone, 1);
  }
  TimeZone(const TimeZone&) = delete;
  TimeZone& operator=(const TimeZone&) = delete;
  ~TimeZone() {
    if (saved_) {
      setenv("TZ", saved_->c_str(), 1);
    } else {
      unsetenv("TZ");
    }
    tzset();
  }

 private:
  std::optional<std::string> saved_;
};

// Epoch seconds by the precise clock; time() may still show the second before.
inline int64_t now() {
  timespec moment{};
  clock_gettime(CLOCK_REALTIME, &moment);
  return moment.tv_sec;
}

}  // namespace kestro::test

#endif
