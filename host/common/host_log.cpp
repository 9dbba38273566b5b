#include "host/common/host_log.h"

#include <syslog.h>

#include <cstring>

namespace qrix::host {

void LogFailure(std::string_view what, std::string_view on, int err) {
  LogFailure(what, on, std::string_view(std::strerror(err)));
}

void LogFailure(std::string_view what, std::string_view on, std::string_view detail) {
  syslog(LOG_ERR, "%.*s %.*s: %.*s", static_cast<int>(what.size()), what.data(),
         static_cast<int>(on.size()), on.data(), static_cast<int>(detail.size()), detail.data());
}

std::string Printable(std::string_view text, size_t max) {
  std::string out;
  for (const char c : text.substr(0, max)) {
    const auto u = static_cast<unsigned char>(c);
    out.push_back(u < 0x20 || u == 0x7f ? '?' : c);
  }
  if (text.size() > max) {
    out += "...";
  }
  return out;
}

}  // namespace qrix::host
