/*
 * kestro_sqlite3.h - SQLite with statements from formats, one-value look-ups and a retry while the database is busy.
 *
 * Two kinds of codes come back, told apart by their sign: SQLite's own are passed on as they are (positive: 5
 * SQLITE_BUSY, 101 SQLITE_DONE), the library's are negative. A null argument is -4 with a WARNING line.
 *
 * Formats are those of printf(), not of sqlite3_mprintf(). The formatted SQL has at most 1099 characters; what is
 * longer is cut there without a word and run as it is. Values are not escaped: double the single quotes of a text with
 * sqlite_escape_single_quotes (kestro_utils.h), or prepare a statement and bind.
 *
 * Connections belong to the caller. With those of kestro_db_api.h every function here may be called from any thread.
 * Never use a connection or a statement in the child after fork().
 */
#ifndef KESTRO_SQLITE3_H
#define KESTRO_SQLITE3_H

#include <pthread.h>
#include <sqlite3.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#include "kestro_general.h"

KESTRO_BEGIN_DECLS

/*
 * A statement that threads share, each use between kestro_sqlite3_lock and kestro_sqlite3_unlock. Reset the statement
 * (sqlite3_reset) before unlocking: one that was left on a row keeps the database from being written.
 *
 *   static kestro_stmt insert = {NULL, PTHREAD_MUTEX_INITIALIZER};
 */
typedef struct kestro_stmt {
  sqlite3_stmt* stmt; /* null once finalised */
  pthread_mutex_t stmt_lk;
} kestro_stmt;

/*
 * Prepares the first statement of the formatted SQL. The caller releases it with sqlite3_finalize().
 *
 * Returns SQLite's code; after a failure `*stmt` is null. A format that printf() itself refuses is -4.
 */
int32_t kestro_sqlite3_prepare_sql(sqlite3* db, sqlite3_stmt** stmt, const char* sql, ...) KESTRO_NOEXCEPT
    KESTRO_PRINTF(3, 4);
int32_t kestro_sqlite3_prepare_sql_args(sqlite3* db, sqlite3_stmt** stmt, const char* sql, va_list args) KESTRO_NOEXCEPT
    KESTRO_PRINTF(3, 0);

/*
 * Runs a query up to its first row and stores column 0, converted to an integer; SQL null is 0.
 *
 * Returns 0, or SQLite's code: 101 (SQLITE_DONE) when there is no row. `*result` is only written on success.
 */
int32_t kestro_sqlite3_get_single_id_result(sqlite3* db, int64_t* result, const char* sql, ...) KESTRO_NOEXCEPT
    KESTRO_PRINTF(3, 4);
int32_t kestro_sqlite3_get_single_id_result_args(sqlite3* db, int64_t* result, const char* sql,
                                                 va_list args) KESTRO_NOEXCEPT KESTRO_PRINTF(3, 0);

/*
 * Runs a query up to its first row and stores column 0 as text, cut to `result_length` - 1 characters; the rest of the
 * `result_length` bytes is zero. SQL null is the empty text.
 *
 * Returns 0, or SQLite's code: 101 (SQLITE_DONE) when there is no row. A length below 1 is -4. `result` is only written
 * on success.
 */
int32_t kestro_sqlite3_get_single_string_result(sqlite3* db, char* result, int32_t result_length, const char* sql,
                                                ...) KESTRO_NOEXCEPT KESTRO_PRINTF(4, 5);

/*
 * Steps once and stores column 0 of the row. Returns 0, or -7 when there is no row or the step failed, as it does for a
 * null statement; `*val` is then as it was. The statement stays where it is: reset or finalise it.
 */
int32_t kestro_sqlite3_step_get_int(sqlite3_stmt* stmt, int64_t* val) KESTRO_NOEXCEPT;

/*
 * Runs an INSERT, UPDATE or DELETE, which must be done in one step. Returns 0, or -7 with an ERROR line that tells
 * SQLite's code and the calling function; a null statement is SQLite's misuse, 21. Reset or finalise the statement
 * afterwards. Busy databases are not retried beyond the connection's own busy timeout.
 */
#define kestro_sqlite3_step_write(stmt) _kestro_sqlite3_step_write((stmt), __func__)
int32_t _kestro_sqlite3_step_write(sqlite3_stmt* stmt, const char* func_name) KESTRO_NOEXCEPT;

/*
 * As sqlite3_exec(), for one thread of the process at a time. While the database is busy (SQLITE_BUSY and no other
 * code) it is tried again, up to 20 times, 50 milliseconds apart, with a DEBUG line for each; the other threads wait
 * meanwhile. A text in `*errmsg` is released with sqlite3_free().
 *
 * A retry runs the whole text again: pass one statement, or several that are harmless to repeat. Inside a transaction
 * that began with reading, a write that meets another writer is busy for as long as the transaction lasts; begin it
 * with "BEGIN IMMEDIATE" if it is going to write. The callback must not call this function: it would wait for itself.
 *
 * Returns SQLite's last code: 21 (SQLITE_MISUSE) for a null `db`.
 */
int32_t kestro_sqlite3_exec(sqlite3* db, const char* sql, int (*callback)(void*, int, char**, char**), void* arg1,
                            char** errmsg) KESTRO_NOEXCEPT;

/* kestro_sqlite3_exec of formatted SQL whose rows nobody wants. A format that printf() itself refuses is -4. */
int32_t kestro_sqlite3_exec_sql(sqlite3* db, const char* sql, ...) KESTRO_NOEXCEPT KESTRO_PRINTF(2, 3);

/*
 * Copies a column's text, which may be null and is then empty, cut to `sz` - 1 characters. The last byte of `dest` is
 * always zero; size 0 writes nothing. Returns the length of the whole text, so a result of `sz` or more was cut.
 */
int32_t kestro_sqlite3_copy_str(char* dest, size_t sz, const unsigned char* src) KESTRO_NOEXCEPT;

/* Around each use of a shared statement. `stmt` must be valid, here and below; the mutex is not recursive. */
void kestro_sqlite3_lock(kestro_stmt* stmt) KESTRO_NOEXCEPT;
void kestro_sqlite3_unlock(kestro_stmt* stmt) KESTRO_NOEXCEPT;

/* Finalises a shared statement under its lock, and leaves null. Doing so again is harmless. */
void kestro_sqlite3_finalize(kestro_stmt* stmt) KESTRO_NOEXCEPT;

KESTRO_END_DECLS

#endif
