// Another process holding a named file lock for as long as this object lives.
#ifndef HAULPORT_TESTS_SUPPORT_LOCK_HOLDER_H_
#define HAULPORT_TESTS_SUPPORT_LOCK_HOLDER_H_

#include <sys/types.h>

namespace qrix::test {

class LockHolder {
 public:
  // Forks a child that takes the lock (flags as for VLIBCFileLock) and waits until it has.
  explicit LockHolder(int flags = 0x806);
  LockHolder(const LockHolder&) = delete;
  LockHolder& operator=(const LockHolder&) = delete;
  // Kills the child; the kernel releases the lock with it.
  ~LockHolder();

  bool Holding() const { return holding_; }
  pid_t Pid() const { return pid_; }

 private:
  pid_t pid_ = -1;
  bool holding_ = false;
};

}  // namespace qrix::test

#endif  // HAULPORT_TESTS_SUPPORT_LOCK_HOLDER_H_
