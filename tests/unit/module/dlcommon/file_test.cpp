// The temporary download directory on real volumes of the sandbox: where the link points, the
// volume under it, its free space to the byte, task temporaries and the quota test.
#include "module/dlcommon/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "tests/support/files.h"
#include "tests/support/syslog_capture.h"

namespace {

namespace fs = std::filesystem;
using qrix::test::SyslogCapture;

void PointLinkAt(const char* target) {
  ::unlink(QRIXDL_TMP_DOWNLOAD_LINK);
  if (target != nullptr) {
    ASSERT_EQ(::symlink(target, QRIXDL_TMP_DOWNLOAD_LINK), 0);
  }
}

class FileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::access(QRIXDL_FSTOOL, X_OK) != 0) {
      GTEST_SKIP() << QRIXDL_FSTOOL << " is missing: run inside scripts/sandbox with a build";
    }
    fs::create_directories("/volume1/@download");
    fs::create_directories("/volumeUSB1/usbshare1-1/@download");
    fs::create_directories("/tmp/not-a-volume");
    qrix::test::WriteText("/volume1/plain-file", "x");
    SyslogCapture::Get().Clear();
  }
};

TEST_F(FileTest, TheLinkTheDirectoryAndTheVolume) {
  struct Case {
    const char* target;  // nullptr: no link
    bool real_path;
    bool dir;
    const char* volume;  // nullptr: GetTmpDownloadDirVol fails
    const char* log;     // the line it logs then
  } const cases[] = {
      {"/volume1/@download", true, true, "/volume1", nullptr},
      {"/volumeUSB1/usbshare1-1/@download", true, true, "/volumeUSB1/usbshare1-1", nullptr},
      {"/volume1/@download/../@download/", true, true, "/volume1", nullptr},
      {"/volume1/@missing", true, false, nullptr, "file:112 Failed to get download temporary"},
      {"/volume1/plain-file", true, false, nullptr, "file:112 "},
      {"/volume4", true, false, nullptr, "file:112 "},  // read-only: not usable
      {"/tmp/not-a-volume", true, true, nullptr,
       "file:116 Failed to parse path [/tmp/not-a-volume] for volume info"},
      {nullptr, false, false, nullptr, "file:112 "},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.target != nullptr ? c.target : "no link");
    PointLinkAt(c.target);
    char buf[4096] = "junk";
    EXPECT_EQ(GetTmpDownloadDirRealPath(buf, sizeof buf), c.real_path ? 0 : -1);
    if (c.real_path) {
      EXPECT_STREQ(buf, c.target);
    }
    EXPECT_EQ(GetTmpDownloadDir(buf, sizeof buf), c.dir ? 0 : -1);
    SyslogCapture::Get().Clear();
    EXPECT_EQ(GetTmpDownloadDirVol(buf, sizeof buf), c.volume != nullptr ? 0 : -1);
    if (c.volume != nullptr) {
      EXPECT_STREQ(buf, c.volume);
    } else {
      EXPECT_TRUE(SyslogCapture::Get().Contains(c.log));
    }
  }
  char small[4];
  PointLinkAt("/volume1/@download");
  EXPECT_EQ(GetTmpDownloadDirVol(small, sizeof small), 0);
  EXPECT_STREQ(small, "/vo");
  EXPECT_EQ(GetTmpDownloadDirRealPath(nullptr, 10), -1);
  EXPECT_EQ(GetTmpDownloadDirRealPath(small, -1), -1);
  EXPECT_TRUE(SyslogCapture::Get().Contains("file:91 Bad parameters"));
}

// Fills /volume3 (a 2 MiB tmpfs) until exactly `free_bytes` are left.
void LeaveFree(uint64_t free_bytes) {
  fs::remove("/volume3/filler");
  struct statvfs st {};
  ASSERT_EQ(::statvfs("/volume3", &st), 0);
  const uint64_t now = static_cast<uint64_t>(st.f_bavail) * st.f_frsize;
  ASSERT_GE(now, free_bytes);
  std::ofstream("/volume3/filler") << std::string(now - free_bytes, 'x');
  ASSERT_EQ(::statvfs("/volume3", &st), 0);
  ASSERT_EQ(static_cast<uint64_t>(st.f_bavail) * st.f_frsize, free_bytes);
}

TEST_F(FileTest, SpaceCheckDrawsTheLineAtOneMebibyte) {
  fs::create_directories("/volume3/@download");
  PointLinkAt("/volume3/@download");
  LeaveFree(1 << 20);
  EXPECT_EQ(TmpVolumeSpaceCheck(), 0);
  LeaveFree((1 << 20) - 4096);  // one page less: a tmpfs counts no finer
  EXPECT_EQ(TmpVolumeSpaceCheck(), 1);
  fs::remove("/volume3/filler");
  PointLinkAt("/volume1/@missing");
  EXPECT_EQ(TmpVolumeSpaceCheck(), -1);
  EXPECT_TRUE(SyslogCapture::Get().Contains("file:144 Failed to get TmpDownloadDir."));
}

TEST_F(FileTest, RemoveTaskTempWaitsOrNot) {
  for (const int flag : {0, 1}) {
    SCOPED_TRACE(flag);
    fs::create_directories("/volume1/@download/task/a/b");
    qrix::test::WriteText("/volume1/@download/task/a/b/c", "data");
    EXPECT_EQ(RemoveTaskTemp("/volume1/@download/task", flag), 0);
    for (int i = 0; flag != 0 && i < 300 && fs::exists("/volume1/@download/task"); ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_FALSE(fs::exists("/volume1/@download/task"));
  }
  for (const char* bad : {static_cast<const char*>(nullptr), "", "-rf", "relative/dir"}) {
    EXPECT_EQ(RemoveTaskTemp(bad, 0), -1);
  }
  EXPECT_EQ(SyslogCapture::Get().Count("file:179 Failed to remove path ["), 4);
  EXPECT_TRUE(fs::exists("/volume1/@download"));
}

TEST_F(FileTest, QuotaCheckAsksOnlyForOrdinaryUsersAndAsRoot) {
  std::ofstream("/etc/passwd", std::ios::app) << "qadmin:x:2101:100::/:/bin/false\n"
                                              << "quser:x:2102:100::/:/bin/false\n";
  std::string group = qrix::test::ReadText("/etc/group");
  const size_t at = group.find("administrators:x:101:");
  ASSERT_NE(at, std::string::npos);
  group.insert(group.find('\n', at), group[group.find('\n', at) - 1] == ':' ? "qadmin" : ",qadmin");
  std::ofstream("/etc/group", std::ios::trunc) << group;

  EXPECT_EQ(QRIXDLQuotaCheck(2101, "/volume1/@download", 1ull << 40), 0);
  EXPECT_FALSE(SyslogCapture::Get().Contains("CriticalSection"));
  // The sandbox's volumes keep no quotas: any size fits. Root already: no switch, two lines.
  EXPECT_EQ(QRIXDLQuotaCheck(2102, "/volume1/@download/new/file", 1ull << 40), 0);
  EXPECT_EQ(SyslogCapture::Get().Count("file:55 ENTERCriticalSection"), 1);
  EXPECT_EQ(SyslogCapture::Get().Count("file:55 LEAVECriticalSection"), 1);
  EXPECT_FALSE(SyslogCapture::Get().Contains("WARNING"));
  EXPECT_EQ(QRIXDLQuotaCheck(2103, "/volume1", 1), -1);
  EXPECT_TRUE(SyslogCapture::Get().Contains("file:49 Failed to check if uid 2103 is admingroup"));
}

}  // namespace
