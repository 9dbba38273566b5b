#include "host/process/handoff.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#include "host/common/host_log.h"

namespace qrix::host {
namespace {

// Bodies above this travel in a sealed memory file beside the message, so that no message
// outgrows what a socket buffer holds, whatever the body limit.
constexpr std::size_t kInlineBody = 16 * 1024;
// Everything but a large body: the request head within the reader's limit, with room for the
// lengths of many short headers.
constexpr std::size_t kMaxMessage = 64 * 1024 + kInlineBody;
constexpr std::uint8_t kBodyInline = 0;
constexpr std::uint8_t kBodyInFile = 1;

void PutString(std::string& out, std::string_view text) {
  const auto size = static_cast<std::uint32_t>(text.size());
  out.append(reinterpret_cast<const char*>(&size), sizeof size);
  out.append(text.data(), text.size());
}

class Cursor {
 public:
  explicit Cursor(std::string_view bytes) : bytes_(bytes) {}
  bool Take(std::string* out) {
    std::uint32_t size = 0;
    if (!TakeRaw(&size, sizeof size) || bytes_.size() < size) {
      return false;
    }
    out->assign(bytes_.data(), size);
    bytes_.remove_prefix(size);
    return true;
  }
  bool TakeRaw(void* out, std::size_t size) {
    if (bytes_.size() < size) {
      return false;
    }
    std::memcpy(out, bytes_.data(), size);
    bytes_.remove_prefix(size);
    return true;
  }
  bool Done() const { return bytes_.empty(); }

 private:
  std::string_view bytes_;
};

UniqueFd BodyFile(const std::string& body) {
  UniqueFd fd(::memfd_create("qrix-request-body", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  if (!fd.Valid()) {
    return fd;
  }
  std::string_view rest = body;
  while (!rest.empty()) {
    const ssize_t n = ::write(fd.Get(), rest.data(), rest.size());
    if (n < 0 && errno == EINTR) {
      continue;
    }
    if (n <= 0) {
      return UniqueFd();
    }
    rest.remove_prefix(static_cast<std::size_t>(n));
  }
  ::fcntl(fd.Get(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL);
  return fd;
}

bool ReadBodyFile(int fd, std::string* body) {
  const off_t size = ::lseek(fd, 0, SEEK_END);
  if (size < 0) {
    return false;
  }
  body->resize(static_cast<std::size_t>(size));
  std::size_t done = 0;
  while (done < body->size()) {
    const ssize_t n =
        ::pread(fd, body->data() + done, body->size() - done, static_cast<off_t>(done));
    if (n < 0 && errno == EINTR) {
      continue;
    }
    if (n <= 0) {
      return false;
    }
    done += static_cast<std::size_t>(n);
  }
  return true;
}

}  // namespace

bool MakeChannel(UniqueFd* master_end, UniqueFd* worker_end) {
  int fds[2];
  if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, fds) != 0) {
    return false;
  }
  master_end->Reset(fds[0]);
  worker_end->Reset(fds[1]);
  return true;
}

bool SendRequest(int channel, const HttpRequest& request, int connection) {
  const bool in_file = request.body.size() > kInlineBody;
  UniqueFd body_file;
  if (in_file) {
    body_file = BodyFile(request.body);
    if (!body_file.Valid()) {
      LogFailure("cannot pass a request body of", request.peer, errno);
      return false;
    }
  }
  std::string message;
  message.reserve(512 + (in_file ? 0 : request.body.size()));
  message.push_back(static_cast<char>(in_file ? kBodyInFile : kBodyInline));
  PutString(message, request.peer);
  PutString(message, request.method);
  PutString(message, request.target);
  const auto count = static_cast<std::uint32_t>(request.headers.size());
  message.append(reinterpret_cast<const char*>(&count), sizeof count);
  for (const auto& [name, value] : request.headers) {
    PutString(message, name);
    PutString(message, value);
  }
  PutString(message, in_file ? std::string_view() : std::string_view(request.body));

  const int fds[2] = {connection, body_file.Get()};
  const std::size_t fd_count = in_file ? 2 : 1;
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof fds)] = {};
  iovec iov{message.data(), message.size()};
  msghdr msg{};
  msg.msg_iov = &iov;
  msg.msg_iovlen = 1;
  msg.msg_control = control;
  msg.msg_controllen = CMSG_SPACE(sizeof(int) * fd_count);
  cmsghdr* cmsg = CMSG_FIRSTHDR(&msg);
  cmsg->cmsg_level = SOL_SOCKET;
  cmsg->cmsg_type = SCM_RIGHTS;
  cmsg->cmsg_len = CMSG_LEN(sizeof(int) * fd_count);
  std::memcpy(CMSG_DATA(cmsg), fds, sizeof(int) * fd_count);
  for (;;) {
    if (::sendmsg(channel, &msg, MSG_NOSIGNAL | MSG_DONTWAIT) >= 0) {
      return true;
    }
    if (errno != EINTR) {
      return false;
    }
  }
}

Received ReceiveRequest(int channel, HttpRequest* request, UniqueFd* connection) {
  static std::vector<char> buffer(kMaxMessage);
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int) * 2)] = {};
  iovec iov{buffer.data(), buffer.size()};
  msghdr msg{};
  msg.msg_iov = &iov;
  msg.msg_iovlen = 1;
  msg.msg_control = control;
  msg.msg_controllen = sizeof control;
  const ssize_t n = ::recvmsg(channel, &msg, MSG_CMSG_CLOEXEC);
  if (n < 0) {
    return errno == EINTR ? Received::kInterrupted : Received::kClosed;
  }
  if (n == 0) {
    return Received::kClosed;
  }
  UniqueFd fds[2];
  std::size_t fd_count = 0;
  for (cmsghdr* c = CMSG_FIRSTHDR(&msg); c != nullptr; c = CMSG_NXTHDR(&msg, c)) {
    if (c->cmsg_level == SOL_SOCKET && c->cmsg_type == SCM_RIGHTS) {
      const std::size_t got = (c->cmsg_len - CMSG_LEN(0)) / sizeof(int);
      for (std::size_t i = 0; i < got; ++i) {
        int fd;
        std::memcpy(&fd, CMSG_DATA(c) + i * sizeof(int), sizeof fd);
        if (fd_count < 2) {
          fds[fd_count++].Reset(fd);
        } else {
          ::close(fd);
        }
      }
    }
  }
  Cursor in(std::string_view(buffer.data(), static_cast<std::size_t>(n)));
  std::uint8_t body_kind = 0;
  std::uint32_t count = 0;
  request->headers.clear();
  bool ok = (msg.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) == 0 && fd_count >= 1 &&
            in.TakeRaw(&body_kind, 1) && in.Take(&request->peer) && in.Take(&request->method) &&
            in.Take(&request->target) && in.TakeRaw(&count, sizeof count);
  for (std::uint32_t i = 0; ok && i < count; ++i) {
    std::string name;
    std::string value;
    ok = in.Take(&name) && in.Take(&value);
    request->headers.emplace_back(std::move(name), std::move(value));
  }
  ok = ok && in.Take(&request->body) && in.Done();
  if (ok && body_kind == kBodyInFile) {
    ok = fd_count == 2 && ReadBodyFile(fds[1].Get(), &request->body);
  } else if (ok) {
    ok = body_kind == kBodyInline;
  }
  if (!ok) {
    LogFailure("cannot read a request handed over to worker", std::to_string(::getpid()),
               "malformed message");
    return Received::kBroken;  // the connection closes with fds[0]
  }
  *connection = std::move(fds[0]);
  return Received::kRequest;
}

bool SendStatus(int channel, WorkerStatus status) {
  const char byte = static_cast<char>(status);
  for (;;) {
    if (::send(channel, &byte, 1, MSG_NOSIGNAL) == 1) {
      return true;
    }
    if (errno != EINTR) {
      return false;
    }
  }
}

}  // namespace qrix::host
