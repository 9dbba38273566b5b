#include "host/api_call.h"

#include <gtest/gtest.h>

namespace qrix::host {
namespace {

HttpRequest Request(std::string target, std::string content_type, std::string body) {
  HttpRequest r;
  r.method = "POST";
  r.target = std::move(target);
  if (!content_type.empty()) {
    r.headers.emplace_back("content-type", std::move(content_type));
  }
  r.body = std::move(body);
  return r;
}

TEST(ApiCallTest, ReadsFormQueryAndJsonAlike) {
  struct Row {
    const char* label;
    HttpRequest request;
  };
  const Row rows[] = {
      {"form body", Request("/e", "application/x-www-form-urlencoded",
                            "api=A.B&version=1&method=set&port=6881&word=auto")},
      {"form body with charset", Request("/e", "Application/X-WWW-Form-Urlencoded; charset=UTF-8",
                                         "api=A.B&version=1&method=set&port=6881&word=auto")},
      {"query string", Request("/e?api=A.B&version=1&method=set&port=6881&word=auto", "", "")},
      {"query and body", Request("/e?api=A.B&port=1", "application/x-www-form-urlencoded",
                                 "version=1&method=set&port=6881&word=auto")},
      {"JSON body", Request("/e", "application/json",
                            R"({"api":"A.B","version":1,"method":"set",)"
                            R"("params":{"port":6881,"word":"auto"}})")},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.label);
    ApiCall call;
    ASSERT_EQ(ParseApiCall(row.request, &call), CallParse::kOk);
    EXPECT_EQ(call.api, "A.B");
    EXPECT_EQ(VersionNumber(call.version), 1);
    EXPECT_EQ(call.method, "set");
    Json::Value params(Json::objectValue);
    params["port"] = 6881;
    params["word"] = "auto";
    EXPECT_EQ(call.params, params);
  }
}

TEST(ApiCallTest, RefusesBodiesThatAreNoCall) {
  struct Row {
    const char* content_type;
    const char* body;
    CallParse result;
  };
  const Row rows[] = {
      {"application/json", "{", CallParse::kUnreadable},
      {"application/json", "[]", CallParse::kUnreadable},
      {"application/json", R"({"api":"A","params":"x"})", CallParse::kUnreadable},
      {"text/plain", "api=A", CallParse::kUnsupportedMediaType},
      {"", "api=A", CallParse::kUnsupportedMediaType},
      {"multipart/form-data; boundary=x", "--x", CallParse::kUnsupportedMediaType},
      {"text/plain", "", CallParse::kOk},
  };
  for (const Row& row : rows) {
    ApiCall call;
    EXPECT_EQ(ParseApiCall(Request("/e", row.content_type, row.body), &call), row.result)
        << row.content_type << " " << row.body;
  }
}

TEST(ApiCallTest, TextParametersKeepWhatWasSent) {
  ApiCall call;
  ASSERT_EQ(ParseApiCall(Request("/e", "application/x-www-form-urlencoded",
                                 "a=123456&b=%22quoted%22&c=true&d=plain&e=1e3"),
                         &call),
            CallParse::kOk);
  EXPECT_EQ(call.Text("a"), "123456");
  EXPECT_EQ(call.Text("b"), "quoted");
  EXPECT_EQ(call.Text("c"), "true");
  EXPECT_EQ(call.Text("d"), "plain");
  EXPECT_EQ(call.Text("e"), "1e3");
  EXPECT_EQ(call.Text("missing"), std::nullopt);

  ApiCall json;
  ASSERT_EQ(ParseApiCall(Request("/e", "application/json", R"({"params":{"a":"x","n":5}})"), &json),
            CallParse::kOk);
  EXPECT_EQ(json.Text("a"), "x");
  EXPECT_EQ(json.Text("n"), std::nullopt) << "a JSON number is no text";
}

TEST(ApiCallTest, VersionNumbers) {
  EXPECT_EQ(VersionNumber(Json::Value(1)), 1);
  EXPECT_EQ(VersionNumber(Json::Value(2.0)), 2);
  EXPECT_EQ(VersionNumber(Json::Value("3")), 3);
  EXPECT_EQ(VersionNumber(Json::Value("")), std::nullopt);
  EXPECT_EQ(VersionNumber(Json::Value("-1")), std::nullopt);
  EXPECT_EQ(VersionNumber(Json::Value("1x")), std::nullopt);
  EXPECT_EQ(VersionNumber(Json::Value(1.5)), std::nullopt);
  EXPECT_EQ(VersionNumber(Json::Value(true)), std::nullopt);
  EXPECT_EQ(VersionNumber(Json::Value()), std::nullopt);
}

}  // namespace
}  // namespace qrix::host
