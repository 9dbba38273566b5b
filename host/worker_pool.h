// The master process: keeps a pool of pre-forked, single-use workers ready, replaces each one
// as soon as it takes a connection, kills a worker that overruns its request's time limit, and
// stops gracefully on SIGTERM or SIGINT. It runs no module code and never dies with a worker.
#ifndef QRIX_HOST_WORKER_POOL_H_
#define QRIX_HOST_WORKER_POOL_H_

#include <functional>

namespace qrix::host {

struct PoolSettings {
  int idle_workers = 4;      // workers kept waiting for a connection
  int max_workers = 16;      // waiting and busy together
  int request_timeout = 60;  // seconds; the worker answers 110 itself, the master kills later
};

// A worker's line back to the master.
class WorkerChannel {
 public:
  explicit WorkerChannel(int fd) : fd_(fd) {}
  WorkerChannel(const WorkerChannel&) = delete;
  WorkerChannel& operator=(const WorkerChannel&) = delete;
  ~WorkerChannel();
  // Tells the master this worker took a connection, so that it forks a replacement and
  // starts the time limit. Call once.
  void ReportBusy();

 private:
  int fd_;
};

// Runs in each worker process. Returning ends the worker.
using WorkerMain = std::function<void(WorkerChannel&)>;

// Runs the master until a graceful stop; returns the process exit status.
int RunPool(const PoolSettings& settings, const WorkerMain& worker_main);

}  // namespace qrix::host

#endif  // QRIX_HOST_WORKER_POOL_H_
