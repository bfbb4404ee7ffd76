// The log configuration file as text: which level it gives a daemon, and the same text with another one.
#ifndef KESTRO_CTL_LOG_CONFIG_HPP
#define KESTRO_CTL_LOG_CONFIG_HPP

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kestro::ctl {

inline constexpr std::string_view log_levels[] = {"off", "info", "debug", "verbose"};
bool is_log_level(std::string_view word);

// Whether a daemon's name can stand in the file: not empty, at most 50 bytes, no "=" and no line end, and neither "#"
// nor "[" at its beginning.
bool is_daemon_name(std::string_view name);

struct LevelEntry {
  std::string daemon;
  std::string value;  // as it stands, level or not
};

// The value that the daemon itself would read; nothing where it would find none.
std::optional<std::string> read_level(std::string_view text, std::string_view daemon);

// Every daemon with an entry that is read, in the order of the file.
std::vector<LevelEntry> read_levels(std::string_view text);

// The text with the daemon's level set: its entry is changed where it stands, or added at the end of the section, which
// is added where there is none. Everything else stays byte for byte, the kind of the other lines' ends included; the
// daemon's own entry ends in a line feed alone, for the value is all that comes before that.
std::string set_level(std::string_view text, std::string_view daemon, std::string_view level);

}  // namespace kestro::ctl

#endif
