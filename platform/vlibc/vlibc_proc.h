/* Signalling processes of other programs through their pid files, and detached children. */
#ifndef QRIX_PLATFORM_VLIBC_VLIBC_PROC_H_
#define QRIX_PLATFORM_VLIBC_VLIBC_PROC_H_

#include "platform/qrix_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Sends `sig` to the process named in `pid_file`. The file must be one that root or the
 * package's account wrote and nobody else may write, naming a live process of its owner
 * (see pid_file.h); a refused file is logged and nothing is sent.
 * Writes the process has staged under a file lock are published first; when they cannot be,
 * nothing is sent.
 * Returns 0, or -1 with the error state set (ERR_PIDFILE, ERR_NO_SUCH_PROCESS, ERR_FILE_*). */
QRIX_EXPORT int VLIBCProcSignalByPidFile(const char* pid_file, int sig);

/* Forks a detached process: returns the new process's pid in the caller, 0 in the new process,
 * or -1 (ERR_PROC). The new process has a session of its own and no parent left to reap it, so
 * it leaves no zombie and outlives the caller; it must end with _exit(), as what it inherited
 * (open connections, say) belongs to the caller. */
QRIX_EXPORT int VLIBCProcForkChildNoWait(void);

#ifdef __cplusplus
}
#endif

#endif /* QRIX_PLATFORM_VLIBC_VLIBC_PROC_H_ */
