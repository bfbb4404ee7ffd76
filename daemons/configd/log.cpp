#include "configd/log.hpp"

#include "kestro_lsyslog.h"

namespace kestro::configd {

namespace {

void log(kestro_lsyslog_severity severity, const std::string& text, int line) {
  if (kestro_lsyslog_check_severity(severity) == 0) return;
  kestro_lsyslog_log(severity, "configd", line, "%s\n", text.c_str());
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
