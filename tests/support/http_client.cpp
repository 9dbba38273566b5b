#include "tests/support/http_client.h"

#include <algorithm>
#include <cctype>

namespace qrix::test {
namespace {

size_t CollectBody(char* data, size_t size, size_t count, void* out) {
  static_cast<std::string*>(out)->append(data, size * count);
  return size * count;
}

size_t CollectHeader(char* data, size_t size, size_t count, void* out) {
  const std::string_view line(data, size * count);
  const size_t colon = line.find(':');
  if (colon != std::string_view::npos) {
    std::string name(line.substr(0, colon));
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    std::string_view value = line.substr(colon + 1);
    value.remove_prefix(std::min(value.find_first_not_of(" \t"), value.size()));
    value = value.substr(0, value.find_last_not_of("\r\n") + 1);
    static_cast<HttpReply*>(out)->headers.emplace_back(std::move(name), std::string(value));
  } else if (line.rfind("HTTP/", 0) == 0) {
    static_cast<HttpReply*>(out)->headers.clear();  // a 100 Continue came first
  }
  return size * count;
}

}  // namespace

std::string HttpReply::Header(std::string_view name) const {
  for (const auto& [key, value] : headers) {
    if (key == name) {
      return value;
    }
  }
  return {};
}

HttpReply Perform(const HttpCall& call) {
  HttpReply reply;
  CurlHandle curl(curl_easy_init());
  if (!curl) {
    reply.error = "curl_easy_init failed";
    return reply;
  }
  CurlList headers;
  for (const std::string& header : call.headers) {
    headers.reset(curl_slist_append(headers.release(), header.c_str()));
  }
  CURL* c = curl.get();
  curl_easy_setopt(c, CURLOPT_URL, call.url.c_str());
  curl_easy_setopt(c, CURLOPT_HTTPHEADER, headers.get());
  curl_easy_setopt(c, CURLOPT_TIMEOUT, 30L);
  curl_easy_setopt(c, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(c, CURLOPT_FORBID_REUSE, 1L);
  curl_easy_setopt(c, CURLOPT_WRITEFUNCTION, CollectBody);
  curl_easy_setopt(c, CURLOPT_WRITEDATA, &reply.body);
  curl_easy_setopt(c, CURLOPT_HEADERFUNCTION, CollectHeader);
  curl_easy_setopt(c, CURLOPT_HEADERDATA, &reply);
  if (call.path_as_is) {
    curl_easy_setopt(c, CURLOPT_PATH_AS_IS, 1L);
  }
  if (!call.local_address.empty()) {
    curl_easy_setopt(c, CURLOPT_INTERFACE, ("host!" + call.local_address).c_str());
  }
  if (!call.ca_file.empty()) {
    curl_easy_setopt(c, CURLOPT_CAINFO, call.ca_file.c_str());
  }
  if (call.method == "HEAD") {
    curl_easy_setopt(c, CURLOPT_NOBODY, 1L);
  } else if (!call.body.empty() || call.method == "POST") {
    curl_easy_setopt(c, CURLOPT_POSTFIELDS, call.body.data());
    curl_easy_setopt(c, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(call.body.size()));
  }
  if (call.method != "GET" && call.method != "HEAD" && call.method != "POST") {
    curl_easy_setopt(c, CURLOPT_CUSTOMREQUEST, call.method.c_str());
  }
  const CURLcode rc = curl_easy_perform(c);
  if (rc != CURLE_OK) {
    reply.error = curl_easy_strerror(rc);
    return reply;
  }
  curl_easy_getinfo(c, CURLINFO_RESPONSE_CODE, &reply.status);
  return reply;
}

std::string FormEncode(const std::vector<std::pair<std::string, std::string>>& fields) {
  CurlHandle curl(curl_easy_init());
  const auto escape = [&](const std::string& text) {
    const std::unique_ptr<char, decltype(&curl_free)> escaped(
        curl_easy_escape(curl.get(), text.data(), static_cast<int>(text.size())), &curl_free);
    return std::string(escaped ? escaped.get() : "");
  };
  std::string out;
  for (const auto& [name, value] : fields) {
    if (!out.empty()) {
      out += '&';
    }
    out += escape(name) + "=" + escape(value);
  }
  return out;
}

}  // namespace qrix::test
