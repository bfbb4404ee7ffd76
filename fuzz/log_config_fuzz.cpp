// Any text as the log configuration file, edited for any daemon: what was set is read, by the library too, and nothing
// else changes.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "kestro_conf_parser.h"
#include "kestroctl/log_config.hpp"
#include "support/fuzz.hpp"

using namespace kestro;
using namespace kestro::fuzz;

namespace {

// What the daemon itself would read of such a file; "-" for nothing.
std::string library_reads(std::string_view text, const std::string& daemon) {
  const Descriptor file(memfd_create("log.conf", MFD_CLOEXEC));
  const auto path = "/proc/self/fd/" + std::to_string(file.get());
  require(write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()), "the file is written");
  std::array<char, 50> value{};
  const int32_t status = kestro_conf_parser_parse(path.c_str(), "logging_levels", daemon.c_str(), value.data(),
                                                  static_cast<int32_t>(value.size()));
  return status == 0 ? std::string(value.data(), strnlen(value.data(), value.size())) : "-";
}

std::vector<std::string_view> lines_of(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    const auto end = std::min(text.find('\n'), text.size());
    lines.push_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return lines;
}

// Besides the entry one line may be new, the heading of the section, and one may be gone, the entry's old one.
void check_lines(std::string_view before, std::string_view after, const std::string& entry) {
  const auto old_lines = lines_of(before);
  const auto lines = lines_of(after);
  size_t same = 0;
  while (same < old_lines.size() && same < lines.size() && old_lines[same] == lines[same]) ++same;
  size_t same_behind = 0;
  while (same + same_behind < old_lines.size() && same + same_behind < lines.size() &&
         old_lines[old_lines.size() - 1 - same_behind] == lines[lines.size() - 1 - same_behind]) {
    ++same_behind;
  }
  const size_t gone = old_lines.size() - same - same_behind;
  const size_t added = lines.size() - same - same_behind;
  require(gone <= 1 && added <= 2, "one line is changed, or up to two are added");
  if (gone == 1) require(added == 1, "the changed line stays one");
  require(std::find(lines.begin(), lines.end(), entry) != lines.end(), "the entry is there");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const auto level = std::string(ctl::log_levels[input.byte() % std::size(ctl::log_levels)]);
  const auto daemon = std::string(input.line());
  const auto text = input.rest();
  const auto read = ctl::read_level(text, daemon);
  if (!ctl::is_daemon_name(daemon)) return 0;

  const auto seen = library_reads(text, daemon);
  require(!read || read->size() > 50 || read->substr(0, read->find('\0')) == seen,
          "the text is read as the library reads it");
  require(read || seen == "-", "what the library reads is read");

  const auto edited = ctl::set_level(text, daemon, level);
  require(ctl::read_level(edited, daemon) == level, "what was set is read");
  require(library_reads(edited, daemon) == level, "what was set is read by the library");
  require(ctl::set_level(edited, daemon, level) == edited, "setting it again changes nothing");
  check_lines(text, edited, daemon + "=" + level);
  return 0;
}
