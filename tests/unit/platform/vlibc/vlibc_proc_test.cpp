// Signalling by pid file: only a pid file that root or the package wrote, naming a live process
// of its writer, gets the signal.
#include <errno.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "platform/vlibc/process.h"
#include "platform/vlibc/vlibc_error.h"
#include "platform/vlibc/vlibc_proc.h"
#include "tests/support/files.h"
#include "tests/support/syslog_capture.h"

namespace {

constexpr const char* kPidFile = "/tmp/proc_test.pid";
constexpr uid_t kNobody = 65534;
constexpr uid_t kPackage = 990;  // the sandbox's Haulport account

// A child running as `uid` that exits with 40 + the number of the first signal it receives.
pid_t SignalCatcher(uid_t uid = 0) {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGHUP);
  sigaddset(&set, SIGUSR2);
  sigprocmask(SIG_BLOCK, &set, nullptr);
  int running_as[2];
  if (pipe(running_as) != 0) {
    return -1;
  }
  const pid_t pid = fork();
  if (pid == 0) {
    if (uid != 0 && setresuid(uid, uid, uid) != 0) {
      _exit(1);
    }
    // Set after the id change, which clears it: a failed assertion must not leave it behind.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    close(running_as[1]);
    int sig = 0;
    sigwait(&set, &sig);
    _exit(40 + sig);
  }
  sigprocmask(SIG_UNBLOCK, &set, nullptr);
  // Returns once the child runs as `uid` (or has died): before that it is root's process.
  close(running_as[1]);
  char none = 0;
  while (read(running_as[0], &none, 1) < 0 && errno == EINTR) {
  }
  close(running_as[0]);
  return pid;
}

int FirstSignalOf(pid_t pid) {
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) - 40 : -1;
}

void WritePidFile(pid_t pid, uid_t owner, mode_t mode) {
  qrix::test::Remove(kPidFile);
  qrix::test::WriteText(kPidFile, "  " + std::to_string(pid) + "\n");
  ASSERT_EQ(chown(kPidFile, owner, owner), 0);
  ASSERT_EQ(chmod(kPidFile, mode), 0);
}

// Only a pid file root or the package wrote, naming a process of its writer, aims the signal.
// One that another account could have written or planted, or that names a process other than
// its writer's, must never aim root's signal.
TEST(VlibcProcTest, SignalsOnlyThroughPidFilesOthersCouldNotTurn) {
  struct Case {
    const char* name;
    uid_t process;  // the account the process named runs as
    uid_t owner;    // and the pid file's owner and mode
    mode_t mode;
    bool signalled;
  } const cases[] = {
      {"root's", 0, 0, 0644, true},
      {"the package's", kPackage, kPackage, 0644, true},
      {"owned by nobody", 0, kNobody, 0644, false},
      {"writable by others", 0, 0, 0666, false},
      {"writable by the group", 0, 0, 0664, false},
      {"a process of another account", kNobody, 0, 0644, false},
  };
  auto& log = qrix::test::SyslogCapture::Get();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    log.Clear();
    const pid_t pid = SignalCatcher(c.process);
    WritePidFile(pid, c.owner, c.mode);
    EXPECT_EQ(VLIBCProcSignalByPidFile(kPidFile, SIGHUP), c.signalled ? 0 : -1);
    EXPECT_EQ(log.Contains(std::string("refusing pid file ") + kPidFile), !c.signalled);
    // A refused SIGHUP never arrived: the first signal the process sees is this one.
    kill(pid, SIGUSR2);
    EXPECT_EQ(FirstSignalOf(pid), c.signalled ? SIGHUP : SIGUSR2);
  }
}

// A pid file that is no plain file, or names no live process, is refused too (sig 0: a wrong
// success here would signal nothing).
TEST(VlibcProcTest, RefusesPidFilesThatNameNoLiveProcess) {
  const pid_t dead = fork();
  if (dead == 0) {
    _exit(0);
  }
  waitpid(dead, nullptr, 0);
  const pid_t zombie = fork();
  if (zombie == 0) {
    _exit(0);
  }
  siginfo_t exited{};
  ASSERT_EQ(waitid(P_PID, zombie, &exited, WEXITED | WNOWAIT), 0);  // exited, not yet reaped
  struct Case {
    const char* name;
    std::string content;  // "-" for no file, "link" or "dir" for one to this process
    int error;
  } const cases[] = {
      {"no file", "-", ERR_PIDFILE},
      {"a symbolic link", "link", ERR_PIDFILE},
      {"a directory", "dir", ERR_PIDFILE},
      {"empty", "", ERR_PIDFILE},
      {"trailing junk", std::to_string(getpid()) + "x", ERR_PIDFILE},
      {"negative", "-5", ERR_PIDFILE},
      {"zero", "0", ERR_PIDFILE},
      {"init", "1", ERR_PIDFILE},
      {"huge", "99999999999", ERR_PIDFILE},
      {"dead process", std::to_string(dead), ERR_NO_SUCH_PROCESS},
      {"zombie", std::to_string(zombie), ERR_NO_SUCH_PROCESS},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    qrix::test::Remove(kPidFile);
    if (c.content == "link") {
      qrix::test::WriteText("/tmp/proc_test.real", std::to_string(getpid()));
      ASSERT_EQ(symlink("/tmp/proc_test.real", kPidFile), 0);
    } else if (c.content == "dir") {
      ASSERT_EQ(mkdir(kPidFile, 0755), 0);
    } else if (c.content != "-") {
      qrix::test::WriteText(kPidFile, c.content);
    }
    EXPECT_EQ(VLIBCProcSignalByPidFile(kPidFile, 0), -1);
    EXPECT_EQ(VLIBCErrGet(), c.error);
  }
  waitpid(zombie, nullptr, 0);
}

}  // namespace
