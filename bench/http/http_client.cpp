#include "bench/http/http_client.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <strings.h>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/vlibc/unique_fd.h"

namespace qrix::bench {

std::string BuildRequest(const RequestPlan& plan) {
  std::string out = plan.method + " " + plan.path + " HTTP/1.1\r\n";
  out += "Host: " + plan.host_header + "\r\n";
  out += "Connection: close\r\n";
  for (const std::string& header : plan.headers) {
    out += header + "\r\n";
  }
  if (!plan.body.empty() || plan.method == "POST") {
    out += "Content-Length: " + std::to_string(plan.body.size()) + "\r\n";
  }
  out += "\r\n";
  out += plan.body;
  return out;
}

namespace {

bool StartsWithNoCase(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() &&
         strncasecmp(text.data(), prefix.data(), prefix.size()) == 0;
}

std::string_view Trim(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) {
    s.remove_prefix(1);
  }
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r')) {
    s.remove_suffix(1);
  }
  return s;
}

// Reassembles a chunked body; false when it is cut short or malformed.
bool Unchunk(std::string_view in, std::string* out) {
  out->clear();
  for (;;) {
    const size_t eol = in.find("\r\n");
    if (eol == std::string_view::npos) {
      return false;
    }
    char* end = nullptr;
    const std::string size_text(in.substr(0, eol));
    const unsigned long size = std::strtoul(size_text.c_str(), &end, 16);
    if (end == size_text.c_str()) {
      return false;
    }
    in.remove_prefix(eol + 2);
    if (size == 0) {
      return true;
    }
    if (in.size() < size + 2) {
      return false;
    }
    out->append(in.substr(0, size));
    in.remove_prefix(size + 2);
  }
}

}  // namespace

bool ParseAnswer(std::string_view raw, Answer* out) {
  *out = Answer{};
  const size_t head_end = raw.find("\r\n\r\n");
  if (head_end == std::string_view::npos || !StartsWithNoCase(raw, "HTTP/1.")) {
    return false;
  }
  std::string_view head = raw.substr(0, head_end);
  const std::string_view body = raw.substr(head_end + 4);
  const size_t first_space = head.find(' ');
  if (first_space == std::string_view::npos || head.size() < first_space + 4) {
    return false;
  }
  int status = 0;
  for (char c : head.substr(first_space + 1, 3)) {
    if (c < '0' || c > '9') {
      return false;
    }
    status = status * 10 + (c - '0');
  }
  bool chunked = false;
  long long length = -1;
  size_t pos = head.find("\r\n");
  while (pos != std::string_view::npos) {
    head.remove_prefix(pos + 2);
    pos = head.find("\r\n");
    const std::string_view line = head.substr(0, pos);
    if (StartsWithNoCase(line, "content-length:")) {
      length = std::atoll(std::string(Trim(line.substr(15))).c_str());
    } else if (StartsWithNoCase(line, "transfer-encoding:")) {
      chunked = StartsWithNoCase(Trim(line.substr(18)), "chunked");
    }
  }
  if (chunked) {
    if (!Unchunk(body, &out->body)) {
      return false;
    }
  } else if (length >= 0) {
    if (body.size() < static_cast<size_t>(length)) {
      return false;
    }
    out->body.assign(body.substr(0, static_cast<size_t>(length)));
  } else {
    out->body.assign(body);
  }
  out->delimited = chunked || length >= 0;
  out->status = status;
  return true;
}

namespace {

// Waits for `events` on `fd`; false on timeout or error.
bool WaitFor(int fd, short events, int timeout_ms) {
  pollfd p{fd, events, 0};
  int rc;
  do {
    rc = ::poll(&p, 1, timeout_ms);
  } while (rc < 0 && errno == EINTR);
  return rc > 0;
}

Exchange Fail(std::string why) {
  Exchange e;
  e.error = std::move(why);
  return e;
}

}  // namespace

Exchange RunExchange(const sockaddr_in& addr, std::string_view request, std::string_view expect,
                     int timeout_ms) {
  UniqueFd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!fd.Valid()) {
    return Fail(std::string("socket: ") + std::strerror(errno));
  }
  // Closing with a reset leaves no TIME_WAIT behind on the client side, so thousands of
  // fresh connections do not run out of local ports. The whole answer is in by then.
  const linger no_linger{1, 0};
  ::setsockopt(fd.Get(), SOL_SOCKET, SO_LINGER, &no_linger, sizeof no_linger);
  if (::connect(fd.Get(), reinterpret_cast<const sockaddr*>(&addr), sizeof addr) != 0) {
    if (errno != EINPROGRESS) {
      return Fail(std::string("connect: ") + std::strerror(errno));
    }
    if (!WaitFor(fd.Get(), POLLOUT, timeout_ms)) {
      return Fail("connect: timed out");
    }
    int err = 0;
    socklen_t len = sizeof err;
    ::getsockopt(fd.Get(), SOL_SOCKET, SO_ERROR, &err, &len);
    if (err != 0) {
      return Fail(std::string("connect: ") + std::strerror(err));
    }
  }
  size_t sent = 0;
  while (sent < request.size()) {
    const ssize_t n = ::send(fd.Get(), request.data() + sent, request.size() - sent, MSG_NOSIGNAL);
    if (n > 0) {
      sent += static_cast<size_t>(n);
    } else if (n < 0 && (errno == EAGAIN || errno == EINTR)) {
      if (!WaitFor(fd.Get(), POLLOUT, timeout_ms)) {
        return Fail("send: timed out");
      }
    } else {
      return Fail(std::string("send: ") + std::strerror(errno));
    }
  }
  // Done when the stated length has arrived (servers may keep the connection open despite
  // "Connection: close"), or else when the server closes.
  std::string raw;
  Exchange e;
  char buf[16384];
  for (;;) {
    const ssize_t n = ::recv(fd.Get(), buf, sizeof buf, 0);
    if (n > 0) {
      raw.append(buf, static_cast<size_t>(n));
      if (ParseAnswer(raw, &e.answer) && e.answer.delimited) {
        break;
      }
    } else if (n == 0) {
      break;
    } else if (errno == EAGAIN || errno == EINTR) {
      if (!WaitFor(fd.Get(), POLLIN, timeout_ms)) {
        return Fail("recv: timed out waiting for the server to finish");
      }
    } else if (errno == ECONNRESET && !raw.empty()) {
      break;  // some servers reset once they have written everything
    } else {
      return Fail(std::string("recv: ") + std::strerror(errno));
    }
  }
  if (!ParseAnswer(raw, &e.answer)) {
    e.error = "answer: not a complete HTTP response (" + std::to_string(raw.size()) + " bytes)";
    return e;
  }
  if (e.answer.status != 200) {
    e.error = "answer: HTTP status " + std::to_string(e.answer.status);
    return e;
  }
  if (!expect.empty() && e.answer.body.find(expect) == std::string::npos) {
    e.error = "answer: body without \"" + std::string(expect) + "\"";
    return e;
  }
  e.ok = true;
  return e;
}

}  // namespace qrix::bench
