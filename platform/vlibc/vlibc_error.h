/* The system library's error state: the code, source file and line of the last failure of the
 * calling thread. */
#ifndef QRIX_PLATFORM_VLIBC_VLIBC_ERROR_H_
#define QRIX_PLATFORM_VLIBC_VLIBC_ERROR_H_

#include "platform/qrix_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Platform error codes (the 0x%04X of log lines). */
enum {
  ERR_NONE = 0x0000,
  ERR_OUT_OF_MEMORY = 0x0100,
  ERR_BAD_PARAMETERS = 0x0D00,
  ERR_NOT_FOUND = 0x1800,
  ERR_FILE_OPEN = 0x0900,
  ERR_FILE_READ = 0x0A00,
  ERR_FILE_WRITE = 0x0B00,
  ERR_FILE_BAD_VALUE = 0x0B01, /* a value that would break the key="value" line format */
  ERR_LOCK_TIMEOUT = 0x0C00,
  ERR_LOCK = 0x0C01,
  ERR_PROC = 0x2000,
  ERR_PIDFILE = 0x2001, /* missing, unreadable or malformed pid file */
  ERR_NO_SUCH_PROCESS = 0x2002,
  ERR_NO_SPACE = 0x2900, /* the volume (or the user's quota on it) is full */
  ERR_CRYPT = 0x3000
};

QRIX_EXPORT int VLIBCErrGet(void);
QRIX_EXPORT const char* VLIBCErrorGetFile(void);
QRIX_EXPORT int VLIBCErrorGetLine(void);
QRIX_EXPORT void VLIBCErrSetEx(int code, const char* file, int line);

#define VLIBCErrSet(code) VLIBCErrSetEx((code), __FILE__, __LINE__)

#ifdef __cplusplus
}
#endif

#endif /* QRIX_PLATFORM_VLIBC_VLIBC_ERROR_H_ */
