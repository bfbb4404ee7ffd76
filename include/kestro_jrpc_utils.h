/*
 * kestro_jrpc_utils.h - what method handlers read from a request and write into its answer.
 *
 *   int32_t ports_set_vlan(json_t* params, json_t** result, json_t** err_data) {
 *     char port[16];
 *     int32_t vlan = 0;
 *     int32_t status = kestro_jrpc_utils_retrieve_input_port_id(params, err_data, "port", port, sizeof(port),
 *                                                               0, 0, 1, 1);
 *     if (status == 0) status = kestro_jrpc_utils_retrieve_input_vlan_id(params, err_data, "vlan", &vlan);
 *     if (status != 0) return status;
 *     ...
 *
 * Functions that read a member of the request have these arguments in common:
 *
 *   - `params`, the object, borrowed and not changed. Null has no members.
 *   - `err_data`, the error-data object of the answer, {"message": "..."}, which explains a failure to whoever sent the
 *     request in at most 99 characters. `*err_data` is null until a function leaves a new object there, which belongs
 *     to the holder. The first explanation stays, unless a function says that its own replaces it; what is replaced is
 *     released. Null where no explanation is wanted. When memory runs out the explanation is missing, and an earlier
 *     one stays; the status is the same.
 *   - `param_name`, the name of the member, compared exactly.
 *   - Texts are written to a buffer of `length` bytes: they may have `length` - 1 characters.
 *
 * Their common statuses:
 *
 *     0  done
 *    -4  a pointer that is needed is null; the outputs are untouched
 *   -31  the member has another type than is wanted; or a text is too long, which replaces the explanation
 *   -34  the value is not acceptable for its field
 *   -35  there is no such member
 *
 * After any other failure than -4 outputs are empty ("", 0, false, null), unless the function says otherwise; after a
 * text that is too long the buffer holds the part that fits.
 *
 * Failures and their reasons are logged; values are shown at DEBUG and VERBOSE, passwords too. A request must not be
 * changed by another thread while it is read.
 */
#ifndef KESTRO_JRPC_UTILS_H
#define KESTRO_JRPC_UTILS_H

#include <jansson.h>
#include <stdbool.h>
#include <stdint.h>

#include "kestro_data.h"
#include "kestro_general.h"
#include "kestro_omac_data.h"

KESTRO_BEGIN_DECLS

/* ---- Typed parameters ---- */

/* A true or false. `*param_output` is the member, borrowed; of another type, too. 0, -4, -31, -35. */
int32_t kestro_jrpc_utils_parse_input_bool(const json_t* params, json_t** err_data, const char* param_name,
                                           json_t** param_output) KESTRO_NOEXCEPT;

/* A true or false, by value. 0, -4, -31, -35. */
int32_t kestro_jrpc_utils_parse_input_bool_val(const json_t* params, json_t** err_data, const char* param_name,
                                               bool* param_output) KESTRO_NOEXCEPT;

/* A string. The whole buffer is zero-filled first. 0, -4, -31, -35. */
int32_t kestro_jrpc_utils_parse_input_string(const json_t* params, json_t** err_data, const char* param_name,
                                             char* param_output, const int32_t length) KESTRO_NOEXCEPT;

/* An integer, of which the lower 32 bits are taken: 4294967297 gives 1. A real such as 7.0 is none. 0, -4, -31, -35. */
int32_t kestro_jrpc_utils_parse_input_integer(const json_t* params, json_t** err_data, const char* param_name,
                                              int32_t* param_output) KESTRO_NOEXCEPT;

/*
 * An array. `*param_output`, which must not be null, is the member, borrowed; of another type, too. 0, -4, -31, -35.
 */
int32_t kestro_jrpc_utils_parse_input_array(const json_t* params, json_t** err_data, const char* param_name,
                                            json_t** param_output) KESTRO_NOEXCEPT;

/*
 * An unsigned number that travels as a string of at most 99 characters, read as strtoull() does with base 0: "16",
 * "0x10", "020". A text that is no number gives what it begins with, or 0. 0, -4, -31, -35.
 */
int32_t kestro_jrpc_utils_parse_input_uint64_t(const json_t* params, json_t** err_data, const char* param_name,
                                               uint64_t* param_output) KESTRO_NOEXCEPT;

/* The same for a real number, read as strtod() does and rounded to a float. 0, -4, -31, -35. */
int32_t kestro_jrpc_utils_parse_input_float(const json_t* params, json_t** err_data, const char* param_name,
                                            float* param_output) KESTRO_NOEXCEPT;

/*
 * A new {"message": errmsg}, for handlers with an explanation of their own. Null when `errmsg` is null or no UTF-8, or
 * when memory runs out.
 */
json_t* kestro_jrpc_utils_simple_error_obj(const char* errmsg) KESTRO_NOEXCEPT;

/*
 * The text of an object or an array, without blanks and in ASCII. Takes the caller's reference to `json`. The caller
 * releases the text with free().
 *
 * Null, after an ERROR line, when `json` is null. A value that cannot be encoded ends the process by kestro_panic; null
 * when the process survives that.
 */
char* kestro_jrpc_utils_dumps_validate(json_t* json) KESTRO_NOEXCEPT;

/* ---- Domain fields ---- */

/*
 * A field of the domain: the member is read as a string or an integer, as its output says, and then checked. All return
 * 0, -4, -31, -34 or -35; a comment names further ones. The explanation is that of the reading; a value that was read
 * and then refused gets none, unless said otherwise.
 */

/* A model of edge switch, by its name in kestro_data.h (validate_oec_model). */
int32_t kestro_jrpc_utils_retrieve_input_oec_model(const json_t* params, json_t** err_data, const char* param_name,
                                                   char* out, const int32_t length) KESTRO_NOEXCEPT;

/* The head-end unit: 1 (validate_unit_id). */
int32_t kestro_jrpc_utils_retrieve_input_unit_id(const json_t* params, json_t** err_data, const char* param_name,
                                                 int32_t* out) KESTRO_NOEXCEPT;

/*
 * The identifier of an edge switch (validate_oec_id); with `include_all` not 0, "all" too.
 */
int32_t kestro_jrpc_utils_retrieve_input_oec_id(const json_t* params, json_t** err_data, const char* param_name,
                                                char* oec_id, const int32_t length, int8_t include_all) KESTRO_NOEXCEPT;

/*
 * The identifier of a port, or of what else stands for ports. Each flag that is not 0 admits a kind: "all", edge
 * switches (validate_oec_id), C-ports of edge switches (validate_c_port_id) and D-ports of the head-end unit
 * (validate_d_port_id); of both kinds of ports, validate_port_id decides.
 *
 * What is refused gives, by the first that applies:
 *
 *   -47  D-ports are admitted and the value begins with d, D, x or X: there is no such port
 *   -15  edge switches are admitted: one is expected
 *   -13  of the ports, only C-ports are admitted: one is expected
 *   -14  of the ports, only D-ports are admitted: one is expected
 *   -34  anything else
 */
int32_t kestro_jrpc_utils_retrieve_input_port_id(const json_t* params, json_t** err_data, const char* param_name,
                                                 char* port_id, const int32_t length, int8_t include_all,
                                                 int8_t include_oec_id, int8_t include_c_ports,
                                                 int8_t include_d_ports) KESTRO_NOEXCEPT;

/*
 * An alias: at most 8 characters, which become upper case. A longer one gives -34 and "Alias must be 8 characters or
 * fewer.", which replaces the explanation.
 */
int32_t kestro_jrpc_utils_retrieve_input_alias(const json_t* params, json_t** err_data, const char* param_name,
                                               char* out, const int32_t length) KESTRO_NOEXCEPT;

/* 1 to 64 (validate_port_number). */
int32_t kestro_jrpc_utils_retrieve_input_port_number(const json_t* params, json_t** err_data, const char* param_name,
                                                     int32_t* out) KESTRO_NOEXCEPT;

/* Any number (validate_port_link_speed). */
int32_t kestro_jrpc_utils_retrieve_input_port_link_speed(const json_t* params, json_t** err_data,
                                                         const char* param_name, int32_t* out) KESTRO_NOEXCEPT;

/* 1 to 4050 (validate_vlan_id). */
int32_t kestro_jrpc_utils_retrieve_input_vlan_id(const json_t* params, json_t** err_data, const char* param_name,
                                                 int32_t* out) KESTRO_NOEXCEPT;

/* "local", "access", "trunk" or "discovery" (validate_vlan_mode). */
int32_t kestro_jrpc_utils_retrieve_input_vlan_mode(const json_t* params, json_t** err_data, const char* param_name,
                                                   char* out, const int32_t length) KESTRO_NOEXCEPT;

/*
 * A list of at most 130 VLANs, each 1 to 4050, without repetitions. `vlan_ids` has room for 130 numbers. A member that
 * is no list counts as an empty one; an element that is no integer is refused. Never leaves an explanation.
 *
 * Returns 0; -4; -19 for a longer list; -31 for an element that is refused (validate_vlan_id); -35; -72 for a
 * repetition. After -19, -31 and -72 `*num_of_vlans` is the size of the list; after -31 and -72 `vlan_ids` begins with
 * the elements before the one that was refused.
 */
int32_t kestro_jrpc_utils_retrieve_input_vlan_ids(const json_t* params, json_t** err_data, const char* param_name,
                                                  int32_t* vlan_ids, int32_t* num_of_vlans) KESTRO_NOEXCEPT;

/* 0 to 7 (validate_laser_id). The value is shown at VERBOSE. */
int32_t kestro_jrpc_utils_retrieve_input_laser_id(const json_t* params, json_t** err_data, const char* param_name,
                                                  int32_t* out) KESTRO_NOEXCEPT;

/* 0 to 7 (validate_olt_id). */
int32_t kestro_jrpc_utils_retrieve_input_olt_id(const json_t* params, json_t** err_data, const char* param_name,
                                                int32_t* out) KESTRO_NOEXCEPT;

/* -1 to 64 (validate_onu_id). */
int32_t kestro_jrpc_utils_retrieve_input_onu_id(const json_t* params, json_t** err_data, const char* param_name,
                                                int32_t* out) KESTRO_NOEXCEPT;

/* "enable" or "disable" (validate_status). */
int32_t kestro_jrpc_utils_retrieve_input_status(const json_t* params, json_t** err_data, const char* param_name,
                                                char* out, const int32_t length) KESTRO_NOEXCEPT;

/* Any number. */
int32_t kestro_jrpc_utils_retrieve_input_enable(const json_t* params, json_t** err_data, const char* param_name,
                                                int32_t* out) KESTRO_NOEXCEPT;

/* At most 50 bytes without a line feed (validate_description). */
int32_t kestro_jrpc_utils_retrieve_input_description(const json_t* params, json_t** err_data, const char* param_name,
                                                     char* out, const int32_t length) KESTRO_NOEXCEPT;

/* Any text. */
int32_t kestro_jrpc_utils_retrieve_input_entity_name(const json_t* params, json_t** err_data, const char* param_name,
                                                     char* out, const int32_t length) KESTRO_NOEXCEPT;

/* At most 1000 bytes (validate_entity_extension). */
int32_t kestro_jrpc_utils_retrieve_input_entity_extension(const json_t* params, json_t** err_data,
                                                          const char* param_name, char* out,
                                                          const int32_t length) KESTRO_NOEXCEPT;

/* An IPv4 address (validate_ip_address). */
int32_t kestro_jrpc_utils_retrieve_input_ip_address(const json_t* params, json_t** err_data, const char* param_name,
                                                    char* out, const int32_t length) KESTRO_NOEXCEPT;

/* A MAC address of 17 characters, delimited by ":" or by "-", which becomes "AA:BB:CC:DD:EE:FF". */
int32_t kestro_jrpc_utils_retrieve_input_mac_address(const json_t* params, json_t** err_data, const char* param_name,
                                                     char* out, const int32_t length) KESTRO_NOEXCEPT;

/* The same, or "none": no address is allowed. */
int32_t kestro_jrpc_utils_retrieve_input_macaddr_allowed(const json_t* params, json_t** err_data,
                                                         const char* param_name, char* out,
                                                         const int32_t length) KESTRO_NOEXCEPT;

/* A software file for an edge switch (validate_oec_sw_upgrade_filename). */
int32_t kestro_jrpc_utils_retrieve_input_oec_sw_upgrade_filename(const json_t* params, json_t** err_data,
                                                                 const char* param_name, char* out,
                                                                 const int32_t length) KESTRO_NOEXCEPT;

/*
 * A software image of the head-end unit (validate_unit_sw_upgrade_filename, which wants a limited `length`). A name
 * that is refused leaves "Invalid filename. If you accidentally downloaded multiple copies, only the first will work."
 * unless an explanation stands already.
 */
int32_t kestro_jrpc_utils_retrieve_input_unit_sw_upgrade_filename(const json_t* params, json_t** err_data,
                                                                  const char* param_name, char* out,
                                                                  const int32_t length) KESTRO_NOEXCEPT;

/*
 * A database file that was uploaded to KESTRO_UPDATE_DIR (validate_db_filename). If its name begins with dashes, the
 * file is renamed to the name without them, which is then the value; a file of that name is replaced. The renaming
 * comes first, so it stays even if the new name is refused. Requests for the same file at once are not coordinated.
 * When memory runs out the process ends, as in kestro_malloc.h.
 *
 * Returns -1, too, when the file cannot be renamed.
 */
int32_t kestro_jrpc_utils_retrieve_input_db_filename(const json_t* params, json_t** err_data, const char* param_name,
                                                     char* out, const int32_t length) KESTRO_NOEXCEPT;

/* "all", "current", "previous" or "default" (validate_unit_sw_bank). */
int32_t kestro_jrpc_utils_retrieve_input_unit_sw_bank(const json_t* params, json_t** err_data, const char* param_name,
                                                      char* out, const int32_t length) KESTRO_NOEXCEPT;

/* A user name (validate_username). */
int32_t kestro_jrpc_utils_retrieve_input_username(const json_t* params, json_t** err_data, const char* param_name,
                                                  char* out, const int32_t length) KESTRO_NOEXCEPT;

/* A password (validate_password). */
int32_t kestro_jrpc_utils_retrieve_input_password(const json_t* params, json_t** err_data, const char* param_name,
                                                  char* out, const int32_t length) KESTRO_NOEXCEPT;

/* 1 to 3600 (validate_periodic_interval). */
int32_t kestro_jrpc_utils_retrieve_input_periodic_interval(const json_t* params, json_t** err_data,
                                                           const char* param_name, int32_t* out) KESTRO_NOEXCEPT;

/* Year-month-day (validate_date). */
int32_t kestro_jrpc_utils_retrieve_input_date(const json_t* params, json_t** err_data, const char* param_name,
                                              char* out, const int32_t length) KESTRO_NOEXCEPT;

/* HH:MM (validate_time). */
int32_t kestro_jrpc_utils_retrieve_input_time(const json_t* params, json_t** err_data, const char* param_name,
                                              char* out, const int32_t length) KESTRO_NOEXCEPT;

/* A time zone, or "" (validate_zone). */
int32_t kestro_jrpc_utils_retrieve_input_time_zone(const json_t* params, json_t** err_data, const char* param_name,
                                                   char* out, const int32_t length) KESTRO_NOEXCEPT;

/* ---- Composite inputs ---- */

/*
 * A list of ports of an edge switch. Each element is an object with "port_number" (1 to 64), the numbers "port_status",
 * "poe_status", "link_status", "link_speed" and "vlan_mode", which are not compared with their enumerations, and
 * "vlan_ids" (kestro_jrpc_utils_retrieve_input_vlan_ids). The other fields of a record are never written.
 *
 * `ports` has room for `max_num_of_ports` records; further elements are ignored. `*num_of_ports` becomes the number of
 * elements that are read, at most `max_num_of_ports`; null where it is not wanted.
 *
 * Returns 0; -4, also for an element with any member missing or refused; -31 and -35 for the list itself, with
 * `*num_of_ports` 0. After -4 for an element, the records before it are complete, `*num_of_ports` counts the rest too,
 * and its own record may have a new port number and VLAN list, but none of the five states.
 */
int32_t kestro_jrpc_utils_retrieve_input_ports(const json_t* params, json_t** err_data, const char* param_name,
                                               kestro_data_port* ports, int32_t* num_of_ports,
                                               int32_t max_num_of_ports) KESTRO_NOEXCEPT;

/* The hardware states of ports, otherwise the same: "port_number", "poe_status", "link_status" and "link_speed". */
int32_t kestro_jrpc_utils_retrieve_input_ports_hardware(const json_t* params, json_t** err_data, const char* param_name,
                                                        kestro_onu_port_hardware_info_t* ports, int32_t* num_of_ports,
                                                        int32_t max_num_of_ports) KESTRO_NOEXCEPT;

/*
 * The MAC addresses that the port `oec_num`, `port_num` admits: a list of objects with "mac" and "mask", both read by
 * kestro_jrpc_utils_retrieve_input_mac_address. `*n_filters` is the size of the list. An empty list gives one record
 * nevertheless, with the numbers of the port and without MAC addresses, so that the (empty) set can be told from
 * others.
 *
 * What the caller owns:
 *
 *   0            `*filters`, a new array, to be released with free()
 *   -22          nothing: memory ran out, and `*filters` is null; `*n_filters` is the size of the list
 *   -20          nothing: an argument is null (`err_data` and `params`, too), and the outputs are untouched
 *   -31, -34,    nothing. Of a member that is missing or no list the outputs are null and 0. After an element that was
 *   -35          refused, `*filters` is an address that has been released, not to be used or freed again, and
 *                `*n_filters` is still the size of the list.
 */
int32_t kestro_jrpc_utils_retrieve_input_mac_filters(const json_t* params, json_t** err_data, const char* param_name,
                                                     struct kestro_mac_filter** filters, int32_t* n_filters,
                                                     const int32_t oec_num, const int32_t port_num) KESTRO_NOEXCEPT;

/*
 * What is asked of a secure port: "current", "enable", "disable" or "clear". Whatever is asked is logged at CONFIG.
 * Returns 0; -31 for any failure: also for a null pointer, which leaves `*option` untouched, and a missing member.
 * After all others it is KESTRO_DATA_SECURE_CURRENT, which asks for no change.
 */
int32_t kestro_jrpc_utils_parse_input_secure_option(const json_t* params, json_t** err_data, const char* param_name,
                                                    kestro_data_secure_options* option) KESTRO_NOEXCEPT;

/* ---- Encoding results ---- */

/* Arrays and objects that these functions give are new references, which the caller releases. */

/*
 * An array of the texts of the first 512 addresses. A text that cannot become JSON (no UTF-8, or memory runs out) ends
 * the array early, with a WARNING; that counts as success.
 *
 * Returns 0; -20 for null, except for `mac_addresses` when `count` is 0; -22 when the array cannot be made; -1 when it
 * cannot grow. After a failure `*json_macs` is null.
 */
int32_t kestro_jrpc_utils_populate_json_mac_addresses_array(json_t** json_macs, mac_str* mac_addresses,
                                                            int32_t count) KESTRO_NOEXCEPT;

/* An array of numbers. Null when memory runs out, or when `vids` is null while `n_vids` is greater than 0. */
json_t* kestro_jrpc_utils_populate_vid_array(const int32_t* vids, int32_t n_vids) KESTRO_NOEXCEPT;

/*
 * Such an array as member `name` of an object, in place of an earlier one. Returns 0; -30 when the array cannot be made
 * or set, also where `json_root` is null or no object: it is as it was then.
 */
int32_t kestro_jrpc_utils_json_obj_set_vid_array(json_t* json_root, const char* name, const int32_t* vids,
                                                 const int32_t n_vids) KESTRO_NOEXCEPT;

/*
 * Appends a copy of a text to an array. Returns 0; -30, with the array as it was, for whatever is null, no array or no
 * UTF-8, or when memory runs out.
 */
int32_t kestro_jrpc_utils_append_string_array(json_t* json_array, const char* str) KESTRO_NOEXCEPT;

/*
 * The traffic counters of an optical port as an object; the names of its members are kestro_counter_strings_fields.
 * Values stay texts, as 64-bit numbers do not survive every reader of JSON. Null when `counters` is null, a text is no
 * UTF-8 or memory runs out.
 */
json_t* kestro_jrpc_utils_encode_olt_counter_strings(struct kestro_counter_strings* counters) KESTRO_NOEXCEPT;

/*
 * One array per port, in their order, with all MAC addresses seen on it. Null when `macs` is null, a text is no UTF-8
 * or memory runs out.
 */
json_t* kestro_jrpc_utils_encode_all_mac_addresses_connected(int32_t nmemb,
                                                             const struct port_macs* macs) KESTRO_NOEXCEPT;

/* ---- Reading the answers of other daemons ---- */

/*
 * The member "result" of an answer, an integer of which the lower 32 bits are taken. Returns 0; -4 for null, with the
 * output untouched; -31, with 0, when there is none or it is no integer.
 */
int32_t kestro_jrpc_utils_api_decode_api_result(json_t* result_in, int32_t* api_return_code_out) KESTRO_NOEXCEPT;

/*
 * The text at `idx` of an array, into a buffer of `sz` bytes. A text that does not fit is cut, with a WARNING; that
 * counts as success. Returns 0; -20 for null; -31 when there is no array, element or text. After a failure the buffer
 * is empty.
 */
int32_t kestro_jrpc_utils_api_get_string_from_array(json_t* json_array, const int32_t idx, char* buf,
                                                    int32_t sz) KESTRO_NOEXCEPT;

/*
 * The first `nmemb` texts of the array `name` of an object, into as many buffers of `szmemb` bytes each, read as above.
 * Returns 0; -20 for null, and when there is no such member; -30 when `result` is no object; -31. The first failure
 * ends the reading: buffers before the one that failed are filled, that one is empty, those behind it are untouched.
 */
int32_t kestro_jrpc_utils_retrieve_string_array(json_t* result, const char* name, char** bufs, const int32_t nmemb,
                                                const int32_t szmemb) KESTRO_NOEXCEPT;

/* ---- DHCP services and router values ---- */

/*
 * One DHCP service: an object with the texts "service_name" (cut to 50 characters), "address_range"
 * (validate_address_range) and "dhcp_range" (validate_dhcp_range), and with the list "static_leases" of objects with
 * "ip" (validate_ip_address) and "mac" (validate_mac_address, kept as it is written). Longer texts are cut to their
 * fields before they are validated. The record is emptied first: what it held is not released.
 *
 * Returns 0, with `err` untouched; -4 with the reason in `err`; -4 and a DEBUG line, with the outputs untouched, when
 * `dhcp` or `err` is null. A text may be cut inside a character: then it is no UTF-8, nor is a reason that shows it.
 *
 * What the caller owns afterwards:
 *
 *   0    `static_leases`, to be released with free(), also when `n_leases` is 0
 *   -4   by the reason:
 *          "DHCP ..."                                nothing; `static_leases` is null
 *          "static lease IP ... has invalid format", "static lease MAC address ... has invalid format"
 *                                                    `static_leases`, to be released with free()
 *          "static lease entry is not an object", "static lease object ... field is either missing or not a string"
 *                                                    nothing; `static_leases` is an address that has been released, not
 *                                                    to be used or freed again
 *
 * In short: free(dhcp->static_leases) after success and after a reason that ends in "has invalid format", never
 * otherwise.
 *
 * Fields that were read before the failure keep their values. After a lease that was refused `n_leases` is still the
 * size of the list; where the leases are owned, those behind it are zero. When memory runs out the process ends, as in
 * kestro_malloc.h.
 */
int32_t kestro_jrpc_utils_parse_service_dhcp(json_t* dhcp_obj, struct address_pool* dhcp,
                                             struct error* err) KESTRO_NOEXCEPT;

/*
 * The identity of the core router: an object whose texts "mac_addr" (at most 19 characters), "sw_version",
 * "credentials" and "model" (at most 63) go into the fields of the same name. A member that is missing or no text
 * leaves its field as it is; no other field is written. A longer text ends the process by abort().
 *
 * Returns 0; -1 when `obj` is null or no object, or `rcfg` is null.
 */
int32_t kestro_json_parse_rcfg_init_vals(struct router_cfg* rcfg, json_t* obj) KESTRO_NOEXCEPT;

/* The same from a text; of a member that is repeated the last one counts. -1 for null and for what is no JSON, too. */
int32_t kestro_json_parse_rcfg_init_vals_from_str(struct router_cfg* rcfg, const char* json) KESTRO_NOEXCEPT;

KESTRO_END_DECLS

#endif
