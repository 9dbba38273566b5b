#include "tests/support/syslog_capture.h"

#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <string_view>
#include <thread>

namespace qrix::test {

SyslogCapture& SyslogCapture::Get() {
  // Never destroyed: its reader thread runs until the process ends.
  static SyslogCapture* capture = new SyslogCapture();
  return *capture;
}

SyslogCapture::SyslogCapture() {
  fd_ = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  sockaddr_un addr{AF_UNIX, "/dev/log"};
  ::unlink(addr.sun_path);
  if (fd_ < 0 || ::bind(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
    throw std::runtime_error("cannot bind /dev/log: run the test inside scripts/sandbox");
  }
  // A connection glibc made before the socket existed is dropped, so the next line reconnects.
  closelog();
  // A child forked while the reader thread allocates would find the allocator's lock held for
  // good (ASan's allocator does not release it at fork). So the constructor returns only once
  // the thread's start-up (which allocates) is over, and a fork waits until the thread is out of
  // its locked part, where all its later allocations are.
  ::pthread_atfork([] { Get().mutex_.lock(); }, [] { Get().mutex_.unlock(); },
                   [] { Get().mutex_.unlock(); });
  // The socket queues only a few datagrams (net.unix.max_dgram_qlen) before syslog() blocks,
  // so a thread keeps it empty whatever the test does.
  std::thread([this] {
    reading_.store(true);
    reading_.notify_all();
    for (;;) {
      pollfd p{fd_, POLLIN, 0};
      if (::poll(&p, 1, -1) > 0) {
        const std::lock_guard<std::mutex> guard(mutex_);
        Drain();
      }
    }
  }).detach();
  reading_.wait(false);
}

void SyslogCapture::Drain() {
  char buf[8192];
  for (ssize_t n; (n = ::recv(fd_, buf, sizeof buf, 0)) > 0;) {
    // "<PRI>Mmm dd hh:mm:ss tag[pid]: message", or "tag: message" without the pid.
    const std::string_view line(buf, static_cast<size_t>(n));
    const size_t pid_end = line.find("]: ");
    const size_t tag_end = pid_end != std::string_view::npos ? pid_end + 1 : line.find(": ");
    lines_.emplace_back(tag_end == std::string_view::npos ? line : line.substr(tag_end + 2));
  }
}

void SyslogCapture::Clear() {
  const std::lock_guard<std::mutex> guard(mutex_);
  Drain();
  lines_.clear();
}

int SyslogCapture::Count(const std::string& text) {
  const std::lock_guard<std::mutex> guard(mutex_);
  Drain();
  return static_cast<int>(std::count_if(lines_.begin(), lines_.end(), [&text](const auto& line) {
    return line.find(text) != std::string::npos;
  }));
}

}  // namespace qrix::test
