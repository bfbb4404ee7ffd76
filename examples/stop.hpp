// How the examples end: SIGTERM and SIGINT ask for it, and the loops look at running().
#ifndef KESTRO_EXAMPLES_STOP_HPP
#define KESTRO_EXAMPLES_STOP_HPP

#include <csignal>

inline volatile std::sig_atomic_t stop_asked = 0;

inline bool running() {
  return stop_asked == 0;
}

// Without SA_RESTART, so that a waiting call returns and the loop gets to look.
inline void stop_on_signals() {
  struct sigaction action {};
  action.sa_handler = [](int) { stop_asked = 1; };
  sigaction(SIGTERM, &action, nullptr);
  sigaction(SIGINT, &action, nullptr);
}

#endif
