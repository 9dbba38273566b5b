#include "host/access/host_check.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <optional>

namespace qrix::host {
namespace {

std::string Lower(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return out;
}

// "name", "name:port", "[v6]" or "[v6]:port", lower case; port 0 when none is given.
struct Authority {
  std::string name;
  int port = 0;
};

std::optional<Authority> ParseAuthority(std::string_view text) {
  size_t name_end = std::min(text.rfind(':'), text.size());
  if (!text.empty() && text.front() == '[') {
    name_end = text.find(']');
    if (name_end == std::string_view::npos) {
      return std::nullopt;
    }
    ++name_end;  // the bracket belongs to the name
  }
  Authority out{Lower(text.substr(0, name_end)), 0};
  std::string_view port = text.substr(name_end);
  if (out.name.empty()) {
    return std::nullopt;
  }
  if (port.empty()) {
    return out;
  }
  if (port.front() != ':') {
    return std::nullopt;
  }
  port.remove_prefix(1);
  const auto [end, ec] = std::from_chars(port.data(), port.data() + port.size(), out.port);
  if (ec != std::errc() || end != port.data() + port.size() || out.port < 1 || out.port > 65535) {
    return std::nullopt;
  }
  return out;
}

int DefaultPort(std::string_view scheme) {
  return scheme == "https" ? 443 : 80;
}

}  // namespace

HostCheck::HostCheck(int port, const std::vector<std::string>& extra_names) {
  const std::string suffix = ":" + std::to_string(port);
  constexpr int kDefaultHttpPort = 80;  // browsers leave it out of the Host header
  for (const char* local : {"127.0.0.1", "localhost", "[::1]"}) {
    names_.emplace_back(local);
    hosts_.push_back(local + suffix);
    if (port == kDefaultHttpPort) {
      hosts_.emplace_back(local);
    }
  }
  for (const std::string& name : extra_names) {
    names_.push_back(Lower(name));
    hosts_.push_back(Lower(name));
    hosts_.push_back(Lower(name) + suffix);
  }
}

bool HostCheck::HostAllowed(std::string_view host, bool proxied) const {
  if (!proxied) {
    return std::find(hosts_.begin(), hosts_.end(), Lower(host)) != hosts_.end();
  }
  const std::optional<Authority> authority = ParseAuthority(host);
  return authority && std::find(names_.begin(), names_.end(), authority->name) != names_.end();
}

bool HostCheck::OriginAllowed(const std::string* origin, std::string_view scheme,
                              std::string_view host) {
  if (origin == nullptr) {
    return true;
  }
  const std::string lower = Lower(*origin);
  const size_t separator = lower.find("://");
  if (separator == std::string::npos) {
    return false;  // "null" among others: a sandboxed or privacy-sensitive context
  }
  const std::string_view origin_scheme = std::string_view(lower).substr(0, separator);
  const std::optional<Authority> sent =
      ParseAuthority(std::string_view(lower).substr(separator + 3));
  const std::optional<Authority> own = ParseAuthority(host);
  if (origin_scheme != scheme || !sent || !own || sent->name != own->name) {
    return false;
  }
  const int default_port = DefaultPort(scheme);
  return (sent->port != 0 ? sent->port : default_port) ==
         (own->port != 0 ? own->port : default_port);
}

}  // namespace qrix::host
