// The package's eMule daemon as the settings see it: whether it and its CGI daemon run, and its
// list of shared folders.
#ifndef QRIX_PLATFORM_AMULE_AMULE_CLIENT_H_
#define QRIX_PLATFORM_AMULE_AMULE_CLIENT_H_

#include <sys/types.h>

#include <string>
#include <vector>

#include "platform/qrix_export.h"

#define QRIX_AMULED_PID_FILE "/tmp/qrixdl_amuled.pid"
#define QRIX_AMULECGID_PID_FILE "/tmp/qrixdl_amulecgid.pid"
#define QRIX_AMULE_SHAREDDIR "/var/packages/Haulport/etc/amule/shareddir.dat"

// True when the daemon's (the CGI daemon's) pid file names a live process of its owner.
QRIX_EXPORT bool IsAmuleDaemonRunning();
QRIX_EXPORT bool IsAmuleCgidRunning();

// A link to the running eMule daemon. The daemon reloads its shared folders from shareddir.dat
// on SIGUSR1, sent through its pid file, which is checked as for every signal root sends.
class QRIX_EXPORT AmuleClient {
 public:
  AmuleClient() = default;
  AmuleClient(const AmuleClient&) = delete;
  AmuleClient& operator=(const AmuleClient&) = delete;

  bool IsInited() const { return inited_; }
  // Finds the daemon; false (and not inited) when it does not run or its pid file is refused.
  bool OnInit();
  // Replaces shareddir.dat with `folders`, one a line, and asks the daemon to reload them.
  // False when not inited, when a folder could not stand on a line of its own (empty, or
  // holding a line break or NUL: the file is then left as it was), or when the file cannot be
  // written or the daemon told.
  bool AmuleShareDirSet(const std::vector<std::string>& folders);

 private:
  bool inited_ = false;
};

#endif  // QRIX_PLATFORM_AMULE_AMULE_CLIENT_H_
