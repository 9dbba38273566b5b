#include "host/http/listener.h"

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <memory>

namespace qrix::host {

UniqueFd Listen(const std::string& address, int port, int* bound_port, std::string* error) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
  addrinfo* found = nullptr;
  const std::string where = address + " port " + std::to_string(port);
  if (const int err = ::getaddrinfo(address.c_str(), std::to_string(port).c_str(), &hints, &found);
      err != 0) {
    *error = "cannot listen on " + where + ": " + ::gai_strerror(err);
    return UniqueFd();
  }
  const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> info(found, &::freeaddrinfo);
  UniqueFd fd(::socket(info->ai_family, info->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  const int on = 1;
  if (!fd.Valid() || ::setsockopt(fd.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
      (info->ai_family == AF_INET6 &&
       ::setsockopt(fd.Get(), IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof on) != 0) ||
      ::bind(fd.Get(), info->ai_addr, info->ai_addrlen) != 0 ||
      ::listen(fd.Get(), SOMAXCONN) != 0) {
    *error = "cannot listen on " + where + ": " + std::strerror(errno);
    return UniqueFd();
  }
  sockaddr_storage bound{};
  socklen_t length = sizeof bound;
  ::getsockname(fd.Get(), reinterpret_cast<sockaddr*>(&bound), &length);
  *bound_port =
      ntohs(bound.ss_family == AF_INET6 ? reinterpret_cast<const sockaddr_in6*>(&bound)->sin6_port
                                        : reinterpret_cast<const sockaddr_in*>(&bound)->sin_port);
  return fd;
}

}  // namespace qrix::host
