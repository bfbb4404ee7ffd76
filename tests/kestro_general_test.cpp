// The paths of the unit. The builds that run tests replace them, so the defaults are read here without those.
#undef KESTRO_LSYSLOG_CONF_FILE
#undef KESTRO_CFGDB_FILE
#undef KESTRO_UPDATE_DIR
#include "kestro_general.h"

#include <gtest/gtest.h>

namespace {

TEST(PathsOnTheUnit, AreTheDefaults) {
  EXPECT_STREQ(KESTRO_LSYSLOG_CONF_FILE, "/etc/kestro_lsyslog.conf");
  EXPECT_STREQ(KESTRO_CFGDB_FILE, "/data/db/vtr_h9.db");
  EXPECT_STREQ(KESTRO_UPDATE_DIR, "/tmp/update/");
}

}  // namespace
