// qrix-webapi: the web-API host. Loads the modules, listens, and serves each request in a
// fresh worker process forked ahead of time (see worker_pool.h and worker.h).
#include <sodium.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>

#include "host/host_check.h"
#include "host/listener.h"
#include "host/login_limiter.h"
#include "host/module_registry.h"
#include "host/options.h"
#include "host/session_store.h"
#include "host/static_files.h"
#include "host/worker.h"
#include "host/worker_pool.h"

namespace {

constexpr const char* kIdent = "qrix-webapi";
// Bursts beyond the waiting workers get extra workers up to this multiple.
constexpr int kBusyWorkersPerWaiting = 4;

int Fail(const std::string& reason) {
  std::fprintf(stderr, "%s: %s\n", kIdent, reason.c_str());
  syslog(LOG_ERR, "%s", reason.c_str());
  return 1;
}

std::string UrlHost(const std::string& address) {
  return address.find(':') != std::string::npos ? "[" + address + "]" : address;
}

// Every worker is a fresh fork: a symbol bound lazily would be looked up again in each one, on
// the request's path. Binding all of them once, in the master, takes one re-execution with
// LD_BIND_NOW (the flag of a binary covers only its own symbols, not its libraries').
void BindSymbolsNow(char** argv) {
  if (std::getenv("QRIX_WEBAPI_BOUND") == nullptr) {
    ::setenv("LD_BIND_NOW", "1", 1);
    ::setenv("QRIX_WEBAPI_BOUND", "1", 1);
    ::execv("/proc/self/exe", argv);  // on failure: carry on, bound lazily
  }
  // Programs the modules run start as they would anywhere else.
  ::unsetenv("LD_BIND_NOW");
  ::unsetenv("QRIX_WEBAPI_BOUND");
}

}  // namespace

int main(int argc, char** argv) {
  using namespace qrix::host;
  BindSymbolsNow(argv);
  HostOptions options;
  std::string error;
  switch (ParseOptions(std::span<const char* const>(argv + 1, static_cast<size_t>(argc - 1)),
                       &options, &error)) {
    case ParseStatus::kHelp:
      std::fputs(Usage().c_str(), stdout);
      return 0;
    case ParseStatus::kBad:
      std::fprintf(stderr, "%s: %s\n%s", kIdent, error.c_str(), Usage().c_str());
      return 2;
    case ParseStatus::kRun:
      break;
  }
  ::openlog(kIdent, LOG_PID, LOG_DAEMON);
  if (::sodium_init() < 0) {
    return Fail("cannot initialise libsodium");
  }

  ModuleRegistry registry;
  for (const std::string& module : options.modules) {
    if (!registry.Load(module, &error)) {
      return Fail(error);
    }
  }
  SessionStore sessions(options.session_dir, options.idle_timeout);
  LoginLimiter limiter(kLoginFailuresDir,
                       LoginLimits{options.login_max_failures,
                                   options.login_max_failures_per_address, options.login_lockout});
  StaticFiles files(options.ui_dir);
  if (!sessions.Prepare(&error) || !limiter.Prepare(&error) || !files.Prepare(&error)) {
    return Fail(error);
  }
  int port = 0;
  qrix::UniqueFd listener = Listen(options.listen, options.port, &port, &error);
  if (!listener.Valid()) {
    return Fail(error);
  }
  const HostCheck host_check(port, options.host_names);

  WorkerSetup setup;
  setup.listen_fd = listener.Get();
  setup.limits.read_time = std::chrono::seconds(options.read_timeout);
  setup.request_timeout = options.request_timeout;
  setup.registry = &registry;
  setup.host_check = &host_check;
  setup.files = &files;
  setup.sessions = &sessions;
  setup.limiter = &limiter;

  const PoolSettings pool{options.workers, options.workers * kBusyWorkersPerWaiting,
                          options.request_timeout};
  syslog(LOG_INFO, "listening on %s port %d with %zu methods", options.listen.c_str(), port,
         registry.Size());
  std::printf("%s: listening on http://%s:%d/\n", kIdent, UrlHost(options.listen).c_str(), port);
  std::fflush(stdout);
  return RunPool(pool, [&setup](WorkerChannel& channel) { RunWorker(setup, channel); });
}
