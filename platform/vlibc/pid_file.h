// Daemons' pid files, read so that nobody can turn them: a file another account could write or
// plant, or one naming a process that is not the daemon, never names a process.
#ifndef QRIX_PLATFORM_VLIBC_PID_FILE_H_
#define QRIX_PLATFORM_VLIBC_PID_FILE_H_

#include <sys/types.h>

#include "platform/qrix_export.h"

namespace qrix {

enum class PidFileOwner {
  kAny,      // whoever runs the daemon (telling whether it runs)
  kTrusted,  // root or the package's account only (deciding whom root signals)
};

// The live process a pid file names. The file is opened without following links and must be a
// regular file of an allowed owner that no other account may write, holding one decimal pid
// above 1 of a live process (not a zombie) that runs as the file's owner: a daemon names
// itself. Returns the pid, or -1 with the error state set (ERR_PIDFILE for the file,
// ERR_NO_SUCH_PROCESS for the process). A file refused for its owner, mode or process is
// logged, once per call.
QRIX_EXPORT pid_t DaemonPid(const char* pid_file, PidFileOwner owner);

}  // namespace qrix

#endif  // QRIX_PLATFORM_VLIBC_PID_FILE_H_
