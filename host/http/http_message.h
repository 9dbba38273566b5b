// HTTP requests and responses as the host's logic sees them, free of the parser's types.
#ifndef QRIX_HOST_HTTP_MESSAGE_H_
#define QRIX_HOST_HTTP_MESSAGE_H_

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qrix::host {

struct HttpRequest {
  std::string method;  // as sent, e.g. "POST"
  std::string target;  // path and query, e.g. "/webapi/entry.cgi?api=..."
  std::vector<std::pair<std::string, std::string>> headers;  // names in lower case
  std::string body;
  std::string peer;  // client address, e.g. "127.0.0.1"

  // The first header of that (lower-case) name, or null.
  const std::string* Header(std::string_view name) const {
    for (const auto& [key, value] : headers) {
      if (key == name) {
        return &value;
      }
    }
    return nullptr;
  }
  std::string_view Path() const { return std::string_view(target).substr(0, target.find('?')); }
  std::string_view Query() const {
    const size_t q = target.find('?');
    return q == std::string::npos ? std::string_view() : std::string_view(target).substr(q + 1);
  }
};

struct HttpResponse {
  int status = 200;
  std::vector<std::pair<std::string, std::string>> headers;
  std::string body;
  bool head_only = false;  // HEAD: announce the body's length, send no body

  void Add(std::string name, std::string value) {
    headers.emplace_back(std::move(name), std::move(value));
  }
};

// An envelope answer: HTTP 200, application/json, never cached.
inline HttpResponse JsonResponse(std::string body) {
  HttpResponse out;
  out.Add("Content-Type", "application/json");
  out.Add("Cache-Control", "no-store");
  out.Add("X-Content-Type-Options", "nosniff");
  out.body = std::move(body);
  return out;
}

// An answer for HTTP that went wrong below the web API (bad request, wrong method, ...).
inline HttpResponse TextResponse(int status, std::string text) {
  HttpResponse out;
  out.status = status;
  out.Add("Content-Type", "text/plain; charset=utf-8");
  out.body = std::move(text) + "\n";
  return out;
}

}  // namespace qrix::host

#endif  // QRIX_HOST_HTTP_MESSAGE_H_
