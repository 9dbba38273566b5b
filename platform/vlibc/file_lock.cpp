// Process-wide named locks, one lock file each in the platform's lock directory (lock_file.h).
// The kernel drops a lock when its holder dies, so a killed writer never leaves the settings
// locked.
#include <sys/file.h>

#include <cerrno>
#include <cstdio>
#include <map>
#include <mutex>
#include <utility>

#include "platform/vlibc/kv_staging.h"
#include "platform/vlibc/lock_file.h"
#include "platform/vlibc/vlibc_error.h"
#include "platform/vlibc/vlibc_file.h"

namespace qrix::kv {
namespace {

struct HeldLock {
  LockFile lock;
  int depth = 0;
};

std::recursive_mutex g_lock_mutex;
std::map<int, HeldLock> g_held;  // lock id -> lock

}  // namespace

bool StagingActive() {
  const std::lock_guard<std::recursive_mutex> guard(g_lock_mutex);
  return !g_held.empty();
}

}  // namespace qrix::kv

bool qrix::AnyNamedLockHeld() {
  return qrix::kv::StagingActive();
}

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
  const int operation =
      (flags & VLIBC_LOCK_SHARED) != 0 && (flags & VLIBC_LOCK_EXCLUSIVE) == 0 ? LOCK_SH : LOCK_EX;
  const double wait = (flags & VLIBC_LOCK_WAIT) != 0 && timeout > 0 ? timeout : 0.0;
  char name[32];
  char what[32];
  std::snprintf(name, sizeof name, "vlibc-%04x.lock", id);
  std::snprintf(what, sizeof what, "named lock 0x%04x", id);
  qrix::LockFile lock(name, operation, wait, what);
  if (!lock.Held()) {
    VLIBCErrSet(lock.Error() == ETIMEDOUT ? ERR_LOCK_TIMEOUT : ERR_LOCK);
    return -1;
  }
  g_held[id] = HeldLock{std::move(lock), 1};
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
