// What the engineer on duty reads.
#ifndef KESTRO_CONFIGD_LOG_HPP
#define KESTRO_CONFIGD_LOG_HPP

#include <string>

namespace kestro::configd {

// One line each, without its end. The line number is shown for errors only.
void log_info(const std::string& text);
void log_warning(const std::string& text);
void log_error(const std::string& text, int line = __builtin_LINE());

}  // namespace kestro::configd

#endif
