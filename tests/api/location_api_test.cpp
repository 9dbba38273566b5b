// Location over HTTP, as each account's page uses it: an account reads and changes only its own
// row of user_setting (read back with psql). The refusals' codes are the handler test's.
#include <filesystem>
#include <memory>
#include <string>

#include "tests/api/host_fixture.h"
#include "tests/support/accounts.h"
#include "tests/support/files.h"
#include "tests/support/pgsql_server.h"

namespace qrix::test {
namespace {

constexpr const char* kLocation = "QRIX.Haulport2.Setting.Location";
constexpr int kBobClient = 0;
constexpr int kCarolClient = 1;

class LocationApiTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (IsSkipped()) {
      return;
    }
    UseDatabase();
    WriteShares(
        "[video]\npath=\"/volume1/video\"\nread_write=\"bob, carol\"\n"
        "[music]\npath=\"/volume1/music\"\nread_only=\"@users\"\n");
    for (const char* dir : {"/volume1/video/bob", "/volume1/video/carol", "/volume1/video/it's"}) {
      std::filesystem::create_directories(dir);
    }
    Start();
    carol_ = std::make_unique<ApiClient>(*server_);
    ASSERT_TRUE(carol_->Login(kCarol)["success"].asBool());
  }

  ApiClient& Client(int who) { return who == kBobClient ? *bob_ : *carol_; }

  // share_folder|enable_watchffolder|delete_watchtorrent|watchfolder, or "" without a row.
  static std::string Row(const char* account) {
    const std::string row = PgsqlServer::Query(
        std::string("SELECT share_folder, enable_watchffolder, delete_watchtorrent, "
                    "coalesce(watchfolder, 'NULL') FROM user_setting WHERE username = '") +
        account + "'");
    return row.empty() ? row : row.substr(0, row.size() - 1);
  }

  std::unique_ptr<ApiClient> carol_;
};

TEST_F(LocationApiTest, EachAccountKeepsItsOwnRow) {
  const struct {
    int who;
    Fields fields;
    int code;  // 0: success
    const char* bob;
    const char* carol;
  } steps[] = {
      {kBobClient,
       {{"default_destination", R"("video/bob")"},
        {"torrent_nzb_watch_folder", R"("video/bob")"},
        {"enable_torrent_nzb_watch", "true"}},
       0,
       "video/bob|t|f|video/bob",
       ""},
      // Bob watches it; the destination of the same request is written all the same.
      {kCarolClient,
       {{"default_destination", R"("video")"},
        {"torrent_nzb_watch_folder", R"("video/bob")"},
        {"enable_torrent_nzb_watch", "true"}},
       1207,
       "video/bob|t|f|video/bob",
       "video|f|f|NULL"},
      {kCarolClient,
       {{"default_destination", R"("music")"}},
       403,
       "video/bob|t|f|video/bob",
       "video|f|f|NULL"},
      // Out of the shares by "..".
      {kCarolClient,
       {{"torrent_nzb_watch_folder", R"("video/../../etc")"}},
       403,
       "video/bob|t|f|video/bob",
       "video|f|f|NULL"},
      // A quote in a real folder's name is stored exactly.
      {kCarolClient,
       {{"default_destination", R"("video/it's")"},
        {"torrent_nzb_watch_folder", R"("/volume1/video/it's/.")"},
        {"enable_torrent_nzb_watch", "true"}},
       0,
       "video/bob|t|f|video/bob",
       "video/it's|t|f|/volume1/video/it's/."},
      // Once bob stops watching, his folder is free.
      {kBobClient,
       {{"enable_torrent_nzb_watch", "false"}},
       0,
       "video/bob|f|f|video/bob",
       "video/it's|t|f|/volume1/video/it's/."},
      {kCarolClient,
       {{"torrent_nzb_watch_folder", R"("video/bob")"}},
       0,
       "video/bob|f|f|video/bob",
       "video/it's|t|f|video/bob"},
  };
  for (const auto& step : steps) {
    SCOPED_TRACE(std::string(step.who == kBobClient ? "bob " : "carol ") +
                 step.fields.front().second);
    EXPECT_EQ(Client(step.who).Call(kLocation, "set", step.fields),
              step.code == 0 ? ParseJson(R"({"success": true})") : ErrorEnvelope(step.code));
    EXPECT_EQ(Row("bob"), step.bob);
    EXPECT_EQ(Row("carol"), step.carol);
  }
  EXPECT_EQ(bob_->Call(kLocation, "get"), ParseJson(R"({"success": true, "data": {
      "default_destination": "video/bob", "enable_torrent_nzb_watch": false,
      "enable_delete_torrent_nzb_watch": false, "torrent_nzb_watch_folder": "video/bob"}})"));
}

}  // namespace
}  // namespace qrix::test
