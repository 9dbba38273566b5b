#include "tests/support/syslog_capture.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <thread>

namespace qrix::test {

SyslogCapture& SyslogCapture::Get() {
  // Never destroyed: its reader thread runs until the process ends.
  static SyslogCapture* capture = new SyslogCapture();
  return *capture;
}

SyslogCapture::SyslogCapture() {
  fd_ = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  std::strcpy(addr.sun_path, "/dev/log");
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
  for (;;) {
    const ssize_t n = ::recv(fd_, buf, sizeof buf - 1, 0);
    if (n <= 0) {
      return;
    }
    buf[n] = '\0';
    // "<PRI>Mmm dd hh:mm:ss tag[pid]: message"
    LogLine line{0, buf};
    if (buf[0] == '<') {
      line.priority = std::atoi(buf + 1);
    }
    const char* colon = std::strstr(buf, "]: ");
    if (colon == nullptr) {
      colon = std::strstr(buf, ": ");
    }
    if (colon != nullptr) {
      line.message = colon + (colon[0] == ']' ? 3 : 2);
    }
    lines_.push_back(std::move(line));
  }
}

void SyslogCapture::Clear() {
  const std::lock_guard<std::mutex> guard(mutex_);
  Drain();
  lines_.clear();
}

std::vector<LogLine> SyslogCapture::Lines() {
  const std::lock_guard<std::mutex> guard(mutex_);
  Drain();
  return lines_;
}

int SyslogCapture::Count(const std::string& text) {
  const std::lock_guard<std::mutex> guard(mutex_);
  Drain();
  int n = 0;
  for (const LogLine& line : lines_) {
    if (line.message.find(text) != std::string::npos) {
      ++n;
    }
  }
  return n;
}

}  // namespace qrix::test
