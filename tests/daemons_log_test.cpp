#include "common/log.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "kestro_lsyslog.h"
#include "support/captured_stderr.hpp"
#include "support/log.hpp"

namespace kestro::test {
namespace {

using daemons::log_error;
using daemons::log_info;
using daemons::log_warning;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(DaemonsLog, IsOneLineOfItsSeverity) {
  EXPECT_THAT(stderr_of([] { log_info("ready"); }), EndsWith("] [INFO] [unknown] ready\n"));
  EXPECT_THAT(stderr_of([] { log_warning("late"); }), EndsWith("] [WARN] [unknown] late\n"));
}

TEST(DaemonsLog, ErrorsTellFileAndLine) {
  const std::string where = "daemons_log_test:" + std::to_string(__LINE__ + 1);
  EXPECT_THAT(stderr_of([] { log_error("lost"); }), EndsWith("] [ERR!] [unknown: " + where + "] lost\n"));
}

TEST(DaemonsLog, TextsBeginNoLinesOfTheirOwn) {
  EXPECT_THAT(stderr_of([] { log_info("a\n[INFO] \x1b[31m\x7f%s \xc3\xa9"); }),
              HasSubstr("] a?[INFO] ?[31m?%s \xc3\xa9\n"));
}

TEST(DaemonsLog, OneLineMasksControlCharactersAlone) {
  EXPECT_EQ(daemons::one_line(""), "");
  EXPECT_EQ(daemons::one_line("ports.Get \xc3\xa9~"), "ports.Get \xc3\xa9~");
  EXPECT_EQ(daemons::one_line(std::string("\0\t\r\n\x1f\x20\x7f", 7)), "????? ?");
}

TEST(DaemonsLog, IsSilentWhereTheLevelIs) {
  const LogLevel off(KESTRO_LSYSLOG_LOGGING_LEVEL_OFF);
  EXPECT_THAT(stderr_of([] { log_error("lost"); }), IsEmpty());
}

}  // namespace
}  // namespace kestro::test
