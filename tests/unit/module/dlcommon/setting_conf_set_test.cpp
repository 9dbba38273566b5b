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

#include "module/dlcommon/critical_section.h"
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
  return {std::istream_iterator<std::string>(words), std::istream_iterator<std::string>()};
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
    return info;
  }
};

TEST_F(SettingConfSetTest, WritesEveryKeyInItsOrderAndReadsBackTheSame) {
  FakeScheduler scheduler;
  const DownloadInfo info = Sample();
  Kv().Reset();
  ASSERT_EQ(QRIXDLInfoSet(&info), 0);
  ASSERT_EQ(Kv().write_keys.size(), kWriterOrder.size());
  for (size_t i = 0; i < kWriterOrder.size(); ++i) {
    EXPECT_EQ(Kv().write_keys[i], "download_" + kWriterOrder[i]);
  }
  const auto file = qrix::test::ParseKvStrict(qrix::test::ReadText(qrix::test::kSettingsConf));
  ASSERT_TRUE(file.ok) << file.bad_line;
  EXPECT_EQ(file.values.at("download_order"), "user");
  EXPECT_EQ(file.values.at("download_btencrypt"), "always");
  EXPECT_EQ(file.values.at("download_enable_dht"), "no");
  EXPECT_EQ(file.values.at("download_enable_amule"), "yes");
  EXPECT_EQ(file.values.at("download_ul_rate"), "-1");
  EXPECT_EQ(file.values.at("download_nzb_port"), "563");
  DownloadInfo back;
  ASSERT_EQ(QRIXDLInfoGet(&back), 0);
  EXPECT_EQ(std::memcmp(&back, &info, sizeof info), 0);
  EXPECT_EQ(scheduler.WaitFor({1, 0, 0}), (FakeScheduler::Counts{1, 0, 0}));
}

TEST_F(SettingConfSetTest, OrderOtherThanUserIsWrittenAsRequest) {
  DownloadInfo info = Sample();
  info.order = 7;
  ASSERT_EQ(QRIXDLInfoSet(&info), 0);
  EXPECT_EQ(qrix::test::ReadSettings().at("download_order"), "request");
}

TEST_F(SettingConfSetTest, AnUnknownEncryptionFailsAfterFifteenKeys) {
  FakeScheduler scheduler;
  DownloadInfo info = Sample();
  info.btencrypt = 3;
  ASSERT_EQ(QRIXDLInfoSet(&info), -1);
  const auto file = qrix::test::ReadSettings();
  EXPECT_EQ(file.size(), 15u);
  for (size_t i = 0; i < 15; ++i) {
    EXPECT_EQ(file.count("download_" + kWriterOrder[i]), 1u) << kWriterOrder[i];
  }
  EXPECT_TRUE(SyslogCapture::Get().Contains("setting_conf_set ("));
  usleep(100000);
  EXPECT_EQ(scheduler.Read(), (FakeScheduler::Counts{0, 0, 0}));
  // The lock was let go.
  EXPECT_EQ(VLIBCFileLock(QRIXDL_SETTINGS_LOCK, 0), 0);
  EXPECT_EQ(VLIBCFileUnlock(QRIXDL_SETTINGS_UNLOCK), 0);
}

TEST_F(SettingConfSetTest, AFailedWriteKeepsTheKeysBeforeIt) {
  const DownloadInfo info = Sample();
  Kv().fail_write_at = 3;
  ASSERT_EQ(QRIXDLInfoSet(&info), -1);
  const auto file = qrix::test::ReadSettings();
  EXPECT_EQ(file.size(), 3u);
  EXPECT_EQ(file.count("download_dl_rate"), 1u);
  EXPECT_EQ(file.count("download_http_dl_rate"), 0u);
}

TEST_F(SettingConfSetTest, AFileThatCannotBePublishedFailsAndIsNotAnnounced) {
  FakeScheduler scheduler;
  const DownloadInfo info = Sample();
  std::filesystem::create_directory(qrix::test::kSettingsConf);
  EXPECT_EQ(QRIXDLInfoSet(&info), -1);
  usleep(100000);
  EXPECT_EQ(scheduler.Read(), (FakeScheduler::Counts{0, 0, 0}));
  std::filesystem::remove(qrix::test::kSettingsConf);
  // Lock released, and nothing left staged for the next writer to publish.
  EXPECT_EQ(VLIBCFileLock(QRIXDL_SETTINGS_LOCK, 0), 0);
  EXPECT_EQ(VLIBCFileUnlock(QRIXDL_SETTINGS_UNLOCK), 0);
  EXPECT_FALSE(std::filesystem::exists(qrix::test::kSettingsConf));
}

TEST_F(SettingConfSetTest, ANeverRunningSchedulerDoesNotFailTheWrite) {
  qrix::test::Remove(QRIXDL_SCHEDULER_PID);
  const DownloadInfo info = Sample();
  ASSERT_EQ(QRIXDLInfoSet(&info), 0);
  EXPECT_TRUE(SyslogCapture::Get().Contains("Failed to send HUP to scheduler. [0x2001 "));
  EXPECT_TRUE(SyslogCapture::Get().Contains("setting_conf_set (") &&
              SyslogCapture::Get().Contains(")Failed to hup scheduled."));
}

TEST_F(SettingConfSetTest, SchedulerSignalIsSentAsRootAndSaysHupWhateverTheSignal) {
  qrix::test::WriteText(QRIXDL_SCHEDULER_PID, "999999\n");
  EXPECT_EQ(QRIXDLSchedulerHup(SIGUSR2), -1);
  EXPECT_TRUE(SyslogCapture::Get().Contains("Failed to send HUP to scheduler. [0x2002 "));
  FakeScheduler scheduler;
  EXPECT_EQ(QRIXDLSchedulerHup(SIGCONT), 0);
  EXPECT_EQ(scheduler.WaitFor({0, 1, 0}), (FakeScheduler::Counts{0, 1, 0}));
}

// Lines of the authorisation facility (LOG_AUTH is 4 << 3).
std::vector<std::string> AuthLines() {
  std::vector<std::string> out;
  for (const auto& line : SyslogCapture::Get().Lines()) {
    if ((line.priority >> 3) == 4) {
      out.push_back(line.message);
    }
  }
  return out;
}

TEST_F(SettingConfSetTest, CriticalSectionAsRootOnlyEntersAndLeaves) {
  {
    QRIXDL::RootCriticalSection root("unit", 10);
    EXPECT_TRUE(root.Entered());
  }
  const auto lines = AuthLines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0], "unit:10 ENTERCriticalSection");
  EXPECT_EQ(lines[1], "unit:10 LEAVECriticalSection");
}

TEST_F(SettingConfSetTest, CriticalSectionRaisesAndRestoresOtherIds) {
  // In a child: it gives up root for ids it can get back (saved ids stay 0).
  SyslogCapture::Get().Clear();
  const pid_t pid = fork();
  if (pid == 0) {
    if (setresgid(-1, 100, -1) != 0 || setresuid(-1, 65534, -1) != 0) {
      _exit(10);
    }
    {
      QRIXDL::RootCriticalSection root("unit", 20);
      if (geteuid() != 0 || getegid() != 0) {
        _exit(11);
      }
      if (!root.Leave(21)) {
        _exit(12);
      }
    }
    _exit(geteuid() == 65534 && getegid() == 100 ? 0 : 13);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  const std::vector<std::string> want = {
      "unit:20 WARNING: setresgid(-1, 0, -1)",
      "unit:20 setresgid: (0, 100, 0) -> (0, 0, 0)",
      "unit:20 WARNING: setresuid(-1, 0, -1)",
      "unit:20 setresuid: (0, 65534, 0) -> (0, 0, 0)",
      "unit:20 ENTERCriticalSection",
      "unit:21 WARNING: setresuid(-1, 0, -1)",
      "unit:21 setresuid: (0, 0, 0) -> (0, 0, 0)",
      "unit:21 setresgid: (0, 0, 0) -> (0, 100, 0)",
      "unit:21 setresuid: (0, 0, 0) -> (0, 65534, 0)",
      "unit:21 LEAVECriticalSection",
  };
  EXPECT_EQ(AuthLines(), want);
}

}  // namespace
