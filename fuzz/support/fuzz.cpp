#include "support/fuzz.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/log.hpp"
#include "kestro_lsyslog.h"
#include "kestro_malloc.h"

namespace kestro::fuzz {

Text exact(std::string_view text) {
  Text copy(static_cast<char*>(omalloc(text.size() + 1)));
  std::copy(text.begin(), text.end(), copy.get());
  copy.get()[text.size()] = '\0';
  return copy;
}

uint8_t Input::byte() noexcept {
  if (left_.empty()) return 0;
  const auto first = static_cast<uint8_t>(left_.front());
  left_.remove_prefix(1);
  return first;
}

std::string_view Input::line() noexcept {
  const auto line = left_.substr(0, left_.find('\n'));
  left_.remove_prefix(std::min(line.size() + 1, left_.size()));
  return line;
}

void choose_log_level(uint8_t choice) noexcept {
  _level = choice % 2 == 0 ? KESTRO_LSYSLOG_LOGGING_LEVEL_VERBOSE : KESTRO_LSYSLOG_LOGGING_LEVEL_OFF;
}

void require(bool holds, const char* rule, int line, const char* file) noexcept {
  if (holds) return;
  printf("%s:%d: broken: %s\n", file, line, rule);
  fflush(stdout);
  abort();
}

}  // namespace kestro::fuzz
