#include "host/worker_pool.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <map>
#include <string>

#include "host/host_log.h"
#include "host/priority.h"
#include "host/worker_watchdog.h"
#include "platform/vlibc/unique_fd.h"

namespace qrix::host {
namespace {

using Clock = std::chrono::steady_clock;

// The worker answers 110 itself when its time is up; the master kills it only if it cannot.
constexpr auto kKillGrace = std::chrono::seconds(2);
// After a worker died before serving anything, forking again at once would only spin.
constexpr auto kRespawnPause = std::chrono::seconds(1);

std::string WorkerName(pid_t pid) {
  return std::to_string(pid);
}

class Master {
 public:
  Master(const PoolSettings& settings, const WorkerMain& worker_main)
      : settings_(settings), worker_main_(worker_main) {}

  int Run();

 private:
  struct Child {
    bool busy = false;
    bool killed = false;  // by the master, already logged
    Clock::time_point deadline;
  };

  bool Setup();
  void Spawn();
  void SpawnMissing();
  void ReadBusyReports();
  void ReadSignals();
  void Reap();
  void KillOverdue();
  void BeginStop();
  int PollTimeout() const;

  const PoolSettings& settings_;
  const WorkerMain& worker_main_;
  std::map<pid_t, Child> children_;
  int idle_ = 0;
  bool stopping_ = false;
  bool stop_killed_ = false;
  Clock::time_point stop_deadline_;
  Clock::time_point next_spawn_;
  sigset_t handled_{};
  sigset_t old_mask_{};
  UniqueFd signals_;
  UniqueFd busy_read_;
  UniqueFd busy_write_;
};

bool Master::Setup() {
  LowerForHousekeeping();
  sigemptyset(&handled_);
  for (const int sig : {SIGCHLD, SIGTERM, SIGINT}) {
    sigaddset(&handled_, sig);
  }
  ::sigprocmask(SIG_BLOCK, &handled_, &old_mask_);
  signals_.Reset(::signalfd(-1, &handled_, SFD_CLOEXEC | SFD_NONBLOCK));
  int fds[2];
  if (!signals_.Valid() || ::pipe2(fds, O_CLOEXEC) != 0) {
    LogFailure("cannot set up the worker pool of", "qrix-webapi", errno);
    return false;
  }
  busy_read_.Reset(fds[0]);
  busy_write_.Reset(fds[1]);
  ::fcntl(busy_read_.Get(), F_SETFL, O_NONBLOCK);
  return true;
}

void Master::Spawn() {
  const pid_t master = ::getpid();
  const pid_t pid = ::fork();
  if (pid < 0) {
    LogFailure("cannot fork a worker of", "qrix-webapi", errno);
    next_spawn_ = Clock::now() + kRespawnPause;
    return;
  }
  if (pid == 0) {
    RaiseForServing();
    signals_.Reset();
    busy_read_.Reset();
    // An orphaned worker would keep the port open: it follows the master out.
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (::getppid() != master) {
      ::_exit(0);
    }
    WorkerChannel channel(busy_write_.Release());
    worker_main_(channel);
    ::_exit(0);
  }
  children_[pid] = Child{};
  ++idle_;
}

void Master::SpawnMissing() {
  while (idle_ < settings_.idle_workers &&
         static_cast<int>(children_.size()) < settings_.max_workers &&
         Clock::now() >= next_spawn_) {
    Spawn();
  }
}

void Master::ReadBusyReports() {
  pid_t pids[64];
  for (;;) {
    const ssize_t n = ::read(busy_read_.Get(), pids, sizeof pids);
    if (n <= 0) {
      return;
    }
    for (ssize_t i = 0; i < n / static_cast<ssize_t>(sizeof(pid_t)); ++i) {
      const auto it = children_.find(pids[i]);
      if (it != children_.end() && !it->second.busy) {
        it->second.busy = true;
        it->second.deadline =
            Clock::now() + std::chrono::seconds(settings_.request_timeout) + kKillGrace;
        --idle_;
      }
    }
  }
}

void Master::Reap() {
  int status = 0;
  pid_t pid;
  while ((pid = ::waitpid(-1, &status, WNOHANG)) > 0) {
    const auto it = children_.find(pid);
    if (it == children_.end()) {
      continue;
    }
    const Child child = it->second;
    children_.erase(it);
    if (!child.busy) {
      --idle_;
    }
    const bool clean = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    if (WIFSIGNALED(status) && !child.killed && !(stopping_ && WTERMSIG(status) == SIGTERM)) {
      const int sig = WTERMSIG(status);
      LogFailure("request worker", WorkerName(pid),
                 "ended by signal " + std::to_string(sig) + " (" + ::strsignal(sig) + ")");
    } else if (WIFEXITED(status) && WEXITSTATUS(status) == kExitTimeLimit) {
      LogFailure(
          "request worker", WorkerName(pid),
          "exceeded the request time limit of " + std::to_string(settings_.request_timeout) + " s");
    } else if (WIFEXITED(status) && !clean) {
      LogFailure("request worker", WorkerName(pid),
                 "exited with status " + std::to_string(WEXITSTATUS(status)));
    }
    if (!child.busy && !clean && !stopping_) {
      next_spawn_ = Clock::now() + kRespawnPause;
    }
  }
}

void Master::BeginStop() {
  if (stopping_) {
    // Asked twice: no more waiting for busy workers.
    for (const auto& [pid, child] : children_) {
      ::kill(pid, SIGKILL);
    }
    stop_killed_ = true;
    return;
  }
  stopping_ = true;
  stop_deadline_ = Clock::now() + std::chrono::seconds(settings_.request_timeout) + kKillGrace;
  // Waiting workers leave at once; busy ones finish their request first.
  for (const auto& [pid, child] : children_) {
    ::kill(pid, SIGTERM);
  }
}

void Master::ReadSignals() {
  signalfd_siginfo info{};
  while (::read(signals_.Get(), &info, sizeof info) == sizeof info) {
    if (info.ssi_signo == SIGCHLD) {
      Reap();
    } else {
      BeginStop();
    }
  }
  Reap();  // SIGCHLD signals merge: never rely on one per child
}

void Master::KillOverdue() {
  const Clock::time_point now = Clock::now();
  for (auto& [pid, child] : children_) {
    if (child.busy && !child.killed && now >= child.deadline) {
      ::kill(pid, SIGKILL);
      child.killed = true;
      LogFailure("request worker", WorkerName(pid),
                 "exceeded the request time limit of " + std::to_string(settings_.request_timeout) +
                     " s; killed");
    }
  }
  if (stopping_ && !stop_killed_ && now >= stop_deadline_) {
    for (const auto& [pid, child] : children_) {
      ::kill(pid, SIGKILL);
    }
    stop_killed_ = true;
  }
}

int Master::PollTimeout() const {
  Clock::time_point next = Clock::time_point::max();
  for (const auto& [pid, child] : children_) {
    if (child.busy && !child.killed) {
      next = std::min(next, child.deadline);
    }
  }
  if (stopping_ && !stop_killed_) {
    next = std::min(next, stop_deadline_);
  }
  // A spawn that must wait for a worker to end is woken by SIGCHLD, not by the clock: waking
  // for it now would only spin.
  if (!stopping_ && idle_ < settings_.idle_workers &&
      static_cast<int>(children_.size()) < settings_.max_workers) {
    next = std::min(next, next_spawn_);
  }
  if (next == Clock::time_point::max()) {
    return -1;
  }
  const auto ms = std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now()).count();
  return static_cast<int>(std::clamp<long long>(ms, 0, 60'000));
}

int Master::Run() {
  if (!Setup()) {
    return 1;
  }
  for (;;) {
    if (!stopping_) {
      SpawnMissing();
    } else if (children_.empty()) {
      break;
    }
    pollfd fds[] = {{signals_.Get(), POLLIN, 0}, {busy_read_.Get(), POLLIN, 0}};
    if (::poll(fds, 2, PollTimeout()) < 0 && errno != EINTR) {
      LogFailure("cannot wait for workers of", "qrix-webapi", errno);
      return 1;
    }
    // Busy reports first: a worker reports before it can exit, so its exit is never taken
    // for a worker that died waiting.
    ReadBusyReports();
    ReadSignals();
    KillOverdue();
  }
  ::sigprocmask(SIG_SETMASK, &old_mask_, nullptr);
  return 0;
}

}  // namespace

WorkerChannel::~WorkerChannel() {
  if (fd_ >= 0) {
    ::close(fd_);
  }
}

void WorkerChannel::ReportBusy() {
  if (fd_ < 0) {
    return;
  }
  const pid_t pid = ::getpid();
  // A pid is far below PIPE_BUF: the write is atomic even with many workers reporting.
  while (::write(fd_, &pid, sizeof pid) < 0 && errno == EINTR) {
  }
  ::close(fd_);
  fd_ = -1;
}

int RunPool(const PoolSettings& settings, const WorkerMain& worker_main) {
  Master master(settings, worker_main);
  return master.Run();
}

}  // namespace qrix::host
