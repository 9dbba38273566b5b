// The life of one worker process: wait for one connection, read one request, answer it,
// close the connection, run the module's post-response callbacks, exit. Every request gets a
// fresh process, so the module's once-per-process state is per request.
#ifndef QRIX_HOST_WORKER_H_
#define QRIX_HOST_WORKER_H_

#include "host/host_check.h"
#include "host/http_exchange.h"
#include "host/login_limiter.h"
#include "host/module_registry.h"
#include "host/session_store.h"
#include "host/static_files.h"
#include "host/worker_pool.h"

namespace qrix::host {

struct WorkerSetup {
  int listen_fd = -1;
  HttpLimits limits;
  int request_timeout = 60;  // seconds
  const ModuleRegistry* registry = nullptr;
  const HostCheck* host_check = nullptr;
  const StaticFiles* files = nullptr;
  SessionStore* sessions = nullptr;
  LoginLimiter* limiter = nullptr;
};

// Ends the process; a worker told to stop before it got a connection exits with status 0.
[[noreturn]] void RunWorker(const WorkerSetup& setup, WorkerChannel& channel);

}  // namespace qrix::host

#endif  // QRIX_HOST_WORKER_H_
