#include "configd/methods.hpp"

#include <exception>
#include <new>
#include <string>
#include <utility>

#include "common/log.hpp"
#include "configd/handlers.hpp"
#include "kestro_error.h"
#include "kestro_jrpc_utils.h"

namespace kestro::configd {

namespace {

using daemons::Method;
using daemons::Parameter;

Context* serving = nullptr;

// The first explanation stays: a reader knows better what was wrong with a member than the handler does.
int32_t fail(int32_t status, const char* why, json_t** err_data) {
  if (*err_data == nullptr && *why != '\0') *err_data = kestro_jrpc_utils_simple_error_obj(why);
  return status;
}

int32_t serve(Handler handler, json_t* params, json_t** result, json_t** err_data) {
  *result = handler(*serving, Request(params, err_data)).release();
  return status::ok;
}

// Between the library and the handlers: no exception gets past it.
template <Handler handler>
int32_t guarded(json_t* params, json_t** result, json_t** err_data) {
  try {
    return serve(handler, params, result, err_data);
  } catch (const Failure& failure) {
    return fail(failure.status(), failure.what(), err_data);
  } catch (const std::bad_alloc&) {
    return status::out_of_memory;
  } catch (const std::exception& exception) {
    daemons::log_error(std::string("a handler failed: ") + exception.what());
    return fail(status::general_error, exception.what(), err_data);
  }
}

const Parameter oec_id{"oec_id", "string", "An edge switch: c1 to c512."};
const Parameter port_id{"port_id", "string", "A port, like c1-4 or d5."};
const Parameter service_name{"service_name", "string", "The name of the service, at most 50 bytes."};

std::vector<Method> oec_methods() {
  return {{"oec.Register",
           guarded<oec_register>,
           "Registers an edge switch; its ports are those of its model.",
           {oec_id,
            {"model", "string", "The name of the model, like VTR-E30p."},
            {"mac_address", "string", "Its MAC address."},
            {"alias", "string", "A short name, at most 8 characters.", daemons::optional},
            {"description", "string", "One line of at most 50 bytes.", daemons::optional}}},
          {"oec.List", guarded<oec_list>, "Lists the edge switches."},
          {"oec.Get", guarded<oec_get>, "Shows an edge switch.", {oec_id}},
          {"oec.Remove", guarded<oec_remove>, "Removes an edge switch with its ports.", {oec_id}}};
}

std::vector<Method> port_methods() {
  return {
      {"ports.Get",
       guarded<ports_get>,
       "Shows a port, the ports of a switch, or all.",
       {{"port_id", "string", "A port, a switch or all."}}},
      {"ports.SetEnabled",
       guarded<ports_set_enabled>,
       "Enables or disables a port.",
       {port_id, {"enabled", "boolean", "Whether it is to be enabled."}}},
      {"ports.SetDescription",
       guarded<ports_set_description>,
       "Describes a port.",
       {port_id, {"description", "string", "One line of at most 50 bytes."}}},
      {"ports.SetVlanLocal", guarded<ports_set_vlan_local>, "Puts a port on no VLAN.", {port_id}},
      {"ports.SetVlanAccess",
       guarded<ports_set_vlan_access>,
       "Puts a port on one VLAN, untagged.",
       {port_id, {"vlan_id", "integer", "1 to 4050."}}},
      {"ports.SetVlanTrunk",
       guarded<ports_set_vlan_trunk>,
       "Puts a port on VLANs, tagged.",
       {port_id, {"vlan_ids", "array", "1 to 130 different VLANs."}}},
      {"ports.SetMacFilters",
       guarded<ports_set_mac_filters>,
       "Restricts a port to MAC addresses; none lifts the restriction.",
       {port_id, {"mac_filters", "array", "Objects with mac and mask."}}},
      {"ports.poe.GetInstantPower",
       guarded<ports_poe_get_instant_power>,
       "Tells what each port delivers at this moment, in milliwatts.",
       {{"port_id", "string", "A port or a switch."}}},
  };
}

std::vector<Method> dhcp_methods() {
  return {{"dhcp.SetService",
           guarded<dhcp_set_service>,
           "Stores a DHCP service, in place of one of the same name.",
           {service_name,
            {"address_range", "string", "The network: an address and /16, /22 or /24."},
            {"dhcp_range", "string", "First and last address joined by -, or empty."},
            {"static_leases", "array", "Objects with ip and mac."}}},
          {"dhcp.GetService", guarded<dhcp_get_service>, "Shows a DHCP service.", {service_name}},
          {"dhcp.List", guarded<dhcp_list>, "Lists the DHCP services."},
          {"dhcp.Remove", guarded<dhcp_remove>, "Removes a DHCP service.", {service_name}}};
}

std::vector<Method> unit_methods() {
  return {{"network.service.ApplyMgmtVlan",
           guarded<network_apply_mgmt_vlan>,
           "Sets the management VLAN, which a D port must carry.",
           {{"vlan_id", "integer", "1 to 4050."}}},
          {"db.CreateBackup",
           guarded<db_create_backup>,
           "Writes a backup into the update directory.",
           {{"db_filename", "string", "The name of the file."}}},
          {"db.ApplyBackup",
           guarded<db_apply_backup>,
           "Puts a backup from the update directory in the place of the configuration.",
           {{"db_filename", "string", "The name of the file."}}},
          {"logger.ReloadConf", guarded<logger_reload_conf>, "Reads the log levels anew, in every service."},
          {"rpc.discover", guarded<discover>, "Describes the methods of this service."},
          {"network.service.Discover", guarded<discover>,
           "Describes the methods of this service, where rpc.discover is another's."}};
}

}  // namespace

daemons::Methods methods() {
  std::vector<Method> all = oec_methods();
  for (auto&& more : {port_methods(), dhcp_methods(), unit_methods()}) all.insert(all.end(), more.begin(), more.end());
  return {"configd", std::move(all)};
}

void serve_with(Context* context) {
  serving = context;
}

}  // namespace kestro::configd
