// Sockets of the daemons on the bus: what is left when one cannot be had.

#include "common/bus_sockets.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>
#include <string>

#include "kestro_jrpc.h"
#include "kestro_mq.h"
#include "support/bus.hpp"
#include "support/captured_stderr.hpp"
#include "support/faults.hpp"

namespace kestro::test {
namespace {

using daemons::open_publisher;
using daemons::open_subscriber;
using testing::HasSubstr;

// A handle that is free is the next one to be given.
int32_t next_handle() {
  return BusSocket(KESTRO_MQ_SP_PUB).handle();
}

// Fails with a word about it, leaves no socket open, and closes none twice.
template <class Open>
void expect_failure(Open&& open, const std::string& what) {
  const int32_t next = next_handle();
  const std::string log = stderr_of([&] {
    try {
      const daemons::BusSocket socket(open());
      ADD_FAILURE() << "opened";
    } catch (const std::runtime_error& failure) {
      EXPECT_THAT(failure.what(), HasSubstr(what));
    }
  });
  EXPECT_EQ(next_handle(), next);
  EXPECT_THAT(log, testing::Not(HasSubstr("nn_close failed")));
}

TEST(DaemonsBusSockets, AnAddressInUseLeavesNoPublisher) {
  const std::string address = free_bus_address();
  BusSocket holder(KESTRO_MQ_SP_PUB);
  holder.bind(address);
  expect_failure([&] { return open_publisher(address); }, "cannot publish at " + address + ": Address already in use");
}

TEST(DaemonsBusSockets, AnAddressOfNothingLeavesNoSubscriber) {
  const auto open = [] { return open_subscriber({free_bus_address(), "tcp://127.0.0.1:x"}, "channel"); };
  expect_failure(open, "cannot subscribe at tcp://127.0.0.1:x: Invalid argument");
}

TEST(DaemonsBusSockets, ARefusedOptionLeavesNoSocket) {
  for (int option = 1; option <= 3; ++option) {
    const Fault refused("nn_setsockopt", EINVAL, option);
    expect_failure([] { return open_publisher(free_bus_address()); }, "nn_setsockopt: option");
    EXPECT_TRUE(refused.fired()) << option;
  }
  for (int option = 1; option <= 5; ++option) {
    const Fault refused("nn_setsockopt", EINVAL, option);
    expect_failure([] { return open_subscriber({free_bus_address()}, "channel"); }, "nn_setsockopt: option");
    EXPECT_TRUE(refused.fired()) << option;
  }
  const Fault refused("nn_setsockopt", EINVAL, 6);
  expect_failure([] { return open_subscriber({free_bus_address()}, "channel"); }, "cannot subscribe at tcp://");
  EXPECT_TRUE(refused.fired());
}

TEST(DaemonsBusSockets, AReleasedSocketStaysOpen) {
  const int32_t next = next_handle();
  {
    daemons::BusSocket socket(open_publisher(free_bus_address()));
    EXPECT_EQ(socket.release(), next);
    EXPECT_EQ(socket.get(), -1);
  }
  EXPECT_NE(next_handle(), next);
  EXPECT_EQ(kestro_mq_socket_close(next), 0);
}

}  // namespace
}  // namespace kestro::test
