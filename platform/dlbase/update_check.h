// The request of a plug-in update check: an HTTP GET of
//   http://<server>/btsearchupdate/check?<query without its leading "&">
// answered by the update server with JSON text. `server` is a host name or address, with an
// optional ":port"; anything that would change the URL's other parts is refused.
#ifndef QRIX_PLATFORM_DLBASE_UPDATE_CHECK_H_
#define QRIX_PLATFORM_DLBASE_UPDATE_CHECK_H_

#include <cstddef>
#include <string>

#include "platform/qrix_export.h"

#define QRIXDL_UPDATE_CHECK_PATH "/btsearchupdate/check"

// True with the answer's body in `response` when the server answered 2xx within the limits
// below; false (and `response` empty) otherwise, the reason logged.
QRIX_EXPORT bool SendUpdateCheckRequest(const char* server, std::string& response,
                                        const char* query);

namespace qrixdl {

// A worker must answer long before the host's request time limit, whatever the server does.
struct UpdateCheckLimits {
  long connect_timeout_ms = 5000;
  long total_timeout_ms = 10000;
  size_t max_answer_bytes = 1 << 20;
};

// The URL asked for, or "" when `server` is not a plain host[:port].
QRIX_EXPORT std::string UpdateCheckUrl(const std::string& server, const std::string& query);

QRIX_EXPORT bool SendUpdateCheckRequest(const char* server, std::string& response,
                                        const char* query, const UpdateCheckLimits& limits);

}  // namespace qrixdl

#endif  // QRIX_PLATFORM_DLBASE_UPDATE_CHECK_H_
