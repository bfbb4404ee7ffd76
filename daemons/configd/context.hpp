// What the handlers work with.
#ifndef KESTRO_CONFIGD_CONTEXT_HPP
#define KESTRO_CONFIGD_CONTEXT_HPP

#include <functional>
#include <string>

#include "configd/applier.hpp"
#include "configd/core_switch.hpp"
#include "configd/database.hpp"

namespace kestro::configd {

struct Context {
  Database& database;
  CoreSwitch& core_switch;
  Applier& applier;
  std::string update_dir;
  std::function<Json()> describe;               // the methods
  std::function<void()> tell_others_to_reload;  // their log levels
};

}  // namespace kestro::configd

#endif
