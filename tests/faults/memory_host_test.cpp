// Texts, sets, lists, sockets, timers, shell commands and threads while memory runs out.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "core/owned.hpp"
#include "faults/memory.hpp"
#include "kestro_data.h"
#include "kestro_malloc.h"
#include "kestro_map.h"
#include "kestro_socket.h"
#include "kestro_string.h"
#include "kestro_timer.h"
#include "kestro_utils.h"
#include "support/log.hpp"
#include "support/named.hpp"
#include "support/time_zone.hpp"

namespace kestro::test {
namespace {

void allocate(Trial& trial) {
  void* block = trial.give([] { return omalloc(10); });
  block = trial.give([&] { return orealloc(block, 20); });
  free(block);
  free(trial.give([] { return ocalloc(2, 30); }));
}

void grow_a_text(Trial& trial) {
  str_t* const text = trial.give([] { return str_init(4); });
  for (int i = 0; i < 4; ++i) {
    trial.call({}, [&] { return str_printf(text, "number %d ", i); });
  }
  EXPECT_STREQ(str_s(text), "number 0 number 1 number 2 number 3 ");
  str_free(text);
}

// What was read stays when the text cannot grow.
void read_a_line(Trial& trial) {
  const LogLevel level(Verbose);
  const std::string path = trial.directory() + "/lines";
  const std::string line = std::string(100, 'x') + "\n";
  std::ofstream(path) << line << line;
  str_t* const text = str_init(8);
  const File file(fopen(path.c_str(), "re"));
  int32_t status = 0;
  trial.call({-1, -2}, [&] {
    status = str_fgets(text, file.get());
    return status == 1 ? 0 : status - 1;
  });
  EXPECT_EQ(str_slen(text), strlen(str_s(text)));
  EXPECT_EQ(line.compare(0, str_slen(text), str_s(text)), 0);
  if (status == -1) {
    EXPECT_THAT(trial.said(), HasLog(Error, "kestro_string", "Allocation error Cannot allocate memory\n"));
  }
  str_free(text);
}

void remember_addresses(Trial& trial) {
  ip_set* set = nullptr;
  for (int i = 0; i < 40; ++i) {
    const std::string address = "10.0.0." + std::to_string(i);
    trial.make([&] { EXPECT_FALSE(kestro_set_ip_add(&set, address.c_str())); });
    EXPECT_TRUE(kestro_set_ip_add(&set, address.c_str()));
  }
  kestro_set_ip_delete_all(&set);
  EXPECT_EQ(set, nullptr);
}

void fill_a_list(Trial& trial) {
  const LogLevel level(Verbose);
  port_macs macs{};
  kestro_mac_vector vector{};
  trial.call({}, [&] { return kestro_mac_vector_init(&vector, &macs); });
  for (int i = 0; i < 20; ++i) {
    trial.call({}, [&] { return kestro_mac_vector_push(&vector, "AA:BB:CC:DD:EE:FF", MAC_STR); });
  }
  EXPECT_EQ(macs.n_macs, 20);
  free(macs.macs);
}

// A process that survives the signal is told by the status, and keeps what was in the list.
void fill_a_list_and_survive(Trial& trial) {
  const LogLevel level(Verbose);
  kestro_signal(SIGTERM, SIG_IGN);
  port_macs macs{};
  kestro_mac_vector vector{};
  const auto begun = trial.call({-22}, [&] { return kestro_mac_vector_init(&vector, &macs); });
  EXPECT_EQ(macs.macs != nullptr, begun == 0);
  int32_t count = 0;
  for (int i = 0; i < 20; ++i) {
    const auto pushed = trial.call({-1}, [&] { return kestro_mac_vector_push(&vector, "AA:BB:CC:DD:EE:FF", MAC_STR); });
    if (pushed == 0) ++count;
    EXPECT_EQ(macs.n_macs, count);
  }
  free(macs.macs);
  kestro_signal(SIGTERM, SIG_DFL);
}

void join_lists(Trial& trial) {
  std::array<mac_str, 2> some = {"AA:BB:CC:DD:EE:FF", "AA:BB:CC:DD:EE:00"};
  const port_macs list{some.data(), 2};
  port_macs joined{};
  trial.make([&] { joined = kestro_port_macs_concat(&list, &list); });
  EXPECT_EQ(joined.n_macs, 4);
  free(joined.macs);
}

void write_vlans(Trial& trial) {
  std::vector<int32_t> vids(200, 4000);
  str_t* const csv = trial.give([&] { return vlan_array_to_csv(vids.data(), static_cast<int32_t>(vids.size())); });
  EXPECT_EQ(str_slen(csv), 200 * 5 - 1U);
  str_free(csv);
}

void show_bytes(Trial& trial) {
  const LogLevel level(Verbose);
  const std::array<uint8_t, 4> bytes = {1, 2, 3, 4};
  trial.make([&] { kestro_debug_print_bytes(bytes.data(), 4, "bytes"); });
  EXPECT_THAT(trial.said(), testing::HasSubstr("01 02 03 04"));
  trial.make([&] { kestro_print_packet(bytes.data(), 4, "packet"); });
  trial.make([] { kestro_utils_system_log("file", "function", 1, "%s", "a message\n"); });
}

// In a zone that was not in use before. The C library keeps its name, until it gets another one.
void tell_the_time(Trial& trial) {
  const LogLevel level(Verbose);
  {
    const TimeZone zone("XST-3");
    std::array<char, 32> text{};
    trial.make([&] { kestro_date_str(text.data(), text.size()); });
    EXPECT_EQ(strlen(text.data()), strlen("2021-03-04 17:05:09.042"));
    trial.make([&] { kestro_ept_fmt(text.data(), text.size(), 0, "%H"); });
    EXPECT_TRUE(trial.excused() || std::string(text.data()) == "03") << text.data();
    trial.make([] { EXPECT_NE(kestro_str_to_ept("2021-03-04 17:05:09"), 0); });
  }
}

void run_commands(Trial& trial) {
  const LogLevel level(Verbose);
  std::array<char, 3200> line = {"echo one"};
  const auto got = trial.call({-1}, [&] { return kestro_popen_get_oneline(line.data(), 100); });
  EXPECT_STREQ(line.data(), got == 0 ? "one\n" : "echo one");

  std::array<char, 3200> result{};
  const auto ran = trial.call({-1}, [&] { return mw_exec_command_line("echo two", result.data()); });
  EXPECT_STREQ(result.data(), ran == 0 ? "two" : "");
  trial.make([] {
    const auto revision = kestro_get_board_rev_number();
    EXPECT_GE(revision, 0);
  });
}

void look_at_files(Trial& trial) {
  const LogLevel level(Verbose);
  const std::string path = trial.directory() + "/firmware.bin";
  const std::string digest = trial.directory() + "/firmware.md5";
  std::ofstream(path) << "firmware";
  std::ofstream(digest) << "74b5b5e9570efc5c0553bb327cd41940  firmware.bin\n";
  int32_t correct = -1;
  const auto status = trial.call({-1}, [&] { return kestro_check_md5(path.c_str(), digest.c_str(), &correct); });
  EXPECT_EQ(correct, status == 0 ? 1 : 0);
  const Text name(trial.give([&] { return kestro_file_stats(trial.directory().c_str(), "bin", nullptr, 9); }));
  EXPECT_TRUE(!name || std::string(name.get()) == "firmware.bin\n");
}

void ask_an_interface(Trial& trial) {
  const LogLevel level(Verbose);
  mac_str mac{};
  const auto status = trial.call({-1}, [&] { return get_nc_mac_addr("lo", mac); });
  EXPECT_STREQ(mac, status == 0 ? "00:00:00:00:00:00" : "");
}

void ping(Trial& trial) {
  const LogLevel level(Verbose);
  bool alive = false;
  trial.make([&] { alive = kestro_check_ip_alive("127.0.0.1", 1); });
  static_cast<void>(alive);  // whether loopback answers is not for this test to say
}

void open_servers(Trial& trial) {
  const LogLevel level(Verbose);
  const std::string path = trial.directory() + "/server";
  int32_t server = -1;
  trial.call({}, [&] { return kestro_unix_socket_init(path.c_str(), &server, 1); });
  int32_t connection = -1;
  trial.make([&] { EXPECT_EQ(kestro_socket_accept(&server, &connection), -1); });
  trial.make([&] { EXPECT_EQ(kestro_tcp_socket_connect("no address", 1, &connection), -1); });
  kestro_socket_shutdown(&server);
  // A failure is told through a stream of the C library, which may want memory of its own.
  trial.make([&] { EXPECT_EQ(kestro_socket_accept(&server, &connection), -1); });
}

void run_a_timer(Trial& trial) {
  const LogLevel level(Verbose);
  int32_t timer = -1;
  trial.call({}, [&] { return kestro_timer_init(&timer, 1); });
  trial.call({}, [&] { return kestro_timer_set(timer, 100, 0); });
  trial.make([&] { EXPECT_EQ(kestro_timer_read(timer), -25); });
  trial.call({}, [&] { return kestro_timer_free(&timer); });
  trial.make([] { EXPECT_EQ(kestro_timer_set(-1, 1, 1), -1); });
}

const Ending no_memory = aborts(" unsuccessful\n");

INSTANTIATE_TEST_SUITE_P(Host, MemoryCampaign,
                         testing::ValuesIn(std::vector<MemoryScenario>{
                             {"Allocate", allocate, no_memory},
                             {"GrowAText", grow_a_text, no_memory},
                             {"ReadALine", read_a_line},
                             {"RememberAddresses", remember_addresses, exits(255)},
                             {"FillAList", fill_a_list, ends_by(SIGTERM, "Terminating, raise SIGTERM\n")},
                             {"FillAListAndSurvive", fill_a_list_and_survive},
                             {"JoinLists", join_lists, no_memory},
                             {"WriteVlans", write_vlans, no_memory},
                             {"ShowBytes", show_bytes, no_memory},
                             {"TellTheTime", tell_the_time},
                             {"RunCommands", run_commands},
                             {"LookAtFiles", look_at_files, no_memory},
                             {"AskAnInterface", ask_an_interface, aborts("PANIC: could not open pipe\n")},
                             {"Ping", ping},
                             {"OpenServers", open_servers},
                             {"RunATimer", run_a_timer},
                         }),
                         name_of<MemoryScenario>);

}  // namespace
}  // namespace kestro::test
