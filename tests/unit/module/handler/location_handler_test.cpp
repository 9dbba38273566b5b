// Location through the module's tables on the real server: what "set" writes and in which
// order, the scheduler signal, and the codes of refusals and failures.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "module/dlcommon/file.h"
#include "tests/support/accounts.h"
#include "tests/support/api_call.h"
#include "tests/support/pgsql_server.h"
#include "tests/support/syslog_capture.h"

namespace {

using qrix::test::CallApi;
using qrix::test::PgsqlServer;

[[maybe_unused]] ::testing::Environment* const kServer =
    ::testing::AddGlobalTestEnvironment(qrix::test::PgsqlEnvironment());

const QRIX::APILogin kAnn{"ann", 3101, false, "enu"};
const QRIX::APILogin kBen{"ben", 3102, false, "enu"};

class LocationHandlerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::access(QRIXDL_FSTOOL, X_OK) != 0) {
      GTEST_SKIP() << QRIXDL_FSTOOL << " is missing: run inside scripts/sandbox with a build";
    }
    qrix::test::SyslogCapture::Get().Clear();
    qrix::test::AddAccount("ann", 3101);
    qrix::test::AddAccount("ben", 3102);
    qrix::test::WriteShares(
        "[video]\npath=\"/volume1/video\"\nread_write=\"ann, ben\"\n"
        "[music]\npath=\"/volume1/music\"\nread_only=\"ann\"\n");
    for (const char* dir : {"/volume1/@download", "/volume1/video/sub", "/volume1/video/watch"}) {
      std::filesystem::create_directories(dir);
    }
    ::unlink(QRIXDL_TMP_DOWNLOAD_LINK);
    ASSERT_EQ(::symlink("/volume1/@download", QRIXDL_TMP_DOWNLOAD_LINK), 0);
    PgsqlServer::Query("DELETE FROM user_setting");
  }

  static std::string Row(const char* user) {
    return PgsqlServer::Query(
        std::string("SELECT share_folder, enable_watchffolder, delete_watchtorrent, "
                    "coalesce(watchfolder, 'NULL') FROM user_setting WHERE username = '") +
        user + "'");
  }
};

TEST_F(LocationHandlerTest, SetWritesOnlyWhatItIsGiven) {
  const struct {
    const char* params;
    const char* row;        // ann's row afterwards
    const char* callbacks;  // registered by the request
  } cases[] = {
      {"{}", "", ""},
      {R"({"default_destination": "video"})", "video|f|f|NULL\n", ""},
      {R"({"torrent_nzb_watch_folder": "video/watch", "enable_torrent_nzb_watch": true,
           "enable_delete_torrent_nzb_watch": true})",
       "video|t|t|video/watch\n", "SchedulerSIGHUP"},
      // Switching the watch off keeps the folder and the delete flag.
      {R"({"enable_torrent_nzb_watch": false})", "video|f|t|video/watch\n", "SchedulerSIGHUP"},
      // Back on with the stored folder, which is not checked again.
      {R"({"enable_torrent_nzb_watch": true, "enable_delete_torrent_nzb_watch": false})",
       "video|t|f|video/watch\n", "SchedulerSIGHUP"},
      {R"({"default_destination": "/volume1/video/sub/../sub"})",
       "/volume1/video/sub/../sub|t|f|video/watch\n", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.params);
    const auto result = CallApi("Location", "set", c.params, kAnn);
    ASSERT_TRUE(result.Success()) << result.Error();
    EXPECT_EQ(Row("ann"), c.row);
    EXPECT_EQ(qrix::test::CallbackNames(*result.response), c.callbacks);
  }
}

TEST_F(LocationHandlerTest, RefusedFoldersAnswerTheirCodesAndKeepTheRow) {
  ASSERT_TRUE(CallApi("Location", "set",
                      R"({"torrent_nzb_watch_folder": "video/watch",
                          "enable_torrent_nzb_watch": true})",
                      kBen)
                  .Success());
  ASSERT_TRUE(CallApi("Location", "set", R"({"default_destination": "video"})", kAnn).Success());
  const struct {
    const char* params;
    int code;
    const char* row;  // ann's row afterwards
  } cases[] = {
      {R"({"default_destination": "music"})", 403, "video|f|f|NULL\n"},  // read only
      {R"({"default_destination": "video/missing"})", 1207, "video|f|f|NULL\n"},
      {R"({"torrent_nzb_watch_folder": "../video"})", 403, "video|f|f|NULL\n"},
      // Enabling with no folder stored or sent.
      {R"({"enable_torrent_nzb_watch": true})", 1208, "video|f|f|NULL\n"},
      // Ben's active watch folder; the destination of the same request is written already.
      {R"({"default_destination": "video/sub", "torrent_nzb_watch_folder": "video/watch",
           "enable_torrent_nzb_watch": true})",
       1207, "video/sub|f|f|NULL\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.params);
    const auto result = CallApi("Location", "set", c.params, kAnn);
    EXPECT_EQ(result.Error(), c.code);
    EXPECT_EQ(Row("ann"), c.row);
    EXPECT_TRUE(result.response->GetCallbacks().empty());
  }
  EXPECT_EQ(qrix::test::SyslogCapture::Get().Count("Failed to watch torrent/nzb folder."), 1);
  EXPECT_EQ(Row("ben"), "|t|f|video/watch\n");
}

TEST_F(LocationHandlerTest, AGetThatCannotReadAnswersItsCode) {
  EXPECT_EQ(CallApi("Location", "get", "{}", kAnn).Error(), 403);  // nothing chosen yet
  ASSERT_TRUE(CallApi("Location", "set", R"({"default_destination": "video"})", kAnn).Success());
  ::unlink(QRIXDL_TMP_DOWNLOAD_LINK);
  EXPECT_EQ(CallApi("Location", "get", "{}", kAnn).Error(), 1201);
  ASSERT_EQ(::symlink("/volume1/@download", QRIXDL_TMP_DOWNLOAD_LINK), 0);
  PgsqlServer::Get().Stop();
  const auto get = CallApi("Location", "get", "{}", kAnn);
  const auto set = CallApi("Location", "set", R"({"default_destination": "video/sub"})", kAnn);
  ASSERT_TRUE(PgsqlServer::Get().Start());
  EXPECT_EQ(get.Error(), 519);
  EXPECT_EQ(set.Error(), 407);
  EXPECT_EQ(Row("ann"), "video|f|f|NULL\n");
}

}  // namespace
