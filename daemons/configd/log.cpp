#include "configd/log.hpp"

#include <algorithm>

#include "kestro_lsyslog.h"

namespace kestro::configd {

namespace {

// Descriptions and names come from outside: they must not begin lines of their own, nor speak to a terminal.
std::string printable(std::string text) {
  const auto is_control = [](unsigned char c) { return c < 0x20 || c == 0x7F; };
  std::replace_if(text.begin(), text.end(), is_control, '?');
  return text;
}

void log(kestro_lsyslog_severity severity, const std::string& text, int line) {
  if (kestro_lsyslog_check_severity(severity) == 0) return;
  kestro_lsyslog_log(severity, "configd", line, "%s\n", printable(text).c_str());
}

}  // namespace

void log_info(const std::string& text) {
  log(KESTRO_LSYSLOG_SEVERITY_INFO, text, 0);
}
void log_warning(const std::string& text) {
  log(KESTRO_LSYSLOG_SEVERITY_WARNING, text, 0);
}
void log_error(const std::string& text, int line) {
  log(KESTRO_LSYSLOG_SEVERITY_ERROR, text, line);
}

}  // namespace kestro::configd
