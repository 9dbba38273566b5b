#include "host/dispatch/request.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <string_view>

#include "host/common/json_text.h"
#include "host/http/cookie.h"
#include "host/http/form.h"
#include "host/http/language.h"
#include "host/http/multipart.h"

namespace qrix::host {
namespace {

constexpr std::string_view kFormType = "application/x-www-form-urlencoded";
constexpr std::string_view kJsonType = "application/json";
constexpr std::string_view kMultipartType = "multipart/form-data";

// The media type of a Content-Type header, lower case, without parameters.
std::string MediaType(const std::string* header) {
  if (header == nullptr) {
    return {};
  }
  std::string type = header->substr(0, header->find(';'));
  type.erase(std::remove_if(type.begin(), type.end(),
                            [](unsigned char c) { return std::isspace(c) != 0; }),
             type.end());
  std::transform(type.begin(), type.end(), type.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return type;
}

std::string StringOrEmpty(const Json::Value& value) {
  return value.isString() ? value.asString() : std::string();
}

void TakeField(const std::string& name, const std::string& text, ApiCall* call) {
  Json::Value value = FieldValue(text);
  if (name == "api") {
    call->api = StringOrEmpty(value);
  } else if (name == "method") {
    call->method = StringOrEmpty(value);
  } else if (name == "version") {
    call->version = std::move(value);
  } else {
    call->params[name] = std::move(value);
    call->form_text[name] = text;
  }
}

// The member `name` of a JSON object, or null.
const Json::Value* Member(const Json::Value& object, std::string_view name) {
  return object.find(name.data(), name.data() + name.size());
}

bool TakeJsonBody(const std::string& body, ApiCall* call) {
  Json::Value root;
  if (!ParseStrictJson(body, &root) || !root.isObject()) {
    return false;
  }
  const Json::Value* params = Member(root, "params");
  if (params != nullptr && !params->isObject() && !params->isNull()) {
    return false;
  }
  if (const Json::Value* api = Member(root, "api")) {
    call->api = StringOrEmpty(*api);
  }
  if (const Json::Value* method = Member(root, "method")) {
    call->method = StringOrEmpty(*method);
  }
  if (const Json::Value* version = Member(root, "version")) {
    call->version = *version;
  }
  if (params != nullptr && params->isObject()) {
    for (const std::string& name : params->getMemberNames()) {
      call->params[name] = (*params)[name];
      call->form_text.erase(name);
    }
  }
  return true;
}

CallParse DecodeCall(const HttpRequest& request, ApiCall* out) {
  for (const auto& [name, text] : ParseForm(request.Query())) {
    TakeField(name, text, out);
  }
  if (request.body.empty()) {
    return CallParse::kOk;
  }
  const std::string type = MediaType(request.Header("content-type"));
  if (type == kFormType) {
    for (const auto& [name, text] : ParseForm(request.body)) {
      TakeField(name, text, out);
    }
    return CallParse::kOk;
  }
  if (type == kJsonType) {
    return TakeJsonBody(request.body, out) ? CallParse::kOk : CallParse::kUnreadable;
  }
  if (type == kMultipartType) {
    const std::optional<std::string> boundary = MultipartBoundary(*request.Header("content-type"));
    const std::optional<std::vector<FormPart>> parts =
        boundary ? ParseMultipart(request.body, *boundary) : std::nullopt;
    if (!parts) {
      return CallParse::kUnreadable;
    }
    for (const FormPart& part : *parts) {
      if (!part.is_file) {
        TakeField(part.name, part.content, out);
      } else if (!out->files.emplace(part.name, part.content).second) {
        return CallParse::kUnreadable;  // two files for one parameter
      }
    }
    return CallParse::kOk;
  }
  return CallParse::kUnsupportedMediaType;
}

std::optional<std::string> Optional(const std::string* header) {
  return header != nullptr ? std::optional<std::string>(*header) : std::nullopt;
}

bool IsLoopback(const std::string& address) {
  in_addr v4{};
  in6_addr v6{};
  if (::inet_pton(AF_INET, address.c_str(), &v4) == 1) {
    return (ntohl(v4.s_addr) >> 24) == 127;
  }
  if (::inet_pton(AF_INET6, address.c_str(), &v6) != 1) {
    return false;
  }
  if (IN6_IS_ADDR_V4MAPPED(&v6)) {
    return v6.s6_addr[12] == 127;
  }
  return IN6_IS_ADDR_LOOPBACK(&v6);
}

bool IsAddress(const std::string& text) {
  unsigned char any[sizeof(in6_addr)];
  return ::inet_pton(AF_INET, text.c_str(), any) == 1 ||
         ::inet_pton(AF_INET6, text.c_str(), any) == 1;
}

std::string Trim(std::string_view text) {
  const size_t first = text.find_first_not_of(" \t");
  const size_t last = text.find_last_not_of(" \t");
  return first == std::string_view::npos ? std::string()
                                         : std::string(text.substr(first, last - first + 1));
}

// A front that sends X-Forwarded-For names the client last, after whatever the client itself
// claimed; only that last entry is the front's own word.
void TakeForwarding(const HttpRequest& http, Request* out) {
  const std::string* proto = http.Header("x-forwarded-proto");
  const std::string* client = http.Header("x-forwarded-for");
  if (proto == nullptr && client == nullptr) {
    return;  // a local client talking directly
  }
  out->proxied = true;
  if (proto != nullptr) {
    std::string scheme = Trim(*proto);
    std::transform(scheme.begin(), scheme.end(), scheme.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (scheme != "http" && scheme != "https") {
      out->bad_forwarding = true;
      return;
    }
    out->scheme = scheme;
  }
  if (client != nullptr) {
    const size_t comma = client->rfind(',');
    std::string address =
        Trim(comma == std::string::npos ? std::string_view(*client)
                                        : std::string_view(*client).substr(comma + 1));
    if (!IsAddress(address)) {
      out->bad_forwarding = true;
      return;
    }
    out->peer = std::move(address);
  }
}

}  // namespace

std::optional<std::string> ApiCall::Text(const std::string& name) const {
  const Json::Value* value = params.find(name.data(), name.data() + name.size());
  if (value == nullptr) {
    return std::nullopt;
  }
  if (value->isString()) {
    return value->asString();
  }
  if (const auto it = form_text.find(name); it != form_text.end()) {
    return it->second;
  }
  return std::nullopt;
}

Request DecodeRequest(const HttpRequest& http, bool behind_proxy) {
  Request out;
  out.method = http.method;
  out.target = http.target;
  out.path = std::string(http.Path());
  out.peer = http.peer;
  if (behind_proxy && IsLoopback(http.peer)) {
    TakeForwarding(http, &out);
  }
  out.host = Optional(http.Header("host"));
  out.origin = Optional(http.Header("origin"));
  out.token = Optional(http.Header(kTokenHeader));
  const std::string* cookies = http.Header("cookie");
  if (cookies != nullptr) {
    out.session_id = CookieValue(*cookies, kSessionCookie);
  }
  out.language = UiLanguage(cookies, http.Header("accept-language"));
  if (out.ForTheApi()) {
    out.call_parse = DecodeCall(http, &out.call);
  }
  return out;
}

std::optional<int> VersionNumber(const Json::Value& version) {
  if (version.isInt()) {
    return version.asInt();
  }
  if (version.isString()) {
    const std::string text = version.asString();
    int number = 0;
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (ec == std::errc() && end == text.data() + text.size() && !text.empty() && text[0] != '-') {
      return number;
    }
  }
  return std::nullopt;
}

}  // namespace qrix::host
