// The router's counters as a table.
#ifndef KESTRO_CTL_STATS_TABLE_HPP
#define KESTRO_CTL_STATS_TABLE_HPP

#include <jansson.h>

#include <string>

#include "kestroctl/output.hpp"

namespace kestro::ctl {

// Lines for a terminal or a pipe. `before` may be null; otherwise it holds the counters of `seconds` ago, and rates are
// shown.
std::string stats_table(const json_t* counters, const json_t* before, double seconds, Look look);

}  // namespace kestro::ctl

#endif
