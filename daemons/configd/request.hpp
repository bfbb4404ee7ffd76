// The parameters of a request, read and checked. Whatever is missing or refused is thrown as a Failure.
#ifndef KESTRO_CONFIGD_REQUEST_HPP
#define KESTRO_CONFIGD_REQUEST_HPP

#include <cstdint>
#include <string>
#include <vector>

#include "configd/handles.hpp"
#include "configd/port.hpp"

namespace kestro::configd {

class Request {
 public:
  // Both as a handler gets them. Explanations of the readers are left in `*err_data`.
  Request(json_t* params, json_t** err_data);

  [[nodiscard]] bool has(const char* name) const { return json_object_get(params_.get(), name) != nullptr; }
  [[nodiscard]] json_t* params() const { return params_.get(); }

  // "c1" to "c512"
  [[nodiscard]] int32_t switch_number(const char* name) const;
  // One port of either kind.
  [[nodiscard]] PortId port(const char* name) const;
  // A port of either kind, all ports of a switch, or "all".
  [[nodiscard]] PortRange ports(const char* name) const;
  // A port or all ports of an edge switch.
  [[nodiscard]] PortRange ports_of_one_switch(const char* name) const;

  [[nodiscard]] int32_t model(const char* name) const;
  // Of a device, not of a group.
  [[nodiscard]] std::string device_mac_address(const char* name) const;
  [[nodiscard]] std::string alias(const char* name) const;
  [[nodiscard]] std::string description(const char* name) const;
  [[nodiscard]] bool boolean(const char* name) const;
  [[nodiscard]] int32_t vlan_id(const char* name) const;
  [[nodiscard]] std::vector<int32_t> vlan_ids(const char* name) const;
  // For the port that they are read for.
  [[nodiscard]] std::vector<MacFilter> mac_filters(const char* name, const PortId& port) const;
  // Cut at 50 bytes, as it was when it was stored.
  [[nodiscard]] std::string service_name(const char* name) const;
  // A name for a file that is to be written.
  [[nodiscard]] std::string new_filename(const char* name) const;
  // The name of an uploaded file: a name with leading dashes is renamed in the directory of uploads.
  [[nodiscard]] std::string uploaded_filename(const char* name) const;

 private:
  enum class All { refused, admitted };
  [[nodiscard]] PortRange port_range(const char* name, All all, bool one_port_only) const;

  Json params_;
  json_t** err_data_;
};

}  // namespace kestro::configd

#endif
