// Reading one cookie out of a Cookie header.
#ifndef QRIX_HOST_COOKIE_H_
#define QRIX_HOST_COOKIE_H_

#include <optional>
#include <string>
#include <string_view>

namespace qrix::host {

// The value of the first cookie called `name` in `header` ("a=1; b=2"), quotes removed.
std::optional<std::string> CookieValue(std::string_view header, std::string_view name);

}  // namespace qrix::host

#endif  // QRIX_HOST_COOKIE_H_
