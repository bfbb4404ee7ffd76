/*
 * kestro_db_api.h - connections to the configuration database (KESTRO_CFGDB_FILE) and to other database files.
 *
 * A connection is opened for reading and writing, enforces foreign keys, fires triggers recursively, waits 100
 * milliseconds for a busy database, and may be used by several threads at once. It belongs to the caller until
 * kestro_db_close; null stands for "not open". Files are never created.
 *
 * The configuration database may be locked while it is replaced or maintained: kestro_db_ensure_open and its kin then
 * refuse to open it. A process starts locked and calls kestro_db_unlock_cfgdb when it is ready. Connections that are
 * open already stay usable, and kestro_db_open opens it regardless.
 *
 * What SQLite demands of every program: a connection is not carried over fork(), neither used nor closed in the child;
 * and while a connection is open, no other part of the process opens and closes the database file by itself (to copy
 * or to sum it, say), since the close would drop SQLite's locks.
 *
 * A null argument is -4 with a WARNING line. Thread-safe.
 */
#ifndef KESTRO_DB_API_H
#define KESTRO_DB_API_H

#include <sqlite3.h>
#include <stdarg.h>
#include <stdint.h>

#include "kestro_general.h"

KESTRO_BEGIN_DECLS

/* ---- Opening and closing ---- */

/*
 * Opens a connection and stores it in `*db`; what was there is not looked at. SQLite reads the file only when it is
 * first queried, so a file that holds no database is noticed then (SQLITE_NOTADB).
 *
 * Returns 0, or with a null `*db`: -7 and an ERROR line when the file is missing or cannot be opened.
 */
int32_t kestro_db_open_file(sqlite3** db, const char* filename) KESTRO_NOEXCEPT;

/* kestro_db_open_file on the configuration database, locked or not. */
int32_t kestro_db_open(sqlite3** db) KESTRO_NOEXCEPT;

/*
 * Opens the file unless `*db` is open already. Threads may call it at once on the same `*db`: one of them opens, all of
 * them find the connection ready to use.
 *
 * Returns 0; -7 as kestro_db_open_file; -11 with a WARNING line when the configuration database is locked. Only the
 * file name KESTRO_CFGDB_FILE, spelled exactly so, is the configuration database here.
 */
int32_t kestro_db_ensure_open_file(sqlite3** db, const char* filename) KESTRO_NOEXCEPT;

/* kestro_db_ensure_open_file on the configuration database. */
int32_t kestro_db_ensure_open(sqlite3** db) KESTRO_NOEXCEPT;

/*
 * Closes a connection. Returns 0; -12 when statements of it are not finalised: it is then still open; -7 for any other
 * failure.
 */
int32_t kestro_db_close(sqlite3* db) KESTRO_NOEXCEPT;

/* Locks and unlocks the configuration database for the lazy opening in this process. */
void kestro_db_lock_cfgdb(void) KESTRO_NOEXCEPT;
void kestro_db_unlock_cfgdb(void) KESTRO_NOEXCEPT;

/* ---- Queries ---- */

/*
 * These take the connection by value. Pass one that is open: for a null `db` they open `db_file`, as
 * kestro_db_ensure_open_file does and with its codes, use that connection for this one call, and leave it open with
 * nobody to close it.
 */

/*
 * Prepares one statement, which the caller releases with sqlite3_finalize().
 *
 * Returns 0, or with a null `*stmt`: -7 and a WARNING line when SQLite refuses the query, or the code of the opening.
 */
int32_t kestro_db_prepare_statement(sqlite3* db, const char* db_file, sqlite3_stmt** stmt,
                                    const char* query) KESTRO_NOEXCEPT;

/*
 * Looks up one integer, as kestro_sqlite3_get_single_id_result. `record_name` says in the log what was looked for.
 *
 * Returns 0; -1 when there is no row or the look-up failed; or the code of the opening. The outcome of the look-up is
 * logged at VERBOSE. `*result` is only written on success.
 */
int32_t kestro_db_get_single_id_result(sqlite3* db, const char* db_file_name, const char* record_name, int64_t* result,
                                       const char* query, ...) KESTRO_NOEXCEPT KESTRO_PRINTF(5, 6);
int32_t kestro_db_get_single_id_result_args(sqlite3* db, const char* db_file_name, const char* record_name,
                                            int64_t* result, const char* query, va_list args) KESTRO_NOEXCEPT
    KESTRO_PRINTF(5, 0);

/* ---- Transactions ---- */

/*
 * BEGIN, COMMIT and ROLLBACK. A busy database is waited for no longer than the connection's own 100 milliseconds.
 *
 * Each returns 0, or -7 with an ERROR line that tells SQLite's code; a null `db` is SQLite's misuse, -7 as well. After
 * a COMMIT that failed with 5 (SQLITE_BUSY) the transaction is still open: commit again or roll back. A transaction
 * that reads first and writes later may find its write busy at once, however long the timeout; roll back and start
 * over.
 */
int32_t kestro_db_open_transaction(sqlite3* db) KESTRO_NOEXCEPT;
int32_t kestro_db_commit_transaction(sqlite3* db) KESTRO_NOEXCEPT;
int32_t kestro_db_rollback_transaction(sqlite3* db) KESTRO_NOEXCEPT;

KESTRO_END_DECLS

#endif
