#include "bench/http/http_client.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <thread>

#include "platform/vlibc/unique_fd.h"

namespace qrix::bench {
namespace {

TEST(BuildRequestTest, ClosesTheConnectionAndStatesTheBodyLength) {
  RequestPlan post;
  post.method = "POST";
  post.path = "/webapi/entry.cgi";
  post.host_header = "127.0.0.1:5080";
  post.headers = {"X-QRIX-Token: abc", "Content-Type: application/x-www-form-urlencoded"};
  post.body = "api=A&method=get";
  EXPECT_EQ(BuildRequest(post),
            "POST /webapi/entry.cgi HTTP/1.1\r\nHost: 127.0.0.1:5080\r\nConnection: close\r\n"
            "X-QRIX-Token: abc\r\nContent-Type: application/x-www-form-urlencoded\r\n"
            "Content-Length: 16\r\n\r\napi=A&method=get");

  RequestPlan get;
  get.path = "/api";
  get.host_header = "127.0.0.1:1";
  EXPECT_EQ(BuildRequest(get),
            "GET /api HTTP/1.1\r\nHost: 127.0.0.1:1\r\nConnection: close\r\n\r\n");
}

TEST(ParseAnswerTest, Responses) {
  const struct {
    const char* name;
    std::string raw;
    bool parsed;
    int status;
    std::string body;
    bool delimited;
  } rows[] = {
      {"length", "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello", true, 200, "hello", true},
      {"length, lower case", "HTTP/1.1 200 OK\r\ncontent-length:  2\r\n\r\nhi", true, 200, "hi",
       true},
      {"length not all in", "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhel", false, 0, "", false},
      {"more than the length", "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nhiXX", true, 200, "hi",
       true},
      {"no length: up to the close", "HTTP/1.0 200 OK\r\nServer: x\r\n\r\nall of it", true, 200,
       "all of it", false},
      {"chunked",
       "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n2\r\nde\r\n0\r\n\r\n",
       true, 200, "abcde", true},
      {"chunked, cut short", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nab", false,
       0, "", false},
      {"status 409", "HTTP/1.1 409 Conflict\r\nContent-Length: 0\r\n\r\n", true, 409, "", true},
      {"head not finished", "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n", false, 0, "", false},
      {"not HTTP", "SSH-2.0-x\r\n\r\n", false, 0, "", false},
      {"bad status", "HTTP/1.1 2x0 OK\r\n\r\n", false, 0, "", false},
  };
  for (const auto& row : rows) {
    Answer a;
    EXPECT_EQ(ParseAnswer(row.raw, &a), row.parsed) << row.name;
    if (row.parsed) {
      EXPECT_EQ(a.status, row.status) << row.name;
      EXPECT_EQ(a.body, row.body) << row.name;
      EXPECT_EQ(a.delimited, row.delimited) << row.name;
    }
  }
}

// A one-shot server on 127.0.0.1: reads the request head, writes `answer`, then closes at once
// or holds the connection open for a while, as servers that ignore "Connection: close" do.
class OneShotServer {
 public:
  OneShotServer(std::string answer, bool hold_open) {
    listen_.Reset(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    addr_.sin_family = AF_INET;
    addr_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof addr_;
    if (::bind(listen_.Get(), reinterpret_cast<sockaddr*>(&addr_), len) != 0 ||
        ::listen(listen_.Get(), 1) != 0 ||
        ::getsockname(listen_.Get(), reinterpret_cast<sockaddr*>(&addr_), &len) != 0) {
      ADD_FAILURE() << "cannot listen on loopback";
      return;
    }
    thread_ = std::thread([this, answer = std::move(answer), hold_open] {
      UniqueFd conn(::accept4(listen_.Get(), nullptr, nullptr, SOCK_CLOEXEC));
      std::string head;
      char buf[4096];
      while (head.find("\r\n\r\n") == std::string::npos) {
        const ssize_t n = ::recv(conn.Get(), buf, sizeof buf, 0);
        if (n <= 0) {
          return;
        }
        head.append(buf, static_cast<size_t>(n));
      }
      ::send(conn.Get(), answer.data(), answer.size(), MSG_NOSIGNAL);
      // Held open until the client hangs up, or far longer than a complete answer needs.
      for (int i = 0; hold_open && i < 300; ++i) {
        const ssize_t n = ::recv(conn.Get(), buf, sizeof buf, MSG_DONTWAIT);
        if (n == 0 || (n < 0 && errno != EAGAIN)) {
          break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
      }
    });
  }
  ~OneShotServer() {
    if (thread_.joinable()) {
      thread_.join();
    }
  }
  const sockaddr_in& Addr() const { return addr_; }

 private:
  UniqueFd listen_;
  sockaddr_in addr_{};
  std::thread thread_;
};

TEST(RunExchangeTest, JudgesAnswers) {
  const std::string ok_json = "HTTP/1.1 200 OK\r\nContent-Length: 16\r\n\r\n{\"success\":true}";
  const struct {
    const char* name;
    std::string answer;
    bool hold_open;
    const char* expect;
    bool ok;
    const char* error;
  } rows[] = {
      {"closed after the answer", ok_json, false, "\"success\":true", true, ""},
      {"kept open after a stated length", ok_json, true, "\"success\":true", true, ""},
      {"no length, closed", "HTTP/1.0 200 OK\r\n\r\n{\"success\":true}", false, "success", true,
       ""},
      {"expected text missing", ok_json, false, "\"result\"", false, "body without"},
      {"wrong status", "HTTP/1.1 409 Conflict\r\nContent-Length: 0\r\n\r\n", false, "", false,
       "status 409"},
      {"cut short", "HTTP/1.1 200 OK\r\nContent-Length: 99\r\n\r\nabc", false, "", false,
       "not a complete HTTP response"},
  };
  for (const auto& row : rows) {
    OneShotServer server(row.answer, row.hold_open);
    const auto t0 = std::chrono::steady_clock::now();
    const Exchange e =
        RunExchange(server.Addr(), "GET / HTTP/1.1\r\nHost: x\r\n\r\n", row.expect, 5000);
    const auto took = std::chrono::steady_clock::now() - t0;
    EXPECT_EQ(e.ok, row.ok) << row.name << ": " << e.error;
    EXPECT_NE(e.error.find(row.error), std::string::npos) << row.name << ": " << e.error;
    // A complete answer ends the exchange; waiting for the server's close would take 3 s.
    EXPECT_LT(took, std::chrono::seconds(2)) << row.name;
  }
}

TEST(RunExchangeTest, NobodyListening) {
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  {
    // A port that was free a moment ago.
    UniqueFd probe(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    socklen_t len = sizeof addr;
    ASSERT_EQ(::bind(probe.Get(), reinterpret_cast<sockaddr*>(&addr), len), 0);
    ASSERT_EQ(::getsockname(probe.Get(), reinterpret_cast<sockaddr*>(&addr), &len), 0);
  }
  const Exchange e = RunExchange(addr, "GET / HTTP/1.1\r\n\r\n", "", 1000);
  EXPECT_FALSE(e.ok);
  EXPECT_NE(e.error.find("connect"), std::string::npos) << e.error;
}

}  // namespace
}  // namespace qrix::bench
