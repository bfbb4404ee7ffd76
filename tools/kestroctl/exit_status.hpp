// How kestroctl ends.
#ifndef KESTRO_CTL_EXIT_STATUS_HPP
#define KESTRO_CTL_EXIT_STATUS_HPP

#include <stdexcept>
#include <string>

namespace kestro::ctl {

enum class Exit : int {
  Done = 0,
  Refused = 1,  // the service answered an error, the router closed without an answer, a value was refused
  Usage = 2,
  NoAnswer = 3,
  CannotConnect = 4,
  Busy = 5,
};

// What ends a verb: its message goes to standard error.
class Failure : public std::runtime_error {
 public:
  Failure(Exit status, const std::string& message) : std::runtime_error(message), status_(status) {}
  [[nodiscard]] Exit status() const noexcept { return status_; }

 private:
  Exit status_;
};

}  // namespace kestro::ctl

#endif
