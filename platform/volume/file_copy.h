/* Copying a directory tree between volumes, as fast as the kernel can move the data. */
#ifndef QRIX_PLATFORM_VOLUME_FILE_COPY_H_
#define QRIX_PLATFORM_VOLUME_FILE_COPY_H_

#include "platform/qrix_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* What the copy keeps of each entry; 0 for a word leaves the new entry as the copier made it. */
typedef struct {
  int keep_mode;  /* permission bits (the setuid and setgid bits only with keep_owner) */
  int keep_owner; /* owner and group (needs root for entries of other accounts) */
  int keep_times; /* access and modification times */
  int keep_links; /* symbolic links copied as links; else what they point to is copied */
  int reserved[4];
} QRIX_COPY_OPTIONS;

/* Copies the tree `from` (a directory) to `to`: regular files, directories, symbolic links,
 * fifos and device nodes (sockets are left out, hard links become separate files). An existing
 * `to` receives the tree over what it holds. Returns 0, or -1 with the error state set:
 * ERR_NO_SPACE (0x2900) when the target volume or the quota is full, ERR_FILE_READ,
 * ERR_FILE_WRITE or ERR_BAD_PARAMETERS otherwise. When `to` did not exist, a failed copy removes
 * what it made, so a full volume gets its space back. */
QRIX_EXPORT int QRIXFileCopyDirectory(const char* from, const char* to,
                                      const QRIX_COPY_OPTIONS* options);

#ifdef __cplusplus
}
#endif

#endif /* QRIX_PLATFORM_VOLUME_FILE_COPY_H_ */
