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
#include <sstream>
#include <string>
#include <thread>

#include "platform/webapi/api_validator.h"
#include "tests/support/api_call.h"
#include "tests/support/files.h"
#include "tests/support/syslog_capture.h"

namespace {

namespace fs = std::filesystem;
using qrix::test::CallApi;
using qrix::test::kSettingsConf;
using qrix::test::ReadText;
using qrix::test::Remove;
using qrix::test::WriteText;

constexpr const char* kLink = "/var/services/download";
constexpr const char* kCalls = "/tmp/S25download.calls";
constexpr const char* kAmuleConf = "/var/packages/Haulport/etc/amule/amule.conf";
constexpr const char* kOff = "download_enable_amule=\"no\"\n";
const Json::Value kIdle = QRIX::WebAPIUtil::ParseJson(R"({"running": -1})");
qrix::test::SyslogCapture& Log() {
  return qrix::test::SyslogCapture::Get();
}

Json::Value Parse(const std::string& text) {
  return QRIX::WebAPIUtil::ParseJson(text);
}

void PointLinkAt(const std::string& target) {
  Remove(kLink);
  fs::create_symlink(target, kLink);
}

int SetVolume(const std::string& to) {
  return CallApi("Global", "set", R"({"download_volume": ")" + to + "\"}").Error();
}

// read_progress as another worker would answer it: in a forked process.
Json::Value PollInChild() {
  Remove("/tmp/poll.json");
  const pid_t pid = fork();
  if (pid == 0) {
    WriteText("/tmp/poll.json", CallApi("Global", "read_progress", "{}").Data().toStyledString());
    _exit(0);
  }
  waitpid(pid, nullptr, 0);
  return Parse(ReadText("/tmp/poll.json"));
}

// Polls until the move ends; returns its result ("" when it never ended).
std::string WaitForMove() {
  for (int i = 0; i < 1000; ++i) {
    const Json::Value p = PollInChild();
    if (p["running"] == 0) {
      EXPECT_EQ(PollInChild(), kIdle) << "told twice";
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
    for (const char* f :
         {"S25download.calls", "xunleipluginmgr.calls", "xunleipluginmgr.out", "S25download.stop",
          "S25download.start", "xunleipluginmgr.get.exit", "xunleipluginmgr.set.exit"}) {
      Remove(std::string("/tmp/") + f);
    }
    for (const char* f : {"scripts/S25download.sh", "xunleiplugin/xunleipluginmgr.php"}) {
      const fs::path to = std::string("/var/packages/Haulport/target/") + f;
      fs::create_directories(to.parent_path());
      fs::copy_file(std::string(QRIX_SOURCE_DIR) + "/tests/fixtures/" + to.filename().string(), to,
                    fs::copy_options::overwrite_existing);
      fs::permissions(to, fs::perms(0755));
    }
    WriteText("/run/postgresql/pgsql.pid", std::to_string(getpid()) + "\n");
    chmod("/run/postgresql/pgsql.pid", 0644);
    qrix::test::WriteSettings(kOff);
    WriteText(kAmuleConf, "TempDir=/volume1/@download/aMuleTmp\nAddress=10.0.0.1\n");
    for (const char* v : {"/volume1", "/volume2", "/volume3"}) {
      fs::remove_all(std::string(v) + "/@download");
    }
    WriteText("/volume1/@download/task/part", "partial data");
    chown("/volume1/@download/task/part", 990, 990);
    PointLinkAt("/volume1/@download");
    Log().Clear();
  }
};

TEST_F(GlobalHandlerTest, GetReadsSwitchesAccountAndVolumes) {
  const struct {
    const char* plugin_out;
    const char* plugin_exit;
    int error;
    const char* username;
  } cases[] = {
      {nullptr, "0", 0, ""},
      {R"({"username": "xl-user", "password": "never shown"})", "0", 0, "xl-user"},
      {"// a comment\n{\"username\": 7}", "0", 0, ""},
      {"not json", "0", 502, nullptr},
      {nullptr, "3", 516, nullptr},
  };
  qrix::test::WriteSettings("download_enable_autoUnzip=\"yes\"\ndownload_enable_amule=\"YES\"\n");
  for (const auto& c : cases) {
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
    Json::Value d = result.Data();
    EXPECT_EQ(d["volume_count"], d["volume_list"].size());
    Json::Value v = d["volume_list"][0];
    for (const char* member : {"free_size", "total_size", "fs_type"}) {
      EXPECT_TRUE(v.removeMember(member, nullptr)) << member;
    }
    d.removeMember("volume_list");
    d.removeMember("volume_count");
    EXPECT_EQ(v,
              Parse(R"({"display": "Volume 1", "mount_point": "/volume1", "status": "normal"})"));
    EXPECT_EQ(d, Parse(R"({"enable_unzip_service": true, "enable_emule": false,
        "enable_xunlei": false, "download_volume": "/volume1", "xunlei_username": ")" +
                       std::string(c.username) + "\"}"));
  }
  EXPECT_TRUE(Log().Contains("handler/global_handler:250 Failed to parse strResult"));
  EXPECT_TRUE(Log().Contains("handler/global_handler:238 Failed to run search"));
}

TEST_F(GlobalHandlerTest, GetShowsATemporaryDirectoryOnACrashedVolume) {
  const std::string target = "/volumeUSB2/usbshare2-1/@download";
  PointLinkAt(target);
  for (const auto& [lang, text] : {std::pair{"enu", "(Crashed)"}, {"fre", "(Planté)"}}) {
    const Json::Value d = CallApi("Global", "get", "{}", {"admin", 1024, true, lang}).Data();
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
  const struct {
    const char* params;
    const char* plugin_calls;  // the actions run, in order
    const char* settings;      // settings.conf afterwards, after the eMule switch
    const char* callbacks;     // the scheduler is told, and amule.conf rewritten
  } cases[] = {
      {"{}", "", "", ""},
      {R"({"enable_xunlei": false})", "", "download_enable_xunlei=\"no\"\n", ""},
      {R"({"enable_xunlei": true, "xunlei_username": "kept"})", "get",
       "download_enable_xunlei=\"yes\"\n", ""},
      {R"({"xunlei_password": "new \"pw\"\n"})",
       R"(get set:["--plugin","orvane","--setAccountInfo","--account","kept","--password","new \"pw\"\n"] verify)",
       "", ""},
      {R"({"enable_emule": true, "download_volume": "/volume1"})", "", "", "SchedulerSIGHUP"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.params);
    SetUp();
    WriteText("/tmp/xunleipluginmgr.out", R"({"username": "kept", "password": "old"})");
    WriteText(kAmuleConf, "TempDir=old\n");
    const auto result = CallApi("Global", "set", c.params);
    ASSERT_TRUE(result.Success()) << result.Error();
    EXPECT_TRUE(result.Data().isNull());
    const bool on = *c.callbacks != '\0';
    EXPECT_EQ(ReadText(kSettingsConf),
              std::string(on ? "download_enable_amule=\"yes\"\n" : kOff) + c.settings);
    EXPECT_EQ(qrix::test::CallbackNames(*result.response), c.callbacks);
    std::string actions;
    std::istringstream calls(ReadText("/tmp/xunleipluginmgr.calls"));
    for (std::string line; std::getline(calls, line);) {
      actions += (actions.empty() ? "" : " ") +
                 (line.find("getAccountInfo") != std::string::npos   ? "get"
                  : line.find("setAccountInfo") != std::string::npos ? "set:" + line
                                                                     : std::string("verify"));
    }
    EXPECT_EQ(actions, c.plugin_calls);
    EXPECT_EQ(ReadText(kAmuleConf), on ? "TempDir=/volume1/@download/aMuleTmp\n" : "TempDir=old\n");
  }
  // Switching eMule off again: only the scheduler is told.
  qrix::test::WriteSettings("download_enable_amule=\"yes\"\n");
  const auto off = CallApi("Global", "set", R"({"enable_emule": false})");
  EXPECT_EQ(qrix::test::CallbackNames(*off.response), "SchedulerSIGHUP");
  EXPECT_EQ(ReadText(kAmuleConf), "TempDir=/volume1/@download/aMuleTmp\n");
  // An account the manager refuses, or a megabyte name no program can be started with: 1000,
  // and nothing written.
  for (const std::string& name : {std::string("other"), std::string(1 << 20, 'u')}) {
    WriteText("/tmp/xunleipluginmgr.set.exit", name == "other" ? "1" : "0");
    EXPECT_EQ(
        CallApi("Global", "set", R"({"enable_emule": true, "xunlei_username": ")" + name + "\"}")
            .Error(),
        1000);
    EXPECT_EQ(ReadText(kSettingsConf), kOff);
  }
  EXPECT_TRUE(Log().Contains("handler/global_handler:295 Failed to run search"));
}

TEST_F(GlobalHandlerTest, MovesTheTemporaryDirectoryInADetachedChild) {
  EXPECT_EQ(PollInChild(), kIdle);
  WriteText("/tmp/S25download.hold", "");
  const auto result = CallApi("Global", "set", R"({"download_volume": "/volume2",
                                                    "enable_unzip_service": true})");
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
  EXPECT_TRUE(Log().Contains("The temporary download folder was moved from Volume 1 to Volume 2."));
  // Asking for the volume it is on now: applied at once, nothing moves.
  const auto same = CallApi("Global", "set", R"({"download_volume": "/volume2"})");
  EXPECT_TRUE(same.Success() && same.Data().isNull());
  EXPECT_EQ(PollInChild(), kIdle);
}

TEST_F(GlobalHandlerTest, EveryFailureOfTheMoveEndsInFail) {
  const struct {
    const char* to;
    void (*prepare)();
    const char* result;
    const char* log;  // after "handler/global_handler:"
    const char* link_after;
    const char* calls;
  } cases[] = {
      {"/volume2", [] { WriteText("/tmp/S25download.stop", "killed"); }, "fail",
       "413 Failed to stop download service", "/volume1/@download", "stop\n"},
      {"/volume2", [] { WriteText("/tmp/S25download.start", "killed"); }, "fail",
       "433 Failed to start download service", "/volume2/@download", "stop\nstart\n"},
      {"/volume3", [] { WriteText("/volume1/@download/big", std::string(3 << 20, 'x')); }, "fail",
       "445 error_no_enough_space", "/volume1/@download", "stop\nstart\n"},
      {"/volume4", [] {}, "fail", "448 error_service_datamove_failed", "/volume1/@download",
       "stop\nstart\n"},
      {"/volume2", [] { Remove(kAmuleConf); }, "fail",
       "391 Failed to set download tmp to volume /volume2", "/volume2/@download", "stop\nstart\n"},
      {"/volume2", [] { PointLinkAt("/volume1/@gone"); }, "success",
       "171 Failed to get current volume path", "/volume2/@download", "stop\nstart\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.log);
    SetUp();
    c.prepare();
    ASSERT_EQ(SetVolume(c.to), 0);
    EXPECT_EQ(WaitForMove(), c.result);
    EXPECT_TRUE(Log().Contains(std::string("handler/global_handler:") + c.log));
    EXPECT_EQ(fs::read_symlink(kLink), c.link_after);
    EXPECT_EQ(ReadText(kCalls), c.calls);
    // A failed copy or link is told to the event log; a failed stop or start is not.
    EXPECT_EQ(Log().Contains("could not be moved from Volume 1 to Volume " + std::string(c.to + 7)),
              std::string(c.log).find(" error_") != std::string::npos);
  }
  EXPECT_FALSE(fs::exists("/volume3/@download/big"));  // the full volume got its space back
}

TEST_F(GlobalHandlerTest, AnUnreadableSettingsFileAnswers506) {
  Remove(kSettingsConf);
  fs::create_directory(kSettingsConf);
  EXPECT_EQ(CallApi("Global", "get", "{}").Error(), 506);
  EXPECT_FALSE(Log().Contains("handler/global_handler"));
  EXPECT_EQ(CallApi("Global", "set", R"({"enable_emule": true})").Error(), 506);
  fs::remove(kSettingsConf);
  EXPECT_TRUE(Log().Contains("handler/global_handler:340 Failed to get DownloadInfo"));
  EXPECT_TRUE(Log().Contains("handler/global_handler:215 Failed to apply download service data"));
  EXPECT_EQ(ReadText(kAmuleConf), "TempDir=/volume1/@download/aMuleTmp\nAddress=10.0.0.1\n");
}

TEST_F(GlobalHandlerTest, NoDatabaseOrNoForkMeansNoMove) {
  Remove("/run/postgresql/pgsql.pid");
  EXPECT_EQ(SetVolume("/volume2"), 1001);
  EXPECT_TRUE(Log().Contains("handler/global_handler:164 pgsql is not running"));
  // The database runs as root, while this process turns into an ordinary account that may
  // start no processes: fork fails.
  const pid_t database = fork();
  if (database == 0) {
    pause();
    _exit(0);
  }
  WriteText("/run/postgresql/pgsql.pid", std::to_string(database) + "\n");
  rlimit old{};
  getrlimit(RLIMIT_NPROC, &old);
  const rlimit none{0, old.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NPROC, &none), 0);
  ASSERT_EQ(setresuid(2999, 2999, 0), 0);
  const int error = SetVolume("/volume2");
  ASSERT_EQ(setresuid(0, 0, 0), 0);
  setrlimit(RLIMIT_NPROC, &old);
  kill(database, SIGKILL);
  waitpid(database, nullptr, 0);
  EXPECT_EQ(error, 503);
  EXPECT_TRUE(Log().Contains("handler/global_handler:189 Failed to fork()."));
  EXPECT_EQ(PollInChild(), kIdle);
  EXPECT_EQ(fs::read_symlink(kLink), "/volume1/@download");
}

}  // namespace
