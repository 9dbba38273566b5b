// A request as every later step reads it, decoded once from the HTTP message: where it goes,
// who it claims to be, in which language, and for the web API the call with its parameters.
#ifndef QRIX_HOST_DISPATCH_REQUEST_H_
#define QRIX_HOST_DISPATCH_REQUEST_H_

#include <json/json.h>

#include <map>
#include <optional>
#include <string>

#include "host/http/http_message.h"

namespace qrix::host {

inline constexpr const char* kEntryPath = "/webapi/entry.cgi";
inline constexpr const char* kSessionCookie = "qrix_sid";
inline constexpr const char* kTokenHeader = "x-qrix-token";

// A web-API call: api, version, method and parameters, from a form body, a query string or a
// JSON body.
struct ApiCall {
  std::string api;      // empty when missing or not a string
  Json::Value version;  // null when missing; see VersionNumber()
  std::string method;   // empty when missing or not a string
  Json::Value params{Json::objectValue};
  std::map<std::string, std::string> form_text;  // form and query fields exactly as sent
  std::map<std::string, std::string> files;      // multipart file parts: name -> bytes

  // A parameter meant as text (an account name, a password): a string value as it is, a form
  // field whose text reads as another JSON value (123456, true) as the text sent.
  std::optional<std::string> Text(const std::string& name) const;
};

enum class CallParse { kOk, kUnreadable, kUnsupportedMediaType };

struct Request {
  std::string method;  // as sent, e.g. "POST"
  std::string target;  // path and query, as sent
  std::string path;    // the target without its query
  std::string peer;    // the client's address: the connection's, or the one the proxy names
  std::string scheme = "http";  // "https" when the TLS front says it received it so
  bool proxied = false;         // came through the trusted proxy, which named scheme and client
  bool bad_forwarding = false;  // the trusted proxy named them in a way that cannot be read
  std::optional<std::string> host;
  std::optional<std::string> origin;
  std::optional<std::string> session_id;  // the session cookie
  std::optional<std::string> token;       // the CSRF token header
  std::string language;                   // three-letter UI language code
  // Only for kEntryPath: the call, and whether its body could be read.
  ApiCall call;
  CallParse call_parse = CallParse::kOk;

  bool ForTheApi() const { return path == kEntryPath; }
};

// `behind_proxy`: X-Forwarded-Proto and X-Forwarded-For are believed from a loopback peer.
Request DecodeRequest(const HttpRequest& http, bool behind_proxy = false);

// A version written as a JSON integer or a string of digits.
std::optional<int> VersionNumber(const Json::Value& version);

}  // namespace qrix::host

#endif  // QRIX_HOST_DISPATCH_REQUEST_H_
