// The runner as the package's scripts are driven: its own argv[0], arguments passed untouched,
// output captured; and a detached start that leaves no child behind.
#include "platform/vlibc/process_runner.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <thread>

#include "tests/support/files.h"

namespace {

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
