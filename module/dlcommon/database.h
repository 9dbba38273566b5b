/* The package database "download": a persistent connection the whole process shares, fresh
 * connections with retries, and one-statement execution. The role follows the process: the
 * package account connects as "Haulport", root as "postgres", any other account switches to the
 * package identity for the connect and back. */
#ifndef HAULPORT_MODULE_DLCOMMON_DATABASE_H_
#define HAULPORT_MODULE_DLCOMMON_DATABASE_H_

#include "platform/db/qrix_db.h"
#include "platform/qrix_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The process's persistent connection, or NULL. DownloadDBConnect is the same. */
QRIX_EXPORT QRIXDBCONN* DownloadDBPConnect(void);
QRIX_EXPORT QRIXDBCONN* DownloadDBConnect(void);
/* Hands a persistent connection back; it stays open for the next caller. */
QRIX_EXPORT void DownloadDBClose(QRIXDBCONN* conn);
/* Really closes the process's persistent connection. */
QRIX_EXPORT void DownloadDBPClose(void);

/* A connection of the caller's own, after up to 12 attempts 3 to 6 seconds apart; NULL after
 * the last. With `asSuperuser` 1 it connects as "postgres" from a raised identity. */
QRIX_EXPORT QRIXDBCONN* DownloadDBNonPConnect(int asSuperuser);
QRIX_EXPORT void DownloadDBNonPClose(QRIXDBCONN* conn);

/* Runs one statement; the number of rows it touched, or -1. */
QRIX_EXPORT int DownloadDBExec(const char* statement);
QRIX_EXPORT int DownloadDBExecNonPersistent(const char* statement, int asSuperuser);

#ifdef __cplusplus
}

#include <memory>

namespace QRIXDL {

struct DBResultDeleter {
  void operator()(QRIXDBRESULT* result) const { QRIXDBFreeResult(result); }
};
// A result freed on every path.
using DBResult = std::unique_ptr<QRIXDBRESULT, DBResultDeleter>;

struct PersistentDBDeleter {
  void operator()(QRIXDBCONN* conn) const { DownloadDBClose(conn); }
};
// The persistent connection, handed back with DownloadDBClose on every path.
using PersistentDB = std::unique_ptr<QRIXDBCONN, PersistentDBDeleter>;

}  // namespace QRIXDL
#endif

#endif /* HAULPORT_MODULE_DLCOMMON_DATABASE_H_ */
