#include "platform/vlibc/vlibc_proc.h"

#include <signal.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/vlibc/atomic_file.h"
#include "platform/vlibc/kv_staging.h"
#include "platform/vlibc/vlibc_error.h"

namespace {

// A pid file of anything but a plain number could point the signal anywhere.
pid_t ParsePidFile(const std::string& text) {
  size_t i = text.find_first_not_of(" \t\r\n");
  if (i == std::string::npos || text.size() > 32) {
    return -1;
  }
  long pid = 0;
  size_t digits = 0;
  for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i, ++digits) {
    pid = pid * 10 + (text[i] - '0');
  }
  if (digits == 0 || digits > 9 || text.find_first_not_of(" \t\r\n", i) != std::string::npos) {
    return -1;
  }
  return pid > 1 ? static_cast<pid_t>(pid) : -1;
}

// Dead and zombie processes must not count as the daemon being there.
bool IsLive(pid_t pid) {
  std::string stat;
  if (qrix::ReadFile("/proc/" + std::to_string(pid) + "/stat", &stat) != 0) {
    return false;
  }
  const size_t paren = stat.rfind(')');
  return paren != std::string::npos && paren + 2 < stat.size() && stat[paren + 2] != 'Z' &&
         stat[paren + 2] != 'X';
}

}  // namespace

extern "C" int VLIBCProcSignalByPidFile(const char* pid_file, int sig) {
  if (pid_file == nullptr || sig < 0) {
    VLIBCErrSet(ERR_BAD_PARAMETERS);
    return -1;
  }
  std::string text;
  if (qrix::ReadFile(pid_file, &text) != 0) {
    VLIBCErrSet(ERR_PIDFILE);
    return -1;
  }
  const pid_t pid = ParsePidFile(text);
  if (pid < 0) {
    VLIBCErrSet(ERR_PIDFILE);
    return -1;
  }
  // A process told of a change must be able to see it: publish what this one has staged, and
  // announce nothing that could not be published.
  if (qrix::kv::PublishStaged() != 0) {
    return -1;
  }
  if (!IsLive(pid) || ::kill(pid, sig) != 0) {
    VLIBCErrSet(ERR_NO_SUCH_PROCESS);
    return -1;
  }
  return 0;
}
