#include "kestroctl/services.hpp"

#include <algorithm>
#include <cstring>
#include <future>
#include <optional>
#include <string_view>
#include <tuple>

#include "kestro_jrpc/envelope.hpp"
#include "kestroctl/output.hpp"

namespace kestro::ctl {

namespace {

// The channel that a discovery method travels on decides which service is asked.
struct Source {
  const char* service;
  const char* method;
};
constexpr Source sources[] = {
    {"configuration", "network.service.Discover"},
    {"hardware", "rpc.discover"},
};

// Whether the router sends both to the same service.
bool travels_as(const char* one, const std::string& other) {
  const Text channel(kestro_jrpc_router_extract_channel(one));
  const Text other_channel(kestro_jrpc_router_extract_channel(other.c_str()));
  return channel && other_channel && strcmp(channel.get(), other_channel.get()) == 0;
}

Parameter read_parameter(const json_t* parameter) {
  return {text_member(parameter, "name"), text_member(parameter, "type"), text_member(parameter, "description"),
          !json_is_false(json_object_get(parameter, "required"))};
}

struct Sample {
  const char* name;
  const char* value;
};
constexpr Sample by_name[] = {
    {"port_id", R"("c1-1")"},
    {"oec_id", R"("c1")"},
    {"vlan_id", "10"},
    {"vlan_ids", "[10,20]"},
    {"mac_address", R"("02:00:00:00:00:01")"},
    {"mac_filters", R"([{"mac":"02:00:00:00:00:01","mask":"FF:FF:FF:FF:FF:FF"}])"},
    {"model", R"("VTR-E30p")"},
    {"service_name", R"("lobby")"},
    {"address_range", R"("10.0.0.0/24")"},
    {"dhcp_range", R"("10.0.0.10-10.0.0.20")"},
    {"static_leases", R"([{"ip":"10.0.0.2","mac":"02:00:00:00:00:01"}])"},
    {"db_filename", R"("backup.db")"},
    {"fault", R"("none")"},
    {"port_numbers", "[1,2]"},
};
constexpr Sample by_type[] = {
    {"integer", "1"}, {"number", "1"}, {"boolean", "true"}, {"array", "[]"}, {"object", "{}"},
};

std::string sample_of(const Parameter& parameter) {
  for (const auto& row : by_name) {
    if (parameter.name == row.name) return row.value;
  }
  for (const auto& row : by_type) {
    if (parameter.type == row.name) return row.value;
  }
  return R"("...")";
}

}  // namespace

std::vector<Method> read_description(const json_t* description) {
  std::vector<Method> methods;
  const json_t* const list = json_object_get(description, "methods");
  for (size_t i = 0; i < json_array_size(list); ++i) {
    const json_t* const row = json_array_get(list, i);
    Method method{
        text_member(row, "name"), text_member(description, "service"), text_member(row, "description"), {}, true};
    const json_t* const parameters = json_object_get(row, "params");
    for (size_t j = 0; j < json_array_size(parameters); ++j) {
      method.parameters.push_back(read_parameter(json_array_get(parameters, j)));
    }
    if (!method.name.empty()) methods.push_back(std::move(method));
  }
  return methods;
}

std::vector<Method> merge(std::vector<Method> methods) {
  std::sort(methods.begin(), methods.end(), [](const Method& a, const Method& b) {
    return std::tuple(std::string_view(a.name), !a.reached) < std::tuple(std::string_view(b.name), !b.reached);
  });
  const auto same = [](const Method& a, const Method& b) { return a.name == b.name; };
  methods.erase(std::unique(methods.begin(), methods.end(), same), methods.end());
  return methods;
}

Services discover(const RouterAddress& router, Seconds patience) {
  std::vector<std::future<Answer>> answers;
  for (const auto& source : sources) {
    answers.push_back(std::async(
        std::launch::async, [&router, &source, patience] { return call(router, source.method, nullptr, patience); }));
  }
  Services services;
  std::optional<Failure> unreachable;
  const auto note = [&services](Exit status) {
    if (services.status == Exit::Done) services.status = status;
  };
  for (size_t i = 0; i < answers.size(); ++i) {
    const auto& source = sources[i];
    try {
      const Answer answer = answers[i].get();
      auto methods = read_description(answer.result());
      for (auto& method : methods) method.reached = travels_as(source.method, method.name);
      std::move(methods.begin(), methods.end(), std::back_inserter(services.methods));
      if (!answer.is_error()) continue;
      say(std::string("the ") + source.service + " service does not describe itself (" + source.method +
          "): " + tame(answer.message()));
      note(answer.status());
    } catch (const Failure& failure) {
      if (failure.status() == Exit::CannotConnect)
        unreachable = failure;
      else
        say(std::string("the ") + source.service + " service does not answer (" + source.method +
            "): " + failure.what());
      note(failure.status());
    }
  }
  if (unreachable) throw Failure(*unreachable);
  services.methods = merge(std::move(services.methods));
  return services;
}

std::string example_call(const Method& method) {
  std::string params;
  for (const auto& parameter : method.parameters) {
    if (!parameter.required) continue;
    params += (params.empty() ? "" : ", ") + std::string("\"") + parameter.name + "\": " + sample_of(parameter);
  }
  return "kestroctl call " + method.name + (params.empty() ? "" : " '{" + params + "}'");
}

}  // namespace kestro::ctl
