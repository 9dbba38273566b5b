/* Key/value text files (lines key="value") and the process-wide file locks of the system
 * library. */
#ifndef QRIX_PLATFORM_VLIBC_VLIBC_FILE_H_
#define QRIX_PLATFORM_VLIBC_VLIBC_FILE_H_

#include <stddef.h>

#include "platform/qrix_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Reads `key` of `file` into `buf` (NUL-terminated, cut to size - 1).
 * Returns the length copied, 0 when the key (or the whole file) is missing, -1 on error.
 * `flags` is reserved and must be 0. */
QRIX_EXPORT int VLIBCFileGetKeyValue(const char* file, const char* key, char* buf, int size,
                                     int flags);

/* Sets `key` to `value`: replaces the key's line or appends one, and publishes the file
 * atomically with its owner and mode kept (files of the package's etc directory excepted: they
 * hold secrets, see atomic_file.h). `line_format` is NULL for the default line
 * key="value", or a format with exactly two %s (key, then value between double quotes). The
 * value is written as sh reads double-quoted text (kv_text.h), since shell scripts source these
 * files. A value holding a newline, carriage return or NUL is refused: it would let a request
 * write lines of its own.
 * Returns 0, or -1 with the error state set. While the calling process holds a file lock the
 * write is staged and published once, when the lock is released. */
QRIX_EXPORT int VLIBCFileSetKeyValue(const char* file, const char* key, const char* value,
                                     const char* line_format);
/* The same for a value of known length, so that an embedded NUL is seen and refused. */
QRIX_EXPORT int VLIBCFileSetKeyValueN(const char* file, const char* key, const char* value,
                                      size_t value_len, const char* line_format);

/* Lock flags: the high byte names the lock, the low bits say how to take it. */
enum {
  VLIBC_LOCK_SHARED = 0x01,
  VLIBC_LOCK_EXCLUSIVE = 0x02,
  VLIBC_LOCK_WAIT = 0x04, /* wait up to `timeout` seconds instead of trying once */
  VLIBC_LOCK_ID_MASK = 0xFF00,
  VLIBC_LOCK_DOWNLOAD_SETTINGS = 0x0800
};

/* Takes the lock named by `flags` (a lock file of lock_file.h). Process-wide and reentrant:
 * nested calls count, and only the outermost unlock releases it and publishes the writes staged
 * meanwhile. Returns 0, or -1 (timeout or error) with the error state set; a lock held
 * elsewhere past the wait is logged with its holder. */
QRIX_EXPORT int VLIBCFileLock(int flags, int timeout);
/* Returns 0, or -1 when the lock was not held or staged writes could not be published. */
QRIX_EXPORT int VLIBCFileUnlock(int flags);

#ifdef __cplusplus
}
#endif

#endif /* QRIX_PLATFORM_VLIBC_VLIBC_FILE_H_ */
