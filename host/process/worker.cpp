#include "host/process/worker.h"

#include <grp.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <syslog.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "host/common/host_log.h"
#include "host/dispatch/dispatcher.h"
#include "host/dispatch/request.h"
#include "host/dispatch/router.h"
#include "host/http/response_writer.h"
#include "host/process/callback_runner.h"
#include "host/process/handoff.h"
#include "host/process/watchdog.h"
#include "platform/dlbase/handler_base.h"
#include "platform/vlibc/lock_file.h"

namespace qrix::host {
namespace {

volatile sig_atomic_t g_stop = 0;
// The descriptors a child the module forks must not keep: the client would wait on a
// connection it holds, and the master would read its writes as this worker's.
int g_connection_fd = -1;
int g_channel_fd = -1;
int g_queue_fd = -1;

void OnStop(int) {
  g_stop = 1;
}

// SIGTERM and SIGINT are noted, not fatal: a waiting worker then leaves, a busy one finishes
// its request first. Without SA_RESTART the wait for a request ends at once. Handlers (unlike
// ignored signals) do not outlive exec, so programs the module runs get the defaults back.
void InstallStopHandlers() {
  struct sigaction action {};
  sigemptyset(&action.sa_mask);
  action.sa_handler = OnStop;
  ::sigaction(SIGTERM, &action, nullptr);
  ::sigaction(SIGINT, &action, nullptr);
}

void ForgetInheritedDescriptors() {
  for (int* fd : {&g_connection_fd, &g_channel_fd, &g_queue_fd}) {
    if (*fd >= 0) {
      ::close(*fd);
      *fd = -1;  // a later fork of this child must not close whatever reuses the number
    }
  }
  DisarmWatchdog();
}

struct Identity {
  uid_t uid[3] = {};
  gid_t gid[3] = {};
  std::vector<gid_t> groups;

  static Identity Current() {
    Identity id;
    ::getresuid(&id.uid[0], &id.uid[1], &id.uid[2]);
    ::getresgid(&id.gid[0], &id.gid[1], &id.gid[2]);
    const int n = ::getgroups(0, nullptr);
    id.groups.resize(n > 0 ? static_cast<size_t>(n) : 0);
    if (n > 0) {
      id.groups.resize(static_cast<size_t>(::getgroups(n, id.groups.data())));
    }
    return id;
  }
  bool operator==(const Identity& o) const {
    return std::equal(uid, uid + 3, o.uid) && std::equal(gid, gid + 3, o.gid) && groups == o.groups;
  }
  std::string Describe() const {
    return "uid " + std::to_string(uid[0]) + "/" + std::to_string(uid[1]) + "/" +
           std::to_string(uid[2]) + ", gid " + std::to_string(gid[0]) + "/" +
           std::to_string(gid[1]) + "/" + std::to_string(gid[2]);
  }
};

// A spent worker's client has its answer: what is left (the callbacks, the exit) yields to the
// requests being served.
void LowerForHousekeeping() {
  constexpr int kHousekeepingNice = 19;
  ::setpriority(PRIO_PROCESS, 0, kHousekeepingNice);
}

[[noreturn]] void Leave(WorkerStatus status) {
  if (g_channel_fd >= 0) {
    SendStatus(g_channel_fd, status);
  }
  ::_exit(0);
}

// Answers one request on `connection`. The dispatcher keeps what the module registered.
void Serve(const WorkerSetup& setup, const HttpRequest& http, UniqueFd connection,
           Dispatcher& dispatcher) {
  g_connection_fd = connection.Get();
  ArmWatchdog(connection.Get());
  QRIXDLErrSet(0);  // nothing recorded by an earlier request may reach this one
  const Request request = DecodeRequest(http, setup.behind_proxy);
  const HttpResponse response = Route(request, *setup.host_check, *setup.files, dispatcher);
  MarkResponseStarted();
  if (!SendAll(connection.Get(), SerializeResponse(response), setup.limits.read_time)) {
    LogFailure("cannot send the response to", http.peer, "client gone or too slow");
  }
  g_connection_fd = -1;
}

// Why this worker should make way for a fresh one after a request, or "" to go on.
std::string ReasonToLeave(const WorkerSetup& setup, int served, const Identity& start) {
  const Identity now = Identity::Current();
  if (!(now == start)) {
    // A privilege bracket left open must never serve the next request.
    LogFailure("request worker", std::to_string(::getpid()),
               "ids changed during a request (" + start.Describe() + " became " + now.Describe() +
                   "); leaving");
    return "ids";
  }
  if (AnyNamedLockHeld()) {
    // Held on, it would make every other save wait and then answer done with nothing written.
    LogFailure("request worker", std::to_string(::getpid()),
               "a named lock was left held after a request; leaving");
    return "lock";
  }
  if (served >= setup.max_requests) {
    return "request limit";
  }
  rusage usage{};
  // The thread's usage holds the whole process's peak resident size and, unlike the process's,
  // does not add up every thread's times: it costs half as much.
  if (setup.max_memory_kib > 0 && ::getrusage(RUSAGE_THREAD, &usage) == 0 &&
      static_cast<size_t>(usage.ru_maxrss) > setup.max_memory_kib) {
    syslog(LOG_INFO, "request worker %d leaves: resident memory %ld KiB passed the bound",
           static_cast<int>(::getpid()), usage.ru_maxrss);
    return "memory";
  }
  return g_stop != 0 ? "stop" : "";
}

}  // namespace

void RunWorker(const WorkerSetup& setup, WorkerLines lines) {
  InstallStopHandlers();
  InstallWatchdog();
  g_channel_fd = lines.channel.Release();
  g_queue_fd = lines.callback_queue;
  ::pthread_atfork(nullptr, nullptr, ForgetInheritedDescriptors);
  const Identity start = Identity::Current();
  // Told once on the line, so the master knows it started; later only when it listens.
  lines.board->MarkIdle(lines.slot);
  if (!SendStatus(g_channel_fd, WorkerStatus::kReady)) {
    ::_exit(0);
  }
  const auto ready = [&lines] {
    return !lines.board->MarkIdle(lines.slot) || SendStatus(g_channel_fd, WorkerStatus::kReady);
  };
  for (int served = 0;;) {
    HttpRequest http;
    UniqueFd connection;
    switch (ReceiveRequest(g_channel_fd, &http, &connection)) {
      case Received::kRequest:
        break;
      case Received::kInterrupted:
        if (g_stop != 0) {
          ::_exit(0);
        }
        continue;
      case Received::kBroken:
        ready();
        continue;
      case Received::kClosed:
        ::_exit(0);  // asked to stop, or the master is gone
    }
    ++served;
    Dispatcher dispatcher(*setup.registry, *setup.sessions, *setup.limiter, *setup.accounts);
    Serve(setup, http, std::move(connection), dispatcher);
    if (dispatcher.HasCallbacks() && !PostCallbacks(g_queue_fd, dispatcher.Callbacks())) {
      // Once per process means once per request: this process runs no other request's.
      SendStatus(g_channel_fd, WorkerStatus::kSpent);
      ::close(g_channel_fd);
      g_channel_fd = -1;
      LowerForHousekeeping();
      LimitOwnTime(setup.request_timeout);  // the master no longer times this process
      dispatcher.RunCallbacks();
      ::_exit(0);
    }
    DisarmWatchdog();
    if (!ReasonToLeave(setup, served, start).empty()) {
      Leave(WorkerStatus::kLeaving);
    }
    if (!ready()) {
      ::_exit(0);
    }
  }
}

}  // namespace qrix::host
