// Reading one request from a new connection on the master's event loop: within the size
// limits, refusing what HTTP itself makes ambiguous, and ending at once when told to (the
// master keeps the deadlines and the connection caps). Only a complete request leaves it.
#ifndef QRIX_HOST_HTTP_REQUEST_READER_H_
#define QRIX_HOST_HTTP_REQUEST_READER_H_

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "host/http/http_message.h"
#include "platform/vlibc/unique_fd.h"

namespace qrix::host {

struct HttpLimits {
  std::size_t header_bytes = 8 * 1024;  // request line and headers together
  std::size_t body_bytes = 64 * 1024;
  std::chrono::milliseconds head_time{5'000};   // for the request line and headers
  std::chrono::milliseconds read_time{10'000};  // for the whole request
};

enum class ReadResult {
  kOk,
  kTooLarge,   // headers or body over the limits
  kMalformed,  // not HTTP/1.x the parser accepts, or framing HTTP leaves ambiguous
  kTimedOut,   // not complete within its time, or pushed out for a newer connection
  kClosed,     // the client went away before sending a whole request
};

// A request usually arrives whole with its connection. One non-blocking read of `connection`
// into `buffer`: the request when that read holds all of it, complete and unambiguous, or null,
// and then whatever was read stays in `buffer` for a RequestReader to go on from.
std::optional<HttpRequest> ReadWholeAtOnce(int connection, const std::string& peer,
                                           const HttpLimits& limits,
                                           boost::beast::flat_buffer* buffer);

class RequestReader : public std::enable_shared_from_this<RequestReader> {
 public:
  using Done = std::function<void(ReadResult, HttpRequest)>;

  // `read` holds what was read from `socket` already (by ReadWholeAtOnce).
  RequestReader(boost::asio::ip::tcp::socket socket, std::string peer, const HttpLimits& limits,
                boost::beast::flat_buffer read = {});
  RequestReader(const RequestReader&) = delete;
  RequestReader& operator=(const RequestReader&) = delete;

  // Reads; `done` is called once, on the event loop.
  void Start(Done done);
  // Ends the read: `done` gets kTimedOut.
  void Abort();
  bool HeadComplete() const { return head_complete_; }
  const std::string& Peer() const { return peer_; }
  std::chrono::steady_clock::time_point Started() const { return started_; }

  // After kOk: the connection, for another process to answer.
  UniqueFd ReleaseConnection();
  // After a refusal: sends `answer` (HTTP bytes), then closes without resetting the
  // connection under the client's feet.
  void AnswerAndClose(std::string answer);

 private:
  void OnHeader(const boost::system::error_code& ec);
  void ReadBody();
  void Finish(ReadResult result);
  void Drain();

  boost::asio::ip::tcp::socket socket_;
  std::string peer_;
  const HttpLimits& limits_;
  boost::asio::steady_timer linger_;
  boost::beast::flat_buffer buffer_;
  boost::beast::http::request_parser<boost::beast::http::string_body> parser_;
  std::chrono::steady_clock::time_point started_;
  Done done_;
  bool head_complete_ = false;
  std::size_t head_fields_ = 0;
  bool aborted_ = false;
  bool finished_ = false;
  std::string answer_;
  std::size_t drained_ = 0;
  char sink_[4096];
};

}  // namespace qrix::host

#endif  // QRIX_HOST_HTTP_REQUEST_READER_H_
