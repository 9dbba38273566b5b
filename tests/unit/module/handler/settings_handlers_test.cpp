// The settings handlers through the module's tables, one table per rule: what "get" answers for
// a settings file, what "set" leaves in it and which callbacks it registers, the scheduler's
// task limit by memory, BitTorrent's ports (registered, checked for conflicts, failing) and
// NZB's password, stored enciphered and never answered. The failures every handler shares are
// the commit queue's test.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <filesystem>
#include <string>

#include "platform/system/qrix_service_port.h"
#include "platform/vlibc/vlibc_crypt.h"
#include "platform/webapi/api_validator.h"
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

constexpr const char* kMeminfo = "/proc/meminfo";
const std::string kWeek(168, '1');
const std::string kServices = "/var/qrix/etc/services";
const std::string kPortFile = kServices + "/qrixdownload_port.conf";

std::string Params(const Json::Value& params) {
  return Json::writeString(Json::StreamWriterBuilder(), params);
}

class SettingsHandlersTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (meminfo_.empty()) {
      meminfo_ = ReadText(kMeminfo);
    }
    qrix::test::WriteText(kMeminfo, "MemTotal:        2000000 kB\n");
    qrix::test::Remove(qrix::test::kSettingsConf);
    fs::remove_all(kServices);
    fs::create_directories(kServices);
    // Once a test of this process has bound /dev/log, its queue must be drained or logging
    // blocks.
    qrix::test::SyslogCapture::Get().Clear();
  }
  // The sandbox binds a plain file there, rewritten in place.
  void TearDown() override { qrix::test::WriteText(kMeminfo, meminfo_); }

 private:
  std::string meminfo_;
};

// Each row: a settings file (null: none) and the members the answer must hold; a whole row's
// answer holds nothing else.
TEST_F(SettingsHandlersTest, GetAnswersTheRecord) {
  struct Row {
    const char* api;
    const char* file;
    std::string want;
    bool whole;
  };
  const Row rows[] = {
      {"FtpHttp", nullptr,
       R"({"enable_ftp_max_conn": false, "ftp_max_conn": 3, "ftp_http_max_download_rate": 0})",
       true},
      {"FtpHttp",
       "download_ftpmax_enable=\"yes\"\ndownload_ftpmax=\"12\"\ndownload_http_dl_rate=\"500\"\n",
       R"({"enable_ftp_max_conn": true, "ftp_max_conn": 12, "ftp_http_max_download_rate": 500})",
       true},
      {"FtpHttp",
       "download_ftpmax_enable=\"YES\"\ndownload_ftpmax=\"0\"\ndownload_http_dl_rate=\"-1\"\n",
       R"({"enable_ftp_max_conn": false, "ftp_max_conn": 3, "ftp_http_max_download_rate": -1})",
       true},
      {"BT",
       "download_start_port=\"7000\"\ndownload_ul_rate=\"11\"\ndownload_dl_rate=\"12\"\n"
       "download_seeding_ratio=\"13\"\ndownload_seeding_interval=\"14\"\n"
       "download_seeding_auto_remove=\"yes\"\ndownload_enable_dht=\"no\"\n"
       "download_dhtport=\"7001\"\ndownload_btmaxpeers=\"15\"\n"
       "download_enable_bt_port_forwarding=\"yes\"\ndownload_enable_bt_preview=\"yes\"\n"
       "download_btencrypt=\"always\"\n",
       R"({"tcp_port": 7000, "max_upload_rate": 11, "max_download_rate": 12, "seeding_ratio": 13,
           "seeding_interval": 14, "enable_seeding_auto_remove": true, "enable_dht": false,
           "dht_port": 7001, "max_peer": 15, "enable_port_forwarding": true,
           "enable_preview": true, "encrypt": "always"})",
       true},
      {"BT", "download_btencrypt=\"auto\"\n", R"({"encrypt": "auto"})", false},
      {"BT", "download_btencrypt=\"disable\"\n", R"({"encrypt": "disable"})", false},
      {"Nzb",
       "download_nzb_server=\"news.example\"\ndownload_nzb_port=\"563\"\n"
       "download_nzb_encryption=\"yes\"\ndownload_nzb_auth=\"yes\"\ndownload_nzb_user=\"ann\"\n"
       "download_nzb_password_en=\"c2VjcmV0\"\ndownload_nzb_numconn=\"8\"\n"
       "download_nzb_dl_rate=\"900\"\ndownload_nzb_enable_parchive=\"yes\"\n"
       "download_nzb_enable_remove_parchive_files=\"yes\"\n",
       R"({"server": "news.example", "port": 563, "enable_encryption": true, "enable_auth": true,
           "username": "ann", "conn_per_download": 8, "max_download_rate": 900,
           "enable_parchive": true, "enable_remove_parfiles": true})",
       true},
      {"Nzb", "download_nzb_encryption=\"YES\"\n",
       R"({"server": "", "port": 119, "enable_encryption": false, "enable_auth": false,
           "username": "", "conn_per_download": 2, "max_download_rate": 0,
           "enable_parchive": false, "enable_remove_parfiles": false})",
       true},
      {"Scheduler", "",
       R"({"enable_schedule": false, "schedule": ")" + kWeek +
           R"(", "upload_rate": 0, "download_rate": 0, "order": "request", "max_tasks": 10,
           "max_tasks_limit": 80})",
       true},
      {"Scheduler",
       "download_schedule_enable=\"yes\"\ndownload_alt_ul_rate=\"30\"\n"
       "download_alt_dl_rate=\"40\"\ndownload_order=\"user\"\ndownload_maxtasks=\"25\"\n",
       R"({"enable_schedule": true, "upload_rate": 30, "download_rate": 40, "order": "user",
           "max_tasks": 25})",
       false},
      {"Scheduler", "download_schedule_enable=\"YES\"\n", R"({"enable_schedule": false})", false},
      // RSS: seconds in the file, minutes in the answer, never less than 10.
      {"Rss", "", R"({"update_interval": 1440})", true},
      {"Rss", "download_rss_update_interval=\"300\"\n", R"({"update_interval": 10})", true},
      {"Rss", "download_rss_update_interval=\"659\"\n", R"({"update_interval": 10})", true},
      {"Rss", "download_rss_update_interval=\"660\"\n", R"({"update_interval": 11})", true},
      {"Rss", "download_rss_update_interval=\"-7200\"\n", R"({"update_interval": 10})", true},
      {"Rss", "download_rss_update_interval=\"  1200\"\n", R"({"update_interval": 20})", true},
      {"Rss", "download_rss_update_interval=\"1200s\"\n", R"({"update_interval": 20})", true},
      {"Rss", "download_rss_update_interval=\"every hour\"\n", R"({"update_interval": 1440})",
       true},
      {"Rss", "download_rss_update_interval=\"99999999999\"\n", R"({"update_interval": 1440})",
       true},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.api) + ": " + (row.file != nullptr ? row.file : "no file"));
    qrix::test::Remove(qrix::test::kSettingsConf);
    if (row.file != nullptr) {
      WriteSettings(row.file);
    }
    const auto result = CallApi(row.api, "get", "{}");
    ASSERT_TRUE(result.Success());
    EXPECT_TRUE(result.response->GetCallbacks().empty());
    const Json::Value want = QRIX::WebAPIUtil::ParseJson(row.want);
    if (row.whole) {
      EXPECT_EQ(result.Data(), want);
    }
    for (const std::string& member : want.getMemberNames()) {
      EXPECT_EQ(result.Data()[member], want[member]) << member;
    }
    EXPECT_EQ(ReadText(qrix::test::kSettingsConf), row.file != nullptr ? row.file : "")
        << "get writes nothing";
  }
  // Even an unreadable file answers RSS, with the default.
  qrix::test::Remove(qrix::test::kSettingsConf);
  std::filesystem::create_directory(qrix::test::kSettingsConf);
  EXPECT_EQ(CallApi("Rss", "get", "{}").Data()["update_interval"], 1440);
  std::filesystem::remove(qrix::test::kSettingsConf);
}

// Each row: the file before, the request, the whole file after, the callbacks. A request that
// names nothing to change answers nothing and registers nothing only for RSS.
TEST_F(SettingsHandlersTest, SetWritesWhatTheRequestNamesInOrder) {
  const std::string ftp =
      "download_ftpmax_enable=\"yes\"\ndownload_ftpmax=\"5\"\ndownload_http_dl_rate=\"100\"\n"
      "download_other=\"kept\"\n";
  const std::string rss = "download_rss_update_interval=\"1800\"\n";
  const std::string tasks = "download_maxtasks=\"3\"\n";
  struct Row {
    const char* api;
    std::string before;
    const char* params;
    std::string after;
    const char* callbacks;
  };
  const Row rows[] = {
      {"FtpHttp", ftp, "{}", ftp, "SchedulerSIGHUP"},
      {"FtpHttp", ftp, R"({"ftp_max_conn": 9})",
       "download_ftpmax_enable=\"yes\"\ndownload_ftpmax=\"9\"\ndownload_http_dl_rate=\"100\"\n"
       "download_other=\"kept\"\n",
       "SchedulerSIGHUP"},
      {"FtpHttp", ftp, R"({"enable_ftp_max_conn": false})",
       "download_ftpmax_enable=\"no\"\ndownload_ftpmax=\"5\"\ndownload_http_dl_rate=\"100\"\n"
       "download_other=\"kept\"\n",
       "SchedulerSIGHUP"},
      {"FtpHttp", ftp,
       R"({"ftp_http_max_download_rate": 0, "enable_ftp_max_conn": true, "ftp_max_conn": 65535})",
       "download_ftpmax_enable=\"yes\"\ndownload_ftpmax=\"65535\"\ndownload_http_dl_rate=\"0\"\n"
       "download_other=\"kept\"\n",
       "SchedulerSIGHUP"},
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
       "SchedulerSIGHUP,ReloadFirewall,SchedulerSIGCONT"},
      {"Scheduler", tasks, "{}", tasks, "SchedulerSIGHUP"},
      {"Scheduler", tasks, R"({"enable_schedule": true})",
       tasks + "download_schedule_enable=\"yes\"\n", "SchedulerSIGHUP"},
      {"Scheduler", tasks,
       R"({"enable_schedule": false, "schedule": "0101", "download_rate": 40, "upload_rate": 30,
           "order": "user", "max_tasks": 12})",
       "download_maxtasks=\"12\"\ndownload_schedule_enable=\"no\"\ndownload_schedule=\"0101\"\n"
       "download_alt_dl_rate=\"40\"\ndownload_alt_ul_rate=\"30\"\ndownload_order=\"user\"\n",
       "SchedulerSIGHUP"},
      // NZB's password enciphered in its place ("*": what the file holds).
      {"Nzb", "",
       R"({"server": "news.example", "port": 563, "conn_per_download": 8, "enable_encryption": true,
           "max_download_rate": 900, "enable_auth": false, "username": "ann", "password": "s3cret",
           "enable_parchive": true, "enable_remove_parfiles": false})",
       "download_nzb_server=\"news.example\"\ndownload_nzb_port=\"563\"\n"
       "download_nzb_numconn=\"8\"\ndownload_nzb_encryption=\"yes\"\ndownload_nzb_dl_rate=\"900\"\n"
       "download_nzb_auth=\"no\"\ndownload_nzb_user=\"ann\"\ndownload_nzb_password_en=\"*\"\n"
       "download_nzb_enable_parchive=\"yes\"\ndownload_nzb_enable_remove_parchive_files=\"no\"\n",
       "SchedulerSIGHUP"},
      // RSS: minutes in the request, seconds in the file, without the floor of reading.
      {"Rss", rss, R"({"update_interval": 1})", "download_rss_update_interval=\"60\"\n",
       "SchedulerSIGHUP"},
      {"Rss", rss, R"({"update_interval": 1440})", "download_rss_update_interval=\"86400\"\n",
       "SchedulerSIGHUP"},
      {"Rss", rss, "{}", rss, ""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.api) + " " + row.params);
    WriteSettings(row.before);
    const auto result = CallApi(row.api, "set", row.params);
    std::string after = row.after;
    if (const size_t star = after.find("\"*\""); star != std::string::npos) {
      after.replace(star + 1, 1, qrix::test::ReadSettings()["download_nzb_password_en"]);
    }
    EXPECT_EQ(ReadText(qrix::test::kSettingsConf), after);
    EXPECT_EQ(qrix::test::CallbackNames(*result.response), row.callbacks);
    if (*row.callbacks != '\0') {
      EXPECT_TRUE(result.Success());
      EXPECT_TRUE(result.Data().isNull());
    } else {
      EXPECT_EQ(result.response->GetState(), QRIX::APIResponse::State::kNone);
    }
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
      {"MemTotal: 0 kB\n", 20},
      {"MemTotal: 18446744073709551615 kB\n", 80},
      {"MemFree: 9999999 kB\nBuffers: 1 kB\nMemTotal: 300000 kB\n", 30},
      {"MemFree: 9999999 kB\n", 0},
      {"", 0},
  };
  auto& log = qrix::test::SyslogCapture::Get();
  for (const Row& row : rows) {
    SCOPED_TRACE(row.meminfo);
    log.Clear();
    qrix::test::WriteText(kMeminfo, row.meminfo);
    const auto result = CallApi("Scheduler", "get", "{}");
    ASSERT_TRUE(result.Success());
    EXPECT_EQ(result.Data().isMember("max_tasks_limit"), row.limit != 0);
    EXPECT_EQ(result.Data()["max_tasks_limit"].asInt(), row.limit);
    EXPECT_EQ(log.Count("handler/scheduler_handler:"), row.limit == 0 ? 1 : 0);
    EXPECT_EQ(log.Count("Cannot get MemTotal value."), row.limit == 0 ? 1 : 0);
  }
}

// Only ports that change are written and registered; the firewall reloads only for them and
// DHT restarts when switched, or when it runs and its port moved.
TEST_F(SettingsHandlersTest, BtPortChangesDecideRegistrationAndCallbacks) {
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
TEST_F(SettingsHandlersTest, BtConflictingPortsAnswer517) {
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

TEST_F(SettingsHandlersTest, BtFailuresAnswerTheirCodes) {
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

// The stored password, deciphered.
std::string StoredPassword() {
  const std::string text = qrix::test::ReadSettings()["download_nzb_password_en"];
  std::string plain(text.size(), '\0');
  if (VLIBCCryptSzDecrypt(text.c_str(), plain.data(), static_cast<int>(plain.size()) + 1) == 0) {
    return "(not deciphered)";
  }
  plain.resize(std::strlen(plain.c_str()));
  return plain;
}

// The buffer holds exactly a Base64 text of the password: the cipher must keep the length.
TEST_F(SettingsHandlersTest, NzbPasswordsOfEveryLengthFitAndComeBack) {
  for (const std::string& password :
       {std::string(), std::string("a"), std::string("ab"), std::string("abc"), std::string("abcd"),
        std::string("s3cret"), std::string("p\"w\nd\r="), std::string(44, 'x'),
        std::string(1000, 'y')}) {
    SCOPED_TRACE(password.size());
    WriteSettings("");
    Json::Value params;
    params["password"] = password;
    ASSERT_TRUE(CallApi("Nzb", "set", Params(params)).Success());
    const auto file = qrix::test::ParseKvStrict(ReadText(qrix::test::kSettingsConf));
    ASSERT_TRUE(file.ok) << file.bad_line;
    EXPECT_EQ(file.values.at("download_nzb_password_en").size(), (password.size() + 2) / 3 * 4);
    EXPECT_EQ(StoredPassword(), password);
    EXPECT_TRUE(password.size() < 4 ||
                ReadText(qrix::test::kSettingsConf).find(password) == std::string::npos);
  }
}

TEST_F(SettingsHandlersTest, NzbAFailedEncipherWritesNothing) {
  auto& log = qrix::test::SyslogCapture::Get();
  WriteSettings("download_nzb_server=\"old\"\n");
  // Any key will do; a key others may read is refused.
  ASSERT_EQ(CallApi("Nzb", "set", R"({"password": "x"})").Error(), 0);
  ASSERT_EQ(chmod(VLIBC_CRYPT_KEY_FILE, 0644), 0);
  const auto result = CallApi(
      "Nzb", "set", R"({"server": "new", "password": "pw", "enable_remove_parfiles": true})");
  EXPECT_EQ(result.response->GetState(), QRIX::APIResponse::State::kNone);
  EXPECT_TRUE(result.response->GetCallbacks().empty());
  EXPECT_EQ(qrix::test::ReadSettings()["download_nzb_server"], "old");
  EXPECT_EQ(qrix::test::ReadSettings().count("download_nzb_enable_remove_parchive_files"), 0u);
  EXPECT_EQ(log.Count("handler/nzb_handler:"), 1);
  EXPECT_EQ(log.Count("Failed to encrypt password"), 1);
  ASSERT_EQ(chmod(VLIBC_CRYPT_KEY_FILE, 0600), 0);
}

}  // namespace
