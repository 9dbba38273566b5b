// The commit queue on the real settings file, what every settings handler does through it,
// and the mail switch.
#include "module/common/api_utils.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <vector>

#include "module/dlcommon/download_info.h"
#include "platform/dlbase/handler_base.h"
#include "platform/vlibc/vlibc_file.h"
#include "platform/webapi/api_validator.h"
#include "tests/support/api_call.h"
#include "tests/support/files.h"
#include "tests/support/lock_holder.h"
#include "tests/support/syslog_capture.h"

namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

QRIX::APIRequest Request(const char* params) {
  return QRIX::APIRequest("api", 1, "set", QRIX::WebAPIUtil::ParseJson(params));
}

// What a queue stages, read back through a flush into an empty file: the keys in file order,
// each with the value the reader gives.
Pairs Staged(QRIXDL::CommitQueue& queue) {
  qrix::test::WriteSettings("");
  EXPECT_TRUE(queue.Flush());
  Pairs pairs;
  const std::string text = qrix::test::ReadText(qrix::test::kSettingsConf);
  size_t pos = 0;
  while (pos < text.size()) {
    const size_t nl = text.find('\n', pos);
    const std::string key = text.substr(pos, text.find('=', pos) - pos);
    char value[256];
    EXPECT_GE(VLIBCFileGetKeyValue(qrix::test::kSettingsConf, key.c_str(), value, sizeof value, 0),
              0);
    pairs.emplace_back(key, value);
    pos = nl + 1;
  }
  return pairs;
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
  queue.Add("k_zero", 0);
  queue.Add("k_str", std::string("plain"));
  EXPECT_TRUE(queue.CheckAndAdd("s", "k_s"));
  EXPECT_TRUE(queue.CheckAndAdd("n", "k_n"));
  EXPECT_TRUE(queue.CheckAndAdd("e", "k_e"));
  EXPECT_TRUE(queue.CheckAndAdd("x", "k_x"));
  EXPECT_TRUE(queue.CheckAndAdd("big", "k_big"));
  EXPECT_FALSE(queue.CheckAndAdd("absent", "k_absent"));
  EXPECT_TRUE(queue.CheckAndAddBool("t", "k_t_yes", QRIXDL::CommitQueue::YesOrNoVal));
  EXPECT_TRUE(queue.CheckAndAddBool("f", "k_f_yes", QRIXDL::CommitQueue::YesOrNoVal));
  EXPECT_TRUE(queue.CheckAndAddBool("t", "k_t_bit", nullptr));
  EXPECT_TRUE(queue.CheckAndAddBool("f", "k_f_bit", nullptr));
  EXPECT_FALSE(queue.CheckAndAddBool("absent", "k_b_absent", nullptr));
  EXPECT_EQ(queue.Size(), 12u);
  const Pairs want = {{"k_int", "-5"},      {"k_zero", "0"},         {"k_str", "plain"},
                      {"k_s", "a \"q\" b"}, {"k_n", "-12"},          {"k_e", ""},
                      {"k_x", "1000"},      {"k_big", "4294967296"}, {"k_t_yes", "yes"},
                      {"k_f_yes", "no"},    {"k_t_bit", "1"},        {"k_f_bit", "0"}};
  // k_e="" reads back as an empty value line.
  EXPECT_EQ(Staged(queue), want);
}

TEST_F(CommitQueueTest, DuplicatesAreWrittenInOrderSoTheLastWins) {
  QRIX::APIRequest request = Request("{}");
  QRIXDL::CommitQueue queue(&request);
  queue.Add("k", 1);
  queue.Add("k", 2);
  EXPECT_EQ(Staged(queue), (Pairs{{"k", "2"}}));
}

TEST_F(CommitQueueTest, AnEmptyQueueSucceeds) {
  QRIX::APIRequest request = Request("{}");
  QRIXDL::CommitQueue queue(&request);
  EXPECT_TRUE(queue.Empty());
  qrix::test::WriteSettings("a=\"1\"\n");
  EXPECT_TRUE(queue.Flush());
  EXPECT_EQ(qrix::test::ReadText(qrix::test::kSettingsConf), "a=\"1\"\n");
  EXPECT_EQ(QRIXDLErrGet(), 0);
}

TEST_F(CommitQueueTest, AFailedWriteKeepsTheEarlierOnesAndRecords505) {
  qrix::test::WriteSettings("k3=\"old\"\n");
  QRIX::APIRequest request = Request("{}");
  QRIXDL::CommitQueue queue(&request);
  queue.Add("k1", 1);
  queue.Add("k2", 2);
  queue.Add("k3", std::string("evil\ndownload_x=\"injected\""));
  queue.Add("k4", 4);
  queue.Add("k5", 5);
  EXPECT_FALSE(queue.Flush());
  EXPECT_EQ(QRIXDLErrGet(), 505);
  EXPECT_EQ(qrix::test::ReadText(qrix::test::kSettingsConf), "k3=\"old\"\nk1=\"1\"\nk2=\"2\"\n");
  EXPECT_TRUE(qrix::test::SyslogCapture::Get().Contains(
      "common/api_utils:79 Write setting error. k=k3 v=evil"));
  EXPECT_TRUE(qrix::test::SyslogCapture::Get().Contains("[0x0B01 kv_file.cpp:"));
  // The queue is kept: after the bad pair is gone a new queue writes the rest.
  EXPECT_EQ(queue.Size(), 5u);
}

TEST_F(CommitQueueTest, ANulInAValueIsRefusedNotCut) {
  QRIX::APIRequest request = Request("{}");
  QRIXDL::CommitQueue queue(&request);
  queue.Add("k", std::string("ab\0cd", 5));
  qrix::test::WriteSettings("");
  EXPECT_FALSE(queue.Flush());
  EXPECT_EQ(QRIXDLErrGet(), 505);
  EXPECT_EQ(qrix::test::ReadText(qrix::test::kSettingsConf), "");
}

// Writes are published as the lock goes: a file that cannot be published fails the flush.
TEST_F(CommitQueueTest, AFileThatCannotBePublishedRecords505) {
  qrix::test::Remove(qrix::test::kSettingsConf);
  std::filesystem::create_directory(qrix::test::kSettingsConf);
  QRIX::APIRequest request = Request("{}");
  QRIXDL::CommitQueue queue(&request);
  queue.Add("k1", 1);
  queue.Add("k2", 2);
  EXPECT_FALSE(queue.Flush());
  EXPECT_EQ(QRIXDLErrGet(), 505);
  EXPECT_TRUE(qrix::test::SyslogCapture::Get().Contains("Write setting error. k=k1 v=1"));
  std::filesystem::remove(qrix::test::kSettingsConf);
}

TEST_F(CommitQueueTest, ALockThatCannotBeTakenWritesNothingAndSucceeds) {
  qrix::test::WriteSettings("k=\"old\"\n");
  const qrix::test::LockHolder holder;
  ASSERT_TRUE(holder.Holding());
  QRIX::APIRequest request = Request("{}");
  QRIXDL::CommitQueue queue(&request);
  queue.Add("k", std::string("new"));
  EXPECT_TRUE(queue.Flush());  // after the lock's five-second wait
  EXPECT_EQ(QRIXDLErrGet(), 0);
  EXPECT_EQ(qrix::test::ReadText(qrix::test::kSettingsConf), "k=\"old\"\n");
}

// Every settings handler: an unreadable file answers "get" with 506; a write that fails answers
// 505, registers no callback and leaves the file; a string parameter with quotes or
// shell syntax is stored so that the module and sh read it back as sent, and a line break is
// refused (505) with the file untouched.
TEST_F(CommitQueueTest, EveryHandlerWritesThroughTheQueue) {
  using qrix::test::CallApi;
  using qrix::test::kSettingsConf;
  using qrix::test::ReadText;
  const struct {
    const char* api;
    const char* set;
    int get_fails;  // answer to "get" on an unreadable file (Rss falls back on its default)
    std::vector<std::pair<const char*, const char*>> strings;  // parameter, key
  } handlers[] = {
      {"FtpHttp", R"({"ftp_max_conn": 4})", 506, {}},
      {"Rss", R"({"update_interval": 20})", 0, {}},
      {"BT", R"({"max_peer": 10})", 506, {}},
      {"Nzb",
       R"({"port": 119})",
       506,
       {{"server", "download_nzb_server"}, {"username", "download_nzb_user"}}},
      {"Scheduler",
       R"({"max_tasks": 4})",
       506,
       {{"schedule", "download_schedule"}, {"order", "download_order"}}},
  };
  const std::string etc = "/var/packages/Haulport/etc";
  for (const auto& h : handlers) {
    SCOPED_TRACE(h.api);
    qrix::test::Remove(kSettingsConf);
    std::filesystem::create_directory(kSettingsConf);
    EXPECT_EQ(CallApi(h.api, "get", "{}").Error(), h.get_fails);
    std::filesystem::remove(kSettingsConf);

    std::filesystem::rename(etc, etc + ".away");
    qrix::test::WriteText(etc, "not a directory");
    const auto failed = CallApi(h.api, "set", h.set);
    EXPECT_EQ(failed.Error(), 505);
    EXPECT_TRUE(failed.response->GetCallbacks().empty());
    std::filesystem::remove(etc);
    std::filesystem::rename(etc + ".away", etc);

    for (const auto& [param, key] : h.strings) {
      for (const std::string value :
           {R"(say "hi" \)", "$(/usr/bin/touch /tmp/ran)`/usr/bin/touch /tmp/ran`", "two\nlines",
            "cr\rhere", "x\"\nk=\"v"}) {
        SCOPED_TRACE(std::string(param) + " = " + value);
        qrix::test::SyslogCapture::Get().Clear();  // a full /dev/log queue would block the writer
        const std::string before = std::string(key) + "=\"old\"\ndownload_other=\"kept\"\n";
        qrix::test::WriteSettings(before);
        Json::Value params(Json::objectValue);
        params[param] = value;
        const auto result =
            CallApi(h.api, "set", Json::writeString(Json::StreamWriterBuilder(), params));
        if (value.find_first_of("\r\n") != std::string::npos) {
          EXPECT_EQ(result.Error(), 505);
          EXPECT_TRUE(result.response->GetCallbacks().empty());
          EXPECT_EQ(ReadText(kSettingsConf), before);
          continue;
        }
        EXPECT_TRUE(result.Success());
        char read_back[256];
        EXPECT_GT(VLIBCFileGetKeyValue(kSettingsConf, key, read_back, sizeof read_back, 0), 0);
        EXPECT_EQ(read_back, value);
        EXPECT_EQ(qrix::test::SourcedValue(kSettingsConf, key), value);
        EXPECT_EQ(qrix::test::ReadSettings().size(), 2u);
      }
    }
  }
  EXPECT_FALSE(std::filesystem::exists("/tmp/ran"));
}

TEST(IsEmailOKTest, FollowsTheMailSwitch) {
  struct Case {
    const char* conf;  // nullptr: no mail settings
    bool want;
  } const cases[] = {
      {nullptr, false},
      {"enable=\"yes\"\nsmtp_server=\"mail.example.org\"\n", true},
      {"enable=\"no\"\n", false},
      {"enable=\"YES\"\n", false},
      {"smtp_server=\"mail.example.org\"\n", false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.conf != nullptr ? c.conf : "none");
    qrix::test::Remove("/var/qrix/etc/mail.conf");
    if (c.conf != nullptr) {
      qrix::test::WriteText("/var/qrix/etc/mail.conf", c.conf);
    }
    EXPECT_EQ(QRIXDL::IsEmailOK(), c.want);
  }
}

}  // namespace
