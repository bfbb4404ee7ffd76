/*
 * kestro.h - the whole library.
 */
#ifndef KESTRO_H
#define KESTRO_H

#include "cli_mw_port_struct.h"
#include "kestro_conf_parser.h"
#include "kestro_data.h"
#include "kestro_db_api.h"
#include "kestro_error.h"
#include "kestro_general.h"
#include "kestro_jrpc.h"
#include "kestro_jrpc_utils.h"
#include "kestro_lsyslog.h"
#include "kestro_malloc.h"
#include "kestro_map.h"
#include "kestro_mq.h"
#include "kestro_omac_data.h"
#include "kestro_shm.h"
#include "kestro_socket.h"
#include "kestro_sqlite3.h"
#include "kestro_string.h"
#include "kestro_timer.h"
#include "kestro_utils.h"
#include "kestro_validation.h"

#endif
