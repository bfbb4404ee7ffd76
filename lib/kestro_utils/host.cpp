#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/owned.hpp"
#include "core/site.hpp"
#include "core/status.hpp"
#include "kestro_utils.h"
#include "kestro_utils/command.hpp"
#include "kestro_validation.h"

using namespace kestro;

namespace {

constexpr auto here = site_of("kestro_utils");

constexpr int8_t default_board_revision = 7;

int32_t system_error(const char* word) noexcept {
  perror(word);
  return status::general_error;
}

// The digest that a line of a digest list begins with.
using Digest = std::array<char, 256>;

bool read_digest(FILE* list, Digest& digest) noexcept {
  if (!read_line(list, digest.data(), digest.size())) return false;
  digest[strcspn(digest.data(), " \n")] = '\0';
  return true;
}

bool is_address_or_name(const char* host) noexcept {
  return validate_ip_address(host) == status::ok || validate_hostname(host) == status::ok;
}

// What ping tells about the one packet it sent.
bool was_answered(const Pipe& output) noexcept {
  bool complete = false;
  std::array<char, 1024> line;
  while (read_line(output, line)) {
    if (strstr(line.data(), " 100% packet loss") != nullptr) return false;
    if (strstr(line.data(), "ping statistics") != nullptr) complete = true;
  }
  return complete;
}

void run_iface_command(const char* line) noexcept {
  if (std::system(line) == -1) here().log(Warning, "Got error return for iface locking\n");
}

}  // namespace

int32_t kestro_check_md5(const char* fpath, const char* md5path, int32_t* md5_correct) noexcept {
  if (kestro_check_for_null(3, fpath, md5path, md5_correct) != status::ok) return status::null_argument;
  *md5_correct = 0;
  CommandLine<256> command;
  if (!command.append("md5sum %s", fpath).fits()) {
    return here().fail(Error, status::general_error, "No result from md5sum\n");
  }
  const Pipe computed_list = command.run();
  if (computed_list == nullptr) return system_error("popen");
  const File expected_list(fopen(md5path, "re"));
  if (expected_list == nullptr) return system_error("fopen");

  Digest computed;
  Digest expected;
  if (!read_digest(computed_list.get(), computed) || !read_digest(expected_list.get(), expected)) {
    return here().fail(Error, status::general_error, "No result from md5sum\n");
  }
  *md5_correct = strcmp(computed.data(), expected.data()) == 0 ? 1 : 0;
  return status::ok;
}

int8_t kestro_get_board_rev_number(void) noexcept {
  const Pipe output = run_command("fw_printenv brdrev 2>&1");
  if (output == nullptr) {
    here().log(Error, "Could not open pipe\n");
    return default_board_revision;
  }
  std::array<char, 256> line;
  if (!read_line(output, line)) {
    here().log(Error, "Couldn't get result from syscall\n");
    return default_board_revision;
  }
  if (strstr(line.data(), "not installed") != nullptr) return default_board_revision;
  if (line[0] == '#') {
    here().log(Error, "Board rev# env var not set\n");
    return default_board_revision;
  }
  const char* const value = strchr(line.data(), '=');
  return value != nullptr ? static_cast<int8_t>(value[1] - '0') : default_board_revision;
}

bool kestro_check_ip_alive_no_log(const char* ip_addr, int32_t n_sec) noexcept {
  if (ip_addr == nullptr || !is_address_or_name(ip_addr)) {
    here().log(Warning, "invalid input to ip alive check\n");
    return false;
  }
  CommandLine<256> command;
  const Pipe output = command.append("ping -c1 -w%d %s", n_sec, ip_addr).run();
  return output != nullptr && was_answered(output);
}

bool kestro_check_ip_alive(const char* ip_addr, int32_t n_sec) noexcept {
  const bool alive = kestro_check_ip_alive_no_log(ip_addr, n_sec);
  here().log(Info, "IP %s is alive: %d\n", printable(ip_addr), alive);
  return alive;
}

bool kestro_check_ip_alive_v2(const char* ip_addr, int32_t n_sec) noexcept {
  for (int32_t attempt = 0; attempt < n_sec; ++attempt) {
    if (kestro_check_ip_alive_no_log(ip_addr, 1)) return true;
  }
  return false;
}

// Whoever creates the file holds the lock: with noclobber the shell opens it exclusively.
void lock_ifaces(void) noexcept {
  run_iface_command(R"(bash -c "while ! { set -o noclobber; > /tmp/lockifaces ; } &> /dev/null; do sleep 1; done")");
}

void unlock_ifaces(void) noexcept {
  run_iface_command("rm /tmp/lockifaces");
}
