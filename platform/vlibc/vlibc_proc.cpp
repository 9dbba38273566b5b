#include "platform/vlibc/vlibc_proc.h"

#include <signal.h>

#include "platform/vlibc/kv_staging.h"
#include "platform/vlibc/pid_file.h"
#include "platform/vlibc/process.h"
#include "platform/vlibc/vlibc_error.h"

extern "C" int VLIBCProcSignalByPidFile(const char* pid_file, int sig) {
  if (pid_file == nullptr || sig < 0) {
    VLIBCErrSet(ERR_BAD_PARAMETERS);
    return -1;
  }
  // The signal goes out as root: only a pid file that root or the package wrote may aim it.
  const pid_t pid = qrix::DaemonPid(pid_file, qrix::PidFileOwner::kTrusted);
  if (pid < 0) {
    return -1;
  }
  // A process told of a change must be able to see it: publish what this one has staged, and
  // announce nothing that could not be published.
  if (qrix::kv::PublishStaged() != 0) {
    return -1;
  }
  if (::kill(pid, sig) != 0) {
    VLIBCErrSet(ERR_NO_SUCH_PROCESS);
    return -1;
  }
  return 0;
}

extern "C" int VLIBCProcForkChildNoWait(void) {
  const pid_t pid = qrix::ForkDetached();
  if (pid < 0) {
    VLIBCErrSet(ERR_PROC);
  }
  return pid;
}
