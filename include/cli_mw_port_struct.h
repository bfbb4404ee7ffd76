/*
 * cli_mw_port_struct.h - the ports of a VLAN, as the command line lists them.
 */
#ifndef CLI_MW_PORT_STRUCT_H
#define CLI_MW_PORT_STRUCT_H

#include <stdint.h>

/* Ports that one list can hold. */
#define CLI_MW_MAX_PORTS 1000

struct cli_mw_vlan_struct {
  int16_t vlan_id;
  char description[51];
  int16_t port[CLI_MW_MAX_PORTS];
  int16_t oec[CLI_MW_MAX_PORTS]; /* edge switch of each port; 0 for a port of the head-end unit */
  int16_t num_ports;             /* entries in use */
};

#endif
