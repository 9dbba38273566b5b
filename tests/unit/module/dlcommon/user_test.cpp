// The per-user settings table on the real server: rows that exist or not, names in any letter
// case, disabled accounts, hostile text stored and read back exactly, and what the table holds.
#include "module/dlcommon/user.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "tests/support/accounts.h"
#include "tests/support/pgsql_server.h"
#include "tests/support/syslog_capture.h"

namespace {

using qrix::test::PgsqlServer;
using qrix::test::SyslogCapture;

[[maybe_unused]] ::testing::Environment* const kServer =
    ::testing::AddGlobalTestEnvironment(qrix::test::PgsqlEnvironment());

// Accounts whose names a statement must not trip on.
const char* const kNames[] = {"ann", "o'brien", "back\\slash", "x'); DROP TABLE user_setting; --"};

class UserTest : public ::testing::Test {
 protected:
  void SetUp() override {
    SyslogCapture::Get().Clear();
    uid_t uid = 3001;
    for (const char* name : kNames) {
      qrix::test::AddAccount(name, uid++);
    }
    for (const char* name : {"ben", "cara", "dan"}) {
      qrix::test::AddAccount(name, uid++);
    }
    PgsqlServer::Query("DELETE FROM user_setting");
  }

  static std::string Row(const std::string& where) {
    return PgsqlServer::Query(
        "SELECT username, uid, share_folder, user_disabled, enable_watchffolder, "
        "delete_watchtorrent, coalesce(watchfolder, 'NULL') FROM user_setting WHERE " +
        where);
  }
};

std::string ShareOf(const char* name, int* rc) {
  char buf[4096];
  std::memset(buf, 'x', sizeof buf);
  *rc = DownloadUserShareGet(name, buf, sizeof buf);
  return std::string(buf, strnlen(buf, sizeof buf));
}

TEST_F(UserTest, HostileNamesAndFoldersAreStoredAndReadBackExactly) {
  const char* const folders[] = {"video/it's", "a\\b\\'c", "'); DELETE FROM user_setting; --",
                                 "日本/フォルダ"};
  for (const char* name : kNames) {
    for (const char* folder : folders) {
      SCOPED_TRACE(std::string(name) + " -> " + folder);
      ASSERT_EQ(DownloadUserShareSet(name, folder), 0);
      int rc = 0;
      EXPECT_EQ(ShareOf(name, &rc), folder);
      EXPECT_EQ(rc, 1);
      ASSERT_EQ(DownloadUserWatchInfoSet(name, 1, 1, folder), 0);
      int enable = 0;
      int remove = 0;
      char watch[4096];
      EXPECT_EQ(DownloadUserWatchInfoGet(name, &enable, &remove, watch, sizeof watch), 1);
      EXPECT_STREQ(watch, folder);
      EXPECT_EQ(enable + remove, 2);
    }
  }
  // One row per account, holding the text itself.
  EXPECT_EQ(PgsqlServer::Query("SELECT count(*) FROM user_setting"), "4\n");
  EXPECT_EQ(Row("uid = 3002"), "o'brien|3002|日本/フォルダ|f|t|t|日本/フォルダ\n");
  EXPECT_EQ(Row("uid = 3003"), "back\\slash|3003|日本/フォルダ|f|t|t|日本/フォルダ\n");
}

TEST_F(UserTest, RowsAreCreatedOnceAndFoundInAnyLetterCase) {
  int rc = -1;
  EXPECT_EQ(ShareOf("ann", &rc), "");  // no row: an all-zero buffer
  EXPECT_EQ(rc, 0);
  int enable = 7;
  int remove = 7;
  char watch[16] = "kept";
  EXPECT_EQ(DownloadUserWatchInfoGet("ann", &enable, &remove, watch, sizeof watch), 0);
  EXPECT_EQ(enable + remove, 14);
  EXPECT_EQ(DownloadCheckWatchfolder("ann", ""), 1);

  ASSERT_EQ(DownloadUserShareSet("ANN", "video"), 0);
  ASSERT_EQ(DownloadUserShareSet("Ann", "music"), 0);
  EXPECT_EQ(Row("lower(username) = 'ann'"), "ANN|3001|music|f|f|f|NULL\n");
  EXPECT_EQ(ShareOf("aNn", &rc), "music");
  // A row without a watch folder answers none, flags untouched.
  EXPECT_EQ(DownloadUserWatchInfoGet("ann", &enable, &remove, watch, sizeof watch), 0);
  EXPECT_EQ(enable + remove, 14);

  // The cut: size - 1 characters and a terminator.
  char small[4];
  EXPECT_EQ(DownloadUserShareGet("ann", small, sizeof small), 1);
  EXPECT_STREQ(small, "mus");

  EXPECT_EQ(DownloadUserShareSet("nobody-here", "video"), -1);
  EXPECT_EQ(DownloadUserWatchInfoSet("nobody-here", 0, 0, nullptr), -1);
  EXPECT_TRUE(SyslogCapture::Get().Contains("Failed to get user [nobody-here][0x1800"));
  EXPECT_EQ(PgsqlServer::Query("SELECT count(*) FROM user_setting"), "1\n");
}

TEST_F(UserTest, WatchSettingsKeepWhatASwitchOffLeaves) {
  // A first write that switches the watch off stores the "(null)" word as the folder.
  ASSERT_EQ(DownloadUserWatchInfoSet("ben", 0, 1, "ignored"), 0);
  EXPECT_EQ(Row("username = 'ben'"), "ben|3005||f|f|t|(null)\n");
  ASSERT_EQ(DownloadUserWatchInfoSet("ben", 1, 0, "video/watch"), 0);
  ASSERT_EQ(DownloadUserWatchInfoSet("BEN", 0, 1, nullptr), 0);
  EXPECT_EQ(Row("username = 'ben'"), "ben|3005||f|f|f|video/watch\n");

  // Off in the row: 1, and the caller's flag stays as it was.
  int enable = 5;
  int remove = 0;
  char watch[64];
  EXPECT_EQ(DownloadUserWatchInfoGet("ben", &enable, &remove, watch, sizeof watch), 1);
  EXPECT_EQ(enable, 5);
  EXPECT_STREQ(watch, "video/watch");
}

TEST_F(UserTest, AFolderIsTakenOnlyByAnotherActiveAccount) {
  ASSERT_EQ(DownloadUserWatchInfoSet("ben", 1, 0, "share/w"), 0);
  ASSERT_EQ(DownloadUserWatchInfoSet("cara", 1, 0, "share/d"), 0);
  ASSERT_EQ(DownloadUserDisable("cara", 1), 0);
  ASSERT_EQ(DownloadUserWatchInfoSet("dan", 1, 0, "share/o"), 0);
  ASSERT_EQ(DownloadUserWatchInfoSet("dan", 0, 0, nullptr), 0);
  const struct {
    const char* user;
    const char* folder;
    int rc;
  } cases[] = {
      {"ann", "share/w", 0}, {"ann", "share/w/", 1}, {"ann", "SHARE/w", 1}, {"ann", "share/d", 1},
      {"ann", "share/o", 1}, {"ben", "share/w", 1},  {"BEN", "share/w", 1}, {"cara", "share/w", 0},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(DownloadCheckWatchfolder(c.user, c.folder), c.rc) << c.user << " " << c.folder;
  }
}

TEST_F(UserTest, DisablingBarsTheAccountAndSwitchesItsWatchOffForGood) {
  ASSERT_EQ(DownloadUserShareSet("cara", "video"), 0);
  ASSERT_EQ(DownloadUserWatchInfoSet("cara", 1, 1, "video/w"), 0);
  ASSERT_EQ(DownloadUserDisable("Cara", 1), 0);
  int rc = 0;
  EXPECT_EQ(ShareOf("cara", &rc), "video");
  EXPECT_EQ(rc, 2);
  EXPECT_EQ(Row("username = 'cara'"), "cara|3006|video|t|f|t|video/w\n");
  ASSERT_EQ(DownloadUserDisable("cara", 0), 0);
  EXPECT_EQ(Row("username = 'cara'"), "cara|3006|video|f|f|t|video/w\n");
  EXPECT_EQ(ShareOf("cara", &rc), "video");
  EXPECT_EQ(rc, 1);
  // No row: nothing to change, and no row made.
  EXPECT_EQ(DownloadUserDisable("dan", 1), 0);
  EXPECT_EQ(Row("username = 'dan'"), "");
}

TEST_F(UserTest, BadParametersAreRefusedAndChangeNothing) {
  char buf[8];
  int flag = 0;
  const int results[] = {
      DownloadUserShareSet(nullptr, "x"),
      DownloadUserShareSet("ann", ""),
      DownloadUserShareGet("", buf, sizeof buf),
      DownloadUserShareGet("ann", buf, 0),
      DownloadUserShareGet("ann", nullptr, 8),
      DownloadUserWatchInfoGet(nullptr, &flag, &flag, buf, sizeof buf),
      DownloadUserWatchInfoGet("ann", &flag, &flag, buf, 0),
      DownloadUserWatchInfoSet("ann", 1, 0, ""),
      DownloadUserWatchInfoSet("", 0, 0, nullptr),
      DownloadCheckWatchfolder("ann", nullptr),
      DownloadCheckWatchfolder("", "x"),
      DownloadUserDisable(nullptr, 1),
  };
  for (size_t i = 0; i < std::size(results); ++i) {
    EXPECT_EQ(results[i], -1) << "call " << i;
  }
  EXPECT_EQ(SyslogCapture::Get().Count("user ("), static_cast<int>(std::size(results)));
  EXPECT_EQ(SyslogCapture::Get().Count(") Bad parameters."), static_cast<int>(std::size(results)));
  EXPECT_EQ(PgsqlServer::Query("SELECT count(*) FROM user_setting"), "0\n");
}

}  // namespace
