// BitTorrent's ports through the module's tables: the ports "set" registers, the conflict checks,
// the callbacks, and the failures. The payload and the key order are the settings handlers' test.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "platform/system/qrix_service_port.h"
#include "tests/support/api_call.h"
#include "tests/support/files.h"
#include "tests/support/syslog_capture.h"

namespace {

namespace fs = std::filesystem;
using qrix::test::CallApi;
using qrix::test::CallbackNames;
using qrix::test::ReadText;
using qrix::test::WriteSettings;
using qrix::test::WriteText;

const std::string kServices = "/var/qrix/etc/services";
const std::string kPortFile = kServices + "/qrixdownload_port.conf";

class BtHandlerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    qrix::test::Remove(qrix::test::kSettingsConf);
    fs::remove_all(kServices);
    fs::create_directories(kServices);
    qrix::test::SyslogCapture::Get().Clear();
  }
};

// Only ports that change are written and registered; the firewall reloads only for them and
// DHT restarts when switched, or when it runs and its port moved.
TEST_F(BtHandlerTest, PortChangesDecideRegistrationAndCallbacks) {
  const std::string kTcp = "[bt]\nprotocol=\"tcp\"\nport=\"7000\"\n";
  const std::string kDht = "[bt_dht]\nprotocol=\"udp\"\nport=\"7001\"\n";
  struct Case {
    const char* file;
    const char* params;
    const char* written;  // start and DHT port in the file afterwards
    std::string ports;    // service port file afterwards
    const char* callbacks;
  } const cases[] = {
      {"", "{}", "/", "", "SchedulerSIGHUP"},
      {"", R"({"tcp_port": 16881, "dht_port": 6881})", "/", "", "SchedulerSIGHUP"},
      {"download_start_port=\"7000\"\n", R"({"tcp_port": 7000})", "7000/", "", "SchedulerSIGHUP"},
      {"", R"({"tcp_port": 7000})", "7000/", kTcp, "SchedulerSIGHUP,ReloadFirewall"},
      {"", R"({"dht_port": 7001})", "/7001", kDht,
       "SchedulerSIGHUP,ReloadFirewall,SchedulerSIGCONT"},
      {"download_enable_dht=\"no\"\n", R"({"dht_port": 7001})", "/7001", kDht,
       "SchedulerSIGHUP,ReloadFirewall"},
      {"", R"({"tcp_port": 7000, "dht_port": 7001})", "7000/7001", kTcp + "\n" + kDht,
       "SchedulerSIGHUP,ReloadFirewall,SchedulerSIGCONT"},
      {"", R"({"enable_dht": false})", "/", "", "SchedulerSIGHUP,SchedulerSIGCONT"},
      {"", R"({"enable_dht": true})", "/", "", "SchedulerSIGHUP"},
      {"", R"({"enable_dht": true, "dht_port": 7001})", "/7001", kDht,
       "SchedulerSIGHUP,ReloadFirewall,SchedulerSIGCONT"},
      {"download_enable_dht=\"no\"\n", R"({"enable_dht": true})", "/", "",
       "SchedulerSIGHUP,SchedulerSIGCONT"},
      {"download_enable_dht=\"no\"\n", R"({"enable_dht": false, "dht_port": 7001})", "/7001", kDht,
       "SchedulerSIGHUP,ReloadFirewall"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.file) + c.params);
    SetUp();
    WriteSettings(c.file);
    const auto result = CallApi("BT", "set", c.params);
    ASSERT_TRUE(result.Success());
    EXPECT_EQ(CallbackNames(*result.response), c.callbacks);
    auto settings = qrix::test::ReadSettings();
    EXPECT_EQ(settings["download_start_port"] + "/" + settings["download_dhtport"], c.written);
    EXPECT_EQ(ReadText(kPortFile), c.ports);
  }
}

// Conflicts are checked only for the "bt_" names; a refused request writes nothing.
TEST_F(BtHandlerTest, ConflictingPortsAnswer517) {
  struct Case {
    const char* services;  // other.conf
    const char* file;
    const char* params;
    int error;
  } const cases[] = {
      {"[ftp]\nport=\"7000\"\n", "", R"({"bt_tcp_port": 7000, "tcp_port": 7000})", 517},
      {"[web]\nport=\"6990-7010\"\n", "", R"({"bt_tcp_port": 7000})", 517},
      {"[btsearch]\nport=\"7000\"\n", "", R"({"bt_tcp_port": 7000})", 517},
      {"[bt]\nport=\"7000\"\n[bt_dht]\nport=\"7000\"\n", "", R"({"bt_tcp_port": 7000})", 0},
      {"[ftp]\nport=\"7000\"\n", "download_start_port=\"7000\"\n", R"({"bt_tcp_port": 7000})", 0},
      {"[ftp]\nport=\"7000\"\n", "", R"({"tcp_port": 7000})", 0},
      {"[ftp]\nport=\"7000\"\n", "", R"({"bt_tcp_port": 7001})", 0},
      {"", "", R"({"bt_dht_port": 4672, "dht_port": 4672})", 517},
      {"", "download_amule_udp_port=\"5000\"\n", R"({"bt_dht_port": 5000})", 517},
      {"", "download_amule_udp_port=\"5000\"\n", R"({"bt_dht_port": 4672})", 0},
      {"[ftp]\nport=\"7000\"\n", "", R"({"bt_dht_port": 7000})", 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.services) + c.file + c.params);
    SetUp();
    WriteText(kServices + "/other.conf", c.services);
    WriteSettings(c.file);
    const auto result = CallApi("BT", "set", c.params);
    EXPECT_EQ(result.Error(), c.error);
    if (c.error != 0) {
      EXPECT_EQ(ReadText(qrix::test::kSettingsConf), c.file);
      EXPECT_TRUE(result.response->GetCallbacks().empty());
      EXPECT_FALSE(qrix::test::SyslogCapture::Get().Contains("Failed to apply"));
    }
  }
}

TEST_F(BtHandlerTest, FailuresAnswerTheirCodes) {
  auto& log = qrix::test::SyslogCapture::Get();
  fs::create_directory(qrix::test::kSettingsConf);
  EXPECT_EQ(CallApi("BT", "set", R"({"max_peer": 10})").Error(), 506);
  EXPECT_EQ(log.Count("Failed to get DownloadInfo"), 1);
  EXPECT_EQ(log.Count("Failed to apply download service data"), 1);
  fs::remove(qrix::test::kSettingsConf);

  // The ports cannot be registered: the settings are written all the same.
  for (const char* params : {R"({"tcp_port": 7000, "max_peer": 10})", R"({"dht_port": 7001})"}) {
    SCOPED_TRACE(params);
    SetUp();
    fs::remove_all(kServices);
    WriteText(kServices, "not a directory");
    const auto result = CallApi("BT", "set", params);
    EXPECT_EQ(result.Error(), 1209);
    EXPECT_TRUE(result.response->GetCallbacks().empty());
    EXPECT_EQ(log.Count("Failed to apply download service data"), 1);
    const auto settings = qrix::test::ReadSettings();
    EXPECT_TRUE(settings.count("download_start_port") + settings.count("download_dhtport") == 1);
    fs::remove(kServices);
  }
}

}  // namespace
