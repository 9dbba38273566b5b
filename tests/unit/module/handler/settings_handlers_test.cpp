// The settings handlers through the module's tables, one table per rule: what "get" answers for
// a settings file and caller, what "set" leaves in it and which callbacks it registers, the
// scheduler's task limit by memory, the ports of BitTorrent and eMule (registered, checked for
// conflicts, failing), eMule's shared folders and destinations, and NZB's password, stored
// enciphered and never answered. The failures every handler shares are the commit queue's test.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <ctime>
#include <filesystem>
#include <memory>
#include <string>

#include "module/handler/emule_location_handler.h"
#include "platform/amule/amule_client.h"
#include "platform/dlbase/download_schedule.h"
#include "platform/system/qrix_service_port.h"
#include "platform/vlibc/vlibc_crypt.h"
#include "platform/webapi/api_validator.h"
#include "tests/support/accounts.h"
#include "tests/support/api_call.h"
#include "tests/support/fake_scheduler.h"
#include "tests/support/files.h"
#include "tests/support/syslog_capture.h"

namespace qrix::test {
namespace {

namespace fs = std::filesystem;

constexpr const char* kMeminfo = "/proc/meminfo";
constexpr const char* kEnabled = "download_enable_amule=\"yes\"\n";
const std::string kWeek(168, '1');
const std::string kServices = "/var/qrix/etc/services";
const std::string kPortFile = kServices + "/qrixdownload_port.conf";
const QRIX::APILogin kAnn{"ann", 3101, true, "enu"};
const QRIX::APILogin kBen{"ben", 3102, false, "enu"};

Json::Value Json(const std::string& text) {
  return QRIX::WebAPIUtil::ParseJson(text);
}

ApiResult Emule(const char* method, const std::string& params, const QRIX::APILogin& login = kAnn) {
  return CallApi("Emule", method, params, login);
}

ApiResult Location(const char* method, const std::string& params,
                   const QRIX::APILogin& login = kAnn) {
  return CallApi("Emule.Location", method, params, login);
}

class SettingsHandlersTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (meminfo_.empty()) {
      meminfo_ = ReadText(kMeminfo);
    }
    WriteText(kMeminfo, "MemTotal:        2000000 kB\n");
    fs::remove_all(kServices);
    fs::create_directories(kServices);
    // Once a test of this process has bound /dev/log, its queue must be drained or logging
    // blocks.
    SyslogCapture::Get().Clear();
    AddAccount("ann", 3101);
    AddAccount("ben", 3102);
    WriteShares(
        "[video]\npath=\"/volume1/video\"\nread_write=\"ann, ben\"\n"
        "[music]\npath=\"/volume1/music\"\nread_only=\"ann\"\n");
    fs::create_directories("/volume1/video/sub");
    Remove(QRIX_AMULE_SHAREDDIR);
    Remove(QRIXDL_AMULE_DESTINATION_CONF);
    WriteSettings(kEnabled);
    if (!amuled_) {
      amuled_ = std::make_unique<FakeScheduler>(QRIX_AMULED_PID_FILE);
      cgid_ = std::make_unique<FakeScheduler>(QRIX_AMULECGID_PID_FILE);
    }
  }
  // The sandbox binds a plain file there, rewritten in place.
  void TearDown() override { WriteText(kMeminfo, meminfo_); }

  std::unique_ptr<FakeScheduler> amuled_;
  std::unique_ptr<FakeScheduler> cgid_;

 private:
  std::string meminfo_;
};

// Each row: a settings file and the members the answer must hold; a whole row's answer holds
// nothing else. What a whole record reads back as is the set test's round trip, and the
// defaults of a missing file are the reader's test.
TEST_F(SettingsHandlersTest, GetAnswersTheRecord) {
  struct Row {
    const char* api;
    const char* file;
    std::string want;
    bool whole;
  };
  const Row rows[] = {
      {"BT", "download_btencrypt=\"auto\"\n", R"({"encrypt": "auto"})", false},
      {"BT", "download_btencrypt=\"disable\"\n", R"({"encrypt": "disable"})", false},
      {"Nzb", "download_nzb_encryption=\"YES\"\n", R"({"enable_encryption": false})", false},
      {"Scheduler", "",
       R"({"enable_schedule": false, "schedule": ")" + kWeek +
           R"(", "upload_rate": 0, "download_rate": 0, "order": "request", "max_tasks": 10,
           "max_tasks_limit": 80})",
       true},
      {"Scheduler", "download_schedule_enable=\"YES\"\n", R"({"enable_schedule": false})", false},
      // RSS: seconds in the file, minutes in the answer, never less than 10.
      {"Rss", "", R"({"update_interval": 1440})", true},
      {"Rss", "download_rss_update_interval=\"659\"\n", R"({"update_interval": 10})", true},
      {"Rss", "download_rss_update_interval=\"660\"\n", R"({"update_interval": 11})", true},
      {"Rss", "download_rss_update_interval=\"1200s\"\n", R"({"update_interval": 20})", true},
      {"Rss", "download_rss_update_interval=\"every hour\"\n", R"({"update_interval": 1440})",
       true},
      {"Rss", "download_rss_update_interval=\"99999999999\"\n", R"({"update_interval": 1440})",
       true},
      // eMule: the port type follows the stored pair.
      {"Emule", kEnabled,
       R"({"enable_emule": true, "enable_server_update": false,
           "enable_server_auto_connect": false, "enable_obfuscation": true,
           "enable_outgoing_obfuscation": true, "enable_obfuscation_only": false,
           "port_type": "default_port", "tcp_port": 4662, "udp_port": 4672, "max_conn": 500,
           "upload_rate": 20, "download_rate": 0, "enable_schedule": false, "schedule": ")" +
           kWeek + R"(", "schedule_upload_rate": 0, "schedule_download_rate": 0,
           "share_folders": ["video", "/volume1/video/sub"]})",
       true},
      {"Emule", "download_enable_amule=\"yes\"\ndownload_amule_tcp_port=\"0\"\n",
       R"({"port_type": "default_port", "tcp_port": 4662, "udp_port": 4672})", false},
      {"Emule",
       "download_enable_amule=\"yes\"\ndownload_amule_tcp_port=\"4662\"\n"
       "download_amule_udp_port=\"4673\"\ndownload_amule_max_conn=\"0\"\n"
       "download_amule_schedule_enable=\"YES\"\ndownload_amule_schedule=\"0101\"\n",
       R"({"port_type": "manual_port", "tcp_port": 4662, "udp_port": 4673, "max_conn": 500,
           "enable_schedule": false, "schedule": "0101"})",
       false},
      {"Emule", "download_enable_amule=\"no\"\n", R"({"enable_emule": false})", true},
  };
  WriteText(QRIX_AMULE_SHAREDDIR, "video\n/volume1/video/sub\n");
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.api) + ": " + row.file);
    WriteSettings(row.file);
    const auto result = CallApi(row.api, "get", "{}");
    ASSERT_TRUE(result.Success());
    EXPECT_TRUE(result.response->GetCallbacks().empty());
    const Json::Value want = Json(row.want);
    if (row.whole) {
      EXPECT_EQ(result.Data(), want);
    }
    for (const std::string& member : want.getMemberNames()) {
      EXPECT_EQ(result.Data()[member], want[member]) << member;
    }
    EXPECT_EQ(ReadText(kSettingsConf), row.file) << "get writes nothing";
  }
  // Even an unreadable file answers RSS, with the default.
  Remove(kSettingsConf);
  std::filesystem::create_directory(kSettingsConf);
  EXPECT_EQ(CallApi("Rss", "get", "{}").Data()["update_interval"], 1440);
  std::filesystem::remove(kSettingsConf);
}

// Each row: the file before, the request, the whole file after, the callbacks, and what "get"
// then answers: the request itself, the password aside (kWhole: and nothing more). A request
// that names nothing to change answers nothing and registers nothing only for RSS.
TEST_F(SettingsHandlersTest, SetWritesWhatTheRequestNamesInOrder) {
  const std::string ftp =
      "download_ftpmax_enable=\"yes\"\ndownload_ftpmax=\"5\"\ndownload_http_dl_rate=\"100\"\n"
      "download_other=\"kept\"\n";
  const std::string rss = "download_rss_update_interval=\"1800\"\n";
  const std::string tasks = "download_maxtasks=\"3\"\n";
  enum ReadBack { kNo, kMembers, kWhole };
  struct Row {
    const char* api;
    std::string before;
    const char* params;
    std::string after;
    const char* callbacks;
    ReadBack read_back;
  };
  const Row rows[] = {
      {"FtpHttp", ftp, "{}", ftp, "SchedulerSIGHUP", kNo},
      {"FtpHttp", ftp,
       R"({"ftp_http_max_download_rate": 0, "enable_ftp_max_conn": true, "ftp_max_conn": 65535})",
       "download_ftpmax_enable=\"yes\"\ndownload_ftpmax=\"65535\"\ndownload_http_dl_rate=\"0\"\n"
       "download_other=\"kept\"\n",
       "SchedulerSIGHUP", kWhole},
      {"BT", "",
       R"({"max_upload_rate": 1, "max_download_rate": 2, "tcp_port": 3000, "dht_port": 3001,
           "enable_dht": false,
           "enable_port_forwarding": true, "enable_preview": false, "max_peer": 50,
           "encrypt": "always", "seeding_interval": 4, "seeding_ratio": 5,
           "enable_seeding_auto_remove": true})",
       "download_ul_rate=\"1\"\ndownload_dl_rate=\"2\"\ndownload_start_port=\"3000\"\n"
       "download_dhtport=\"3001\"\ndownload_enable_dht=\"no\"\n"
       "download_enable_bt_port_forwarding=\"yes\"\ndownload_enable_bt_preview=\"no\"\n"
       "download_btmaxpeers=\"50\"\ndownload_btencrypt=\"always\"\n"
       "download_seeding_interval=\"4\"\ndownload_seeding_ratio=\"5\"\n"
       "download_seeding_auto_remove=\"yes\"\n",
       "SchedulerSIGHUP,ReloadFirewall,SchedulerSIGCONT", kWhole},
      {"Scheduler", tasks, "{}", tasks, "SchedulerSIGHUP", kNo},
      {"Scheduler", tasks, R"({"enable_schedule": false})",
       tasks + "download_schedule_enable=\"no\"\n", "SchedulerSIGHUP", kNo},
      {"Scheduler", tasks,
       R"({"enable_schedule": true, "schedule": "0101", "download_rate": 40, "upload_rate": 30,
           "order": "user", "max_tasks": 12})",
       "download_maxtasks=\"12\"\ndownload_schedule_enable=\"yes\"\ndownload_schedule=\"0101\"\n"
       "download_alt_dl_rate=\"40\"\ndownload_alt_ul_rate=\"30\"\ndownload_order=\"user\"\n",
       "SchedulerSIGHUP", kMembers},
      // NZB's password enciphered in its place ("*": what the file holds).
      {"Nzb", "",
       R"({"server": "news.example", "port": 563, "conn_per_download": 8, "enable_encryption": true,
           "max_download_rate": 900, "enable_auth": false, "username": "ann", "password": "s3cret",
           "enable_parchive": true, "enable_remove_parfiles": false})",
       "download_nzb_server=\"news.example\"\ndownload_nzb_port=\"563\"\n"
       "download_nzb_numconn=\"8\"\ndownload_nzb_encryption=\"yes\"\ndownload_nzb_dl_rate=\"900\"\n"
       "download_nzb_auth=\"no\"\ndownload_nzb_user=\"ann\"\ndownload_nzb_password_en=\"*\"\n"
       "download_nzb_enable_parchive=\"yes\"\ndownload_nzb_enable_remove_parchive_files=\"no\"\n",
       "SchedulerSIGHUP", kWhole},
      // RSS: minutes in the request, seconds in the file, without the floor of reading.
      {"Rss", rss, R"({"update_interval": 1})", "download_rss_update_interval=\"60\"\n",
       "SchedulerSIGHUP", kNo},
      {"Rss", rss, "{}", rss, "", kNo},
      // eMule: the flags as "1"/"0", the schedule switch alone as "yes"/"no".
      {"Emule", kEnabled,
       R"({"enable_server_update": true, "enable_server_auto_connect": false, "upload_rate": 1,
           "download_rate": 2, "enable_obfuscation": false, "enable_outgoing_obfuscation": true,
           "enable_obfuscation_only": true, "enable_schedule": true, "schedule": "0011",
           "schedule_download_rate": 3, "schedule_upload_rate": 4, "max_conn": 200})",
       std::string(kEnabled) +
           "download_amule_auto_update_server=\"1\"\ndownload_amule_auto_connect=\"0\"\n"
           "download_amule_ul_rate=\"1\"\ndownload_amule_dl_rate=\"2\"\n"
           "download_amule_enable_obfuscation=\"0\"\ndownload_amule_outgoing_obfuscation=\"1\"\n"
           "download_amule_only_obfuscation=\"1\"\ndownload_amule_schedule_enable=\"yes\"\n"
           "download_amule_schedule=\"0011\"\ndownload_amule_alt_dl_rate=\"3\"\n"
           "download_amule_alt_ul_rate=\"4\"\ndownload_amule_max_conn=\"200\"\n",
       "SchedulerSIGHUP", kMembers},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.api) + " " + row.params);
    WriteSettings(row.before);
    const auto result = CallApi(row.api, "set", row.params);
    std::string after = row.after;
    if (const size_t star = after.find("\"*\""); star != std::string::npos) {
      after.replace(star + 1, 1, ReadSettings()["download_nzb_password_en"]);
    }
    EXPECT_EQ(ReadText(kSettingsConf), after);
    EXPECT_EQ(CallbackNames(*result.response), row.callbacks);
    if (*row.callbacks != '\0') {
      EXPECT_TRUE(result.Success());
      EXPECT_TRUE(result.Data().isNull());
    } else {
      EXPECT_EQ(result.response->GetState(), QRIX::APIResponse::State::kNone);
    }
    Json::Value sent = Json(row.params);
    sent.removeMember("password");
    const Json::Value got = CallApi(row.api, "get", "{}").Data();
    for (const std::string& member : sent.getMemberNames()) {
      EXPECT_TRUE(row.read_back == kNo || got[member] == sent[member]) << member;
    }
    EXPECT_TRUE(row.read_back != kWhole || got == sent) << got;
  }
}

TEST_F(SettingsHandlersTest, MemoryDecidesTheSchedulersTaskLimit) {
  struct Row {
    const char* meminfo;
    int limit;  // 0: no "max_tasks_limit", and a log line
  } const rows[] = {
      {"MemTotal: 1000001 kB\n", 80},
      {"MemTotal: 1000000 kB\n", 50},
      {"MemTotal: 500001 kB\n", 50},
      {"MemTotal: 500000 kB\n", 30},
      {"MemTotal: 240001 kB\n", 30},
      {"MemTotal: 240000 kB\n", 20},
      {"MemTotal: 18446744073709551615 kB\n", 80},
      {"MemFree: 9999999 kB\nBuffers: 1 kB\nMemTotal: 300000 kB\n", 30},
      {"MemFree: 9999999 kB\n", 0},
  };
  auto& log = SyslogCapture::Get();
  for (const Row& row : rows) {
    SCOPED_TRACE(row.meminfo);
    log.Clear();
    WriteText(kMeminfo, row.meminfo);
    const auto result = CallApi("Scheduler", "get", "{}");
    ASSERT_TRUE(result.Success());
    EXPECT_EQ(result.Data().isMember("max_tasks_limit"), row.limit != 0);
    EXPECT_EQ(result.Data()["max_tasks_limit"].asInt(), row.limit);
    EXPECT_EQ(log.Count("handler/scheduler_handler:"), row.limit == 0 ? 1 : 0);
    EXPECT_EQ(log.Count("Cannot get MemTotal value."), row.limit == 0 ? 1 : 0);
  }
}

// Only ports that change are written and registered; the firewall reloads only for them. BT's
// DHT restarts when switched, or when it runs and its port moved; eMule's scheduler gets
// SIGUSR2, and SIGHUP only when other settings changed too.
TEST_F(SettingsHandlersTest, PortChangesDecideRegistrationAndCallbacks) {
  const std::string kTcp = "[bt]\nprotocol=\"tcp\"\nport=\"7000\"\n";
  const std::string kDht = "[bt_dht]\nprotocol=\"udp\"\nport=\"7001\"\n";
  const auto emule = [](int tcp, int udp) {
    return "[emule_tcp]\nprotocol=\"tcp\"\nport=\"" + std::to_string(tcp) +
           "\"\n\n[emule_udp]\nprotocol=\"udp\"\nport=\"" + std::to_string(udp) + "\"\n";
  };
  const std::string kPair = "download_amule_tcp_port=\"5000\"\ndownload_amule_udp_port=\"5001\"\n";
  struct Case {
    const char* api;
    std::string file;
    const char* params;
    const char* written;  // the two ports in the file afterwards
    std::string ports;    // service port file afterwards
    const char* callbacks;
  } const cases[] = {
      {"BT", "", "{}", "/", "", "SchedulerSIGHUP"},
      {"BT", "", R"({"tcp_port": 16881, "dht_port": 6881})", "/", "", "SchedulerSIGHUP"},
      {"BT", "download_start_port=\"7000\"\n", R"({"tcp_port": 7000})", "7000/", "",
       "SchedulerSIGHUP"},
      {"BT", "", R"({"tcp_port": 7000})", "7000/", kTcp, "SchedulerSIGHUP,ReloadFirewall"},
      {"BT", "", R"({"dht_port": 7001})", "/7001", kDht,
       "SchedulerSIGHUP,ReloadFirewall,SchedulerSIGCONT"},
      {"BT", "download_enable_dht=\"no\"\n", R"({"dht_port": 7001})", "/7001", kDht,
       "SchedulerSIGHUP,ReloadFirewall"},
      {"BT", "", R"({"tcp_port": 7000, "dht_port": 7001})", "7000/7001", kTcp + "\n" + kDht,
       "SchedulerSIGHUP,ReloadFirewall,SchedulerSIGCONT"},
      {"BT", "", R"({"enable_dht": false})", "/", "", "SchedulerSIGHUP,SchedulerSIGCONT"},
      {"BT", "", R"({"enable_dht": true})", "/", "", "SchedulerSIGHUP"},
      {"BT", "", R"({"enable_dht": true, "dht_port": 7001})", "/7001", kDht,
       "SchedulerSIGHUP,ReloadFirewall,SchedulerSIGCONT"},
      {"BT", "download_enable_dht=\"no\"\n", R"({"enable_dht": true})", "/", "",
       "SchedulerSIGHUP,SchedulerSIGCONT"},
      {"BT", "download_enable_dht=\"no\"\n", R"({"enable_dht": false, "dht_port": 7001})", "/7001",
       kDht, "SchedulerSIGHUP,ReloadFirewall"},
      {"Emule", "", R"({"port_type": "default_port"})", "/", "", ""},
      {"Emule", "", R"({"port_type": "manual_port", "tcp_port": 5000, "udp_port": 5001})",
       "5000/5001", emule(5000, 5001), "ReloadFirewall,SchedulerSIGUSR2"},
      {"Emule", kPair,
       R"({"port_type": "manual_port", "tcp_port": 5000, "udp_port": 5001, "upload_rate": 9})",
       "5000/5001", "", "SchedulerSIGHUP"},
      {"Emule", kPair, R"({"port_type": "default_port", "max_conn": 300})", "4662/4672",
       emule(4662, 4672), "SchedulerSIGHUP,ReloadFirewall,SchedulerSIGUSR2"},
      // Ports without their type are not written; a manual type without a port keeps it.
      {"Emule", "", R"({"tcp_port": 5000, "udp_port": 5001})", "/", "", ""},
      {"Emule", "download_amule_tcp_port=\"5000\"\ndownload_amule_udp_port=\"4672\"\n",
       R"({"port_type": "manual_port", "udp_port": 5001})", "5000/5001", emule(5000, 5001),
       "ReloadFirewall,SchedulerSIGUSR2"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.file + c.params);
    SetUp();
    const bool bt = std::string(c.api) == "BT";
    WriteSettings((bt ? "" : kEnabled) + c.file);
    const auto result = CallApi(c.api, "set", c.params);
    ASSERT_TRUE(result.Success()) << result.Error();
    EXPECT_EQ(CallbackNames(*result.response), c.callbacks);
    auto file = ReadSettings();
    EXPECT_EQ(bt ? file["download_start_port"] + "/" + file["download_dhtport"]
                 : file["download_amule_tcp_port"] + "/" + file["download_amule_udp_port"],
              c.written);
    EXPECT_EQ(ReadText(kPortFile), c.ports);
  }
}

// Conflicts are checked only for the "bt_" names, and for eMule with both "emule_" names; the
// stored port never conflicts, nor do ports of "ed2k" sections with eMule. A refused request
// writes nothing.
TEST_F(SettingsHandlersTest, ConflictingPortsAnswer517) {
  const std::string ftp = "[ftp]\nport=\"7000\"\n";
  const std::string ed2k = ftp + "[ed2k_x]\nport=\"7002\"\n";
  const std::string dht = "download_dhtport=\"9000\"\n";
  struct Case {
    const char* api;
    std::string services;  // other.conf
    std::string file;
    const char* params;
    int error;
  } const cases[] = {
      {"BT", ftp, "", R"({"bt_tcp_port": 7000, "tcp_port": 7000})", 517},
      {"BT", "[web]\nport=\"6990-7010\"\n", "", R"({"bt_tcp_port": 7000})", 517},
      {"BT", "[btsearch]\nport=\"7000\"\n", "", R"({"bt_tcp_port": 7000})", 517},
      {"BT", "[bt]\nport=\"7000\"\n[bt_dht]\nport=\"7000\"\n", "", R"({"bt_tcp_port": 7000})", 0},
      {"BT", ftp, "download_start_port=\"7000\"\n", R"({"bt_tcp_port": 7000})", 0},
      {"BT", ftp, "", R"({"tcp_port": 7000})", 0},
      {"BT", "", "", R"({"bt_dht_port": 4672, "dht_port": 4672})", 517},
      {"BT", "", "download_amule_udp_port=\"5000\"\n", R"({"bt_dht_port": 5000})", 517},
      {"BT", "", "download_amule_udp_port=\"5000\"\n", R"({"bt_dht_port": 4672})", 0},
      {"BT", ftp, "", R"({"bt_dht_port": 7000})", 0},
      {"Emule", ed2k, "", R"({"emule_tcp_port": 7000, "emule_udp_port": 7001, "tcp_port": 7000})",
       517},
      {"Emule", ed2k, "download_amule_tcp_port=\"7000\"\n",
       R"({"emule_tcp_port": 7000, "emule_udp_port": 1})", 0},
      {"Emule", ed2k, "", R"({"emule_tcp_port": 7000})", 0},
      {"Emule", ed2k, "", R"({"emule_tcp_port": 7002, "emule_udp_port": 6881})", 517},
      {"Emule", ed2k, dht, R"({"emule_tcp_port": 7002, "emule_udp_port": 9000})", 517},
      {"Emule", ed2k, dht, R"({"emule_tcp_port": 7002, "emule_udp_port": 6881})", 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.services + c.file + c.params);
    SetUp();
    WriteText(kServices + "/other.conf", c.services);
    const std::string file = (std::string(c.api) == "BT" ? "" : kEnabled) + c.file;
    WriteSettings(file);
    const auto result = CallApi(c.api, "set", c.params);
    EXPECT_EQ(result.Error(), c.error);
    if (c.error != 0) {
      EXPECT_EQ(ReadText(kSettingsConf), file);
      EXPECT_TRUE(result.response->GetCallbacks().empty());
      EXPECT_FALSE(SyslogCapture::Get().Contains("Failed to apply"));
    }
  }
}

// Other accounts learn only whether eMule is on, and their "set" succeeds and changes nothing.
TEST_F(SettingsHandlersTest, EmuleShowsOthersOnlyItsSwitch) {
  EXPECT_EQ(Emule("get", "{}", kBen).Data(), Json(R"({"enable_emule": true})"));
  const auto other = Emule("set", R"({"max_conn": 100, "share_folders": ["video"]})", kBen);
  EXPECT_TRUE(other.Success());
  EXPECT_EQ(ReadText(kSettingsConf), kEnabled);
  EXPECT_FALSE(fs::exists(QRIX_AMULE_SHAREDDIR));
  WriteText(QRIX_AMULE_SHAREDDIR, "");
  EXPECT_EQ(Emule("get", "{}").Data()["share_folders"], Json::Value(Json::arrayValue));
}

// Folders are checked for the caller first, and written before the settings: a later failure
// leaves them changed. Outside the download hours they are left alone.
TEST_F(SettingsHandlersTest, EmuleSharedFoldersAreCheckedThenWrittenAndReloaded) {
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

TEST_F(SettingsHandlersTest, FailuresAnswerTheirCodesAndLogLines) {
  auto& log = SyslogCapture::Get();
  const char* folders = R"({"share_folders": ["video"]})";
  WriteSettings("download_enable_amule=\"no\"\n");
  EXPECT_EQ(Emule("set", R"({"max_conn": 100})").Error(), 1805);
  WriteSettings(kEnabled);

  Remove(kSettingsConf);
  fs::create_directory(kSettingsConf);
  EXPECT_EQ(Emule("get", "{}").Error(), 506);
  EXPECT_EQ(Emule("set", "{}").Error(), 506);
  EXPECT_EQ(CallApi("BT", "set", R"({"max_peer": 10})").Error(), 506);
  EXPECT_EQ(log.Count("handler/emule_handler:"), 1);
  EXPECT_EQ(log.Count("Failed to get DownloadInfo"), 2);
  EXPECT_EQ(log.Count("Failed to apply download service data"), 1);
  fs::remove(kSettingsConf);
  WriteSettings(kEnabled);

  // The shared folder file cannot be replaced: 1802, nothing else written.
  fs::create_directory(std::string(QRIX_AMULE_SHAREDDIR));
  EXPECT_EQ(Emule("set", R"({"max_conn": 100, "share_folders": ["video"]})").Error(), 1802);
  EXPECT_EQ(log.Count("Failed to set shareddir.dat"), 1);
  EXPECT_EQ(ReadSettings().count("download_amule_max_conn"), 0u);
  fs::remove(QRIX_AMULE_SHAREDDIR);

  // Either daemon stopped: "get" has nothing to show, and the folders cannot be handed over.
  cgid_.reset();
  EXPECT_EQ(Emule("get", "{}").Error(), 1800);
  EXPECT_TRUE(Emule("set", folders).Success());
  amuled_.reset();
  EXPECT_EQ(Emule("get", "{}", kBen).Error(), 1800);
  EXPECT_EQ(Emule("set", folders).Error(), 1803);
  EXPECT_EQ(log.Count("Failed to init amule"), 1);
  EXPECT_EQ(log.Count("handler/emule_handler:"), 3);
}

// The ports cannot be registered: the settings are written all the same.
TEST_F(SettingsHandlersTest, PortsThatCannotBeRegisteredAnswerTheirCodes) {
  const struct {
    const char* api;
    const char* params;
    int code;
    const char* log;
    const char* written;
  } rows[] = {
      {"BT", R"({"tcp_port": 7000, "max_peer": 10})", 1209, "Failed to apply download service data",
       "download_start_port"},
      {"BT", R"({"dht_port": 7001})", 1209, "Failed to apply download service data",
       "download_dhtport"},
      {"Emule", R"({"port_type": "manual_port", "tcp_port": 5000, "udp_port": 5001})", 1806,
       "Failed to apply port setting.", "download_amule_tcp_port"},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(r.params);
    SetUp();
    fs::remove_all(kServices);
    WriteText(kServices, "not a directory");
    const auto result = CallApi(r.api, "set", r.params);
    EXPECT_EQ(result.Error(), r.code);
    EXPECT_TRUE(result.response->GetCallbacks().empty());
    EXPECT_EQ(SyslogCapture::Get().Count(r.log), 1);
    EXPECT_EQ(ReadSettings().count(r.written), 1u);
    fs::remove(kServices);
  }
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
TEST_F(SettingsHandlersTest, DestinationsAreKeptPerUser) {
  const QRIX::APILogin kAdmin{"admin", 1024, true, "enu"};
  const QRIX::APILogin kUpper{"ADMIN", 1025, true, "enu"};
  AddAccount("admin", 1024);
  AddAccount("ADMIN", 1025);
  WriteShares("[video]\npath=\"/volume1/video\"\nread_write=\"admin, ADMIN, ann\"\n");
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
  // An unusable file: 504 and 505.
  Remove(QRIXDL_AMULE_DESTINATION_CONF);
  fs::create_directories(QRIXDL_AMULE_DESTINATION_CONF);
  EXPECT_EQ(Location("get", "{}").Error(), 504);
  EXPECT_EQ(Location("set", R"({"default_destination": "video"})").Error(), 505);
  EXPECT_EQ(SyslogCapture::Get().Count("Failed to get default destination by (ann) user."), 1);
  EXPECT_EQ(SyslogCapture::Get().Count("Failed to set default destination by ann user."), 1);
  fs::remove(QRIXDL_AMULE_DESTINATION_CONF);
}

}  // namespace
}  // namespace qrix::test
