// HTTP requests for tests, through libcurl handles that clean themselves up.
#ifndef HAULPORT_TESTS_SUPPORT_HTTP_CLIENT_H_
#define HAULPORT_TESTS_SUPPORT_HTTP_CLIENT_H_

#include <curl/curl.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qrix::test {

struct CurlDeleter {
  void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
struct CurlListDeleter {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using CurlHandle = std::unique_ptr<CURL, CurlDeleter>;
using CurlList = std::unique_ptr<curl_slist, CurlListDeleter>;

struct HttpCall {
  std::string method = "GET";  // GET, HEAD, POST or any other verb
  std::string url;
  std::vector<std::string> headers;  // "Name: value"; "Name:" removes one curl would send
  std::string body;                  // sent when not empty (or when the method is POST)
  std::string local_address;         // the client's source address, e.g. "127.0.0.2"
  bool path_as_is = false;           // keep "/../" in the URL as written
  std::string ca_file;               // https: the certificate to trust, in PEM
};

struct HttpReply {
  long status = 0;                                           // 0 when no HTTP answer came back
  std::string error;                                         // curl's reason when status is 0
  std::vector<std::pair<std::string, std::string>> headers;  // names in lower case
  std::string body;

  // The first header of that (lower-case) name, or "".
  std::string Header(std::string_view name) const;
};

HttpReply Perform(const HttpCall& call);

// "a=1&b=x%20y": each name and value percent-encoded.
std::string FormEncode(const std::vector<std::pair<std::string, std::string>>& fields);

}  // namespace qrix::test

#endif  // HAULPORT_TESTS_SUPPORT_HTTP_CLIENT_H_
