// An exclusive lock on a directory, shared by the processes that rewrite files in it: writers
// that read a file, change it and publish it again hold it so that no update is lost. flock on
// the directory itself, so the kernel drops it when its holder dies and two threads of one
// process exclude each other as two processes do.
#ifndef QRIX_PLATFORM_VLIBC_DIR_LOCK_H_
#define QRIX_PLATFORM_VLIBC_DIR_LOCK_H_

#include <string>

#include "platform/qrix_export.h"
#include "platform/vlibc/unique_fd.h"

namespace qrix {

class QRIX_EXPORT DirectoryLock {
 public:
  // Waits for the lock on directory `dir`; Held() tells whether it was taken.
  explicit DirectoryLock(const std::string& dir);
  DirectoryLock(const DirectoryLock&) = delete;
  DirectoryLock& operator=(const DirectoryLock&) = delete;
  ~DirectoryLock() = default;  // closing the descriptor releases the lock

  bool Held() const { return fd_.Valid(); }

 private:
  UniqueFd fd_;
};

// Creates `dir` and its missing parents with `mode`. Returns 0, or an errno value.
QRIX_EXPORT int MakeDirectories(const std::string& dir, unsigned mode = 0755);

}  // namespace qrix

#endif  // QRIX_PLATFORM_VLIBC_DIR_LOCK_H_
