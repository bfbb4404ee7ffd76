/*
 * kestro_utils.h - identifiers, MAC addresses, shell commands, processes, time and text.
 */
#ifndef KESTRO_UTILS_H
#define KESTRO_UTILS_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "kestro_general.h"

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

/* ---- MAC addresses ---- */

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

/*
 * ---- Time and text ----
 *
 * Pointers must be valid where no status for a null one is given.
 */

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

struct error; /* kestro_data.h */

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
