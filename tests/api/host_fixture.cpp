#include "tests/api/host_fixture.h"

#include <crypt.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "platform/vlibc/unique_fd.h"
#include "platform/webapi/api_validator.h"
#include "tests/support/accounts.h"
#include "tests/support/files.h"
#include "tests/support/pgsql_server.h"
#include "tests/support/syslog_capture.h"

namespace qrix::test {
namespace {

constexpr int kStartMs = 10'000;

// The account files are bind mounts: they are appended to and rewritten in place, never
// replaced.
void AddTestAccount(const TestAccount& account) {
  AddAccount(account.name, account.uid);
  crypt_data data{};
  const char* hash = crypt_r(account.password, "$6$qrixtest$", &data);
  if (hash == nullptr || hash[0] == '*') {
    throw std::runtime_error("crypt_r failed");
  }
  std::ofstream("/etc/shadow", std::ios::app)
      << account.name << ":" << hash << ":19000:0:99999:7:::\n";
  if (account.admin) {
    std::string group = ReadText("/etc/group");
    const size_t end = group.find('\n', group.find("\nadministrators:") + 1);
    group.insert(end, (group[end - 1] == ':' ? "" : ",") + std::string(account.name));
    WriteText("/etc/group", group);
  }
}

std::mutex g_log_mutex;

class AccountsEnvironment : public ::testing::Environment {
 public:
  void SetUp() override {
    if (::geteuid() != 0) {
      return;  // HostTest skips every test
    }
    SyslogCapture::Get();  // own /dev/log before any server opens its log
    drain_ = std::thread([this] {
      while (!stop_) {
        {
          const std::lock_guard<std::mutex> lock(g_log_mutex);
          SyslogCapture::Get().Count("");  // reads what arrived
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
      }
    });
    for (const TestAccount& account : {kAlice, kBob, kCarol, kDave, kErin}) {
      AddTestAccount(account);
    }
  }
  void TearDown() override {
    stop_ = true;
    if (drain_.joinable()) {
      drain_.join();
    }
  }

 private:
  std::atomic<bool> stop_{false};
  std::thread drain_;
};

[[maybe_unused]] ::testing::Environment* const kAccounts =
    ::testing::AddGlobalTestEnvironment(new AccountsEnvironment);

int ReadPort(const std::string& output) {
  constexpr std::string_view kListening = "listening on http://127.0.0.1:";
  const size_t at = output.find(kListening);
  return at == std::string::npos ? 0 : std::atoi(output.c_str() + at + kListening.size());
}

}  // namespace

ChildProcess::ChildProcess(std::vector<std::string> args, const std::string& output) {
  // posix_spawn, not fork: the test process runs a thread.
  std::vector<char*> argv;
  for (std::string& arg : args) {
    argv.push_back(arg.data());
  }
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
  const int spawned = ::posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (spawned != 0) {
    pid_ = -1;
    throw std::runtime_error("cannot start " + args[0] + ": " + std::strerror(spawned));
  }
}

bool ChildProcess::Running() const {
  siginfo_t info{};  // left for Stop() to reap
  return pid_ > 0 &&
         ::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
         info.si_pid == 0;
}

int ChildProcess::Stop() {
  if (pid_ <= 0) {
    return -1;
  }
  ::kill(pid_, SIGTERM);
  int status = 0;
  ::waitpid(pid_, &status, 0);
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

HostServer::HostServer(std::vector<std::string> extra_args) {
  static int started = 0;
  const std::string output = "/tmp/qrix-webapi." + std::to_string(++started) + ".out";
  Remove(output);
  std::vector<std::string> args = {QRIX_WEBAPI, "--module",       QRIX_SETTING_MODULE,
                                   "--module",  QRIX_TEST_MODULE, "--port",
                                   "0",         "--workers",      "2"};
  args.insert(args.end(), extra_args.begin(), extra_args.end());
  // scripts/valgrind runs the host under memcheck: "program arg ..." put in front.
  if (const char* wrapper = std::getenv("QRIX_HOST_WRAPPER"); wrapper != nullptr) {
    std::istringstream words(wrapper);
    args.insert(args.begin(), std::istream_iterator<std::string>(words), {});
  }
  process_ = std::make_unique<ChildProcess>(std::move(args), output);
  for (int waited = 0; waited < kStartMs && port_ == 0; waited += 10) {
    if (!process_->Running()) {
      throw std::runtime_error("qrix-webapi ended at start-up: " + ReadText(output));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    port_ = ReadPort(ReadText(output));
  }
  if (port_ == 0) {
    Stop();
    throw std::runtime_error("qrix-webapi did not start listening");
  }
}

HostServer::~HostServer() {
  if (process_->Pid() > 0) {
    EXPECT_EQ(Stop(), 0) << "qrix-webapi did not end cleanly";
  }
}

std::string HostServer::Url(std::string_view path) const {
  return "http://127.0.0.1:" + std::to_string(port_) + std::string(path);
}

ApiClient::ApiClient(const HostServer& server, std::string local_address)
    : url_(server.Url()), local_address_(std::move(local_address)) {}

HttpCall ApiClient::Post(const std::string& form) const {
  HttpCall call;
  call.method = "POST";
  call.url = url_;
  call.body = form;
  call.local_address = local_address_;
  call.ca_file = ca_file;
  if (!origin.empty()) {
    call.headers.push_back("Origin: " + origin);
  }
  if (!session_id.empty()) {
    call.headers.push_back("Cookie: qrix_sid=" + session_id);
  }
  if (!token.empty()) {
    call.headers.push_back("X-QRIX-Token: " + token);
  }
  return call;
}

Json::Value ApiClient::Login(const std::string& account, const std::string& password) {
  const HttpReply reply = Send(Post(FormEncode({{"api", "QRIX.API.Auth"},
                                                {"method", "login"},
                                                {"account", account},
                                                {"passwd", password}})));
  const Json::Value envelope = ParseJson(reply.body);
  last_cookie = reply.Header("set-cookie");
  if (envelope["success"].asBool()) {
    session_id = last_cookie.substr(9, last_cookie.find(';') - 9);  // after "qrix_sid="
    token = envelope["data"]["token"].asString();
  }
  return envelope;
}

Json::Value ApiClient::Call(const std::string& api, const std::string& method, const Fields& params,
                            const std::string& version) {
  Fields fields = {{"api", api}, {"version", version}, {"method", method}};
  fields.insert(fields.end(), params.begin(), params.end());
  return ParseJson(Send(Post(FormEncode(fields))).body);
}

void HostTest::SetUp() {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "needs root inside the sandbox (account files, PAM)";
  }
}

void HostTest::StartDaemons() {
  Remove(kFirewallRan);
  WriteText("/tmp/firewall_hook", "#!/bin/sh\necho x >> " + std::string(kFirewallRan) + "\n");
  ::chmod("/tmp/firewall_hook", 0755);
  WriteText("/var/qrix/etc/firewall.conf", "reload_hook=\"/tmp/firewall_hook\"\n");
  scheduler_ = std::make_unique<FakeScheduler>();
  amuled_ = std::make_unique<FakeScheduler>("/tmp/qrixdl_amuled.pid");
  cgid_ = std::make_unique<FakeScheduler>("/tmp/qrixdl_amulecgid.pid");
}

void HostTest::UseDatabase() {
  ASSERT_TRUE(PgsqlServer::Get().Start());
  PgsqlServer::Query("DELETE FROM user_setting");
  std::filesystem::create_directories("/volume1/@download");
  Remove("/var/services/download");
  std::filesystem::create_symlink("/volume1/@download", "/var/services/download");
}

void HostTest::Start(std::vector<std::string> args) {
  server_ = std::make_unique<HostServer>(std::move(args));
  for (auto [client, account] : {std::pair{&alice_, kAlice}, {&bob_, kBob}, {&carol_, kCarol}}) {
    *client = std::make_unique<ApiClient>(*server_);
    ASSERT_TRUE((*client)->Login(account)["success"].asBool()) << account.name;
  }
}

Json::Value ParseJson(const std::string& text) {
  return QRIX::WebAPIUtil::ParseJson(text);
}

Json::Value ErrorEnvelope(int code, const Json::Value& errors) {
  Json::Value out(Json::objectValue);
  out["success"] = false;
  out["error"]["code"] = code;
  if (!errors.isNull()) {
    out["errors"] = errors;
  }
  return out;
}

UniqueFd ConnectTo(int port) {
  UniqueFd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::connect(fd.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    return UniqueFd();
  }
  return fd;
}

std::string RawExchange(int port, std::string_view bytes) {
  UniqueFd fd = ConnectTo(port);
  if (!fd.Valid()) {
    return "(connect failed)";
  }
  while (!bytes.empty()) {
    const ssize_t n = ::send(fd.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (n <= 0) {
      break;  // the server may answer and close before taking everything
    }
    bytes.remove_prefix(static_cast<size_t>(n));
  }
  const timeval ten_seconds{10, 0};
  ::setsockopt(fd.Get(), SOL_SOCKET, SO_RCVTIMEO, &ten_seconds, sizeof ten_seconds);
  std::string reply;
  char buf[4096];
  for (ssize_t n; (n = ::recv(fd.Get(), buf, sizeof buf, 0)) > 0;) {
    reply.append(buf, static_cast<size_t>(n));
  }
  return reply;
}

bool WaitFor(const std::function<bool()>& done, int ms) {
  for (int waited = 0; waited < ms; waited += 10) {
    if (done()) {
      return true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return done();
}

bool WaitForFile(const std::string& path, int ms) {
  return WaitFor([&] { return ::access(path.c_str(), F_OK) == 0; }, ms);
}

bool LogContains(const std::string& text) {
  const std::lock_guard<std::mutex> lock(g_log_mutex);
  return SyslogCapture::Get().Contains(text);
}

bool WaitForLog(const std::string& text, int ms) {
  return WaitFor([&] { return LogContains(text); }, ms);
}

void ClearLog() {
  const std::lock_guard<std::mutex> lock(g_log_mutex);
  SyslogCapture::Get().Clear();
}

}  // namespace qrix::test
