#include "platform/vlibc/pid_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "platform/vlibc/atomic_file.h"
#include "platform/vlibc/package_account.h"
#include "platform/vlibc/unique_fd.h"
#include "platform/vlibc/vlibc_error.h"

namespace qrix {
namespace {

constexpr size_t kMaxPidFileBytes = 32;

// A pid file of anything but a plain number could point the signal anywhere.
pid_t ParsePid(const std::string& text) {
  size_t i = text.find_first_not_of(" \t\r\n");
  if (i == std::string::npos || text.size() > kMaxPidFileBytes) {
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

bool IsTrustedOwner(uid_t uid) {
  return uid == 0 || PackageUid() == uid;
}

// The effective uid of a live process that is not a zombie, or -1.
long LiveProcessUid(pid_t pid) {
  std::string status;
  if (ReadFile("/proc/" + std::to_string(pid) + "/status", &status) != 0) {
    return -1;
  }
  const size_t state = status.find("\nState:\t");
  const size_t uid = status.find("\nUid:\t");
  if (state == std::string::npos || uid == std::string::npos) {
    return -1;
  }
  const char code = status[state + 8];
  if (code == 'Z' || code == 'X' || code == 'x') {
    return -1;
  }
  // "Uid:\treal\teffective\tsaved\tfs"
  const size_t effective = status.find('\t', uid + 6);
  return effective == std::string::npos ? -1
                                        : std::strtol(status.c_str() + effective + 1, nullptr, 10);
}

pid_t Refuse(const char* pid_file, const char* why, int error) {
  syslog(LOG_ERR, "refusing pid file %s: %s", pid_file, why);
  VLIBCErrSet(error);
  return -1;
}

}  // namespace

pid_t DaemonPid(const char* pid_file, PidFileOwner owner) {
  if (pid_file == nullptr) {
    VLIBCErrSet(ERR_BAD_PARAMETERS);
    return -1;
  }
  UniqueFd fd(::open(pid_file, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  if (!fd.Valid()) {
    if (errno == ELOOP) {
      return Refuse(pid_file, "a symbolic link", ERR_PIDFILE);
    }
    VLIBCErrSet(ERR_PIDFILE);  // no daemon: nothing to log
    return -1;
  }
  struct stat st {};
  if (::fstat(fd.Get(), &st) != 0 || !S_ISREG(st.st_mode)) {
    return Refuse(pid_file, "not a regular file", ERR_PIDFILE);
  }
  if ((st.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
    return Refuse(pid_file, "writable by other accounts", ERR_PIDFILE);
  }
  if (owner == PidFileOwner::kTrusted && !IsTrustedOwner(st.st_uid)) {
    return Refuse(pid_file, "owned by an account that may not name processes to signal",
                  ERR_PIDFILE);
  }
  std::string text;
  if (st.st_size > static_cast<off_t>(kMaxPidFileBytes) || ReadFd(fd.Get(), &text) != 0) {
    VLIBCErrSet(ERR_PIDFILE);
    return -1;
  }
  const pid_t pid = ParsePid(text);
  if (pid < 0) {
    VLIBCErrSet(ERR_PIDFILE);
    return -1;
  }
  const long uid = LiveProcessUid(pid);
  if (uid < 0) {
    VLIBCErrSet(ERR_NO_SUCH_PROCESS);  // a stale pid file: the daemon is simply not running
    return -1;
  }
  if (static_cast<uid_t>(uid) != st.st_uid) {
    return Refuse(pid_file, "names a process of another account", ERR_NO_SUCH_PROCESS);
  }
  return pid;
}

}  // namespace qrix
