// Another process holding a named file lock, or whatever else it took, for as long as this
// object lives.
#ifndef HAULPORT_TESTS_SUPPORT_LOCK_HOLDER_H_
#define HAULPORT_TESTS_SUPPORT_LOCK_HOLDER_H_

#include <sys/types.h>

#include <functional>

namespace qrix::test {

class LockHolder {
 public:
  // Forks a child that takes the lock (flags as for VLIBCFileLock) and waits until it has.
  explicit LockHolder(int flags = 0x806);
  // Forks a child that runs `take` and keeps what it opened; Holding() is what `take` returned.
  explicit LockHolder(const std::function<bool()>& take);
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
