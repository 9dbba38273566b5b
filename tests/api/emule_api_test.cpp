// eMule and each account's eMule default destination over HTTP, as the pages use them: what a
// "set" leaves in settings.conf, shareddir.dat and the service ports, the signals the daemons
// get after the answer, and what each account may see. Each rule's cases are the handlers' unit
// tests; bad input on every parameter is the hostile sweep's.

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

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

// An administrator sets ports, schedule and folders; an ordinary account only sees whether
// eMule is on; each account keeps its own default destination.
TEST_F(HostTest, EmuleSettingsAndEachAccountsDestination) {
  WriteSettings("download_enable_amule=\"yes\"\ndownload_other=\"untouched\"\n");
  WriteShares("[video]\npath=\"/volume1/video\"\nread_write=\"alice, bob, carol\"\n");
  std::filesystem::create_directories("/volume1/video/bob");
  Remove(kShareDir);
  Remove(kDestinationConf);
  StartDaemons();
  Start();
  ApiClient& alice = *alice_;
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
  const ParsedKv file = ParseKvStrict(ReadText(kSettingsConf));
  ASSERT_TRUE(file.ok) << file.bad_line;
  EXPECT_EQ(file.values,
            (std::map<std::string, std::string>{{"download_amule_only_obfuscation", "1"},
                                                {"download_amule_schedule", week},
                                                {"download_amule_schedule_enable", "yes"},
                                                {"download_amule_tcp_port", "5000"},
                                                {"download_amule_udp_port", "5001"},
                                                {"download_enable_amule", "yes"},
                                                {"download_other", "untouched"}}));
  EXPECT_EQ(ReadText(kShareDir), "video\nvideo/bob\n");
  EXPECT_EQ(ReadText(kPortFile),
            "[emule_tcp]\nprotocol=\"tcp\"\nport=\"5000\"\n\n"
            "[emule_udp]\nprotocol=\"udp\"\nport=\"5001\"\n");
  // Ports changed: the firewall reloads and the scheduler gets SIGUSR2 and its SIGHUP; the
  // daemon reloads its shared folders.
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

  // A folder outside the shares is refused and the folders stay as they were.
  EXPECT_EQ(alice.Call(kEmule, "set", {{"share_folders", R"(["video", "/etc"])"}}),
            ErrorEnvelope(403));
  EXPECT_EQ(ReadText(kShareDir), "video\nvideo/bob\n");

  // An ordinary account sees whether eMule is on, and its "set" changes nothing.
  EXPECT_EQ(bob_->Call(kEmule, "get"),
            ParseJson(R"({"success": true, "data": {"enable_emule": true}})"));
  const std::string before = ReadText(kSettingsConf);
  EXPECT_EQ(bob_->Call(kEmule, "set", {{"max_conn", "100"}, {"share_folders", "[]"}}),
            ParseJson(R"({"success": true})"));
  EXPECT_EQ(ReadText(kSettingsConf), before);
  EXPECT_EQ(ReadText(kShareDir), "video\nvideo/bob\n");

  for (const auto& [who, folder] : {std::pair{bob_.get(), "video/bob"}, {carol_.get(), "video"}}) {
    EXPECT_EQ(who->Call(kDestination, "set",
                        {{"default_destination", "\"" + std::string(folder) + "\""}}),
              ParseJson(R"({"success": true})"));
  }
  EXPECT_EQ(ReadText(kDestinationConf), "2002=\"video/bob\"\n2003=\"video\"\n");
  for (const auto& [who, folder] :
       {std::pair{alice_.get(), ""}, {bob_.get(), "video/bob"}, {carol_.get(), "video"}}) {
    Json::Value answer = ParseJson(R"({"success": true, "data": {}})");
    answer["data"]["default_destination"] = folder;
    EXPECT_EQ(who->Call(kDestination, "get"), answer) << folder;
  }
}

}  // namespace
}  // namespace qrix::test
