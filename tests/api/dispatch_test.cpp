// The web-API contract over HTTP: every host error code, the parameter encodings, and who the
// module is told is asking. Each settings method's refusals (no session, a wrong token, a foreign
// Host or Origin, an ordinary user where administrators only) are the reliability sweep's.
#include <unistd.h>
#include <algorithm>

#include "tests/api/host_fixture.h"
#include "tests/fixtures/test_module.h"
#include "tests/support/files.h"

namespace qrix::test {
namespace {

constexpr const char* kOpenApi = "QRIX.Test.Open";
constexpr const char* kAdminApi = "QRIX.Test.Admin";
constexpr const char* kFaultApi = "QRIX.Test.Fault";

class DispatchTest : public HostTest {};

TEST_F(DispatchTest, EachHostErrorHasItsCode) {
  Start();
  const ApiClient* const alice = alice_.get();
  const ApiClient anonymous(*server_);
  ApiClient forged = anonymous;
  forged.session_id = std::string(64, 'a');
  forged.token = alice_->token;
  ApiClient no_token = *alice_;
  no_token.token.clear();
  struct Row {
    const char* label;
    const ApiClient* client;
    const char* api;  // null: the field is left out, as are version and method
    const char* version;
    const char* method;
    Json::Value expected;
  };
  const char* const kApi = kSettingsApi;
  const Row rows[] = {
      {"no api", alice, nullptr, "1", "get", ErrorEnvelope(101)},
      {"no method", alice, kApi, "1", nullptr, ErrorEnvelope(101)},
      {"no version", alice, kApi, nullptr, "get", ErrorEnvelope(101)},
      {"api not text", alice, "[1]", "1", "get", ErrorEnvelope(101)},
      {"unknown api", alice, "QRIX.Haulport2.Setting.Nope", "1", "get", ErrorEnvelope(102)},
      {"method of another api", alice, kApi, "1", "read_progress", ErrorEnvelope(103)},
      {"unsupported version", alice, kApi, "2", "get", ErrorEnvelope(104)},
      {"made-up session", &forged, kApi, "1", "get", ErrorEnvelope(106)},
      {"no token", &no_token, kApi, "1", "get", ErrorEnvelope(107)},
      {"exception in the module", alice, kFaultApi, "1", "throw", ErrorEnvelope(110)},
      {"exception in the check", alice, kFaultApi, "1", "check_throws", ErrorEnvelope(110)},
      {"platform error passed up", alice, kFaultApi, "1", "qrix_error",
       ErrorEnvelope(kQrixErrorCode)},
      {"check refused", alice, kFaultApi, "1", "refuse",
       ErrorEnvelope(120, ParseJson(R"({"name": "value", "reason": "condition"})"))},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.label);
    Fields fields;
    for (const auto& [name, value] :
         {std::pair{"api", row.api}, {"version", row.version}, {"method", row.method}}) {
      if (value != nullptr) {
        fields.emplace_back(name, value);
      }
    }
    const HttpReply reply = row.client->Send(row.client->Post(FormEncode(fields)));
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(reply.Header("content-type"), "application/json");
    EXPECT_EQ(ParseJson(reply.body), row.expected) << reply.body;
  }
  EXPECT_NE(::access(kEntryRanFile, F_OK), 0) << "an entry ran although its check refused";
  EXPECT_TRUE(
      LogContains("module exception in QRIX.Test.Fault v1 throw: test module: thrown on purpose"));
  EXPECT_TRUE(LogContains(
      "module exception in QRIX.Test.Fault v1 check_throws: test module: check thrown on "
      "purpose"));
  EXPECT_TRUE(LogContains(
      "module error in QRIX.Test.Fault v1 qrix_error: error 1207: test module: folder not usable"));
}

TEST_F(DispatchTest, ParameterValuesAreJsonTextOrElsePlainText) {
  Start();
  // The value rules themselves are unit-tested; here: that form and query apply them, and that
  // api, version and method are no parameters. A JSON body's typed values: the login test's.
  const Fields fields = {{"api", kOpenApi},   {"version", "1"},
                         {"method", "echo"},  {"tcp_port", "6881"},
                         {"encrypt", "auto"}, {"form_specials", "a b&c=d+e%"}};
  HttpCall get = bob_->Post("");
  get.method = "GET";
  get.url += "?" + FormEncode(fields);
  for (const HttpCall& call : {bob_->Post(FormEncode(fields)), get}) {
    EXPECT_EQ(ParseJson(bob_->Send(call).body)["data"]["params"],
              ParseJson(R"({"tcp_port": 6881, "encrypt": "auto", "form_specials": "a b&c=d+e%"})"))
        << call.method;
  }

  struct BadBody {
    const char* label;
    const char* content_type;
    const char* body;
    int status;
    Json::Value expected;
  };
  const BadBody bad[] = {
      {"not JSON", "application/json", "{\"api\":", 200, ErrorEnvelope(101)},
      {"JSON but no object", "application/json", "[1,2]", 200, ErrorEnvelope(101)},
      {"params not an object", "application/json",
       R"({"api":"QRIX.Test.Open","version":1,"method":"echo","params":[1]})", 200,
       ErrorEnvelope(101)},
      {"unsupported type", "text/plain", "api=QRIX.Test.Open", 415, Json::Value()},
  };
  for (const BadBody& row : bad) {
    SCOPED_TRACE(row.label);
    HttpCall call = bob_->Post(row.body);
    call.headers.push_back(std::string("Content-Type: ") + row.content_type);
    const HttpReply reply = bob_->Send(call);
    EXPECT_EQ(reply.status, row.status);
    if (row.status == 200) {
      EXPECT_EQ(ParseJson(reply.body), row.expected) << reply.body;
    }
  }
}

// Who asks reaches the module, and so does the Accept-Language header (the cookie's language and
// the mapping are unit-tested).
TEST_F(DispatchTest, TheModuleIsToldWhoAsksInWhichLanguage) {
  Start();
  HttpCall call = bob_->Post(FormEncode({{"api", kOpenApi}, {"version", "1"}, {"method", "echo"}}));
  call.headers.push_back("Accept-Language: fr-FR,fr;q=0.9,en;q=0.8");
  Json::Value bob = ParseJson(bob_->Send(call).body)["data"];
  bob.removeMember("params");
  bob.removeMember("pid");
  EXPECT_EQ(bob, ParseJson(R"({"user": "bob", "uid": 2002, "admin": false, "language": "fra",
                               "api": "QRIX.Test.Open", "version": 1, "method": "echo"})"));
}

}  // namespace
}  // namespace qrix::test
