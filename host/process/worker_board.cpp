#include "host/process/worker_board.h"

#include <sys/mman.h>

#include <new>

namespace qrix::host {

// Plain lock-free atomics work across processes in shared memory; a lock would not.
static_assert(std::atomic<uint32_t>::is_always_lock_free);

struct WorkerBoard::Shared {
  std::atomic<uint32_t> listening{0};
  std::atomic<uint32_t> last_idle{0};
  // Followed by one "idle since" per slot.
};

std::unique_ptr<WorkerBoard> WorkerBoard::Make(int slots) {
  const std::size_t bytes =
      sizeof(Shared) + sizeof(std::atomic<uint32_t>) * static_cast<std::size_t>(slots);
  void* memory = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) {
    return nullptr;
  }
  auto* shared = new (memory) Shared;
  auto* idle_since = reinterpret_cast<std::atomic<uint32_t>*>(shared + 1);
  for (int i = 0; i < slots; ++i) {
    new (&idle_since[i]) std::atomic<uint32_t>(0);
  }
  return std::unique_ptr<WorkerBoard>(new WorkerBoard(shared, idle_since, bytes, slots));
}

WorkerBoard::WorkerBoard(Shared* shared, std::atomic<uint32_t>* idle_since, std::size_t bytes,
                         int slots)
    : shared_(shared),
      idle_since_(idle_since),
      bytes_(bytes),
      claimed_(static_cast<std::size_t>(slots), false) {}

WorkerBoard::~WorkerBoard() {
  ::munmap(shared_, bytes_);
}

int WorkerBoard::Claim() {
  for (std::size_t i = 0; i < claimed_.size(); ++i) {
    if (!claimed_[i]) {
      claimed_[i] = true;
      idle_since_[i].store(0);
      return static_cast<int>(i);
    }
  }
  return -1;
}

void WorkerBoard::Release(int slot) {
  claimed_.at(static_cast<std::size_t>(slot)) = false;
}

uint32_t WorkerBoard::IdleSince(int slot) const {
  return idle_since_[slot].load();
}

bool WorkerBoard::Take(int slot) {
  uint32_t since = idle_since_[slot].load();
  return since != 0 && idle_since_[slot].compare_exchange_strong(since, 0);
}

void WorkerBoard::Listen(bool listening) {
  shared_->listening.store(listening ? 1 : 0);
}

bool WorkerBoard::MarkIdle(int slot) {
  uint32_t order = shared_->last_idle.fetch_add(1) + 1;
  if (order == 0) {
    order = shared_->last_idle.fetch_add(1) + 1;  // 0 means busy; after a wrap, skip it
  }
  idle_since_[slot].store(order);
  return shared_->listening.load() != 0;
}

}  // namespace qrix::host
