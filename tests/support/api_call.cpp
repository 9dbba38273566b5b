#include "tests/support/api_call.h"

#include <cstring>

#include "module/common/api_callback.h"
#include "module/setting.h"
#include "platform/webapi/api_validator.h"

namespace qrix::test {

ApiResult CallApi(const std::string& api, const std::string& method, const std::string& params,
                  const QRIX::APILogin& login) {
  const std::string full = "QRIX.Haulport2.Setting." + api;
  ApiResult result;
  QRIX::APIRequest request(full, 1, method, QRIX::WebAPIUtil::ParseJson(params), login);
  const QRIX::APICheckTableEntry* check = GetAPICheckTable();
  while (check->api != nullptr && (full != check->api || method != check->method)) {
    ++check;
  }
  const QRIX::APITableEntry* entry = GetAPITable();
  while (entry->api != nullptr && (full != entry->api || method != entry->method)) {
    ++entry;
  }
  if (check->api == nullptr || entry->api == nullptr) {
    return result;
  }
  if (check->check(&request, result.response.get())) {
    entry->entry(&request, result.response.get());
  }
  return result;
}

std::string CallbackNames(const QRIX::APIResponse& response) {
  struct Named {
    QRIX::APIResponse::CallbackFunc func;
    const char* name;
  } const known[] = {
      {QRIXDL::Callback::SchedulerSIGHUP, "SchedulerSIGHUP"},
      {QRIXDL::Callback::SchedulerSIGCONT, "SchedulerSIGCONT"},
      {QRIXDL::Callback::SchedulerSIGUSR2, "SchedulerSIGUSR2"},
      {QRIXDL::Callback::ReloadFirewall, "ReloadFirewall"},
  };
  std::string names;
  for (const auto& cb : response.GetCallbacks()) {
    const char* name = "unknown";
    for (const Named& k : known) {
      if (k.func == cb.func) {
        name = k.name;
      }
    }
    names += (names.empty() ? "" : ",") + std::string(name);
  }
  return names;
}

}  // namespace qrix::test
