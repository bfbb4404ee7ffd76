// The growable text, driven by operations that the input spells out, beside a std::string; and the iterator beside a
// splitting of its own.
#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "kestro_string.h"
#include "support/fuzz.hpp"

using namespace kestro;
using namespace kestro::fuzz;

namespace {

constexpr size_t token_size = 255;

// The text, and what it has to hold.
class Pair {
 public:
  explicit Pair(size_t room) : text_(str_init(room)), room_(std::max<size_t>(room, 1)) {}

  void print(std::string_view piece) {
    const Text argument = exact(piece);
    require(str_printf(text_.get(), "%s", argument.get()) == 0, "printing succeeds");
    append(argument.get());
  }
  void print_number(int number, int width) {
    require(str_printf(text_.get(), "<%*d>", width, number) == 0, "printing succeeds");
    std::string formatted = std::to_string(number);
    const auto wanted = static_cast<size_t>(std::abs(width));
    const std::string padding(wanted > formatted.size() ? wanted - formatted.size() : 0, ' ');
    append("<" + (width < 0 ? formatted + padding : padding + formatted) + ">");
  }
  void clear() {
    str_clear(text_.get());
    model_.clear();
  }
  void read_lines(std::string_view bytes);
  void check() const {
    require(str_slen(text_.get()) == model_.size(), "the length is right");
    require(memcmp(str_s(text_.get()), model_.data(), model_.size()) == 0, "the text is right");
    require(strlen(str_s(text_.get())) <= model_.size(), "the text is terminated");
    require(text_->bufsz == room_, "the buffer doubles when it must");
  }

 private:
  void append(const std::string& piece) {
    model_ += piece;
    if (model_.size() < room_) return;
    while (room_ < model_.size()) room_ *= 2;
    if (model_.size() == room_) model_.back() = '\0';  // there is no room for both
  }

  std::unique_ptr<str_t, Releaser<str_free>> text_;
  std::string model_;
  size_t room_;
};

// Zero bytes end a line for its reader: what is behind them is lost, in pieces that depend on the buffer.
void read_any_lines(std::string bytes) {
  const File stream(fmemopen(bytes.data(), bytes.size(), "r"));
  const std::unique_ptr<str_t, Releaser<str_free>> text(str_init(1));
  while (str_fgets(text.get(), stream.get()) == 1) {
    require(text->len < text->bufsz && strlen(str_s(text.get())) == text->len, "the text is terminated at its length");
  }
}

void Pair::read_lines(std::string_view bytes) {
  if (bytes.empty()) return;
  read_any_lines(std::string(bytes));
  std::string lines(bytes);
  std::ranges::replace(lines, '\0', '0');
  const File stream(fmemopen(lines.data(), lines.size(), "r"));
  Input expected(reinterpret_cast<const uint8_t*>(lines.data()), lines.size());
  for (;;) {
    const Input before = expected;
    const auto line = expected.line();
    const bool whole = line.size() < Input(before).rest().size();
    const int32_t status = str_fgets(text_.get(), stream.get());
    model_.append(line);
    if (whole) model_ += '\n';
    // How far the buffer grew depends on where the pieces ended.
    require(text_->bufsz >= room_ && text_->bufsz % room_ == 0 && text_->bufsz > model_.size(), "the buffer doubles");
    room_ = text_->bufsz;
    check();
    if (status == 0) {
      require(!whole, "the end comes behind the last line");
      return;
    }
    require(status == 1, "a line is read");
  }
}

void check_tokens(std::string_view text, std::string_view separator) {
  std::vector<std::string> expected;
  for (std::string_view left = text;;) {
    const size_t end = separator.empty() ? std::string_view::npos : left.find(separator);
    expected.emplace_back(left.substr(0, std::min(end, token_size)));
    if (end == std::string_view::npos) break;
    left.remove_prefix(end + separator.size());
  }
  const Text whole = exact(text);
  const Text between = exact(separator);
  str_iter_t iterator = str_iter_new(whole.get(), between.get());
  for (const auto& token : expected) {
    const char* const next = str_iter_next(&iterator);
    require(next != nullptr && token == next, "the tokens are those between the separators");
  }
  require(str_iter_next(&iterator) == nullptr && str_iter_next(&iterator) == nullptr, "and then no more");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  Pair pair(input.byte() % 80);
  while (!input.done()) {
    const uint8_t operation = input.byte();
    switch (operation % 6) {
      case 0:
        pair.print(input.line());
        break;
      case 1:
        pair.print_number(operation - 128, static_cast<int8_t>(input.byte()));
        break;
      case 2:
        pair.clear();
        break;
      case 3:
        pair.print(std::string(input.byte(), 'x'));
        break;
      case 4: {
        const auto separator = std::string(exact(input.line()).get());
        check_tokens(exact(input.line()).get(), separator);
        break;
      }
      default:
        pair.read_lines(input.rest());
        break;
    }
    pair.check();
  }
  return 0;
}
