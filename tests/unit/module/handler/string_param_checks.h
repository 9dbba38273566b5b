// Checks shared by the handler tests for what a string parameter may carry: quotes and shell
// metacharacters are stored so that both the module and sh read them back as sent, line breaks
// are refused by the commit queue without touching the file, and a NUL is a type error of the
// check table.
#ifndef HAULPORT_TESTS_UNIT_MODULE_HANDLER_STRING_PARAM_CHECKS_H_
#define HAULPORT_TESTS_UNIT_MODULE_HANDLER_STRING_PARAM_CHECKS_H_

#include <gtest/gtest.h>
#include <json/json.h>

#include <filesystem>
#include <functional>
#include <string>

#include "platform/vlibc/vlibc_file.h"
#include "platform/webapi/api_response.h"
#include "tests/support/api_call.h"
#include "tests/support/files.h"
#include "tests/support/syslog_capture.h"

namespace qrix::test {

// Sends {param: value} to the handler (`call`) for quoted and line-breaking values, with a
// settings file that holds `key` and one unrelated key.
inline void ExpectStringParamIsStoredSafely(
    const std::string& param, const std::string& key,
    const std::function<const QRIX::APIResponse&(const Json::Value&)>& call) {
  const struct {
    std::string value;
    bool storable;
  } cases[] = {
      {R"(say "hi")", true}, {R"("\')", true},
      {R"(a=" b="c)", true}, {"$(/usr/bin/touch /tmp/ran)`/usr/bin/touch /tmp/ran`", true},
      {R"(a\)", true},       {"two\nlines", false},
      {"cr\rhere", false},   {"\r\n", false},
      {"x\"\nk=\"v", false},
  };
  const std::string before = key + "=\"old\"\ndownload_other=\"kept\"\n";
  for (const auto& c : cases) {
    SCOPED_TRACE(param + " = " + Json::Value(c.value).toStyledString());
    SyslogCapture::Get().Clear();  // a full /dev/log queue would block the writer
    WriteSettings(before);
    Json::Value params(Json::objectValue);
    params[param] = c.value;
    const QRIX::APIResponse& response = call(params);
    const ParsedKv file = ParseKvStrict(ReadText(kSettingsConf));
    EXPECT_TRUE(file.ok) << file.bad_line;
    if (c.storable) {
      EXPECT_EQ(response.GetState(), QRIX::APIResponse::State::kSuccess);
      char read_back[256];
      EXPECT_GT(VLIBCFileGetKeyValue(kSettingsConf, key.c_str(), read_back, sizeof read_back, 0),
                0);
      EXPECT_EQ(read_back, c.value);
      EXPECT_EQ(SourcedValue(kSettingsConf, key), c.value);
      EXPECT_FALSE(std::filesystem::exists("/tmp/ran"));
      EXPECT_EQ(file.values.size(), 2u);
    } else {
      EXPECT_EQ(response.GetErrorCode(), 505);
      EXPECT_TRUE(response.GetCallbacks().empty());
      EXPECT_EQ(ReadText(kSettingsConf), before);
    }
  }
}

// The check function of (api, "set") answers 120 "type" for a string holding a NUL byte.
inline void ExpectNulIsATypeError(const std::string& api, const std::string& param) {
  SCOPED_TRACE(api + " " + param);
  const ApiResult result = CallApi(api, "set", "{\"" + param + "\": \"a\\u0000b\"}");
  ASSERT_TRUE(result.found);
  EXPECT_FALSE(result.checked);
  EXPECT_EQ(result.Error(), 120);
  EXPECT_EQ(result.Data()["name"], param);
  EXPECT_EQ(result.Data()["reason"], "type");
}

}  // namespace qrix::test

#endif  // HAULPORT_TESTS_UNIT_MODULE_HANDLER_STRING_PARAM_CHECKS_H_
