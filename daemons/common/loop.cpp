#include "common/loop.hpp"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <utility>

#include "common/free_memory.hpp"
#include "common/notify.hpp"
#include "common/signals.hpp"

namespace kestro::daemons {

namespace {

constexpr std::chrono::duration<int, std::milli> heartbeat{1000};

}  // namespace

Loop::Loop() : signals_(block_ending_signals()) {}

Loop::~Loop() {
  ::close(signals_);
}

void Loop::watch(int fd, std::function<void()> serve) {
  watched_.push_back({fd, std::move(serve)});
}

bool Loop::stopping() {
  signalfd_siginfo signal{};
  if (::read(signals_, &signal, sizeof signal) == sizeof signal) stopping_ = true;
  tell_alive();
  return stopping_;
}

void Loop::run() {
  notify("READY=1");
  while (!stopping()) serve_ready(heartbeat.count());
  notify("STOPPING=1");
}

void Loop::tell_alive() {
  const auto now = std::chrono::steady_clock::now();
  if (now - told_alive_ < heartbeat) return;
  notify("WATCHDOG=1");
  give_free_memory_back();
  told_alive_ = now;
}

void Loop::serve_ready(int wait_ms) {
  std::vector<pollfd> descriptors{{signals_, POLLIN, 0}};
  for (const auto& watched : watched_) descriptors.push_back({watched.fd, POLLIN, 0});
  if (::poll(descriptors.data(), descriptors.size(), wait_ms) <= 0) return;
  for (size_t i = 0; i < watched_.size(); ++i) {
    if (descriptors[i + 1].revents != 0) watched_[i].serve();
  }
}

}  // namespace kestro::daemons
