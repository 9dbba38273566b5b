#include "host/http_exchange.h"

#include <poll.h>
#include <sys/socket.h>

#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>
#include <cctype>

#include "host/fd_stream.h"

namespace qrix::host {
namespace {

namespace beast = boost::beast;
namespace http = boost::beast::http;

ReadResult Classify(const beast::error_code& ec) {
  if (ec == http::error::header_limit || ec == http::error::body_limit ||
      ec == http::error::buffer_overflow) {
    return ReadResult::kTooLarge;
  }
  if (ec == beast::error::timeout) {
    return ReadResult::kTimedOut;
  }
  if (ec == http::error::end_of_stream || ec == http::error::partial_message) {
    return ReadResult::kClosed;
  }
  // Anything outside the parser's own errors is the socket failing.
  if (ec.category() != beast::error_code(http::error::bad_method).category()) {
    return ReadResult::kClosed;
  }
  return ReadResult::kMalformed;
}

std::string Lower(beast::string_view text) {
  std::string out(text);
  for (char& c : out) {
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return out;
}

bool ExpectsContinue(const http::request<http::string_body>& request) {
  return beast::iequals(request[http::field::expect], "100-continue");
}

}  // namespace

ReadResult ReadRequest(int fd, const HttpLimits& limits, HttpRequest* out) {
  FdStream stream(fd, FdStream::Clock::now() + limits.read_time);
  beast::flat_buffer buffer;
  http::request_parser<http::string_body> parser;
  parser.header_limit(static_cast<std::uint32_t>(limits.header_bytes));
  parser.body_limit(limits.body_bytes);
  beast::error_code ec;
  http::read_header(stream, buffer, parser, ec);
  if (ec) {
    return Classify(ec);
  }
  if (!parser.is_done()) {
    if (ExpectsContinue(parser.get())) {
      static constexpr std::string_view kContinue = "HTTP/1.1 100 Continue\r\n\r\n";
      boost::asio::write(stream, boost::asio::buffer(kContinue.data(), kContinue.size()), ec);
      if (ec) {
        return ReadResult::kClosed;
      }
    }
    http::read(stream, buffer, parser, ec);
    if (ec) {
      return Classify(ec);
    }
  }
  http::request<http::string_body> request = parser.release();
  out->method = std::string(request.method_string());
  out->target = std::string(request.target());
  out->headers.clear();
  for (const auto& field : request) {
    out->headers.emplace_back(Lower(field.name_string()), std::string(field.value()));
  }
  out->body = std::move(request.body());
  return ReadResult::kOk;
}

bool WriteResponse(int fd, HttpResponse response, std::chrono::milliseconds time_limit) {
  http::response<http::string_body> message;
  message.version(11);
  message.result(static_cast<unsigned>(response.status));
  for (auto& [name, value] : response.headers) {
    message.insert(name, value);
  }
  message.keep_alive(false);
  message.body() = std::move(response.body);
  message.prepare_payload();
  if (response.head_only) {
    message.body().clear();  // the length stays announced
  }
  FdStream stream(fd, FdStream::Clock::now() + time_limit);
  beast::error_code ec;
  http::write(stream, message, ec);
  return !ec;
}

void CloseConnection(UniqueFd connection, bool unread_input) {
  if (!connection.Valid()) {
    return;
  }
  if (!unread_input) {
    return;  // UniqueFd closes
  }
  ::shutdown(connection.Get(), SHUT_WR);
  constexpr auto kLinger = std::chrono::seconds(1);
  constexpr size_t kMaxDrain = 1024 * 1024;
  const auto deadline = FdStream::Clock::now() + kLinger;
  size_t drained = 0;
  char sink[16 * 1024];
  while (drained < kMaxDrain) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - FdStream::Clock::now());
    if (left.count() <= 0) {
      break;
    }
    pollfd p{connection.Get(), POLLIN, 0};
    if (::poll(&p, 1, static_cast<int>(left.count())) <= 0) {
      break;
    }
    const ssize_t n = ::recv(connection.Get(), sink, sizeof sink, MSG_DONTWAIT);
    if (n <= 0) {
      break;
    }
    drained += static_cast<size_t>(n);
  }
}

}  // namespace qrix::host
