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

// An administrator sets ports, schedule and folders; each account keeps its own default
// destination. What an ordinary account sees of eMule, and refused folders, are the handlers'.
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

  EXPECT_EQ(alice.Call(kEmule, "get")["data"]["share_folders"],
            ParseJson(R"(["video", "video/bob"])"));

  // Each account's own destination, by the session's uid (the rule is the handlers' unit test).
  EXPECT_EQ(bob_->Call(kDestination, "set", {{"default_destination", R"("video/bob")"}}),
            ParseJson(R"({"success": true})"));
  EXPECT_EQ(ReadText(kDestinationConf), "2002=\"video/bob\"\n");
  EXPECT_EQ(alice.Call(kDestination, "get")["data"]["default_destination"], "");
}

}  // namespace
}  // namespace qrix::test
