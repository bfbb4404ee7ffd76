#include "support/log.hpp"

#include <regex>

namespace kestro::test {

namespace {

const std::string timestamp = R"(\[[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\.[0-9]{3}\] )";

// The head of a line: "[time] [TAG] [source] " or "[time] [TAG] [source: module:line] ".
std::regex head_of(Severity severity, std::string_view module) {
  const std::string tag = std::string("\\[") + kestro_lsyslog_severity_to_string(severity) + "\\] ";
  const bool with_module = severity == Error || severity > Info;
  const std::string module_and_line = with_module ? ": " + std::string(module) + ":[0-9]+" : "";
  return std::regex(timestamp + tag + "\\[[^\\]:]+" + module_and_line + "\\] ");
}

}  // namespace

int count_log_lines(std::string_view log, Severity severity, std::string_view module, std::string_view message) {
  const std::regex head = head_of(severity, module);
  int count = 0;
  for (size_t at = log.find(message); at != std::string_view::npos; at = log.find(message, at + 1)) {
    const size_t before = at == 0 ? std::string_view::npos : log.rfind('\n', at - 1);
    const size_t line = before == std::string_view::npos ? 0 : before + 1;
    const size_t end = at + message.size();
    const bool whole = end == log.size() || log[end] == '[' || message.back() == '\n';
    if (whole && std::regex_match(log.begin() + line, log.begin() + at, head)) ++count;
  }
  return count;
}

std::vector<std::string> log_of(std::string_view log, std::string_view module) {
  static const std::regex any_head(timestamp + R"(\[([A-Z!]{4})\] \[[^\]:]+(?:: ([^:\]]+):[0-9]+)?\] )");
  std::vector<std::string> lines;
  std::string* open = nullptr;
  const char* rest = log.begin();
  for (std::cregex_iterator it(log.begin(), log.end(), any_head), end; it != end; ++it) {
    const auto& head = *it;
    if (open != nullptr) open->append(rest, head[0].first);
    rest = head[0].second;
    const bool ours = !head[2].matched || head[2].str() == module;
    open = ours ? &lines.emplace_back(head[1].str() + " ") : nullptr;
  }
  if (open != nullptr) open->append(rest, log.end());
  return lines;
}

}  // namespace kestro::test
