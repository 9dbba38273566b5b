/* Running programs the way the package's C code does: a path and a short list of arguments,
 * no shell, and the program's exit status as the result. Both are thin layers over
 * platform/vlibc/process. */
#ifndef QRIX_PLATFORM_VLIBC_VLIBC_EXEC_H_
#define QRIX_PLATFORM_VLIBC_VLIBC_EXEC_H_

#include "platform/qrix_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Flag words of VLIBCExecl. Only the bits named here mean something; the package's callers pass
 * historic words (0xBB, 0xFB) whose other bits are accepted and ignored. */
enum {
  VLIBC_EXEC_NOWAIT = 0x40 /* start the program detached and do not wait for it */
};

/* Runs `path` with the arguments `arg1` to `arg4`; the first NULL ends the list. Returns the
 * program's exit status (0 to 255), or -1 with the error state set (ERR_PROC) when it could not
 * be started or was killed by a signal. */
QRIX_EXPORT int VLIBCExec(const char* path, const char* arg1, const char* arg2, const char* arg3,
                          const char* arg4);

/* Runs `path` with the arguments that follow `flags`, up to a NULL. The program sees `path` as
 * its argv[0]. Returns what VLIBCExec returns; with VLIBC_EXEC_NOWAIT, 0 once the program has
 * started. */
QRIX_EXPORT int VLIBCExecl(const char* path, int flags, ...);

#ifdef __cplusplus
}
#endif

#endif /* QRIX_PLATFORM_VLIBC_VLIBC_EXEC_H_ */
