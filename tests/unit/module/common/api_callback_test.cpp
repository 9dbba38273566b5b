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

// Runs `body` in a child; the child's exit status is what `body` returns.
int InChild(const std::function<int()>& body) {
  const pid_t pid = fork();
  if (pid == 0) {
    _exit(body());
  }
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

struct SignalCase {
  const char* name;
  void (*callback)(void*);
  Counts want;
};

TEST(ApiCallbackTest, EachSchedulerSignalIsSentOncePerProcess) {
  const SignalCase cases[] = {
      {"SIGHUP", QRIXDL::Callback::SchedulerSIGHUP, {1, 0, 0}},
      {"SIGCONT", QRIXDL::Callback::SchedulerSIGCONT, {0, 1, 0}},
      {"SIGUSR2", QRIXDL::Callback::SchedulerSIGUSR2, {0, 0, 1}},
  };
  for (const SignalCase& c : cases) {
    SCOPED_TRACE(c.name);
    FakeScheduler scheduler;
    EXPECT_EQ(InChild([&] {
                c.callback(nullptr);
                c.callback(nullptr);  // registered twice: still one signal
                return QRIXDLErrGet();
              }),
              0);
    EXPECT_EQ(scheduler.WaitFor(c.want), c.want);
    // A second process (the next request) signals again.
    EXPECT_EQ(InChild([&] {
                c.callback(nullptr);
                return 0;
              }),
              0);
    const Counts twice{c.want.hup * 2, c.want.cont * 2, c.want.usr2 * 2};
    EXPECT_EQ(scheduler.WaitFor(twice), twice);
  }
}

struct FailureCase {
  const char* name;
  void (*callback)(void*);
  int code;
  const char* line;
  int lines;  // of common/api_callback, the informational one included
};

TEST(ApiCallbackTest, AStalePidFileLogsAndRecordsAndStillSetsTheFlag) {
  const FailureCase cases[] = {
      {"SIGHUP", QRIXDL::Callback::SchedulerSIGHUP, 514, "Failed to hup scheduled.", 1},
      {"SIGCONT", QRIXDL::Callback::SchedulerSIGCONT, 514, "Failed to send SIGCONT to scheduled.",
       1},
      {"SIGUSR2", QRIXDL::Callback::SchedulerSIGUSR2, 515, "Failed to send SIGUSR2 to scheduled.",
       2},
  };
  for (const FailureCase& c : cases) {
    SCOPED_TRACE(c.name);
    qrix::test::WriteText("/tmp/qrixdl_scheduler.pid", "999999\n");  // nobody
    SyslogCapture::Get().Clear();
    EXPECT_EQ(InChild([&] {
                c.callback(nullptr);
                if (QRIXDLErrGet() != c.code) {
                  return 1;
                }
                QRIXDLErrSet(0);
                c.callback(nullptr);  // the flag is set: nothing more
                return QRIXDLErrGet() == 0 ? 0 : 2;
              }),
              0);
    EXPECT_EQ(SyslogCapture::Get().Count("common/api_callback:"), c.lines);
    EXPECT_EQ(SyslogCapture::Get().Count(c.line), 1);
    EXPECT_EQ(SyslogCapture::Get().Count("Failed to send HUP to scheduler."), 1);
  }
}

TEST(ApiCallbackTest, FirewallReloadRunsTheHookOnce) {
  const std::string hook = "/tmp/fw_hook.sh";
  const std::string ran = "/tmp/fw_hook.ran";
  qrix::test::WriteText(hook, "#!/bin/sh\necho ran >> " + ran + "\nexit ${FW_EXIT:-0}\n");
  chmod(hook.c_str(), 0755);
  qrix::test::WriteText("/var/qrix/etc/firewall.conf", "reload_hook=\"" + hook + "\"\n");
  qrix::test::Remove(ran);
  SyslogCapture::Get().Clear();
  EXPECT_EQ(InChild([] {
              QRIXDL::Callback::ReloadFirewall(nullptr);
              QRIXDL::Callback::ReloadFirewall(nullptr);
              return QRIXDLErrGet();
            }),
            0);
  EXPECT_EQ(qrix::test::ReadText(ran), "ran\n");
  EXPECT_EQ(SyslogCapture::Get().Count("common/api_callback:"), 1);
  EXPECT_EQ(SyslogCapture::Get().Count("reload firewall"), 1);

  setenv("FW_EXIT", "3", 1);
  SyslogCapture::Get().Clear();
  EXPECT_EQ(InChild([] {
              QRIXDL::Callback::ReloadFirewall(nullptr);
              return QRIXDLErrGet() == 518 ? 0 : 1;
            }),
            0);
  EXPECT_TRUE(SyslogCapture::Get().Contains("Failed to reload firewall rules."));
  unsetenv("FW_EXIT");
}

TEST(ApiCallbackTest, NoFirewallHookMeansNothingToReload) {
  qrix::test::Remove("/var/qrix/etc/firewall.conf");
  EXPECT_EQ(InChild([] {
              QRIXDL::Callback::ReloadFirewall(nullptr);
              return QRIXDLErrGet();
            }),
            0);
}

}  // namespace
