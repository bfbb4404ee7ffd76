/*
 * kestro_utils.h - identifiers, MAC addresses, shell commands, processes, time and text.
 *
 * Callers own every buffer they pass, and nothing is kept of it after the call unless said otherwise. A function that
 * refuses a null argument logs which one it was at WARNING and writes nothing; where no status for null is given,
 * pointers must be valid.
 *
 * Thread-safety: any thread may call, with buffers that no other thread uses meanwhile. The few functions that keep
 * something for the whole process or the calling thread say so.
 */
#ifndef KESTRO_UTILS_H
#define KESTRO_UTILS_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "cli_mw_port_struct.h"
#include "kestro_data.h"
#include "kestro_general.h"
#include "kestro_string.h"

KESTRO_BEGIN_DECLS

/* ---- Device identifiers ---- */

/*
 * The common first step of functions that want their pointers valid. The first `num_of_args` variadic
 * arguments must be pointers.
 *
 * Returns 0 when none of them is null. Otherwise logs the index of the first null one, counted from 0, at
 * WARNING and returns -1.
 */
int32_t kestro_check_for_null(int32_t num_of_args, ...) KESTRO_NOEXCEPT;

/*
 * Whether snprintf(), which gave `wbytes`, did not fit its text into `sz` bytes. Both are compared as unsigned
 * numbers, so an output error counts as an overflow. If so, logs both at ERROR and calls print_stacktrace.
 */
bool s_overflow_check(int32_t wbytes, int32_t sz) KESTRO_NOEXCEPT;

/* Called where a failure deserves a stack trace. Empty and weak: a program may define its own. */
void print_stacktrace(void) KESTRO_NOEXCEPT;

/*
 * The text of an enumeration value. `enum_str` of `str_length` bytes is zero-filled and receives the text, cut to
 * fit. `enum_int` is not checked: it must be an index of a text in the table.
 *
 * Returns 0, or -4 for a null argument.
 */
int32_t kestro_enum_to_str(char* enum_str, int32_t str_length, int32_t enum_int,
                           const char* const* enum_mapping) KESTRO_NOEXCEPT;

/*
 * The enumeration value of a text, compared exactly. The table must end with a null pointer, so the model table
 * is no argument for this function.
 *
 * Returns 0; or with `enum_int` untouched, -4 for a null argument and -1 for a text that is not in the table.
 */
int32_t kestro_str_to_enum(int32_t* enum_int, const char* enum_str, const char* const* enum_mapping) KESTRO_NOEXCEPT;

/*
 * The identifier of a port: "d5" for an edge-switch number of 10001 (the head-end unit) or more, "c12-4"
 * otherwise. The port number is not checked. `string_id` of `string_length` bytes is zero-filled and receives
 * the text, cut to fit.
 *
 * Returns 0, -4 for a null argument, or -1, with the text empty, for an edge-switch number below 1.
 */
int32_t kestro_create_port_id_str(char* string_id, int32_t string_length, int32_t oec_number,
                                  int32_t port_number) KESTRO_NOEXCEPT;

/* The identifier of an edge switch, "c12", written as above; any number. Returns 0, or -4 for a null argument. */
int32_t kestro_create_oec_id_str(char* string_id, int32_t string_length, int32_t oec_number) KESTRO_NOEXCEPT;

/*
 * Reads the identifier of an edge switch or a port, of at most 8 characters. The first letter may be of
 * either case. The numbers are not checked against any range, and what follows the last one is not looked at.
 *
 *   "c12"     edge switch 12, port 0
 *   "c12-4"   edge switch 12, port 4
 *   "d5"      port 5 of the head-end unit, whose edge-switch number is 10001
 *   "x2"      port 2 behind the first eight of the head-end unit: 10
 *   "dports"  all ports of the head-end unit: port 0; spelled exactly so
 *
 * Returns 0; -20 for a null argument; or -4 for a text that is no identifier, with both numbers 0, except that
 * the edge switch of "c12-0" and the like is kept. A text that is too long is refused without a log line.
 */
int32_t kestro_parse_oec_port_id(int32_t* oec_number, int32_t* port_number, const char* string_id) KESTRO_NOEXCEPT;

/*
 * One line of a port list: "c1-1, c1-2, d5" from the port at index `*idx` on, padded with blanks to
 * `usable_char` characters, which must be below 128. `string` has room for one byte more.
 *
 * A comma follows every port but the last of the list. `*idx` advances by the ports that were looked at: the
 * one that no longer fits is passed over and is not printed by the next call either.
 *
 * Returns 0; or with the outputs untouched, -20 for a null argument and -4 for an index below 0 or a line of
 * 128 characters or more.
 */
int32_t kestro_port_str_create(const struct cli_mw_vlan_struct* vlan_info, int32_t* idx, char* string,
                               int32_t usable_char) KESTRO_NOEXCEPT;

/*
 * What users call an edge switch: its alias, or its identifier while it has none. Writes at most `sz` bytes, cut
 * to fit. Returns 0, or -20 for a null argument.
 */
int32_t kestro_form_oec_name(const kestro_data_oec* oec, char* name, size_t sz) KESTRO_NOEXCEPT;

/* Logs the edge switch at INFO under the heading `msg`. Returns 0, or -20 for a null argument. */
int32_t kestro_print_oec(const kestro_data_oec* oec, const char* msg) KESTRO_NOEXCEPT;

/* Whether the edge switch has a number on the optical line. */
bool kestro_oec_is_online(const kestro_data_oec* oec) KESTRO_NOEXCEPT;

/*
 * Descriptions of an edge switch for log lines: everything that identifies it, cut to 255 characters with an
 * ERROR line; its identifier; its alias or else its identifier, both cut to 8 characters.
 *
 * The text belongs to the calling thread and is overwritten by its next call of the same function. Copy the
 * first when two are needed at once.
 */
char* kestro_esw_str(const kestro_data_oec* esw) KESTRO_NOEXCEPT;
char* kestro_esw_id_str(const kestro_data_oec* esw) KESTRO_NOEXCEPT;
char* kestro_esw_id_or_alias(const kestro_data_oec* esw) KESTRO_NOEXCEPT;

/* Whether the edge switch is online and came online 1 to 119 seconds before `now`. */
bool kestro_esw_is_recently_online(const kestro_data_oec* esw, int64_t now) KESTRO_NOEXCEPT;

/* Whether the edge switch is of the generic model and recently online by the wall clock. */
bool kestro_esw_show_recently_online_warning(const kestro_data_oec* esw) KESTRO_NOEXCEPT;

/*
 * Reads "10,20,,30" into `vids`, which has room for 130 numbers; further ones are ignored, as are empty
 * fields. A field that is no number gives 0. `s` is cut into pieces.
 *
 * Returns 0 and the count in `n_vids`, or -20 when `n_vids` is null. A null `s` or `vids` aborts the process.
 */
int32_t vlan_csv_to_array(char* s, int32_t* vids, int16_t* n_vids) KESTRO_NOEXCEPT;

/*
 * The numbers joined by commas, as a new text that the caller releases with str_free; empty for no numbers, null
 * when a number could not be appended. The VLANs of one port have room from the start; a longer list makes the text
 * grow as str_printf does. When memory runs out the process ends, as in kestro_malloc.h.
 */
str_t* vlan_array_to_csv(const int32_t* vids, int32_t n_vids) KESTRO_NOEXCEPT;

/* Whether `val` is among the first `a_sz` numbers. */
bool int32_in_array(int32_t val, const int32_t* a, size_t a_sz) KESTRO_NOEXCEPT;

/*
 * Change the case in place, up to `length` characters or the end of the text. Return 0, or -4 with a VERBOSE
 * line for null.
 */
int32_t kestro_to_lower(char* str, int32_t length) KESTRO_NOEXCEPT;
int32_t kestro_to_upper(char* str, int32_t length) KESTRO_NOEXCEPT;

/* As kestro_to_upper, for a whole text. */
void kestro_str_to_upper(char* s) KESTRO_NOEXCEPT;

/*
 * Compares software versions such as "1.4.12" number by number. It counts what the old version has: "3.1.7" is
 * taken as equal to an old "3.1". Where the new version has fewer numbers, the missing ones count as 0.
 *
 * Returns -1 when the new version is lower, 1 when it is higher and 0 when neither is; -20 for a null
 * argument.
 */
int32_t kestro_utils_sw_version_strcmp(const char* version_new, const char* version_old) KESTRO_NOEXCEPT;

/* ---- MAC addresses ---- */

/*
 * Brings a MAC address text of 17 characters, delimited by ":" or by "-" throughout, to its normal form
 * "AA:BB:CC:DD:EE:FF", in place.
 *
 * Returns 0; or with the text untouched, -20 for null and -4 for a text that is no MAC address.
 */
int32_t kestro_validate_and_format_mac_addr_string(char* mac) KESTRO_NOEXCEPT;

/*
 * Reads a MAC address text, as above, into six bytes. The text is left in its normal form.
 *
 * Returns 0; or with both untouched, -20 for a null argument and -4 for a text that is no MAC address.
 */
int32_t kestro_str_to_mac_address(char* mac_address_str, uint8_t* mac_address) KESTRO_NOEXCEPT;

/*
 * Reads six hexadecimal numbers of either case, delimited by ":", into six bytes. Looser than the above: leading
 * zeros may be missing, blanks may stand before a number, one beyond FF is cut to its last two digits, and what
 * follows the sixth is not looked at.
 *
 * Returns 0; or with the bytes untouched, -20 for a null argument and -4 for any other text.
 */
int32_t kestro_mac_address_to_char_array(const char* mac, uint8_t* a) KESTRO_NOEXCEPT;

/* Writes six bytes as a text in the normal form, of 18 bytes. */
void kestro_bytes_to_mac_address_string(char* mac_addr, const uint8_t* bytes) KESTRO_NOEXCEPT;

/* The last four of six bytes as one number, the first of them the most significant. Returns 0. */
int32_t kestro_mac_last_4_bytes_to_uint32_t(const uint8_t* mac_bytes, uint32_t* num) KESTRO_NOEXCEPT;

/*
 * Begins to fill `pmacs`, which is taken as empty, with room for 8 MAC addresses. The vector points at `pmacs` from
 * then on and needs no release itself; the caller frees pmacs->macs.
 *
 * Returns 0, or -20 for a null argument. When memory runs out, calls kestro_terminate_process and, if that comes
 * back, returns -22 with the list empty.
 */
int32_t kestro_mac_vector_init(struct kestro_mac_vector* mvec, struct port_macs* pmacs) KESTRO_NOEXCEPT;

/*
 * Appends a MAC address, doubling the room when it is used up. With MAC_STR `mac` is a text, which is copied as it is
 * and should have at most 19 characters; with MAC_BYTES it is six bytes. It must not stand in the list itself, which
 * moves when it grows.
 *
 * Returns 0; or with the entries as they were, -20 for a null argument and -4 for another type (the room may have grown
 * all the same). When memory runs out, calls kestro_terminate_process and, if that comes back, returns -1.
 */
int32_t kestro_mac_vector_push(struct kestro_mac_vector* mvec, const void* mac, int32_t type) KESTRO_NOEXCEPT;

/* Releases the lists of `n` ports and the array itself. Null is ignored. */
void kestro_free_port_macs_array(struct port_macs* arr, int32_t n) KESTRO_NOEXCEPT;

/*
 * A new list: the addresses of the first, then those of the second; null counts as empty. The caller frees its `macs`,
 * which is never null. When memory runs out the process ends, as in kestro_malloc.h.
 */
struct port_macs kestro_port_macs_concat(const struct port_macs* macs1, const struct port_macs* macs2) KESTRO_NOEXCEPT;

/* How many of so many MAC addresses are listed: at most 512. */
int32_t kestro_get_num_macs_to_list(int32_t num_macs) KESTRO_NOEXCEPT;

/*
 * The MAC address of a network interface, in upper case, into `mac` of 18 bytes. The name stands in a command line
 * as it is, so it must come from a trusted place.
 *
 * Returns 0; -20 for a null argument; or with `mac` empty, -1, after an ERROR line, when the name is too long or the
 * address cannot be read. When no command can be started, calls kestro_panic and, if that comes back, returns -1.
 */
int32_t get_nc_mac_addr(const char* iface, char* mac) KESTRO_NOEXCEPT;

/*
 * ---- Shell commands ----
 *
 * The functions run their command lines through the shell and wait for them, without a limit of time. Names that are
 * put into a line are not quoted unless shown: the shell sees them as they are, so they must come from a trusted
 * place. A line that does not fit its buffer is not run: what is left of it would be another command. The overflow is
 * logged as by s_overflow_check, and the function fails.
 *
 * No other child inherits the pipes. A signal that interrupts the reading does not end it.
 */

/*
 * Runs the command line in `buf` and replaces it by the first line of its output, at most `buflen` - 1 characters, the
 * line feed kept. Returns 0; or with the command still in `buf`, -20 for a null argument, and -1, after an ERROR line,
 * when the command cannot be started or prints nothing.
 */
int32_t kestro_popen_get_oneline(char* buf, int32_t buflen) KESTRO_NOEXCEPT;

/*
 * Runs `program` and copies the first line of its output, cut to 3199 characters and without its line feed, to `ret`.
 * No zero byte is added: pass a zero-filled buffer of 3200 bytes.
 *
 * Returns 0; or with `ret` untouched, -20 for a null argument, and -1, told on standard error instead of the log, when
 * the command cannot be started or prints nothing.
 */
int32_t mw_exec_command_line(const char* program, char* ret) KESTRO_NOEXCEPT;

/*
 * Compares the digest that "md5sum %s" computes of the file `fpath` with the one that the first line of the file
 * `md5path` begins with. A digest ends at the first blank or at the end of its line.
 *
 * Returns 0 with 1 (equal) or 0 in `*md5_correct`; -20 for a null argument; or with 0 in `*md5_correct`, -1, after an
 * ERROR line when md5sum prints nothing or the file is empty, and told on standard error when md5sum cannot be started
 * or the file cannot be opened. The command line has less than 256 characters.
 */
int32_t kestro_check_md5(const char* fpath, const char* md5path, int32_t* md5_correct) KESTRO_NOEXCEPT;

/*
 * The revision of the board: the digit behind the first "=" of what "fw_printenv brdrev 2>&1" prints. 7, the default,
 * when it prints nothing, cannot be started, is not installed, knows no revision or prints no "=". Whatever stands in
 * the digit's place is taken as one.
 */
int8_t kestro_get_board_rev_number(void) KESTRO_NOEXCEPT;

/*
 * Whether a host answers one "ping -c1 -w%d %s" within `n_sec` seconds. `ip_addr` is an IPv4 address or a host name;
 * null or anything else gives false and a WARNING line. False also when ping cannot be started. The command line has
 * less than 256 characters.
 */
bool kestro_check_ip_alive_no_log(const char* ip_addr, int32_t n_sec) KESTRO_NOEXCEPT;

/* As kestro_check_ip_alive_no_log, and logs the result at INFO. */
bool kestro_check_ip_alive(const char* ip_addr, int32_t n_sec) KESTRO_NOEXCEPT;

/* Up to `n_sec` pings of one second each; true at the first answer. 0 or less gives false without a ping. */
bool kestro_check_ip_alive_v2(const char* ip_addr, int32_t n_sec) KESTRO_NOEXCEPT;

/*
 * Starts "%s %s '%s'" of the three texts with /bin/bash and does not wait for it: the caller collects the child. The
 * line has less than 3200 characters. A failure to fork is logged at ERROR; a null text, which starts nothing, at
 * WARNING.
 *
 * In a child in which bash cannot be executed, the function tells and logs that and RETURNS: the child goes on in the
 * caller's code. A caller that must not run twice compares getpid().
 */
void fork_exec_script(const char* script, const char* cmd, const char* filename) KESTRO_NOEXCEPT;

/*
 * A lock among processes on changes of network interfaces: whoever creates the file /tmp/lockifaces holds it. Locking
 * waits, looking once a second, without a limit. Not reentrant, and no lock among the threads of a process. The file
 * outlives a process that ends without unlocking and must then be removed by hand.
 *
 * When no shell can be started, both log a WARNING and return: the caller is not told.
 */
void lock_ifaces(void) KESTRO_NOEXCEPT;
void unlock_ifaces(void) KESTRO_NOEXCEPT;

/*
 * The first line, cut to 3200 characters, of "ls -l %s" of the directory `mntpath`, narrowed by " | grep %s" of
 * `prefix` and then of `suffix` unless null or empty, and by " | awk '{print $%d}'" to one column. The line feed is
 * kept.
 *
 * Returns a new text, which the caller frees. Null when `mntpath` is null, and, after an ERROR line, when the command
 * cannot be started or prints nothing. The command line has at most 3200 characters.
 */
char* kestro_file_stats(const char* mntpath, const char* prefix, const char* suffix, int32_t column) KESTRO_NOEXCEPT;

/* ---- Processes, signals, threads ---- */

/* Installs a handler (or SIG_DFL, SIG_IGN) that blocks no other signal and lets system calls be interrupted. */
void kestro_signal(int32_t sig, void (*func)(int)) KESTRO_NOEXCEPT;

/* Logs at ERROR and raises SIGTERM. Returns when the process survives that. */
void kestro_terminate_process(void) KESTRO_NOEXCEPT;

/* Logs `msg` at ERROR, calls print_stacktrace and raises SIGABRT. Returns when the process survives that. */
void kestro_panic(const char* msg) KESTRO_NOEXCEPT;

/* Shuts down the server of kestro_user_validate_init_socket, if there is one, and exits with status 0. */
void kestro_cleanup_process(void) KESTRO_NOEXCEPT;

/*
 * Starts a thread that nobody joins and logs that at INFO. A thread that cannot be created is not reported: the line
 * is the same.
 */
void kestro_spawn_detached_thread(void* (*fn)(void*), void* input) KESTRO_NOEXCEPT;

/*
 * The descriptor that becomes readable when a message can be received on the bus socket `sfd`. It belongs to the
 * socket: do not close it. Returns 0 or -1.
 */
int32_t kestro_get_nn_rcvfd(int32_t sfd, int32_t* rcvfd) KESTRO_NOEXCEPT;

/*
 * The user-validation exchange: a client connects, sends one request, gets one answer. One server per process, used by
 * one thread at a time. Null arguments are logged, and nothing is done.
 */

/*
 * Opens the server on 127.0.0.1 as kestro_tcp_socket_init does, trying again without a pause until it works. The place
 * of the descriptor is remembered for kestro_cleanup_process and must stay valid.
 */
void kestro_user_validate_init_socket(int32_t* server_sock_fd, int32_t port) KESTRO_NOEXCEPT;

/*
 * Waits for a client and receives its request once: at most 1024 bytes, without a zero byte behind them, so pass a
 * zero-filled buffer of 1025. A failed receive is logged at ERROR.
 */
void kestro_user_validate_listen_socket(int32_t* server_sock_fd, int32_t* accepted_sock_fd, char* msg) KESTRO_NOEXCEPT;

/*
 * Appends "\r\n" to the answer in `msg`, which needs room for the two, sends it and closes the connection. Failures
 * are logged at ERROR; the connection is closed after a failed send as well.
 */
void kestro_user_validate_write_socket(int32_t* accepted_sock_fd, char* msg) KESTRO_NOEXCEPT;

/* ---- Time and text ---- */

/*
 * Writes a duration as "%d days %02d:%02d:%02d"; it is "1 days", too. `time` has room for 32 bytes. Returns 0, or -4
 * for a null argument.
 */
int32_t kestro_utils_format_seconds_as_time_sentence(int64_t seconds, char* time) KESTRO_NOEXCEPT;

/*
 * The local time with milliseconds, "2021-03-04 17:05:09.042", in a buffer of `sz` bytes. Give at least 25: where the
 * milliseconds have no room they are cut, where the date has none it is missing, and an ERROR line tells.
 */
void kestro_date_str(char* output_str, size_t sz) KESTRO_NOEXCEPT;

/* Epoch seconds as local time in a format of strftime(). An empty result is logged at ERROR. */
void kestro_ept_fmt(char* output_str, size_t sz, int64_t ept, const char* fmt) KESTRO_NOEXCEPT;

/*
 * The epoch seconds of a local time "%Y-%m-%d %X"; what follows it is ignored. Whether daylight saving time was in
 * force is found out. 0, after an ERROR line, when the text is null or no such time.
 */
int64_t kestro_str_to_ept(const char* date) KESTRO_NOEXCEPT;

/*
 * Writes "[%s.%06ld] [%s] [%s:%d] %s" of the UTC time with microseconds, the four arguments and the message, cut to
 * 8000 characters, to standard error, whatever the logging level. The message carries its own line feed.
 */
void kestro_utils_system_log(const char* file, const char* function, int32_t line, const char* format,
                             ...) KESTRO_NOEXCEPT KESTRO_PRINTF(4, 5);

/* Formats an explanation into `err`, cut to 511 characters. */
void err_printf(struct error* err, const char* fmt, ...) KESTRO_NOEXCEPT KESTRO_PRINTF(2, 3);

/*
 * Copies a text to a buffer of `buflen` bytes, zero-filled first, doubling every "'". Returns 0; -20 for a null
 * argument; -21 when it does not fit, with as much of the copy as does; both halves of a doubled quote are there or
 * none.
 */
int32_t sqlite_escape_single_quotes(char* buf, int32_t buflen, const char* original) KESTRO_NOEXCEPT;

/* Replaces one character by another in the first `sz` bytes of a text, or up to its end. */
void buf_replace_char(char* b, int32_t sz, char target, char replacement) KESTRO_NOEXCEPT;

/*
 * The next token of a text: `str` begins with a text, null goes on with it; the text must stay. Tokens end at the
 * characters of `delimit`, of which the first 11 count, and at line feeds. A token begins with the delimiter that
 * ended the one before: "a,b,c" by "," gives "a", ",b", ",c". `word` needs room for the longest token.
 *
 * Returns 0; 1 with `word` empty when there is no token left; -4 for a null `delimit` or `word`. The place in the text
 * is kept for the whole process: one thread at a time.
 */
int32_t strparse(char* str, const char* delimit, char* word) KESTRO_NOEXCEPT;

/* 1 when every character is a decimal digit, as those of the empty text are; else 0. */
int32_t isdigits(const char* s) KESTRO_NOEXCEPT;

/*
 * The numbers between the dots of an IPv4 address as four bytes; a missing one is 0. Only the first 16 characters
 * count, and the numbers are not checked: 256 becomes 0, "x" too. Returns 0; or with the bytes untouched, -20 for a
 * null argument and -41 when `container_size` is not 4.
 */
int32_t kestro_tokenize_ip_address(uint8_t* container, const char* ip_address, int32_t container_size) KESTRO_NOEXCEPT;

/*
 * Copies a description from a command line. One that stands between double quotes and holds no others loses the
 * opening quote and keeps the closing one, and gets no zero byte: pass a zero-filled buffer. Any other is copied
 * whole, with its zero byte. `dest_msg` needs room for the text. Returns 0, or -4 for a null argument.
 */
int32_t kestro_cli_desc_parse(const char* source_msg, char* dest_msg) KESTRO_NOEXCEPT;

/*
 * Copies a text without the double quotes around it, if there are any, to a buffer of `dest_size` bytes, zero-filled
 * first, and cuts it there: a text that fills the buffer has no zero byte. Returns 0, or -4 for a null argument.
 */
int32_t kestro_remove_surrounding_quotes(const char* source_msg, char* dest_msg, int32_t dest_size) KESTRO_NOEXCEPT;

/* Drops the last character, if there is one. */
void kestro_strip_last_char(char* s) KESTRO_NOEXCEPT;

/*
 * Logs a message and bytes in hexadecimal behind it, 16 a line, at INFO. What passes 9999 characters, the message
 * included, is left out, and the log cuts further. Null arguments are logged, and nothing else is.
 */
void kestro_debug_print_bytes(const uint8_t* bytes, int32_t len, const char* message) KESTRO_NOEXCEPT;

/*
 * Prints `prefix` and bytes in hexadecimal, 12 a line, to standard error, whatever the logging level. What passes
 * 65,535 characters is left out. Null arguments are logged, and nothing is printed. One thread at a time.
 */
void kestro_print_packet(const uint8_t* buf, size_t sz, const char* prefix) KESTRO_NOEXCEPT;

KESTRO_END_DECLS

#endif
