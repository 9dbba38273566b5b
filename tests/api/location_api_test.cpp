// Location over HTTP, as each account's page uses it: an account reads and changes only its own
// row of user_setting (read back with psql). The refusals' codes, which folders each account
// may use and quotes in folder names are the handler and database tests'.
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

// username|share_folder|enable_watchffolder|delete_watchtorrent|watchfolder, a line per row.
std::string Rows() {
  return PgsqlServer::Query(
      "SELECT username, share_folder, enable_watchffolder, delete_watchtorrent, "
      "coalesce(watchfolder, 'NULL') FROM user_setting ORDER BY username");
}

TEST_F(HostTest, EachAccountKeepsItsOwnLocationRow) {
  UseDatabase();
  WriteShares("[video]\npath=\"/volume1/video\"\nread_write=\"bob, carol\"\n");
  std::filesystem::create_directories("/volume1/video/bob");
  Start();
  const struct {
    ApiClient* who;
    const char* destination;  // each field sent only when not null
    const char* watch_folder;
    const char* watch;
    int code;  // 0: success
    const char* rows;
  } steps[] = {
      {bob_.get(), "video/bob", "video/bob", "true", 0, "bob|video/bob|t|f|video/bob\n"},
      // Bob watches it; the destination of the same request is written all the same.
      {carol_.get(), "video", "video/bob", "true", 1207,
       "bob|video/bob|t|f|video/bob\ncarol|video|f|f|NULL\n"},
      // Once bob stops watching, his folder is free.
      {bob_.get(), nullptr, nullptr, "false", 0,
       "bob|video/bob|f|f|video/bob\ncarol|video|f|f|NULL\n"},
      {carol_.get(), nullptr, "video/bob", "true", 0,
       "bob|video/bob|f|f|video/bob\ncarol|video|t|f|video/bob\n"},
  };
  for (const auto& step : steps) {
    SCOPED_TRACE(step.rows);
    Fields fields;
    for (const auto& [name, value] : {std::pair{"default_destination", step.destination},
                                      {"torrent_nzb_watch_folder", step.watch_folder}}) {
      if (value != nullptr) {
        fields.emplace_back(name, "\"" + std::string(value) + "\"");
      }
    }
    if (step.watch != nullptr) {
      fields.emplace_back("enable_torrent_nzb_watch", step.watch);
    }
    EXPECT_EQ(step.who->Call(kLocation, "set", fields),
              step.code == 0 ? ParseJson(R"({"success": true})") : ErrorEnvelope(step.code));
    EXPECT_EQ(Rows(), step.rows);
  }
  EXPECT_EQ(bob_->Call(kLocation, "get"), ParseJson(R"({"success": true, "data": {
      "default_destination": "video/bob", "enable_torrent_nzb_watch": false,
      "enable_delete_torrent_nzb_watch": false, "torrent_nzb_watch_folder": "video/bob"}})"));
}

}  // namespace
}  // namespace qrix::test
