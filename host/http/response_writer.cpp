#include "host/http/response_writer.h"

#include <poll.h>
#include <sys/socket.h>

#include <boost/beast/http/status.hpp>
#include <cerrno>

namespace qrix::host {
namespace {

using Clock = std::chrono::steady_clock;

int MillisecondsLeft(Clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return left > 0 ? static_cast<int>(left) : 0;
}

}  // namespace

std::string SerializeResponse(const HttpResponse& response) {
  const auto reason =
      boost::beast::http::obsolete_reason(static_cast<boost::beast::http::status>(response.status));
  std::string out;
  out.reserve(256 + (response.head_only ? 0 : response.body.size()));
  out += "HTTP/1.1 " + std::to_string(response.status) + " ";
  out.append(reason.data(), reason.size());
  out += "\r\n";
  for (const auto& [name, value] : response.headers) {
    out += name + ": " + value + "\r\n";
  }
  // HEAD announces the length of the body it leaves out.
  out +=
      "Content-Length: " + std::to_string(response.body.size()) + "\r\nConnection: close\r\n\r\n";
  if (!response.head_only) {
    out += response.body;
  }
  return out;
}

bool SendAll(int fd, std::string_view bytes, std::chrono::milliseconds time_limit) {
  const Clock::time_point deadline = Clock::now() + time_limit;
  while (!bytes.empty()) {
    const ssize_t n = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n > 0) {
      bytes.remove_prefix(static_cast<size_t>(n));
      continue;
    }
    if (n < 0 && errno == EINTR) {
      continue;
    }
    if (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK) {
      return false;
    }
    pollfd p{fd, POLLOUT, 0};
    const int wait = MillisecondsLeft(deadline);
    if (wait == 0 || (::poll(&p, 1, wait) <= 0 && errno != EINTR)) {
      return false;
    }
  }
  return true;
}

}  // namespace qrix::host
