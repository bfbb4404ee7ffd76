#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

#include "core/site.hpp"
#include "core/status.hpp"
#include "kestro_malloc.hpp"
#include "kestro_utils.h"
#include "kestro_utils/command.hpp"

using namespace kestro;

namespace {

constexpr auto here = site_of("kestro_utils");

constexpr size_t max_line = 3200;

bool has_text(const char* text) noexcept {
  return text != nullptr && text[0] != '\0';
}

// Replaces the process by a shell that runs the line. Comes back only when there is no such shell.
void become_shell(const char* line) noexcept {
  const std::array<const char*, 4> arguments = {"bash", "-c", line, nullptr};
  execv("/bin/bash", const_cast<char* const*>(arguments.data()));
}

void trace_listing(const char* what, const char* text) noexcept {
  here().log(Verbose, "[%s]: %s = %s\n", "kestro_file_stats", what, text);
}

using Listing = CommandLine<max_line + 1>;

// A listing of a directory, narrowed by words that may be missing, of which one column stays.
Listing listing_of(const char* directory, const char* prefix, const char* suffix, int32_t column) noexcept {
  Listing command;
  trace_listing("cmd_str", command.append("ls -l %s", directory).text());
  for (const char* const word : {prefix, suffix}) {
    if (has_text(word)) trace_listing("cmd_str", command.append(" | grep %s", word).text());
  }
  trace_listing("cmd_str", command.append(" | awk '{print $%d}'", column).text());
  return command;
}

}  // namespace

int32_t kestro_popen_get_oneline(char* buf, int32_t buflen) noexcept {
  if (kestro_check_for_null(1, buf) != status::ok) return status::null_argument;
  const Pipe output = run_command(buf);
  if (output == nullptr) return here().fail(Error, status::general_error, "Could not open pipe for cmd %s\n", buf);
  if (!read_line(output.get(), buf, static_cast<size_t>(std::max(buflen, 0)))) {
    return here().fail(Error, status::general_error, "Could not read output for cmd %s\n", buf);
  }
  return status::ok;
}

int32_t mw_exec_command_line(const char* program, char* ret) noexcept {
  if (kestro_check_for_null(2, program, ret) != status::ok) return status::null_argument;
  const Pipe output = run_command(program);
  if (output == nullptr) {
    fprintf(stderr, "Popen error for cmd: %s.\n", program);
    return status::general_error;
  }

  std::array<char, max_line> line{};
  if (!read_line(output, line) || line[0] == '\0') {
    fprintf(stderr, "Output of the following command was empty or NULL: '%s'.\n", program);
    fprintf(stderr, "Output was: '%s'.\n", line.data());
    return status::general_error;
  }
  memcpy(ret, line.data(), strcspn(line.data(), "\n"));
  return status::ok;
}

void fork_exec_script(const char* script, const char* cmd, const char* filename) noexcept {
  if (kestro_check_for_null(3, script, cmd, filename) != status::ok) return;
  CommandLine<max_line> line;
  line.append("%s %s '%s'", script, cmd, filename);
  const pid_t child = line.fits() ? fork() : -1;
  if (child < 0) {
    here().log(Error, "Failure to launch \"%s\"\n", line.text());
  } else if (child > 0) {
    here().log(Info, "Fork \"%s\" successful\n", line.text());
  } else {
    become_shell(line.text());
    perror("execv failed");
    here().log(Error, "Unable to exec \"%s\"\n", line.text());
  }
}

char* kestro_file_stats(const char* mntpath, const char* prefix, const char* suffix, int32_t column) noexcept {
  if (kestro_check_for_null(1, mntpath) != status::ok) return nullptr;
  const Pipe output = listing_of(mntpath, prefix, suffix, column).run();
  if (output == nullptr) {
    here().log(Error, "System: Command failed. Aborting.\n");
    return nullptr;
  }

  std::array<char, max_line + 1> line;
  if (!read_line(output, line)) {
    here().log(Error, "Kestro Firmware not found in root folder of USB.\n");
    return nullptr;
  }
  trace_listing("cmd_ret", line.data());
  return copy_of(line.data()).release();
}
