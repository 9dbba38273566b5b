// The two tables name the same methods, and the check table's rules, each kind once rather than
// each method's row again: presence, type, range ends, word lists, volumes, which error of a
// request wins, and methods that take no parameters. The typed getters' own rules are the
// platform's tests.
#include "module/setting.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/webapi/api_request.h"
#include "platform/webapi/api_response.h"
#include "platform/webapi/api_validator.h"

namespace {

// "ok", or the refused parameter and the reason: "name/reason".
std::string Check(const std::string& api, const std::string& method, const char* params) {
  const std::string full = "QRIX.Haulport2.Setting." + api;
  const QRIX::APICheckTableEntry* row = GetAPICheckTable();
  while (row->api != nullptr && (full != row->api || method != row->method)) {
    ++row;
  }
  if (row->api == nullptr) {
    return "no check row";
  }
  QRIX::APIRequest request(full, 1, method, QRIX::WebAPIUtil::ParseJson(params));
  QRIX::APIResponse response;
  if (row->check(&request, &response)) {
    return response.GetState() == QRIX::APIResponse::State::kNone ? "ok" : "answered";
  }
  const Json::Value& error = response.GetData();
  return (response.GetErrorCode() == 120 && error.size() == 2 ? "" : "bad error ") +
         error["name"].asString() + "/" + error["reason"].asString();
}

// Each method of the API table has its check row; the check table may list methods this
// build does not answer yet, never the other way round.
TEST(CheckTableTest, EveryMethodOfTheApiTableIsChecked) {
  int rows = 0;
  for (const QRIX::APITableEntry* api = GetAPITable(); api->api != nullptr; ++api, ++rows) {
    const QRIX::APICheckTableEntry* check = GetAPICheckTable();
    while (check->api != nullptr &&
           (std::string(check->api) != api->api || std::string(check->method) != api->method ||
            check->version != api->version)) {
      ++check;
    }
    EXPECT_TRUE(check->api != nullptr && check->check != nullptr && api->entry != nullptr)
        << api->api << " v" << api->version << " " << api->method;
  }
  EXPECT_GT(rows, 0);
}

TEST(CheckTableTest, EachRuleOfEachMethod) {
  const struct {
    const char* api;
    const char* method;
    const char* params;
    const char* want;
  } cases[] = {
      // Range ends, inclusive.
      {"BT", "set", R"({"max_peer": 4})", "max_peer/condition"},
      {"BT", "set", R"({"max_peer": 5, "tcp_port": 1, "dht_port": 65535})", "ok"},
      {"BT", "set", R"({"max_peer": 10000})", "ok"},
      {"BT", "set", R"({"max_peer": 10001})", "max_peer/condition"},
      // Word lists: exact, never another case.
      {"BT", "set", R"({"encrypt": "disable"})", "ok"},
      {"BT", "set", R"({"encrypt": "Auto"})", "encrypt/condition"},
      // A volume: exactly one of the sandbox's mount points.
      {"Global", "set", R"({"download_volume": "/volume2"})", "ok"},
      {"Global", "set", R"({"download_volume": "/volumeUSB1/usbshare1-1"})", "ok"},
      {"Global", "set", R"({"download_volume": ""})", "download_volume/condition"},
      {"Global", "set", R"({"download_volume": "/volume2/"})", "download_volume/condition"},
      {"Global", "set", R"({"download_volume": "../volume2"})", "download_volume/condition"},
      {"Global", "set", R"({"download_volume": "/volume9"})", "download_volume/condition"},
      {"Global", "set", R"({"download_volume": "/volumeUSB1"})", "download_volume/condition"},
      {"Global", "set", R"({"download_volume": "/volume1\u0000"})", "download_volume/type"},
      {"Global", "set", R"({"download_volume": 2})", "download_volume/type"},
      // Types, one of each kind; a NUL makes a string the wrong type.
      {"Nzb", "set", R"({"server": "a\u0000b"})", "server/type"},
      {"Scheduler", "set", R"({"schedule": 5})", "schedule/type"},
      {"Scheduler", "set", R"({"max_tasks": "5"})", "max_tasks/type"},
      {"Location", "set", R"({"enable_torrent_nzb_watch": 1})", "enable_torrent_nzb_watch/type"},
      {"Emule", "set", R"({"share_folders": ["a", "b"]})", "ok"},
      {"Emule", "set", R"({"share_folders": ["a", 3]})", "share_folders/type"},
      {"Emule", "set", R"({"share_folders": ["a\u0000"]})", "share_folders/type"},
      {"BTSearch", "delete", R"({"plugin_names": "a"})", "plugin_names/type"},
      // Required parameters.
      {"BTSearch", "set", "{}", "plugin_name/required"},
      {"BTSearch", "set", R"({"plugin_name": "p", "username": "u"})", "password/required"},
      {"BTSearch", "set", R"({"plugin_name": "p", "username": "u", "password": ""})", "ok"},
      {"BTSearch", "delete", R"({"plugin_names": []})", "ok"},
      // The first error in fetch order wins, and every type error outranks every range error.
      {"BT", "set", R"({"tcp_port": 0, "encrypt": 3})", "encrypt/type"},
      {"BT", "set", R"({"dht_port": 0, "max_peer": 4})", "max_peer/condition"},
      {"BT", "set", R"({"seeding_ratio": "x", "enable_preview": 1})", "enable_preview/type"},
      {"BT", "set", R"({"tcp_port": 80, "nonsense": [1]})", "ok"},
      {"BTSearch", "set", R"({"username": 1})", "plugin_name/required"},
      {"BTSearch", "set", R"({"plugin_name": 1})", "plugin_name/type"},
      // Methods without parameters accept whatever is sent.
      {"Global", "read_progress", R"({"running": 0, "x": [1]})", "ok"},
      {"Emule.Location", "get", R"({"share_folders": [1]})", "ok"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Check(c.api, c.method, c.params), c.want)
        << c.api << " " << c.method << " " << c.params;
  }
}

}  // namespace
