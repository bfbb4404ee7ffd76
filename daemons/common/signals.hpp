// The signals that ask a program to end.
#ifndef KESTRO_DAEMONS_SIGNALS_HPP
#define KESTRO_DAEMONS_SIGNALS_HPP

namespace kestro::daemons {

// Blocks SIGTERM and SIGINT, and gives a descriptor, the caller's, that is readable once one of them came; reading never
// waits. To be called before anything starts threads, which inherit what is blocked: the sockets of the bus do. Throws
// std::runtime_error, with the signals as they were, when the system has no descriptor.
int block_ending_signals();

}  // namespace kestro::daemons

#endif
