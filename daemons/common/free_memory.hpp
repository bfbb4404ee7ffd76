// The memory of a process that runs for years.
#ifndef KESTRO_DAEMONS_FREE_MEMORY_HPP
#define KESTRO_DAEMONS_FREE_MEMORY_HPP

namespace kestro::daemons {

// Gives the kernel what the process released. The C library does so only for the end of a heap, and only now and then:
// a text of thousands of brackets, once parsed and refused, would cost half a megabyte until something large is released.
// Takes some ten microseconds for a heap of a megabyte, so it is for once a second. Any thread.
void give_free_memory_back() noexcept;

}  // namespace kestro::daemons

#endif
