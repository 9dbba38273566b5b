#include "host/worker.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "host/dispatcher.h"
#include "host/envelope.h"
#include "host/host_codes.h"
#include "host/host_log.h"
#include "host/priority.h"
#include "host/router.h"
#include "host/worker_watchdog.h"

namespace qrix::host {
namespace {

volatile sig_atomic_t g_stop = 0;

void OnStop(int) {
  g_stop = 1;
}

// Notes SIGTERM and SIGINT instead of dying: a waiting worker then leaves, a busy one finishes
// its request first. Handlers (unlike ignored signals) do not outlive exec, so programs the
// module runs get the default behaviour back.
void InstallStopHandlers() {
  struct sigaction action {};
  sigemptyset(&action.sa_mask);
  action.sa_handler = OnStop;
  ::sigaction(SIGTERM, &action, nullptr);
  ::sigaction(SIGINT, &action, nullptr);
}

std::string AddressText(const sockaddr_storage& address) {
  char text[INET6_ADDRSTRLEN] = "";
  if (address.ss_family == AF_INET) {
    ::inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(&address)->sin_addr, text,
                sizeof text);
  } else if (address.ss_family == AF_INET6) {
    ::inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6*>(&address)->sin6_addr, text,
                sizeof text);
  }
  return text;
}

// Waits for one connection. EPOLLEXCLUSIVE wakes one waiting worker per connection instead of
// all of them; SIGTERM and SIGINT are let through only while waiting, so none is missed.
UniqueFd AcceptOne(int listen_fd, std::string* peer) {
  UniqueFd poller(::epoll_create1(EPOLL_CLOEXEC));
  epoll_event interest{};
  interest.events = EPOLLIN | EPOLLEXCLUSIVE;
  if (!poller.Valid() || ::epoll_ctl(poller.Get(), EPOLL_CTL_ADD, listen_fd, &interest) != 0) {
    LogFailure("cannot wait for connections in worker", std::to_string(::getpid()), errno);
    return UniqueFd();
  }
  sigset_t waiting;
  ::sigprocmask(SIG_SETMASK, nullptr, &waiting);
  sigdelset(&waiting, SIGTERM);
  sigdelset(&waiting, SIGINT);
  for (;;) {
    if (g_stop != 0) {
      return UniqueFd();
    }
    epoll_event ready{};
    if (::epoll_pwait(poller.Get(), &ready, 1, -1, &waiting) < 0) {
      if (errno == EINTR) {
        continue;
      }
      LogFailure("cannot wait for connections in worker", std::to_string(::getpid()), errno);
      return UniqueFd();
    }
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    UniqueFd connection(
        ::accept4(listen_fd, reinterpret_cast<sockaddr*>(&address), &length, SOCK_CLOEXEC));
    if (connection.Valid()) {
      *peer = AddressText(address);
      return connection;
    }
    if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR && errno != ECONNABORTED) {
      LogFailure("cannot accept a connection in worker", std::to_string(::getpid()), errno);
      return UniqueFd();
    }
  }
}

const char* Refusal(ReadResult result) {
  switch (result) {
    case ReadResult::kTooLarge:
      return "request too large";
    case ReadResult::kMalformed:
      return "malformed HTTP";
    case ReadResult::kTimedOut:
      return "request not complete in time";
    default:
      return "connection closed";
  }
}

void Serve(const WorkerSetup& setup, UniqueFd connection, const std::string& peer) {
  HttpRequest request;
  request.peer = peer;
  const ReadResult read = ReadRequest(connection.Get(), setup.limits, &request);
  if (read == ReadResult::kClosed) {
    return;
  }
  Dispatcher dispatcher(*setup.registry, *setup.sessions, *setup.limiter);
  HttpResponse response;
  switch (read) {
    case ReadResult::kOk:
      response = Route(request, *setup.host_check, *setup.files, dispatcher);
      break;
    case ReadResult::kTooLarge:
      response = JsonResponse(ErrorBody(kTooLarge));
      break;
    case ReadResult::kMalformed:
      response = TextResponse(400, "bad request");
      break;
    default:
      response = TextResponse(408, "request timeout");
      break;
  }
  if (read != ReadResult::kOk) {
    LogFailure("refused request from", peer, Refusal(read));
  }
  MarkResponseStarted();
  if (!WriteResponse(connection.Get(), std::move(response), setup.limits.read_time)) {
    LogFailure("cannot send the response to", peer, "client gone or too slow");
  }
  ForgetConnection();
  CloseConnection(std::move(connection), read != ReadResult::kOk);
  LowerForHousekeeping();
  // Only now, with the client answered, may the daemons be told.
  dispatcher.RunCallbacks();
}

}  // namespace

void RunWorker(const WorkerSetup& setup, WorkerChannel& channel) {
  InstallStopHandlers();
  std::string peer;
  UniqueFd connection = AcceptOne(setup.listen_fd, &peer);
  if (!connection.Valid()) {
    ::_exit(g_stop != 0 ? 0 : 1);
  }
  channel.ReportBusy();
  ::close(setup.listen_fd);
  const int on = 1;
  ::setsockopt(connection.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  sigset_t none;
  sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  ArmWatchdog(connection.Get(), setup.request_timeout);
  Serve(setup, std::move(connection), peer);
  ::_exit(0);
}

}  // namespace qrix::host
