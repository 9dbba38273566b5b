// One HTTP exchange over a connection of its own: connect, send, read the whole answer, check
// it, close. The load generator times these.
#ifndef HAULPORT_BENCH_HTTP_HTTP_CLIENT_H_
#define HAULPORT_BENCH_HTTP_HTTP_CLIENT_H_

#include <netinet/in.h>

#include <string>
#include <string_view>
#include <vector>

namespace qrix::bench {

struct RequestPlan {
  std::string method = "GET";
  std::string path = "/";
  std::string host_header;           // "127.0.0.1:PORT"
  std::vector<std::string> headers;  // "Name: value"
  std::string body;
};

// The request's bytes, with Connection: close and, for a body, Content-Length.
std::string BuildRequest(const RequestPlan& plan);

struct Answer {
  int status = 0;  // 0 when there was no parsable status line
  std::string body;
  // The length was stated (Content-Length or chunked), so the answer is known to be whole
  // without waiting for the server to close.
  bool delimited = false;
};

// Splits an HTTP/1.x response. A "Transfer-Encoding: chunked" body is reassembled. False when
// the text is not a response or its stated length has not all arrived; without a stated length
// everything after the head is the body.
bool ParseAnswer(std::string_view raw, Answer* out);

struct Exchange {
  bool ok = false;
  std::string error;  // why it failed: connect, send, timeout, status, body
  Answer answer;
};

// Runs one exchange with `request` against `addr`. It is ok when the status is 200 and the body
// contains `expect` (when not empty). `timeout_ms` bounds each wait for the socket.
Exchange RunExchange(const sockaddr_in& addr, std::string_view request, std::string_view expect,
                     int timeout_ms);

}  // namespace qrix::bench

#endif  // HAULPORT_BENCH_HTTP_HTTP_CLIENT_H_
