// Preloaded before a library that moves the clock of a process: that one moves timers of the monotonic clock as well,
// whatever it is told, and refuses some. A clock that jumps leaves those timers alone, and so does this.
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <unistd.h>

int timerfd_settime(int timer, int flags, const struct itimerspec* value, struct itimerspec* old) {
  return (int)syscall(SYS_timerfd_settime, timer, flags, value, old);
}
