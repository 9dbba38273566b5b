// The post-response callbacks, each run in a forked child as in a fresh host worker: real
// signals reach the fake scheduler, at most once per process, and failures log and record.
#include "module/common/api_callback.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>

#include "platform/dlbase/handler_base.h"
#include "tests/support/fake_scheduler.h"
#include "tests/support/files.h"
#include "tests/support/syslog_capture.h"

namespace {

using qrix::test::FakeScheduler;
using qrix::test::SyslogCapture;
using Counts = FakeScheduler::Counts;

// Runs `callback` twice in a child (the second time must do nothing): the code the first run
// recorded (every code is 5xx: the exit status holds it less 500), or 755 when the second one
// recorded any.
int TwiceInChild(void (*callback)(void*)) {
  const pid_t pid = fork();
  if (pid == 0) {
    callback(nullptr);
    const int first = QRIXDLErrGet();
    QRIXDLErrSet(0);
    callback(nullptr);
    _exit(QRIXDLErrGet() != 0 ? 255 : first == 0 ? 0 : first - 500);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  return !WIFEXITED(status) ? -1 : WEXITSTATUS(status) == 0 ? 0 : WEXITSTATUS(status) + 500;
}

// Each signal once per process, and again in the next process; a stale pid file logs and
// records its code, and still sets the flag.
TEST(ApiCallbackTest, EachSchedulerSignalIsSentOncePerProcess) {
  const struct {
    void (*callback)(void*);
    Counts want;
    int code;  // with a stale pid file
    const char* line;
    int lines;  // of common/api_callback then, the informational one included
  } cases[] = {
      {QRIXDL::Callback::SchedulerSIGHUP, {1, 0, 0}, 514, "Failed to hup scheduled.", 1},
      {QRIXDL::Callback::SchedulerSIGCONT,
       {0, 1, 0},
       514,
       "Failed to send SIGCONT to scheduled.",
       1},
      {QRIXDL::Callback::SchedulerSIGUSR2,
       {0, 0, 1},
       515,
       "Failed to send SIGUSR2 to scheduled.",
       2},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.line);
    {
      FakeScheduler scheduler;
      EXPECT_EQ(TwiceInChild(c.callback), 0);
      EXPECT_EQ(scheduler.WaitFor(c.want), c.want);
      EXPECT_EQ(TwiceInChild(c.callback), 0);
      const Counts twice{c.want.hup * 2, c.want.cont * 2, c.want.usr2 * 2};
      EXPECT_EQ(scheduler.WaitFor(twice), twice);
    }
    qrix::test::WriteText("/tmp/qrixdl_scheduler.pid", "999999\n");  // nobody
    SyslogCapture::Get().Clear();
    EXPECT_EQ(TwiceInChild(c.callback), c.code);
    EXPECT_EQ(SyslogCapture::Get().Count("common/api_callback:"), c.lines);
    EXPECT_EQ(SyslogCapture::Get().Count(c.line), 1);
    EXPECT_EQ(SyslogCapture::Get().Count("Failed to send HUP to scheduler."), 1);
  }
}

TEST(ApiCallbackTest, FirewallReloadRunsTheHookOnce) {
  qrix::test::Remove("/var/qrix/etc/firewall.conf");
  EXPECT_EQ(TwiceInChild(QRIXDL::Callback::ReloadFirewall), 0);  // no hook: nothing to reload
  const std::string hook = "/tmp/fw_hook.sh";
  const std::string ran = "/tmp/fw_hook.ran";
  qrix::test::WriteText(hook, "#!/bin/sh\necho ran >> " + ran + "\nexit ${FW_EXIT:-0}\n");
  chmod(hook.c_str(), 0755);
  qrix::test::WriteText("/var/qrix/etc/firewall.conf", "reload_hook=\"" + hook + "\"\n");
  qrix::test::Remove(ran);
  SyslogCapture::Get().Clear();
  EXPECT_EQ(TwiceInChild(QRIXDL::Callback::ReloadFirewall), 0);
  EXPECT_EQ(qrix::test::ReadText(ran), "ran\n");
  EXPECT_EQ(SyslogCapture::Get().Count("common/api_callback:"), 1);
  EXPECT_EQ(SyslogCapture::Get().Count("reload firewall"), 1);
  setenv("FW_EXIT", "3", 1);
  EXPECT_EQ(TwiceInChild(QRIXDL::Callback::ReloadFirewall), 518);
  EXPECT_TRUE(SyslogCapture::Get().Contains("Failed to reload firewall rules."));
  unsetenv("FW_EXIT");
}

}  // namespace
