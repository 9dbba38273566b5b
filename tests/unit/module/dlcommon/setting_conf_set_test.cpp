// The whole-record writer and the scheduler signal.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "module/dlcommon/download_info.h"
#include "platform/vlibc/vlibc_file.h"
#include "tests/support/fake_scheduler.h"
#include "tests/support/files.h"
#include "tests/support/kv_interposer.h"
#include "tests/support/syslog_capture.h"

namespace {

using qrix::test::FakeScheduler;
using qrix::test::Kv;
using qrix::test::SyslogCapture;
using Counts = FakeScheduler::Counts;

// The writer's key order, without the "download_" prefix.
std::vector<std::string> WriterOrder() {
  std::istringstream words(
      "order ul_rate dl_rate http_dl_rate http_max_conn enable_http_multi_conn start_port "
      "end_port port_map_enabled seeding_interval seeding_ratio seeding_auto_remove enable_dht "
      "dhtport enable_bt_port_forwarding btencrypt btmaxpeers enable_bt_preview enable_pyload "
      "enable_autoUnzip enable_amule amule_ul_rate amule_dl_rate amule_tcp_port amule_udp_port "
      "amule_max_conn amule_auto_connect amule_enable_obfuscation amule_outgoing_obfuscation "
      "amule_only_obfuscation amule_auto_update_server maxtasks nzb_server nzb_port nzb_auth "
      "nzb_user nzb_password_en nzb_numconn nzb_encryption nzb_dl_rate nzb_enable_parchive "
      "nzb_enable_remove_parchive_files ftpmax_enable ftpmax enable_xunlei");
  std::vector<std::string> keys;
  for (std::istream_iterator<std::string> it(words), end; it != end; ++it) {
    keys.push_back("download_" + *it);
  }
  return keys;
}
const std::vector<std::string> kWriterOrder = WriterOrder();

class SettingConfSetTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Kv().Reset();
    qrix::test::Remove(qrix::test::kSettingsConf);
    SyslogCapture::Get().Clear();
  }
  static DownloadInfo Sample() {
    DownloadInfo info;
    std::memset(&info, 0, sizeof info);
    EXPECT_EQ(QRIXDLInfoGet(&info), 0);
    info.order = 1;
    info.ul_rate = -1;
    info.start_port = 51413;
    info.enable_dht = 0;
    info.btencrypt = 2;
    info.enable_amule = 1;
    info.nzb_port = 563;
    std::strcpy(info.nzb_server, "news \"quoted\" server");
    std::strcpy(info.nzb_encryption, "yes");
    info.ftpmax_enable = 1;
    Kv().Reset();
    return info;
  }
};

TEST_F(SettingConfSetTest, WritesEveryKeyInItsOrderAndReadsBackTheSame) {
  FakeScheduler scheduler;
  DownloadInfo info = Sample();
  ASSERT_EQ(QRIXDLInfoSet(&info), 0);
  EXPECT_EQ(Kv().write_keys, kWriterOrder);
  const auto file = qrix::test::ParseKvStrict(qrix::test::ReadText(qrix::test::kSettingsConf));
  ASSERT_TRUE(file.ok) << file.bad_line;
  for (const auto& [key, value] : {std::pair{"order", "user"},
                                   {"btencrypt", "always"},
                                   {"enable_dht", "no"},
                                   {"enable_amule", "yes"},
                                   {"ul_rate", "-1"},
                                   {"nzb_port", "563"}}) {
    EXPECT_EQ(file.values.at(std::string("download_") + key), value);
  }
  DownloadInfo back;
  ASSERT_EQ(QRIXDLInfoGet(&back), 0);
  EXPECT_EQ(std::memcmp(&back, &info, sizeof info), 0);
  EXPECT_EQ(scheduler.WaitFor({1, 0, 0}), (Counts{1, 0, 0}));
  info.order = 7;  // any order but the user's is the request order
  ASSERT_EQ(QRIXDLInfoSet(&info), 0);
  EXPECT_EQ(qrix::test::ReadSettings().at("download_order"), "request");
}

// A failure keeps the keys written before it, lets the lock go with nothing left staged for
// the next writer to publish, and tells the scheduler nothing.
TEST_F(SettingConfSetTest, AFailureKeepsTheKeysBeforeIt) {
  const struct {
    int btencrypt;  // 3: no word for it
    int fail_write_at;
    bool directory;  // a directory in the file's place: it cannot be published
    size_t kept;
  } cases[] = {{3, -1, false, 15}, {2, 3, false, 3}, {2, -1, true, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.kept);
    SetUp();
    FakeScheduler scheduler;
    DownloadInfo info = Sample();
    info.btencrypt = c.btencrypt;
    Kv().fail_write_at = c.fail_write_at;
    if (c.directory) {
      std::filesystem::create_directory(qrix::test::kSettingsConf);
    }
    ASSERT_EQ(QRIXDLInfoSet(&info), -1);
    const auto file = qrix::test::ReadSettings();
    EXPECT_EQ(file.size(), c.kept);
    for (size_t i = 0; i < c.kept; ++i) {
      EXPECT_EQ(file.count(kWriterOrder[i]), 1u) << kWriterOrder[i];
    }
    EXPECT_TRUE(SyslogCapture::Get().Contains("setting_conf_set ("));
    std::filesystem::remove(qrix::test::kSettingsConf);
    EXPECT_EQ(VLIBCFileLock(QRIXDL_SETTINGS_LOCK, 0), 0);
    EXPECT_EQ(VLIBCFileUnlock(QRIXDL_SETTINGS_UNLOCK), 0);
    EXPECT_FALSE(std::filesystem::exists(qrix::test::kSettingsConf));
    usleep(100000);
    EXPECT_EQ(scheduler.Read(), Counts{});
  }
}

// A scheduler that never ran does not fail the write. A stale pid file and the signals
// themselves are the callbacks' test.
TEST_F(SettingConfSetTest, ANeverRunningSchedulerDoesNotFailTheWrite) {
  qrix::test::Remove(QRIXDL_SCHEDULER_PID);
  const DownloadInfo info = Sample();
  ASSERT_EQ(QRIXDLInfoSet(&info), 0);
  EXPECT_TRUE(SyslogCapture::Get().Contains("Failed to send HUP to scheduler. [0x2001 "));
  EXPECT_TRUE(SyslogCapture::Get().Contains(")Failed to hup scheduled."));
}

}  // namespace
