#include "platform/amule/amule_client.h"

#include <signal.h>
#include <syslog.h>

#include <cstring>

#include "platform/vlibc/atomic_file.h"
#include "platform/vlibc/pid_file.h"
#include "platform/vlibc/vlibc_error.h"
#include "platform/vlibc/vlibc_proc.h"

bool IsAmuleDaemonRunning() {
  return qrix::DaemonPid(QRIX_AMULED_PID_FILE, qrix::PidFileOwner::kAny) > 0;
}

bool IsAmuleCgidRunning() {
  return qrix::DaemonPid(QRIX_AMULECGID_PID_FILE, qrix::PidFileOwner::kAny) > 0;
}

bool AmuleClient::OnInit() {
  inited_ = qrix::DaemonPid(QRIX_AMULED_PID_FILE, qrix::PidFileOwner::kTrusted) > 0;
  return inited_;
}

bool AmuleClient::AmuleShareDirSet(const std::vector<std::string>& folders) {
  if (!inited_) {
    return false;
  }
  std::string text;
  for (const std::string& folder : folders) {
    if (folder.empty() || folder.find_first_of(std::string("\n\r\0", 3)) != std::string::npos) {
      syslog(LOG_ERR, "eMule shared folder refused: empty or holding a line break or NUL");
      return false;
    }
    text += folder;
    text += '\n';
  }
  if (const int err = qrix::PublishFile(QRIX_AMULE_SHAREDDIR, text); err != 0) {
    syslog(LOG_ERR, "cannot write %s: %s", QRIX_AMULE_SHAREDDIR, std::strerror(err));
    return false;
  }
  if (VLIBCProcSignalByPidFile(QRIX_AMULED_PID_FILE, SIGUSR1) != 0) {
    syslog(LOG_ERR, "cannot ask the eMule daemon to reload its shared folders [0x%04X %s:%d]",
           VLIBCErrGet(), VLIBCErrorGetFile(), VLIBCErrorGetLine());
    return false;
  }
  return true;
}
