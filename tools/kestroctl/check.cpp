// kestroctl check: whether a value would be accepted.

#include <unistd.h>

#include <memory>

#include "kestroctl/fields.hpp"
#include "kestroctl/output.hpp"
#include "kestroctl/verbs.hpp"

namespace kestro::ctl {

namespace {

constexpr size_t name_width = 25;

struct Options {
  std::string field;
  std::string value;
  CLI::Option* given_value = nullptr;  // an empty value is one, too
};

Exit show_fields(Look look) {
  for (const auto& field : fields()) {
    print(Line(look).add(field.name, Colour::Blue, name_width).add(field.rule).text(width_of(STDOUT_FILENO)));
  }
  return Exit::Done;
}

Exit run(const Options& options) {
  const Look look = look_of(STDOUT_FILENO);
  if (options.field.empty()) return show_fields(look);
  const Field* const field = find_field(options.field);
  if (field == nullptr) {
    throw Failure(Exit::Usage, "no field \"" + tame(options.field) + "\"; `kestroctl check` lists all");
  }
  if (options.given_value->count() == 0) {
    print(Line(look).add(std::string(field->name) + ":", Colour::Blue).add(field->rule).text());
    return Exit::Done;
  }
  const Verdict verdict = judge(*field, options.value);
  Line line(look);
  line.add(std::string(field->name) + ":", Colour::Blue);
  if (verdict.accepted) {
    print(line.add("accepted", Colour::Green).text());
    return Exit::Done;
  }
  print(line.add("refused:", Colour::Red).add(verdict.reason).text());
  print(std::string("  the rule: ") + field->rule);
  return Exit::Refused;
}

}  // namespace

void add_check(CommandLine& line) {
  const auto options = std::make_shared<Options>();
  auto& verb = add_verb(
      line, looking_up, "check", "Say whether services accept a value, and why not",
      [options] { return run(*options); },
      "  kestroctl check                     every field and its rule\n"
      "  kestroctl check port_id c1-1\n"
      "  kestroctl check onu_id -1\n"
      "  kestroctl check date_time '2026-01-31 10:00'\n\n"
      "The exit status is 0 for an acceptable value, 1 for another.");
  verb.add_option("FIELD", options->field, "its name; none lists all")->type_name("");
  options->given_value = verb.add_option("VALUE", options->value, "none shows the field's rule")->type_name("");
}

}  // namespace kestro::ctl
