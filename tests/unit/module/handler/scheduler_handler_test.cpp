// Scheduler settings: the payload with its memory-based limit and what "set" writes.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "platform/webapi/api_validator.h"
#include "tests/support/api_call.h"
#include "tests/support/files.h"
#include "tests/support/syslog_capture.h"

namespace {

using qrix::test::CallApi;
using qrix::test::ReadText;
using qrix::test::WriteSettings;

constexpr const char* kMeminfo = "/proc/meminfo";

class SchedulerHandlerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    meminfo_ = ReadText(kMeminfo);
    qrix::test::Remove(qrix::test::kSettingsConf);
    qrix::test::SyslogCapture::Get().Clear();
  }
  // The sandbox binds a plain file there, rewritten in place.
  void TearDown() override { qrix::test::WriteText(kMeminfo, meminfo_); }

 private:
  std::string meminfo_;
};

TEST_F(SchedulerHandlerTest, GetAnswersTheSettings) {
  qrix::test::WriteText(kMeminfo, "MemTotal:        2000000 kB\n");
  const std::string custom(168, '0');
  struct Case {
    std::string file;
    std::string want;
  } const cases[] = {
      {"", R"({"enable_schedule": false, "schedule": ")" + std::string(168, '1') +
               R"(", "upload_rate": 0, "download_rate": 0, "order": "request", "max_tasks": 10,
           "max_tasks_limit": 80})"},
      {"download_schedule_enable=\"yes\"\ndownload_schedule=\"" + custom +
           "\"\ndownload_alt_ul_rate=\"30\"\ndownload_alt_dl_rate=\"40\"\n"
           "download_order=\"user\"\ndownload_maxtasks=\"25\"\n",
       R"({"enable_schedule": true, "schedule": ")" + custom +
           R"(", "upload_rate": 30, "download_rate": 40, "order": "user", "max_tasks": 25,
           "max_tasks_limit": 80})"},
  };
  for (const Case& c : cases) {
    WriteSettings(c.file);
    const auto result = CallApi("Scheduler", "get", "{}");
    ASSERT_TRUE(result.Success());
    EXPECT_EQ(result.Data(), QRIX::WebAPIUtil::ParseJson(c.want));
  }
  for (const char* stored : {"YES", "1", "Yes", ""}) {
    WriteSettings(std::string("download_schedule_enable=\"") + stored + "\"\n");
    EXPECT_EQ(CallApi("Scheduler", "get", "{}").Data()["enable_schedule"], false) << stored;
  }
}

TEST_F(SchedulerHandlerTest, MemoryDecidesTheTaskLimit) {
  struct Case {
    const char* meminfo;
    int limit;  // 0: no "max_tasks_limit"
    const char* log;
  } const cases[] = {
      {"MemTotal: 1000001 kB\n", 80, nullptr},
      {"MemTotal: 1000000 kB\n", 50, nullptr},
      {"MemTotal: 500001 kB\n", 50, nullptr},
      {"MemTotal: 500000 kB\n", 30, nullptr},
      {"MemTotal: 240001 kB\n", 30, nullptr},
      {"MemTotal: 240000 kB\n", 20, nullptr},
      {"MemTotal: 0 kB\n", 20, nullptr},
      {"MemTotal: 18446744073709551615 kB\n", 80, nullptr},
      {"MemFree: 9999999 kB\nBuffers: 1 kB\nMemTotal: 300000 kB\n", 30, nullptr},
      {"MemFree: 9999999 kB\n", 0, "Cannot get MemTotal value."},
      {"", 0, "Cannot get MemTotal value."},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.meminfo);
    qrix::test::SyslogCapture::Get().Clear();
    qrix::test::WriteText(kMeminfo, c.meminfo);
    const auto result = CallApi("Scheduler", "get", "{}");
    ASSERT_TRUE(result.Success());
    EXPECT_EQ(result.Data().isMember("max_tasks_limit"), c.limit != 0);
    EXPECT_EQ(result.Data()["max_tasks_limit"].asInt(), c.limit);
    auto& log = qrix::test::SyslogCapture::Get();
    EXPECT_EQ(log.Count("handler/scheduler_handler:"), c.log != nullptr ? 1 : 0);
    if (c.log != nullptr) {
      EXPECT_EQ(log.Count(c.log), 1);
    }
  }
}

TEST_F(SchedulerHandlerTest, SetWritesWhatTheRequestNames) {
  const std::string kBefore = "download_maxtasks=\"3\"\n";
  struct Case {
    const char* params;
    std::string after;
  } const cases[] = {
      {"{}", kBefore},
      {R"({"enable_schedule": true})", kBefore + "download_schedule_enable=\"yes\"\n"},
      {R"({"enable_schedule": false, "schedule": "0101", "download_rate": 40, "upload_rate": 30,
           "order": "user", "max_tasks": 12})",
       "download_maxtasks=\"12\"\ndownload_schedule_enable=\"no\"\ndownload_schedule=\"0101\"\n"
       "download_alt_dl_rate=\"40\"\ndownload_alt_ul_rate=\"30\"\ndownload_order=\"user\"\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.params);
    WriteSettings(kBefore);
    const auto result = CallApi("Scheduler", "set", c.params);
    ASSERT_TRUE(result.Success());
    EXPECT_TRUE(result.Data().isNull());
    EXPECT_EQ(qrix::test::CallbackNames(*result.response), "SchedulerSIGHUP");
    EXPECT_EQ(ReadText(qrix::test::kSettingsConf), c.after);
  }
  // The last case's rates read back where they belong.
  const auto get = CallApi("Scheduler", "get", "{}");
  EXPECT_EQ(get.Data()["upload_rate"], 30);
  EXPECT_EQ(get.Data()["download_rate"], 40);
}

}  // namespace
