// Decoding a request into a call, and the answer's envelope.
#include "host/dispatch/envelope.h"
#include "host/dispatch/request.h"

#include <gtest/gtest.h>

#include <tuple>

#include "host/common/json_text.h"

namespace qrix::host {
namespace {

Json::Value Parsed(const std::string& text) {
  Json::Value out;
  EXPECT_TRUE(ParseStrictJson(text, &out)) << text;
  return out;
}

TEST(EnvelopeTest, WhatTheModuleLeftBecomesTheAnswer) {
  const Json::Value payload = Parsed(R"({"ftp_max_conn":3})");
  const Json::Value details = Parsed(R"({"name":"tcp_port","reason":"condition"})");
  struct Row {
    const char* label;
    void (*fill)(QRIX::APIResponse&, const Json::Value&, const Json::Value&);
    const char* expected;
  };
  const Row rows[] = {
      {"success with data", [](auto& r, const auto& p, const auto&) { r.SetSuccess(p); },
       R"({"success":true,"data":{"ftp_max_conn":3}})"},
      {"success without data", [](auto& r, const auto&, const auto&) { r.SetSuccess(); },
       R"({"success":true})"},
      {"parameter error", [](auto& r, const auto&, const auto& d) { r.SetError(120, d); },
       R"({"success":false,"error":{"code":120},"errors":{"name":"tcp_port","reason":"condition"}})"},
      {"plain error", [](auto& r, const auto&, const auto&) { r.SetError(506); },
       R"({"success":false,"error":{"code":506}})"},
      {"error after success",
       [](auto& r, const auto& p, const auto&) {
         r.SetSuccess(p);
         r.SetError(505);
       },
       R"({"success":false,"error":{"code":505}})"},
      {"nothing", [](auto&, const auto&, const auto&) {},
       R"({"success":false,"error":{"code":100}})"},
  };
  for (const Row& row : rows) {
    QRIX::APIResponse response;
    row.fill(response, payload, details);
    EXPECT_EQ(Parsed(ModuleResponseBody(response)), Parsed(row.expected)) << row.label;
  }
}

TEST(EnvelopeTest, TextIsCompactAndKeepsUtf8) {
  Json::Value data(Json::objectValue);
  data["name"] = "\xc3\xa9t\xc3\xa9";
  EXPECT_EQ(SuccessBody(data), "{\"data\":{\"name\":\"\xc3\xa9t\xc3\xa9\"},\"success\":true}");
}

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
  std::string texts;  // "-" for none
  for (const char* name : {"a", "b", "c", "d", "e", "missing"}) {
    texts += call.Text(name).value_or("-") + "|";
  }
  EXPECT_EQ(texts, "123456|quoted|true|plain|1e3|-|");
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
  EXPECT_EQ(std::tie(request.peer, request.host, request.origin, request.session_id, request.token,
                     request.language, request.call.api),
            std::make_tuple("192.0.2.7", "nas:5080", "http://nas:5080", "abc", "tok", "fra", "A"));

  http.target = "/index.html?api=A";
  http.headers.clear();
  const Request page = DecodeRequest(http);
  EXPECT_FALSE(page.ForTheApi());
  EXPECT_EQ(std::tie(page.path, page.call.api, page.host, page.session_id, page.language),
            std::make_tuple("/index.html", "", std::nullopt, std::nullopt, "enu"));
}

// Only the TLS front on this machine may say which scheme and client a request came with; its
// word is the last X-Forwarded-For entry (what came before is the client's own claim).
TEST(RequestTest, BelievesForwardingOnlyFromLoopbackBehindAProxy) {
  struct Row {
    bool behind_proxy;
    const char* peer;
    const char* proto;  // X-Forwarded-Proto and X-Forwarded-For; null: no header
    const char* forwarded_for;
    const char* scheme;  // null: refused as bad forwarding
    const char* client;
    bool proxied;
  };
  const Row rows[] = {
      {false, "127.0.0.1", "HTTPS", "192.0.2.7", "http", "127.0.0.1", false},
      {true, "127.0.0.1", "HTTPS", "192.0.2.7", "https", "192.0.2.7", true},
      {true, "127.1.2.3", "HTTPS", "192.0.2.7", "https", "192.0.2.7", true},
      {true, "::1", "HTTPS", "192.0.2.7", "https", "192.0.2.7", true},
      {true, "::ffff:127.0.0.1", "HTTPS", "192.0.2.7", "https", "192.0.2.7", true},
      {true, "192.0.2.50", "HTTPS", "192.0.2.7", "http", "192.0.2.50", false},
      {true, "127.0.0.1", nullptr, "10.0.0.1, 2001:db8::1 ", "http", "2001:db8::1", true},
      {true, "127.0.0.1", nullptr, nullptr, "http", "127.0.0.1", false},
      {true, "127.0.0.1", "gopher", nullptr, nullptr, nullptr, false},
      {true, "127.0.0.1", nullptr, "nas.example", nullptr, nullptr, false},
      {true, "127.0.0.1", nullptr, "", nullptr, nullptr, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.peer) + " " + (row.proto ? row.proto : "-") + " " +
                 (row.forwarded_for ? row.forwarded_for : "-"));
    HttpRequest http = Http("", "", "");
    http.peer = row.peer;
    if (row.proto != nullptr) {
      http.headers.emplace_back("x-forwarded-proto", row.proto);
    }
    if (row.forwarded_for != nullptr) {
      http.headers.emplace_back("x-forwarded-for", row.forwarded_for);
    }
    const Request request = DecodeRequest(http, row.behind_proxy);
    ASSERT_EQ(request.bad_forwarding, row.scheme == nullptr);
    if (row.scheme != nullptr) {
      EXPECT_EQ(std::tie(request.scheme, request.peer, request.proxied),
                std::make_tuple(row.scheme, row.client, row.proxied));
    }
  }
}

TEST(RequestTest, VersionNumbers) {
  std::vector<std::optional<int>> got;
  for (const Json::Value& v :
       {Json::Value(1), Json::Value(2.0), Json::Value("3"), Json::Value(""), Json::Value("-1"),
        Json::Value("1x"), Json::Value(1.5), Json::Value(true), Json::Value()}) {
    got.push_back(VersionNumber(v));
  }
  EXPECT_EQ(got, (std::vector<std::optional<int>>{1, 2, 3, std::nullopt, std::nullopt, std::nullopt,
                                                  std::nullopt, std::nullopt, std::nullopt}));
}

}  // namespace
}  // namespace qrix::host
