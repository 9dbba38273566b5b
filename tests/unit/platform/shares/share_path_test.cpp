// Which folders an account may give downloads: shares it may write to, resolved so that
// neither ".." nor a link leads out.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "platform/dlbase/handler_base.h"
#include "platform/dlbase/shared_folder.h"
#include "tests/support/accounts.h"
#include "tests/support/files.h"

namespace {

int CheckCode(const std::string& path, const std::string& user) {
  try {
    qrixdl::common::CheckSharedPathWithException(path, user);
    return 0;
  } catch (const qrixdl::QrixError& e) {
    return e.GetErrorCode();
  }
}

TEST(SharePathTest, OnlyExistingFoldersOfWritableSharesPass) {
  qrix::test::AddAccount("alice", 2001);
  qrix::test::AddAccount("bob", 2002);
  qrix::test::WriteShares(
      "[video]\npath=\"/volume1/video\"\nread_write=\"alice, @administrators\"\n"
      "read_only=\"@users\"\n"
      "[music]\npath=\"/volume1/music\"\nread_only=\"alice\"\nread_write=\"bob\"\n"
      "[usb]\npath=\"/volumeUSB1/usbshare1-1\"\nread_write=\"@users\"\n");
  std::filesystem::create_directories("/volume1/video/sub/deeper");
  qrix::test::WriteText("/volume1/video/file.txt", "x");
  std::filesystem::remove("/volume1/video/out");
  std::filesystem::remove("/volume1/video/in");
  std::filesystem::create_directory_symlink("/volume1/music", "/volume1/video/out");
  std::filesystem::create_directory_symlink("sub/deeper", "/volume1/video/in");

  const struct {
    const char* path;
    const char* user;
    int code;
  } cases[] = {
      {"video", "alice", 0},
      {"/volume1/video/sub/", "alice", 0},
      {"VIDEO/sub", "ALICE", 0},
      {"video/sub/../sub/./deeper", "alice", 0},
      {"video/in", "alice", 0},  // a link that stays inside
      {"usb", "bob", 0},         // through the group "users"
      {"video/missing", "alice", 1207},
      {"video/file.txt", "alice", 1207},
      {"video/../music", "alice", 531},  // alice may only read music
      {"video/sub/../../../../etc", "alice", 531},
      {"/volume1/video/../music", "bob", 531},  // bob may write music, but not through video
      {"video/out", "alice", 531},              // a link that leads out
      {"video/out/..", "alice", 531},
      {"music", "alice", 531},
      {"video", "bob", 531},  // read only
      {"video", "nobody-here", 531},
      {"nosuch", "alice", 531},
      {"/etc", "alice", 531},
      {"/volume1", "alice", 531},
      {"", "alice", 531},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.path) + " as " + c.user);
    EXPECT_EQ(CheckCode(c.path, c.user), c.code);
    char real[64] = "untouched";
    EXPECT_EQ(QRIXDownloadCheckShareFolder(c.path, c.user, real, sizeof real), c.code == 0);
    if (c.code != 0) {
      EXPECT_STREQ(real, "untouched");
    }
  }
  char real[64];
  ASSERT_TRUE(QRIXDownloadCheckShareFolder("video/in", "alice", real, sizeof real));
  EXPECT_STREQ(real, "/volume1/video/sub/deeper");
}

}  // namespace
