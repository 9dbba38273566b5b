// Share names, the encrypted-share test, ownership, the indexing queue, free file names and URL
// kinds, on real files and accounts in the sandbox.
#include "module/dlcommon/utilswithoutdb.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <string>

#include "platform/system/qrix_index.h"
#include "tests/support/accounts.h"
#include "tests/support/files.h"
#include "tests/support/syslog_capture.h"

namespace {

using qrix::test::ReadText;
using qrix::test::SyslogCapture;

class UtilsWithoutDbTest : public ::testing::Test {
 protected:
  void SetUp() override {
    SyslogCapture::Get().Clear();
    qrix::test::WriteShares(
        "[video]\npath=\"/volume1/video\"\nencrypted=\"no\"\n"
        "[secret]\npath=\"/volume1/secret\"\nencrypted=\"yes\"\n"
        "[homes]\npath=\"/volume1/homes\"\nencrypted=\"yes\"\n"
        "[usbshare1]\npath=\"/volumeUSB1/usbshare1-1\"\nencrypted=\"yes\"\n");
  }
};

TEST_F(UtilsWithoutDbTest, ShareNamesAndEncryption) {
  const struct {
    const char* path;
    int size;
    int rc;
    const char* name;
    int encrypted;
  } cases[] = {
      {"/volume1/homes/alice/a.iso", 64, 0, "home", 0},
      {"homes/alice", 64, 0, "homes", 1},  // only the volume's folder stands for the homes
      {"video/a.mkv", 64, 0, "video", 0},
      {"video", 64, 0, "video", 0},
      {"/volume1/secret/x", 64, 0, "secret", 1},
      {"secret", 64, 0, "secret", 1},
      {"/volumeUSB1/usbshare1-1/dir/f", 64, 0, "usbshare1", 0},  // external: never encrypted
      {"/volumeUSB1/usbshare9-9/f", 64, -1, "", 0},
      {"/volume1", 64, -1, "", 0},
      {"/volume1/nosuch/x", 64, 0, "nosuch", 0},
      {"videos-longer/a.mkv", 8, -1, "", 0},
      {"video/a.mkv", 6, 0, "video", 0},  // "video" and its terminator fit exactly
      {"video/a.mkv", 0, -1, "", 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.path) + " size " + std::to_string(c.size));
    char out[64] = "";
    EXPECT_EQ(DownloadUtilsGetShareNameByPath(c.path, out, c.size), c.rc);
    if (c.rc == 0) {
      EXPECT_STREQ(out, c.name);
    }
    EXPECT_EQ(DownloadUtilsIsEncryptShare(c.path), c.encrypted);
  }
  EXPECT_TRUE(
      SyslogCapture::Get().Contains("Buffer size too small, string length [13], buffer size [8]"));
  EXPECT_EQ(DownloadUtilsIsEncryptShare(nullptr), 0);
}

TEST_F(UtilsWithoutDbTest, ChangeOwnerGivesTheTreeToTheAccount) {
  qrix::test::AddAccount("alice", 2001);
  qrix::test::WriteText("/volume1/video/new/part/file", "x");
  ASSERT_EQ(DownloadUtilsChangeOwner("/volume1/video/new", "alice"), 0);
  struct stat st {};
  ASSERT_EQ(::stat("/volume1/video/new/part/file", &st), 0);
  EXPECT_EQ(st.st_uid, 2001u);
  EXPECT_EQ(st.st_gid, 100u);
  EXPECT_EQ(DownloadUtilsChangeOwner("/volume1/video/new", "nobody-here"), -1);
  EXPECT_EQ(DownloadUtilsChangeOwner("/volume1/no/such", "alice"), -1);
  EXPECT_TRUE(SyslogCapture::Get().Contains("Failed to get user [nobody-here]. QrixErr=[0x1800"));
  EXPECT_TRUE(SyslogCapture::Get().Contains("Failed to get FS type of [/volume1/no/such]"));
}

TEST_F(UtilsWithoutDbTest, IndexingQueuesOneWholeLinePerRequest) {
  qrix::test::Remove(QRIX_INDEX_QUEUE);
  qrix::test::WriteText("/volume1/video/a b.mkv", "x");
  ::mkfifo("/volume1/video/fifo", 0644);
  EXPECT_EQ(DownloadUtilsNotifyIndexing("/volume1/video/a b.mkv"), 0);
  EXPECT_EQ(DownloadUtilsNotifyIndexing("/volume1/video"), 0);
  EXPECT_EQ(DownloadUtilsNotifyIndexing("/volume1/video/fifo"), -1);
  EXPECT_EQ(DownloadUtilsNotifyIndexing("/volume1/video/missing"), -1);
  qrix::test::WriteText("/volume1/video/two\nlines", "x");
  EXPECT_EQ(DownloadUtilsNotifyIndexing("/volume1/video/two\nlines"), -1);
  EXPECT_EQ(ReadText(QRIX_INDEX_QUEUE),
            "index 1 /volume1/video/a b.mkv\nchange 64 /volume1/video/a b.mkv\n"
            "index 3 /volume1/video\nchange 64 /volume1/video\n");
  EXPECT_TRUE(SyslogCapture::Get().Contains("Invalid mode ["));
  EXPECT_TRUE(SyslogCapture::Get().Contains(
      "Failed to stat [/volume1/video/missing]. No such file or directory"));
}

TEST_F(UtilsWithoutDbTest, ValidateFilenameFindsTheFirstFreeName) {
  std::filesystem::remove_all("/volume1/names");
  for (const char* f : {"a.txt", "a1.txt", "README", ".hidden", "x.tar.gz"}) {
    qrix::test::WriteText(std::string("/volume1/names/") + f, "");
  }
  const struct {
    const char* name;
    const char* want;
  } cases[] = {
      {"a.txt", "/volume1/names/a2.txt"},      {"README", "/volume1/names/README1"},
      {".hidden", "/volume1/names/1.hidden"},  {"x.tar.gz", "/volume1/names/x.tar1.gz"},
      {"free.iso", "/volume1/names/free.iso"},
  };
  for (const auto& c : cases) {
    char out[256];
    EXPECT_EQ(QRIXDLValidateFilename(out, sizeof out, "/volume1/names", c.name), 0);
    EXPECT_STREQ(out, c.want);
  }
  char out[8];
  EXPECT_EQ(QRIXDLValidateFilename(out, sizeof out, nullptr, "a"), -1);
}

TEST_F(UtilsWithoutDbTest, UrlKindsGoByTheFirstMatchingScheme) {
  const std::pair<const char*, int> cases[] = {
      {"HTTPS://example.org", QRIXDL_URL_HTTPS},
      {"magnet:?xt=urn", QRIXDL_URL_MAGNET},
      {"magnet:xt=urn", QRIXDL_URL_OTHER},
      {"sftp://h/f", QRIXDL_URL_SFTP},
      {"Thunder://x", QRIXDL_URL_THUNDER},
      {"http:/x", QRIXDL_URL_OTHER},
      {"", QRIXDL_URL_OTHER},
      {nullptr, QRIXDL_URL_OTHER},
  };
  for (const auto& [url, type] : cases) {
    EXPECT_EQ(QRIXDLGetURLType(url), type) << (url ? url : "null");
  }
}

}  // namespace
