/*
 * kestro_lsyslog.h - levelled logging to standard error.
 *
 * A daemon names itself once with kestro_lsyslog_init. From then on each line carries that name, a timestamp with
 * milliseconds and a tag of four letters:
 *
 *   [2021-03-04 17:05:09.042] [INFO] [router] Logging level set to debug.
 *   [2021-03-04 17:05:09.043] [DEBG] [router: kestro_mq:233] nn_bind failed for SP addr [...]: Address already in use
 *
 * ERROR, DEBUG and VERBOSE lines tell module and line; CONFIG, WARNING and INFO lines do not. A line leaves in a single
 * write, so lines of threads and processes that share a descriptor do not mix. Nothing is allocated.
 *
 * The level is read from section "logging_levels" of KESTRO_LSYSLOG_CONF_FILE, under the daemon's own name:
 *
 *   [logging_levels]
 *   router=debug
 *   simd=info
 *
 * Thread-safe throughout; a line that is written during a reload may be judged by the old or the new level.
 */
#ifndef KESTRO_LSYSLOG_H
#define KESTRO_LSYSLOG_H

#include <jansson.h>
#include <stdint.h>

#include "kestro_general.h"

KESTRO_BEGIN_DECLS

typedef enum {
  KESTRO_LSYSLOG_SEVERITY_MIN = 0, /* not a severity; its tag is "UNKW" */
  KESTRO_LSYSLOG_SEVERITY_CONFIG = 1,
  KESTRO_LSYSLOG_SEVERITY_ERROR = 2,
  KESTRO_LSYSLOG_SEVERITY_WARNING = 3,
  KESTRO_LSYSLOG_SEVERITY_INFO = 4,
  KESTRO_LSYSLOG_SEVERITY_DEBUG = 5,
  KESTRO_LSYSLOG_SEVERITY_VERBOSE = 6,
  KESTRO_LSYSLOG_SEVERITY_MAX = 7 /* not a severity; its tag is "UNKW" */
} kestro_lsyslog_severity;

/* A level admits every severity whose value is not greater. */
typedef enum {
  KESTRO_LSYSLOG_LOGGING_LEVEL_UNDEF = -1,
  KESTRO_LSYSLOG_LOGGING_LEVEL_OFF = 0,
  KESTRO_LSYSLOG_LOGGING_LEVEL_INFO = 4,
  KESTRO_LSYSLOG_LOGGING_LEVEL_DEBUG = 5,
  KESTRO_LSYSLOG_LOGGING_LEVEL_VERBOSE = 6
} kestro_lsyslog_logging_level;

/* The tag of each severity, by its value. Any other value has the tag of slot 0. */
static const char* const kestro_lsyslog_severity_string[KESTRO_LSYSLOG_SEVERITY_MAX]
    __attribute__((unused)) = {"UNKW", "CONF", "ERR!", "WARN", "INFO", "DEBG", "VERB"};

/*
 * Names the daemon and reads its level. Call once, at start. `source` is kept as a pointer, not copied: it must live as
 * long as the process logs. A null `source` is taken as "unknown".
 *
 * Before this call lines carry the name "unknown" and the level is DEBUG. A level that cannot be read leaves it there.
 * Always returns 0.
 */
int32_t kestro_lsyslog_init(const char* source) KESTRO_NOEXCEPT;

/* Does nothing; returns 0. Logging goes on working. */
int32_t kestro_lsyslog_shutdown(void) KESTRO_NOEXCEPT;

/*
 * Pauses the calling thread for half a second and returns 0. Log lines do not go to the bus: the handle is not kept.
 * The pause gives a publish socket that was just bound the time to find its subscribers.
 */
int32_t kestro_lsyslog_set_socket(int32_t pubber_sock) KESTRO_NOEXCEPT;

/*
 * Writes one line to standard error. `file` is the name of the calling module, `line` its line number; neither is shown
 * for CONFIG, WARNING and INFO. A message longer than 8000 characters is cut there. It carries its own line feed.
 *
 * Ask kestro_lsyslog_check_severity first, so that a line that nobody wants costs nothing.
 *
 * Returns 0 when the line was written or the level suppressed it; -1 when the message could not be formatted. Errors of
 * the write itself are ignored. errno is kept.
 */
int32_t kestro_lsyslog_log(int32_t severity, const char* file, int32_t line, const char* format, ...) KESTRO_NOEXCEPT
    KESTRO_PRINTF(4, 5);

/*
 * Returns 1 when the level admits the severity, else 0. Both are compared as unsigned numbers: at level -1 every
 * severity passes, and a negative severity passes at no other level.
 */
int32_t kestro_lsyslog_check_severity(int32_t severity) KESTRO_NOEXCEPT;

/*
 * Reads the level again: "off", "info", "debug" or "verbose", spelled exactly so. After any failure the old level
 * stays.
 *
 * Returns 0; the status of kestro_conf_parser_parse when there is no value; -42 when the value is no level.
 */
int32_t kestro_lsyslog_reload_conf(void) KESTRO_NOEXCEPT;

/*
 * kestro_lsyslog_reload_conf as a method handler, for the row "logger.ReloadConf" of a daemon's method table. Always
 * returns 0 and leaves `result` and `err_data` alone.
 */
int32_t kestro_lsyslog_reload_conf_api(json_t* params, json_t** result, json_t** err_data) KESTRO_NOEXCEPT;

/*
 * For a daemon that dispatches by hand: when `method`, which must not be null, is "logger.ReloadConf", reloads the
 * level and returns 1, also when the reload failed. Otherwise returns 0 and does nothing.
 */
int32_t kestro_lsyslog_is_json_method_lsyslog(const char* method) KESTRO_NOEXCEPT;

KESTRO_END_DECLS

#endif
