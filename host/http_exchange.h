// One HTTP exchange on a connected socket: read one request within limits, write one
// response with Connection: close, and close the connection without losing the response.
#ifndef QRIX_HOST_HTTP_EXCHANGE_H_
#define QRIX_HOST_HTTP_EXCHANGE_H_

#include <chrono>
#include <cstddef>

#include "host/http_message.h"
#include "platform/vlibc/unique_fd.h"

namespace qrix::host {

struct HttpLimits {
  std::size_t header_bytes = 8 * 1024;  // request line and headers together
  std::size_t body_bytes = 64 * 1024;
  std::chrono::milliseconds read_time{10'000};  // for the whole request
};

enum class ReadResult {
  kOk,
  kTooLarge,   // headers or body over the limits
  kMalformed,  // not HTTP/1.x the parser accepts
  kTimedOut,   // not complete within the read time
  kClosed,     // the client went away before sending a whole request
};

// Reads one request. Answers "Expect: 100-continue" itself when the body is within limits.
ReadResult ReadRequest(int fd, const HttpLimits& limits, HttpRequest* out);

// Writes `response` within `time_limit`; false when the client went away or was too slow.
bool WriteResponse(int fd, HttpResponse response, std::chrono::milliseconds time_limit);

// Closes the connection. With `unread_input`, first reads and drops what the client still
// sends (briefly, boundedly), so that closing with unread data does not reset the connection
// before the client has read the answer.
void CloseConnection(UniqueFd connection, bool unread_input);

}  // namespace qrix::host

#endif  // QRIX_HOST_HTTP_EXCHANGE_H_
