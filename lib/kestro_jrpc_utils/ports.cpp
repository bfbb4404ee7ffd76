// Lists of ports.
#include <algorithm>
#include <cstring>

#include "kestro_jrpc_utils.h"
#include "kestro_jrpc_utils/fields.hpp"
#include "kestro_jrpc_utils/site.hpp"

using namespace kestro;
using namespace kestro::jrpc_utils;

namespace {

// One element. All its members are read, also after one has failed, so that the log tells everything that is wrong.
class Element {
 public:
  Element(const json_t* object, json_t** err_data) noexcept : object_(object), err_data_(err_data) {}

  void port_number(int32_t* out) noexcept {
    note(kestro_jrpc_utils_retrieve_input_port_number(object_, err_data_, "port_number", out));
  }
  void vlan_ids(int32_t* vlan_ids, int32_t* count) noexcept {
    note(kestro_jrpc_utils_retrieve_input_vlan_ids(object_, err_data_, "vlan_ids", vlan_ids, count));
  }
  int32_t integer(const char* name) noexcept {
    int32_t value = 0;
    note(kestro_jrpc_utils_parse_input_integer(object_, err_data_, name, &value));
    return value;
  }
  [[nodiscard]] bool is_sound() const noexcept { return sound_; }

 private:
  void note(int32_t result) noexcept { sound_ = sound_ && result == status::ok; }

  const json_t* object_;
  json_t** err_data_;
  bool sound_ = true;
};

// A number that may be none of the enumeration: copied as bytes, since C++ does not define the conversion.
template <class Enum>
void store(Enum& field, int32_t number) noexcept {
  static_assert(sizeof(field) == sizeof(number));
  memcpy(&field, &number, sizeof(number));
}

bool read(Element element, kestro_data_port& port) noexcept {
  element.port_number(&port.port_number);
  const int32_t port_status = element.integer("port_status");
  const int32_t poe_status = element.integer("poe_status");
  const int32_t link_status = element.integer("link_status");
  const int32_t link_speed = element.integer("link_speed");
  const int32_t vlan_mode = element.integer("vlan_mode");
  element.vlan_ids(port.vlan_id, &port.num_of_vlan_ids);
  if (!element.is_sound()) return false;
  store(port.port_status, port_status);
  store(port.poe_status, poe_status);
  store(port.link_status, link_status);
  store(port.link_speed, link_speed);
  store(port.vlan_mode, vlan_mode);
  return true;
}

bool read(Element element, kestro_onu_port_hardware_info_t& port) noexcept {
  element.port_number(&port.port_number);
  const int32_t poe_status = element.integer("poe_status");
  const int32_t link_status = element.integer("link_status");
  const int32_t link_speed = element.integer("link_speed");
  if (!element.is_sound()) return false;
  port.poe_status = poe_status;
  port.link_status = link_status;
  port.link_speed = link_speed;
  return true;
}

struct ListTexts {
  const char* retrieving;
  const char* retrieving_element;
  const char* retrieved;
};
constexpr ListTexts ports_texts{"Retrieving ports input...\n", "Retrieving port #%d...\n",
                                "Successfully retrieved %d ports.\n"};
constexpr ListTexts hardware_texts{"Retrieving ports hardware input...\n", "Retrieving port hardware #%d...\n",
                                   "Successfully retrieved %d ports hardware.\n"};

template <class Port>
int32_t retrieve(const ListTexts& texts, const Source& source, Port* ports, int32_t* num_of_ports,
                 int32_t max_num_of_ports) noexcept {
  if (source.name == nullptr || ports == nullptr) return refuse_null(here());
  int32_t unwanted = 0;
  int32_t& count = num_of_ports != nullptr ? *num_of_ports : unwanted;
  count = 0;

  here().log(Verbose, "%s", texts.retrieving);
  json_t* list = nullptr;
  const int32_t result = kestro_jrpc_utils_parse_input_array(source.params, source.err_data, source.name, &list);
  if (result != status::ok) return result;

  count = static_cast<int32_t>(std::min<int64_t>(static_cast<int64_t>(json_array_size(list)), max_num_of_ports));
  for (int32_t i = 0; i < count; ++i) {
    here().log(Verbose, texts.retrieving_element, i);
    const json_t* const object = json_array_get(list, static_cast<size_t>(i));
    if (!read(Element(object, source.err_data), ports[i])) return status::parameter_error;
  }
  here().log(Verbose, texts.retrieved, count);
  return status::ok;
}

}  // namespace

int32_t kestro_jrpc_utils_retrieve_input_ports(const json_t* params, json_t** err_data, const char* param_name,
                                               kestro_data_port* ports, int32_t* num_of_ports,
                                               int32_t max_num_of_ports) noexcept {
  return retrieve(ports_texts, {params, err_data, param_name}, ports, num_of_ports, max_num_of_ports);
}

int32_t kestro_jrpc_utils_retrieve_input_ports_hardware(const json_t* params, json_t** err_data, const char* param_name,
                                                        kestro_onu_port_hardware_info_t* ports, int32_t* num_of_ports,
                                                        int32_t max_num_of_ports) noexcept {
  return retrieve(hardware_texts, {params, err_data, param_name}, ports, num_of_ports, max_num_of_ports);
}
