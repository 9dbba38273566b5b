/* The database wrapper: PostgreSQL through libpq, over the local Unix socket in
 * "/run/postgresql". No password is ever sent: the server's peer authentication takes the
 * process's effective identity at connect time as the one that may use the role.
 *
 * A persistent connection belongs to a per-process cache keyed by host, role and database; every
 * QRIXDBPConnect with the same three returns the same handle until QRIXDBClose. A fresh
 * connection (QRIXDBConnect) belongs to its caller, who closes it with QRIXDBClose.
 *
 * A process forked from one that holds connections shares their sockets with it: it never uses
 * them (QRIXDBExecute refuses, QRIXDBPConnect opens one of its own) and never ends the parent's
 * session (QRIXDBClose, and the end of the process, close only its own descriptor). */
#ifndef QRIX_PLATFORM_DB_QRIX_DB_H_
#define QRIX_PLATFORM_DB_QRIX_DB_H_

#include <stddef.h>

#include "platform/qrix_export.h"

#define QRIX_DB_SOCKET_DIR "/run/postgresql"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct QRIXDBConn QRIXDBCONN;
typedef struct QRIXDBResult QRIXDBRESULT;
typedef int QRIXDBROW; /* a row of a result, from QRIXDBFetchRow */

/* `host` NULL means the local socket directory; `password` is ignored. NULL on failure. */
QRIX_EXPORT QRIXDBCONN* QRIXDBPConnect(const char* host, const char* user, const char* password,
                                       const char* database);
QRIX_EXPORT QRIXDBCONN* QRIXDBConnect(const char* host, const char* user, const char* password,
                                      const char* database);
/* Closes either kind; a persistent one leaves the cache. NULL is ignored. */
QRIX_EXPORT void QRIXDBClose(QRIXDBCONN* conn);

/* Runs one statement (never several: text after a ";" is an error). With `result`, the result
 * is handed over for the caller to free with QRIXDBFreeResult, also on failure (it may be NULL).
 * Returns 0, or -1 with the error text in QRIXDBErrorGet. */
QRIX_EXPORT int QRIXDBExecute(QRIXDBCONN* conn, const char* statement, QRIXDBRESULT** result);
/* Rows a statement inserted, changed, deleted or returned; 0 for none or no result. */
QRIX_EXPORT int QRIXDBAffectedRows(QRIXDBCONN* conn, QRIXDBRESULT* result);
/* Rows a statement returned; 0 for none or no result. */
QRIX_EXPORT int QRIXDBNumRows(QRIXDBRESULT* result);
/* Moves to the next row: 0 with it in `*row`, -1 when there is none. */
QRIX_EXPORT int QRIXDBFetchRow(QRIXDBRESULT* result, QRIXDBROW* row);
/* The value of `column` in `row` as text, NULL for a NULL value or an unknown column. The text
 * lives as long as the result. */
QRIX_EXPORT const char* QRIXDBFetchField(QRIXDBRESULT* result, QRIXDBROW row, const char* column);
QRIX_EXPORT void QRIXDBFreeResult(QRIXDBRESULT* result);

/* The last error on `conn` (or of the last failed connect, for NULL), without a final newline;
 * "" for none. */
QRIX_EXPORT const char* QRIXDBErrorGet(QRIXDBCONN* conn);

/* Writes `length` bytes of `from` into `to` as the inside of a SQL string literal, for the
 * connection this process opened last (PQescapeStringConn); `to` needs 2 * length + 1 bytes.
 * Returns the length written; with no connection open it writes "" and returns 0 with the error
 * state set. */
QRIX_EXPORT size_t QRIXDBEscapeString(char* to, const char* from, size_t length);

#ifdef __cplusplus
}
#endif

#endif /* QRIX_PLATFORM_DB_QRIX_DB_H_ */
