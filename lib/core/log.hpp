// The process-wide log: its level, its source name and the writer of lines. Modules log through
// core/site.hpp.
#ifndef KESTRO_CORE_LOG_HPP
#define KESTRO_CORE_LOG_HPP

#include <atomic>
#include <cstdarg>
#include <cstdint>

namespace kestro {

enum Severity : int32_t { Config = 1, Error = 2, Warning = 3, Info = 4, Debug = 5, Verbose = 6 };

extern std::atomic<int32_t> _level;
extern std::atomic<const char*> _source;

// Whether the level lets a severity through, both taken as unsigned numbers.
inline bool log_admits(int32_t severity) noexcept {
  return static_cast<uint32_t>(severity) <= static_cast<uint32_t>(_level.load(std::memory_order_relaxed));
}

// A text that may be null, as log lines show it.
inline const char* printable(const char* text) noexcept {
  return text != nullptr ? text : "(null)";
}

// Writes one line unless the level, compared as a signed number, suppresses it. Returns -1 when formatting
// fails.
int32_t log_write(int32_t severity, const char* module, int32_t line, const char* format, va_list args) noexcept;

// The tag of a severity, "UNKW" for anything that is none.
const char* kestro_lsyslog_severity_to_string(int32_t severity) noexcept;

}  // namespace kestro

#endif
