// The methods of a service, with what a caller has to know: one table dispatches them and describes them. Descriptions
// begin with a capital and end with a full stop; those of methods say what the method does.
#ifndef KESTRO_DAEMONS_METHODS_HPP
#define KESTRO_DAEMONS_METHODS_HPP

#include <string>
#include <vector>

#include "kestro_jrpc.h"

namespace kestro::daemons {

struct Parameter {
  const char* name;
  const char* type;  // "string", "integer", "boolean", "array", "object"
  const char* what;
  bool required = true;
};
inline constexpr bool optional = false;

struct Method {
  const char* name;
  int32_t (*handler)(json_t* params, json_t** result, json_t** err_data);
  const char* what;
  std::vector<Parameter> parameters = {};
};

class Methods {
 public:
  Methods(std::string service, std::vector<Method> methods);

  // For the run operations of kestro_jrpc.h. Lives as long as this object.
  [[nodiscard]] kestro_jrpc_mapping_t* table() { return table_.data(); }

  // {"service", "version", "methods": [{"name", "description", "params": [{"name", "type", "required", "description"}]}]};
  // a new reference.
  [[nodiscard]] json_t* describe() const;

 private:
  std::string service_;
  std::vector<Method> methods_;
  std::vector<kestro_jrpc_mapping_t> table_;
};

}  // namespace kestro::daemons

#endif
