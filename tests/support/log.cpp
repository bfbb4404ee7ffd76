#include "support/log.hpp"

#include <algorithm>
#include <cctype>
#include <optional>

namespace kestro::test {

namespace {

// The head at the start of a line: "[time] [TAG] [source] " or "[time] [TAG] [source: module:line] ". The module is empty
// where it is not shown.
struct Head {
  std::string_view tag;
  std::string_view module;
  size_t length;
};

// Digits stand for digits, letters for anything, the rest for itself.
bool has_shape(std::string_view text, std::string_view shape) {
  if (text.size() < shape.size()) return false;
  return std::equal(shape.begin(), shape.end(), text.begin(), [](unsigned char wanted, unsigned char found) {
    return isdigit(wanted) ? isdigit(found) != 0 : isalpha(wanted) || wanted == found;
  });
}

bool is_number(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) { return isdigit(c) != 0; });
}

std::optional<Head> parse_head(std::string_view text) {
  constexpr std::string_view shape = "[0000-00-00 00:00:00.000] [TAGS] [";
  constexpr size_t tag = shape.find("TAGS");
  if (!has_shape(text, shape)) return std::nullopt;
  const size_t end = text.find("] ", shape.size());
  if (end == std::string_view::npos) return std::nullopt;

  const std::string_view place = text.substr(shape.size(), end - shape.size());  // source, or source: module:line
  const size_t source_end = place.find(": ");
  const size_t line = place.rfind(':') + 1;
  Head head{.tag = text.substr(tag, 4), .module = {}, .length = end + 2};
  if (source_end == std::string_view::npos) return head;
  if (!is_number(place.substr(line))) return std::nullopt;
  head.module = place.substr(source_end + 2, line - source_end - 3);
  return head;
}

}  // namespace

int count_log_lines(std::string_view log, Severity severity, std::string_view module, std::string_view message) {
  const bool with_module = severity == Error || severity > Info;
  const std::string_view shown_module = with_module ? module : "";
  int count = 0;
  for (size_t at = log.find(message); at != std::string_view::npos; at = log.find(message, at + 1)) {
    const size_t before = at == 0 ? std::string_view::npos : log.rfind('\n', at - 1);
    const size_t line = before == std::string_view::npos ? 0 : before + 1;
    const size_t end = at + message.size();
    const bool whole = end == log.size() || log[end] == '[' || message.back() == '\n';
    const auto head = parse_head(log.substr(line));
    const bool behind_head = head && head->length == at - line && head->module == shown_module;
    if (whole && behind_head && head->tag == kestro_lsyslog_severity_to_string(severity)) ++count;
  }
  return count;
}

std::vector<std::string> log_of(std::string_view log, std::string_view module) {
  std::vector<std::string> lines;
  std::string* open = nullptr;
  while (!log.empty()) {
    if (const auto head = parse_head(log)) {
      const bool ours = head->module.empty() || head->module == module;
      open = ours ? &lines.emplace_back(std::string(head->tag) + " ") : nullptr;
      log.remove_prefix(head->length);
    }
    const size_t end = std::min(log.find('\n'), log.size() - 1) + 1;
    if (open != nullptr) open->append(log.substr(0, end));
    log.remove_prefix(end);
  }
  return lines;
}

}  // namespace kestro::test
