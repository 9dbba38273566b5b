// Signalling by pid file: only a well-formed pid file of a live process gets the signal.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "platform/vlibc/process.h"
#include "platform/vlibc/vlibc_error.h"
#include "platform/vlibc/vlibc_proc.h"
#include "tests/support/files.h"

namespace {

constexpr const char* kPidFile = "/tmp/proc_test.pid";

// A child that exits with 40 + the number of the first signal it receives.
pid_t SignalCatcher() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGHUP);
  sigaddset(&set, SIGUSR2);
  sigprocmask(SIG_BLOCK, &set, nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    int sig = 0;
    sigwait(&set, &sig);
    _exit(40 + sig);
  }
  sigprocmask(SIG_UNBLOCK, &set, nullptr);
  return pid;
}

TEST(VlibcProcTest, SignalsTheProcessOfAWellFormedPidFile) {
  const pid_t pid = SignalCatcher();
  qrix::test::WriteText(kPidFile, "  " + std::to_string(pid) + "\n");
  ASSERT_EQ(VLIBCProcSignalByPidFile(kPidFile, SIGUSR2), 0);
  int status = 0;
  waitpid(pid, &status, 0);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 40 + SIGUSR2);
}

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
  usleep(50000);  // exited, not yet reaped
  struct Case {
    const char* name;
    std::string content;  // "-" for no file
    int error;
  } const cases[] = {
      {"no file", "-", ERR_PIDFILE},
      {"empty", "", ERR_PIDFILE},
      {"words", "scheduler", ERR_PIDFILE},
      {"trailing junk", std::to_string(getpid()) + "x", ERR_PIDFILE},
      {"two numbers", "12 13", ERR_PIDFILE},
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
    if (c.content != "-") {
      qrix::test::WriteText(kPidFile, c.content);
    }
    EXPECT_EQ(VLIBCProcSignalByPidFile(kPidFile, 0), -1);
    EXPECT_EQ(VLIBCErrGet(), c.error);
  }
  waitpid(zombie, nullptr, 0);
}

TEST(ProcessRunnerTest, RunsWithoutAShellAndCapturesOutput) {
  std::string out;
  EXPECT_EQ(qrix::RunProcess({"/bin/echo", "a b", "$HOME;", "*"}, &out), 0);
  EXPECT_EQ(out, "a b $HOME; *\n");
  EXPECT_EQ(qrix::RunProcess({"/bin/sh", "-c", "exit 7"}), 7);
  EXPECT_EQ(qrix::RunProcess({"/nonexistent/program"}), 127);
  EXPECT_EQ(qrix::RunProcess({"relative/path"}), -1);
  EXPECT_EQ(qrix::RunProcess({"/bin/sh", "-c", "kill -9 $$"}), -1);
}

}  // namespace
