// What the API tests stand on: accounts in the sandbox, a real qrix-webapi on a free loopback
// port serving the settings module and the test module, and a client that logs in and calls.
#ifndef HAULPORT_TESTS_API_HOST_FIXTURE_H_
#define HAULPORT_TESTS_API_HOST_FIXTURE_H_

#include <gtest/gtest.h>
#include <json/json.h>
#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/vlibc/unique_fd.h"
#include "tests/support/fake_scheduler.h"
#include "tests/support/http_client.h"

namespace qrix::test {

struct TestAccount {
  const char* name;
  const char* password;
  uid_t uid;
  bool admin;  // member of "administrators"
};

inline constexpr TestAccount kAlice{"alice", "alice-Secret-1", 2001, true};
inline constexpr TestAccount kBob{"bob", "bob Secret 2", 2002, false};
inline constexpr TestAccount kCarol{"carol", "carol-Secret-3", 2003, false};
// A password that reads as a JSON number when sent bare.
inline constexpr TestAccount kDave{"dave", "31415926", 2004, false};
// An administrator whose account the session tests change under an open session.
inline constexpr TestAccount kErin{"erin", "erin-Secret-5", 2005, true};

inline constexpr const char* kSettingsApi = "QRIX.Haulport2.Setting.FtpHttp";
inline constexpr const char* kSessionDir = "/run/qrix/webapi/sessions";
inline constexpr const char* kFirewallRan = "/tmp/firewall.ran";

using Fields = std::vector<std::pair<std::string, std::string>>;

// A program started with `args`, its standard output and error into `output`; sent SIGTERM and
// waited for when destroyed.
class ChildProcess {
 public:
  ChildProcess(std::vector<std::string> args, const std::string& output);
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  ~ChildProcess() { Stop(); }

  pid_t Pid() const { return pid_; }
  bool Running() const;
  // Sends SIGTERM and waits: the exit status, or 128 + the signal that ended it; -1 when gone.
  int Stop();

 private:
  pid_t pid_ = -1;
};

// A running qrix-webapi. Stopped (and expected to end cleanly) when destroyed.
class HostServer {
 public:
  // Serves the settings module and the test module on a free port, with `extra_args`.
  explicit HostServer(std::vector<std::string> extra_args = {});
  HostServer(const HostServer&) = delete;
  HostServer& operator=(const HostServer&) = delete;
  ~HostServer();

  int Port() const { return port_; }
  pid_t Pid() const { return process_->Pid(); }
  std::string Url(std::string_view path = "/webapi/entry.cgi") const;
  bool Running() const { return process_->Running(); }
  // Sends SIGTERM and waits: the exit status, or 128 + the signal that ended it.
  int Stop() { return process_->Stop(); }

 private:
  std::unique_ptr<ChildProcess> process_;
  int port_ = 0;
};

class ApiClient {
 public:
  explicit ApiClient(const HostServer& server, std::string local_address = "");
  // A client of another entry URL (a TLS front's, say).
  ApiClient(std::string url, std::string local_address)
      : url_(std::move(url)), local_address_(std::move(local_address)) {}

  // Logs in and keeps the session cookie and the token on success. Returns the envelope.
  Json::Value Login(const std::string& account, const std::string& password);
  Json::Value Login(const TestAccount& account) { return Login(account.name, account.password); }
  // Posts a form call with the session cookie and token. Returns the envelope.
  Json::Value Call(const std::string& api, const std::string& method, const Fields& params = {},
                   const std::string& version = "1");
  // A POST of `form` to the entry, carrying the session cookie and token.
  HttpCall Post(const std::string& form) const;
  HttpReply Send(const HttpCall& call) const { return Perform(call); }

  std::string session_id;
  std::string token;
  std::string origin;       // sent as Origin when set, as a browser would
  std::string ca_file;      // see HttpCall
  std::string last_cookie;  // the Set-Cookie of the last login

 private:
  std::string url_;
  std::string local_address_;
};

// Base of the API tests: skips unless the sandbox gives root, which the account files and PAM
// need. Start() runs a host and logs alice (an administrator), bob and carol (ordinary users) in.
class HostTest : public ::testing::Test {
 protected:
  void SetUp() override;
  // The daemons a set signals, as fakes (the scheduler, the eMule daemon and its CGI daemon),
  // and a firewall hook that adds a line to kFirewallRan for each reload.
  void StartDaemons();
  // The download database with an empty user table, and the temporary download directory on
  // /volume1 (what the Location and Global methods look up first).
  void UseDatabase();
  void Start(std::vector<std::string> args = {});

  // Declared before the host, which therefore stops before the daemons it signals.
  std::unique_ptr<FakeScheduler> scheduler_, amuled_, cgid_;
  std::unique_ptr<HostServer> server_;
  std::unique_ptr<ApiClient> alice_;
  std::unique_ptr<ApiClient> bob_;
  std::unique_ptr<ApiClient> carol_;  // an ordinary user too
};

// The parsed body, or null when it is not JSON.
Json::Value ParseJson(const std::string& text);
// {"success":false,"error":{"code":N}} (plus "errors" when given).
Json::Value ErrorEnvelope(int code, const Json::Value& errors = Json::Value());
// A TCP connection to the server on loopback (invalid when refused).
UniqueFd ConnectTo(int port);
// Sends raw bytes to the server and returns everything it sends back until it closes.
std::string RawExchange(int port, std::string_view bytes);
// Waits up to `ms` for `done()`; its last answer.
bool WaitFor(const std::function<bool()>& done, int ms = 5000);
bool WaitForFile(const std::string& path, int ms = 5000);

// The servers' syslog lines. A thread keeps reading /dev/log: a reader that paused would fill
// the socket's short queue and block the server inside syslog().
bool LogContains(const std::string& text);
// Waits up to `ms` for a line containing `text`.
bool WaitForLog(const std::string& text, int ms = 3000);
void ClearLog();

}  // namespace qrix::test

#endif  // HAULPORT_TESTS_API_HOST_FIXTURE_H_
