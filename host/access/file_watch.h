// An inotify queue for a cache of files that other processes change. Opened at first use, so
// in the worker that uses it: a worker never shares its queue with the master or another
// worker. One look at an empty queue costs far less than the stats it replaces.
#ifndef QRIX_HOST_ACCESS_FILE_WATCH_H_
#define QRIX_HOST_ACCESS_FILE_WATCH_H_

#include <stdint.h>

#include <functional>
#include <string_view>

#include "platform/vlibc/unique_fd.h"

namespace qrix::host {

class FileWatch {
 public:
  // Adds (or renews) a watch on `path`: its descriptor, or -1 when inotify cannot watch it.
  int Add(const char* path, uint32_t mask);

  // Takes every queued event: `on_event` gets the watch descriptor (-1 when the queue overflowed
  // and events were lost) and the name within a watched directory ("" for the watched file or
  // directory itself). False when the queue cannot be looked at: then changes may have gone
  // unseen.
  bool Drain(const std::function<void(int watch, std::string_view name)>& on_event);

  // Drops the queue and its watches; the next Add starts a new one.
  void Close() { queue_.Reset(); }

 private:
  UniqueFd queue_;
};

}  // namespace qrix::host

#endif  // QRIX_HOST_ACCESS_FILE_WATCH_H_
