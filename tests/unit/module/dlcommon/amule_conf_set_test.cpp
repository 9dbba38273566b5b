// amule.conf pointed at a volume: which lines change, the 63-character cut, and failures that
// leave the file as it was.
#include "module/dlcommon/amule_conf_set.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "tests/support/files.h"
#include "tests/support/syslog_capture.h"

namespace {

using qrix::test::ReadText;
using qrix::test::SyslogCapture;
using qrix::test::WriteText;

TEST(AmuleConfSetTest, RewritesTempDirAndAddressLines) {
  const std::string long_volume = "/volumeUSB1/usbshare1-1/" + std::string(30, 'v');
  const std::string long_line(1030, 'a');
  struct Case {
    std::string before;
    std::string volume;
    std::string after;
  } const cases[] = {
      {"Nick=x\nPort=4662\n", "/volume2", "Nick=x\nPort=4662\n"},
      {"TempDir=/volume1/@download/aMuleTmp\nAddress=192.168.1.5\nIncomingDir=/x\n"
       "TempDir=old\ntempdir=kept\n Address=kept\n",
       "/volume2",
       "TempDir=/volume2/@download/aMuleTmp\nAddress=\nIncomingDir=/x\n"
       "TempDir=/volume2/@download/aMuleTmp\ntempdir=kept\n Address=kept\n"},
      // Cut at 63 characters: the newline goes and the next line joins this one.
      {"TempDir=a\nNext=1\n", long_volume,
       ("TempDir=" + long_volume + "/@download/aMuleTmp\n").substr(0, 63) + "Next=1\n"},
      // A line longer than the buffer comes in pieces, each copied as it is.
      {long_line + "\nAddress=1\n", "/volume1", long_line + "\nAddress=\n"},
      {"TempDir=x", "/volume1", "TempDir=/volume1/@download/aMuleTmp\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.before.substr(0, 40));
    WriteText(QRIXDL_AMULE_CONF, c.before);
    ASSERT_EQ(chown(QRIXDL_AMULE_CONF, 990, 990), 0);
    ASSERT_EQ(chmod(QRIXDL_AMULE_CONF, 0640), 0);
    EXPECT_EQ(QRIXDLAmuleVolumeSet(c.volume.c_str()), 0);
    EXPECT_EQ(ReadText(QRIXDL_AMULE_CONF), c.after);
    struct stat st {};
    ASSERT_EQ(stat(QRIXDL_AMULE_CONF, &st), 0);
    EXPECT_EQ(st.st_uid, 990u);
    EXPECT_EQ(st.st_mode & 07777, 0640u);
  }
}

TEST(AmuleConfSetTest, FailuresLeaveTheFileAlone) {
  SyslogCapture::Get().Clear();
  WriteText(QRIXDL_AMULE_CONF, "TempDir=old\n");
  EXPECT_EQ(QRIXDLAmuleVolumeSet(nullptr), -1);
  EXPECT_EQ(QRIXDLAmuleVolumeSet(""), -1);
  EXPECT_EQ(SyslogCapture::Get().Count("amule_conf_set(19) Bad parameter."), 2);

  // A directory that takes no new files: the rewrite cannot be published.
  const std::string dir = std::filesystem::path(QRIXDL_AMULE_CONF).parent_path();
  ASSERT_EQ(chmod(dir.c_str(), 0555), 0);
  ASSERT_EQ(setresuid(-1, 990, -1), 0);
  EXPECT_EQ(QRIXDLAmuleVolumeSet("/volume2"), -1);
  ASSERT_EQ(setresuid(-1, 0, -1), 0);
  ASSERT_EQ(chmod(dir.c_str(), 0755), 0);
  EXPECT_TRUE(SyslogCapture::Get().Contains(
      "QRIXDLAmuleVolumeSet(29): fopen(SZF_QRIX_AMULE_CONF.tmp, \"w\") failed"));
  EXPECT_EQ(ReadText(QRIXDL_AMULE_CONF), "TempDir=old\n");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir), {}), 1);

  qrix::test::Remove(QRIXDL_AMULE_CONF);
  EXPECT_EQ(QRIXDLAmuleVolumeSet("/volume2"), -1);
  EXPECT_TRUE(SyslogCapture::Get().Contains(
      "QRIXDLAmuleVolumeSet(24): fopen(SZF_QRIX_AMULE_CONF, \"r\") failed"));
  EXPECT_FALSE(std::filesystem::exists(QRIXDL_AMULE_CONF));
}

}  // namespace
