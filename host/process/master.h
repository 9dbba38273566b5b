// The master process, the only one that reads from clients. In one event loop it accepts,
// reads each request whole under its limits and deadlines, and hands only complete requests to
// idle workers, so a slow or silent client costs it a buffer, never a worker. It keeps the pool
// of workers filled ahead of need (never forking on a request's path) and the keeper of the
// post-response callbacks running (see callback_runner.h), kills a worker that
// overruns its time limit, and stops gracefully on SIGTERM or SIGINT: waiting workers leave at
// once, busy ones finish their request. It runs no module code and never dies with a worker.
#ifndef QRIX_HOST_PROCESS_MASTER_H_
#define QRIX_HOST_PROCESS_MASTER_H_

#include <functional>

#include "host/http/request_reader.h"
#include "host/process/worker_board.h"
#include "platform/vlibc/unique_fd.h"

namespace qrix::host {

struct MasterSettings {
  int workers = 4;           // kept serving; one that leaves is replaced at once
  int request_timeout = 60;  // seconds; the worker answers 110 itself, the master kills later
  HttpLimits limits;
  int max_reading = 1024;            // connections whose request is still being read, in all
  int max_reading_per_address = 32;  // ... and from one client address
  int max_waiting = 256;             // complete requests waiting for a worker
};

// Runs in each worker process with what it holds of the master; never returns.
using WorkerMain = std::function<void(WorkerLines lines)>;

// Serves `listener` until a graceful stop; returns the process exit status.
int RunMaster(UniqueFd listener, const MasterSettings& settings, const WorkerMain& worker_main);

}  // namespace qrix::host

#endif  // QRIX_HOST_PROCESS_MASTER_H_
