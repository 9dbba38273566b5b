// Processes: signalling by pid file (only a pid file that root or the package wrote, naming a
// live process of its writer, gets the signal) and the runner as the package's scripts are
// driven (its own argv[0], arguments passed untouched, output captured; a detached start that
// leaves no child behind).
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <thread>

#include "platform/vlibc/process.h"
#include "platform/vlibc/process_runner.h"
#include "platform/vlibc/vlibc_error.h"
#include "platform/vlibc/vlibc_proc.h"
#include "tests/support/files.h"
#include "tests/support/lock_holder.h"
#include "tests/support/syslog_capture.h"

namespace {

constexpr const char* kPidFile = "/tmp/proc_test.pid";
constexpr uid_t kNobody = 65534;
constexpr uid_t kPackage = 990;  // the sandbox's Haulport account

// The signal that ended `pid` (left for its holder to reap), or -1: a refused SIGHUP never
// arrived, so the first signal is the one that ends it.
int FirstSignalOf(pid_t pid) {
  siginfo_t info{};
  waitid(P_PID, pid, &info, WEXITED | WNOWAIT);
  return info.si_code == CLD_KILLED ? info.si_status : -1;
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
    // Another process, killed and reaped at the end of the row.
    const qrix::test::LockHolder process(
        [uid = c.process] { return uid == 0 || setresuid(uid, uid, uid) == 0; });
    ASSERT_TRUE(process.Holding());
    const pid_t pid = process.Pid();
    qrix::test::Remove(kPidFile);
    qrix::test::WriteText(kPidFile, "  " + std::to_string(pid) + "\n");
    ASSERT_EQ(chown(kPidFile, c.owner, c.owner), 0);
    ASSERT_EQ(chmod(kPidFile, c.mode), 0);
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
  const pid_t dead = qrix::test::LockHolder([] { return true; }).Pid();  // killed and reaped
  const qrix::test::LockHolder zombie([] { return true; });
  kill(zombie.Pid(), SIGKILL);
  ASSERT_EQ(FirstSignalOf(zombie.Pid()), SIGKILL);  // exited, not yet reaped
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
      {"zombie", std::to_string(zombie.Pid()), ERR_NO_SUCH_PROCESS},
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
}

TEST(ProcessRunnerTest, PassesArgv0AndArgumentsUntouched) {
  QRIXUtils::ProcessRunner runner("/bin/sh", "named-shell");
  runner.addArguments("-c", R"(printf '%s|' "$0" "$@")", "x");
  runner.addArguments("a b", "$HOME", "'\"", "two\nlines", "", "-", "7", "8", "9");
  EXPECT_EQ(runner.run(true, true), 0);
  EXPECT_EQ(runner.getCapturedOutput(), "x|a b|$HOME|'\"|two\nlines||-|7|8|9|");

  QRIXUtils::ProcessRunner failing("/bin/sh", "sh");
  failing.addArguments("-c", "echo partial; exit 3");
  EXPECT_EQ(failing.run(true, false), 3);
  EXPECT_EQ(failing.getCapturedOutput(), "");
  QRIXUtils::ProcessRunner missing("/nonexistent", "x");
  EXPECT_EQ(missing.run(true, true), -1);
  EXPECT_EQ(missing.run(false, false), -1);
  EXPECT_EQ(QRIXUtils::ProcessRunner("relative/path", "x").run(true, false), -1);
  QRIXUtils::ProcessRunner killed("/bin/sh", "sh");
  killed.addArguments("-c", "kill -9 $$");
  EXPECT_EQ(killed.run(true, false), -1);
}

TEST(ProcessRunnerTest, ADetachedProgramRunsOnWithoutAChildToReap) {
  const std::string done = "/tmp/runner_detached.done";
  qrix::test::Remove(done);
  QRIXUtils::ProcessRunner runner("/bin/sh", "sh");
  runner.addArguments("-c", "sleep 0.2; echo $PPID > " + done);
  ASSERT_EQ(runner.run(false, false), 0);
  // Nothing of ours is left to wait for: the program's parent is already gone.
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
  for (int i = 0; i < 300 && qrix::test::ReadText(done).empty(); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  const std::string parent = qrix::test::ReadText(done);
  ASSERT_FALSE(parent.empty());
  EXPECT_NE(std::stoi(parent), getpid());
}

}  // namespace
