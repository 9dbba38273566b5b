// eMule and each account's eMule default destination over HTTP, as the pages use them: what a
// "set" leaves in settings.conf, shareddir.dat and the service ports, the signals the daemons
// get after the answer, what each account may see, and bad input on every parameter.
#include <sys/stat.h>

#include <filesystem>
#include <memory>
#include <string>

#include "tests/api/host_fixture.h"
#include "tests/support/accounts.h"
#include "tests/support/fake_scheduler.h"
#include "tests/support/files.h"

namespace qrix::test {
namespace {

using Counts = FakeScheduler::Counts;

constexpr const char* kEmule = "QRIX.Haulport2.Setting.Emule";
constexpr const char* kDestination = "QRIX.Haulport2.Setting.Emule.Location";
constexpr const char* kShareDir = "/var/packages/Haulport/etc/amule/shareddir.dat";
constexpr const char* kDestinationConf =
    "/var/packages/Haulport/etc/amule/qrixuser_default_destination.conf";
constexpr const char* kPortFile = "/var/qrix/etc/services/qrixdownload_port.conf";
constexpr const char* kFirewallRan = "/tmp/firewall.ran";

class EmuleApiTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (IsSkipped()) {
      return;
    }
    WriteSettings("download_enable_amule=\"yes\"\ndownload_other=\"untouched\"\n");
    WriteShares(
        "[video]\npath=\"/volume1/video\"\nread_write=\"alice, bob, carol\"\n"
        "[music]\npath=\"/volume1/music\"\nread_only=\"@users\"\n");
    std::filesystem::create_directories("/volume1/video/bob");
    Remove(kShareDir);
    Remove(kDestinationConf);
    WriteText("/tmp/firewall_hook", "#!/bin/sh\necho x >> " + std::string(kFirewallRan) + "\n");
    ::chmod("/tmp/firewall_hook", 0755);
    WriteText("/var/qrix/etc/firewall.conf", "reload_hook=\"/tmp/firewall_hook\"\n");
    scheduler_ = std::make_unique<FakeScheduler>();
    amuled_ = std::make_unique<FakeScheduler>("/tmp/qrixdl_amuled.pid");
    cgid_ = std::make_unique<FakeScheduler>("/tmp/qrixdl_amulecgid.pid");
    server_ = std::make_unique<HostServer>();
    for (const TestAccount* account : {&kAlice, &kBob, &kCarol}) {
      clients_.push_back(std::make_unique<ApiClient>(*server_));
      ASSERT_TRUE(clients_.back()->Login(*account)["success"].asBool());
    }
  }

  std::unique_ptr<FakeScheduler> scheduler_, amuled_, cgid_;
  std::unique_ptr<HostServer> server_;
  std::vector<std::unique_ptr<ApiClient>> clients_;  // alice, bob, carol
};

TEST_F(EmuleApiTest, AnAdministratorSetsPortsScheduleAndFolders) {
  ApiClient& alice = *clients_[0];
  const std::string week = std::string(100, '1') + std::string(68, '0');
  EXPECT_EQ(alice.Call(kEmule, "set",
                       {{"port_type", R"("manual_port")"},
                        {"tcp_port", "5000"},
                        {"udp_port", "5001"},
                        {"emule_tcp_port", "5000"},
                        {"emule_udp_port", "5001"},
                        {"enable_schedule", "true"},
                        {"schedule", "\"" + week + "\""},
                        {"enable_obfuscation_only", "true"},
                        {"share_folders", R"(["video", "video/bob"])"}}),
            ParseJson(R"({"success": true})"));
  auto settings = ReadSettings();
  EXPECT_EQ(settings["download_amule_tcp_port"], "5000");
  EXPECT_EQ(settings["download_amule_udp_port"], "5001");
  EXPECT_EQ(settings["download_amule_schedule_enable"], "yes");
  EXPECT_EQ(settings["download_amule_only_obfuscation"], "1");
  EXPECT_EQ(settings["download_amule_schedule"], week);
  EXPECT_EQ(settings["download_other"], "untouched");
  EXPECT_EQ(ReadText(kShareDir), "video\nvideo/bob\n");
  EXPECT_EQ(ReadText(kPortFile),
            "[emule_tcp]\nprotocol=\"tcp\"\nport=\"5000\"\n\n"
            "[emule_udp]\nprotocol=\"udp\"\nport=\"5001\"\n");
  EXPECT_EQ(scheduler_->WaitFor({1, 0, 1}), (Counts{1, 0, 1}));
  EXPECT_EQ(amuled_->WaitFor({0, 0, 0, 1}), (Counts{0, 0, 0, 1}));
  EXPECT_TRUE(WaitForFile(kFirewallRan));

  const Json::Value got = alice.Call(kEmule, "get");
  const Json::Value want = ParseJson(R"({"port_type": "manual_port", "tcp_port": 5000,
      "udp_port": 5001, "enable_schedule": true, "enable_obfuscation_only": true,
      "share_folders": ["video", "video/bob"]})");
  for (const std::string& member : want.getMemberNames()) {
    EXPECT_EQ(got["data"][member], want[member]) << member;
  }
  EXPECT_EQ(got["data"]["schedule"], week);

  // An ordinary account sees whether eMule is on, and its "set" changes nothing.
  EXPECT_EQ(clients_[1]->Call(kEmule, "get"),
            ParseJson(R"({"success": true, "data": {"enable_emule": true}})"));
  const std::string before = ReadText(kSettingsConf);
  EXPECT_EQ(clients_[1]->Call(kEmule, "set", {{"max_conn", "100"}, {"share_folders", "[]"}}),
            ParseJson(R"({"success": true})"));
  EXPECT_EQ(ReadText(kSettingsConf), before);
  EXPECT_EQ(ReadText(kShareDir), "video\nvideo/bob\n");

  // Back to the default ports: registered again, SIGUSR2 again, still no SIGHUP.
  EXPECT_TRUE(alice.Call(kEmule, "set", {{"port_type", R"("default_port")"}})["success"].asBool());
  EXPECT_EQ(scheduler_->WaitFor({1, 0, 2}), (Counts{1, 0, 2}));
  EXPECT_NE(ReadText(kPortFile).find("port=\"4662\""), std::string::npos);
}

TEST_F(EmuleApiTest, TwoAccountsKeepTheirOwnDestinations) {
  EXPECT_EQ(clients_[1]->Call(kDestination, "set", {{"default_destination", R"("video/bob")"}}),
            ParseJson(R"({"success": true})"));
  EXPECT_EQ(clients_[2]->Call(kDestination, "set", {{"default_destination", R"("video")"}}),
            ParseJson(R"({"success": true})"));
  EXPECT_EQ(ReadText(kDestinationConf), "2002=\"video/bob\"\n2003=\"video\"\n");
  EXPECT_EQ(clients_[1]->Call(kDestination, "get"),
            ParseJson(R"({"success": true, "data": {"default_destination": "video/bob"}})"));
  EXPECT_EQ(clients_[2]->Call(kDestination, "get"),
            ParseJson(R"({"success": true, "data": {"default_destination": "video"}})"));
  EXPECT_EQ(clients_[0]->Call(kDestination, "get"),
            ParseJson(R"({"success": true, "data": {"default_destination": ""}})"));
}

// Every parameter of both "set" methods against wrong types, out-of-range numbers, NUL, line
// breaks, escapes from the shares and a megabyte ("get" takes none).
TEST_F(EmuleApiTest, BadInputOnEachParameterChangesNothing) {
  ApiClient& alice = *clients_[0];
  ASSERT_TRUE(alice.Call(kEmule, "set", {{"share_folders", R"(["video"])"}})["success"].asBool());
  ASSERT_TRUE(
      alice.Call(kDestination, "set", {{"default_destination", R"("video")"}})["success"].asBool());
  const Counts signals = scheduler_->Read();
  const std::string settings = ReadText(kSettingsConf);
  const std::string megabyte = "\"video/" + std::string(1 << 20, 'm') + "\"";
  const struct {
    const char* api;
    const char* name;
    std::string value;  // JSON text
    int code;
    const char* reason;  // of a 120
  } cases[] = {
      {kEmule, "enable_server_update", R"("true")", 120, "type"},
      {kEmule, "enable_server_auto_connect", "1", 120, "type"},
      {kEmule, "enable_obfuscation", "null", 120, "type"},
      {kEmule, "enable_outgoing_obfuscation", "[]", 120, "type"},
      {kEmule, "enable_obfuscation_only", R"("yes")", 120, "type"},
      {kEmule, "enable_schedule", "0", 120, "type"},
      {kEmule, "upload_rate", "1.5", 120, "type"},
      {kEmule, "download_rate", R"("10")", 120, "type"},
      {kEmule, "schedule_upload_rate", "4294967296", 120, "type"},
      {kEmule, "schedule_download_rate", "{}", 120, "type"},
      {kEmule, "max_conn", "99", 120, "condition"},
      {kEmule, "max_conn", "501", 120, "condition"},
      {kEmule, "tcp_port", "0", 120, "condition"},
      {kEmule, "udp_port", "65536", 120, "condition"},
      {kEmule, "port_type", R"("auto_port")", 120, "condition"},
      {kEmule, "port_type", R"("manual_port\n")", 120, "condition"},
      {kEmule, "schedule", "168", 120, "type"},
      {kEmule, "schedule", R"("01\u000010")", 120, "type"},
      {kEmule, "schedule", R"("01\n10")", 505, nullptr},
      {kEmule, "schedule", megabyte, 108, nullptr},
      {kEmule, "share_folders", R"("video")", 120, "type"},
      {kEmule, "share_folders", R"(["video", 5])", 120, "type"},
      {kEmule, "share_folders", R"(["vi\u0000deo"])", 120, "type"},
      {kEmule, "share_folders", R"(["video\n"])", 403, nullptr},
      {kEmule, "share_folders", R"(["../video"])", 403, nullptr},
      {kEmule, "share_folders", R"(["video/../music"])", 403, nullptr},
      {kEmule, "share_folders", R"(["/etc"])", 403, nullptr},
      {kEmule, "share_folders", R"(["it's \"quoted\""])", 403, nullptr},
      {kEmule, "share_folders", "[" + megabyte + "]", 108, nullptr},
      {kDestination, "default_destination", "5", 120, "type"},
      {kDestination, "default_destination", R"(["video"])", 120, "type"},
      {kDestination, "default_destination", R"("vid\u0000eo")", 120, "type"},
      {kDestination, "default_destination", R"("video/bob\n")", 1207, nullptr},
      {kDestination, "default_destination", R"("../video")", 403, nullptr},
      {kDestination, "default_destination", R"("video/bob/../../music")", 403, nullptr},
      {kDestination, "default_destination", R"("/etc")", 403, nullptr},
      {kDestination, "default_destination", megabyte, 108, nullptr},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.name) + "=" + c.value.substr(0, 40));
    Json::Value errors;
    if (c.reason != nullptr) {
      errors["name"] = c.name;
      errors["reason"] = c.reason;
    }
    EXPECT_EQ(alice.Call(c.api, "set", {{c.name, c.value}}), ErrorEnvelope(c.code, errors));
    EXPECT_EQ(ReadText(kSettingsConf), settings);
    EXPECT_EQ(ReadText(kShareDir), "video\n");
    EXPECT_EQ(ReadText(kDestinationConf), "2001=\"video\"\n");
  }
  // Refusals announce nothing (waiting a moment for a signal that must not come).
  EXPECT_EQ(scheduler_->WaitFor({signals.hup + 1, 0, 0}, 300), signals);
  EXPECT_EQ(amuled_->Read().usr1, 1);
  EXPECT_TRUE(alice.Call(kEmule, "get")["success"].asBool());
}

}  // namespace
}  // namespace qrix::test
