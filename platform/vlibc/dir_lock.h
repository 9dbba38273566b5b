// An exclusive lock for the processes that rewrite files of one directory, or one file of it:
// writers that read a file, change it and publish it again hold it so that no update is lost.
// It is a lock file of the platform's lock directory (lock_file.h) named after the directory's
// device and inode and the file's name, so no other account can hold it and writers of two files
// of one directory do not wait for each other. Each object takes its own, so two threads of one
// process exclude each other as two processes do.
#ifndef QRIX_PLATFORM_VLIBC_DIR_LOCK_H_
#define QRIX_PLATFORM_VLIBC_DIR_LOCK_H_

#include <string>

#include "platform/qrix_export.h"
#include "platform/vlibc/lock_file.h"

namespace qrix {

class QRIX_EXPORT DirectoryLock {
 public:
  // Waits for the lock of file `name` of directory `dir`, or of the whole directory when `name`
  // is empty (the two do not exclude each other: use one or the other for a given file).
  // Held() tells whether it was taken; a wait that runs out is logged.
  explicit DirectoryLock(const std::string& dir, const std::string& name = "");
  DirectoryLock(const DirectoryLock&) = delete;
  DirectoryLock& operator=(const DirectoryLock&) = delete;
  ~DirectoryLock() = default;

  bool Held() const { return lock_.Held(); }

 private:
  LockFile lock_;
};

// Creates `dir` and its missing parents with `mode`. Returns 0, or an errno value.
QRIX_EXPORT int MakeDirectories(const std::string& dir, unsigned mode = 0755);

}  // namespace qrix

#endif  // QRIX_PLATFORM_VLIBC_DIR_LOCK_H_
