/* Groups of the system's accounts. */
#ifndef QRIX_PLATFORM_ACCOUNTS_QRIX_GROUP_H_
#define QRIX_PLATFORM_ACCOUNTS_QRIX_GROUP_H_

#include <sys/types.h>

#include "platform/qrix_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The group whose members administer the system. */
#define QRIX_ADMIN_GROUP "administrators"

/* Whether the account `uid` belongs to the administrators' group: listed as a member, or, when
 * `with_primary` is non-zero, having it as its primary group. Returns 1 (a member), 0 (not, or no
 * such group), or -1 with the error state set (ERR_NOT_FOUND for a uid without an account,
 * ERR_PROC when the account database cannot be read). */
QRIX_EXPORT int VLIBGroupIsAdminGroupMemByUid(uid_t uid, int with_primary);

#ifdef __cplusplus
}
#endif

#endif /* QRIX_PLATFORM_ACCOUNTS_QRIX_GROUP_H_ */
