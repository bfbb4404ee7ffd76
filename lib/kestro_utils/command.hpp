// Shell commands: building a line, running it, reading what it says.
#ifndef KESTRO_UTILS_COMMAND_HPP
#define KESTRO_UTILS_COMMAND_HPP

#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdio>

#include "core/owned.hpp"
#include "kestro_general.h"

namespace kestro {

// The output of a running command. Closing it waits for the command to end.
using Pipe = Owned<FILE, ::pclose>;

// Starts a command; null, with errno set, when that fails. No other child inherits the pipe.
Pipe run_command(const char* line) noexcept;

// As fgets(): at most `size` - 1 characters, the line feed kept. False, with the buffer untouched, when there is
// nothing to read. A signal that interrupts the wait ends neither line nor output.
bool read_line(FILE* stream, char* line, size_t size) noexcept;

template <size_t Size>
bool read_line(const Pipe& stream, std::array<char, Size>& line) noexcept {
  return read_line(stream.get(), line.data(), line.size());
}

// Appends formatted text to a buffer. False, after a log line, when it does not fit.
bool append_text(char* buffer, size_t size, const char* format, va_list args) noexcept;

// A command line of less than `Size` characters. One that does not fit must not be run: what is left of it would be
// another command.
template <size_t Size>
class CommandLine {
 public:
  CommandLine& append(const char* format, ...) noexcept KESTRO_PRINTF(2, 3) {
    va_list args;
    va_start(args, format);
    fits_ = fits_ && append_text(text_.data(), text_.size(), format, args);
    va_end(args);
    return *this;
  }
  [[nodiscard]] const char* text() const noexcept { return text_.data(); }
  [[nodiscard]] bool fits() const noexcept { return fits_; }
  [[nodiscard]] Pipe run() const noexcept { return fits_ ? run_command(text()) : Pipe(); }

 private:
  std::array<char, Size> text_{};
  bool fits_ = true;
};

}  // namespace kestro

#endif
