// The handlers of all methods: each reads its parameters, works, and returns the result; null stands for 0. What they
// throw becomes the error that the client gets.
#ifndef KESTRO_CONFIGD_HANDLERS_HPP
#define KESTRO_CONFIGD_HANDLERS_HPP

#include "configd/context.hpp"
#include "configd/handles.hpp"
#include "configd/request.hpp"

namespace kestro::configd {

using Handler = Json (*)(Context& context, const Request& request);

Json oec_register(Context& context, const Request& request);
Json oec_list(Context& context, const Request& request);
Json oec_get(Context& context, const Request& request);
Json oec_remove(Context& context, const Request& request);

Json ports_get(Context& context, const Request& request);
Json ports_set_enabled(Context& context, const Request& request);
Json ports_set_description(Context& context, const Request& request);
Json ports_set_vlan_local(Context& context, const Request& request);
Json ports_set_vlan_access(Context& context, const Request& request);
Json ports_set_vlan_trunk(Context& context, const Request& request);
Json ports_set_mac_filters(Context& context, const Request& request);
Json ports_poe_get_instant_power(Context& context, const Request& request);

Json dhcp_set_service(Context& context, const Request& request);
Json dhcp_get_service(Context& context, const Request& request);
Json dhcp_list(Context& context, const Request& request);
Json dhcp_remove(Context& context, const Request& request);

Json network_apply_mgmt_vlan(Context& context, const Request& request);

Json db_create_backup(Context& context, const Request& request);
Json db_apply_backup(Context& context, const Request& request);

Json logger_reload_conf(Context& context, const Request& request);
Json discover(Context& context, const Request& request);

}  // namespace kestro::configd

#endif
