#include "host/access/host_check.h"

#include <algorithm>
#include <cctype>

namespace qrix::host {
namespace {

std::string Lower(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return out;
}

}  // namespace

HostCheck::HostCheck(int port, const std::vector<std::string>& extra_names) {
  const std::string suffix = ":" + std::to_string(port);
  constexpr int kDefaultHttpPort = 80;  // browsers leave it out of the Host header
  for (const char* local : {"127.0.0.1", "localhost", "[::1]"}) {
    hosts_.push_back(local + suffix);
    if (port == kDefaultHttpPort) {
      hosts_.emplace_back(local);
    }
  }
  for (const std::string& name : extra_names) {
    hosts_.push_back(Lower(name));
    hosts_.push_back(Lower(name) + suffix);
  }
}

bool HostCheck::HostAllowed(std::string_view host) const {
  const std::string lower = Lower(host);
  return std::find(hosts_.begin(), hosts_.end(), lower) != hosts_.end();
}

bool HostCheck::OriginAllowed(const std::string* origin) const {
  if (origin == nullptr) {
    return true;
  }
  constexpr std::string_view kScheme = "http://";
  const std::string lower = Lower(*origin);
  return std::string_view(lower).substr(0, kScheme.size()) == kScheme &&
         HostAllowed(std::string_view(lower).substr(kScheme.size()));
}

}  // namespace qrix::host
