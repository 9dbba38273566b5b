// A web-API call as sent over HTTP: api, version, method and parameters, read from a form body,
// a query string or a JSON body.
#ifndef QRIX_HOST_API_CALL_H_
#define QRIX_HOST_API_CALL_H_

#include <json/json.h>

#include <map>
#include <optional>
#include <string>

#include "host/http_message.h"

namespace qrix::host {

struct ApiCall {
  std::string api;      // empty when missing or not a string
  Json::Value version;  // null when missing; see VersionNumber()
  std::string method;   // empty when missing or not a string
  Json::Value params{Json::objectValue};
  std::map<std::string, std::string> form_text;  // form and query fields exactly as sent

  // A parameter meant as text (an account name, a password): a string value as it is, a form
  // field whose text reads as another JSON value (123456, true) as the text sent.
  std::optional<std::string> Text(const std::string& name) const;
};

enum class CallParse { kOk, kUnreadable, kUnsupportedMediaType };

// Query fields first, then the body's: form fields, or a JSON object
// {"api":..., "version":..., "method":..., "params":{...}}; the body wins on a clash.
CallParse ParseApiCall(const HttpRequest& request, ApiCall* out);

// A version written as a JSON integer or a string of digits.
std::optional<int> VersionNumber(const Json::Value& version);

}  // namespace qrix::host

#endif  // QRIX_HOST_API_CALL_H_
