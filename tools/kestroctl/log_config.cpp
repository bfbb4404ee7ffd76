#include "kestroctl/log_config.hpp"

#include <algorithm>

namespace kestro::ctl {

namespace {

// As the library reads the file: see kestro_conf_parser.h.
constexpr std::string_view section = "logging_levels";
constexpr size_t last_bracket = 50;
constexpr size_t last_equals = 50;

// A line with its end, where it has one.
struct Line {
  std::string_view whole;
  // The reader works with C texts: what stands behind a zero byte does not count.
  [[nodiscard]] std::string_view seen() const { return whole.substr(0, whole.find('\0')); }
  [[nodiscard]] bool has_end() const { return whole.ends_with('\n'); }
  [[nodiscard]] bool begins_with(char c) const { return seen().starts_with(c); }
  [[nodiscard]] bool is_blank() const { return whole.find_first_not_of("\r\n \t") == std::string_view::npos; }
};

std::vector<Line> lines_of(std::string_view text) {
  std::vector<Line> lines;
  while (!text.empty()) {
    const auto end = text.find('\n');
    const auto length = end == std::string_view::npos ? text.size() : end + 1;
    lines.push_back({text.substr(0, length)});
    text.remove_prefix(length);
  }
  return lines;
}

bool opens_section(const Line& line) {
  if (!line.begins_with('[')) return false;
  const auto end = line.seen().find(']');
  return end <= last_bracket && line.seen().substr(1, end - 1) == section;
}

// The lines of the section: from behind its heading up to the next one.
struct Section {
  bool found = false;
  size_t begin = 0;
  size_t end = 0;
};
Section find_section(const std::vector<Line>& lines) {
  const auto heading = std::find_if(lines.begin(), lines.end(), opens_section);
  if (heading == lines.end()) return {};
  const auto next = std::find_if(heading + 1, lines.end(), [](const Line& line) { return line.begins_with('['); });
  return {true, static_cast<size_t>(heading + 1 - lines.begin()), static_cast<size_t>(next - lines.begin())};
}

std::optional<std::string_view> key_of(const Line& line) {
  const auto equals = line.seen().find('=');
  if (line.begins_with('#') || equals > last_equals) return std::nullopt;
  return line.seen().substr(0, equals);
}

// Nothing where the line has no end that the reader sees.
std::optional<std::string_view> value_of(const Line& line) {
  const auto end = line.seen().find('\n');
  if (end == std::string_view::npos) return std::nullopt;
  const auto begin = line.seen().find('=') + 1;
  return line.seen().substr(begin, end - begin);
}

std::string entry_of(std::string_view daemon, std::string_view level) {
  return std::string(daemon) + "=" + std::string(level) + "\n";
}

// Where the daemon's entry stands: what is read, or an unfinished last line, which is not read but meant.
std::optional<size_t> find_entry(const std::vector<Line>& lines, const Section& where, std::string_view daemon) {
  for (size_t i = where.begin; i < where.end; ++i) {
    if (key_of(lines[i]) == daemon && (value_of(lines[i]) || !lines[i].has_end())) return i;
  }
  return std::nullopt;
}

// Behind the section's last entry: comments and blank lines that follow may belong to the next section.
size_t place_for_entry(const std::vector<Line>& lines, const Section& where) {
  size_t place = where.end;
  while (place > where.begin && (lines[place - 1].is_blank() || lines[place - 1].begins_with('#'))) --place;
  return place;
}

void end_line(std::string& text) {
  if (!text.empty() && text.back() != '\n') text += '\n';
}

}  // namespace

bool is_log_level(std::string_view word) {
  return std::find(std::begin(log_levels), std::end(log_levels), word) != std::end(log_levels);
}

bool is_daemon_name(std::string_view name) {
  constexpr std::string_view never("=\n\0", 3);
  return !name.empty() && name.size() <= last_equals && name.find_first_of(never) == std::string_view::npos &&
         name[0] != '#' && name[0] != '[';
}

std::vector<LevelEntry> read_levels(std::string_view text) {
  const auto lines = lines_of(text);
  const auto where = find_section(lines);
  std::vector<LevelEntry> entries;
  for (size_t i = where.begin; i < where.end; ++i) {
    const auto key = key_of(lines[i]);
    const auto value = key ? value_of(lines[i]) : std::nullopt;
    const bool known =
        std::any_of(entries.begin(), entries.end(), [&](const auto& entry) { return entry.daemon == key; });
    if (value && !known) entries.push_back({std::string(*key), std::string(*value)});
  }
  return entries;
}

std::optional<std::string> read_level(std::string_view text, std::string_view daemon) {
  for (auto& entry : read_levels(text)) {
    if (entry.daemon == daemon) return std::move(entry.value);
  }
  return std::nullopt;
}

std::string set_level(std::string_view text, std::string_view daemon, std::string_view level) {
  const auto lines = lines_of(text);
  const auto where = find_section(lines);
  const auto entry = find_entry(lines, where, daemon);
  const size_t place = entry.value_or(where.found ? place_for_entry(lines, where) : lines.size());
  std::string edited;
  for (size_t i = 0; i < place; ++i) edited += lines[i].whole;
  end_line(edited);
  if (!where.found) edited += "[" + std::string(section) + "]\n";
  edited += entry_of(daemon, level);
  for (size_t i = place + (entry ? 1 : 0); i < lines.size(); ++i) edited += lines[i].whole;
  return edited;
}

}  // namespace kestro::ctl
