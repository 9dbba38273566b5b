#include "tests/support/fake_scheduler.h"

#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <thread>
#include <utility>

#include "platform/vlibc/atomic_file.h"

namespace qrix::test {
namespace {

bool PidFileNames(const std::string& pid_file, pid_t pid) {
  std::string text;
  return ReadFile(pid_file, &text) == 0 && std::stoi(text) == pid;
}

}  // namespace

FakeScheduler::FakeScheduler(std::string pid_file)
    : pid_file_(std::move(pid_file)), counts_path_(pid_file_ + ".counts") {
  ::unlink(pid_file_.c_str());
  ::unlink(counts_path_.c_str());
  pid_ = ::fork();
  if (pid_ == 0) {
#ifdef QRIX_TEST_EMULATOR
    ::execlp(QRIX_TEST_EMULATOR, QRIX_TEST_EMULATOR, QRIX_FAKE_SCHEDULER, counts_path_.c_str(),
             pid_file_.c_str(), nullptr);
#else
    ::execl(QRIX_FAKE_SCHEDULER, QRIX_FAKE_SCHEDULER, counts_path_.c_str(), pid_file_.c_str(),
            nullptr);
#endif
    ::_exit(127);
  }
  for (int i = 0; i < 500 && !PidFileNames(pid_file_, pid_); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  if (!PidFileNames(pid_file_, pid_)) {
    throw std::runtime_error("fake scheduler did not start");
  }
}

FakeScheduler::~FakeScheduler() {
  if (pid_ > 0) {
    ::kill(pid_, SIGTERM);
    ::waitpid(pid_, nullptr, 0);
  }
}

FakeScheduler::Counts FakeScheduler::Read() const {
  std::string text;
  Counts c;
  if (ReadFile(counts_path_, &text) == 0) {
    std::sscanf(text.c_str(), "hup=%d cont=%d usr2=%d usr1=%d", &c.hup, &c.cont, &c.usr2, &c.usr1);
  }
  return c;
}

FakeScheduler::Counts FakeScheduler::WaitFor(const Counts& want, int ms) const {
  Counts c = Read();
  for (int waited = 0; !(c == want) && waited < ms; waited += 5) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    c = Read();
  }
  return c;
}

}  // namespace qrix::test
