// eMule settings and each account's eMule default destination through the module's tables:
// the payload by port type and caller, what "set" writes and registers, the shared folders, the
// callbacks, and the codes and log lines of refusals and failures.
#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>
#include <memory>
#include <string>

#include "module/handler/emule_location_handler.h"
#include "platform/amule/amule_client.h"
#include "platform/dlbase/download_schedule.h"
#include "platform/webapi/api_validator.h"
#include "tests/support/accounts.h"
#include "tests/support/api_call.h"
#include "tests/support/fake_scheduler.h"
#include "tests/support/files.h"
#include "tests/support/syslog_capture.h"

namespace {

namespace fs = std::filesystem;
using qrix::test::CallApi;
using qrix::test::CallbackNames;
using qrix::test::FakeScheduler;
using qrix::test::ReadSettings;
using qrix::test::ReadText;
using qrix::test::WriteSettings;
using qrix::test::WriteText;

const std::string kServices = "/var/qrix/etc/services";
const std::string kPortFile = kServices + "/qrixdownload_port.conf";
constexpr const char* kEnabled = "download_enable_amule=\"yes\"\n";
const QRIX::APILogin kAnn{"ann", 3101, true, "enu"};
const QRIX::APILogin kBen{"ben", 3102, false, "enu"};

Json::Value Json(const std::string& text) {
  return QRIX::WebAPIUtil::ParseJson(text);
}

qrix::test::ApiResult Emule(const char* method, const std::string& params,
                            const QRIX::APILogin& login = kAnn) {
  return CallApi("Emule", method, params, login);
}

qrix::test::ApiResult Location(const char* method, const std::string& params,
                               const QRIX::APILogin& login = kAnn) {
  return CallApi("Emule.Location", method, params, login);
}

class EmuleHandlerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    qrix::test::SyslogCapture::Get().Clear();
    qrix::test::AddAccount("ann", 3101);
    qrix::test::AddAccount("ben", 3102);
    qrix::test::WriteShares(
        "[video]\npath=\"/volume1/video\"\nread_write=\"ann, ben\"\n"
        "[music]\npath=\"/volume1/music\"\nread_only=\"ann\"\n");
    fs::create_directories("/volume1/video/sub");
    fs::remove_all(kServices);
    fs::create_directories(kServices);
    qrix::test::Remove(QRIX_AMULE_SHAREDDIR);
    qrix::test::Remove(QRIXDL_AMULE_DESTINATION_CONF);
    WriteSettings(kEnabled);
    if (!amuled_) {
      amuled_ = std::make_unique<FakeScheduler>(QRIX_AMULED_PID_FILE);
      cgid_ = std::make_unique<FakeScheduler>(QRIX_AMULECGID_PID_FILE);
    }
  }

  std::unique_ptr<FakeScheduler> amuled_;
  std::unique_ptr<FakeScheduler> cgid_;
};

TEST_F(EmuleHandlerTest, GetAnswersByPortTypeAndCaller) {
  WriteText(QRIX_AMULE_SHAREDDIR, "video\n/volume1/video/sub\n");
  const std::string all =
      R"({"enable_emule": true, "enable_server_update": false,
          "enable_server_auto_connect": false, "enable_obfuscation": true,
          "enable_outgoing_obfuscation": true, "enable_obfuscation_only": false,
          "port_type": "default_port", "tcp_port": 4662, "udp_port": 4672, "max_conn": 500,
          "upload_rate": 20, "download_rate": 0, "enable_schedule": false,
          "schedule": ")" +
      std::string(168, '1') + R"(", "schedule_upload_rate": 0,
          "schedule_download_rate": 0, "share_folders": ["video", "/volume1/video/sub"]})";
  EXPECT_EQ(Emule("get", "{}").Data(), Json(all));
  // Each row: the file, and the members the answer must hold.
  for (const auto& [file, want] : std::initializer_list<std::pair<const char*, const char*>>{
           {"download_amule_tcp_port=\"0\"\ndownload_amule_udp_port=\"4672\"\n",
            R"({"port_type": "default_port", "tcp_port": 4662, "udp_port": 4672})"},
           {"download_amule_tcp_port=\"4662\"\ndownload_amule_udp_port=\"4673\"\n",
            R"({"port_type": "manual_port", "tcp_port": 4662, "udp_port": 4673})"},
           {"download_amule_max_conn=\"0\"\ndownload_amule_schedule_enable=\"YES\"\n"
            "download_amule_schedule=\"0101\"\n",
            R"({"max_conn": 500, "enable_schedule": false, "schedule": "0101"})"}}) {
    WriteSettings(std::string(kEnabled) + file);
    const Json::Value got = Emule("get", "{}").Data();
    for (const std::string& member : Json(want).getMemberNames()) {
      EXPECT_EQ(got[member], Json(want)[member]) << file << member;
    }
  }
  // Others learn only whether eMule is on; with eMule off, so does everyone.
  EXPECT_EQ(Emule("get", "{}", kBen).Data(), Json(R"({"enable_emule": true})"));
  WriteSettings("download_enable_amule=\"no\"\n");
  EXPECT_EQ(Emule("get", "{}").Data(), Json(R"({"enable_emule": false})"));
  WriteSettings(kEnabled);
  WriteText(QRIX_AMULE_SHAREDDIR, "");
  EXPECT_EQ(Emule("get", "{}").Data()["share_folders"], Json::Value(Json::arrayValue));
}

// Every key in table order; the flags as "1"/"0", the schedule switch alone as "yes"/"no".
TEST_F(EmuleHandlerTest, SetWritesEachKeyWithItsEncoding) {
  const auto result = Emule("set", R"({
      "enable_server_update": true, "enable_server_auto_connect": false, "upload_rate": 1,
      "download_rate": 2, "enable_obfuscation": false, "enable_outgoing_obfuscation": true,
      "enable_obfuscation_only": true, "enable_schedule": true, "schedule": "0011",
      "schedule_download_rate": 3, "schedule_upload_rate": 4, "max_conn": 200})");
  ASSERT_TRUE(result.Success()) << result.Error();
  EXPECT_EQ(ReadText(qrix::test::kSettingsConf),
            std::string(kEnabled) +
                "download_amule_auto_update_server=\"1\"\ndownload_amule_auto_connect=\"0\"\n"
                "download_amule_ul_rate=\"1\"\ndownload_amule_dl_rate=\"2\"\n"
                "download_amule_enable_obfuscation=\"0\"\n"
                "download_amule_outgoing_obfuscation=\"1\"\n"
                "download_amule_only_obfuscation=\"1\"\ndownload_amule_schedule_enable=\"yes\"\n"
                "download_amule_schedule=\"0011\"\ndownload_amule_alt_dl_rate=\"3\"\n"
                "download_amule_alt_ul_rate=\"4\"\ndownload_amule_max_conn=\"200\"\n");
  EXPECT_EQ(CallbackNames(*result.response), "SchedulerSIGHUP");
  // Another account's "set" succeeds and changes nothing.
  const std::string before = ReadText(qrix::test::kSettingsConf);
  const auto other = Emule("set", R"({"max_conn": 100, "share_folders": ["video"]})", kBen);
  EXPECT_TRUE(other.Success());
  EXPECT_EQ(ReadText(qrix::test::kSettingsConf), before);
  EXPECT_FALSE(fs::exists(QRIX_AMULE_SHAREDDIR));
}

// Only a changed pair is written and registered; then the firewall reloads and the scheduler
// gets SIGUSR2, and SIGHUP only when other settings changed too.
TEST_F(EmuleHandlerTest, PortChangesDecideRegistrationAndCallbacks) {
  const std::string kPorts =
      "[emule_tcp]\nprotocol=\"tcp\"\nport=\"5000\"\n\n"
      "[emule_udp]\nprotocol=\"udp\"\nport=\"5001\"\n";
  struct Case {
    const char* file;
    const char* params;
    const char* written;  // TCP/UDP keys afterwards
    std::string ports;    // service port file afterwards
    const char* callbacks;
  } const cases[] = {
      {"", R"({"port_type": "default_port"})", "/", "", ""},
      {"", R"({"port_type": "manual_port", "tcp_port": 5000, "udp_port": 5001})", "5000/5001",
       kPorts, "ReloadFirewall,SchedulerSIGUSR2"},
      {"download_amule_tcp_port=\"5000\"\ndownload_amule_udp_port=\"5001\"\n",
       R"({"port_type": "manual_port", "tcp_port": 5000, "udp_port": 5001, "upload_rate": 9})",
       "5000/5001", "", "SchedulerSIGHUP"},
      {"download_amule_tcp_port=\"5000\"\ndownload_amule_udp_port=\"5001\"\n",
       R"({"port_type": "default_port", "max_conn": 300})", "4662/4672",
       "[emule_tcp]\nprotocol=\"tcp\"\nport=\"4662\"\n\n"
       "[emule_udp]\nprotocol=\"udp\"\nport=\"4672\"\n",
       "SchedulerSIGHUP,ReloadFirewall,SchedulerSIGUSR2"},
      // Ports without their type are not written; a manual type without a port keeps it.
      {"", R"({"tcp_port": 5000, "udp_port": 5001})", "/", "", ""},
      {"download_amule_tcp_port=\"5000\"\ndownload_amule_udp_port=\"4672\"\n",
       R"({"port_type": "manual_port", "udp_port": 5001})", "5000/5001", kPorts,
       "ReloadFirewall,SchedulerSIGUSR2"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.params);
    SetUp();
    WriteSettings(std::string(kEnabled) + c.file);
    const auto result = Emule("set", c.params);
    ASSERT_TRUE(result.Success()) << result.Error();
    EXPECT_EQ(CallbackNames(*result.response), c.callbacks);
    auto settings = ReadSettings();
    EXPECT_EQ(settings["download_amule_tcp_port"] + "/" + settings["download_amule_udp_port"],
              c.written);
    EXPECT_EQ(ReadText(kPortFile), c.ports);
  }
}

// Checked only with both "emule_" names; the stored TCP port and ports of "ed2k" sections never
// conflict.
TEST_F(EmuleHandlerTest, ConflictingPortsAnswer517) {
  const struct {
    const char* file;
    const char* params;
    int error;
  } cases[] = {
      {"", R"({"emule_tcp_port": 7000, "emule_udp_port": 7001, "tcp_port": 7000})", 517},
      {"download_amule_tcp_port=\"7000\"\n", R"({"emule_tcp_port": 7000, "emule_udp_port": 1})", 0},
      {"", R"({"emule_tcp_port": 7000})", 0},
      {"", R"({"emule_tcp_port": 7002, "emule_udp_port": 6881})", 517},
      {"download_dhtport=\"9000\"\n", R"({"emule_tcp_port": 7002, "emule_udp_port": 9000})", 517},
      {"download_dhtport=\"9000\"\n", R"({"emule_tcp_port": 7002, "emule_udp_port": 6881})", 0},
      {"", R"({"emule_udp_port": 6881})", 0},
  };
  WriteText(kServices + "/other.conf", "[ftp]\nport=\"7000\"\n[ed2k_x]\nport=\"7002\"\n");
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.file) + c.params);
    const std::string file = std::string(kEnabled) + c.file;
    WriteSettings(file);
    const auto result = Emule("set", c.params);
    EXPECT_EQ(result.Error(), c.error);
    if (c.error != 0) {
      EXPECT_EQ(ReadText(qrix::test::kSettingsConf), file);
      EXPECT_TRUE(result.response->GetCallbacks().empty());
    }
  }
}

// Folders are checked for the caller first, and written before the settings: a later failure
// leaves them changed. Outside the download hours they are left alone.
TEST_F(EmuleHandlerTest, SharedFoldersAreCheckedThenWrittenAndReloaded) {
  const auto ok = Emule("set", R"({"share_folders": ["video", "/volume1/video/sub"]})");
  ASSERT_TRUE(ok.Success()) << ok.Error();
  EXPECT_EQ(ReadText(QRIX_AMULE_SHAREDDIR), "video\n/volume1/video/sub\n");
  EXPECT_EQ(amuled_->WaitFor({0, 0, 0, 1}).usr1, 1);
  EXPECT_EQ(CallbackNames(*ok.response), "");

  // One refused folder refuses them all, before anything is written.
  EXPECT_EQ(Emule("set", R"({"max_conn": 100, "share_folders": ["video", "music"]})").Error(), 403);
  EXPECT_EQ(ReadText(QRIX_AMULE_SHAREDDIR), "video\n/volume1/video/sub\n");
  EXPECT_EQ(ReadSettings().count("download_amule_max_conn"), 0u);

  const auto broken = Emule("set", R"({"schedule": "x\ny", "share_folders": ["video"]})");
  EXPECT_EQ(broken.Error(), 505);
  EXPECT_EQ(ReadText(QRIX_AMULE_SHAREDDIR), "video\n");

  // Downloads paused every hour: the folders wait, without an error.
  WriteSettings(std::string(kEnabled) + "download_schedule_enable=\"yes\"\n" +
                "download_schedule=\"" + std::string(168, '0') + "\"\n");
  EXPECT_TRUE(Emule("set", R"({"share_folders": []})").Success());
  EXPECT_EQ(ReadText(QRIX_AMULE_SHAREDDIR), "video\n");
}

TEST_F(EmuleHandlerTest, FailuresAnswerTheirCodesAndLogLines) {
  auto& log = qrix::test::SyslogCapture::Get();
  const char* folders = R"({"share_folders": ["video"]})";
  WriteSettings("download_enable_amule=\"no\"\n");
  EXPECT_EQ(Emule("set", R"({"max_conn": 100})").Error(), 1805);
  WriteSettings(kEnabled);

  qrix::test::Remove(qrix::test::kSettingsConf);
  fs::create_directory(qrix::test::kSettingsConf);
  EXPECT_EQ(Emule("get", "{}").Error(), 506);
  EXPECT_EQ(Emule("set", "{}").Error(), 506);
  EXPECT_EQ(log.Count("handler/emule_handler:"), 1);
  EXPECT_EQ(log.Count("Failed to get DownloadInfo"), 1);
  fs::remove(qrix::test::kSettingsConf);
  WriteSettings(kEnabled);

  // The shared folder file cannot be replaced: 1802, nothing else written.
  fs::create_directory(std::string(QRIX_AMULE_SHAREDDIR));
  EXPECT_EQ(Emule("set", R"({"max_conn": 100, "share_folders": ["video"]})").Error(), 1802);
  EXPECT_EQ(log.Count("Failed to set shareddir.dat"), 1);
  EXPECT_EQ(ReadSettings().count("download_amule_max_conn"), 0u);
  fs::remove(QRIX_AMULE_SHAREDDIR);

  // The port registration fails after the settings are written.
  fs::remove_all(kServices);
  WriteText(kServices, "not a directory");
  const auto ports = CallApi("Emule", "set",
                             R"({"port_type": "manual_port", "tcp_port": 5000, "udp_port": 5001})");
  EXPECT_EQ(ports.Error(), 1806);
  EXPECT_TRUE(ports.response->GetCallbacks().empty());
  EXPECT_EQ(log.Count("Failed to apply port setting."), 1);
  EXPECT_EQ(ReadSettings()["download_amule_tcp_port"], "5000");
  fs::remove(kServices);

  // Either daemon stopped: "get" has nothing to show, and the folders cannot be handed over.
  cgid_.reset();
  EXPECT_EQ(Emule("get", "{}").Error(), 1800);
  EXPECT_TRUE(Emule("set", folders).Success());
  amuled_.reset();
  EXPECT_EQ(Emule("get", "{}", kBen).Error(), 1800);
  EXPECT_EQ(Emule("set", folders).Error(), 1803);
  EXPECT_EQ(log.Count("Failed to init amule"), 1);
  EXPECT_EQ(log.Count("handler/emule_handler:"), 4);
}

TEST(AmuleClientTest, RefusesFoldersThatCannotStandOnALine) {
  FakeScheduler amuled(QRIX_AMULED_PID_FILE);
  AmuleClient client;
  EXPECT_FALSE(client.AmuleShareDirSet({"video"}));  // not inited
  ASSERT_TRUE(client.OnInit());
  ASSERT_TRUE(client.AmuleShareDirSet({"a", "b c"}));
  for (const std::string& bad :
       {std::string("x\ny"), std::string("x\r"), std::string("x\0y", 3), std::string()}) {
    EXPECT_FALSE(client.AmuleShareDirSet({"ok", bad}));
  }
  EXPECT_EQ(ReadText(QRIX_AMULE_SHAREDDIR), "a\nb c\n");
  EXPECT_EQ(amuled.WaitFor({0, 0, 0, 1}).usr1, 1);
}

TEST(DownloadScheduleTest, HoursCountFromSundayMidnight) {
  std::string week(168, '0');
  week[0] = week[1 * 24 + 13] = '1';  // Sunday 00, Monday 13
  const struct {
    bool enabled;
    std::string schedule;
    int wday, hour;
    bool allowed;
  } cases[] = {
      {true, week, 0, 0, true},  {true, week, 0, 1, false},
      {true, week, 1, 13, true}, {false, week, 6, 23, true},
      {true, "1", 6, 23, false}, {true, std::string(168, 'y'), 0, 0, false},
  };
  for (const auto& c : cases) {
    std::tm when{};
    when.tm_wday = c.wday;
    when.tm_hour = c.hour;
    EXPECT_EQ(qrixdl::ScheduleAllows(c.enabled, c.schedule, when), c.allowed) << c.wday << c.hour;
  }
}

// "admin" in any spelling is user 0; every other account, administrators too, its own uid.
TEST_F(EmuleHandlerTest, DestinationsAreKeptPerUser) {
  const QRIX::APILogin kAdmin{"admin", 1024, true, "enu"};
  const QRIX::APILogin kUpper{"ADMIN", 1025, true, "enu"};
  qrix::test::AddAccount("admin", 1024);
  qrix::test::AddAccount("ADMIN", 1025);
  qrix::test::WriteShares("[video]\npath=\"/volume1/video\"\nread_write=\"admin, ADMIN, ann\"\n");
  EXPECT_EQ(Location("get", "{}").Data(), Json(R"({"default_destination": ""})"));
  const struct {
    QRIX::APILogin login;
    const char* destination;
    const char* file;
  } steps[] = {
      {kAdmin, "video", "0=\"video\"\n"},
      {kAnn, "video/sub", "0=\"video\"\n3101=\"video/sub\"\n"},
      {kUpper, "/volume1/video", "0=\"/volume1/video\"\n3101=\"video/sub\"\n"},
  };
  for (const auto& s : steps) {
    SCOPED_TRACE(s.login.user);
    const std::string params = std::string(R"({"default_destination": ")") + s.destination + "\"}";
    ASSERT_TRUE(Location("set", params, s.login).Success());
    EXPECT_EQ(ReadText(QRIXDL_AMULE_DESTINATION_CONF), s.file);
    EXPECT_EQ(Location("get", "{}", s.login).Data()["default_destination"], s.destination);
  }
  EXPECT_EQ(Location("get", "{}", kAdmin).Data()["default_destination"], "/volume1/video");
  EXPECT_TRUE(Location("set", "{}").Success());
  EXPECT_EQ(Location("set", R"({"default_destination": "video/none"})").Error(), 1207);
  EXPECT_EQ(ReadText(QRIXDL_AMULE_DESTINATION_CONF), "0=\"/volume1/video\"\n3101=\"video/sub\"\n");
}

TEST_F(EmuleHandlerTest, AnUnusableDestinationFileAnswers504And505) {
  auto& log = qrix::test::SyslogCapture::Get();
  fs::create_directories(QRIXDL_AMULE_DESTINATION_CONF);
  EXPECT_EQ(Location("get", "{}").Error(), 504);
  EXPECT_EQ(Location("set", R"({"default_destination": "video"})").Error(), 505);
  EXPECT_TRUE(log.Contains("handler/emule_location_handler:"));
  EXPECT_EQ(log.Count("Failed to get default destination by (ann) user."), 1);
  EXPECT_EQ(log.Count("Failed to set default destination by ann user."), 1);
  fs::remove(QRIXDL_AMULE_DESTINATION_CONF);
}

}  // namespace
