/*
 * kestro_validation.h - whether the value of a field is acceptable.
 *
 * One function per kind of field. Each returns 0 for an acceptable value, or one of these results, which are not the
 * statuses of kestro_error.h:
 *
 *   -1  the pattern could not be used: no memory, or the value asked for more work than the matcher's limits allow
 *   -2  the value does not have the form of the field
 *   -3  the value is none of the options, or a forbidden one
 *   -4  the value is too long
 *   -5  the value is too short
 *   -6  the number is out of its range
 *
 * The comment of a validator names the results that it may give beside 0.
 *
 * A text must not be null; it is not changed and may be of any length. Lengths are in bytes, bounds are inclusive.
 * Matching is done on bytes, and upper and lower case differ where nothing else is said. A form that is checked up to
 * its end admits one line feed behind it, unless the length forbids that.
 *
 * Each step is logged at VERBOSE, what was wrong with the value at DEBUG, a result of -1 at ERROR. Values appear in the
 * log, passwords too.
 *
 * Nothing is kept between calls, and any thread may call with 64 KiB of stack left: the value's length does not matter.
 */
#ifndef KESTRO_VALIDATION_H
#define KESTRO_VALIDATION_H

#include <stdint.h>

#include "kestro_general.h"

KESTRO_BEGIN_DECLS

/* ---- Ports, edge switches, VLANs ---- */

/* A port of an edge switch (validate_c_port_id) or of the head-end unit (validate_d_port_id). -1, -2. */
int32_t validate_port_id(const char* value) KESTRO_NOEXCEPT;

/* "c" or "C", an edge-switch number from 1 to 512, "-", a port number from 1 to 99. -1, -2. */
int32_t validate_c_port_id(const char* value) KESTRO_NOEXCEPT;

/*
 * "d" or "D" and a port number from 1 to 48, or "c10001-" and a number from 0 to 49. -1, -2.
 *
 * The check is loose: a text passes as soon as it begins with "d" or "D" and a digit from 1 to 9, or holds a "d" or "D"
 * with a number from 10 to 48 anywhere, or ends in the second form.
 */
int32_t validate_d_port_id(const char* value) KESTRO_NOEXCEPT;

/* "v", lower case, and a number from 1 to 4092. -1, -2. */
int32_t validate_vlan_name_id(const char* value) KESTRO_NOEXCEPT;

/* "enable" or "disable". -3. */
int32_t validate_status(const char* value) KESTRO_NOEXCEPT;

/* "c" or "C" and an edge-switch number from 1 to 512, or 10001 for the head-end unit. -1, -2. */
int32_t validate_oec_id(const char* value) KESTRO_NOEXCEPT;

/* 1 to 4050. -6. */
int32_t validate_vlan_id(int32_t value) KESTRO_NOEXCEPT;

/* "local", "access", "trunk" or "discovery". -3. */
int32_t validate_vlan_mode(const char* value) KESTRO_NOEXCEPT;

/* At most 50 bytes without a line feed among them. -1, -2, -4. */
int32_t validate_description(const char* value) KESTRO_NOEXCEPT;

/* The name of an edge-switch model, a text of kestro_data_oec_model_name_enum_str; also "unknown". -3. */
int32_t validate_oec_model(const char* value) KESTRO_NOEXCEPT;

/* Always 1. -6. */
int32_t validate_unit_id(int32_t value) KESTRO_NOEXCEPT;

/* 0 to 7. -6. */
int32_t validate_laser_id(int32_t value) KESTRO_NOEXCEPT;

/* 0 to 7. -6. */
int32_t validate_olt_id(int32_t value) KESTRO_NOEXCEPT;

/* -1 to 64. -6. */
int32_t validate_onu_id(int32_t value) KESTRO_NOEXCEPT;

/* 1 to 64. -6. */
int32_t validate_port_number(int32_t value) KESTRO_NOEXCEPT;

/* Any number: always 0, and nothing is logged. */
int32_t validate_port_link_speed(int32_t value) KESTRO_NOEXCEPT;

/* An edge switch (validate_oec_id), a port (validate_port_id) or a VLAN name (validate_vlan_name_id). -2 only. */
int32_t validate_entity_name(const char* value) KESTRO_NOEXCEPT;

/* At most 1000 bytes. -4. */
int32_t validate_entity_extension(const char* value) KESTRO_NOEXCEPT;

/* ---- Addresses ---- */

/* An IPv4 address of four decimal numbers without leading zeros; 7 to 15 bytes. -1, -2, -4, -5. */
int32_t validate_ip_address(const char* value) KESTRO_NOEXCEPT;

/* Six pairs of hexadecimal digits, all separated by ":" or all by "-"; 17 bytes. -1, -2, -4, -5. */
int32_t validate_mac_address(const char* value) KESTRO_NOEXCEPT;

/* An IPv4 address and "/16", "/22" or "/24". -1, -2. */
int32_t validate_address_range(const char* value) KESTRO_NOEXCEPT;

/* Two IPv4 addresses joined by "-", or empty. Their order is not looked at. -1, -2. */
int32_t validate_dhcp_range(const char* value) KESTRO_NOEXCEPT;

/* An IPv4 address, "/" and a prefix length from 0 to 32. -1, -2. */
int32_t validate_general_address_range(const char* value) KESTRO_NOEXCEPT;

/* One or more letters, digits, "." and "-". -1, -2. */
int32_t validate_hostname(const char* value) KESTRO_NOEXCEPT;

/*
 * A list of time servers, separated by any number of spaces; each is an IPv4 address or a host name. May be empty.
 *
 * Returns 0, or -34 as soon as an entry is neither. Ends the process when there is no memory, as omalloc does.
 */
int32_t validate_preferred_time_servers(const char* value) KESTRO_NOEXCEPT;

/* ---- Software and files ---- */

/* A software file name for an edge switch: see validate_filename. -1, -2. */
int32_t validate_oec_sw_upgrade_filename(const char* value) KESTRO_NOEXCEPT;

/*
 * A software image of the head-end unit: holds "vtr" and, somewhere behind it, a version such as "1.20.3-4" and a ".";
 * what may stand in it is as for validate_filename. -1, -2.
 *
 * The only check whose work grows faster than the value's length; limit the length before it is called.
 */
int32_t validate_unit_sw_upgrade_filename(const char* value) KESTRO_NOEXCEPT;

/* Letters, digits and any of ",._+@%-", at least two; the first may be anything but "-". -1, -2. */
int32_t validate_db_filename(const char* value) KESTRO_NOEXCEPT;

/* One or more letters, digits and any of ",._+@%/-". -1, -2. */
int32_t validate_filename(const char* value) KESTRO_NOEXCEPT;

/* "all", "current", "previous" or "default". -3. */
int32_t validate_unit_sw_bank(const char* value) KESTRO_NOEXCEPT;

/* ---- Users ---- */

/* 4 to 15 letters and digits; none of the accounts that the system itself uses (-3). -1, -2, -3, -4, -5. */
int32_t validate_username(const char* value) KESTRO_NOEXCEPT;

/* 4 to 15 letters, digits and any of "!?_@-". -1, -2, -4, -5. */
int32_t validate_password(const char* value) KESTRO_NOEXCEPT;

/* A UUID: hexadecimal digits, 8-4-4-4-12. -1, -2. */
int32_t validate_uuid(const char* value) KESTRO_NOEXCEPT;

/* ---- Time ---- */

/* 1 to 3600. -6. */
int32_t validate_periodic_interval(int32_t value) KESTRO_NOEXCEPT;

/*
 * Year-month-day: years 2000 to 2999, months 1 to 12, days 1 to 31 of any month; leading zeros may be left out.
 * -1, -2.
 */
int32_t validate_date(const char* value) KESTRO_NOEXCEPT;

/* HH:MM, 00:00 to 23:59. -1, -2. */
int32_t validate_time(const char* value) KESTRO_NOEXCEPT;

/* validate_date and, when that passes, validate_time. -1, -2. */
int32_t validate_date_time(const char* date, const char* time) KESTRO_NOEXCEPT;

/* Empty, 2 to 5 capital letters, or 5 or more letters, "/" and "_". -1, -2. */
int32_t validate_zone(const char* value) KESTRO_NOEXCEPT;

KESTRO_END_DECLS

#endif
