// Global settings end to end through the module's tables, with the package's programs replaced
// by fixtures that record their arguments: switches, the Xunlei account rules, the volume list,
// and the volume move in a detached child, polled from other processes, with every failure.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "tests/support/api_call.h"
#include "tests/support/files.h"
#include "tests/support/syslog_capture.h"

namespace {

namespace fs = std::filesystem;
using qrix::test::CallApi;
using qrix::test::ReadText;
using qrix::test::Remove;
using qrix::test::SyslogCapture;
using qrix::test::WriteText;

constexpr const char* kLink = "/var/services/download";
constexpr const char* kCalls = "/tmp/S25download.calls";
constexpr const char* kPluginCalls = "/tmp/xunleipluginmgr.calls";
constexpr const char* kAmuleConf = "/var/packages/Haulport/etc/amule/amule.conf";

Json::Value Parse(const std::string& text) {
  Json::Value v;
  Json::Reader().parse(text, v);
  return v;
}

void Install(const std::string& fixture, const std::string& path) {
  fs::create_directories(fs::path(path).parent_path());
  fs::copy_file(std::string(QRIX_SOURCE_DIR) + "/tests/fixtures/" + fixture, path,
                fs::copy_options::overwrite_existing);
  fs::permissions(path, fs::perms(0755));
}

void PointLinkAt(const std::string& target) {
  Remove(kLink);
  fs::create_symlink(target, kLink);
}

// read_progress as another worker would answer it: in a forked process.
Json::Value PollInChild() {
  int fds[2];
  EXPECT_EQ(pipe(fds), 0);
  const pid_t pid = fork();
  if (pid == 0) {
    const std::string out = CallApi("Global", "read_progress", "{}").Data().toStyledString();
    [[maybe_unused]] auto n = write(fds[1], out.data(), out.size());
    _exit(0);
  }
  close(fds[1]);
  std::string text;
  char buf[512];
  for (ssize_t n; (n = read(fds[0], buf, sizeof buf)) > 0;) {
    text.append(buf, static_cast<size_t>(n));
  }
  close(fds[0]);
  waitpid(pid, nullptr, 0);
  return Parse(text);
}

// Polls until the move ends; returns its result ("" when it never ended).
std::string WaitForMove() {
  for (int i = 0; i < 1000; ++i) {
    const Json::Value p = PollInChild();
    if (p["running"] == 0) {
      EXPECT_EQ(PollInChild(), Parse(R"({"running": -1})")) << "told twice";
      return p["result"].asString();
    }
    EXPECT_EQ(p["running"], 1);
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return "";
}

class GlobalHandlerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* f : {kCalls, kPluginCalls, "/tmp/xunleipluginmgr.out", "/tmp/S25download.stop",
                          "/tmp/S25download.start", "/tmp/xunleipluginmgr.get.exit",
                          "/tmp/xunleipluginmgr.set.exit"}) {
      Remove(f);
    }
    Install("S25download.sh", "/var/packages/Haulport/target/scripts/S25download.sh");
    Install("xunleipluginmgr.php",
            "/var/packages/Haulport/target/xunleiplugin/xunleipluginmgr.php");
    WriteText("/run/postgresql/pgsql.pid", std::to_string(getpid()) + "\n");
    chmod("/run/postgresql/pgsql.pid", 0644);
    qrix::test::WriteSettings("download_enable_amule=\"no\"\n");
    WriteText(kAmuleConf, "TempDir=/volume1/@download/aMuleTmp\nAddress=10.0.0.1\n");
    for (const char* v : {"/volume1", "/volume2", "/volume3"}) {
      fs::remove_all(std::string(v) + "/@download");
    }
    fs::create_directories("/volume1/@download/task");
    WriteText("/volume1/@download/task/part", "partial data");
    chown("/volume1/@download/task/part", 990, 990);
    PointLinkAt("/volume1/@download");
    SyslogCapture::Get().Clear();
  }
};

TEST_F(GlobalHandlerTest, GetReadsSwitchesAccountAndVolumes) {
  struct Case {
    const char* plugin_out;
    const char* plugin_exit;
    int error;
    const char* username;
  } const cases[] = {
      {nullptr, "0", 0, ""},
      {R"({"username": "xl-user", "password": "never shown"})", "0", 0, "xl-user"},
      {"// a comment\n{\"username\": 7}", "0", 0, ""},
      {"not json", "0", 502, nullptr},
      {nullptr, "3", 516, nullptr},
  };
  qrix::test::WriteSettings("download_enable_autoUnzip=\"yes\"\ndownload_enable_amule=\"YES\"\n");
  for (const Case& c : cases) {
    SCOPED_TRACE(c.plugin_out != nullptr ? c.plugin_out : "no output");
    Remove("/tmp/xunleipluginmgr.out");
    if (c.plugin_out != nullptr) {
      WriteText("/tmp/xunleipluginmgr.out", c.plugin_out);
    }
    WriteText("/tmp/xunleipluginmgr.get.exit", c.plugin_exit);
    const auto result = CallApi("Global", "get", "{}");
    ASSERT_EQ(result.Error(), c.error);
    if (c.error != 0) {
      continue;
    }
    const Json::Value& d = result.Data();
    EXPECT_EQ(d["xunlei_username"], c.username);
    EXPECT_FALSE(d.isMember("xunlei_password"));
    EXPECT_EQ(d["enable_unzip_service"], true);
    EXPECT_EQ(d["enable_emule"], false);
    EXPECT_EQ(d["download_volume"], "/volume1");
    EXPECT_EQ(d["volume_count"], d["volume_list"].size());
    EXPECT_EQ(d["volume_list"][0],
              Parse(R"({"display": "Volume 1", "mount_point": "/volume1",
        "status": "normal", "free_size": )" +
                    d["volume_list"][0]["free_size"].asString() + R"(, "total_size": )" +
                    d["volume_list"][0]["total_size"].asString() + R"(, "fs_type": ")" +
                    d["volume_list"][0]["fs_type"].asString() + "\"}"));
  }
  EXPECT_TRUE(
      SyslogCapture::Get().Contains("handler/global_handler:250 Failed to parse strResult"));
  EXPECT_TRUE(SyslogCapture::Get().Contains("handler/global_handler:238 Failed to run search"));
}

TEST_F(GlobalHandlerTest, GetShowsATemporaryDirectoryOnACrashedUsbVolume) {
  const std::string target = "/volumeUSB2/usbshare2-1/@download";
  PointLinkAt(target);
  for (const auto& [lang, text] : {std::pair{"enu", "(Crashed)"}, {"fre", "(Planté)"}}) {
    const auto result = CallApi("Global", "get", "{}", {"admin", 1024, true, lang});
    ASSERT_TRUE(result.Success());
    const Json::Value& d = result.Data();
    const Json::Value& list = d["volume_list"];
    EXPECT_EQ(d["volume_count"].asUInt(), list.size());
    EXPECT_EQ(list[list.size() - 1], Parse(R"({"display": "usbshare2-1 )" + std::string(text) +
                                           R"(", "mount_point": ")" + target + "\"}"));
    EXPECT_EQ(d["download_volume"], target);
    // The volume itself is listed too, read-only as an external disk may be.
    bool listed = false;
    for (const Json::Value& v : list) {
      listed |= v["mount_point"] == "/volumeUSB2/usbshare2-1" && v["status"] == "read_only";
    }
    EXPECT_TRUE(listed);
  }
  PointLinkAt("/volume4");  // an internal volume mounted read-only: crashed, no share name
  const Json::Value d = CallApi("Global", "get", "{}").Data();
  EXPECT_EQ(d["volume_list"][d["volume_list"].size() - 1]["display"], "(Crashed)");
}

TEST_F(GlobalHandlerTest, SetAppliesSwitchesAndTheXunleiAccountRules) {
  const std::string stored = R"({"username": "kept", "password": "old"})";
  struct Case {
    const char* params;
    const char* plugin_calls;  // the actions run, in order
    const char* settings;      // settings.conf afterwards
    const char* callbacks;
    const char* amule_tempdir;  // amule.conf's first line afterwards
  } const cases[] = {
      {"{}", "", "download_enable_amule=\"no\"\n", "", "TempDir=/volume1/@download/aMuleTmp"},
      {R"({"enable_xunlei": false})", "",
       "download_enable_amule=\"no\"\ndownload_enable_xunlei=\"no\"\n", "",
       "TempDir=/volume1/@download/aMuleTmp"},
      {R"({"enable_xunlei": true, "xunlei_username": "kept"})", "get",
       "download_enable_amule=\"no\"\ndownload_enable_xunlei=\"yes\"\n", "",
       "TempDir=/volume1/@download/aMuleTmp"},
      {R"({"xunlei_password": "new \"pw\"\n"})",
       R"(get set:["--plugin","orvane","--setAccountInfo","--account","kept","--password","new \"pw\"\n"] verify)",
       "download_enable_amule=\"no\"\n", "", "TempDir=/volume1/@download/aMuleTmp"},
      {R"({"enable_emule": true, "download_volume": "/volume1"})", "",
       "download_enable_amule=\"yes\"\n", "SchedulerSIGHUP", "TempDir=/volume1/@download/aMuleTmp"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.params);
    SetUp();
    WriteText("/tmp/xunleipluginmgr.out", stored);
    WriteText(kAmuleConf, "TempDir=old\n");
    const auto result = CallApi("Global", "set", c.params);
    ASSERT_TRUE(result.Success()) << result.Error();
    EXPECT_TRUE(result.Data().isNull());
    EXPECT_EQ(ReadText(qrix::test::kSettingsConf), c.settings);
    EXPECT_EQ(qrix::test::CallbackNames(*result.response), c.callbacks);
    std::string actions;
    std::ifstream calls(kPluginCalls);
    for (std::string line; std::getline(calls, line);) {
      const Json::Value argv = Parse(line);
      const std::string action = line.find("getAccountInfo") != std::string::npos   ? "get"
                                 : line.find("setAccountInfo") != std::string::npos ? "set:" + line
                                                                                    : "verify";
      actions += (actions.empty() ? "" : " ") + action;
    }
    EXPECT_EQ(actions, c.plugin_calls);
    const bool rewritten = std::string(c.callbacks) == "SchedulerSIGHUP";
    EXPECT_EQ(ReadText(kAmuleConf),
              rewritten ? std::string(c.amule_tempdir) + "\n" : "TempDir=old\n");
  }
  // Switching eMule off again: only the scheduler is told.
  qrix::test::WriteSettings("download_enable_amule=\"yes\"\n");
  WriteText(kAmuleConf, "TempDir=old\n");
  const auto off = CallApi("Global", "set", R"({"enable_emule": false})");
  EXPECT_EQ(qrix::test::CallbackNames(*off.response), "SchedulerSIGHUP");
  EXPECT_EQ(ReadText(kAmuleConf), "TempDir=old\n");
  // An account the manager refuses: 1000, and nothing written.
  WriteText("/tmp/xunleipluginmgr.set.exit", "1");
  const auto refused =
      CallApi("Global", "set", R"({"enable_emule": true, "xunlei_username": "other"})");
  EXPECT_EQ(refused.Error(), 1000);
  EXPECT_EQ(ReadText(qrix::test::kSettingsConf), "download_enable_amule=\"no\"\n");
  EXPECT_TRUE(SyslogCapture::Get().Contains("handler/global_handler:295 Failed to run search"));
}

TEST_F(GlobalHandlerTest, MovesTheTemporaryDirectoryInADetachedChild) {
  EXPECT_EQ(PollInChild(), Parse(R"({"running": -1})"));
  WriteText("/tmp/S25download.hold", "");
  const auto result = CallApi("Global", "set", R"({"download_volume": "/volume2",
                                                    "enable_unzip_service": true})");
  ASSERT_TRUE(result.Success());
  EXPECT_EQ(result.Data(), Parse(R"({"running": 1, "progress": "START"})"));
  EXPECT_EQ(PollInChild(), Parse(R"({"running": 1})"));
  Remove("/tmp/S25download.hold");
  EXPECT_EQ(WaitForMove(), "success");
  EXPECT_EQ(fs::read_symlink(kLink), "/volume2/@download");
  EXPECT_EQ(ReadText("/volume2/@download/task/part"), "partial data");
  struct stat st {};
  ASSERT_EQ(stat("/volume2/@download/task/part", &st), 0);
  EXPECT_EQ(st.st_uid, 990u);
  EXPECT_TRUE(fs::exists("/volume1/@download/task/part"));  // the old tree stays
  EXPECT_EQ(ReadText(kCalls), "stop\nstart\n");
  EXPECT_EQ(ReadText(kAmuleConf), "TempDir=/volume2/@download/aMuleTmp\nAddress=\n");
  EXPECT_EQ(qrix::test::ReadSettings().at("download_enable_autoUnzip"), "yes");
  EXPECT_TRUE(SyslogCapture::Get().Contains(
      "The temporary download folder was moved from Volume 1 to Volume 2."));
  // Asking for the volume it is on now: applied at once, nothing moves.
  const auto same = CallApi("Global", "set", R"({"download_volume": "/volume2"})");
  EXPECT_TRUE(same.Success());
  EXPECT_TRUE(same.Data().isNull());
  EXPECT_EQ(PollInChild(), Parse(R"({"running": -1})"));
}

TEST_F(GlobalHandlerTest, EveryFailureOfTheMoveEndsInFail) {
  struct Case {
    const char* name;
    const char* to;
    void (*prepare)();
    const char* result;
    const char* log;
    const char* link_after;
    const char* calls;
  } const cases[] = {
      {"stop fails", "/volume2", [] { WriteText("/tmp/S25download.stop", "killed"); }, "fail",
       "handler/global_handler:413 Failed to stop download service", "/volume1/@download",
       "stop\n"},
      {"start fails", "/volume2", [] { WriteText("/tmp/S25download.start", "killed"); }, "fail",
       "handler/global_handler:433 Failed to start download service", "/volume2/@download",
       "stop\nstart\n"},
      {"no space", "/volume3",
       [] { WriteText("/volume1/@download/big", std::string(3 << 20, 'x')); }, "fail",
       "handler/global_handler:445 error_no_enough_space", "/volume1/@download", "stop\nstart\n"},
      {"read-only target", "/volume4", [] {}, "fail",
       "handler/global_handler:448 error_service_datamove_failed", "/volume1/@download",
       "stop\nstart\n"},
      {"eMule rewrite fails", "/volume2", [] { Remove(kAmuleConf); }, "fail",
       "handler/global_handler:391 Failed to set download tmp to volume /volume2",
       "/volume2/@download", "stop\nstart\n"},
      {"current volume unknown", "/volume2", [] { PointLinkAt("/volume1/@gone"); }, "success",
       "handler/global_handler:171 Failed to get current volume path", "/volume2/@download",
       "stop\nstart\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    SetUp();
    c.prepare();
    ASSERT_TRUE(
        CallApi("Global", "set", std::string(R"({"download_volume": ")") + c.to + "\"}").Success());
    EXPECT_EQ(WaitForMove(), c.result);
    EXPECT_TRUE(SyslogCapture::Get().Contains(c.log));
    EXPECT_EQ(fs::read_symlink(kLink), c.link_after);
    EXPECT_EQ(ReadText(kCalls), c.calls);
    // A failed copy or link is told to the event log; a failed stop or start is not.
    const bool copy_failed = std::string(c.log).find(" error_") != std::string::npos;
    EXPECT_EQ(SyslogCapture::Get().Contains("could not be moved from Volume 1 to Volume " +
                                            std::string(c.to + 7) + "."),
              copy_failed);
  }
  EXPECT_FALSE(fs::exists("/volume3/@download/big"));  // the full volume got its space back
}

TEST_F(GlobalHandlerTest, AnUnreadableSettingsFileAnswers506) {
  Remove(qrix::test::kSettingsConf);
  fs::create_directory(qrix::test::kSettingsConf);
  EXPECT_EQ(CallApi("Global", "get", "{}").Error(), 506);
  EXPECT_FALSE(SyslogCapture::Get().Contains("handler/global_handler"));
  EXPECT_EQ(CallApi("Global", "set", R"({"enable_emule": true})").Error(), 506);
  fs::remove(qrix::test::kSettingsConf);
  EXPECT_TRUE(
      SyslogCapture::Get().Contains("handler/global_handler:340 Failed to get DownloadInfo"));
  EXPECT_TRUE(SyslogCapture::Get().Contains(
      "handler/global_handler:215 Failed to apply download service data"));
  EXPECT_EQ(ReadText(kAmuleConf), "TempDir=/volume1/@download/aMuleTmp\nAddress=10.0.0.1\n");
}

TEST_F(GlobalHandlerTest, NoDatabaseOrNoForkMeansNoMove) {
  Remove("/run/postgresql/pgsql.pid");
  EXPECT_EQ(CallApi("Global", "set", R"({"download_volume": "/volume2"})").Error(), 1001);
  EXPECT_TRUE(SyslogCapture::Get().Contains("handler/global_handler:164 pgsql is not running"));
  // The database runs as root, while this process turns into an ordinary account that may
  // start no processes: fork fails.
  const pid_t database = fork();
  if (database == 0) {
    pause();
    _exit(0);
  }
  WriteText("/run/postgresql/pgsql.pid", std::to_string(database) + "\n");
  const rlimit old = [] {
    rlimit r{};
    getrlimit(RLIMIT_NPROC, &r);
    return r;
  }();
  const rlimit none{0, old.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NPROC, &none), 0);
  ASSERT_EQ(setresuid(2999, 2999, 0), 0);
  const int error = CallApi("Global", "set", R"({"download_volume": "/volume2"})").Error();
  ASSERT_EQ(setresuid(0, 0, 0), 0);
  setrlimit(RLIMIT_NPROC, &old);
  kill(database, SIGKILL);
  waitpid(database, nullptr, 0);
  EXPECT_EQ(error, 503);
  EXPECT_TRUE(SyslogCapture::Get().Contains("handler/global_handler:189 Failed to fork()."));
  EXPECT_EQ(PollInChild(), Parse(R"({"running": -1})"));
  EXPECT_EQ(fs::read_symlink(kLink), "/volume1/@download");
}

// A megabyte account name reaches no program: the manager cannot be started with it.
TEST_F(GlobalHandlerTest, AHugeAccountNameChangesNothing) {
  const auto huge =
      CallApi("Global", "set", R"({"xunlei_username": ")" + std::string(1 << 20, 'u') + "\"}");
  EXPECT_EQ(huge.Error(), 1000);
  EXPECT_EQ(ReadText(qrix::test::kSettingsConf), "download_enable_amule=\"no\"\n");
  EXPECT_EQ(fs::read_symlink(kLink), "/volume1/@download");
  EXPECT_FALSE(fs::exists(kCalls));
}

}  // namespace
