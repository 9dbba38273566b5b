/* Announcing files to the media indexer and to watchers of file changes. Both append one line
 * to the queue file "/var/qrix/spool/index.queue", which the indexer consumes:
 *
 *   index <kind> <path>     VLIBQrixIndexAdd: kind 1 for a file, 3 for a folder
 *   change <mask> <path>    QRIXFileChangeNotify: the inotify-style event mask
 *
 * A path holding a line break is refused, so every line is one request. */
#ifndef QRIX_PLATFORM_SYSTEM_QRIX_INDEX_H_
#define QRIX_PLATFORM_SYSTEM_QRIX_INDEX_H_

#include "platform/qrix_export.h"

#define QRIX_INDEX_QUEUE "/var/qrix/spool/index.queue"

#ifdef __cplusplus
extern "C" {
#endif

enum { QRIX_INDEX_FILE = 1, QRIX_INDEX_FOLDER = 3 };

/* Returns 0, or -1 with the error state set. */
QRIX_EXPORT int VLIBQrixIndexAdd(const char* path, int kind);
/* `flags` is reserved and must be 0. Returns 0, or -1 with the error state set. */
QRIX_EXPORT int QRIXFileChangeNotify(const char* path, int flags, unsigned int mask);

#ifdef __cplusplus
}
#endif

#endif /* QRIX_PLATFORM_SYSTEM_QRIX_INDEX_H_ */
