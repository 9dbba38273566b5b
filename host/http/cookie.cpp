#include "host/http/cookie.h"

namespace qrix::host {
namespace {

std::string_view Trim(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) {
    text.remove_prefix(1);
  }
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) {
    text.remove_suffix(1);
  }
  return text;
}

}  // namespace

std::optional<std::string> CookieValue(std::string_view header, std::string_view name) {
  while (!header.empty()) {
    const size_t semi = header.find(';');
    const std::string_view pair = Trim(header.substr(0, semi));
    header = semi == std::string_view::npos ? std::string_view() : header.substr(semi + 1);
    const size_t eq = pair.find('=');
    if (eq == std::string_view::npos || Trim(pair.substr(0, eq)) != name) {
      continue;
    }
    std::string_view value = Trim(pair.substr(eq + 1));
    if (value.size() >= 2 && value.front() == '"' && value.back() == '"') {
      value = value.substr(1, value.size() - 2);
    }
    return std::string(value);
  }
  return std::nullopt;
}

}  // namespace qrix::host
