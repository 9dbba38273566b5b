// Decoding a complete request into a web-API call: query string, form and JSON bodies, cookies
// and the UI language. Input: the Content-Type, the target, the Cookie and the Accept-Language
// header, one a line, then the body.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz/fuzz_check.h"
#include "host/dispatch/request.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view in(reinterpret_cast<const char*>(data), size);
  qrix::host::HttpRequest http;
  http.method = "POST";
  http.headers.emplace_back("content-type", std::string(TakeLine(&in)));
  http.target = std::string(TakeLine(&in));
  http.headers.emplace_back("cookie", std::string(TakeLine(&in)));
  http.headers.emplace_back("accept-language", std::string(TakeLine(&in)));
  http.body = std::string(in);
  http.peer = "127.0.0.1";

  const qrix::host::Request request = qrix::host::DecodeRequest(http);
  FUZZ_CHECK(request.target == http.target);
  FUZZ_CHECK(request.language.size() == 3);
  if (!request.ForTheApi()) {
    return 0;
  }
  const qrix::host::ApiCall& call = request.call;
  FUZZ_CHECK(call.params.isObject());
  if (const auto version = qrix::host::VersionNumber(call.version)) {
    FUZZ_CHECK(*version >= 0 || call.version.isInt());
  }
  for (const std::string& name : call.params.getMemberNames()) {
    const auto text = call.Text(name);
    FUZZ_CHECK(!call.params[name].isString() || (text && *text == call.params[name].asString()));
  }
  return 0;
}
