#include "kestroctl/params.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>

#include "kestroctl/exit_status.hpp"
#include "kestroctl/output.hpp"

namespace kestro::ctl {

namespace {

constexpr size_t context = 60;  // characters shown around a mistake

std::string rest_of(std::istream& stream) {
  return {std::istreambuf_iterator<char>(stream), {}};
}

std::string read_file(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw Failure(Exit::Usage, "cannot read " + path + ": " + strerror(errno));
  return rest_of(file);
}

// The line with the mistake, as far as it fits, and a mark below its place.
std::string show_place(const std::string& text, int line, int column) {
  size_t begin = 0;
  for (int i = 1; i < line && begin != std::string::npos; ++i) begin = text.find('\n', begin) + 1;
  const std::string whole = text.substr(begin, text.find('\n', begin) - begin);
  const size_t place = std::min(whole.size(), static_cast<size_t>(std::max(column - 1, 0)));
  const size_t from = place > context ? place - context : 0;
  return "\n  " + tame(whole.substr(from, 2 * context)) + "\n  " + std::string(place - from, ' ') + "^";
}

}  // namespace

Json parse_params(const std::string& text) {
  json_error_t error;
  Json params(json_loadb(text.data(), text.size(), JSON_REJECT_DUPLICATES | JSON_DECODE_ANY, &error));
  if (!params) {
    throw Failure(Exit::Usage, "the parameters are no JSON: line " + std::to_string(error.line) + ", column " +
                                   std::to_string(error.column) + ": " + tame(error.text) +
                                   show_place(text, error.line, error.column));
  }
  if (!json_is_object(params.get())) {
    throw Failure(Exit::Usage, R"(the parameters must be a JSON object, like '{"port_id": "c1-1"}')");
  }
  return params;
}

Json read_params(const std::string& argument) {
  if (argument.empty()) return nullptr;
  if (argument == "-") return parse_params(rest_of(std::cin));
  return parse_params(argument[0] == '@' ? read_file(argument.substr(1)) : argument);
}

}  // namespace kestro::ctl
