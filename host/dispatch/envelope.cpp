#include "host/dispatch/envelope.h"

#include "host/common/host_codes.h"

namespace qrix::host {

std::string SuccessBody(const Json::Value& data) {
  Json::Value out(Json::objectValue);
  out["success"] = true;
  if (!data.isNull()) {
    out["data"] = data;
  }
  return JsonText(out);
}

std::string ErrorBody(int code, const Json::Value& errors) {
  Json::Value out(Json::objectValue);
  out["success"] = false;
  out["error"]["code"] = code;
  if (!errors.isNull()) {
    out["errors"] = errors;
  }
  return JsonText(out);
}

std::string ModuleResponseBody(const QRIX::APIResponse& response) {
  switch (response.GetState()) {
    case QRIX::APIResponse::State::kSuccess:
      return SuccessBody(response.GetData());
    case QRIX::APIResponse::State::kError:
      return ErrorBody(response.GetErrorCode(), response.GetData());
    case QRIX::APIResponse::State::kNone:
      break;
  }
  return ErrorBody(kNoOutcome);
}

}  // namespace qrix::host
