// The one lock mechanism of the platform: flock on a file of the lock directory. Only root and
// the package's group can write that directory (root:Haulport, mode 02770), and a lock file is
// used only when it is a plain file, reached without following a link, that belongs to root or
// the package's account and that no other account may open. So no other local account can
// hold a lock, plant one or turn root's open of one into a write elsewhere. The kernel drops a
// lock when its holder dies.
#ifndef QRIX_PLATFORM_VLIBC_LOCK_FILE_H_
#define QRIX_PLATFORM_VLIBC_LOCK_FILE_H_

#include <string>

#include "platform/qrix_export.h"
#include "platform/vlibc/unique_fd.h"

#define QRIX_LOCK_DIR "/run/lock/qrix"

namespace qrix {

class LockFile {
 public:
  LockFile() = default;  // holds nothing
  // Takes lock file `name` of the lock directory, made when missing (by root), with flock
  // `operation` (LOCK_EX or LOCK_SH), trying for up to `seconds` (0: once). When another
  // process holds it all that time, logs the lock, `what` it guards, the wait and the holder.
  LockFile(const std::string& name, int operation, double seconds, const std::string& what);
  LockFile(LockFile&&) noexcept = default;
  LockFile& operator=(LockFile&&) noexcept = default;
  ~LockFile() = default;  // closing the descriptor releases the lock

  bool Held() const { return fd_.Valid(); }
  // Why it is not held: ETIMEDOUT when another process holds it, else what failed.
  int Error() const { return error_; }

 private:
  UniqueFd fd_;
  int error_ = 0;
};

// True while this process holds a named lock (VLIBCFileLock). A long-lived process that finds
// one still held after a unit of work must not go on: every other writer would wait on it.
QRIX_EXPORT bool AnyNamedLockHeld();

}  // namespace qrix

#endif  // QRIX_PLATFORM_VLIBC_LOCK_FILE_H_
