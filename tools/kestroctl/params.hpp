// Parameters as they are typed: JSON, "-" for standard input, "@FILE" for a file.
#ifndef KESTRO_CTL_PARAMS_HPP
#define KESTRO_CTL_PARAMS_HPP

#include <string>

#include "core/owned.hpp"

namespace kestro::ctl {

// The object that a text holds. Throws Failure (Usage), showing the place, where it holds none.
Json parse_params(const std::string& text);

// The same for an argument of the command line; null for an empty one.
Json read_params(const std::string& argument);

}  // namespace kestro::ctl

#endif
