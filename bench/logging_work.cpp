// Log lines: written to where daemons' standard error leads, and suppressed.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <system_error>

#include "core/log.hpp"
#include "core/owned.hpp"
#include "core/site.hpp"
#include "kestro_lsyslog.h"
#include "work.hpp"

namespace kestro::bench {

namespace {

constexpr auto here = site_of("bench");

Descriptor checked(int fd, const char* what) {
  if (fd < 0) throw std::system_error(errno, std::generic_category(), what);
  return Descriptor(fd);
}

// Standard error leads to another place while a block runs, and back in between: messages of our own are to be seen.
class Diversion {
 public:
  explicit Diversion(int to) : saved_(checked(::dup(STDERR_FILENO), "dup")) { ::dup2(to, STDERR_FILENO); }
  Diversion(const Diversion&) = delete;
  Diversion& operator=(const Diversion&) = delete;
  ~Diversion() { ::dup2(saved_.get(), STDERR_FILENO); }

 private:
  Descriptor saved_;
};

constexpr const char* message = "Port %s of %s is %s, %d clients\n";

void log_line() {
  kestro_lsyslog_log(Info, "bench", __LINE__, message, "c12-3", "switch c12", "enabled", 17);
}

// One formatting and one write of the same line, its time being known.
KESTRO_PRINTF(1, 2) void write_line(const char* format, ...) {
  std::array<char, 8192> line;
  va_list args;
  va_start(args, format);
  const int length = vsnprintf(line.data(), line.size(), format, args);
  va_end(args);
  if (::write(STDERR_FILENO, line.data(), static_cast<size_t>(length)) != length) perror("write");
}

void bare_line() {
  write_line("[%s] [%s] [%s] Port %s of %s is %s, %d clients\n", "2021-03-04 17:05:09.042", "INFO", "bench", "c12-3",
             "switch c12", "enabled", 17);
}

Repeat diverted(std::shared_ptr<Descriptor> to, void (*operation)()) {
  return [to = std::move(to), operation](size_t times) {
    const Diversion diversion(to->get());
    for (size_t i = 0; i < times; ++i) operation();
  };
}

Pair lines_to(const std::shared_ptr<Descriptor>& to) {
  return {diverted(to, log_line), diverted(to, bare_line)};
}

Pair to_null() {
  return lines_to(std::make_shared<Descriptor>(checked(::open("/dev/null", O_WRONLY | O_CLOEXEC), "/dev/null")));
}

// A block fits into the pipe, which is emptied before the next.
Pair to_pipe() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0)
    throw std::system_error(errno, std::generic_category(), "pipe");
  const auto reader = std::make_shared<Descriptor>(ends[0]);
  Pair pair = lines_to(std::make_shared<Descriptor>(ends[1]));
  pair.tidy_up = [reader] {
    std::array<char, 65536> bytes;
    while (::read(reader->get(), bytes.data(), bytes.size()) > 0) {
    }
  };
  return pair;
}

Pair to_file() {
  const auto file =
      std::make_shared<Descriptor>(checked(::open("/tmp", O_TMPFILE | O_WRONLY | O_APPEND | O_CLOEXEC, 0600), "/tmp"));
  Pair pair = lines_to(file);
  pair.tidy_up = [file] {
    if (::ftruncate(file->get(), 0) != 0) perror("ftruncate");
  };
  return pair;
}

Repeat empty_loop() {
  return repeat([] { benchmark::ClobberMemory(); });
}

// As modules of the library do it.
Pair suppressed() {
  return {repeat([] {
            here().log(Verbose, "Retrieving port id %s...\n", "c12-3");
            benchmark::ClobberMemory();
          }),
          empty_loop()};
}

// As daemons do it.
Pair suppressed_by_check() {
  return {repeat([] {
            if (kestro_lsyslog_check_severity(Verbose) != 0) {
              kestro_lsyslog_log(Verbose, "bench", __LINE__, "Retrieving port id %s...\n", "c12-3");
            }
            benchmark::ClobberMemory();
          }),
          empty_loop()};
}

}  // namespace

std::vector<Work> logging_work() {
  constexpr size_t many = 10'000;
  return {
      {.name = "log: a line to /dev/null", .target = 1.10, .prepare = to_null, .block = 256},
      {.name = "log: a line to a pipe", .target = 1.10, .prepare = to_pipe, .block = 256},
      {.name = "log: a line to a file", .target = 1.10, .prepare = to_file, .block = 256},
      {.name = "log: suppressed",
       .target = 2,
       .prepare = suppressed,
       .block = many,
       .measure = Measure::ExtraNanoseconds},
      {.name = "log: suppressed by the caller's check",
       .target = 2,
       .prepare = suppressed_by_check,
       .block = many,
       .measure = Measure::ExtraNanoseconds},
  };
}

}  // namespace kestro::bench
