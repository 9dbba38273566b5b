// Failure lines of the host: one syslog line each, saying what failed, on what, and why.
#ifndef QRIX_HOST_HOST_LOG_H_
#define QRIX_HOST_HOST_LOG_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace qrix::host {

// The name the host's processes log under.
inline constexpr const char* kLogIdent = "qrix-webapi";

// "<what> <on>: <strerror(err)>"
void LogFailure(std::string_view what, std::string_view on, int err);
// "<what> <on>: <detail>"
void LogFailure(std::string_view what, std::string_view on, std::string_view detail);

// Text from a client made safe for one log line: control characters replaced, cut to `max`.
std::string Printable(std::string_view text, size_t max = 64);

}  // namespace qrix::host

#endif  // QRIX_HOST_HOST_LOG_H_
