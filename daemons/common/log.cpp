#include "common/log.hpp"

#include <algorithm>
#include <filesystem>

#include "kestro_lsyslog.h"

namespace kestro::daemons {

namespace {

void log(kestro_lsyslog_severity severity, const std::string& text, const char* file = "", int line = 0) {
  if (kestro_lsyslog_check_severity(severity) == 0) return;
  const std::string module = std::filesystem::path(file).stem().string();
  kestro_lsyslog_log(severity, module.c_str(), line, "%s\n", one_line(text).c_str());
}

}  // namespace

std::string one_line(std::string text) {
  const auto is_control = [](unsigned char c) { return c < 0x20 || c == 0x7F; };
  std::replace_if(text.begin(), text.end(), is_control, '?');
  return text;
}

void log_info(const std::string& text) {
  log(KESTRO_LSYSLOG_SEVERITY_INFO, text);
}

void log_warning(const std::string& text) {
  log(KESTRO_LSYSLOG_SEVERITY_WARNING, text);
}

void log_error(const std::string& text, const char* file, int line) {
  log(KESTRO_LSYSLOG_SEVERITY_ERROR, text, file, line);
}

}  // namespace kestro::daemons
