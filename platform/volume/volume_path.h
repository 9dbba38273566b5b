/* Which volume holds a path. */
#ifndef QRIX_PLATFORM_VOLUME_VOLUME_PATH_H_
#define QRIX_PLATFORM_VOLUME_VOLUME_PATH_H_

#include "platform/qrix_export.h"

#ifdef __cplusplus
extern "C" {
#endif

enum { QRIX_VOLUME_INTERNAL = 1, QRIX_VOLUME_USB = 2, QRIX_VOLUME_SATA = 3 };

typedef struct {
  char vol_path[256]; /* the volume's mount point: /volume1, /volumeUSB1/usbshare1-1 */
  char fs_type[32];
  int kind;      /* QRIX_VOLUME_... */
  int number;    /* N of /volumeN, /volumeUSBN, /volumeSATAN */
  int read_only; /* the volume is mounted read-only */
} QRIX_VOLUME_INFO;

/* Fills `info` for the volume holding `path`, which is resolved first (links followed, so it
 * must exist). Returns 0, or -1 with the error state set: ERR_BAD_PARAMETERS, ERR_NOT_FOUND when
 * the path does not exist or lies on no volume. */
QRIX_EXPORT int VolumePathParseEx(const char* path, QRIX_VOLUME_INFO* info);

#ifdef __cplusplus
}
#endif

#endif /* QRIX_PLATFORM_VOLUME_VOLUME_PATH_H_ */
