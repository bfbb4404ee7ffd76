// What the engineer on duty reads.
#ifndef KESTRO_DAEMONS_LOG_HPP
#define KESTRO_DAEMONS_LOG_HPP

#include <string>

namespace kestro::daemons {

// One line each, without its end. Control characters are shown as "?": texts of clients begin no lines of their own,
// and do not speak to a terminal. Only errors show the source file and the line.
void log_info(const std::string& text);
void log_warning(const std::string& text);
void log_error(const std::string& text, const char* file = __builtin_FILE(), int line = __builtin_LINE());

}  // namespace kestro::daemons

#endif
