#include "host/process/master.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <syslog.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <algorithm>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <cerrno>
#include <climits>
#include <cstring>
#include <deque>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/common/host_codes.h"
#include "host/common/host_log.h"
#include "host/dispatch/envelope.h"
#include "host/http/response_writer.h"
#include "host/process/callback_runner.h"
#include "host/process/handoff.h"
#include "host/process/watchdog.h"
#include "host/process/worker_board.h"

namespace qrix::host {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
using asio::ip::tcp;
using Clock = std::chrono::steady_clock;

// When a request's time is up the master sends its worker SIGALRM, on which the worker answers
// 110 and ends; the master kills it only if it has not ended this much later.
constexpr auto kKillGrace = std::chrono::seconds(2);
// After a worker died before it could serve, forking again at once would only spin.
constexpr auto kRespawnPause = std::chrono::seconds(1);
// How often deadlines are looked at while anything has one: reading deadlines are seconds long.
constexpr auto kSweepEvery = std::chrono::milliseconds(200);
// Spent workers (whose callbacks could not go to the keeper) finish them beside the serving
// ones; this bounds them all.
constexpr int kProcessesPerWorker = 8;

std::string Answer(int status, const char* text) {
  return SerializeResponse(TextResponse(status, text));
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

class Master {
 public:
  Master(UniqueFd listener, const MasterSettings& settings, const WorkerMain& worker_main)
      : settings_(settings),
        worker_main_(worker_main),
        acceptor_(io_),
        signals_(io_, SIGCHLD, SIGTERM, SIGINT),
        sweep_(io_),
        listener_(std::move(listener)) {}

  int Run();

 private:
  // Whether a serving worker is idle or busy is on the board (worker_board.h).
  enum class State { kStarting, kServing, kDone };
  struct Worker {
    State state = State::kStarting;
    int slot = -1;
    std::unique_ptr<asio::posix::stream_descriptor> channel;
    char status[16] = {};
    Clock::time_point deadline = Clock::time_point::max();  // of the request handed over last
    bool alarmed = false;                                   // told that its time is up
    bool killed = false;                                    // by the master, already logged
  };
  struct Waiting {
    HttpRequest request;
    UniqueFd connection;
    Clock::time_point since;
  };

  void Accept();
  void AcceptWaiting();
  void OnAccepted(UniqueFd connection, const std::string& address);
  void MakeRoomFor(const std::string& address);
  void OnRead(RequestReader* reader, ReadResult result, HttpRequest request);
  void Deliver(HttpRequest request, UniqueFd connection);
  void ServeWaiting();
  pid_t TakeIdle();
  bool HandOver(pid_t pid, const HttpRequest& request, int connection);
  void RefuseDirectly(int connection, const std::string& answer);
  void ReadStatus(pid_t pid);
  void OnStatus(pid_t pid, char status);
  void Retire(Worker& worker);
  int Serving() const;
  void SpawnMissing();
  void Spawn();
  void SpawnKeeper();
  // Forks a child that keeps of the master's descriptors only `keep` (and 0-2) and runs `main`.
  pid_t ForkChild(std::vector<int> keep, const std::function<void()>& main);
  void WaitForSignal();
  void Reap();
  void Sweep();
  // The sweep runs only while something has a deadline or waits for a retry, so that an idle
  // server does not wake: whatever starts such a thing, and each sweep, calls SweepIfNeeded.
  bool SweepNeeded() const;
  void SweepIfNeeded();
  void BeginStop();
  void StopIfDone();
  void KillAll();

  const MasterSettings& settings_;
  const WorkerMain& worker_main_;
  asio::io_context io_{1};
  tcp::acceptor acceptor_;
  tcp protocol_ = tcp::v4();
  asio::signal_set signals_;
  asio::steady_timer sweep_;
  bool sweep_armed_ = false;
  UniqueFd listener_;
  std::list<std::shared_ptr<RequestReader>> reading_;  // oldest first
  std::unordered_map<std::string, int> reading_per_address_;
  std::deque<Waiting> waiting_;
  std::map<pid_t, Worker> workers_;
  std::unique_ptr<WorkerBoard> board_;
  bool listening_ = false;  // what the board says
  Clock::time_point next_spawn_;
  UniqueFd queue_post_;  // the callback queue's ends: workers post, the keeper takes
  UniqueFd queue_take_;
  pid_t keeper_ = 0;
  Clock::time_point next_keeper_spawn_;
  bool accepting_ = false;
  bool stopping_ = false;
  bool stop_killed_ = false;
  Clock::time_point stop_deadline_;
};

int Master::Run() {
  sockaddr_storage bound{};
  socklen_t length = sizeof bound;
  ::getsockname(listener_.Get(), reinterpret_cast<sockaddr*>(&bound), &length);
  boost::system::error_code ec;
  protocol_ = bound.ss_family == AF_INET6 ? tcp::v6() : tcp::v4();
  acceptor_.assign(protocol_, listener_.Release(), ec);
  if (ec) {
    LogFailure("cannot serve the listening socket of", kLogIdent, ec.message());
    return 1;
  }
  // Accepted connections inherit it: one call here rather than one per connection.
  acceptor_.set_option(tcp::no_delay(true), ec);
  if (!MakeChannel(&queue_post_, &queue_take_)) {
    LogFailure("cannot make the callback queue of", kLogIdent, errno);
    return 1;
  }
  board_ = WorkerBoard::Make(settings_.workers * kProcessesPerWorker);
  if (!board_) {
    LogFailure("cannot make the worker board of", kLogIdent, errno);
    return 1;
  }
  SpawnMissing();
  Accept();
  WaitForSignal();
  Sweep();
  // Under systemd (Type=notify) the service counts as started from here; elsewhere
  // NOTIFY_SOCKET is unset and this does nothing.
  ::sd_notify(0, "READY=1");
  io_.run();
  return 0;
}

// The listener is waited on, not accepted through: a connection accepted here stays outside the
// event loop unless its request is still on the way.
void Master::Accept() {
  accepting_ = true;
  acceptor_.async_wait(tcp::acceptor::wait_read, [this](const boost::system::error_code& ec) {
    accepting_ = false;
    if (ec == asio::error::operation_aborted || stopping_) {
      return;
    }
    AcceptWaiting();
  });
}

// One connection per wake-up: waiting again re-checks the listener, so a queued connection
// wakes the loop at once, and a lone one costs no failed accept.
void Master::AcceptWaiting() {
  for (;;) {
    tcp::endpoint peer;  // the peer's address comes with the accept, not with a call of its own
    socklen_t length = static_cast<socklen_t>(peer.capacity());
    UniqueFd connection(
        ::accept4(acceptor_.native_handle(), peer.data(), &length, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (connection.Valid()) {
      peer.resize(std::min<std::size_t>(length, peer.capacity()));  // never more than it holds
      OnAccepted(std::move(connection), peer.address().to_string());
      return Accept();
    }
    if (errno == EINTR || errno == ECONNABORTED) {
      continue;
    }
    if (errno == EAGAIN || errno == EWOULDBLOCK) {
      return Accept();
    }
    // Out of descriptors, say: the sweep tries again rather than spinning here.
    LogFailure("cannot accept a connection in", kLogIdent, errno);
    return SweepIfNeeded();
  }
}

void Master::OnAccepted(UniqueFd connection, const std::string& address) {
  beast::flat_buffer read;
  if (std::optional<HttpRequest> whole =
          ReadWholeAtOnce(connection.Get(), address, settings_.limits, &read)) {
    return Deliver(std::move(*whole), std::move(connection));
  }
  MakeRoomFor(address);
  boost::system::error_code ec;
  tcp::socket socket(io_);
  socket.assign(protocol_, connection.Get(), ec);
  if (ec) {
    return LogFailure("cannot read a request in", kLogIdent, ec.message());
  }
  connection.Release();
  auto reader = std::make_shared<RequestReader>(std::move(socket), address, settings_.limits,
                                                std::move(read));
  reading_.push_back(reader);
  ++reading_per_address_[address];
  SweepIfNeeded();
  reader->Start([this, r = reader.get()](ReadResult result, HttpRequest request) {
    OnRead(r, result, std::move(request));
  });
}

// A connection that has not sent its request yet costs only a buffer here, but the buffers
// are bounded: a new connection pushes out the oldest unfinished one of its address, or of
// all. Requests complete in milliseconds; what is pushed out is what stayed silent.
void Master::MakeRoomFor(const std::string& address) {
  const auto oldest = [this](const std::string* of) {
    for (const auto& reader : reading_) {
      if (of == nullptr || reader->Peer() == *of) {
        reader->Abort();
        return;
      }
    }
  };
  if (reading_per_address_[address] >= settings_.max_reading_per_address) {
    oldest(&address);
  }
  if (static_cast<int>(reading_.size()) >= settings_.max_reading) {
    oldest(nullptr);
  }
}

void Master::OnRead(RequestReader* reader, ReadResult result, HttpRequest request) {
  const auto it = std::find_if(reading_.begin(), reading_.end(),
                               [reader](const auto& r) { return r.get() == reader; });
  if (it == reading_.end()) {
    return;
  }
  const std::shared_ptr<RequestReader> keep = *it;
  reading_.erase(it);
  if (--reading_per_address_[keep->Peer()] <= 0) {
    reading_per_address_.erase(keep->Peer());
  }
  if (stopping_) {
    return;  // the connection closes with the reader
  }
  switch (result) {
    case ReadResult::kOk:
      return Deliver(std::move(request), keep->ReleaseConnection());
    case ReadResult::kClosed:
      return;
    case ReadResult::kTooLarge:
      keep->AnswerAndClose(SerializeResponse(JsonResponse(ErrorBody(kTooLarge))));
      break;
    case ReadResult::kMalformed:
      keep->AnswerAndClose(Answer(400, "bad request"));
      break;
    case ReadResult::kTimedOut:
      keep->AnswerAndClose(Answer(408, "request timeout"));
      break;
  }
  LogFailure("refused request from", keep->Peer(), Refusal(result));
}

void Master::Deliver(HttpRequest request, UniqueFd connection) {
  if (stopping_) {
    return RefuseDirectly(connection.Get(), Answer(503, "the server is stopping"));
  }
  if (static_cast<int>(waiting_.size()) >= settings_.max_waiting) {
    LogFailure("refused request from", request.peer, "every worker busy and the queue full");
    return RefuseDirectly(connection.Get(), Answer(503, "server busy, try again"));
  }
  waiting_.push_back(Waiting{std::move(request), std::move(connection), Clock::now()});
  SweepIfNeeded();  // it waits, or its worker's time limit runs from now
  ServeWaiting();
}

// Hands waiting requests to idle workers while there are both, and listens for workers that
// become idle while requests are left (or while stopping).
void Master::ServeWaiting() {
  for (;;) {
    while (!waiting_.empty()) {
      const pid_t pid = TakeIdle();
      if (pid == 0) {
        break;
      }
      Waiting& next = waiting_.front();
      if (HandOver(pid, next.request, next.connection.Get())) {
        waiting_.pop_front();  // our copy of the connection closes here; the worker has its own
      }
    }
    const bool listen = stopping_ || !waiting_.empty();
    if (listen == listening_) {
      return;
    }
    board_->Listen(listen);
    listening_ = listen;
    if (!listen) {
      return;
    }
    // A worker may have become idle before it could see that the master listens: look again.
  }
}

// The worker that became idle last (its caches are warm), now marked busy; 0 when none is idle.
pid_t Master::TakeIdle() {
  pid_t best = 0;
  uint32_t best_since = 0;
  for (const auto& [pid, worker] : workers_) {
    if (worker.state == State::kServing) {
      const uint32_t since = board_->IdleSince(worker.slot);
      if (since > best_since) {
        best = pid;
        best_since = since;
      }
    }
  }
  return best != 0 && board_->Take(workers_.at(best).slot) ? best : 0;
}

bool Master::HandOver(pid_t pid, const HttpRequest& request, int connection) {
  Worker& worker = workers_.at(pid);
  if (!SendRequest(worker.channel->native_handle(), request, connection)) {
    Retire(worker);
    return false;
  }
  worker.deadline = Clock::now() + std::chrono::seconds(settings_.request_timeout);
  worker.alarmed = false;
  return true;
}

// For the few answers the master gives without reading more: the client has sent its whole
// request, so a short, non-blocking write is enough.
void Master::RefuseDirectly(int connection, const std::string& answer) {
  ::send(connection, answer.data(), answer.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
}

void Master::ReadStatus(pid_t pid) {
  Worker& worker = workers_.at(pid);
  worker.channel->async_read_some(
      asio::buffer(worker.status), [this, pid](const boost::system::error_code& ec, size_t n) {
        const auto it = workers_.find(pid);
        if (it == workers_.end() || !it->second.channel) {
          return;
        }
        if (ec) {
          return Retire(it->second);  // the worker is gone; the reaper says why
        }
        for (size_t i = 0; i < n && it->second.channel; ++i) {
          OnStatus(pid, it->second.status[i]);
        }
        if (it->second.channel) {
          ReadStatus(pid);
        }
      });
}

void Master::OnStatus(pid_t pid, char status) {
  Worker& worker = workers_.at(pid);
  if (worker.state == State::kDone) {
    return;
  }
  if (status != static_cast<char>(WorkerStatus::kReady)) {
    return Retire(worker);  // spent or leaving: it exits on its own
  }
  worker.state = State::kServing;
  if (stopping_) {
    if (board_->Take(worker.slot)) {
      Retire(worker);  // closing its line tells it to leave
    }
    return;
  }
  ServeWaiting();
}

// The worker serves no more: its line closes (telling an idle one to leave) and a replacement
// is forked.
void Master::Retire(Worker& worker) {
  worker.state = State::kDone;
  worker.channel.reset();
  SpawnMissing();
}

int Master::Serving() const {
  return static_cast<int>(std::count_if(workers_.begin(), workers_.end(), [](const auto& w) {
    return w.second.state != State::kDone;
  }));
}

void Master::SpawnMissing() {
  if (!stopping_ && keeper_ == 0 && Clock::now() >= next_keeper_spawn_) {
    SpawnKeeper();
  }
  while (!stopping_ && Serving() < settings_.workers &&
         static_cast<int>(workers_.size()) < settings_.workers * kProcessesPerWorker &&
         Clock::now() >= next_spawn_) {
    Spawn();
  }
  SweepIfNeeded();  // after a pause, the sweep forks what is still missing
}

void Master::Spawn() {
  UniqueFd master_end;
  WorkerLines lines;
  if (!MakeChannel(&master_end, &lines.channel)) {
    LogFailure("cannot make a line to a worker of", kLogIdent, errno);
    next_spawn_ = Clock::now() + kRespawnPause;
    return;
  }
  lines.callback_queue = queue_post_.Get();
  lines.board = board_.get();
  lines.slot = board_->Claim();
  if (lines.slot < 0) {
    next_spawn_ = Clock::now() + kRespawnPause;  // not while the processes are bounded
    return;
  }
  const pid_t pid = ForkChild({lines.channel.Get(), lines.callback_queue},
                              [this, &lines] { worker_main_(std::move(lines)); });
  if (pid < 0) {
    LogFailure("cannot fork a worker of", kLogIdent, errno);
    board_->Release(lines.slot);
    next_spawn_ = Clock::now() + kRespawnPause;
    return;
  }
  Worker& worker = workers_[pid];
  worker.slot = lines.slot;
  worker.channel = std::make_unique<asio::posix::stream_descriptor>(io_, master_end.Release());
  ReadStatus(pid);
}

void Master::SpawnKeeper() {
  const int queue = queue_take_.Get();
  const pid_t pid = ForkChild(
      {queue}, [this] { RunCallbackKeeper(std::move(queue_take_), settings_.request_timeout); });
  if (pid < 0) {
    LogFailure("cannot fork the callback keeper of", kLogIdent, errno);
    next_keeper_spawn_ = Clock::now() + kRespawnPause;
    return;
  }
  keeper_ = pid;
}

pid_t Master::ForkChild(std::vector<int> keep, const std::function<void()>& main) {
  const pid_t master = ::getpid();
  const pid_t pid = ::fork();
  if (pid != 0) {
    return pid;
  }
  // The child keeps nothing of the master's loop: not its signal handlers, not the clients
  // it is reading, not the workers' lines. The log's socket goes too, and is opened again, so
  // that no log line can ever go to a descriptor number reused for a client.
  ::closelog();
  struct sigaction action {};
  action.sa_handler = SIG_DFL;
  for (const int sig : {SIGCHLD, SIGTERM, SIGINT}) {
    ::sigaction(sig, &action, nullptr);
  }
  sigset_t none;
  sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  // An orphaned worker would serve no one: it follows the master out.
  ::prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (::getppid() != master) {
    ::_exit(0);
  }
  std::sort(keep.begin(), keep.end());
  unsigned from = 3;
  for (const int fd : keep) {
    if (fd >= static_cast<int>(from)) {
      if (fd > static_cast<int>(from)) {
        ::close_range(from, static_cast<unsigned>(fd - 1), 0);
      }
      from = static_cast<unsigned>(fd) + 1;
    }
  }
  ::close_range(from, UINT_MAX, 0);
  // Connected now, while root: a request that left the ids changed must still be logged.
  ::openlog(kLogIdent, LOG_PID | LOG_NDELAY, LOG_DAEMON);
  main();
  ::_exit(0);
}

void Master::WaitForSignal() {
  signals_.async_wait([this](const boost::system::error_code& ec, int sig) {
    if (ec) {
      return;
    }
    if (sig == SIGCHLD) {
      Reap();
    } else {
      BeginStop();
    }
    WaitForSignal();
  });
}

void Master::Reap() {
  int status = 0;
  pid_t pid;
  while ((pid = ::waitpid(-1, &status, WNOHANG)) > 0) {
    if (pid == keeper_) {
      if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        LogFailure("callback keeper", std::to_string(pid), "ended before the master; replaced");
        next_keeper_spawn_ = Clock::now() + kRespawnPause;
      }
      keeper_ = 0;
      continue;
    }
    const auto it = workers_.find(pid);
    if (it == workers_.end()) {
      continue;
    }
    const std::string name = std::to_string(pid);
    if (WIFSIGNALED(status) && !it->second.killed && !(stopping_ && WTERMSIG(status) == SIGTERM)) {
      const int sig = WTERMSIG(status);
      LogFailure("request worker", name,
                 "ended by signal " + std::to_string(sig) + " (" + ::strsignal(sig) + ")");
    } else if (WIFEXITED(status) && WEXITSTATUS(status) == kExitTimeLimit) {
      LogFailure(
          "request worker", name,
          "exceeded the request time limit of " + std::to_string(settings_.request_timeout) + " s");
    } else if (WIFEXITED(status) && WEXITSTATUS(status) != 0) {
      LogFailure("request worker", name,
                 "exited with status " + std::to_string(WEXITSTATUS(status)));
    }
    if (it->second.state == State::kStarting && !stopping_) {
      next_spawn_ = Clock::now() + kRespawnPause;  // it died before it could serve
    }
    board_->Release(it->second.slot);
    workers_.erase(it);
  }
  SpawnMissing();
  StopIfDone();
}

void Master::Sweep() {
  const Clock::time_point now = Clock::now();
  std::vector<std::shared_ptr<RequestReader>> overdue;
  for (const auto& reader : reading_) {
    const auto age = now - reader->Started();
    if (age > settings_.limits.read_time ||
        (!reader->HeadComplete() && age > settings_.limits.head_time)) {
      overdue.push_back(reader);
    }
  }
  for (const auto& reader : overdue) {
    reader->Abort();
  }
  for (auto& [pid, worker] : workers_) {
    if (worker.state != State::kServing || worker.killed || now < worker.deadline ||
        board_->IdleSince(worker.slot) != 0) {
      continue;
    }
    if (!worker.alarmed) {
      ::kill(pid, SIGALRM);
      worker.alarmed = true;
    } else if (now >= worker.deadline + kKillGrace) {
      ::kill(pid, SIGKILL);
      worker.killed = true;
      LogFailure("request worker", std::to_string(pid),
                 "exceeded the request time limit of " + std::to_string(settings_.request_timeout) +
                     " s; killed");
    }
  }
  while (!waiting_.empty() &&
         now - waiting_.front().since > std::chrono::seconds(settings_.request_timeout)) {
    RefuseDirectly(waiting_.front().connection.Get(), Answer(503, "server busy, try again"));
    waiting_.pop_front();
  }
  if (stopping_ && !stop_killed_ && now >= stop_deadline_) {
    KillAll();
  }
  if (!stopping_ && !accepting_) {
    Accept();
  }
  SpawnMissing();
  SweepIfNeeded();
}

bool Master::SweepNeeded() const {
  if (stopping_ || !accepting_ || !reading_.empty() || !waiting_.empty() || keeper_ == 0 ||
      Serving() < settings_.workers) {
    return true;
  }
  return std::any_of(workers_.begin(), workers_.end(), [this](const auto& w) {
    return w.second.state == State::kServing && board_->IdleSince(w.second.slot) == 0;  // busy
  });
}

void Master::SweepIfNeeded() {
  if (sweep_armed_ || !SweepNeeded()) {
    return;
  }
  sweep_armed_ = true;
  sweep_.expires_after(kSweepEvery);
  sweep_.async_wait([this](const boost::system::error_code& ec) {
    sweep_armed_ = false;
    if (!ec) {
      Sweep();
    }
  });
}

void Master::BeginStop() {
  if (stopping_) {
    KillAll();  // asked twice: no more waiting for busy workers
    return;
  }
  stopping_ = true;
  SweepIfNeeded();
  ::sd_notify(0, "STOPPING=1");
  stop_deadline_ = Clock::now() + std::chrono::seconds(settings_.request_timeout) + kKillGrace;
  boost::system::error_code ignored;
  acceptor_.close(ignored);
  for (const auto& reader : reading_) {
    reader->Abort();
  }
  for (Waiting& w : waiting_) {
    RefuseDirectly(w.connection.Get(), Answer(503, "the server is stopping"));
  }
  waiting_.clear();
  // Idle and starting workers leave at once; busy ones when they report their request done.
  ServeWaiting();  // listens from now on
  for (auto& [pid, worker] : workers_) {
    if (worker.state == State::kStarting ||
        (worker.state == State::kServing && board_->Take(worker.slot))) {
      worker.state = State::kDone;
      worker.channel.reset();
    }
  }
  StopIfDone();
}

// Once the workers are gone, the keeper is told that no more callbacks come; it runs those
// still queued and leaves, and then so does the master.
void Master::StopIfDone() {
  if (!stopping_ || !workers_.empty()) {
    return;
  }
  queue_post_.Reset();
  if (keeper_ == 0) {
    io_.stop();
  }
}

void Master::KillAll() {
  for (const auto& [pid, worker] : workers_) {
    ::kill(pid, SIGKILL);
  }
  if (keeper_ != 0) {
    ::kill(keeper_, SIGKILL);
  }
  stop_killed_ = true;
}

}  // namespace

int RunMaster(UniqueFd listener, const MasterSettings& settings, const WorkerMain& worker_main) {
  Master master(std::move(listener), settings, worker_main);
  return master.Run();
}

}  // namespace qrix::host
