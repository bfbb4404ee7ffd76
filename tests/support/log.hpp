// Log lines as tests see them.
#ifndef KESTRO_TESTS_LOG_HPP
#define KESTRO_TESTS_LOG_HPP

#include <gmock/gmock.h>

#include <string>
#include <string_view>
#include <vector>

#include "core/log.hpp"

namespace kestro::test {

// The level of the process log while the object lives.
class LogLevel {
 public:
  explicit LogLevel(int32_t level) : saved_(_level.exchange(level)) {}
  LogLevel(const LogLevel&) = delete;
  LogLevel& operator=(const LogLevel&) = delete;
  ~LogLevel() { _level = saved_; }

 private:
  int32_t saved_;
};

// How often the log holds a line of this severity, from this module, with exactly this message. The module is
// only looked at where lines of the severity show it.
int count_log_lines(std::string_view log, Severity severity, std::string_view module, std::string_view message);

// What a module logged, in order: tag, blank, message ("DEBG NULL pointer!\n"). Warnings and info lines, which show no
// module, are taken for the module's own.
std::vector<std::string> log_of(std::string_view log, std::string_view module);

// EXPECT_THAT(text, HasLog(Debug, "kestro_mq", "NULL pointer!\n"))
MATCHER_P3(HasLog, severity, module, message, std::string("has the log line: ") + message) {
  return count_log_lines(arg, severity, module, message) > 0;
}

}  // namespace kestro::test

#endif
