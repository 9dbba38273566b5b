// The JSON envelope of every web-API answer:
//   {"success":true,"data":...}                       ("data" left out when null)
//   {"success":false,"error":{"code":N}}              (plus "errors":{...} when there are details,
//                                                      e.g. {"name","reason"} for code 120)
#ifndef QRIX_HOST_ENVELOPE_H_
#define QRIX_HOST_ENVELOPE_H_

#include <json/json.h>

#include <string>

#include "host/common/json_text.h"
#include "platform/webapi/api_response.h"

namespace qrix::host {

std::string SuccessBody(const Json::Value& data);
std::string ErrorBody(int code, const Json::Value& errors = Json::Value());

// What a module left on its response; kNoOutcome when it set neither success nor error.
std::string ModuleResponseBody(const QRIX::APIResponse& response);

}  // namespace qrix::host

#endif  // QRIX_HOST_ENVELOPE_H_
