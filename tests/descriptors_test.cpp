// What the library holds open is closed on exec: a command that the process runs inherits none of it.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <array>
#include <filesystem>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "core/owned.hpp"
#include "kestro_conf_parser.h"
#include "kestro_db_api.h"
#include "kestro_jrpc.h"
#include "kestro_mq.h"
#include "kestro_sqlite3.h"
#include "kestro_timer.h"
#include "kestro_utils.h"
#include "support/bus.hpp"
#include "support/database.hpp"
#include "support/descriptors.hpp"
#include "support/temp_dir.hpp"

namespace kestro::test {
namespace {

using testing::IsEmpty;

// Knows what was open before.
class ClosedOnExec : public testing::Test {
 protected:
  // What was opened since then, by where it leads; the inheritable apart.
  void look() {
    for (const int fd : open_descriptors()) {
      if (before_.contains(fd)) continue;
      const auto where = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd)).string();
      ((fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0 ? closed_ : inherited_).push_back(where);
    }
  }
  // Until so many were opened by another thread.
  void await(size_t count) const {
    while (open_descriptors().size() < before_.size() + count) std::this_thread::yield();
  }
  // At least so many were opened, and each is closed on exec.
  void expect_all_of(size_t count) {
    look();
    EXPECT_THAT(inherited_, IsEmpty());
    EXPECT_GE(closed_.size(), count);
  }

 private:
  const std::set<int> before_ = open_descriptors();
  std::vector<std::string> closed_;
  std::vector<std::string> inherited_;
};

// Whose descriptors are nanomsg's: the bus's own queues as well as the connections, on either side.
TEST_F(ClosedOnExec, BusSockets) {
  const BusPair tcp;
  await_link(tcp.publisher.handle(), tcp.subscriber.handle());
  expect_all_of(6);
}

TEST_F(ClosedOnExec, BusSocketsInTheFileSystem) {
  const TempDir dir;
  const std::string address = "ipc://" + dir.file("bus");
  const BusSocket publisher(KESTRO_MQ_SP_PUB);
  BusSocket subscriber(KESTRO_MQ_SP_SUB);
  int32_t eid = 0;
  ASSERT_EQ(kestro_mq_socket_bind(publisher.handle(), KESTRO_MQ_TRANSPORT_IPC, address.c_str(), &eid), 0);
  ASSERT_EQ(kestro_mq_socket_connect(subscriber.handle(), KESTRO_MQ_TRANSPORT_IPC, address.c_str(), &eid), 0);
  subscriber.subscribe("");
  await_link(publisher.handle(), subscriber.handle());
  expect_all_of(6);
}

TEST_F(ClosedOnExec, ServiceEndpoints) {
  const std::string address = free_bus_address();
  int32_t publisher = -1;
  int32_t subscriber = -1;
  int32_t puller = -1;
  ASSERT_EQ(kestro_jrpc_mq_pub_init(address.c_str(), &publisher), 0);
  ASSERT_EQ(kestro_jrpc_mq_sub_init(&subscriber, 1), 0);
  ASSERT_EQ(kestro_jrpc_mq_sub_set_channel(address.c_str(), "channel", &subscriber), 0);
  ASSERT_EQ(kestro_jrpc_pull_socket_init(free_bus_address().c_str(), &puller), 0);
  expect_all_of(6);
  for (const int32_t socket : {publisher, subscriber, puller}) kestro_mq_socket_close(socket);
}

TEST_F(ClosedOnExec, Timers) {
  int32_t timer = -1;
  ASSERT_EQ(kestro_timer_init(&timer, 1), 0);
  expect_all_of(1);
  EXPECT_EQ(kestro_timer_free(&timer), 0);
}

// The database, and its journal while something is written.
TEST_F(ClosedOnExec, Databases) {
  const TempDir dir;
  const std::string path = dir.file("some.db");
  Database(path).run("CREATE TABLE t (n INTEGER)");
  sqlite3* opened = nullptr;
  ASSERT_EQ(kestro_db_open_file(&opened, path.c_str()), 0);
  const Owned<sqlite3, sqlite3_close> db(opened);
  ASSERT_EQ(kestro_db_open_transaction(db.get()), 0);
  ASSERT_EQ(kestro_sqlite3_exec_sql(db.get(), "INSERT INTO t VALUES (%d)", 1), 0);
  expect_all_of(2);
}

// A pipe in a file's place keeps its reader waiting, so that what it holds open can be seen.
class Held : public ClosedOnExec {
 protected:
  template <class Read>
  void expect_closed_on_exec_in(Read&& read) {
    ASSERT_EQ(mkfifo(pipe_.c_str(), 0600), 0);
    std::thread reader(std::forward<Read>(read));
    Descriptor writer(open(pipe_.c_str(), O_WRONLY | O_CLOEXEC));
    await(2);  // it may be back from its open() before the reader is
    expect_all_of(2);
    writer = Descriptor();
    reader.join();
  }
  const TempDir dir_;
  const std::string pipe_ = dir_.file("pipe");
};

TEST_F(Held, ConfigurationFiles) {
  expect_closed_on_exec_in([this] {
    std::array<char, 8> value{};
    kestro_conf_parser_parse(pipe_.c_str(), "section", "key", value.data(), value.size());
  });
}

TEST_F(Held, DigestFiles) {
  expect_closed_on_exec_in([this] {
    int32_t equal = 0;
    kestro_check_md5("/dev/null", pipe_.c_str(), &equal);
  });
}

}  // namespace
}  // namespace kestro::test
