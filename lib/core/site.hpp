// Log sites: a module's name and the line that speaks.
//
//   constexpr auto here = site_of("kestro_mq");
//   if (mq_eid == nullptr) return here().fail(Debug, status::null_argument, "NULL pointer!\n");
#ifndef KESTRO_CORE_SITE_HPP
#define KESTRO_CORE_SITE_HPP

#include <cstdint>

#include "core/log.hpp"
#include "kestro_general.h"

namespace kestro {

class Site {
 public:
  constexpr Site(const char* module, int32_t line) noexcept : module_(module), line_(line) {}

  // Writes a line if the level admits it; nothing is formatted otherwise.
  void log(Severity severity, const char* format, ...) const noexcept KESTRO_PRINTF(3, 4);

  // Logs and gives the status back, so that a failure is one return statement.
  int32_t fail(Severity severity, int32_t status, const char* format, ...) const noexcept KESTRO_PRINTF(4, 5);

  // For the few lines that go to the writer without the check that callers normally make first.
  void log_unchecked(Severity severity, const char* format, ...) const noexcept KESTRO_PRINTF(3, 4);

 private:
  // The site by value, in registers: one whose address is taken is stored, and the stack of its function guarded, also
  // where the line is suppressed.
  static void write(Site site, Severity severity, const char* format, ...) noexcept KESTRO_PRINTF(3, 4);

  const char* module_;
  int32_t line_;
};

// Most lines are suppressed, so the check stands where the line does. clang cannot hand variable arguments on.
#ifndef __clang__
[[gnu::always_inline]] inline void Site::log_unchecked(Severity severity, const char* format, ...) const noexcept {
  write(*this, severity, format, __builtin_va_arg_pack());
}

[[gnu::always_inline]] inline void Site::log(Severity severity, const char* format, ...) const noexcept {
  if (log_admits(severity)) write(*this, severity, format, __builtin_va_arg_pack());
}

[[gnu::always_inline]] inline int32_t Site::fail(Severity severity, int32_t status, const char* format,
                                                 ...) const noexcept {
  if (log_admits(severity)) write(*this, severity, format, __builtin_va_arg_pack());
  return status;
}
#endif

class Module {
 public:
  explicit constexpr Module(const char* name) noexcept : name_(name) {}
  constexpr Site operator()(int32_t line = __builtin_LINE()) const noexcept { return {name_, line}; }

 private:
  const char* name_;
};

constexpr Module site_of(const char* module) noexcept {
  return Module(module);
}

}  // namespace kestro

#endif
