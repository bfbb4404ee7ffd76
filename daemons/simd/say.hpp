// What the log tells of the unit.
#ifndef KESTRO_SIMD_SAY_HPP
#define KESTRO_SIMD_SAY_HPP

#include <string>

#include "kestro_lsyslog.h"

namespace kestro::simd {

// One INFO line, which shows no module.
inline void say(const std::string& text) {
  if (kestro_lsyslog_check_severity(KESTRO_LSYSLOG_SEVERITY_INFO) == 0) return;
  kestro_lsyslog_log(KESTRO_LSYSLOG_SEVERITY_INFO, "kestro_simd", __LINE__, "%s\n", text.c_str());
}

}  // namespace kestro::simd

#endif
