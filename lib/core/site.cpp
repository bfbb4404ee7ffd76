#include "core/site.hpp"

namespace kestro {

#ifdef __clang__
void Site::log(Severity severity, const char* format, ...) const noexcept {
  if (!log_admits(severity)) return;
  va_list args;
  va_start(args, format);
  log_write(severity, module_, line_, format, args);
  va_end(args);
}

int32_t Site::fail(Severity severity, int32_t status, const char* format, ...) const noexcept {
  if (!log_admits(severity)) return status;
  va_list args;
  va_start(args, format);
  log_write(severity, module_, line_, format, args);
  va_end(args);
  return status;
}

void Site::log_unchecked(Severity severity, const char* format, ...) const noexcept {
  va_list args;
  va_start(args, format);
  log_write(severity, module_, line_, format, args);
  va_end(args);
}
#else
void Site::write(Site site, Severity severity, const char* format, ...) noexcept {
  va_list args;
  va_start(args, format);
  log_write(severity, site.module_, site.line_, format, args);
  va_end(args);
}
#endif

}  // namespace kestro
