#include "tests/support/syslog_capture.h"

#include <poll.h>
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
  // The socket queues only a few datagrams (net.unix.max_dgram_qlen) before syslog() blocks,
  // so a thread keeps it empty whatever the test does.
  std::thread([this] {
    for (;;) {
      pollfd p{fd_, POLLIN, 0};
      if (::poll(&p, 1, -1) > 0) {
        const std::lock_guard<std::mutex> guard(mutex_);
        Drain();
      }
    }
  }).detach();
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
