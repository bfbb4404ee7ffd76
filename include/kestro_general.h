/*
 * kestro_general.h - what every public header of the library shares.
 *
 * Conventions of the whole interface:
 *
 *  1. A function that returns int32_t returns a status: 0 is success, a failure is the negative of an index of
 *     kestro_error_strings (kestro_error.h). Functions that differ say so.
 *  2. Callers own the buffers that they pass, together with their sizes in bytes. A text that a function hands out is
 *     released with free(), a JSON value with json_decref(), unless the function says otherwise.
 *  3. A null argument is refused with -20 and a DEBUG line, unless the function says otherwise.
 *  4. Outputs that are pointers or texts are empty (null, "") after a failure, unless the function says otherwise.
 *  5. Functions keep no state unless they say so: different threads may call them at once on different data.
 *  6. No exception leaves the library. A callback must not let one enter it: the process would end.
 *  7. Descriptors that the library opens are closed on exec.
 */
#ifndef KESTRO_GENERAL_H
#define KESTRO_GENERAL_H

/* Around the declarations of a header: C linkage, and visible outside the shared library. */
#ifdef __cplusplus
#define KESTRO_BEGIN_DECLS \
  extern "C" {             \
  _Pragma("GCC visibility push(default)")
#define KESTRO_END_DECLS        \
  _Pragma("GCC visibility pop") \
  }
#define KESTRO_NOEXCEPT noexcept
#else
#define KESTRO_BEGIN_DECLS _Pragma("GCC visibility push(default)")
#define KESTRO_END_DECLS _Pragma("GCC visibility pop")
#define KESTRO_NOEXCEPT
#endif

/* For the compiler's check of printf-like arguments: positions of the format and of its first value, from 1. */
#define KESTRO_PRINTF(format_position, first_value) \
  __attribute__((__format__(__printf__, format_position, first_value)))

/* Paths on the unit. A build may move each of them (CMake cache variable of the same name). */

/* Logging levels of the daemons, see kestro_lsyslog.h. */
#ifndef KESTRO_LSYSLOG_CONF_FILE
#define KESTRO_LSYSLOG_CONF_FILE "/etc/kestro_lsyslog.conf"
#endif

/* Configuration database, see kestro_db_api.h. */
#ifndef KESTRO_CFGDB_FILE
#define KESTRO_CFGDB_FILE "/data/db/vtr_h9.db"
#endif

/* Where uploaded files arrive; ends in a slash. */
#ifndef KESTRO_UPDATE_DIR
#define KESTRO_UPDATE_DIR "/tmp/update/"
#endif

#endif
