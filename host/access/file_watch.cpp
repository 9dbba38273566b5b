#include "host/access/file_watch.h"

#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstring>

namespace qrix::host {

int FileWatch::Add(const char* path, uint32_t mask) {
  if (!queue_.Valid()) {
    queue_.Reset(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  }
  return queue_.Valid() ? ::inotify_add_watch(queue_.Get(), path, mask) : -1;
}

bool FileWatch::Drain(const std::function<void(int watch, std::string_view name)>& on_event) {
  int pending = 0;
  if (!queue_.Valid() || ::ioctl(queue_.Get(), FIONREAD, &pending) != 0) {
    return false;
  }
  if (pending == 0) {
    return true;  // the common case: one system call
  }
  alignas(inotify_event) char buffer[4096];
  for (ssize_t n; (n = ::read(queue_.Get(), buffer, sizeof buffer)) > 0;) {
    for (ssize_t off = 0; off < n;) {
      const auto* event = reinterpret_cast<const inotify_event*>(buffer + off);
      off += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
      // A name is padded with NULs to its length.
      on_event(event->wd, event->len == 0
                              ? std::string_view()
                              : std::string_view(event->name, ::strnlen(event->name, event->len)));
    }
  }
  return true;
}

}  // namespace qrix::host
