// The answer's side of an exchange: the response as bytes, and sending them within a time
// limit on a connection.
#ifndef QRIX_HOST_HTTP_RESPONSE_WRITER_H_
#define QRIX_HOST_HTTP_RESPONSE_WRITER_H_

#include <chrono>
#include <string>
#include <string_view>

#include "host/http/http_message.h"

namespace qrix::host {

// `response` as HTTP/1.1 bytes with Content-Length and Connection: close.
std::string SerializeResponse(const HttpResponse& response);

// Sends `bytes` within `time_limit`; false when the client went away or was too slow.
bool SendAll(int fd, std::string_view bytes, std::chrono::milliseconds time_limit);

}  // namespace qrix::host

#endif  // QRIX_HOST_HTTP_RESPONSE_WRITER_H_
