// Logins, sessions and the failed-login limits, over HTTP against the real server and PAM.
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "tests/api/host_fixture.h"
#include "tests/support/files.h"

namespace qrix::test {
namespace {

constexpr const char* kOpenApi = "QRIX.Test.Open";

bool IsHex64(const std::string& text) {
  return text.size() == 64 && text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

class LoginTest : public HostTest {};

TEST_F(LoginTest, LoginOpensASessionHeldByAnHttpOnlyCookieAndAToken) {
  HostServer server;
  ApiClient alice(server);
  const HttpReply reply = alice.Send(alice.Post(FormEncode({{"api", "QRIX.API.Auth"},
                                                            {"method", "login"},
                                                            {"account", "alice"},
                                                            {"passwd", kAlice.password}})));
  const Json::Value envelope = ParseJson(reply.body);
  ASSERT_TRUE(envelope["success"].asBool()) << reply.body;
  const std::string token = envelope["data"]["token"].asString();
  EXPECT_TRUE(IsHex64(token)) << token;
  EXPECT_EQ(envelope["data"]["account"], "alice");
  EXPECT_EQ(envelope["data"]["admin"], true);

  const std::string cookie = reply.Header("set-cookie");
  ASSERT_EQ(cookie.rfind("qrix_sid=", 0), 0u) << cookie;
  const std::string id = cookie.substr(9, cookie.find(';') - 9);
  EXPECT_TRUE(IsHex64(id)) << cookie;
  EXPECT_NE(id, token);
  for (const char* attribute : {"; HttpOnly", "; SameSite=Strict", "; Path=/"}) {
    EXPECT_NE(cookie.find(attribute), std::string::npos) << cookie << " lacks " << attribute;
  }

  // The session lives on the server, readable by nobody else, and holds no password.
  const std::string file = std::string(kSessionDir) + "/" + id;
  struct stat st {};
  ASSERT_EQ(::stat(file.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  const Json::Value record = ParseJson(ReadText(file));
  EXPECT_EQ(record["user"], "alice");
  EXPECT_EQ(record["uid"].asUInt(), kAlice.uid);
  EXPECT_EQ(record["admin"], true);
  EXPECT_EQ(record["token"], token);
  EXPECT_EQ(ReadText(file).find(kAlice.password), std::string::npos);

  alice.session_id = id;
  alice.token = token;
  EXPECT_TRUE(alice.Call(kSettingsApi, "get")["success"].asBool());
}

TEST_F(LoginTest, RefusedLoginsSetNoCookieAndSayWhy) {
  HostServer server;
  Json::Value account_missing(Json::objectValue);
  account_missing["name"] = "account";
  account_missing["reason"] = "required";
  Json::Value passwd_missing = account_missing;
  passwd_missing["name"] = "passwd";
  struct Row {
    const char* label;
    Fields fields;
    Json::Value expected;
  };
  const Row rows[] = {
      {"wrong password", {{"account", "alice"}, {"passwd", "not-it"}}, ErrorEnvelope(111)},
      {"unknown account", {{"account", "mallory"}, {"passwd", "x"}}, ErrorEnvelope(111)},
      {"empty password", {{"account", "bob"}, {"passwd", ""}}, ErrorEnvelope(111)},
      {"password cut by a NUL",
       {{"account", "bob"}, {"passwd", std::string("bob\0x", 5)}},
       ErrorEnvelope(111)},
      {"no account", {{"passwd", "x"}}, ErrorEnvelope(120, account_missing)},
      {"no password", {{"account", "alice"}}, ErrorEnvelope(120, passwd_missing)},
      {"other version",
       {{"version", "2"}, {"account", "alice"}, {"passwd", kAlice.password}},
       ErrorEnvelope(104)},
  };
  int source = 10;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.label);
    // A source address of its own per row keeps the per-address count out of the way.
    ApiClient client(server, "127.0.0." + std::to_string(++source));
    Fields fields = {{"api", "QRIX.API.Auth"}, {"method", "login"}};
    fields.insert(fields.end(), row.fields.begin(), row.fields.end());
    const HttpReply reply = client.Send(client.Post(FormEncode(fields)));
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(ParseJson(reply.body), row.expected) << reply.body;
    EXPECT_EQ(reply.Header("set-cookie"), "");
  }
  EXPECT_TRUE(
      LogContains("login failed for account alice from 127.0.0.11: wrong account or password"));

  ApiClient alice(server);
  const Json::Value unknown = alice.Call("QRIX.API.Auth", "register");
  EXPECT_EQ(unknown, ErrorEnvelope(103));

  // In a JSON body a password must be a string.
  HttpCall json = alice.Post(
      R"({"api":"QRIX.API.Auth","method":"login","params":{"account":"dave","passwd":31415926}})");
  json.headers.push_back("Content-Type: application/json");
  Json::Value passwd_type = passwd_missing;
  passwd_type["reason"] = "type";
  EXPECT_EQ(ParseJson(alice.Send(json).body), ErrorEnvelope(120, passwd_type));
}

TEST_F(LoginTest, PasswordsAreTextWhateverJsonTheyResemble) {
  HostServer server;
  struct Row {
    const TestAccount& account;
    std::string sent;
  };
  const Row rows[] = {
      {kBob, kBob.password},                             // plain text
      {kBob, "\"" + std::string(kBob.password) + "\""},  // a JSON string
      {kDave, kDave.password},                           // digits: a JSON number if read so
      {kDave, "\"" + std::string(kDave.password) + "\""},
  };
  for (const Row& row : rows) {
    ApiClient client(server);
    EXPECT_TRUE(client.Login(row.account.name, row.sent)["success"].asBool()) << row.sent;
  }
}

TEST_F(LoginTest, LogoutEndsTheSession) {
  HostServer server;
  ApiClient bob(server);
  ASSERT_TRUE(bob.Login(kBob)["success"].asBool());
  ASSERT_TRUE(bob.Call(kOpenApi, "echo")["success"].asBool());
  const std::string file = std::string(kSessionDir) + "/" + bob.session_id;
  ASSERT_EQ(::access(file.c_str(), F_OK), 0);

  const HttpReply reply =
      bob.Send(bob.Post(FormEncode({{"api", "QRIX.API.Auth"}, {"method", "logout"}})));
  EXPECT_EQ(ParseJson(reply.body), ParseJson(R"({"success":true})")) << reply.body;
  EXPECT_NE(reply.Header("set-cookie").find("Max-Age=0"), std::string::npos);
  EXPECT_NE(::access(file.c_str(), F_OK), 0);
  EXPECT_EQ(bob.Call(kOpenApi, "echo"), ErrorEnvelope(106));
  EXPECT_EQ(bob.Logout(), ErrorEnvelope(106));
}

TEST_F(LoginTest, LogoutNeedsTheToken) {
  HostServer server;
  ApiClient bob(server);
  ASSERT_TRUE(bob.Login(kBob)["success"].asBool());
  const std::string token = bob.token;
  bob.token.clear();
  EXPECT_EQ(bob.Logout(), ErrorEnvelope(107));
  bob.token = token;
  EXPECT_TRUE(bob.Call(kOpenApi, "echo")["success"].asBool()) << "the session must survive";
}

TEST_F(LoginTest, AnIdleSessionExpiresAndAUsedOneDoesNot) {
  HostServer server({"--idle-timeout", "2"});
  ApiClient bob(server);
  ASSERT_TRUE(bob.Login(kBob)["success"].asBool());
  // Used every half second for longer than the idle time: still alive.
  for (int i = 0; i < 7; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    ASSERT_TRUE(bob.Call(kOpenApi, "echo")["success"].asBool()) << "after " << i << " uses";
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(3500));
  EXPECT_EQ(bob.Call(kOpenApi, "echo"), ErrorEnvelope(106));
  EXPECT_NE(::access((std::string(kSessionDir) + "/" + bob.session_id).c_str(), F_OK), 0)
      << "an expired session's file is removed";
}

TEST_F(LoginTest, FailedLoginsLockOutTheAccountAndTheAddress) {
  HostServer server({"--login-max-failures", "2", "--login-max-failures-per-address", "3",
                     "--login-lockout", "300"});
  ClearLog();
  // carol's password is guessed from two addresses: her account locks, whatever the address.
  EXPECT_EQ(ApiClient(server, "127.0.0.41").Login("carol", "guess-1"), ErrorEnvelope(111));
  EXPECT_EQ(ApiClient(server, "127.0.0.42").Login("carol", "guess-2"), ErrorEnvelope(111));
  EXPECT_EQ(ApiClient(server, "127.0.0.43").Login(kCarol), ErrorEnvelope(109));
  EXPECT_TRUE(
      LogContains("login refused for account carol from 127.0.0.43: too many failed logins"));

  // One address guesses at three accounts: the address locks, even for a right password,
  // while the same account from elsewhere still logs in.
  ApiClient guesser(server, "127.0.0.44");
  for (const char* name : {"nobody1", "nobody2", "nobody3"}) {
    EXPECT_EQ(guesser.Login(name, "guess"), ErrorEnvelope(111)) << name;
  }
  EXPECT_EQ(guesser.Login(kAlice), ErrorEnvelope(109));
  EXPECT_TRUE(ApiClient(server, "127.0.0.45").Login(kAlice)["success"].asBool());
}

}  // namespace
}  // namespace qrix::test
