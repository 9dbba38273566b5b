// qrix-webapi, the web-API host: loads the modules, listens, and serves requests in pre-forked
// workers that the master feeds with complete requests (see process/master.h and
// process/worker.h).
#include <sodium.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>

#include "host/access/auth.h"
#include "host/access/host_check.h"
#include "host/access/login_limiter.h"
#include "host/access/session_store.h"
#include "host/common/host_log.h"
#include "host/dispatch/module_registry.h"
#include "host/dispatch/static_files.h"
#include "host/dispatch/uploads.h"
#include "host/http/listener.h"
#include "host/options.h"
#include "host/process/master.h"
#include "host/process/worker.h"

namespace {

int Fail(const std::string& reason) {
  std::fprintf(stderr, "%s: %s\n", qrix::host::kLogIdent, reason.c_str());
  syslog(LOG_ERR, "%s", reason.c_str());
  return 1;
}

std::string UrlHost(const std::string& address) {
  return address.find(':') != std::string::npos ? "[" + address + "]" : address;
}

// A fresh worker (one replaces every worker that ran callbacks) would look up each symbol it
// binds lazily again. Binding them all once, in the master, takes one re-execution with
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
      std::fprintf(stderr, "%s: %s\n%s", kLogIdent, error.c_str(), Usage().c_str());
      return 2;
    case ParseStatus::kRun:
      break;
  }
  ::openlog(kLogIdent, LOG_PID, LOG_DAEMON);
  if (::sodium_init() < 0) {
    return Fail("cannot initialise libsodium");
  }

  ModuleRegistry registry;
  for (const std::string& module : options.modules) {
    if (!registry.Load(module, &error)) {
      return Fail(error);
    }
  }
  SessionStore sessions(options.session_dir, options.idle_timeout, options.session_lifetime);
  LoginLimits login_limits;
  login_limits.per_account = options.login_max_failures;
  login_limits.per_address = options.login_max_failures_per_address;
  login_limits.lockout_seconds = options.login_lockout;
  LoginLimiter limiter(kLoginFailuresDir, login_limits);
  AccountCache accounts;
  StaticFiles files(options.ui_dir);
  if (!sessions.Prepare(&error) || !limiter.Prepare(&error) || !files.Prepare(&error)) {
    return Fail(error);
  }
  RemoveStaleUploads();
  int port = 0;
  qrix::UniqueFd listener = Listen(options.listen, options.port, &port, &error);
  if (!listener.Valid()) {
    return Fail(error);
  }
  const HostCheck host_check(port, options.host_names);

  HttpLimits limits;
  limits.head_time = std::chrono::seconds(options.head_timeout);
  limits.read_time = std::chrono::seconds(options.read_timeout);
  WorkerSetup worker;
  worker.limits = limits;
  worker.request_timeout = options.request_timeout;
  worker.max_requests = options.max_requests;
  worker.max_memory_kib = static_cast<size_t>(options.max_worker_memory) * 1024;
  worker.registry = &registry;
  worker.host_check = &host_check;
  worker.files = &files;
  worker.sessions = &sessions;
  worker.limiter = &limiter;
  worker.accounts = &accounts;
  worker.behind_proxy = options.behind_proxy;

  MasterSettings master;
  master.workers = options.workers;
  master.request_timeout = options.request_timeout;
  master.limits = limits;
  master.max_reading = options.max_reading;
  master.max_reading_per_address = options.max_reading_per_address;

  syslog(LOG_INFO, "listening on %s port %d with %zu methods", options.listen.c_str(), port,
         registry.Size());
  std::printf("%s: listening on http://%s:%d/\n", kLogIdent, UrlHost(options.listen).c_str(), port);
  std::fflush(stdout);
  return RunMaster(std::move(listener), master,
                   [&worker](WorkerLines lines) { RunWorker(worker, std::move(lines)); });
}
