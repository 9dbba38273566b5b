// The typed getters: presence, type and necessity, and the number and NUL rules.
#include "platform/webapi/api_request.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "platform/webapi/api_response.h"
#include "platform/webapi/api_validator.h"

namespace {

using QRIX::APIRequest;

enum class Type { kString, kInt, kBool, kArray };

struct Case {
  const char* name;
  const char* params;  // JSON object text
  Type type;
  APIRequest::PARAM_NECESSITY necessity;
  bool set;
  bool invalid;
  const char* value;  // the value as JSON text, for well-typed ones
};

Json::Value Parse(const char* text) {
  return QRIX::WebAPIUtil::ParseJson(text);
}

TEST(APIRequestTest, TypedGetters) {
  constexpr auto kReq = APIRequest::PARAM_REQUIRED;
  constexpr auto kOpt = APIRequest::PARAM_OPTIONAL;
  const Case cases[] = {
      {"absent optional", "{}", Type::kInt, kOpt, false, false, "0"},
      {"absent required", "{}", Type::kInt, kReq, false, true, "0"},
      {"int", R"({"p": 6881})", Type::kInt, kReq, true, false, "6881"},
      {"int written as real", R"({"p": 1e3})", Type::kInt, kOpt, true, false, "1000"},
      {"fraction is no int", R"({"p": 1.5})", Type::kInt, kOpt, true, true, "0"},
      {"beyond int", R"({"p": 4294967296})", Type::kInt, kOpt, true, true, "0"},
      {"string is no int", R"({"p": "5"})", Type::kInt, kOpt, true, true, "0"},
      {"bool is no int", R"({"p": true})", Type::kInt, kOpt, true, true, "0"},
      {"null is no int", R"({"p": null})", Type::kInt, kOpt, true, true, "0"},
      {"bool", R"({"p": false})", Type::kBool, kOpt, true, false, "false"},
      {"int is no bool", R"({"p": 1})", Type::kBool, kOpt, true, true, "false"},
      {"text is no bool", R"({"p": "true"})", Type::kBool, kOpt, true, true, "false"},
      {"string", R"({"p": "a \"q\""})", Type::kString, kOpt, true, false, R"("a \"q\"")"},
      {"empty string", R"({"p": ""})", Type::kString, kReq, true, false, R"("")"},
      {"string with NUL", R"({"p": "a\u0000b"})", Type::kString, kOpt, true, true, R"("")"},
      {"number is no string", R"({"p": 7})", Type::kString, kReq, true, true, R"("")"},
      {"array", R"({"p": ["a", 1]})", Type::kArray, kOpt, true, false, R"(["a", 1])"},
      {"empty array", R"({"p": []})", Type::kArray, kReq, true, false, "[]"},
      {"scalar is no array", R"({"p": "a"})", Type::kArray, kOpt, true, true, "null"},
      {"object is no array", R"({"p": {}})", Type::kArray, kOpt, true, true, "null"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const APIRequest request("api", 1, "set", Parse(c.params));
    const auto take = [](const auto& p) {
      return std::make_tuple(p.IsSet(), p.IsInvalid(), Json::Value(p.Get()));
    };
    const std::string n = "p";
    const auto got = c.type == Type::kString ? take(request.GetAndCheckString(n, c.necessity))
                     : c.type == Type::kInt  ? take(request.GetAndCheckInt(n, c.necessity))
                     : c.type == Type::kBool ? take(request.GetAndCheckBool(n, c.necessity))
                                             : take(request.GetAndCheckUnitArray(n, c.necessity));
    EXPECT_EQ(got, std::make_tuple(c.set, c.invalid, Parse(c.value)));
  }
}

TEST(APIRequestTest, ValidatorAndRawAccess) {
  const APIRequest request("api", 1, "set", Parse(R"({"port": 0, "n": 2.0})"));
  const auto positive = [](const int& v) { return v > 0; };
  EXPECT_TRUE(request.GetAndCheckInt("port", APIRequest::PARAM_OPTIONAL, positive).IsInvalid());
  EXPECT_TRUE(request.HasParam("port"));
  EXPECT_FALSE(request.HasParam("other"));
  EXPECT_EQ(request.GetParam("n").asString(), "2");  // the text a client would expect
  EXPECT_EQ(request.GetParam("other", "dflt").asString(), "dflt");
  const APIRequest not_object("api", 1, "get", Parse("[1]"));
  EXPECT_FALSE(not_object.HasParam("0"));
}

// Which outcome wins is the host's envelope tests' to show.
TEST(APIResponseTest, CallbacksKeepTheirOrder) {
  QRIX::APIResponse response;
  static std::string order;
  response.SetCallbackFunc([](void*) { order += "a"; }, nullptr);
  response.SetCallbackFunc(nullptr, nullptr);
  response.SetCallbackFunc([](void*) { order += "b"; }, nullptr);
  response.RunCallbacks();
  EXPECT_EQ(order, "ab");
}

}  // namespace
