/* The kind of file system a path lies on, as a small code. Codes 0 and 5 are the file systems
 * that keep no Unix owners, where changing an owner means nothing. */
#ifndef QRIX_PLATFORM_SYSTEM_QRIX_FS_TYPE_H_
#define QRIX_PLATFORM_SYSTEM_QRIX_FS_TYPE_H_

#include "platform/qrix_export.h"

#ifdef __cplusplus
extern "C" {
#endif

enum {
  QRIX_FS_FAT = 0, /* vfat, exFAT */
  QRIX_FS_EXT = 1, /* ext2, ext3, ext4 */
  QRIX_FS_BTRFS = 2,
  QRIX_FS_XFS = 3,
  QRIX_FS_TMPFS = 4,
  QRIX_FS_NTFS = 5,
  QRIX_FS_OTHER = 6 /* anything else that can be asked */
};

/* The code of the file system holding `path`, or -1 with the error state set. */
QRIX_EXPORT int QRIXGetFSType(const char* path);

#ifdef __cplusplus
}
#endif

#endif /* QRIX_PLATFORM_SYSTEM_QRIX_FS_TYPE_H_ */
