#include "kestro_string.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "core/site.hpp"
#include "kestro_malloc.h"
#include "kestro_utils.h"

using namespace kestro;

namespace {

constexpr auto here = site_of("kestro_string");

bool double_buffer(str_t* s) noexcept {
  auto* const grown = static_cast<char*>(realloc(s->s, s->bufsz * 2));
  if (grown == nullptr) return false;
  s->s = grown;
  s->bufsz *= 2;
  return true;
}

}  // namespace

str_t* str_init(size_t bufsz) noexcept {
  auto* const s = static_cast<str_t*>(ocalloc(1, sizeof(str_t)));
  s->bufsz = bufsz == 0 ? 1 : bufsz;
  s->s = static_cast<char*>(omalloc(s->bufsz));
  s->s[0] = '\0';
  return s;
}

void str_free(str_t* s) noexcept {
  if (s == nullptr) return;
  free(s->s);
  free(s);
}

void str_clear(str_t* s) noexcept {
  s->s[0] = '\0';
  s->len = 0;
}

int32_t str_printf(str_t* s, const char* fmt, ...) noexcept {
  va_list args;
  va_start(args, fmt);
  va_list again;
  va_copy(again, args);

  const size_t old_length = s->len;
  const int formatted = vsnprintf(s->s + old_length, s->bufsz - old_length, fmt, args);
  const size_t new_length = old_length + static_cast<size_t>(std::max(formatted, 0));
  if (new_length >= s->bufsz) {
    while (s->bufsz < new_length) s->bufsz *= 2;
    s->s = static_cast<char*>(orealloc(s->s, s->bufsz));
    vsnprintf(s->s + old_length, s->bufsz - old_length, fmt, again);
  }
  s->len = new_length;

  va_end(again);
  va_end(args);
  return 0;
}

char* str_s(str_t* s) noexcept {
  return s->s;
}

size_t str_slen(str_t* s) noexcept {
  return s->len;
}

int32_t str_fgets(str_t* s, FILE* f) noexcept {
  for (;;) {
    const size_t space = std::min<size_t>(s->bufsz - s->len, INT_MAX);
    if (space > 1) {
      char* const end = s->s + s->len;
      if (fgets(end, static_cast<int>(space), f) == nullptr) {
        *end = '\0';  // a read error leaves what came before it, without an end
        return 0;
      }
      const size_t count = strlen(end);
      s->len += count;
      const bool space_left = space - count > 1;
      if (space_left || end[count - 1] == '\n') return 1;
    }
    if (!double_buffer(s)) {
      here().log(Error, "Allocation error %s\n", strerror(errno));
      print_stacktrace();
      return -1;
    }
  }
}

str_iter_t str_iter_new(const char* str, const char* sep) noexcept {
  return {.str_iter_ptr = str, .str_iter_sep = sep, .str_iter_sep_len = strlen(sep), .str_iter_buf = {}};
}

const char* str_iter_next(str_iter_t* iter) noexcept {
  if (iter == nullptr || iter->str_iter_ptr == nullptr) return nullptr;

  const char* const start = iter->str_iter_ptr;
  const char* const end = iter->str_iter_sep_len > 0 ? strstr(start, iter->str_iter_sep) : nullptr;
  const size_t length = end != nullptr ? static_cast<size_t>(end - start) : strlen(start);
  const size_t copied = std::min(length, sizeof iter->str_iter_buf - 1);
  memcpy(iter->str_iter_buf, start, copied);
  iter->str_iter_buf[copied] = '\0';
  iter->str_iter_ptr = end != nullptr ? end + iter->str_iter_sep_len : nullptr;
  return iter->str_iter_buf;
}
