#include "host/dispatch/request.h"

#include <gtest/gtest.h>

namespace qrix::host {
namespace {

HttpRequest Http(std::string target, std::string content_type, std::string body) {
  HttpRequest r;
  r.method = "POST";
  r.target = kEntryPath + std::move(target);
  if (!content_type.empty()) {
    r.headers.emplace_back("content-type", std::move(content_type));
  }
  r.body = std::move(body);
  return r;
}

// Form, query and JSON carriers and their refusals are driven over HTTP by the dispatch tests;
// here the multipart shapes a browser's upload can take.
TEST(RequestTest, RefusesBodiesThatAreNoCall) {
  struct Row {
    const char* content_type;
    const char* body;
    CallParse result;
  };
  const Row rows[] = {
      {"", "api=A", CallParse::kUnsupportedMediaType},
      // Cut short, a part without a name, two files for one parameter, no boundary.
      {"multipart/form-data; boundary=x", "--x", CallParse::kUnreadable},
      {"multipart/form-data; boundary=x",
       "--x\r\nContent-Disposition: form-data; name=a\r\n\r\n1\r\n--", CallParse::kUnreadable},
      {"multipart/form-data; boundary=x", "--x\r\nContent-Disposition: form-data\r\n\r\n1\r\n--x--",
       CallParse::kUnreadable},
      {"multipart/form-data; boundary=x",
       "--x\r\nContent-Disposition: form-data; name=f; filename=a\r\n\r\n1\r\n"
       "--x\r\nContent-Disposition: form-data; name=f; filename=b\r\n\r\n2\r\n--x--",
       CallParse::kUnreadable},
      {"multipart/form-data", "--x\r\n", CallParse::kUnreadable},
      {"text/plain", "", CallParse::kOk},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(DecodeRequest(Http("", row.content_type, row.body)).call_parse, row.result)
        << row.content_type << " " << row.body;
  }
}

TEST(RequestTest, UploadedFilesStayApartFromParameters) {
  const ApiCall call =
      DecodeRequest(Http("", "multipart/form-data; boundary=x",
                         "--x\r\nContent-Disposition: form-data; name=\"f\"; filename=\"p.json\""
                         "\r\nContent-Type: application/json\r\n\r\n{\"a\":\r\n1}\r\n--x--\r\n"))
          .call;
  EXPECT_EQ(call.files, (std::map<std::string, std::string>{{"f", "{\"a\":\r\n1}"}}));
  EXPECT_FALSE(call.params.isMember("f"));
}

TEST(RequestTest, TextParametersKeepWhatWasSent) {
  const ApiCall call = DecodeRequest(Http("", "application/x-www-form-urlencoded",
                                          "a=123456&b=%22quoted%22&c=true&d=plain&e=1e3"))
                           .call;
  EXPECT_EQ(call.Text("a"), "123456");
  EXPECT_EQ(call.Text("b"), "quoted");
  EXPECT_EQ(call.Text("c"), "true");
  EXPECT_EQ(call.Text("d"), "plain");
  EXPECT_EQ(call.Text("e"), "1e3");
  EXPECT_EQ(call.Text("missing"), std::nullopt);

  const ApiCall json =
      DecodeRequest(Http("", "application/json", R"({"params":{"a":"x","n":5}})")).call;
  EXPECT_EQ(json.Text("a"), "x");
  EXPECT_EQ(json.Text("n"), std::nullopt) << "a JSON number is no text";
}

// Everything later steps read comes out of the one decode: the session cookie among others,
// the token, the language; the page's files get no call decoded at all.
TEST(RequestTest, DecodesWhoAsksAndWhereTo) {
  HttpRequest http = Http("?api=A", "", "");
  http.peer = "192.0.2.7";
  http.headers = {{"host", "nas:5080"},
                  {"origin", "http://nas:5080"},
                  {"cookie", "a=1; qrix_sid=\"abc\"; lang=fra"},
                  {"x-qrix-token", "tok"}};
  const Request request = DecodeRequest(http);
  EXPECT_TRUE(request.ForTheApi());
  EXPECT_EQ(request.peer, "192.0.2.7");
  EXPECT_EQ(request.host, "nas:5080");
  EXPECT_EQ(request.origin, "http://nas:5080");
  EXPECT_EQ(request.session_id, "abc");
  EXPECT_EQ(request.token, "tok");
  EXPECT_EQ(request.language, "fra");
  EXPECT_EQ(request.call.api, "A");

  http.target = "/index.html?api=A";
  http.headers.clear();
  const Request page = DecodeRequest(http);
  EXPECT_FALSE(page.ForTheApi());
  EXPECT_EQ(page.path, "/index.html");
  EXPECT_EQ(page.call.api, "");
  EXPECT_EQ(page.host, std::nullopt);
  EXPECT_EQ(page.session_id, std::nullopt);
  EXPECT_EQ(page.language, "enu");
}

// Only the TLS front on this machine may say which scheme and client a request came with; its
// word is the last X-Forwarded-For entry (what came before is the client's own claim).
TEST(RequestTest, BelievesForwardingOnlyFromLoopbackBehindAProxy) {
  using Headers = std::vector<std::pair<std::string, std::string>>;
  const Headers front = {{"x-forwarded-proto", "HTTPS"}, {"x-forwarded-for", "192.0.2.7"}};
  struct Row {
    const char* label;
    bool behind_proxy;
    const char* peer;
    Headers headers;
    const char* scheme;
    const char* client;
    bool proxied;
    bool bad;
  };
  const Row rows[] = {
      {"not behind a proxy", false, "127.0.0.1", front, "http", "127.0.0.1", false, false},
      {"from loopback", true, "127.0.0.1", front, "https", "192.0.2.7", true, false},
      {"from another loopback address", true, "127.1.2.3", front, "https", "192.0.2.7", true,
       false},
      {"from IPv6 loopback", true, "::1", front, "https", "192.0.2.7", true, false},
      {"from mapped loopback", true, "::ffff:127.0.0.1", front, "https", "192.0.2.7", true, false},
      {"from another machine", true, "192.0.2.50", front, "http", "192.0.2.50", false, false},
      {"from a mapped other machine", true, "::ffff:192.0.2.50", front, "http", "::ffff:192.0.2.50",
       false, false},
      {"the client's claim first",
       true,
       "127.0.0.1",
       {{"x-forwarded-for", "10.0.0.1, 2001:db8::1 "}},
       "http",
       "2001:db8::1",
       true,
       false},
      {"a local client without them", true, "127.0.0.1", {}, "http", "127.0.0.1", false, false},
      {"unknown scheme",
       true,
       "127.0.0.1",
       {{"x-forwarded-proto", "gopher"}},
       "http",
       "127.0.0.1",
       true,
       true},
      {"not an address",
       true,
       "127.0.0.1",
       {{"x-forwarded-for", "nas.example"}},
       "http",
       "127.0.0.1",
       true,
       true},
      {"empty", true, "127.0.0.1", {{"x-forwarded-for", ""}}, "http", "127.0.0.1", true, true},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.label);
    HttpRequest http = Http("", "", "");
    http.peer = row.peer;
    http.headers = row.headers;
    const Request request = DecodeRequest(http, row.behind_proxy);
    EXPECT_EQ(request.bad_forwarding, row.bad);
    if (!row.bad) {
      EXPECT_EQ(request.scheme, row.scheme);
      EXPECT_EQ(request.peer, row.client);
      EXPECT_EQ(request.proxied, row.proxied);
    }
  }
}

TEST(RequestTest, VersionNumbers) {
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
