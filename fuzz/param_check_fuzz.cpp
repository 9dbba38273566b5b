// The module's parameter checks, on parameters decoded as the host decodes a form. Input: one
// byte that picks a row of the check table, then the form text. A check either lets the request
// through and writes nothing, or answers 120 with one {"name", "reason"} about a parameter of
// the request.
#include <json/json.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz/fuzz_check.h"
#include "host/http/form.h"
#include "module/setting.h"
#include "platform/webapi/api_request.h"
#include "platform/webapi/api_response.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) {
    return 0;
  }
  static size_t rows = 0;  // counted on the first input, unchanged after
  while (GetAPICheckTable()[rows].api != nullptr) {
    ++rows;
  }
  const QRIX::APICheckTableEntry& row = GetAPICheckTable()[data[0] % rows];

  Json::Value params(Json::objectValue);
  const std::string_view form(reinterpret_cast<const char*>(data) + 1, size - 1);
  for (const auto& [name, text] : qrix::host::ParseForm(form)) {
    params[name] = qrix::host::FieldValue(text);
  }
  QRIX::APIRequest request(row.api, row.version, row.method, params, {"admin", 1024, true, "enu"});
  QRIX::APIResponse response;
  if (row.check(&request, &response)) {
    FUZZ_CHECK(response.GetState() == QRIX::APIResponse::State::kNone);
    return 0;
  }
  FUZZ_CHECK(response.GetState() == QRIX::APIResponse::State::kError);
  FUZZ_CHECK(response.GetErrorCode() == 120);
  const Json::Value& error = response.GetData();
  FUZZ_CHECK(error.isObject() && error.size() == 2 && error["name"].isString());
  const std::string reason = error["reason"].asString();
  const std::string name = error["name"].asString();
  FUZZ_CHECK(reason == "required" || reason == "type" || reason == "condition");
  FUZZ_CHECK((reason == "required") != request.HasParam(name));
  return 0;
}
