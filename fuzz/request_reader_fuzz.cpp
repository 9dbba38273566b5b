// The master's request reading, fed as a client would feed it: the input is what arrives on the
// connection, then the client stops sending. As in the master, one read tries to take the whole
// request at once and the reader goes on from what it read. Whatever arrives, the reader
// finishes exactly once, a request it lets through is within the limits and unambiguous, and a
// request the first read took whole is the one the reader makes of the same bytes.
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "fuzz/fuzz_check.h"
#include "host/http/request_reader.h"
#include "platform/vlibc/unique_fd.h"

namespace {

namespace asio = boost::asio;
using qrix::host::HttpRequest;
using qrix::host::ReadResult;

// Small limits, so that short inputs reach them.
const qrix::host::HttpLimits kLimits{1024, 4096, std::chrono::seconds(5), std::chrono::seconds(5)};
// Stays under a socket pair's buffer, so the whole input is written before the reader runs.
constexpr size_t kMaxInput = 64 * 1024;

auto Count(const HttpRequest& request, std::string_view name) {
  return std::count_if(request.headers.begin(), request.headers.end(),
                       [name](const auto& header) { return header.first == name; });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > kMaxInput) {
    return 0;
  }
  int fds[2];
  FUZZ_CHECK(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) == 0);
  qrix::UniqueFd client(fds[1]);
  int buffer = static_cast<int>(2 * kMaxInput);
  ::setsockopt(client.Get(), SOL_SOCKET, SO_SNDBUF, &buffer, sizeof buffer);
  for (size_t sent = 0; sent < size;) {
    const ssize_t n = ::send(client.Get(), data + sent, size - sent, MSG_NOSIGNAL);
    FUZZ_CHECK(n > 0);
    sent += static_cast<size_t>(n);
  }
  ::shutdown(client.Get(), SHUT_WR);

  boost::beast::flat_buffer read;
  const std::optional<HttpRequest> whole =
      qrix::host::ReadWholeAtOnce(fds[0], "127.0.0.1", kLimits, &read);
  asio::io_context io;
  asio::ip::tcp::socket socket(io);
  socket.assign(asio::ip::tcp::v4(), fds[0]);
  auto reader = std::make_shared<qrix::host::RequestReader>(std::move(socket), "127.0.0.1", kLimits,
                                                            std::move(read));
  int calls = 0;
  reader->Start([&calls, &whole, reader](ReadResult result, HttpRequest request) {
    ++calls;
    if (result != ReadResult::kOk) {
      FUZZ_CHECK(!whole);
      FUZZ_CHECK(request.method.empty() && request.headers.empty() && request.body.empty());
      reader->AnswerAndClose("HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\n\r\n");
      return;
    }
    FUZZ_CHECK(!whole || (whole->method == request.method && whole->target == request.target &&
                          whole->headers == request.headers && whole->body == request.body));
    FUZZ_CHECK(!request.method.empty());
    FUZZ_CHECK(request.body.size() <= kLimits.body_bytes);
    FUZZ_CHECK(Count(request, "host") <= 1 && Count(request, "origin") <= 1);
    FUZZ_CHECK(Count(request, "transfer-encoding") == 0 || Count(request, "content-length") == 0);
    FUZZ_CHECK(reader->ReleaseConnection().Valid());
  });
  io.run();
  FUZZ_CHECK(calls == 1);
  return 0;
}
