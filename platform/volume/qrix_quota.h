/* User quotas of the volumes. */
#ifndef QRIX_PLATFORM_VOLUME_QRIX_QUOTA_H_
#define QRIX_PLATFORM_VOLUME_QRIX_QUOTA_H_

#include <stdint.h>
#include <sys/types.h>

#include "platform/qrix_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Whether `uid` may store `size` more bytes on the file system holding `path` (its nearest
 * existing parent when it does not exist yet). With user quotas on, the user's block limit
 * (the hard one, else the soft one; none means no limit) must hold what is used plus `size`;
 * with quotas off every size is enough. Reading another user's quota needs root.
 * Returns 1 when enough, 0 when not, -1 with the error state set when it cannot tell. */
QRIX_EXPORT int QRIXQuotaIsEnough(uid_t uid, const char* path, uint64_t size);

#ifdef __cplusplus
}
#endif

#endif /* QRIX_PLATFORM_VOLUME_QRIX_QUOTA_H_ */
