// HTTP below the web API: limits, broken requests, host names, and the web page's files.
#include <sys/stat.h>
#include <unistd.h>

#include <poll.h>
#include <sys/socket.h>

#include <cstring>
#include <filesystem>

#include "tests/api/host_fixture.h"
#include "tests/support/files.h"

namespace qrix::test {
namespace {

std::string StatusLine(const std::string& reply) {
  return reply.substr(0, reply.find("\r\n"));
}

std::string BodyOf(const std::string& reply) {
  const size_t end = reply.find("\r\n\r\n");
  return end == std::string::npos ? std::string() : reply.substr(end + 4);
}

class HttpTest : public HostTest {};

TEST_F(HttpTest, OversizeAndBrokenRequestsAreAnsweredAndTheServerGoesOn) {
  HostServer server({"--read-timeout", "2"});
  const std::string host = "Host: 127.0.0.1:" + std::to_string(server.Port()) + "\r\n";
  const std::string big_form =
      "api=QRIX.Test.Open&version=1&method=echo&pad=" + std::string(70 * 1024, 'x');
  const std::string chunk = std::string(40 * 1024, 'y');
  char chunk_size[16];
  std::snprintf(chunk_size, sizeof chunk_size, "%zx", chunk.size());
  const std::string too_large = "{\"success\":false,\"error\":{\"code\":108}}";
  struct Row {
    const char* label;
    std::string bytes;
    const char* status_line;
    std::string body;  // "" when any body will do
  };
  const Row rows[] = {
      {"body over 64 KiB",
       "POST /webapi/entry.cgi HTTP/1.1\r\n" + host +
           "Content-Type: application/x-www-form-urlencoded\r\nContent-Length: " +
           std::to_string(big_form.size()) + "\r\n\r\n" + big_form,
       "HTTP/1.1 200 OK", too_large},
      {"body over 64 KiB announced with Expect",
       "POST /webapi/entry.cgi HTTP/1.1\r\n" + host + "Expect: 100-continue\r\nContent-Length: " +
           std::to_string(big_form.size()) + "\r\n\r\n",
       "HTTP/1.1 200 OK", too_large},
      {"chunked body growing over 64 KiB",
       "POST /webapi/entry.cgi HTTP/1.1\r\n" + host + "Transfer-Encoding: chunked\r\n\r\n" +
           chunk_size + "\r\n" + chunk + "\r\n" + chunk_size + "\r\n" + chunk + "\r\n0\r\n\r\n",
       "HTTP/1.1 200 OK", too_large},
      {"headers over 8 KiB",
       "GET / HTTP/1.1\r\n" + host + "X-Filler: " + std::string(9000, 'z') + "\r\n\r\n",
       "HTTP/1.1 200 OK", too_large},
      {"not HTTP", "HELLO THERE\r\n\r\n", "HTTP/1.1 400 Bad Request", ""},
      {"bad Content-Length",
       "POST /webapi/entry.cgi HTTP/1.1\r\n" + host + "Content-Length: ten\r\n\r\n",
       "HTTP/1.1 400 Bad Request", ""},
      {"no Host header", "GET / HTTP/1.1\r\n\r\n", "HTTP/1.1 400 Bad Request", ""},
      {"host name of another site", "GET / HTTP/1.1\r\nHost: rebound.example:80\r\n\r\n",
       "HTTP/1.1 421 Misdirected Request", ""},
      {"absolute target", "GET http://127.0.0.1/ HTTP/1.1\r\n" + host + "\r\n",
       "HTTP/1.1 400 Bad Request", ""},
      {"wrong method for the API", "PUT /webapi/entry.cgi HTTP/1.1\r\n" + host + "\r\n",
       "HTTP/1.1 405 Method Not Allowed", ""},
      {"form posted from another site",
       "POST /webapi/entry.cgi HTTP/1.1\r\n" + host +
           "Origin: http://evil.example\r\nContent-Length: 3\r\n\r\na=b",
       "HTTP/1.1 403 Forbidden", ""},
      {"two Host headers", "GET / HTTP/1.1\r\n" + host + host + "\r\n", "HTTP/1.1 400 Bad Request",
       ""},
      {"two Origin headers",
       "POST /webapi/entry.cgi HTTP/1.1\r\n" + host +
           "Origin: http://evil.example\r\nOrigin: http://127.0.0.1\r\nContent-Length: 0\r\n\r\n",
       "HTTP/1.1 400 Bad Request", ""},
      {"a transfer coding other than chunked",
       "POST /webapi/entry.cgi HTTP/1.1\r\n" + host +
           "Transfer-Encoding: gzip, chunked\r\n\r\n0\r\n\r\n",
       "HTTP/1.1 400 Bad Request", ""},
      {"request that never ends",
       "GET / HTTP/1.1\r\n" + host + "X-Slow: ", "HTTP/1.1 408 Request Timeout", ""},
  };
  ApiClient bob(server);
  ASSERT_TRUE(bob.Login(kBob)["success"].asBool());
  for (const Row& row : rows) {
    SCOPED_TRACE(row.label);
    const std::string reply = RawExchange(server.Port(), row.bytes);
    EXPECT_EQ(StatusLine(reply), row.status_line) << reply.substr(0, 200);
    if (!row.body.empty()) {
      EXPECT_EQ(ParseJson(BodyOf(reply)), ParseJson(row.body));
    }
    EXPECT_NE(reply.find("\r\nConnection: close\r\n"), std::string::npos);
    EXPECT_EQ(reply.find("100 Continue"), std::string::npos) << "continued an oversize body";
    EXPECT_TRUE(bob.Call("QRIX.Test.Open", "echo")["success"].asBool())
        << "the server must go on serving";
  }
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
      EXPECT_EQ(StatusLine(reply), "HTTP/1.1 408 Request Timeout");
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
}

TEST_F(HttpTest, AClientLeavingMidRequestBreaksNothing) {
  HostServer server;
  for (const char* half :
       {"", "GET / HTT", "POST /webapi/entry.cgi HTTP/1.1\r\nContent-Length: 9\r\n\r\nap"}) {
    SCOPED_TRACE(half);
    UniqueFd fd = ConnectTo(server.Port());
    ASSERT_TRUE(fd.Valid());
    ::send(fd.Get(), half, std::strlen(half), MSG_NOSIGNAL);
  }
  ApiClient bob(server);
  ASSERT_TRUE(bob.Login(kBob)["success"].asBool());
  EXPECT_TRUE(bob.Call("QRIX.Test.Open", "echo")["success"].asBool());
}

TEST_F(HttpTest, AnAcceptableBodyAnnouncedWithExpectIsContinued) {
  HostServer server;
  ApiClient bob(server);
  ASSERT_TRUE(bob.Login(kBob)["success"].asBool());
  HttpCall call = bob.Post(FormEncode({{"api", "QRIX.Test.Open"},
                                       {"version", "1"},
                                       {"method", "echo"},
                                       {"pad", std::string(30 * 1024, 'p')}}));
  call.headers.push_back("Expect: 100-continue");
  const HttpReply reply = bob.Send(call);
  EXPECT_EQ(reply.status, 200);
  EXPECT_EQ(ParseJson(reply.body)["data"]["params"]["pad"].asString().size(), 30u * 1024);
}

TEST_F(HttpTest, ServesThePageFilesAndNothingOutsideThem) {
  namespace fs = std::filesystem;
  const std::string ui = "/tmp/ui";
  fs::remove_all(ui);
  WriteText(ui + "/index.html", "<p>home</p>");
  WriteText(ui + "/app.js", "let a = 1;");
  WriteText(ui + "/style.css", "p{}");
  WriteText(ui + "/pages/index.html", "<p>pages</p>");
  WriteText(ui + "/.hidden", "secret");
  WriteText(ui + "/pages/.env", "secret");
  WriteText("/tmp/outside.txt", "outside");
  fs::create_symlink("/tmp/outside.txt", ui + "/leak.txt");
  fs::create_symlink("/tmp", ui + "/tmpdir");
  HostServer server({"--ui", ui});
  struct Row {
    const char* path;
    long status;
    const char* content_type;
    const char* body;
  };
  const Row rows[] = {
      {"/", 200, "text/html; charset=utf-8", "<p>home</p>"},
      {"/index.html", 200, "text/html; charset=utf-8", "<p>home</p>"},
      {"/app.js", 200, "text/javascript; charset=utf-8", "let a = 1;"},
      {"/style.css", 200, "text/css; charset=utf-8", "p{}"},
      {"/pages/", 200, "text/html; charset=utf-8", "<p>pages</p>"},
      {"/pages", 200, "text/html; charset=utf-8", "<p>pages</p>"},
      {"/%70ages/index.html", 200, "text/html; charset=utf-8", "<p>pages</p>"},
      {"/missing.html", 404, nullptr, nullptr},
      {"/.hidden", 404, nullptr, nullptr},
      {"/pages/.env", 404, nullptr, nullptr},
      {"/../outside.txt", 404, nullptr, nullptr},
      {"/%2e%2e/outside.txt", 404, nullptr, nullptr},
      {"/pages/%2E%2E/%2E%2E/outside.txt", 404, nullptr, nullptr},
      {"/..%2foutside.txt", 404, nullptr, nullptr},
      {"/leak.txt", 404, nullptr, nullptr},
      {"/tmpdir/outside.txt", 404, nullptr, nullptr},
      {"/app.js%00.html", 404, nullptr, nullptr},
      {"/webapi/", 404, nullptr, nullptr},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.path);
    HttpCall call;
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

  HttpCall head;
  head.method = "HEAD";
  head.url = server.Url("/");
  const HttpReply headed = Perform(head);
  EXPECT_EQ(headed.status, 200);
  EXPECT_EQ(headed.Header("content-length"), "11");
  EXPECT_EQ(headed.body, "");

  HttpCall post;
  post.method = "POST";
  post.url = server.Url("/index.html");
  post.body = "x=1";
  EXPECT_EQ(Perform(post).status, 405);
}

TEST_F(HttpTest, WithoutAPageDirectoryOnlyTheApiAnswers) {
  HostServer server;
  HttpCall call;
  call.url = server.Url("/");
  EXPECT_EQ(Perform(call).status, 404);
}

}  // namespace
}  // namespace qrix::test
