#include "kestroctl/output.hpp"

#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace kestro::ctl {

namespace {

constexpr std::array<const char*, 8> codes = {"",        "\33[31m", "\33[32m", "\33[33m",
                                              "\33[34m", "\33[36m", "\33[90m", "\33[1m"};
constexpr const char* reset = "\33[0m";

bool is_set(const char* variable) {
  const char* const value = getenv(variable);
  return value != nullptr && *value != '\0';
}

// The length of a control character that JSON leaves unescaped: DEL, and U+0080 to U+009F, which terminals obey too.
size_t control_at(std::string_view text, size_t place) {
  const auto byte = [text](size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U; };
  if (byte(place) == 0x7f) return 1;
  return byte(place) == 0xc2 && byte(place + 1) >= 0x80 && byte(place + 1) < 0xa0 ? 2 : 0;
}

bool holds_controls(std::string_view text) {
  for (size_t i = 0; i < text.size(); ++i) {
    if (control_at(text, i) != 0) return true;
  }
  return false;
}

bool holds_real(const json_t* value) {
  const char* key = nullptr;
  json_t* member = nullptr;
  json_object_foreach(const_cast<json_t*>(value), key, member) {
    if (holds_real(member)) return true;
  }
  for (size_t i = 0; i < json_array_size(value); ++i) {
    if (holds_real(json_array_get(value, i))) return true;
  }
  return json_is_real(value);
}

// Numbers in as few digits as keep their value: 43.1 and not 43.100000000000001.
std::string dump(const json_t* value, size_t flags) {
  if (holds_real(value)) {
    const Text brief(json_dumps(value, flags | JSON_ENCODE_ANY | JSON_REAL_PRECISION(15)));
    const Json read(brief ? json_loads(brief.get(), JSON_DECODE_ANY, nullptr) : nullptr);
    if (json_equal(read.get(), value) != 0) return brief.get();
  }
  const Text text(json_dumps(value, flags | JSON_ENCODE_ANY));
  return text ? text.get() : "";
}

// One value that is no container, or a key.
std::string dump_scalar(const json_t* value) {
  std::string text = dump(value, 0);
  return holds_controls(text) ? tame(dump(value, JSON_ENSURE_ASCII)) : text;
}

Colour colour_of(const json_t* value) {
  if (json_is_string(value)) return Colour::Green;
  if (json_is_number(value)) return Colour::Cyan;
  return json_is_null(value) ? Colour::Grey : Colour::Yellow;
}

class Printer {
 public:
  explicit Printer(Look look) : look_(look) {}

  std::string print(const json_t* value) {
    add(value, 0);
    return std::move(text_);
  }

 private:
  void add(const json_t* value, size_t depth) {
    if (json_is_object(value) && json_object_size(value) > 0) {
      add_object(value, depth);
    } else if (json_is_array(value) && json_array_size(value) > 0) {
      add_array(value, depth);
    } else {
      text_ += paint(dump_scalar(value), colour_of(value), look_);
    }
  }
  void add_object(const json_t* object, size_t depth) {
    text_ += "{";
    const char* key = nullptr;
    json_t* member = nullptr;
    bool first = true;
    json_object_foreach(const_cast<json_t*>(object), key, member) {
      start_line(first, depth + 1);
      const Json name(json_string(key));
      text_ += paint(dump_scalar(name.get()), Colour::Blue, look_) + ": ";
      add(member, depth + 1);
    }
    end_lines(depth);
    text_ += "}";
  }
  void add_array(const json_t* array, size_t depth) {
    text_ += "[";
    bool first = true;
    for (size_t i = 0; i < json_array_size(array); ++i) {
      start_line(first, depth + 1);
      add(json_array_get(array, i), depth + 1);
    }
    end_lines(depth);
    text_ += "]";
  }
  void start_line(bool& first, size_t depth) {
    text_ += first ? "\n" : ",\n";
    text_.append(2 * depth, ' ');
    first = false;
  }
  void end_lines(size_t depth) {
    text_ += "\n";
    text_.append(2 * depth, ' ');
  }

  Look look_;
  std::string text_;
};

}  // namespace

Look look_of(int fd) {
  if (isatty(fd) == 0) return {};
  const char* const terminal = getenv("TERM");
  const bool dumb = terminal != nullptr && strcmp(terminal, "dumb") == 0;
  return {.pretty = true, .coloured = !is_set("NO_COLOR") && !dumb};
}

size_t width_of(int fd) {
  winsize size{};
  return isatty(fd) != 0 && ioctl(fd, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

std::string paint(std::string_view text, Colour colour, Look look) {
  if (!look.coloured || colour == Colour::None || text.empty()) return std::string(text);
  return codes[static_cast<size_t>(colour)] + std::string(text) + reset;
}

std::string json_text(const json_t* value, Look look) {
  if (!look.pretty) return dump(value, JSON_COMPACT | JSON_ENSURE_ASCII);
  return Printer(look).print(value);
}

std::string format(const char* text, ...) {
  std::array<char, 256> line{};
  va_list values;
  va_start(values, text);
  vsnprintf(line.data(), line.size(), text, values);
  va_end(values);
  return line.data();
}

std::string tame(std::string_view text) {
  std::string tamed(text);
  for (size_t i = 0; i < tamed.size(); ++i) {
    if (static_cast<unsigned char>(tamed[i]) < 0x20) tamed[i] = '?';
    const size_t length = control_at(tamed, i);
    tamed.replace(i, length, length, '?');
  }
  return tamed;
}

Line& Line::add(std::string_view text, Colour colour, size_t width) {
  Part part{tame(text), colour};
  if (part.text.size() < width) part.text.append(width - part.text.size(), ' ');
  parts_.push_back(std::move(part));
  return *this;
}

std::string Line::text(size_t columns) const {
  std::string line;
  size_t left = columns == 0 ? std::string::npos : columns;
  for (const auto& part : parts_) {
    if (part.text.empty()) continue;
    const size_t gap = line.empty() ? 0 : 1;
    if (part.text.size() + gap > left) {
      if (left > gap)
        line += std::string(gap, ' ') + paint(part.text.substr(0, left - gap - 1) + "~", part.colour, look_);
      break;
    }
    line += std::string(gap, ' ') + paint(part.text, part.colour, look_);
    left -= part.text.size() + gap;
  }
  return line;
}

void print(std::string_view line) {
  const bool written = fwrite(line.data(), 1, line.size(), stdout) == line.size() && fputc('\n', stdout) != EOF;
  if (!written || fflush(stdout) != 0) {
    say(std::string("cannot write to standard output: ") + strerror(errno));
    std::exit(1);
  }
}

void say(std::string_view message) {
  say_plainly("kestroctl: " + std::string(message));
}

void say_plainly(std::string_view line) {
  fprintf(stderr, "%.*s\n", static_cast<int>(line.size()), line.data());
}

}  // namespace kestro::ctl
