#include "platform/vlibc/lock_file.h"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>

#include "platform/vlibc/atomic_file.h"
#include "platform/vlibc/dir_lock.h"
#include "platform/vlibc/package_account.h"

// glibc names the field only from 2.38 on.
#ifndef sigev_notify_thread_id
#define sigev_notify_thread_id _sigev_un._tid
#endif

namespace qrix {
namespace {

constexpr const char* kParentDir = "/run/lock";
constexpr mode_t kDirMode = 02770;  // setgid: lock files take the package's group
constexpr mode_t kFileMode = 0640;

bool IsPackageGroup(gid_t gid) {
  const std::optional<gid_t> package = PackageGid();
  return gid == 0 || (package && gid == *package);
}

// Made by root, and no other account can add, remove or rename what is inside.
bool TrustedDir(const struct stat& st) {
  return S_ISDIR(st.st_mode) && st.st_uid == 0 && (st.st_mode & S_IWOTH) == 0 &&
         ((st.st_mode & S_IWGRP) == 0 || IsPackageGroup(st.st_gid));
}

// Belongs to root or the package's account, and no account outside the group of the lock
// directory (the package's) may open it.
bool TrustedFile(const struct stat& st, gid_t dir_gid) {
  return S_ISREG(st.st_mode) && (st.st_mode & S_IRWXO) == 0 &&
         ((st.st_mode & S_IRWXG) == 0 || st.st_gid == dir_gid || st.st_gid == 0) &&
         (st.st_uid == 0 || st.st_uid == PackageUid().value_or(0));
}

std::string Describe(const struct stat& st) {
  char text[64];
  std::snprintf(text, sizeof text, "owner %u:%u, mode %04o", static_cast<unsigned>(st.st_uid),
                static_cast<unsigned>(st.st_gid), static_cast<unsigned>(st.st_mode & 07777));
  return text;
}

// Makes a complete lock directory under a temporary name and moves it into place, so no
// process ever uses a half-made one. What stood there, `found` (a planted entry, by inode;
// nullopt when nothing did), is swapped out and left under the temporary name. false (logged)
// when that cannot be done; true also when another process did it first.
bool ReplaceLockDir(const std::optional<struct stat>& found, const std::string& why) {
  char made[] = "/run/lock/.qrix.XXXXXX";
  if (MakeDirectories(kParentDir) != 0 || ::mkdtemp(made) == nullptr) {
    syslog(LOG_ERR, "cannot make lock directory %s: %s", QRIX_LOCK_DIR, std::strerror(errno));
    return false;
  }
  const std::optional<gid_t> gid = PackageGid();
  if (::chown(made, 0, gid.value_or(0)) != 0 || ::chmod(made, gid ? kDirMode : 0700) != 0 ||
      ::renameat2(AT_FDCWD, made, AT_FDCWD, QRIX_LOCK_DIR,
                  found ? RENAME_EXCHANGE : RENAME_NOREPLACE) != 0) {
    const int err = errno;
    ::rmdir(made);
    if (err == EEXIST || err == ENOENT) {
      return true;  // another process was first: look again
    }
    syslog(LOG_ERR, "cannot make lock directory %s: %s", QRIX_LOCK_DIR, std::strerror(err));
    return false;
  }
  if (!found) {
    return true;
  }
  struct stat out {};
  if (::lstat(made, &out) != 0 || out.st_dev != found->st_dev || out.st_ino != found->st_ino) {
    // Another process replaced it a moment ago and may already use its directory: give it back.
    ::renameat2(AT_FDCWD, made, AT_FDCWD, QRIX_LOCK_DIR, RENAME_EXCHANGE);
    ::rmdir(made);
    return true;
  }
  syslog(LOG_WARNING, "lock directory %s: %s, not root's alone: moved to %s", QRIX_LOCK_DIR,
         why.c_str(), made);
  return true;
}

// The lock directory, opened, and what fstat says of it. Root makes it when missing and
// replaces whatever stands in its place that is not a directory only root and the package's
// group can change. Invalid, with errno set and a log line, when it cannot be had.
UniqueFd OpenLockDir(struct stat* trusted) {
  for (int attempt = 0; attempt < 3; ++attempt) {
    UniqueFd dir(::open(QRIX_LOCK_DIR, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    const int open_err = errno;
    struct stat st {};
    bool exists = true;
    if (dir.Valid()) {
      if (::fstat(dir.Get(), &st) == 0 && TrustedDir(st)) {
        *trusted = st;
        return dir;
      }
    } else if (open_err == ENOENT) {
      exists = false;
    } else if ((open_err != ELOOP && open_err != ENOTDIR) || ::lstat(QRIX_LOCK_DIR, &st) != 0) {
      syslog(LOG_ERR, "cannot open lock directory %s: %s", QRIX_LOCK_DIR, std::strerror(open_err));
      errno = open_err;
      return {};
    }
    // Missing, or a link, a file or a directory that some other account can change.
    const std::string why = !exists               ? "missing"
                            : S_ISDIR(st.st_mode) ? Describe(st)
                                                  : "not a directory, " + Describe(st);
    if (::geteuid() != 0) {
      syslog(LOG_ERR, "lock directory %s: %s; only root can make it", QRIX_LOCK_DIR, why.c_str());
      errno = EACCES;
      return {};
    }
    if (!ReplaceLockDir(exists ? std::optional<struct stat>(st) : std::nullopt, why)) {
      return {};
    }
  }
  syslog(LOG_ERR, "lock directory %s keeps being replaced: refused", QRIX_LOCK_DIR);
  errno = EAGAIN;
  return {};
}

// Opens (creating it) lock file `name` in the lock directory. The directory stays open for the
// process, checked again by one lstat on each use: only root can replace it.
UniqueFd OpenLockFile(const std::string& name, gid_t* dir_gid) {
  static std::mutex mutex;
  static UniqueFd dir;
  static struct stat seen {};
  const std::lock_guard<std::mutex> guard(mutex);
  struct stat now {};
  if (!dir.Valid() || ::lstat(QRIX_LOCK_DIR, &now) != 0 || now.st_dev != seen.st_dev ||
      now.st_ino != seen.st_ino || now.st_mode != seen.st_mode || now.st_uid != seen.st_uid ||
      now.st_gid != seen.st_gid) {
    dir = OpenLockDir(&seen);
    if (!dir.Valid()) {
      return {};
    }
  }
  *dir_gid = seen.st_gid;
  UniqueFd fd(
      ::openat(dir.Get(), name.c_str(), O_RDONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, kFileMode));
  if (!fd.Valid()) {
    syslog(LOG_ERR, "cannot open lock %s/%s: %s", QRIX_LOCK_DIR, name.c_str(),
           std::strerror(errno));
  }
  return fd;
}

double Now() {
  timespec ts{};
  ::clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

// The signal that ends a lock wait at its deadline. Its handler does nothing and is installed
// without SA_RESTART, so that a flock blocked when it comes returns EINTR.
int DeadlineSignal() {
  return SIGRTMIN + 3;
}

void IgnoreDeadline(int) {}

bool DeadlineHandlerInstalled() {
  static const bool installed = [] {
    struct sigaction action {};
    action.sa_handler = IgnoreDeadline;
    sigemptyset(&action.sa_mask);
    return ::sigaction(DeadlineSignal(), &action, nullptr) == 0;
  }();
  return installed;
}

// A timer that signals this thread when `seconds` have passed, and every 10 ms after (a signal
// that comes just before the wait begins is then followed by another), with the signal unblocked
// while it lives.
class WaitDeadline {
 public:
  explicit WaitDeadline(double seconds) {
    if (seconds <= 0 || !DeadlineHandlerInstalled()) {
      return;
    }
    sigevent event{};
    event.sigev_notify = SIGEV_THREAD_ID;
    event.sigev_signo = DeadlineSignal();
    event.sigev_notify_thread_id = ::gettid();
    if (::timer_create(CLOCK_MONOTONIC, &event, &timer_) != 0) {
      return;
    }
    created_ = true;
    itimerspec when{};
    when.it_value.tv_sec = static_cast<time_t>(seconds);
    when.it_value.tv_nsec =
        static_cast<long>((seconds - static_cast<double>(when.it_value.tv_sec)) * 1e9);
    when.it_interval.tv_nsec = 10'000'000;
    sigset_t deadline;
    sigemptyset(&deadline);
    sigaddset(&deadline, DeadlineSignal());
    armed_ = ::timer_settime(timer_, 0, &when, nullptr) == 0 &&
             ::pthread_sigmask(SIG_UNBLOCK, &deadline, &caller_mask_) == 0;
  }
  WaitDeadline(const WaitDeadline&) = delete;
  WaitDeadline& operator=(const WaitDeadline&) = delete;
  ~WaitDeadline() {
    const int error = errno;  // the caller's answer
    if (created_) {
      ::timer_delete(timer_);
    }
    if (armed_) {
      ::pthread_sigmask(SIG_SETMASK, &caller_mask_, nullptr);
    }
    errno = error;
  }
  bool Armed() const { return armed_; }

 private:
  timer_t timer_{};
  sigset_t caller_mask_{};
  bool created_ = false;
  bool armed_ = false;
};

// Waits in the kernel's queue of the lock, so that waiters get it in turn: polling let others
// take it between two tries, again and again (under sixteen clients saving at once, one in a
// hundred sets waited 0.2 s). flock has no timed wait; the deadline's signal ends the wait.
// Where no timer can be had, it polls every millisecond instead.
bool TakeWithin(int fd, int operation, double seconds) {
  if (::flock(fd, operation | LOCK_NB) == 0) {
    return true;
  }
  if (errno != EWOULDBLOCK && errno != EINTR) {
    return false;
  }
  const double deadline = Now() + seconds;
  const WaitDeadline timer(seconds);
  for (;;) {
    if (Now() >= deadline) {
      errno = ETIMEDOUT;
      return false;
    }
    if (!timer.Armed()) {
      const timespec pause{0, 1'000'000};
      ::nanosleep(&pause, nullptr);
    }
    if (::flock(fd, timer.Armed() ? operation : operation | LOCK_NB) == 0) {
      return true;
    }
    if (errno != EWOULDBLOCK && errno != EINTR) {
      return false;
    }
  }
}

// Who holds a lock on the file `st` describes, from /proc/locks: "pid N (command)".
std::string Holder(const struct stat& st) {
  const std::unique_ptr<FILE, int (*)(FILE*)> locks(std::fopen("/proc/locks", "re"), std::fclose);
  char line[256];
  while (locks && std::fgets(line, sizeof line, locks.get()) != nullptr) {
    // "1: FLOCK  ADVISORY  WRITE 1234 00:2a:5678 0 EOF"; a waiter's line has "->" after "1:".
    int pid = 0;
    unsigned dev_major = 0;
    unsigned dev_minor = 0;
    unsigned long long ino = 0;
    if (std::strstr(line, "->") != nullptr ||
        std::sscanf(line, "%*d: %*s %*s %*s %d %x:%x:%llu", &pid, &dev_major, &dev_minor, &ino) !=
            4 ||
        dev_major != major(st.st_dev) || dev_minor != minor(st.st_dev) || ino != st.st_ino) {
      continue;
    }
    std::string command;
    ReadFile("/proc/" + std::to_string(pid) + "/comm", &command);
    command.erase(std::min(command.find('\n'), command.size()));
    return "pid " + std::to_string(pid) + (command.empty() ? "" : " (" + command + ")");
  }
  return "a process not listed in /proc/locks";
}

}  // namespace

LockFile::LockFile(const std::string& name, int operation, double seconds,
                   const std::string& what) {
  const std::string path = std::string(QRIX_LOCK_DIR) + "/" + name;
  gid_t dir_gid = 0;
  UniqueFd fd = OpenLockFile(name, &dir_gid);
  struct stat st {};
  if (!fd.Valid() || ::fstat(fd.Get(), &st) != 0) {
    error_ = errno;
    return;
  }
  if (!TrustedFile(st, dir_gid)) {
    error_ = EPERM;
    syslog(LOG_ERR, "lock %s: %s, not root's or the package's alone: refused", path.c_str(),
           Describe(st).c_str());
    return;
  }
  const double start = Now();
  if (!TakeWithin(fd.Get(), operation, seconds)) {
    error_ = errno;
    if (error_ == ETIMEDOUT) {
      syslog(LOG_ERR, "lock %s (%s) not had after %.1f s: held by %s", path.c_str(), what.c_str(),
             Now() - start, Holder(st).c_str());
    }
    return;
  }
  fd_ = std::move(fd);
}

}  // namespace qrix
