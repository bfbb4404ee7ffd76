/*
 * kestro_omac_data.h - records of the optical side: traffic counters and the hardware state of ports.
 */
#ifndef KESTRO_OMAC_DATA_H
#define KESTRO_OMAC_DATA_H

#include <stdint.h>

/* The hardware state of one port; values are those of the enumerations of kestro_data.h. */
typedef struct {
  int32_t port_number;
  int32_t poe_status;  /* kestro_data_port_poe_status */
  int32_t link_status; /* kestro_data_port_link_status */
  int32_t link_speed;  /* kestro_data_port_link_speed */
} kestro_onu_port_hardware_info_t;

/* Traffic counters of an optical port as decimal texts: 64-bit numbers would not survive as JSON numbers. */
struct kestro_counter_strings {
  char tx_frames[21];
  char rx_frames[21];
  char tx_bytes[21];
  char rx_bytes[21];
  char rx_error_frames[21];
  char rx_discard_frames[21];
  char tx_unicast_frames[21];
  char rx_unicast_frames[21];
  char tx_multicast_frames[21];
  char rx_multicast_frames[21];
  char tx_broadcast_frames[21];
  char rx_broadcast_frames[21];
};

/* The names of the fields, in their order. No null pointer ends this table. */
static const char* const kestro_counter_strings_fields[12] = {"tx_frames",
                                                              "rx_frames",
                                                              "tx_bytes",
                                                              "rx_bytes",
                                                              "rx_error_frames",
                                                              "rx_discard_frames",
                                                              "tx_unicast_frames",
                                                              "rx_unicast_frames",
                                                              "tx_multicast_frames",
                                                              "rx_multicast_frames",
                                                              "tx_broadcast_frames",
                                                              "rx_broadcast_frames"};

#endif
