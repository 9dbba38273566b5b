/* System accounts through NSS. Account names are matched without regard to letter case, as
 * everywhere on the system: an exact match wins, otherwise the first account whose name differs
 * only in case. */
#ifndef QRIX_PLATFORM_ACCOUNTS_QRIX_USER_H_
#define QRIX_PLATFORM_ACCOUNTS_QRIX_USER_H_

#include <sys/types.h>

#include "platform/qrix_export.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct _tag_QRIXUSER {
  char* szName; /* as the account database spells it */
  uid_t uid;
  gid_t gid; /* primary group */
  char* szHome;
} QRIXUSER, *PQRIXUSER;

/* Fills `*user` with a record the caller frees with QRIXUserFree.
 * Returns 0, or -1 with the error state set (ERR_NOT_FOUND, ERR_BAD_PARAMETERS,
 * ERR_OUT_OF_MEMORY). */
QRIX_EXPORT int QRIXUserGet(const char* name, PQRIXUSER* user);
QRIX_EXPORT void QRIXUserFree(PQRIXUSER user);

/* The account's uid and primary gid. Returns 0, or -1 as QRIXUserGet. */
QRIX_EXPORT int QRIXUserGetUGID(const char* name, uid_t* uid, gid_t* gid);

#ifdef __cplusplus
}
#endif

#ifdef __cplusplus
#include <string>
#include <vector>

namespace qrix::accounts {

// The names of every group the account belongs to, its primary group included; empty when the
// account does not exist.
QRIX_EXPORT std::vector<std::string> GroupsOf(const char* name);

}  // namespace qrix::accounts
#endif

#endif /* QRIX_PLATFORM_ACCOUNTS_QRIX_USER_H_ */
