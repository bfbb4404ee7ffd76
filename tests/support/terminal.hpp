// A program on a terminal of its own, as somebody at a keyboard has it.
#ifndef KESTRO_TESTS_TERMINAL_HPP
#define KESTRO_TESTS_TERMINAL_HPP

#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "core/owned.hpp"

namespace kestro::test {

struct Shown {
  std::string text;  // standard output and standard error, line ends as the program wrote them
  int status = 0;    // as Process::wait() gives it
};

// Runs a program, given by its path, until it ends. `environment` adds to the test's own ("NAME=value").
inline Shown run_on_terminal(std::vector<std::string> arguments, std::vector<std::string> environment = {},
                             unsigned short columns = 80) {
  const winsize size{24, columns, 0, 0};
  std::vector<char*> pointers;
  for (auto& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  int raw = -1;
  const pid_t pid = forkpty(&raw, nullptr, nullptr, &size);
  if (pid < 0) throw std::runtime_error("no terminal");
  if (pid == 0) {
    for (auto& variable : environment) putenv(variable.data());
    execv(pointers[0], pointers.data());
    _exit(127);
  }
  const Descriptor terminal(raw);
  Shown shown;
  std::array<char, 4096> piece;
  for (;;) {
    const ssize_t count = read(terminal.get(), piece.data(), piece.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    for (ssize_t i = 0; i < count; ++i) {
      if (piece[static_cast<size_t>(i)] != '\r') shown.text += piece[static_cast<size_t>(i)];
    }
  }
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  shown.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return shown;
}

}  // namespace kestro::test

#endif
