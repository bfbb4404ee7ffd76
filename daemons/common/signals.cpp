#include "common/signals.hpp"

#include <sys/signalfd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <string>

namespace kestro::daemons {

int block_ending_signals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  const int fd = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
  if (fd < 0) throw std::runtime_error(std::string("signalfd: ") + strerror(errno));
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  return fd;
}

}  // namespace kestro::daemons
