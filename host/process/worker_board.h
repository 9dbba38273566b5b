// Which workers wait for a request, kept in memory the master shares with its workers. A worker
// that has answered marks its slot idle and tells no one, so the master is not woken once more
// for every request: it looks at the slots when it has a request to hand over. Only while the
// master listens (requests wait for a worker, or it is stopping) does a worker that becomes idle
// also say so on its line (handoff.h). Either side writes its flag before it reads the other's,
// so an idle worker is never missed by both.
#ifndef QRIX_HOST_PROCESS_WORKER_BOARD_H_
#define QRIX_HOST_PROCESS_WORKER_BOARD_H_

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "platform/vlibc/unique_fd.h"

namespace qrix::host {

class WorkerBoard {
 public:
  // A board of `slots` slots shared with every child forked later; nullptr with errno set when
  // the memory cannot be had.
  static std::unique_ptr<WorkerBoard> Make(int slots);
  ~WorkerBoard();
  WorkerBoard(const WorkerBoard&) = delete;
  WorkerBoard& operator=(const WorkerBoard&) = delete;

  // The master's side. A claimed slot starts busy; it is released once its worker is reaped.
  int Claim();  // -1 when every slot is taken
  void Release(int slot);
  // When the slot's worker became idle, as an order (higher is later), or 0 while it is busy.
  uint32_t IdleSince(int slot) const;
  // Idle to busy, before a request goes to the worker; false when it was not idle.
  bool Take(int slot);
  void Listen(bool listening);

  // The worker's side: marks its slot idle; true when the master listens.
  bool MarkIdle(int slot);

 private:
  struct Shared;
  WorkerBoard(Shared* shared, std::atomic<uint32_t>* idle_since, std::size_t bytes, int slots);

  Shared* shared_;
  std::atomic<uint32_t>* idle_since_;
  std::size_t bytes_;
  std::vector<bool> claimed_;  // the master's own bookkeeping
};

// What a worker holds of the master: its line, the callback queue it posts on
// (callback_runner.h) and its slot on the board.
struct WorkerLines {
  UniqueFd channel;
  int callback_queue = -1;
  WorkerBoard* board = nullptr;
  int slot = -1;
};

}  // namespace qrix::host

#endif  // QRIX_HOST_PROCESS_WORKER_BOARD_H_
