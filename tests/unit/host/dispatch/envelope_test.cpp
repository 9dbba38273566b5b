#include "host/dispatch/envelope.h"

#include <gtest/gtest.h>

#include "host/common/json_text.h"

namespace qrix::host {
namespace {

Json::Value Parsed(const std::string& text) {
  Json::Value out;
  EXPECT_TRUE(ParseStrictJson(text, &out)) << text;
  return out;
}

TEST(EnvelopeTest, WhatTheModuleLeftBecomesTheAnswer) {
  Json::Value payload(Json::objectValue);
  payload["ftp_max_conn"] = 3;
  Json::Value details(Json::objectValue);
  details["name"] = "tcp_port";
  details["reason"] = "condition";
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

}  // namespace
}  // namespace qrix::host
