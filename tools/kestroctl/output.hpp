// What goes to standard output and standard error, and how it looks there: for eyes on a terminal, for programs in a
// pipe.
#ifndef KESTRO_CTL_OUTPUT_HPP
#define KESTRO_CTL_OUTPUT_HPP

#include <jansson.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "core/owned.hpp"
#include "kestro_general.h"

namespace kestro::ctl {

enum class Colour { None, Red, Green, Yellow, Blue, Cyan, Grey, Bold };

struct Look {
  bool pretty = false;
  bool coloured = false;
};
// On a terminal pretty and, unless NO_COLOR is set or the terminal is a dumb one, coloured.
Look look_of(int fd);
// Columns of the terminal; 0 where there is none.
size_t width_of(int fd);

std::string paint(std::string_view text, Colour colour, Look look);

// A JSON text, without a line feed at its end. Compact ones are ASCII.
std::string json_text(const json_t* value, Look look = {});

// What printf() would print, at most 255 characters of it.
std::string format(const char* text, ...) KESTRO_PRINTF(1, 2);

// A text that others wrote, as one line that leaves a terminal alone: control characters become "?".
std::string tame(std::string_view text);

// A line of parts in colours, which may be cut to a width. What is added is tamed.
class Line {
 public:
  explicit Line(Look look) : look_(look) {}
  // `width` is the least number of columns; a blank follows.
  Line& add(std::string_view text, Colour colour = Colour::None, size_t width = 0);
  // At most `columns` of them, if that is not 0; what was cut ends in "~".
  [[nodiscard]] std::string text(size_t columns = 0) const;

 private:
  struct Part {
    std::string text;
    Colour colour;
  };
  Look look_;
  std::vector<Part> parts_;
};

// A line on standard output, at once. The program ends quietly when nobody reads any more.
void print(std::string_view line);
// A line on standard error: "kestroctl: ...".
void say(std::string_view message);
// A line on standard error as it stands.
void say_plainly(std::string_view line);

}  // namespace kestro::ctl

#endif
