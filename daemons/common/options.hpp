// What the command lines of the daemons have in common.
#ifndef KESTRO_DAEMONS_OPTIONS_HPP
#define KESTRO_DAEMONS_OPTIONS_HPP

#include <CLI/CLI.hpp>
#include <cstdint>
#include <functional>
#include <string>

#include "common/bus_addresses.hpp"

namespace kestro::daemons {

// Accepts tcp://HOST:PORT of a length that the bus takes.
CLI::Validator bus_address();

// Accepts whole numbers from `lowest` on.
CLI::Validator at_least(uint64_t lowest);

// Accepts a number of seconds within these bounds.
CLI::Validator seconds(double shortest, double longest);

// Accepts whatever is not empty.
CLI::Validator path();

// --version, a help of even columns, and the name of the program, with its verb, before what is wrong with a command
// line.
void add_basics(CLI::App& app);

// --bus-publish and --bus-subscribe; the texts say what travels there.
void add_bus_options(CLI::App& app, BusAddresses& bus, const std::string& publishes, const std::string& subscribes);

// Parses the command line and runs `check`, which may throw a CLI::ParseError of its own. Prints help, version or what
// is wrong and ends the process where there is nothing to run: with 0, or 2 for a wrong command line.
void parse_or_exit(CLI::App& app, int argc, char** argv, const std::function<void()>& check = nullptr);

}  // namespace kestro::daemons

#endif
