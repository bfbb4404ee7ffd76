// How the cost of evaluation grows.
#ifndef KESTRO_BENCH_CURVES_HPP
#define KESTRO_BENCH_CURVES_HPP

namespace kestro::bench {

// Writes a table for each into the directory. False when one cannot be written.
bool write_curves(const char* directory);

}  // namespace kestro::bench

#endif
