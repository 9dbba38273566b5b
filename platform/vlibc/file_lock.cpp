// Process-wide named locks on files under /run/lock. The kernel drops a lock when its holder
// dies, so a killed writer never leaves the settings locked.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <syslog.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <map>
#include <mutex>

#include "platform/vlibc/kv_staging.h"
#include "platform/vlibc/unique_fd.h"
#include "platform/vlibc/vlibc_error.h"
#include "platform/vlibc/vlibc_file.h"

namespace qrix::kv {
namespace {

constexpr const char* kLockDir = "/run/lock";

struct HeldLock {
  UniqueFd fd;
  int depth = 0;
};

std::recursive_mutex g_lock_mutex;
std::map<int, HeldLock> g_held;  // lock id -> lock

UniqueFd OpenLockFile(int id) {
  ::mkdir(kLockDir, 01777);  // a fresh /run may not have it yet
  char path[64];
  std::snprintf(path, sizeof path, "%s/qrix-vlibc-%04x.lock", kLockDir, id);
  return UniqueFd(::open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0600));
}

double Now() {
  timespec ts{};
  ::clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

// Tries until the deadline with a short, growing pause: flock has no timed wait.
bool TakeWithin(int fd, int operation, double seconds) {
  const double deadline = Now() + seconds;
  long pause_ns = 200'000;
  for (;;) {
    if (::flock(fd, operation | LOCK_NB) == 0) {
      return true;
    }
    if (errno != EWOULDBLOCK && errno != EINTR) {
      return false;
    }
    if (Now() >= deadline) {
      errno = ETIMEDOUT;
      return false;
    }
    const timespec pause{0, pause_ns};
    ::nanosleep(&pause, nullptr);
    pause_ns = std::min(pause_ns * 2, 20'000'000L);
  }
}

}  // namespace

bool StagingActive() {
  const std::lock_guard<std::recursive_mutex> guard(g_lock_mutex);
  return !g_held.empty();
}

}  // namespace qrix::kv

extern "C" {

int VLIBCFileLock(int flags, int timeout) {
  using namespace qrix::kv;
  const int id = flags & VLIBC_LOCK_ID_MASK;
  const std::lock_guard<std::recursive_mutex> guard(g_lock_mutex);
  auto it = g_held.find(id);
  if (it != g_held.end()) {
    ++it->second.depth;
    return 0;
  }
  qrix::UniqueFd fd = OpenLockFile(id);
  if (!fd.Valid()) {
    VLIBCErrSet(ERR_LOCK);
    return -1;
  }
  const int operation =
      (flags & VLIBC_LOCK_SHARED) != 0 && (flags & VLIBC_LOCK_EXCLUSIVE) == 0 ? LOCK_SH : LOCK_EX;
  const double wait = (flags & VLIBC_LOCK_WAIT) != 0 && timeout > 0 ? timeout : 0.0;
  if (!TakeWithin(fd.Get(), operation, wait)) {
    VLIBCErrSet(errno == ETIMEDOUT ? ERR_LOCK_TIMEOUT : ERR_LOCK);
    return -1;
  }
  g_held[id] = HeldLock{std::move(fd), 1};
  return 0;
}

int VLIBCFileUnlock(int flags) {
  using namespace qrix::kv;
  const int id = flags & VLIBC_LOCK_ID_MASK;
  const std::lock_guard<std::recursive_mutex> guard(g_lock_mutex);
  auto it = g_held.find(id);
  if (it == g_held.end()) {
    VLIBCErrSet(ERR_LOCK);
    return -1;
  }
  if (--it->second.depth > 0) {
    return 0;
  }
  // Publish while still holding the lock, so the next holder reads what this one wrote.
  int published = 0;
  if (g_held.size() == 1) {
    PublishStaged();
    published = TakePublishFailure();
  }
  g_held.erase(it);
  return published;
}

}  // extern "C"
