#include "host/fd_stream.h"

#include <poll.h>
#include <sys/socket.h>

#include <boost/asio/error.hpp>
#include <cerrno>

namespace qrix::host {

bool FdStream::Wait(short events, boost::beast::error_code& ec) {
  for (;;) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline_ - Clock::now());
    if (left.count() <= 0) {
      ec = boost::beast::error::timeout;
      return false;
    }
    pollfd p{fd_, events, 0};
    const int n = ::poll(&p, 1, static_cast<int>(left.count()));
    if (n > 0) {
      return true;
    }
    if (n < 0 && errno != EINTR) {
      ec.assign(errno, boost::system::system_category());
      return false;
    }
  }
}

std::size_t FdStream::ReadSome(void* data, std::size_t size, boost::beast::error_code& ec) {
  for (;;) {
    const ssize_t n = ::recv(fd_, data, size, MSG_DONTWAIT);
    if (n > 0) {
      ec = {};
      return static_cast<std::size_t>(n);
    }
    if (n == 0) {
      ec = boost::asio::error::eof;
      return 0;
    }
    if (errno == EINTR) {
      continue;
    }
    if (errno != EAGAIN && errno != EWOULDBLOCK) {
      ec.assign(errno, boost::system::system_category());
      return 0;
    }
    if (!Wait(POLLIN, ec)) {
      return 0;
    }
  }
}

std::size_t FdStream::WriteSome(const iovec* iov, int count, boost::beast::error_code& ec) {
  msghdr msg{};
  msg.msg_iov = const_cast<iovec*>(iov);
  msg.msg_iovlen = static_cast<size_t>(count);
  for (;;) {
    const ssize_t n = ::sendmsg(fd_, &msg, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n >= 0) {
      ec = {};
      return static_cast<std::size_t>(n);
    }
    if (errno == EINTR) {
      continue;
    }
    if (errno != EAGAIN && errno != EWOULDBLOCK) {
      ec.assign(errno, boost::system::system_category());
      return 0;
    }
    if (!Wait(POLLOUT, ec)) {
      return 0;
    }
  }
}

}  // namespace qrix::host
