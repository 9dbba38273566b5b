// The commit queue on the real settings file, what every settings handler does through it,
// and the mail switch. How values are quoted in the file is the key/value file's own test.
#include "module/common/api_utils.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <vector>

#include "module/dlcommon/download_info.h"
#include "platform/dlbase/handler_base.h"
#include "platform/webapi/api_validator.h"
#include "tests/support/api_call.h"
#include "tests/support/files.h"
#include "tests/support/lock_holder.h"
#include "tests/support/syslog_capture.h"

namespace {

using qrix::test::kSettingsConf;
using qrix::test::ReadText;
using qrix::test::WriteSettings;

QRIX::APIRequest Request(const char* params) {
  return QRIX::APIRequest("api", 1, "set", QRIX::WebAPIUtil::ParseJson(params));
}

class CommitQueueTest : public ::testing::Test {
 protected:
  void SetUp() override {
    QRIXDLErrSet(0);
    qrix::test::SyslogCapture::Get().Clear();
  }
};

TEST_F(CommitQueueTest, StagesValuesAsTheirText) {
  QRIX::APIRequest request = Request(
      R"({"s": "a \"q\" b", "n": -12, "e": "", "t": true, "f": false, "x": 1e3, "big": 4294967296})");
  QRIXDL::CommitQueue queue(&request);
  queue.Add("k_int", -5);
  queue.Add("k_str", std::string("plain"));
  for (const char* param : {"s", "n", "e", "x", "big"}) {
    EXPECT_TRUE(queue.CheckAndAdd(param, (std::string("k_") + param).c_str()));
  }
  EXPECT_FALSE(queue.CheckAndAdd("absent", "k_absent"));
  EXPECT_TRUE(queue.CheckAndAddBool("t", "k_t_yes", QRIXDL::CommitQueue::YesOrNoVal));
  EXPECT_TRUE(queue.CheckAndAddBool("f", "k_f_yes", QRIXDL::CommitQueue::YesOrNoVal));
  EXPECT_TRUE(queue.CheckAndAddBool("t", "k_t_bit", nullptr));
  EXPECT_TRUE(queue.CheckAndAddBool("f", "k_f_bit", nullptr));
  EXPECT_FALSE(queue.CheckAndAddBool("absent", "k_b_absent", nullptr));
  EXPECT_EQ(queue.Size(), 11u);
  WriteSettings("");
  EXPECT_TRUE(queue.Flush());
  EXPECT_EQ(ReadText(kSettingsConf),
            "k_int=\"-5\"\nk_str=\"plain\"\nk_s=\"a \\\"q\\\" b\"\nk_n=\"-12\"\nk_e=\"\"\n"
            "k_x=\"1000\"\nk_big=\"4294967296\"\nk_t_yes=\"yes\"\nk_f_yes=\"no\"\nk_t_bit=\"1\"\n"
            "k_f_bit=\"0\"\n");
}

// A failed write stops the queue, keeps the writes before it and records 505.
TEST_F(CommitQueueTest, FlushWritesInOrderUntilAFailure) {
  using Pairs = std::vector<std::pair<std::string, std::string>>;
  const struct {
    const char* before;  // nullptr: a directory stands in the file's place
    Pairs adds;
    const char* after;
    const char* log;  // nullptr: the flush succeeds
  } cases[] = {
      {"a=\"1\"\n", {}, "a=\"1\"\n", nullptr},
      {"", {{"k", "1"}, {"k", "2"}}, "k=\"2\"\n", nullptr},
      {"k3=\"old\"\n",
       {{"k1", "1"}, {"k2", "2"}, {"k3", "evil\ndownload_x=\"injected\""}, {"k4", "4"}},
       "k3=\"old\"\nk1=\"1\"\nk2=\"2\"\n",
       "common/api_utils:79 Write setting error. k=k3 v=evil"},
      {"", {{"k", std::string("ab\0cd", 5)}}, "", "Write setting error. k=k "},
      {nullptr, {{"k1", "1"}, {"k2", "2"}}, "", "Write setting error. k=k1 v=1"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.after);
    SetUp();
    qrix::test::Remove(kSettingsConf);
    if (c.before == nullptr) {
      std::filesystem::create_directory(kSettingsConf);
    } else {
      WriteSettings(c.before);
    }
    QRIX::APIRequest request = Request("{}");
    QRIXDL::CommitQueue queue(&request);
    for (const auto& [key, value] : c.adds) {
      queue.Add(key.c_str(), value);
    }
    EXPECT_EQ(queue.Flush(), c.log == nullptr);
    EXPECT_EQ(QRIXDLErrGet(), c.log == nullptr ? 0 : 505);
    EXPECT_EQ(ReadText(kSettingsConf), c.after);
    EXPECT_TRUE(c.log == nullptr || qrix::test::SyslogCapture::Get().Contains(c.log));
    std::filesystem::remove(kSettingsConf);
  }
}

TEST_F(CommitQueueTest, ALockThatCannotBeTakenWritesNothingAndSucceeds) {
  WriteSettings("k=\"old\"\n");
  const qrix::test::LockHolder holder;
  ASSERT_TRUE(holder.Holding());
  QRIX::APIRequest request = Request("{}");
  QRIXDL::CommitQueue queue(&request);
  queue.Add("k", std::string("new"));
  EXPECT_TRUE(queue.Flush());  // after the lock's five-second wait
  EXPECT_EQ(QRIXDLErrGet(), 0);
  EXPECT_EQ(ReadText(kSettingsConf), "k=\"old\"\n");
}

// Every settings handler: an unreadable file answers "get" with 506 (RSS falls back on its
// default); a write that fails answers 505, registers no callback and leaves the file.
TEST_F(CommitQueueTest, EveryHandlerWritesThroughTheQueue) {
  const struct {
    const char* api;
    const char* set;
    int get_fails;
  } handlers[] = {
      {"FtpHttp", R"({"ftp_max_conn": 4})", 506}, {"Rss", R"({"update_interval": 20})", 0},
      {"BT", R"({"max_peer": 10})", 506},         {"Nzb", R"({"port": 119})", 506},
      {"Scheduler", R"({"max_tasks": 4})", 506},
  };
  const std::string etc = "/var/packages/Haulport/etc";
  for (const auto& h : handlers) {
    SCOPED_TRACE(h.api);
    qrix::test::Remove(kSettingsConf);
    std::filesystem::create_directory(kSettingsConf);
    EXPECT_EQ(qrix::test::CallApi(h.api, "get", "{}").Error(), h.get_fails);
    std::filesystem::remove(kSettingsConf);
    std::filesystem::rename(etc, etc + ".away");
    qrix::test::WriteText(etc, "not a directory");
    const auto failed = qrix::test::CallApi(h.api, "set", h.set);
    EXPECT_EQ(failed.Error(), 505);
    EXPECT_TRUE(failed.response->GetCallbacks().empty());
    std::filesystem::remove(etc);
    std::filesystem::rename(etc + ".away", etc);
  }
}

TEST(IsEmailOKTest, FollowsTheMailSwitch) {
  const std::pair<const char*, bool> cases[] = {
      {nullptr, false},
      {"enable=\"yes\"\nsmtp_server=\"mail.example.org\"\n", true},
      {"enable=\"no\"\n", false},
  };
  for (const auto& [conf, want] : cases) {
    qrix::test::Remove("/var/qrix/etc/mail.conf");
    if (conf != nullptr) {
      qrix::test::WriteText("/var/qrix/etc/mail.conf", conf);
    }
    EXPECT_EQ(QRIXDL::IsEmailOK(), want) << (conf != nullptr ? conf : "none");
  }
}

}  // namespace
