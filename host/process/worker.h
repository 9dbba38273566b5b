// The life of one worker process: take one complete request at a time from the master,
// answer it on the connection handed over with it, and go on. What belongs to a request (the
// recorded error code, the request and response objects, the login, the language) starts
// fresh for each. A request's post-response callbacks go, once it is answered, to a process of
// their own (callback_runner.h); when they cannot, the request spends the worker: it runs
// them and exits. Either way each request's callbacks run in a process that ran no other
// request's. A worker also leaves after its request limit, past its memory bound, and when a
// request left its ids changed.
#ifndef QRIX_HOST_PROCESS_WORKER_H_
#define QRIX_HOST_PROCESS_WORKER_H_

#include <cstddef>

#include "host/access/auth.h"
#include "host/access/host_check.h"
#include "host/access/login_limiter.h"
#include "host/access/session_store.h"
#include "host/dispatch/module_registry.h"
#include "host/dispatch/static_files.h"
#include "host/http/request_reader.h"
#include "host/process/worker_board.h"
#include "platform/vlibc/unique_fd.h"

namespace qrix::host {

struct WorkerSetup {
  HttpLimits limits;
  int request_timeout = 60;        // seconds, post-response callbacks included
  int max_requests = 10000;        // then the worker makes way for a fresh one
  std::size_t max_memory_kib = 0;  // resident-memory bound; 0 for none
  const ModuleRegistry* registry = nullptr;
  const HostCheck* host_check = nullptr;
  const StaticFiles* files = nullptr;
  SessionStore* sessions = nullptr;
  LoginLimiter* limiter = nullptr;
  AccountCache* accounts = nullptr;  // each worker fills its own copy
  bool behind_proxy = false;         // see DecodeRequest
};

[[noreturn]] void RunWorker(const WorkerSetup& setup, WorkerLines lines);

}  // namespace qrix::host

#endif  // QRIX_HOST_PROCESS_WORKER_H_
