#include "tests/support/lock_holder.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/vlibc/vlibc_file.h"

namespace qrix::test {

LockHolder::LockHolder(int flags) : LockHolder([flags] { return VLIBCFileLock(flags, 5) == 0; }) {}

LockHolder::LockHolder(const std::function<bool()>& take) {
  int fds[2];
  if (pipe(fds) != 0) {
    return;
  }
  pid_ = fork();
  if (pid_ == 0) {
    close(fds[0]);
    const char ok = take() ? 'y' : 'n';
    (void)!write(fds[1], &ok, 1);
    pause();
    _exit(0);
  }
  close(fds[1]);
  char ok = 0;
  holding_ = pid_ > 0 && read(fds[0], &ok, 1) == 1 && ok == 'y';
  close(fds[0]);
}

LockHolder::~LockHolder() {
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
}

}  // namespace qrix::test
