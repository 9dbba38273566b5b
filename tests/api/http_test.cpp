// HTTP below the web API: limits, broken requests, host names, and the web page's files.
#include <sys/stat.h>
#include <unistd.h>

#include <poll.h>
#include <sys/socket.h>

#include <netinet/in.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <thread>

#include "platform/vlibc/process.h"
#include "tests/api/host_fixture.h"
#include "tests/support/files.h"

namespace qrix::test {
namespace {

class HttpTest : public HostTest {};

TEST_F(HttpTest, OversizeAndBrokenRequestsAreAnsweredAndTheServerGoesOn) {
  Start({"--read-timeout", "2", "--host-name", "nas.example"});
  const std::string port = std::to_string(server_->Port());
  const std::string host = "Host: 127.0.0.1:" + port + "\r\n";
  const std::string get = "GET / HTTP/1.1\r\n" + host;
  const std::string post = "POST /webapi/entry.cgi HTTP/1.1\r\n" + host;
  const auto form_from = [&](const std::string& host_name, const std::string& origin) {
    return "POST /webapi/entry.cgi HTTP/1.1\r\nHost: " + host_name + "\r\nOrigin: " + origin +
           "\r\nContent-Type: application/x-www-form-urlencoded\r\nContent-Length: 3\r\n\r\na=b";
  };
  const std::string big_form =
      "api=QRIX.Test.Open&version=1&method=echo&pad=" + std::string(70 * 1024, 'x');
  const std::string big_length = "Content-Length: " + std::to_string(big_form.size()) + "\r\n";
  const std::string chunk = "a000\r\n" + std::string(40 * 1024, 'y') + "\r\n";
  struct Row {
    const char* label;
    std::string bytes;
    int status;
    int code = 0;  // of the JSON answer, when one is due
  };
  const Row rows[] = {
      {"body over 64 KiB", post + big_length + "\r\n" + big_form, 200, 108},
      {"body over 64 KiB announced with Expect",
       post + "Expect: 100-continue\r\n" + big_length + "\r\n", 200, 108},
      {"chunked body growing over 64 KiB",
       post + "Transfer-Encoding: chunked\r\n\r\n" + chunk + chunk + "0\r\n\r\n", 200, 108},
      {"headers over 8 KiB", get + "X-Filler: " + std::string(9000, 'z') + "\r\n\r\n", 200, 108},
      {"not HTTP", "HELLO THERE\r\n\r\n", 400},
      {"bad Content-Length", post + "Content-Length: ten\r\n\r\n", 400},
      {"no Host header", "GET / HTTP/1.1\r\n\r\n", 400},
      {"absolute target", "GET http://127.0.0.1/ HTTP/1.1\r\n" + host + "\r\n", 400},
      {"wrong method for the API", "PUT /webapi/entry.cgi HTTP/1.1\r\n" + host + "\r\n", 405},
      {"form posted from another site",
       form_from("127.0.0.1:" + port, "http://" + std::string(3000, 'e') + ".example"), 403},
      {"form posted from this server's page",
       form_from("nas.example:" + port, "http://NAS.example:" + port), 200, 101},
      {"two X-Forwarded-For headers",
       get + "X-Forwarded-For: 192.0.2.1\r\nX-Forwarded-For: 192.0.2.2\r\n\r\n", 400},
      {"two Host headers", get + host + "\r\n", 400},
      {"two Origin headers",
       post +
           "Origin: http://evil.example\r\nOrigin: http://127.0.0.1\r\nContent-Length: 0\r\n\r\n",
       400},
      {"a transfer coding other than chunked",
       post + "Transfer-Encoding: gzip, chunked\r\n\r\n0\r\n\r\n", 400},
      {"a second Host header in the chunked body's trailer",
       post + "Transfer-Encoding: chunked\r\n\r\n0\r\nHost: evil.example\r\n\r\n", 400},
      {"no page directory", get + "\r\n", 404},
      {"request that never ends", get + "X-Slow: ", 408},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.label);
    const std::string reply = RawExchange(server_->Port(), row.bytes);
    EXPECT_EQ(reply.substr(0, 13), "HTTP/1.1 " + std::to_string(row.status) + " ")
        << reply.substr(0, 200);
    if (row.code != 0) {
      EXPECT_EQ(ParseJson(reply.substr(reply.find("\r\n\r\n") + 4)), ErrorEnvelope(row.code));
    }
    EXPECT_NE(reply.find("\r\nConnection: close\r\n"), std::string::npos);
    EXPECT_EQ(reply.find("100 Continue"), std::string::npos) << "continued an oversize body";
    EXPECT_TRUE(bob_->Call("QRIX.Test.Open", "echo")["success"].asBool())
        << "the server must go on serving";
  }
  // Under the limit, a body announced with Expect is continued.
  HttpCall call = bob_->Post(FormEncode({{"api", "QRIX.Test.Open"},
                                         {"version", "1"},
                                         {"method", "echo"},
                                         {"pad", std::string(30 * 1024, 'p')}}));
  call.headers.push_back("Expect: 100-continue");
  EXPECT_EQ(ParseJson(bob_->Send(call).body)["data"]["params"]["pad"].asString().size(),
            30u * 1024);
  EXPECT_TRUE(
      LogContains("refused request from 127.0.0.1: Origin http://" + std::string(57, 'e') + "..."));
  EXPECT_FALSE(LogContains(std::string(100, 'e'))) << "refused values are logged cut";
}

// Only the master reads from a client whose request is not complete: silent connections cost it
// a buffer, never a worker, and a new connection pushes out the oldest silent one of its
// address once the address has its share.
TEST_F(HttpTest, SilentClientsHoldNoWorker) {
  HostServer server({"--workers", "2", "--head-timeout", "60", "--read-timeout", "60",
                     "--max-reading-per-address", "8"});
  std::vector<UniqueFd> silent;
  for (int i = 0; i < 32; ++i) {
    silent.push_back(ConnectTo(server.Port()));
    ASSERT_TRUE(silent.back().Valid());
  }
  ApiClient other(server, "127.0.0.2");
  ASSERT_TRUE(other.Login(kBob)["success"].asBool());
  for (int i = 0; i < 4; ++i) {
    EXPECT_TRUE(other.Call("QRIX.Test.Open", "echo")["success"].asBool());
  }
  int pushed_out = 0;
  for (const UniqueFd& fd : silent) {
    pollfd p{fd.Get(), POLLIN, 0};
    char reply[64] = {};
    if (::poll(&p, 1, 2000) == 1 && ::recv(fd.Get(), reply, sizeof reply - 1, 0) > 0) {
      EXPECT_EQ(std::string(reply, 30), "HTTP/1.1 408 Request Timeout\r\n");
      ++pushed_out;
    }
    if (pushed_out == 24) {
      break;  // the newest 8 are still waiting, as they may
    }
  }
  EXPECT_EQ(pushed_out, 24);
  // The same address still gets through: its new connection pushes out a silent one.
  ApiClient same(server, "127.0.0.1");
  EXPECT_TRUE(same.Login(kAlice)["success"].asBool());
  // Clients that leave mid-request break nothing.
  silent.clear();
  for (const char* half :
       {"GET / HTT", "POST /webapi/entry.cgi HTTP/1.1\r\nContent-Length: 9\r\n\r\nap"}) {
    ::send(ConnectTo(server.Port()).Get(), half, std::strlen(half), MSG_NOSIGNAL);
  }
  EXPECT_TRUE(same.Call("QRIX.Test.Open", "echo")["success"].asBool());
}

TEST_F(HttpTest, ServesThePageFilesAndNothingOutsideThem) {
  namespace fs = std::filesystem;
  const std::string ui = "/tmp/ui";
  fs::remove_all(ui);
  WriteText(ui + "/index.html", "<p>home</p>");
  WriteText(ui + "/app.js", "let a = 1;");
  WriteText(ui + "/pages/index.html", "<p>pages</p>");
  WriteText(ui + "/.hidden", "secret");
  WriteText("/tmp/outside.txt", "outside");
  fs::create_symlink("/tmp/outside.txt", ui + "/leak.txt");
  HostServer server({"--ui", ui});
  struct Row {
    const char* method;
    const char* path;
    long status;
    const char* content_type;
    const char* body;
  };
  const Row rows[] = {
      {"GET", "/", 200, "text/html; charset=utf-8", "<p>home</p>"},
      {"HEAD", "/", 200, "text/html; charset=utf-8", ""},
      {"GET", "/app.js", 200, "text/javascript; charset=utf-8", "let a = 1;"},
      {"GET", "/pages", 200, "text/html; charset=utf-8", "<p>pages</p>"},
      {"GET", "/%70ages/index.html", 200, "text/html; charset=utf-8", "<p>pages</p>"},
      {"POST", "/index.html", 405, nullptr, nullptr},
      {"GET", "/missing.html", 404, nullptr, nullptr},
      {"GET", "/.hidden", 404, nullptr, nullptr},
      {"GET", "/%2e%2e/outside.txt", 404, nullptr, nullptr},
      {"GET", "/leak.txt", 404, nullptr, nullptr},
      {"GET", "/app.js%00.html", 404, nullptr, nullptr},
      {"GET", "/webapi/", 404, nullptr, nullptr},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.method) + " " + row.path);
    HttpCall call;
    call.method = row.method;
    call.url = server.Url(row.path);
    call.path_as_is = true;
    const HttpReply reply = Perform(call);
    EXPECT_EQ(reply.status, row.status) << reply.error;
    if (row.content_type != nullptr) {
      EXPECT_EQ(reply.Header("content-type"), row.content_type);
      EXPECT_EQ(reply.body, row.body);
      EXPECT_EQ(reply.Header("x-content-type-options"), "nosniff");
    }
    EXPECT_EQ(reply.body.find("outside"), std::string::npos);
    EXPECT_EQ(reply.body.find("secret"), std::string::npos);
  }
}

int FreePort() {
  const UniqueFd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  if (::bind(fd.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      ::getsockname(fd.Get(), reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    return 0;
  }
  return ntohs(address.sin_port);
}

// The usual HTTPS set-up: the shipped nginx site file in front of a host run with
// --behind-proxy, with a certificate made here. The host takes nginx's word for the scheme
// and the client: the cookie is Secure, the https Origin is its own, and a failed login counts
// against the browser's address, whatever address the browser claims.
TEST_F(HttpTest, LogsInOverHttpsThroughNginx) {
  constexpr const char* kNginx = "/usr/sbin/nginx";
  // scripts/bootstrap installs it: a missing nginx is a broken set-up, not a reason to skip.
  ASSERT_EQ(::access(kNginx, X_OK), 0) << kNginx << " is missing: run scripts/bootstrap";
  namespace fs = std::filesystem;
  const std::string dir = "/tmp/nginx";
  fs::remove_all(dir);
  fs::create_directories(dir);
  ASSERT_EQ(RunProcess({"/usr/bin/openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                        "ec_paramgen_curve:prime256v1", "-nodes", "-days", "2", "-subj",
                        "/CN=127.0.0.1", "-addext", "subjectAltName=IP:127.0.0.1", "-keyout",
                        dir + "/key.pem", "-out", dir + "/cert.pem"},
                       nullptr),
            0);
  HostServer server({"--behind-proxy"});
  const std::string port = std::to_string(FreePort());
  std::string site = ReadText(QRIX_NGINX_SITE);
  const std::pair<std::string, std::string> edits[] = {
      {"listen 443 ssl;", "listen 127.0.0.1:" + port + " ssl;"},
      {"listen [::]:443 ssl;", ""},
      {"/etc/ssl/certs/haulport.pem", dir + "/cert.pem"},
      {"/etc/ssl/private/haulport.key", dir + "/key.pem"},
      {"127.0.0.1:5080", "127.0.0.1:" + std::to_string(server.Port())},
  };
  for (const auto& [from, to] : edits) {
    const size_t at = site.find(from);
    ASSERT_NE(at, std::string::npos) << from;
    site.replace(at, from.size(), to);
  }
  WriteText(dir + "/site.conf", site);
  std::string conf = "pid " + dir + "/nginx.pid;\nevents {}\nhttp {\n  access_log off;\n";
  for (const char* temp : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"}) {
    conf += std::string("  ") + temp + "_temp_path " + dir + "/" + temp + ";\n";
  }
  WriteText(dir + "/nginx.conf", conf + "  include " + dir + "/site.conf;\n}\n");
  ChildProcess nginx(
      {kNginx, "-c", dir + "/nginx.conf", "-e", dir + "/error.log", "-g", "daemon off;"},
      dir + "/output");
  for (int waited = 0; waited < 10'000 && !ConnectTo(std::stoi(port)).Valid(); waited += 20) {
    ASSERT_TRUE(nginx.Running()) << ReadText(dir + "/output") << ReadText(dir + "/error.log");
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }

  const std::string front = "https://127.0.0.1:" + port;
  ApiClient bob(front + "/webapi/entry.cgi", "127.0.0.77");
  bob.ca_file = dir + "/cert.pem";
  bob.origin = front;
  ASSERT_TRUE(bob.Login(kBob)["success"].asBool()) << ReadText(dir + "/error.log");
  EXPECT_NE(bob.last_cookie.find("; Secure"), std::string::npos) << bob.last_cookie;
  EXPECT_TRUE(bob.Call("QRIX.Test.Open", "echo")["success"].asBool());

  ClearLog();
  HttpCall forged = bob.Post(FormEncode(
      {{"api", "QRIX.API.Auth"}, {"method", "login"}, {"account", "bob"}, {"passwd", "guess"}}));
  forged.headers.push_back("X-Forwarded-For: 192.0.2.9");
  EXPECT_EQ(ParseJson(bob.Send(forged).body), ErrorEnvelope(111));
  EXPECT_TRUE(WaitForLog("login failed for account bob from 127.0.0.77:"));

  // Straight to the host, plain http: not this server's https origin, and no Secure cookie.
  ApiClient direct(server);
  direct.origin = front;
  EXPECT_EQ(direct.Send(direct.Post("")).status, 403);
}

}  // namespace
}  // namespace qrix::test
