#include "core/log.hpp"

#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string_view>

#include "kestro_lsyslog.h"

namespace kestro {

std::atomic<int32_t> _level{KESTRO_LSYSLOG_LOGGING_LEVEL_DEBUG};
std::atomic<const char*> _source{"unknown"};

namespace {

constexpr size_t max_message = 8000;

// The pieces of one line, gathered so that they leave in one write without being copied together.
class Line {
 public:
  Line& operator<<(std::string_view piece) noexcept {
    pieces_[used_++] = {.iov_base = const_cast<char*>(piece.data()), .iov_len = piece.size()};
    return *this;
  }
  void write() const noexcept {
    ssize_t written = 0;
    do {
      written = ::writev(STDERR_FILENO, pieces_.data(), static_cast<int>(used_));
    } while (written < 0 && errno == EINTR);
  }

 private:
  std::array<iovec, 16> pieces_;
  size_t used_ = 0;
};

// Local time with milliseconds: 2021-03-04 17:05:09.042
class Timestamp {
 public:
  Timestamp() noexcept {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    const size_t length = strftime(text_.data(), text_.size(), "%Y-%m-%d %X", &local);
    const auto milliseconds = static_cast<unsigned>(now.tv_nsec / 1'000'000);
    snprintf(&text_[length], text_.size() - length, ".%03u", milliseconds);
  }
  [[nodiscard]] std::string_view text() const noexcept { return text_.data(); }

 private:
  std::array<char, 80 + 5> text_;
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

  const Timestamp timestamp;
  std::array<char, 12> number;
  Line out;
  out << "[" << timestamp.text() << "] [" << kestro_lsyslog_severity_to_string(severity) << "] ["
      << printable(_source.load(std::memory_order_relaxed));
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
