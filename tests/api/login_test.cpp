// Logins, sessions and the failed-login limits, over HTTP against the real server and PAM.
#include <sys/stat.h>
#include <unistd.h>

#include <fcntl.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <functional>
#include <thread>
#include <vector>

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
  const Json::Value envelope = alice.Login(kAlice);
  ASSERT_TRUE(envelope["success"].asBool()) << envelope;
  const std::string& token = alice.token;
  EXPECT_EQ(envelope["data"]["account"], "alice");
  EXPECT_EQ(envelope["data"]["admin"], true);
  EXPECT_TRUE(IsHex64(token) && IsHex64(alice.session_id) && alice.session_id != token);
  for (const char* attribute : {"; HttpOnly", "; SameSite=Strict", "; Path=/"}) {
    EXPECT_NE(alice.last_cookie.find(attribute), std::string::npos) << alice.last_cookie;
  }

  // The session lives on the server, readable by nobody else, and holds no password.
  const std::string file = std::string(kSessionDir) + "/" + alice.session_id;
  struct stat st {};
  ASSERT_EQ(::stat(file.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  const Json::Value record = ParseJson(ReadText(file));
  EXPECT_EQ(
      record["user"].asString() + " " + record["uid"].asString() + " " + record["token"].asString(),
      "alice 2001 " + token);
  EXPECT_EQ(ReadText(file).find(kAlice.password), std::string::npos);
  EXPECT_TRUE(alice.Call(kSettingsApi, "get")["success"].asBool());
  // Passwords are text, whatever JSON they resemble: digits, or a quoted string.
  EXPECT_TRUE(ApiClient(server).Login(kDave)["success"].asBool());
  EXPECT_TRUE(
      ApiClient(server).Login("bob", "\"" + std::string(kBob.password) + "\"")["success"].asBool());
}

TEST_F(LoginTest, RefusedLoginsSetNoCookieAndSayWhy) {
  HostServer server;
  const auto refused = [](const char* name, const char* reason) {
    return ErrorEnvelope(
        120, ParseJson(std::string(R"({"name":")") + name + R"(","reason":")" + reason + "\"}"));
  };
  struct Row {
    const char* label;
    Fields fields;
    Json::Value expected;
  };
  const Row rows[] = {
      {"wrong password", {{"account", "alice"}, {"passwd", "not-it"}}, ErrorEnvelope(111)},
      {"unknown account", {{"account", "mallory"}, {"passwd", "x"}}, ErrorEnvelope(111)},
      {"the right password and more after a NUL",
       {{"account", "bob"}, {"passwd", kBob.password + std::string("\0x", 2)}},
       ErrorEnvelope(111)},
      {"no account", {{"passwd", "x"}}, refused("account", "required")},
      {"no password", {{"account", "alice"}}, refused("passwd", "required")},
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
  EXPECT_TRUE(LogContains("rhost=127.0.0.11")) << "PAM learns the client's address";

  // Only a POST logs in (a foreign page's form is the HTTP test's).
  ApiClient alice(server);
  const std::string form = FormEncode({{"api", "QRIX.API.Auth"},
                                       {"method", "login"},
                                       {"account", "alice"},
                                       {"passwd", kAlice.password}});
  HttpCall get = alice.Post("");
  get.method = "GET";
  get.url += "?" + form;
  const HttpReply got = alice.Send(get);
  EXPECT_EQ(got.status, 405);
  EXPECT_EQ(got.Header("set-cookie"), "");

  EXPECT_EQ(alice.Call("QRIX.API.Auth", "register"), ErrorEnvelope(103));

  // In a JSON body a password must be a string.
  HttpCall json = alice.Post(
      R"({"api":"QRIX.API.Auth","method":"login","params":{"account":"dave","passwd":31415926}})");
  json.headers.push_back("Content-Type: application/json; charset=utf-8");
  EXPECT_EQ(ParseJson(alice.Send(json).body), refused("passwd", "type"));
}

TEST_F(LoginTest, AnIdleSessionExpiresAndAUsedOneDoesNot) {
  Start({"--idle-timeout", "2"});
  ApiClient& bob = *bob_;
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

// A session holds only while its account may log in: every request checks the account again
// and takes its administrator flag as it is now. Each row changes erin's account files (or her
// session's file) under an open session.
TEST_F(LoginTest, EachRequestChecksTheAccountBehindTheSession) {
  HostServer server;
  const std::string files[] = {"/etc/passwd", "/etc/shadow", "/etc/group"};
  std::vector<std::string> saved;
  for (const std::string& file : files) {
    saved.push_back(ReadText(file));
  }
  // Replaces `from` with `to` throughout `path`, other accounts' lines too: only erin's session
  // is looked at, and the files are restored after each row.
  const auto edit = [](const char* path, std::string from, std::string to) {
    return [=](const std::string&) {
      std::string text = ReadText(path);
      for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
        text.replace(at, from.size(), to);
      }
      WriteText(path, text);
    };
  };
  const auto created = [](long seconds_ago) {
    return [=](const std::string& session_file) {
      Json::Value record = ParseJson(ReadText(session_file));
      record["created"] = static_cast<Json::Int64>(::time(nullptr) - seconds_ago);
      WriteText(session_file, record.toStyledString());
    };
  };
  struct Row {
    const char* label;
    std::function<void(const std::string& session_file)> change;
    int code;            // 0: the call goes through
    bool admin = false;  // then: what the module is told
  };
  const Row rows[] = {
      {"nothing changed", [](const std::string&) {}, 0, true},
      {"no longer an administrator", edit("/etc/group", ",erin", ""), 0},
      {"password locked", edit("/etc/shadow", "erin:", "erin:!"), 106},
      {"account expired", edit("/etc/shadow", ":7:::", ":7::1:"), 106},
      {"password expired", edit("/etc/shadow", ":99999:", ":1:"), 106},
      {"account removed", edit("/etc/passwd", "erin:", "erin2:"), 106},
      {"account given to another uid", edit("/etc/passwd", ":2005:", ":2999:"), 106},
      {"session ended by another worker",
       [](const std::string& session_file) { ::unlink(session_file.c_str()); }, 106},
      {"session created in 1970", created(::time(nullptr)), 106},
      {"session past its 24 hours", created(24 * 3600 + 60), 106},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.label);
    ApiClient erin(server);
    ASSERT_TRUE(erin.Login(kErin)["success"].asBool());
    const std::string session_file = std::string(kSessionDir) + "/" + erin.session_id;
    ASSERT_TRUE(erin.Call(kOpenApi, "echo")["success"].asBool()) << "seen once before the change";
    row.change(session_file);
    const Json::Value answer = erin.Call(kOpenApi, "echo");
    if (row.code == 0) {
      EXPECT_EQ(answer["data"]["admin"], row.admin) << answer;
      EXPECT_EQ(erin.Call("QRIX.Test.Admin", "echo")["success"], row.admin);
    } else {
      EXPECT_EQ(answer, ErrorEnvelope(row.code));
      EXPECT_NE(::access(session_file.c_str(), F_OK), 0) << "an ended session's file is removed";
    }
    for (size_t i = 0; i < std::size(files); ++i) {
      WriteText(files[i], saved[i]);
    }
  }
}

// Only a request that proves the session (cookie and token, from this server's pages) extends
// it; anything refused, a logout without the token too, leaves it as it was. A logout that
// proves the session ends it on the server.
TEST_F(LoginTest, ARefusedRequestDoesNotExtendTheSessionALogoutEndsIt) {
  Start();
  ApiClient& bob = *bob_;
  const std::string file = std::string(kSessionDir) + "/" + bob.session_id;
  const auto last_use = [&] {
    struct stat st {};
    return ::stat(file.c_str(), &st) == 0 ? st.st_mtim.tv_sec : 0;
  };
  const timespec ten_minutes_ago[2] = {{::time(nullptr) - 600, 0}, {::time(nullptr) - 600, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), ten_minutes_ago, 0), 0);
  const time_t before = last_use();

  const std::string form = FormEncode({{"api", kOpenApi}, {"version", "1"}, {"method", "echo"}});
  const std::string logout = FormEncode({{"api", "QRIX.API.Auth"}, {"method", "logout"}});
  ApiClient wrong_token = bob;
  wrong_token.token = std::string(64, '0');
  ApiClient no_token = bob;
  no_token.token.clear();
  HttpCall foreign = bob.Post(form);
  foreign.headers.push_back("Origin: http://evil.example");
  for (const HttpCall& call : {wrong_token.Post(form), foreign, no_token.Post(logout)}) {
    const HttpReply reply = bob.Send(call);
    EXPECT_FALSE(ParseJson(reply.body)["success"].asBool()) << reply.status << " " << reply.body;
    EXPECT_EQ(last_use(), before);
  }
  EXPECT_TRUE(bob.Call(kOpenApi, "echo")["success"].asBool());
  EXPECT_GE(last_use(), before + 590) << "a proved request extends the session";

  const HttpReply reply = bob.Send(bob.Post(logout));
  EXPECT_EQ(ParseJson(reply.body), ParseJson(R"({"success":true})")) << reply.body;
  EXPECT_NE(reply.Header("set-cookie").find("Max-Age=0"), std::string::npos);
  EXPECT_NE(::access(file.c_str(), F_OK), 0);
  EXPECT_EQ(bob.Call(kOpenApi, "echo"), ErrorEnvelope(106));
  EXPECT_EQ(ParseJson(bob.Send(bob.Post(logout)).body), ErrorEnvelope(106));
}

// Failures count per account and client address, so that guesses from one address lock only
// that address out of the account: its owner still logs in from elsewhere. An address guessing
// at many accounts is locked out of all of them.
TEST_F(LoginTest, FailedLoginsLockOutTheAccountFromThatAddressAndTheAddress) {
  HostServer server({"--login-max-failures", "2", "--login-max-failures-per-address", "3",
                     "--login-lockout", "300"});
  ClearLog();
  ApiClient attacker(server, "127.0.0.41");
  EXPECT_EQ(attacker.Login("carol", "guess-1"), ErrorEnvelope(111));
  EXPECT_EQ(attacker.Login("carol", "guess-2"), ErrorEnvelope(111));
  EXPECT_EQ(attacker.Login(kCarol), ErrorEnvelope(109));
  EXPECT_TRUE(
      LogContains("login refused for account carol from 127.0.0.41: too many failed logins"));
  EXPECT_TRUE(ApiClient(server, "127.0.0.42").Login(kCarol)["success"].asBool());

  ApiClient guesser(server, "127.0.0.44");
  for (const char* name : {"nobody1", "nobody2", "nobody3"}) {
    EXPECT_EQ(guesser.Login(name, "guess"), ErrorEnvelope(111)) << name;
  }
  EXPECT_EQ(guesser.Login(kAlice), ErrorEnvelope(109));
  EXPECT_TRUE(ApiClient(server, "127.0.0.45").Login(kAlice)["success"].asBool());

  // Good logins do not use up an address's allowance: a shared address keeps logging in.
  for (int i = 0; i < 5; ++i) {
    EXPECT_TRUE(ApiClient(server, "127.0.0.46").Login(kBob)["success"].asBool()) << i;
  }

  // What a failure leaves on disk is bounded whatever the client sends: one small record per
  // (account, address) and per address, named by a fixed-size hash; the name is logged cut.
  EXPECT_EQ(ApiClient(server, "127.0.0.61").Login(std::string(60'000, 'n'), "x"),
            ErrorEnvelope(111));
  for (const auto& entry : std::filesystem::directory_iterator("/run/qrix/webapi/login_failures")) {
    EXPECT_EQ(entry.path().filename().string().size(), 32u) << entry.path();
    EXPECT_LT(entry.file_size(), 128u) << entry.path();
  }
  EXPECT_FALSE(LogContains(std::string(200, 'n')));
}

// An attempt is counted before its password is checked: guesses sent all at once get no more
// tries than guesses sent one after another.
TEST_F(LoginTest, ParallelGuessesGetNoMoreTriesThanTheLimit) {
  HostServer server({"--workers", "4", "--login-max-failures", "3"});
  std::vector<std::thread> threads;
  std::atomic<int> wrong{0};
  std::atomic<int> locked{0};
  for (int i = 0; i < 12; ++i) {
    threads.emplace_back([&, i] {
      const Json::Value answer =
          ApiClient(server, "127.0.0.51").Login("dave", "guess-" + std::to_string(i));
      if (answer == ErrorEnvelope(111)) {
        ++wrong;
      } else if (answer == ErrorEnvelope(109)) {
        ++locked;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(wrong, 3);
  EXPECT_EQ(locked, 9);
}

}  // namespace
}  // namespace qrix::test
