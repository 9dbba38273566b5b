// The settings APIs over HTTP: what a "set" leaves on disk, the signals the scheduler gets after
// the answer (one request at a time), what "get" reads back, and refusals that change nothing.
// Each handler's own rules are the settings handlers' unit test.
#include <json/json.h>
#include <sys/stat.h>

#include <memory>
#include <string>

#include "tests/api/host_fixture.h"
#include "tests/support/fake_scheduler.h"
#include "tests/support/files.h"

namespace qrix::test {
namespace {

using Counts = FakeScheduler::Counts;

constexpr const char* kPrefix = "QRIX.Haulport2.Setting.";
constexpr const char* kFirewallRan = "/tmp/firewall.ran";

// A value as the web page sends it: JSON text.
std::string JsonText(const Json::Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  return Json::writeString(builder, value);
}

class SettingsApiTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (IsSkipped()) {
      return;
    }
    WriteSettings("download_other=\"untouched\"\n");
    WriteText("/proc/meminfo", "MemFree: 1 kB\nMemTotal:  600000 kB\n");
    WriteText("/tmp/firewall_hook", "#!/bin/sh\necho x >> " + std::string(kFirewallRan) + "\n");
    ::chmod("/tmp/firewall_hook", 0755);
    WriteText("/var/qrix/etc/firewall.conf", "reload_hook=\"/tmp/firewall_hook\"\n");
    Remove(kFirewallRan);
    scheduler_ = std::make_unique<FakeScheduler>();
    server_ = std::make_unique<HostServer>();
    alice_ = std::make_unique<ApiClient>(*server_);
    ASSERT_TRUE(alice_->Login(kAlice)["success"].asBool());
  }

  Json::Value Call(const std::string& api, const std::string& method, const Fields& fields = {}) {
    return alice_->Call(kPrefix + api, method, fields);
  }

  std::unique_ptr<FakeScheduler> scheduler_;
  std::unique_ptr<HostServer> server_;
  std::unique_ptr<ApiClient> alice_;
};

TEST_F(SettingsApiTest, EachSetWritesItsKeysSignalsAndReadsBack) {
  struct Row {
    const char* api;
    Fields fields;
    std::map<std::string, std::string> written;  // keys that must hold these values
    Counts signals;                              // added by this request
    int firewall_reloads;
    const char* get;  // members the following "get" must answer with
  };
  const Row rows[] = {
      // DHT is on (by default) and its port moved: it restarts, and the firewall reloads.
      {"BT",
       {{"tcp_port", "51413"}, {"dht_port", "7000"}},
       {{"download_start_port", "51413"}, {"download_dhtport", "7000"}},
       {1, 1, 0},
       1,
       R"({"tcp_port": 51413, "dht_port": 7000, "enable_dht": true})"},
      // The same port: no registration, no reload, no restart.
      {"BT",
       {{"tcp_port", "51413"}, {"max_upload_rate", "50"}},
       {{"download_ul_rate", "50"}},
       {1, 0, 0},
       0,
       R"({"tcp_port": 51413, "max_upload_rate": 50})"},
      {"Scheduler",
       {{"order", "\"user\""}, {"download_rate", "100"}},
       {{"download_order", "user"}, {"download_alt_dl_rate", "100"}},
       {1, 0, 0},
       0,
       R"({"order": "user", "download_rate": 100, "max_tasks_limit": 50})"},
      {"Rss",
       {{"update_interval", "5"}},
       {{"download_rss_update_interval", "300"}},
       {1, 0, 0},
       0,
       R"({"update_interval": 10})"},
      {"Nzb",
       {{"server", "\"news.example.org\""}, {"port", "563"}},
       {{"download_nzb_server", "news.example.org"}, {"download_nzb_port", "563"}},
       {1, 0, 0},
       0,
       R"({"server": "news.example.org", "port": 563})"},
  };
  Counts total;
  int reloads = 0;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.api);
    EXPECT_EQ(Call(row.api, "set", row.fields), ParseJson(R"({"success":true})"));
    const ParsedKv file = ParseKvStrict(ReadText(kSettingsConf));
    ASSERT_TRUE(file.ok) << file.bad_line;
    for (const auto& [key, value] : row.written) {
      EXPECT_EQ(file.values.count(key) ? file.values.at(key) : "(missing)", value) << key;
    }
    EXPECT_EQ(file.values.at("download_other"), "untouched");
    total = {total.hup + row.signals.hup, total.cont + row.signals.cont,
             total.usr2 + row.signals.usr2};
    EXPECT_EQ(scheduler_->WaitFor(total), total);
    reloads += row.firewall_reloads;
    EXPECT_EQ(static_cast<int>(ReadText(kFirewallRan).size()) / 2, reloads);

    const Json::Value got = Call(row.api, "get");
    ASSERT_TRUE(got["success"].asBool()) << got;
    const Json::Value want = ParseJson(row.get);
    for (const std::string& member : want.getMemberNames()) {
      EXPECT_EQ(got["data"][member], want[member]) << member;
    }
  }
  // The ports the BT change registered.
  const std::string ports = ReadText("/var/qrix/etc/services/qrixdownload_port.conf");
  EXPECT_NE(ports.find("[bt]"), std::string::npos) << ports;
  EXPECT_NE(ports.find("[bt_dht]"), std::string::npos) << ports;
}

// Refused requests, whether by the host, the check table or the module, write nothing and
// announce nothing.
TEST_F(SettingsApiTest, RefusalsWriteNothingAndSignalNobody) {
  WriteText("/var/qrix/etc/services/other.conf", "[other]\nprotocol=\"tcp\"\nport=\"6000\"\n");
  Json::Value nul_error(Json::objectValue);
  nul_error["name"] = "server";
  nul_error["reason"] = "type";
  Json::Value range_error(Json::objectValue);
  range_error["name"] = "ftp_max_conn";
  range_error["reason"] = "condition";
  const struct {
    const char* api;
    Fields fields;
    Json::Value answer;
  } rows[] = {
      {"Nzb", {{"server", JsonText("x\ndownload_evil=\"1\"")}}, ErrorEnvelope(505)},
      {"Scheduler", {{"order", JsonText("x\ry")}}, ErrorEnvelope(505)},
      {"Nzb", {{"server", R"("ab\u0000cd")"}}, ErrorEnvelope(120, nul_error)},
      {"FtpHttp", {{"ftp_max_conn", "0"}}, ErrorEnvelope(120, range_error)},
      {"Nzb", {{"username", JsonText(std::string(1 << 20, 'm'))}}, ErrorEnvelope(108)},
      {"BT", {{"bt_tcp_port", "6000"}, {"tcp_port", "6000"}}, ErrorEnvelope(517)},
      {"BT", {{"bt_dht_port", "4672"}, {"dht_port", "4672"}}, ErrorEnvelope(517)},
  };
  const std::string before = ReadText(kSettingsConf);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.api + std::string(" ") + row.fields.front().first);
    EXPECT_EQ(Call(row.api, "set", row.fields), row.answer);
    EXPECT_EQ(ReadText(kSettingsConf), before);
  }
  // A later request that does signal: only its own signal arrives.
  EXPECT_TRUE(Call("Rss", "set", {{"update_interval", "20"}})["success"].asBool());
  EXPECT_EQ(scheduler_->WaitFor({1, 0, 0}), (Counts{1, 0, 0}));
  EXPECT_EQ(scheduler_->WaitFor({2, 0, 0}, 300), (Counts{1, 0, 0}));
}

}  // namespace
}  // namespace qrix::test
