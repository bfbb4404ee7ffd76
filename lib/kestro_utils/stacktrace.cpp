#include "kestro_utils.h"

// Weak: a program that can print a stack defines its own.
__attribute__((weak)) void print_stacktrace(void) noexcept {}
