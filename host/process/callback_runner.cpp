#include "host/process/callback_runner.h"

#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "host/common/host_log.h"
#include "host/process/handoff.h"

namespace qrix::host {
namespace {

using Callback = QRIX::APIResponse::Callback;

// A request registers a handful; a message must stay far below a socket buffer.
constexpr std::size_t kMaxCallbacks = 64;
// Runners at once; more requests wait in the queue until one is done.
constexpr int kMaxRunners = 16;

void Ignore(int) {}

void LogRunnerEnd(pid_t pid, int status, int time_limit) {
  if (WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM) {
    LogFailure("callback runner", std::to_string(pid),
               "exceeded the time limit of " + std::to_string(time_limit) + " s");
  } else if (WIFSIGNALED(status)) {
    const int sig = WTERMSIG(status);
    LogFailure("callback runner", std::to_string(pid),
               "ended by signal " + std::to_string(sig) + " (" + ::strsignal(sig) + ")");
  }
}

// Collects one runner that ended, waiting for one when `wait`; false when none has (or none is
// left).
bool ReapOne(bool wait, int time_limit) {
  int status = 0;
  pid_t pid;
  while ((pid = ::waitpid(-1, &status, wait ? 0 : WNOHANG)) < 0 && errno == EINTR) {
  }
  if (pid <= 0) {
    return false;
  }
  LogRunnerEnd(pid, status, time_limit);
  return true;
}

}  // namespace

bool PostCallbacks(int queue, const std::vector<Callback>& callbacks) {
  if (queue < 0 || callbacks.empty() || callbacks.size() > kMaxCallbacks) {
    return false;
  }
  for (const Callback& callback : callbacks) {
    if (callback.user != nullptr) {
      return false;  // it points into this process
    }
  }
  const std::size_t size = callbacks.size() * sizeof(Callback);
  for (;;) {
    const ssize_t n = ::send(queue, callbacks.data(), size, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (n == static_cast<ssize_t>(size)) {
      return true;
    }
    if (n < 0 && errno == EINTR) {
      continue;
    }
    LogFailure("cannot hand a request's callbacks to the keeper of", kLogIdent, errno);
    return false;
  }
}

void RunCallbackKeeper(UniqueFd queue, int time_limit) {
  // A stop is the master's to decide: the keeper leaves when the queue is closed and drained,
  // so that no saved change goes untold to its daemon. Runners inherit this.
  struct sigaction action {};
  sigemptyset(&action.sa_mask);
  action.sa_handler = Ignore;  // not SIG_IGN, which the programs callbacks run would inherit
  ::sigaction(SIGTERM, &action, nullptr);
  ::sigaction(SIGINT, &action, nullptr);
  Callback callbacks[kMaxCallbacks];
  for (int running = 0;;) {
    while (running > 0 && ReapOne(running >= kMaxRunners, time_limit)) {
      --running;
    }
    const ssize_t n = ::recv(queue.Get(), callbacks, sizeof callbacks, 0);
    if (n < 0 && errno == EINTR) {
      continue;
    }
    if (n <= 0) {
      while (ReapOne(true, time_limit)) {  // every poster is gone: finish and leave
      }
      ::_exit(0);
    }
    if (n % static_cast<ssize_t>(sizeof(Callback)) != 0) {
      LogFailure("callback keeper", std::to_string(::getpid()), "dropped a malformed message");
      continue;
    }
    const pid_t pid = ::fork();
    if (pid < 0) {
      LogFailure("cannot fork a callback runner of", kLogIdent, errno);
      // Run them here rather than lose them; this process then takes no other request's.
    }
    if (pid <= 0) {
      queue.Reset();
      ::alarm(static_cast<unsigned>(time_limit));
      for (ssize_t i = 0; i < n / static_cast<ssize_t>(sizeof(Callback)); ++i) {
        callbacks[i].func(callbacks[i].user);
      }
      ::_exit(0);
    }
    ++running;
  }
}

}  // namespace qrix::host
