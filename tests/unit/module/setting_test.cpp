// The module frame: the two exported tables and every parameter check. The parameter lists
// below are this test's own transcription of the API's parameters, so a slip in either copy
// shows up as a failure.
#include "module/setting.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <map>

#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "platform/webapi/api_request.h"
#include "platform/webapi/api_response.h"
#include "platform/webapi/api_validator.h"

namespace {

const std::string kPrefix = "QRIX.Haulport2.Setting.";

// The check table's rows, in its fixed order.
const std::vector<std::pair<std::string, std::string>> kCheckOrder = {
    {"Emule.Location", "set"}, {"Emule.Location", "get"}, {"Scheduler", "set"},
    {"Scheduler", "get"},      {"Location", "set"},       {"Location", "get"},
    {"FtpHttp", "set"},        {"FtpHttp", "get"},        {"BT", "set"},
    {"BT", "get"},             {"Emule", "set"},          {"Emule", "get"},
    {"Global", "read_progress"}, {"Global", "set"},       {"Global", "get"},
    {"BTSearch", "set"},       {"BTSearch", "get"},       {"BTSearch", "verify"},
    {"BTSearch", "create"},    {"BTSearch", "list"},      {"BTSearch", "update"},
    {"BTSearch", "update_check"}, {"BTSearch", "delete"}, {"Rss", "set"},
    {"Rss", "get"},            {"Nzb", "set"},            {"Nzb", "get"},
};

// The API table's rows, in its fixed order; a build may list only some of them.
const std::vector<std::pair<std::string, std::string>> kApiOrder = {
    {"Global", "get"}, {"Global", "set"}, {"Global", "read_progress"}, {"BT", "get"},
    {"BT", "set"}, {"BTSearch", "get"}, {"BTSearch", "set"}, {"BTSearch", "verify"},
    {"BTSearch", "list"}, {"BTSearch", "create"}, {"BTSearch", "delete"},
    {"BTSearch", "update_check"}, {"BTSearch", "update"}, {"Emule", "get"}, {"Emule", "set"},
    {"Emule.Location", "get"}, {"Emule.Location", "set"}, {"Rss", "get"}, {"Rss", "set"},
    {"Nzb", "get"}, {"Nzb", "set"}, {"Scheduler", "get"}, {"Scheduler", "set"},
    {"Location", "get"}, {"Location", "set"}, {"FtpHttp", "get"}, {"FtpHttp", "set"},
};

TEST(SettingTest, CheckTableListsEveryMethodInItsOrder) {
  const QRIX::APICheckTableEntry* row = GetAPICheckTable();
  for (const auto& [api, method] : kCheckOrder) {
    ASSERT_NE(row->api, nullptr) << api << " " << method;
    EXPECT_EQ(row->api, kPrefix + api);
    EXPECT_EQ(row->method, method);
    EXPECT_EQ(row->version, 1);
    EXPECT_NE(row->check, nullptr);
    EXPECT_EQ(row->reserved1, 0);
    EXPECT_EQ(row->reserved2, 0);
    ++row;
  }
  EXPECT_EQ(row->api, nullptr);
  EXPECT_EQ(row->method, nullptr);
  EXPECT_EQ(row->check, nullptr);
  EXPECT_EQ(row->version, 0);
}

TEST(SettingTest, ApiTableRowsFollowTheFixedOrderAndAreChecked) {
  EXPECT_EQ(GetAPITable(), gTable);
  std::set<std::pair<std::string, std::string>> checked(kCheckOrder.begin(), kCheckOrder.end());
  size_t next = 0;
  int rows = 0;
  for (const QRIX::APITableEntry* row = GetAPITable(); row->api != nullptr; ++row, ++rows) {
    const std::string api = std::string(row->api).substr(kPrefix.size());
    EXPECT_EQ(std::string(row->api).substr(0, kPrefix.size()), kPrefix);
    EXPECT_EQ(row->version, 1);
    EXPECT_NE(row->entry, nullptr);
    EXPECT_EQ(checked.count({api, row->method}), 1u) << api << " " << row->method;
    while (next < kApiOrder.size() && kApiOrder[next] != std::pair<std::string, std::string>(
                                                             api, row->method)) {
      ++next;
    }
    EXPECT_LT(next, kApiOrder.size()) << "out of order: " << api << " " << row->method;
  }
  EXPECT_LE(rows, 27);
  EXPECT_GE(rows, 2);
}

// Each row's entry function is exported under its own plain name, and so are the tables.
TEST(SettingTest, EntryFunctionsAreExportedUnderTheirNames) {
  const std::map<std::pair<std::string, std::string>, std::string> names = {
      {{"Global", "get"}, "GetGlobalSetting"},
      {{"Global", "set"}, "SetGlobalSetting"},
      {{"Global", "read_progress"}, "ReadVolumeMoveProgress"},
      {{"BT", "get"}, "GetBTSetting"},
      {{"BT", "set"}, "SetBTSetting"},
      {{"BTSearch", "get"}, "GetBTSearchAccount"},
      {{"BTSearch", "set"}, "SetBTSearchAccount"},
      {{"BTSearch", "verify"}, "VerifyBTSearchAccount"},
      {{"BTSearch", "list"}, "ListBTSearch"},
      {{"BTSearch", "create"}, "CreateBTSearch"},
      {{"BTSearch", "delete"}, "DeleteBTSearch"},
      {{"BTSearch", "update_check"}, "BTSearchUpdateCheck"},
      {{"BTSearch", "update"}, "UpdateBTSearch"},
      {{"Emule", "get"}, "GetEmuleSetting"},
      {{"Emule", "set"}, "SetEmuleSetting"},
      {{"Emule.Location", "get"}, "GetEmuleLocation"},
      {{"Emule.Location", "set"}, "SetEmuleLocation"},
      {{"Rss", "get"}, "GetRssSetting"},
      {{"Rss", "set"}, "SetRssSetting"},
      {{"Nzb", "get"}, "GetNzbSetting"},
      {{"Nzb", "set"}, "SetNzbSetting"},
      {{"Scheduler", "get"}, "GetSchedulerSetting"},
      {{"Scheduler", "set"}, "SetSchedulerSetting"},
      {{"Location", "get"}, "GetLocationSetting"},
      {{"Location", "set"}, "SetLocationSetting"},
      {{"FtpHttp", "get"}, "GetFtpHttpSetting"},
      {{"FtpHttp", "set"}, "SetFtpHttpSetting"},
  };
  for (const QRIX::APITableEntry* row = GetAPITable(); row->api != nullptr; ++row) {
    const std::string api = std::string(row->api).substr(kPrefix.size());
    SCOPED_TRACE(api + " " + row->method);
    Dl_info info{};
    ASSERT_NE(dladdr(reinterpret_cast<void*>(row->entry), &info), 0);
    ASSERT_NE(info.dli_sname, nullptr);
    EXPECT_EQ(info.dli_saddr, reinterpret_cast<void*>(row->entry));
    EXPECT_EQ(info.dli_sname, names.at({api, row->method}));
  }
  void* self = dlopen(nullptr, RTLD_NOW);
  for (const char* symbol : {"GetAPITable", "GetAPICheckTable", "gTable", "gDefaultSchedule"}) {
    EXPECT_NE(dlsym(self, symbol), nullptr) << symbol;
  }
}

TEST(SettingTest, DefaultScheduleIsEveryHourOfTheWeek) {
  EXPECT_EQ(std::string(gDefaultSchedule), std::string(168, '1'));
}

// ---- parameter checks ----

enum Type { kStr, kInt, kBool, kArr };

struct Param {
  const char* name;
  Type type;
  bool required = false;
  bool ranged = false;
  int min = 0;
  int max = 0;
  std::vector<std::string> one_of = {};
};

struct Method {
  const char* api;
  const char* method;
  std::vector<Param> params;
};

Param Str(const char* n, bool req = false) { return {n, kStr, req}; }
Param Int(const char* n) { return {n, kInt}; }
Param Bool(const char* n) { return {n, kBool}; }
Param Range(const char* n, int min, int max) { return {n, kInt, false, true, min, max}; }
Param Enum(const char* n, std::vector<std::string> words) {
  return {n, kStr, false, false, 0, 0, std::move(words)};
}
Param Arr(const char* n, bool req) { return {n, kArr, req}; }

const std::vector<Method>& Methods() {
  static const std::vector<Method> methods = {
      {"Emule.Location", "set", {Str("default_destination")}},
      {"Scheduler",
       "set",
       {Str("schedule"), Bool("enable_schedule"), Int("download_rate"), Int("upload_rate"),
        Str("order"), Int("max_tasks")}},
      {"Location",
       "set",
       {Bool("enable_delete_torrent_nzb_watch"), Str("default_destination"),
        Bool("enable_torrent_nzb_watch"), Str("torrent_nzb_watch_folder")}},
      {"FtpHttp",
       "set",
       {Range("ftp_max_conn", 1, 65535), Bool("enable_ftp_max_conn"),
        Int("ftp_http_max_download_rate")}},
      {"BT",
       "set",
       {Bool("enable_preview"), Bool("enable_port_forwarding"), Range("tcp_port", 1, 65535),
        Int("max_upload_rate"), Int("max_download_rate"),
        Enum("encrypt", {"auto", "always", "disable"}), Range("max_peer", 5, 10000),
        Bool("enable_dht"), Range("dht_port", 1, 65535), Int("seeding_ratio"),
        Int("seeding_interval"), Bool("enable_seeding_auto_remove")}},
      {"Emule",
       "set",
       {Arr("share_folders", false), Str("schedule"), Bool("enable_server_update"),
        Bool("enable_server_auto_connect"), Bool("enable_schedule"),
        Bool("enable_outgoing_obfuscation"), Bool("enable_obfuscation_only"),
        Bool("enable_obfuscation"), Int("upload_rate"), Range("udp_port", 1, 65535),
        Range("tcp_port", 1, 65535), Enum("port_type", {"default_port", "manual_port"}),
        Range("max_conn", 100, 500), Int("download_rate"), Int("schedule_upload_rate"),
        Int("schedule_download_rate")}},
      {"Global",
       "set",
       {Str("xunlei_password"), Str("xunlei_username"), Bool("enable_unzip_service"),
        Bool("enable_xunlei"), Bool("enable_emule"),
        // The sandbox's volumes: only a mount point of one passes.
        Enum("download_volume", {"/volume1", "/volume2", "/volumeUSB1/usbshare1-1"})}},
      {"BTSearch",
       "set",
       {Str("plugin_name", true), Str("username", true), Str("password", true)}},
      {"BTSearch", "get", {Str("plugin_name", true)}},
      {"BTSearch",
       "verify",
       {Str("plugin_name", true), Str("username", true), Str("password", false)}},
      {"BTSearch", "create", {Str("btsearch_plugin", true)}},
      {"BTSearch", "update", {Arr("plugin_names", true)}},
      {"BTSearch", "delete", {Arr("plugin_names", true)}},
      {"Rss", "set", {Range("update_interval", 1, 1440)}},
      {"Nzb",
       "set",
       {Str("username"), Str("server"), Range("port", 1, 65535), Str("password"),
        Int("max_download_rate"), Bool("enable_remove_parfiles"), Bool("enable_parchive"),
        Bool("enable_encryption"), Bool("enable_auth"), Int("conn_per_download")}},
  };
  return methods;
}

Json::Value Good(const Param& p) {
  switch (p.type) {
    case kStr:
      return p.one_of.empty() ? Json::Value("text") : Json::Value(p.one_of.front());
    case kInt:
      return p.ranged ? p.min : 1;
    case kBool:
      return true;
    case kArr:
      return Json::Value(Json::arrayValue);
  }
  return {};
}

Json::Value Bad(const Param& p) {
  switch (p.type) {
    case kStr:
      return 5;
    case kInt:
      return "5";
    case kBool:
      return 1;
    case kArr:
      return "a";
  }
  return {};
}

struct Outcome {
  bool ok;
  std::string name;
  std::string reason;
  bool operator==(const Outcome&) const = default;
};

std::ostream& operator<<(std::ostream& os, const Outcome& o) {
  return os << (o.ok ? "ok" : "fail " + o.name + "/" + o.reason);
}

Outcome Check(const std::string& api, const std::string& method, const Json::Value& params) {
  const QRIX::APICheckTableEntry* row = GetAPICheckTable();
  while (row->api != nullptr && (kPrefix + api != row->api || method != row->method)) {
    ++row;
  }
  EXPECT_NE(row->api, nullptr) << api << " " << method;
  if (row->api == nullptr) {
    return {};
  }
  QRIX::APIRequest request(kPrefix + api, 1, method, params);
  QRIX::APIResponse response;
  const bool ok = row->check(&request, &response);
  if (ok) {
    EXPECT_EQ(response.GetState(), QRIX::APIResponse::State::kNone);
    return {true, "", ""};
  }
  EXPECT_EQ(response.GetErrorCode(), 120);
  const Json::Value& error = response.GetData();
  EXPECT_EQ(error.size(), 2u);
  return {false, error["name"].asString(), error["reason"].asString()};
}

// Every required parameter with a good value.
Json::Value Baseline(const Method& m) {
  Json::Value params(Json::objectValue);
  for (const Param& p : m.params) {
    if (p.required) {
      params[p.name] = Good(p);
    }
  }
  return params;
}

struct Case {
  std::string label;
  Json::Value params;
  Outcome want;
};

// Cases derived from the parameter lists: presence, type, each range end, each enumeration.
std::vector<Case> DerivedCases(const Method& m) {
  std::vector<Case> cases;
  const Json::Value base = Baseline(m);
  Outcome empty{true, "", ""};
  for (const Param& p : m.params) {
    if (p.required) {
      empty = {false, p.name, "required"};
      break;
    }
  }
  cases.push_back({"no parameters", Json::Value(Json::objectValue), empty});
  cases.push_back({"all good", base, {true, "", ""}});
  for (const Param& p : m.params) {
    Json::Value all_good = base;
    for (const Param& q : m.params) {
      all_good[q.name] = Good(q);
    }
    cases.push_back({std::string(p.name) + " every good", all_good, {true, "", ""}});
    Json::Value v = base;
    v[p.name] = Bad(p);
    cases.push_back({std::string(p.name) + " wrong type", v, {false, p.name, "type"}});
    if (p.ranged) {
      for (const auto& [value, ok] : std::vector<std::pair<int, bool>>{
               {p.min - 1, false}, {p.min, true}, {p.max, true}, {p.max + 1, false}}) {
        v = base;
        v[p.name] = value;
        cases.push_back({std::string(p.name) + "=" + std::to_string(value), v,
                         ok ? Outcome{true, "", ""} : Outcome{false, p.name, "condition"}});
      }
    }
    for (const std::string& word : p.one_of) {
      v = base;
      v[p.name] = word;
      cases.push_back({std::string(p.name) + "=" + word, v, {true, "", ""}});
      std::string upper = word;
      upper[0] = static_cast<char>(upper[0] - 'a' + 'A');
      v[p.name] = upper;
      cases.push_back({std::string(p.name) + "=" + upper, v, {false, p.name, "condition"}});
    }
    if (!p.one_of.empty()) {
      v = base;
      v[p.name] = "";
      cases.push_back({std::string(p.name) + " empty", v, {false, p.name, "condition"}});
    }
    if (p.type == kArr) {
      v = base;
      v[p.name] = QRIX::WebAPIUtil::ParseJson(R"(["a", 3])");
      cases.push_back({std::string(p.name) + " number element", v, {false, p.name, "type"}});
      v[p.name] = QRIX::WebAPIUtil::ParseJson(R"(["a", "b"])");
      cases.push_back({std::string(p.name) + " strings", v, {true, "", ""}});
    }
    if (p.type == kStr) {
      v = base;
      v[p.name] = std::string("a\0b", 3);
      cases.push_back({std::string(p.name) + " with NUL", v, {false, p.name, "type"}});
    }
  }
  return cases;
}

TEST(CheckTableTest, EveryParameterOfEveryMethod) {
  int count = 0;
  for (const Method& m : Methods()) {
    for (const Case& c : DerivedCases(m)) {
      SCOPED_TRACE(std::string(m.api) + " " + m.method + ": " + c.label);
      EXPECT_EQ(Check(m.api, m.method, c.params), c.want);
      ++count;
    }
  }
  EXPECT_GT(count, 200);
}

// The first error in fetch order wins, and every type error outranks every range error.
TEST(CheckTableTest, FirstErrorOrdering) {
  struct OrderCase {
    const char* api;
    const char* method;
    const char* params;
    Outcome want;
  } const cases[] = {
      {"BT", "set", R"({"tcp_port": 0, "encrypt": 3})", {false, "encrypt", "type"}},
      {"BT", "set", R"({"dht_port": 0, "max_peer": 4})", {false, "max_peer", "condition"}},
      {"BT", "set", R"({"seeding_ratio": "x", "enable_preview": 1})",
       {false, "enable_preview", "type"}},
      {"BT", "set", R"({"max_peer": 10001, "encrypt": "AUTO"})", {false, "encrypt", "condition"}},
      {"BT", "set", R"({"tcp_port": 80, "nonsense": [1]})", {true, "", ""}},
      {"Emule", "set", R"({"max_conn": 99, "share_folders": [1]})",
       {false, "share_folders", "type"}},
      {"Emule", "set", R"({"share_folders": [1], "enable_schedule": 0})",
       {false, "enable_schedule", "type"}},
      {"Emule", "set", R"({"tcp_port": 0, "udp_port": 70000})", {false, "udp_port", "condition"}},
      {"Emule", "set", R"({"max_conn": 501, "port_type": "manual"})",
       {false, "port_type", "condition"}},
      {"BTSearch", "set", R"({"username": 1})", {false, "plugin_name", "required"}},
      {"BTSearch", "set", R"({"plugin_name": 1})", {false, "plugin_name", "type"}},
      {"BTSearch", "set", R"({"plugin_name": "p", "username": "u"})",
       {false, "password", "required"}},
      {"BTSearch", "verify", R"({"plugin_name": "p", "username": "u"})", {true, "", ""}},
      {"Nzb", "set", R"({"port": 0, "conn_per_download": true})",
       {false, "conn_per_download", "type"}},
  };
  for (const OrderCase& c : cases) {
    SCOPED_TRACE(std::string(c.api) + " " + c.method + " " + c.params);
    EXPECT_EQ(Check(c.api, c.method, QRIX::WebAPIUtil::ParseJson(c.params)), c.want);
  }
}

TEST(CheckTableTest, ParameterlessMethodsAcceptAnything) {
  const Json::Value junk = QRIX::WebAPIUtil::ParseJson(
      R"({"plugin_name": 5, "tcp_port": 0, "share_folders": [1], "x": null})");
  for (const auto& [api, method] : kCheckOrder) {
    const bool parameterless = method == "get" ? api != "BTSearch"
                                               : method == "list" || method == "update_check" ||
                                                     method == "read_progress";
    if (parameterless) {
      SCOPED_TRACE(api + " " + method);
      EXPECT_EQ(Check(api, method, junk), (Outcome{true, "", ""}));
    }
  }
}

}  // namespace
