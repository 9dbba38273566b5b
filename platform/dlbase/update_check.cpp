#include "platform/dlbase/update_check.h"

#include <curl/curl.h>
#include <syslog.h>

#include <memory>
#include <string_view>

namespace qrixdl {
namespace {

struct CurlFree {
  void operator()(CURL* curl) const { curl_easy_cleanup(curl); }
  void operator()(CURLU* url) const { curl_url_cleanup(url); }
  void operator()(char* text) const { curl_free(text); }
};
using CurlPtr = std::unique_ptr<CURL, CurlFree>;
using CurlUrlPtr = std::unique_ptr<CURLU, CurlFree>;
using CurlText = std::unique_ptr<char, CurlFree>;

// The part of `url`, or nullptr when it has none.
CurlText Part(CURLU* url, CURLUPart part) {
  char* text = nullptr;
  if (curl_url_get(url, part, &text, 0) != CURLUE_OK) {
    return nullptr;
  }
  return CurlText(text);
}

struct Sink {
  std::string* body;
  size_t max;
};

size_t Collect(char* data, size_t size, size_t count, void* user) {
  auto* sink = static_cast<Sink*>(user);
  const size_t len = size * count;
  if (sink->body->size() + len > sink->max) {
    return 0;  // ends the transfer with a write error
  }
  sink->body->append(data, len);
  return len;
}

}  // namespace

std::string UpdateCheckUrl(const std::string& server, const std::string& query) {
  const CurlUrlPtr url(curl_url());
  if (!url ||
      curl_url_set(url.get(), CURLUPART_URL, ("http://" + server + "/").c_str(), 0) != CURLUE_OK) {
    return "";
  }
  // Only a host and a port: no account, path, query or fragment may ride in on the setting.
  const CurlText path = Part(url.get(), CURLUPART_PATH);
  if (!path || std::string_view(path.get()) != "/" || Part(url.get(), CURLUPART_USER) ||
      Part(url.get(), CURLUPART_PASSWORD) || Part(url.get(), CURLUPART_OPTIONS) ||
      Part(url.get(), CURLUPART_QUERY) || Part(url.get(), CURLUPART_FRAGMENT)) {
    return "";
  }
  // The query goes on as it is: it is escaped already, and the server reads it byte for byte.
  std::string_view q(query);
  if (q.starts_with('&')) {
    q.remove_prefix(1);
  }
  const CurlText origin = Part(url.get(), CURLUPART_URL);  // "http://host[:port]/"
  if (!origin) {
    return "";
  }
  std::string full(origin.get());
  full.pop_back();
  full.append(QRIXDL_UPDATE_CHECK_PATH);
  if (!q.empty()) {
    full.append("?").append(q);
  }
  return full;
}

bool SendUpdateCheckRequest(const char* server, std::string& response, const char* query,
                            const UpdateCheckLimits& limits) {
  response.clear();
  const std::string url =
      server == nullptr ? std::string() : UpdateCheckUrl(server, query == nullptr ? "" : query);
  if (url.empty()) {
    syslog(LOG_ERR, "update check: \"%s\" is not a host name with an optional port",
           server == nullptr ? "" : server);
    return false;
  }
  const CurlPtr curl(curl_easy_init());
  if (!curl) {
    syslog(LOG_ERR, "update check %s: cannot initialise libcurl", url.c_str());
    return false;
  }
  Sink sink{&response, limits.max_answer_bytes};
  CURL* c = curl.get();
  curl_easy_setopt(c, CURLOPT_URL, url.c_str());
  curl_easy_setopt(c, CURLOPT_PROTOCOLS_STR, "http");
  curl_easy_setopt(c, CURLOPT_FOLLOWLOCATION, 0L);  // a redirect could lead anywhere
  curl_easy_setopt(c, CURLOPT_CONNECTTIMEOUT_MS, limits.connect_timeout_ms);
  curl_easy_setopt(c, CURLOPT_TIMEOUT_MS, limits.total_timeout_ms);
  curl_easy_setopt(c, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(c, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(limits.max_answer_bytes));
  curl_easy_setopt(c, CURLOPT_USERAGENT, "Haulport-update-check");
  curl_easy_setopt(c, CURLOPT_WRITEFUNCTION, Collect);
  curl_easy_setopt(c, CURLOPT_WRITEDATA, &sink);
  const CURLcode rc = curl_easy_perform(c);
  long status = 0;
  curl_easy_getinfo(c, CURLINFO_RESPONSE_CODE, &status);
  if (rc != CURLE_OK || status < 200 || status > 299) {
    syslog(LOG_ERR, "update check %s: %s", url.c_str(),
           rc != CURLE_OK ? curl_easy_strerror(rc) : ("HTTP " + std::to_string(status)).c_str());
    response.clear();
    return false;
  }
  return true;
}

}  // namespace qrixdl

bool SendUpdateCheckRequest(const char* server, std::string& response, const char* query) {
  return qrixdl::SendUpdateCheckRequest(server, response, query, qrixdl::UpdateCheckLimits());
}
