// What the engineer on duty reads.
#ifndef KESTRO_DAEMONS_LOG_HPP
#define KESTRO_DAEMONS_LOG_HPP

#include <string>

namespace kestro::daemons {

// The text with each control character as "?": what clients write begins no line of its own, and does not speak to a
// terminal.
std::string one_line(std::string text);

// One line each, without its end, as one_line() makes it. Only errors show the source file and the line.
void log_info(const std::string& text);
void log_warning(const std::string& text);
void log_error(const std::string& text, const char* file = __builtin_FILE(), int line = __builtin_LINE());

}  // namespace kestro::daemons

#endif
