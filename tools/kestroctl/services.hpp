// What services say of their methods.
#ifndef KESTRO_CTL_SERVICES_HPP
#define KESTRO_CTL_SERVICES_HPP

#include <string>
#include <vector>

#include "core/owned.hpp"
#include "kestroctl/client.hpp"

namespace kestro::ctl {

struct Parameter {
  std::string name;
  std::string type;
  std::string description;
  bool required = true;
};

struct Method {
  std::string name;
  std::string service;
  std::string description;
  std::vector<Parameter> parameters;
  bool reached = true;  // whether the router sends it to this service
};

struct Services {
  std::vector<Method> methods;  // by name, each once
  Exit status = Exit::Done;     // of the first service that did not describe itself
};

// The methods in a description, in any order.
std::vector<Method> read_description(const json_t* description);

// By name, each once: where several services have a method, it is that of the one which the router sends it to.
std::vector<Method> merge(std::vector<Method> methods);

// Asks every service. One that does not answer is told on standard error. Throws Failure when the router cannot be
// reached.
Services discover(const RouterAddress& router, Seconds patience);

// A call that shows how, with values that look like what is asked for.
std::string example_call(const Method& method);

}  // namespace kestro::ctl

#endif
