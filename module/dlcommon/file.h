/* The package's temporary download directory (reached through the link
 * /var/services/download), the volume that holds it and its free space; removing a task's
 * temporary files; and the quota test of a user, run with root's rights. */
#ifndef HAULPORT_MODULE_DLCOMMON_FILE_H_
#define HAULPORT_MODULE_DLCOMMON_FILE_H_

#include <stdint.h>
#include <sys/types.h>

#include "platform/qrix_export.h"

#ifdef __cplusplus
extern "C" {
#endif

#define QRIXDL_TMP_DOWNLOAD_LINK "/var/services/download"
#define QRIXDL_FSTOOL "/usr/qrix/bin/qrixfstool"

/* The link's target in `buf` (zeroed first, so terminated unless the target fills all `size`
 * bytes). 0, or -1. */
QRIX_EXPORT int GetTmpDownloadDirRealPath(char* buf, int size);
/* The same, and 0 only when the target is a directory on a volume that takes writes. */
QRIX_EXPORT int GetTmpDownloadDir(char* buf, int size);
/* The mount point of the volume holding a usable temporary directory. 0, or -1. */
QRIX_EXPORT int GetTmpDownloadDirVol(char* buf, int size);
/* 1 when less than 1 MiB is free for ordinary users next to the temporary directory, 0 when
 * enough is, -1 when it cannot be told. */
QRIX_EXPORT int TmpVolumeSpaceCheck(void);
/* Removes `path` (absolute) and everything below it; with `flag` non-zero in the background.
 * 0, or -1. */
QRIX_EXPORT int RemoveTaskTemp(const char* path, int flag);
/* 0 when the account `uid` may store `size` more bytes at `path` (administrators always may),
 * -1 otherwise. */
QRIX_EXPORT int QRIXDLQuotaCheck(uid_t uid, const char* path, uint64_t size);

#ifdef __cplusplus
}
#endif

#endif /* HAULPORT_MODULE_DLCOMMON_FILE_H_ */
