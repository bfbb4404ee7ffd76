/*
 * kestro_data.h - the device domain: enumerations with their texts, capabilities of the models, and records.
 *
 * The numbers of the enumerations are fixed: they travel in requests and stand in the database. Each
 * enumeration ends with a count, which is not a value.
 *
 * Text tables are indexed by the enumeration. Except for the model table they end with a null pointer, where
 * kestro_str_to_enum stops. The texts of the models and of the secure options are fixed too; all other texts,
 * the capabilities and the MAC ranges are defaults for the daemons that read them.
 *
 * Texts in records end with a zero byte. Tables are read-only, and each source file that uses one has its own
 * copy.
 */
#ifndef KESTRO_DATA_H
#define KESTRO_DATA_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

/* In port identifiers this edge-switch number stands for the head-end unit itself. */
#define KESTRO_DATA_OEC_NUMBER_HEAD_END 10001

/* VLANs that one port can carry. */
#define KESTRO_DATA_MAX_VLANS_PER_PORT 130

/* NOLINTBEGIN(modernize-use-nullptr): C reads this header too. */

/* ---- Ports ---- */

typedef enum {
  KESTRO_DATA_PORT_STATUS_DISABLED = 0,
  KESTRO_DATA_PORT_STATUS_ENABLED = 1,
  KESTRO_DATA_PORT_STATUS_TROUBLED = 2,
  KESTRO_DATA_PORT_STATUS_MAX_ENUM_VAL = 3
} kestro_data_port_status;

static const char* const kestro_data_port_status_enum_str[4] = {"disabled", "enabled", "troubled", NULL};

/* What a user asks for to reach a status. */
static const char* const kestro_data_port_status_action_enum_str[3] = {"disable", "enable", NULL};

typedef enum poe_status {
  KESTRO_DATA_PORT_POE_STATUS_UNKNOWN = 0,
  KESTRO_DATA_PORT_POE_STATUS_DISABLED = 1,
  KESTRO_DATA_PORT_POE_STATUS_ENABLED = 2,
  KESTRO_DATA_PORT_POE_STATUS_OEC_OFFLINE = 3,
  KESTRO_DATA_PORT_POE_STATUS_UNSUPPORTED = 4,
  KESTRO_DATA_PORT_POE_STATUS_MAX_ENUM_VAL = 5
} kestro_data_port_poe_status;

static const char* const kestro_data_port_poe_status_enum_str[6] = {"unknown", "disabled",    "enabled",
                                                                    "offline", "unsupported", NULL};

typedef enum {
  KESTRO_DATA_PORT_LINK_STATUS_UNKNOWN = 0,
  KESTRO_DATA_PORT_LINK_STATUS_DOWN = 1,
  KESTRO_DATA_PORT_LINK_STATUS_UP = 2,
  KESTRO_DATA_PORT_LINK_STATUS_OEC_OFFLINE = 3,
  KESTRO_DATA_PORT_LINK_STATUS_MAX_ENUM_VAL = 4
} kestro_data_port_link_status;

static const char* const kestro_data_port_link_status_enum_str[5] = {"unknown", "down", "up", "offline", NULL};

typedef enum {
  KESTRO_DATA_PORT_LINK_SPEED_UNKNOWN = 0,
  KESTRO_DATA_PORT_LINK_SPEED_OFFLINE = 1,
  KESTRO_DATA_PORT_LINK_SPEED_DOWN = 2,
  KESTRO_DATA_PORT_LINK_SPEED_NOT_SUPPORTED = 3,
  KESTRO_DATA_PORT_LINK_SPEED_10M = 4,
  KESTRO_DATA_PORT_LINK_SPEED_100M = 5,
  KESTRO_DATA_PORT_LINK_SPEED_1G = 6,
  KESTRO_DATA_PORT_LINK_SPEED_10G = 7,
  KESTRO_DATA_PORT_LINK_SPEED_MAX_ENUM_VAL = 8
} kestro_data_port_link_speed;

static const char* const kestro_data_port_link_speed_enum_str[9] = {"unknown", "offline", "down", "unsupported", "10m",
                                                                    "100m",    "1g",      "10g",  NULL};

/* Users can ask for local, access, trunk and discovery; the others are only reported. */
typedef enum kestro_vlan_mode {
  KESTRO_DATA_PORT_VLAN_MODE_UNKNOWN = 0,
  KESTRO_DATA_PORT_VLAN_MODE_LOCAL = 1,
  KESTRO_DATA_PORT_VLAN_MODE_ACCESS = 2,
  KESTRO_DATA_PORT_VLAN_MODE_TRUNK = 3,
  KESTRO_DATA_PORT_VLAN_MODE_TRANSPARENT = 4,
  KESTRO_DATA_PORT_VLAN_MODE_DISCOVERY = 5,
  KESTRO_DATA_PORT_VLAN_MODE_SFP = 6,
  KESTRO_DATA_PORT_VLAN_MODE_MAX_ENUM_VAL = 7
} kestro_data_port_vlan_mode;

static const char* const kestro_data_port_vlan_mode_enum_str[8] = {"unknown",     "local",     "access", "trunk",
                                                                   "transparent", "discovery", "sfp",    NULL};

/* What is asked of a secure port. */
typedef enum {
  KESTRO_DATA_SECURE_CURRENT = 0,
  KESTRO_DATA_SECURE_ENABLE = 1,
  KESTRO_DATA_SECURE_DISABLE = 2,
  KESTRO_DATA_SECURE_CLEAR = 3,
  KESTRO_DATA_SECURE_MAX_VALUE = 4
} kestro_data_secure_options;

static const char* const kestro_data_secure_options_str[5] = {"current", "enable", "disable", "clear", NULL};

/* One port of an edge switch. */
typedef struct kestro_data_port {
  int32_t oec_number;
  int32_t port_number; /* 1 to 64 */
  kestro_data_port_status port_status;
  kestro_data_port_poe_status poe_status;
  kestro_data_port_link_status link_status;
  kestro_data_port_link_speed link_speed;
  kestro_data_port_vlan_mode vlan_mode;
  char description[51];
  int32_t vlan_id[KESTRO_DATA_MAX_VLANS_PER_PORT];
  int32_t num_of_vlan_ids; /* entries in use */
  int32_t pair_oec;
  int32_t pair_port;
  int32_t filter_enabled;
  int32_t filter_count; /* MAC filters */
} kestro_data_port;

/* ---- Edge switches ---- */

typedef enum {
  KESTRO_DATA_OEC_STATUS_DISABLED = 0,
  KESTRO_DATA_OEC_STATUS_ENABLED = 1,
  KESTRO_DATA_OEC_STATUS_FAILED = 2,
  KESTRO_DATA_OEC_STATUS_MAX_ENUM_VAL = 3
} kestro_data_oec_status;

static const char* const kestro_data_oec_status_enum_str[4] = {"disabled", "enabled", "failed", NULL};

/* What a user asks for to reach a status. */
static const char* const kestro_data_oec_status_action_enum_str[3] = {"disable", "enable", NULL};

/* In the order in which the models came; the numbers stand in databases. */
typedef enum {
  KESTRO_DATA_OEC_MODEL_UNKNOWN = 0,
  KESTRO_DATA_OEC_MODEL_VTR_E10 = 1,
  KESTRO_DATA_OEC_MODEL_VTR_E20P = 2,
  KESTRO_DATA_OEC_MODEL_VTR_E20I = 3,
  KESTRO_DATA_OEC_MODEL_VTR_E200 = 4,
  KESTRO_DATA_OEC_MODEL_VTR_E30P = 5,
  KESTRO_DATA_OEC_MODEL_VTR_E63P = 6,
  KESTRO_DATA_OEC_MODEL_GENERIC = 7,
  KESTRO_DATA_OEC_MODEL_VTR_E53P = 8,
  KESTRO_DATA_OEC_MODEL_VTR_E3301PI = 9,
  KESTRO_DATA_OEC_MODEL_VTR_E73P = 10,
  KESTRO_DATA_OEC_MODEL_VTR_E2301I = 11,
  KESTRO_DATA_OEC_MODEL_VTR_E3310P = 12,
  KESTRO_DATA_OEC_MODEL_VTR_E2301I_5 = 13,
  KESTRO_DATA_OEC_MODEL_EKI_7706G = 14,
  KESTRO_DATA_OEC_MODEL_IPES_3408GSFP = 15,
  KESTRO_DATA_OEC_MODEL_IPES_3416DSFP = 16,
  KESTRO_DATA_OEC_MODEL_VTR_R6640XP = 17,
  KESTRO_DATA_OEC_MODEL_VTR_D3340GP = 18,
  KESTRO_DATA_OEC_MODEL_VTR_R6620GT = 19,
  KESTRO_DATA_OEC_MODEL_MAX_ENUM_VAL = 20
} kestro_data_oec_model_name;

/* No null pointer ends this table: searches stop at KESTRO_DATA_OEC_MODEL_MAX_ENUM_VAL. */
static const char* const kestro_data_oec_model_name_enum_str[KESTRO_DATA_OEC_MODEL_MAX_ENUM_VAL] = {
    "unknown",       "VTR-E10",       "VTR-E20p",    "VTR-E20i",    "VTR-E200",    /* 0 */
    "VTR-E30p",      "VTR-E6301p",    "Generic OEC", "VTR-E5301pi", "VTR-E3301pi", /* 5 */
    "VTR-E7301p",    "VTR-E2301i",    "VTR-E3310p",  "VTR-E2301i*", "EKI-7706G",   /* 10 */
    "IPES-3408GSFP", "IPES-3416DSFP", "VTR-R6640XP", "VTR-D3340GP", "VTR-R6620GT"  /* 15 */
};

/* Capabilities of the models, arranged as the table above. */

/* clang-format off */

/* Whether the model is served with the functions of a generic edge switch only. */
static const int32_t kestro_data_oec_model_generic_support[KESTRO_DATA_OEC_MODEL_MAX_ENUM_VAL] = {
    0, 0, 0, 0, 0,
    0, 0, 1, 0, 0,
    0, 0, 0, 0, 1,
    1, 1, 0, 0, 0
};

/* Whether the switch can restrict a port to given MAC addresses. */
static const int32_t kestro_data_oec_supports_mac_limiting[KESTRO_DATA_OEC_MODEL_MAX_ENUM_VAL] = {
    0, 0, 1, 1, 1,
    1, 1, 0, 1, 1,
    1, 1, 1, 1, 0,
    0, 0, 1, 1, 1
};

static const int32_t kestro_data_oec_num_of_ports[KESTRO_DATA_OEC_MODEL_MAX_ENUM_VAL] = {
    0,   1,  4,  4,  4,
    8,  24,  1, 16,  8,
    48,  4, 10,  5,  6,
    8,  16, 40, 40, 20
};

/* MAC addresses that one port, and all ports together, can be restricted to. */
static const int32_t kestro_data_oec_max_acl_per_port[KESTRO_DATA_OEC_MODEL_MAX_ENUM_VAL] = {
    0,   0,  8,  8,  8,
    16, 32,  0, 32, 16,
    32, 16, 16, 16,  0,
    0,   0, 64, 64, 64
};
static const int32_t kestro_data_oec_max_acl_total[KESTRO_DATA_OEC_MODEL_MAX_ENUM_VAL] = {
    0,     0,  32,  32,  32,
    64,  256,   0, 256,  64,
    512,  64, 128,  64,   0,
    0,     0, 512, 512, 512
};

/* Whether the access list of a port needs an entry that lets spanning-tree frames in. */
static const bool kestro_data_oec_needs_stp_acl_input[KESTRO_DATA_OEC_MODEL_MAX_ENUM_VAL] = {
    false, false, false, false, false,
    true,  false, false, false, true,
    false, false, true,  false, false,
    false, false, false, false, false
};

/* The port that leads to the router; 0 where none is expected. */
static const int32_t kestro_data_expected_router_port_for_model[KESTRO_DATA_OEC_MODEL_MAX_ENUM_VAL] = {
    0,  0,  0,  0,  0,
    0,  0,  0,  0,  0,
    0,  0,  0,  0,  0,
    0,  0, 40, 40, 20
};

/* clang-format on */

/* Makers, as told from a MAC address. */
typedef enum {
  KESTRO_DATA_MAC_TYPE_KESTRO = 0,
  KESTRO_DATA_MAC_TYPE_ENGENIUS = 1,
  KESTRO_DATA_MAC_TYPE_LANTECH = 2,
  KESTRO_DATA_MAC_TYPE_ADVANTECH = 3,
  KESTRO_DATA_MAC_TYPE_OTHER = 4,
  KESTRO_DATA_MAC_TYPE_MAX_ENUM_VAL = 5
} kestro_data_mac_type;

typedef struct {
  kestro_data_mac_type mac_type;
  const char* min; /* lowest and highest address, both included, in the normal form */
  const char* max;
} kestro_data_model_to_mac_ranges_mapping_t;

/*
 * One row per maker. The ranges of the makers do not meet; the last row takes every other address. The
 * defaults are locally administered ranges, which no maker's product carries.
 */
static const kestro_data_model_to_mac_ranges_mapping_t
    kestro_data_model_to_mac_ranges_mapping_tbl[KESTRO_DATA_MAC_TYPE_MAX_ENUM_VAL] = {
        {KESTRO_DATA_MAC_TYPE_KESTRO, "02:00:01:00:00:00", "02:00:01:FF:FF:FF"},
        {KESTRO_DATA_MAC_TYPE_ENGENIUS, "02:00:02:00:00:00", "02:00:02:FF:FF:FF"},
        {KESTRO_DATA_MAC_TYPE_LANTECH, "02:00:03:00:00:00", "02:00:03:FF:FF:FF"},
        {KESTRO_DATA_MAC_TYPE_ADVANTECH, "02:00:04:00:00:00", "02:00:04:FF:FF:FF"},
        {KESTRO_DATA_MAC_TYPE_OTHER, "00:00:00:00:00:00", "FF:FF:FF:FF:FF:FF"}};

/* Times are seconds since the epoch. */
typedef struct kestro_data_oec {
  int32_t oec_id; /* the number behind the "c" of its identifier */
  kestro_data_oec_model_name model;
  kestro_data_oec_status oec_status;
  char mac_address[20];        /* of the optical unit */
  char switch_mac_address[20]; /* of the switch */
  char description[51];
  char hw_version[32];
  char sw_version[32];
  char ip_addr[16];
  char alias[9];  /* short user name; empty when unset */
  int32_t onu_id; /* number on the optical line; greater than 0 only while online */
  int32_t olt_id; /* optical line */
  int8_t last_olt;
  int32_t rtt; /* round-trip time */
  int64_t last_saved;
  int8_t cfg_pending; /* configuration that is not yet applied */
  int64_t last_checked;
  int64_t last_seen;
  int64_t offline_online_transition_time; /* of the last change from offline to online */
  char esw_sw_version[32];                /* as the switch reports it */
} kestro_data_oec;

/* ---- MAC addresses ---- */

/* The text of a MAC address; in the normal form "AA:BB:CC:DD:EE:FF". */
typedef char mac_str[20];

/* The MAC addresses seen on one port. */
struct port_macs {
  mac_str* macs;  /* owned */
  int32_t n_macs; /* entries in use */
};

/* Fills a port_macs and knows its capacity. */
struct kestro_mac_vector {
  struct port_macs* pmacs; /* not owned */
  size_t size;             /* entries that there is room for */
};

/* What is pushed to a vector. */
enum mac_type {
  MAC_STR = 0,  /* a text */
  MAC_BYTES = 1 /* six bytes */
};

/* One MAC address that a port admits. Each field has two names. */
struct kestro_mac_filter {
  union {
    int32_t oec_num;
    int32_t oec_number;
  };
  union {
    int32_t port_num;
    int32_t port_number;
  };
  union {
    char mac[20];
    char macaddr_allowed[20];
  };
  union {
    char mask[20];
    char macaddr_mask[20];
  };
};

/* ---- The head-end unit and its services ---- */

static const char* const topology_status_enum_str[3] = {"offline", "online", NULL};

/* Of a laser. */
static const char* const redundancy_states_strs[4] = {"none", "active", "protect", NULL};

/* The text of an IPv4 address. */
typedef char ip_str[16];

/* An explanation for people. */
struct error {
  char msg[512];
};

struct static_lease {
  ip_str ip;
  mac_str mac;
};

/* One DHCP service. */
struct address_pool {
  char service_name[51];
  char address_range[51];             /* address/prefix of the network */
  char dhcp_range[51];                /* first and last address joined by "-", or empty */
  struct static_lease* static_leases; /* owned */
  int32_t n_leases;
};

/* The core router. Times are seconds since the epoch. */
struct router_cfg {
  mac_str mac_addr;
  char sw_version[64];
  char credentials[64];
  char model[64];
  ip_str wan_ip;
  int16_t asw_port;
  char wan_port[32];
  bool nat_enabled;
  ip_str nat_gw;
  char nat_outside_ip[51];
  bool use_peer_dns;
  char dns_servers[100];
  int64_t last_seen;
  int64_t last_configured;
  kestro_data_oec_status rtr_status;
  int64_t custom_other_cmd_last_configured;
};

/* NOLINTEND(modernize-use-nullptr) */

#endif
