// What a service manager hears from the daemon.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "support/bus.hpp"
#include "support/process.hpp"
#include "support/service_manager.hpp"
#include "support/shm_name.hpp"
#include "support/temp_dir.hpp"

namespace kestro::test {
namespace {

using testing::HasSubstr;

TEST(RouterdNotify, ReadinessStatusWatchdogAndEndAreTold) {
#ifndef KESTRO_HAVE_SYSTEMD
  GTEST_SKIP() << "built without it";
#endif
  ServiceManager manager;
  const TempDir dir;
  const ShmName stats_name;
  Process router({KESTRO_ROUTERD, "--listen-unix", dir.file("router.sock"), "--bus-publish", free_bus_address(),
                  "--bus-subscribe", free_bus_address(), "--stats-name", stats_name.str()},
                 {manager.environment()});
  EXPECT_TRUE(manager.hears("READY=1"));
  EXPECT_TRUE(manager.hears("WATCHDOG=1\nSTATUS=0 clients, 0 requests in flight"));
  EXPECT_THAT(manager.heard(), testing::Not(HasSubstr("STOPPING=1")));
  EXPECT_EQ(router.terminate(), 0);
  EXPECT_THAT(manager.heard(), HasSubstr("STOPPING=1"));
}

}  // namespace
}  // namespace kestro::test
