// Calls the module the way the host does: look the method up in both tables, run the check,
// then the entry function. The callbacks are left registered on the response.
#ifndef HAULPORT_TESTS_SUPPORT_API_CALL_H_
#define HAULPORT_TESTS_SUPPORT_API_CALL_H_

#include <json/json.h>

#include <memory>
#include <string>

#include "platform/webapi/api_request.h"
#include "platform/webapi/api_response.h"

namespace qrix::test {

struct ApiResult {
  std::unique_ptr<QRIX::APIResponse> response = std::make_unique<QRIX::APIResponse>();

  bool Success() const { return response->GetState() == QRIX::APIResponse::State::kSuccess; }
  int Error() const {
    return response->GetState() == QRIX::APIResponse::State::kError ? response->GetErrorCode() : 0;
  }
  const Json::Value& Data() const { return response->GetData(); }
};

// `params` is JSON object text; `api` without the "QRIX.Haulport2.Setting." prefix.
ApiResult CallApi(const std::string& api, const std::string& method, const std::string& params,
                  const QRIX::APILogin& login = {"admin", 1024, true, "enu"});

// The names of the registered callbacks, in order ("SchedulerSIGHUP", "ReloadFirewall", ...).
std::string CallbackNames(const QRIX::APIResponse& response);

}  // namespace qrix::test

#endif  // HAULPORT_TESTS_SUPPORT_API_CALL_H_
