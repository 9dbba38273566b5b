#include "host/http/request_reader.h"

#include <sys/socket.h>

#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/http/read.hpp>
#include <cctype>
#include <cerrno>
#include <iterator>

namespace qrix::host {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;

constexpr std::string_view kContinue = "HTTP/1.1 100 Continue\r\n\r\n";
// How long and how much a refused client may still send while its answer drains to it.
constexpr auto kLinger = std::chrono::seconds(1);
constexpr std::size_t kMaxDrain = 1024 * 1024;

ReadResult Classify(const beast::error_code& ec) {
  if (ec == http::error::header_limit || ec == http::error::body_limit ||
      ec == http::error::buffer_overflow) {
    return ReadResult::kTooLarge;
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

beast::string_view Trimmed(beast::string_view text) {
  beast::string_view out = text;
  while (!out.empty() && (out.front() == ' ' || out.front() == '\t')) {
    out.remove_prefix(1);
  }
  while (!out.empty() && (out.back() == ' ' || out.back() == '\t')) {
    out.remove_suffix(1);
  }
  return out;
}

// Framing two parties could read differently is how requests are smuggled past a proxy in
// front: refuse it rather than guess. Two Host or Origin headers (or two of the headers a TLS
// front names the scheme and client with) are refused for the same reason: the checks would
// read one and the page's server another.
bool Unambiguous(const http::request_parser<http::string_body>::value_type& head) {
  if (head.count(http::field::host) > 1 || head.count(http::field::origin) > 1 ||
      head.count("X-Forwarded-For") > 1 || head.count("X-Forwarded-Proto") > 1) {
    return false;
  }
  const auto encodings = head.count(http::field::transfer_encoding);
  if (encodings == 0) {
    return true;
  }
  return encodings == 1 && head.count(http::field::content_length) == 0 &&
         beast::iequals(Trimmed(head[http::field::transfer_encoding]), "chunked");
}

std::size_t FieldCount(const http::request_parser<http::string_body>::value_type& message) {
  return static_cast<std::size_t>(std::distance(message.begin(), message.end()));
}

void LimitParser(http::request_parser<http::string_body>* parser, const HttpLimits& limits) {
  parser->header_limit(static_cast<std::uint32_t>(limits.header_bytes));
  parser->body_limit(limits.body_bytes);
}

HttpRequest ToRequest(http::request_parser<http::string_body>* parser, const std::string& peer) {
  http::request<http::string_body> message = parser->release();
  HttpRequest request;
  request.method = std::string(message.method_string());
  request.target = std::string(message.target());
  request.headers.reserve(16);
  for (const auto& field : message) {
    request.headers.emplace_back(Lower(field.name_string()), std::string(field.value()));
  }
  request.body = std::move(message.body());
  request.peer = peer;
  return request;
}

}  // namespace

std::optional<HttpRequest> ReadWholeAtOnce(int connection, const std::string& peer,
                                           const HttpLimits& limits, beast::flat_buffer* buffer) {
  // Room for the common request; a larger one goes on in a RequestReader.
  constexpr std::size_t kFirstRead = 16 * 1024;
  ssize_t n = 0;
  do {
    n = ::recv(connection, buffer->prepare(kFirstRead).data(), kFirstRead, MSG_DONTWAIT);
  } while (n < 0 && errno == EINTR);
  if (n <= 0) {
    return std::nullopt;
  }
  buffer->commit(static_cast<std::size_t>(n));
  http::request_parser<http::string_body> parser;
  LimitParser(&parser, limits);
  parser.eager(true);
  beast::error_code ec;
  parser.put(buffer->data(), ec);
  // Anything short of a plain whole request (a refusal, a chunked body with its trailers) is
  // left to the reader, which answers it.
  if (ec || !parser.is_done() || parser.chunked() || !Unambiguous(parser.get())) {
    return std::nullopt;
  }
  return ToRequest(&parser, peer);
}

RequestReader::RequestReader(asio::ip::tcp::socket socket, std::string peer,
                             const HttpLimits& limits, beast::flat_buffer read)
    : socket_(std::move(socket)),
      peer_(std::move(peer)),
      limits_(limits),
      linger_(socket_.get_executor()),
      buffer_(std::move(read)),
      started_(std::chrono::steady_clock::now()) {
  LimitParser(&parser_, limits_);
}

void RequestReader::Start(Done done) {
  done_ = std::move(done);
  http::async_read_header(socket_, buffer_, parser_,
                          [self = shared_from_this()](const beast::error_code& ec, std::size_t) {
                            self->OnHeader(ec);
                          });
}

void RequestReader::OnHeader(const beast::error_code& ec) {
  if (aborted_) {
    return Finish(ReadResult::kTimedOut);
  }
  if (ec) {
    return Finish(Classify(ec));
  }
  head_complete_ = true;
  head_fields_ = FieldCount(parser_.get());
  if (!Unambiguous(parser_.get())) {
    return Finish(ReadResult::kMalformed);
  }
  if (parser_.is_done()) {
    return Finish(ReadResult::kOk);
  }
  if (!beast::iequals(parser_.get()[http::field::expect], "100-continue")) {
    return ReadBody();
  }
  asio::async_write(socket_, asio::buffer(kContinue.data(), kContinue.size()),
                    [self = shared_from_this()](const beast::error_code& write_ec, std::size_t) {
                      if (self->aborted_) {
                        return self->Finish(ReadResult::kTimedOut);
                      }
                      if (write_ec) {
                        return self->Finish(ReadResult::kClosed);
                      }
                      self->ReadBody();
                    });
}

void RequestReader::ReadBody() {
  http::async_read(socket_, buffer_, parser_,
                   [self = shared_from_this()](const beast::error_code& ec, std::size_t) {
                     if (self->aborted_) {
                       return self->Finish(ReadResult::kTimedOut);
                     }
                     if (ec) {
                       return self->Finish(Classify(ec));
                     }
                     // Fields after a chunked body (trailers) would join the head the checks
                     // have already read: a second Host or a cookie nobody checked.
                     self->Finish(FieldCount(self->parser_.get()) == self->head_fields_
                                      ? ReadResult::kOk
                                      : ReadResult::kMalformed);
                   });
}

void RequestReader::Abort() {
  if (!finished_ && !aborted_) {
    aborted_ = true;
    beast::error_code ignored;
    socket_.cancel(ignored);
  }
}

void RequestReader::Finish(ReadResult result) {
  if (finished_) {
    return;
  }
  finished_ = true;
  HttpRequest request;
  if (result == ReadResult::kOk) {
    request = ToRequest(&parser_, peer_);
  }
  // The callback may drop the last reference the master held: keep this alive through it.
  auto self = shared_from_this();
  Done done = std::move(done_);
  done(result, std::move(request));
}

UniqueFd RequestReader::ReleaseConnection() {
  beast::error_code ec;
  return UniqueFd(socket_.release(ec));
}

void RequestReader::AnswerAndClose(std::string answer) {
  answer_ = std::move(answer);
  asio::async_write(socket_, asio::buffer(answer_),
                    [self = shared_from_this()](const beast::error_code& ec, std::size_t) {
                      if (ec) {
                        return;  // the socket closes with the last reference
                      }
                      beast::error_code ignored;
                      self->socket_.shutdown(asio::ip::tcp::socket::shutdown_send, ignored);
                      self->linger_.expires_after(kLinger);
                      self->linger_.async_wait([self](const beast::error_code& wait_ec) {
                        if (!wait_ec) {
                          beast::error_code cancel_ignored;
                          self->socket_.cancel(cancel_ignored);
                        }
                      });
                      self->Drain();
                    });
}

// Reads and drops what the client still sends, until it stops, the linger ends or enough has
// been swallowed: closing with unread input would reset the connection before the client has
// read the answer.
void RequestReader::Drain() {
  socket_.async_read_some(asio::buffer(sink_),
                          [self = shared_from_this()](const beast::error_code& ec, std::size_t n) {
                            self->drained_ += n;
                            if (!ec && self->drained_ < kMaxDrain) {
                              return self->Drain();
                            }
                            self->linger_.cancel();
                          });
}

}  // namespace qrix::host
