// The names this server answers for. A Host header naming anything else is refused, so a page
// on another origin cannot reach the API through DNS rebinding; an Origin header, when sent,
// must name the very origin the request was sent to (scheme, host and port), so neither
// another site nor another service of the same machine can post forms to it.
#ifndef QRIX_HOST_HOST_CHECK_H_
#define QRIX_HOST_HOST_CHECK_H_

#include <string>
#include <string_view>
#include <vector>

namespace qrix::host {

class HostCheck {
 public:
  // Allows 127.0.0.1:PORT, localhost:PORT, [::1]:PORT (without ":PORT" too when PORT is 80)
  // and each extra name, alone and with ":PORT".
  HostCheck(int port, const std::vector<std::string>& extra_names);

  // `proxied`: the request came through the trusted TLS front, which listens on ports of its
  // own; the name alone decides then.
  bool HostAllowed(std::string_view host, bool proxied = false) const;

  // True when there is no Origin header, or it names the same scheme, host and port as the
  // request itself: `scheme` it came with ("http" or "https") and its Host header `host`,
  // either port defaulting to the scheme's.
  static bool OriginAllowed(const std::string* origin, std::string_view scheme,
                            std::string_view host);

 private:
  std::vector<std::string> hosts_;  // lower case
  std::vector<std::string> names_;  // the same without ports
};

}  // namespace qrix::host

#endif  // QRIX_HOST_HOST_CHECK_H_
