// The names this server answers for. A Host header naming anything else is refused, so a page
// on another origin cannot reach the API through DNS rebinding; an Origin header, when sent,
// must name this server too, so another site cannot post forms to it.
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

  bool HostAllowed(std::string_view host) const;
  // True when there is no Origin header or it is "http://" and an allowed host.
  bool OriginAllowed(const std::string* origin) const;

 private:
  std::vector<std::string> hosts_;  // lower case
};

}  // namespace qrix::host

#endif  // QRIX_HOST_HOST_CHECK_H_
