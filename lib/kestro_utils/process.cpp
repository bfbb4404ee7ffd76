#include <pthread.h>

#include <csignal>

#include "core/site.hpp"
#include "core/status.hpp"
#include "kestro_mq.h"
#include "kestro_utils.h"

using namespace kestro;

namespace {
constexpr auto here = site_of("kestro_utils");
}

void kestro_signal(int32_t sig, void (*func)(int)) noexcept {
  struct sigaction action {};
  action.sa_handler = func;
  sigemptyset(&action.sa_mask);
  sigaction(sig, &action, nullptr);
}

void kestro_terminate_process(void) noexcept {
  here().log(Error, "Terminating, raise SIGTERM\n");
  raise(SIGTERM);
}

void kestro_panic(const char* msg) noexcept {
  here().log(Error, "PANIC: %s\n", printable(msg));
  print_stacktrace();
  raise(SIGABRT);
}

void kestro_spawn_detached_thread(void* (*fn)(void*), void* input) noexcept {
  pthread_attr_t detached;
  pthread_attr_init(&detached);
  pthread_attr_setdetachstate(&detached, PTHREAD_CREATE_DETACHED);
  pthread_t thread{};
  pthread_create(&thread, &detached, fn, input);
  pthread_attr_destroy(&detached);
  here().log(Info, "finished spawning thread\n");
}

int32_t kestro_get_nn_rcvfd(int32_t sfd, int32_t* rcvfd) noexcept {
  return kestro_mq_socket_recvfd(sfd, rcvfd) == status::ok ? status::ok : status::general_error;
}
