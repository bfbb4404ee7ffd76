#include "common/methods.hpp"

#include <utility>

namespace kestro::daemons {

namespace {

json_t* describe_parameters(const std::vector<Parameter>& parameters) {
  json_t* const list = json_array();
  for (const auto& parameter : parameters) {
    json_array_append_new(list, json_pack("{s:s,s:s,s:b,s:s}", "name", parameter.name, "type", parameter.type,
                                          "required", parameter.required, "description", parameter.what));
  }
  return list;
}

}  // namespace

Methods::Methods(std::string service, std::vector<Method> methods)
    : service_(std::move(service)), methods_(std::move(methods)) {
  for (const auto& method : methods_) table_.push_back({method.name, method.handler});
  table_.push_back({nullptr, nullptr});
}

json_t* Methods::describe() const {
  json_t* const list = json_array();
  for (const auto& method : methods_) {
    json_array_append_new(list, json_pack("{s:s,s:s,s:o}", "name", method.name, "description", method.what, "params",
                                          describe_parameters(method.parameters)));
  }
  return json_pack("{s:s,s:s,s:o}", "service", service_.c_str(), "version", KESTRO_VERSION, "methods", list);
}

}  // namespace kestro::daemons
