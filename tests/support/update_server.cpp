#include "tests/support/update_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace qrix::test {

UpdateServer::UpdateServer() : listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t len = sizeof addr;
  if (::bind(listener_.Get(), reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0 &&
      ::listen(listener_.Get(), 16) == 0 &&
      ::getsockname(listener_.Get(), reinterpret_cast<sockaddr*>(&addr), &len) == 0) {
    port_ = ntohs(addr.sin_port);
  }
  thread_ = std::thread([this] { Serve(); });
}

UpdateServer::~UpdateServer() {
  ::shutdown(listener_.Get(), SHUT_RDWR);  // the waiting accept() fails, and Serve() returns
  thread_.join();
}

std::string UpdateServer::Address() const {
  return "127.0.0.1:" + std::to_string(port_);
}

void UpdateServer::Answer(int status, const std::string& body) {
  const std::lock_guard<std::mutex> guard(mutex_);
  status_ = status;
  body_ = body;
}

std::vector<std::string> UpdateServer::Targets() {
  const std::lock_guard<std::mutex> guard(mutex_);
  return targets_;
}

void UpdateServer::Serve() {
  for (;;) {
    UniqueFd client(::accept4(listener_.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!client.Valid()) {
      return;
    }
    std::string request;
    char buf[4096];
    ssize_t n = 0;
    while (request.find("\r\n\r\n") == std::string::npos &&
           (n = ::read(client.Get(), buf, sizeof buf)) > 0) {
      request.append(buf, static_cast<size_t>(n));
    }
    const size_t start = request.find(' ') + 1;
    const std::lock_guard<std::mutex> guard(mutex_);
    targets_.push_back(request.substr(start, request.find(' ', start) - start));
    if (status_ == 0) {
      held_.push_back(std::move(client));
      continue;
    }
    const std::string answer =
        "HTTP/1.1 " + std::to_string(status_) +
        " X\r\nContent-Type: application/json\r\nContent-Length: " + std::to_string(body_.size()) +
        "\r\nConnection: close\r\n\r\n" + body_;
    [[maybe_unused]] const ssize_t written = ::write(client.Get(), answer.data(), answer.size());
  }
}

}  // namespace qrix::test
