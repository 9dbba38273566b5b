// The volume move over HTTP, as the page does it: "set" answers at once, "read_progress" polls
// (each request served by another worker process) until the move is reported, once. What the
// move rewrites and which scripts it stops and starts are the handler's unit test.
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "tests/api/host_fixture.h"
#include "tests/support/files.h"

namespace qrix::test {
namespace {

namespace fs = std::filesystem;
constexpr const char* kGlobal = "QRIX.Haulport2.Setting.Global";

void Install(const char* fixture, const std::string& path) {
  fs::create_directories(fs::path(path).parent_path());
  fs::copy_file(std::string(QRIX_SOURCE_DIR) + "/tests/fixtures/" + fixture, path,
                fs::copy_options::overwrite_existing);
  fs::permissions(path, fs::perms(0755));
}

TEST_F(HostTest, MovesTheTemporaryDirectoryToAnotherVolume) {
  Install("S25download.sh", "/var/packages/Haulport/target/scripts/S25download.sh");
  Install("xunleipluginmgr.php", "/var/packages/Haulport/target/xunleiplugin/xunleipluginmgr.php");
  WriteText("/run/postgresql/pgsql.pid", std::to_string(getpid()) + "\n");
  WriteText("/var/packages/Haulport/etc/amule/amule.conf", "TempDir=x\nAddress=1.2.3.4\n");
  // One file keeps its owner and mode through a move made in a worker's process (how each kind
  // of file is copied is the copier's unit test).
  fs::remove_all("/volume1/@download");
  fs::remove_all("/volume2/@download");
  WriteText("/volume1/@download/dir/a.part", "half a download");
  ASSERT_EQ(chown("/volume1/@download/dir/a.part", 990, 990), 0);
  ASSERT_EQ(chmod("/volume1/@download/dir/a.part", 0640), 0);
  Remove("/var/services/download");
  fs::create_symlink("/volume1/@download", "/var/services/download");

  Start();
  ApiClient& alice = *alice_;
  EXPECT_EQ(alice.Call(kGlobal, "set", {{"download_volume", "\"/volume2\""}}),
            ParseJson(R"({"success": true, "data": {"running": 1, "progress": "START"}})"));
  Json::Value progress;
  for (int i = 0; i < 500; ++i) {
    progress = alice.Call(kGlobal, "read_progress");
    if (progress["data"]["running"] != 1) {
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  EXPECT_EQ(progress,
            ParseJson(R"({"success": true, "data": {"running": 0, "result": "success"}})"));
  EXPECT_EQ(alice.Call(kGlobal, "read_progress"),
            ParseJson(R"({"success": true, "data": {"running": -1}})"));

  EXPECT_EQ(fs::read_symlink("/var/services/download"), "/volume2/@download");
  struct stat st {};
  ASSERT_EQ(stat("/volume2/@download/dir/a.part", &st), 0);
  EXPECT_EQ(std::to_string(st.st_mode & 07777) + " " + std::to_string(st.st_uid),
            std::to_string(0640) + " 990");
  EXPECT_EQ(ReadText("/volume2/@download/dir/a.part"), "half a download");
  EXPECT_EQ(alice.Call(kGlobal, "get")["data"]["download_volume"], "/volume2");
}

}  // namespace
}  // namespace qrix::test
