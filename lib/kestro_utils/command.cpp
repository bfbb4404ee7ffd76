#include "kestro_utils/command.hpp"

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "kestro_utils.h"

namespace kestro {

Pipe run_command(const char* line) noexcept {
  return Pipe(::popen(line, "re"));
}

bool read_line(FILE* stream, char* line, size_t size) noexcept {
  size_t length = 0;
  while (length + 1 < size) {
    const int c = getc(stream);
    if (c == EOF && ferror(stream) != 0 && errno == EINTR) {
      clearerr(stream);
      continue;
    }
    if (c == EOF) break;
    line[length++] = static_cast<char>(c);
    if (c == '\n') break;
  }
  if (length == 0 && size != 1) return false;
  line[length] = '\0';
  return true;
}

bool append_text(char* buffer, size_t size, const char* format, va_list args) noexcept {
  const size_t used = strlen(buffer);
  const int added = vsnprintf(buffer + used, size - used, format, args);
  return added >= 0 && !s_overflow_check(static_cast<int32_t>(used) + added, static_cast<int32_t>(size));
}

}  // namespace kestro
