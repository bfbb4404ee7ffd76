// kestroctl explain: what a status or an error code means.

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <iterator>
#include <memory>
#include <optional>

#include "kestro_error.h"
#include "kestro_jrpc.h"
#include "kestro_jrpc/error_codes.hpp"
#include "kestroctl/output.hpp"
#include "kestroctl/verbs.hpp"

namespace kestro::ctl {

namespace {

constexpr int32_t statuses = std::size(kestro_error_strings);
constexpr size_t code_width = 6;

std::optional<int32_t> parse_code(const std::string& text) {
  int32_t code = 0;
  const auto [end, wrong] = std::from_chars(text.data(), text.data() + text.size(), code);
  if (wrong != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return code > 0 ? -code : code;
}

// Null for a number that is no status.
const char* text_of_status(int32_t status) {
  return status > -statuses && status <= 0 ? kestro_error_strings[-status] : nullptr;
}

bool is_jrpc_code(int32_t code) {
  return code != 0 &&
         std::ranges::any_of(kestro_jrpc_err_mapping_tbl, [code](const auto& row) { return row.error_code == code; });
}

void show_row(int32_t code, const char* text, const char* note = "") {
  print("  " + Line(look_of(STDOUT_FILENO))
                   .add(std::to_string(code), Colour::Cyan, code_width)
                   .add(text)
                   .add(note, Colour::Grey)
                   .text());
}

void show_head(const char* kind, int32_t code, const char* text) {
  print(Line(look_of(STDOUT_FILENO))
            .add(kind)
            .add(std::to_string(code) + ":", Colour::Cyan)
            .add(text, Colour::Bold)
            .text());
}

void explain_status(int32_t status) {
  show_head("status", status, text_of_status(status));
  if (status == 0) return print("  success: there is no error to convert");
  const int32_t code = convert_status_to_jrpc_error(status);
  print("a client sees the JSON-RPC error");
  show_row(code, kestro_jrpc_error_decode(code));
  const int32_t back = kestro_jrpc_error_convert_jrpc_to_kestro(code);
  if (back != status) {
    print("which a daemon that calls converts back to");
    show_row(back, text_of_status(back));
  }
}

void explain_jrpc(int32_t code) {
  show_head("JSON-RPC error", code, kestro_jrpc_error_decode(code));
  const int32_t back = kestro_jrpc_error_convert_jrpc_to_kestro(code);
  bool any = false;
  for (int32_t status = -1; status > -statuses; --status) {
    if (text_of_status(status) == nullptr || convert_status_to_jrpc_error(status) != code) continue;
    if (!any) print("statuses that become this error");
    any = true;
    show_row(status, text_of_status(status), status == back ? "(what it converts back to)" : "");
  }
  if (!any) print("no status becomes this error; JSON-RPC itself uses it, or nobody does");
}

void show_all() {
  for (int32_t status = 0; status > -statuses; --status) {
    if (text_of_status(status) != nullptr) show_row(status, text_of_status(status));
  }
  for (const auto& row : kestro_jrpc_err_mapping_tbl) {
    if (row.error_code != 0) show_row(row.error_code, row.message);
  }
}

Exit run(const std::string& text) {
  if (text.empty()) {
    show_all();
    return Exit::Done;
  }
  const auto code = parse_code(text);
  if (!code) throw Failure(Exit::Usage, "\"" + tame(text) + "\" is no code; codes are numbers, like -6 or -32030");
  if (is_jrpc_code(*code)) {
    explain_jrpc(*code);
  } else if (text_of_status(*code) != nullptr) {
    explain_status(*code);
  } else {
    throw Failure(Exit::Refused,
                  (text[0] == '-' ? text + " is no code" : "neither " + text + " nor -" + text + " is a code") +
                      "; `kestroctl explain` lists all that there are");
  }
  return Exit::Done;
}

}  // namespace

void add_explain(CommandLine& line) {
  const auto code = std::make_shared<std::string>();
  auto& verb = add_verb(
      line, looking_up, "explain", "Say what a status or a JSON-RPC error code means", [code] { return run(*code); },
      "  kestroctl explain -6\n"
      "  kestroctl explain -32602\n");
  verb.add_option("CODE", *code, "with or without its minus sign; none lists all")->type_name("");
}

}  // namespace kestro::ctl
