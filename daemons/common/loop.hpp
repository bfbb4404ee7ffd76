// What a daemon with services does all day: waits for its descriptors, and serves the one that is ready.
#ifndef KESTRO_DAEMONS_LOOP_HPP
#define KESTRO_DAEMONS_LOOP_HPP

#include <chrono>
#include <functional>
#include <vector>

namespace kestro::daemons {

// SIGTERM and SIGINT end the loop. They are blocked from the construction on, so make the loop before anything starts
// threads: the sockets of the bus do.
class Loop {
 public:
  // Throws std::runtime_error when the system has no descriptor for signals.
  Loop();
  Loop(const Loop&) = delete;
  Loop& operator=(const Loop&) = delete;
  ~Loop();

  // Calls `serve` whenever the descriptor, which must outlive the loop, is readable.
  void watch(int fd, std::function<void()> serve);

  // Whether the end was asked for. A handler that waits for long looks at it again and again: the service manager is
  // told that the service is alive, and ends one that says nothing for long.
  [[nodiscard]] bool stopping();

  // Serves until the end is asked for. Tells the service manager when it begins, that it is alive, and when it ends.
  void run();

 private:
  struct Watched {
    int fd;
    std::function<void()> serve;
  };

  void serve_ready(int wait_ms);
  void tell_alive();

  int signals_;
  bool stopping_ = false;
  std::chrono::steady_clock::time_point told_alive_;
  std::vector<Watched> watched_;
};

}  // namespace kestro::daemons

#endif
