#include "core/log.hpp"

#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <span>
#include <string_view>

#include "kestro_lsyslog.h"

namespace kestro {

std::atomic<int32_t> _level{KESTRO_LSYSLOG_LOGGING_LEVEL_DEBUG};
std::atomic<const char*> _source{"unknown"};

namespace {

constexpr size_t max_message = 8000;

// The pieces of one line, which leave in one write.
class Line {
 public:
  Line& operator<<(std::string_view piece) noexcept {
    pieces_[used_++] = {.iov_base = const_cast<char*>(piece.data()), .iov_len = piece.size()};
    length_ += piece.size();
    return *this;
  }
  void write() const noexcept {
    if (length_ <= joined_size) {
      write_joined();
    } else {
      until_uninterrupted([this] { return ::writev(STDERR_FILENO, pieces_.data(), static_cast<int>(used_)); });
    }
  }

 private:
  // The kernel takes longer to gather pieces than it takes to join those of a line of usual length here.
  static constexpr size_t joined_size = 1024;

  void write_joined() const noexcept {
    std::array<char, joined_size> joined;
    char* end = joined.data();
    for (const iovec& piece : std::span(pieces_.data(), used_)) {
      end = static_cast<char*>(mempcpy(end, piece.iov_base, piece.iov_len));
    }
    until_uninterrupted([&] { return ::write(STDERR_FILENO, joined.data(), length_); });
  }
  template <class Write>
  static void until_uninterrupted(Write write) noexcept {
    while (write() < 0 && errno == EINTR) {
    }
  }

  std::array<iovec, 16> pieces_;
  size_t used_ = 0;
  size_t length_ = 0;
};

// A zone of the C library's. Two that are told apart by their changing rules alone count as one.
struct Zone {
  static Zone current() noexcept { return {.seconds_west = timezone, .has_summer_time = daylight}; }
  bool operator==(const Zone&) const noexcept = default;

  long seconds_west = 0;
  int has_summer_time = 0;
};

// A second in local time: 2021-03-04 17:05:09. The conversion looks at the file of the zone and takes a lock, and costs
// more than all the rest of a line: a thread keeps the text until the second or the zone is another.
struct LocalSecond {
  void show(time_t wanted) noexcept {
    const Zone zone_now = Zone::current();
    if (wanted == second && zone_now == zone) return;
    tm local{};
    localtime_r(&wanted, &local);
    length = strftime(text.data(), text.size(), "%Y-%m-%d %X", &local);
    second = wanted;
    zone = zone_now;
  }

  time_t second = -1;
  Zone zone;
  size_t length = 0;
  std::array<char, 80> text{};
};
// In the part of the thread's memory that is there from its start: nothing is taken from the heap for the first line.
[[gnu::tls_model("initial-exec")]] constinit thread_local LocalSecond local_second;

// Milliseconds as they follow the second: .042
class Fraction {
 public:
  explicit Fraction(long nanoseconds) noexcept {
    const auto milliseconds = static_cast<unsigned>(nanoseconds / 1'000'000);
    for (const unsigned unit : {100U, 10U, 1U}) *end_++ = static_cast<char>('0' + milliseconds / unit % 10);
  }
  [[nodiscard]] std::string_view text() const noexcept { return {text_.data(), text_.size()}; }

 private:
  std::array<char, 4> text_{'.'};
  char* end_ = &text_[1];
};

// Errors, debugging aids and whatever is no severity tell where they were raised; the others do not.
bool tells_location(int32_t severity) noexcept {
  return static_cast<uint32_t>(severity) > Info || severity == Error;
}

}  // namespace

const char* kestro_lsyslog_severity_to_string(int32_t severity) noexcept {
  const bool known = severity > KESTRO_LSYSLOG_SEVERITY_MIN && severity < KESTRO_LSYSLOG_SEVERITY_MAX;
  return kestro_lsyslog_severity_string[known ? severity : 0];
}

int32_t log_write(int32_t severity, const char* module, int32_t line, const char* format, va_list args) noexcept {
  if (_level.load(std::memory_order_relaxed) < severity) return 0;

  const int saved_errno = errno;
  std::array<char, max_message + 1> message;
  if (vsnprintf(message.data(), message.size(), format, args) < 0) {
    errno = saved_errno;
    return -1;
  }

  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  local_second.show(now.tv_sec);
  const Fraction fraction(now.tv_nsec);
  std::array<char, 12> number;
  Line out;
  out << "[" << std::string_view(local_second.text.data(), local_second.length) << fraction.text() << "] ["
      << kestro_lsyslog_severity_to_string(severity) << "] [" << printable(_source.load(std::memory_order_relaxed));
  if (tells_location(severity)) {
    const auto* const end = std::to_chars(number.data(), number.data() + number.size(), line).ptr;
    out << ": " << printable(module) << ":" << std::string_view(number.data(), end);
  }
  out << "] " << message.data();
  out.write();
  errno = saved_errno;
  return 0;
}

}  // namespace kestro
