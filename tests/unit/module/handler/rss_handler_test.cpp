// RSS settings: minutes on the wire, seconds in the file, with a 10-minute floor on reading.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "platform/webapi/api_validator.h"
#include "tests/support/api_call.h"
#include "tests/support/files.h"
#include "tests/support/syslog_capture.h"

namespace {

using qrix::test::CallApi;
using qrix::test::WriteSettings;

class RssHandlerTest : public ::testing::Test {
 protected:
  // Once a test of this process has bound /dev/log, its queue must be drained or logging blocks.
  void SetUp() override { qrix::test::SyslogCapture::Get().Clear(); }
};

TEST_F(RssHandlerTest, GetTurnsStoredSecondsIntoMinutes) {
  struct Case {
    const char* file;
    int minutes;
  } const cases[] = {
      {"", 1440},
      {"download_rss_update_interval=\"300\"\n", 10},
      {"download_rss_update_interval=\"599\"\n", 10},
      {"download_rss_update_interval=\"600\"\n", 10},
      {"download_rss_update_interval=\"659\"\n", 10},
      {"download_rss_update_interval=\"3599\"\n", 59},
      {"download_rss_update_interval=\"3600\"\n", 60},
      {"download_rss_update_interval=\"-7200\"\n", 10},
      {"download_rss_update_interval=\"  1200\"\n", 20},
      {"download_rss_update_interval=\"1200s\"\n", 20},
      {"download_rss_update_interval=\"every hour\"\n", 1440},
      {"download_rss_update_interval=\"\"\n", 1440},
      {"download_rss_update_interval=\"99999999999\"\n", 1440},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.file);
    WriteSettings(c.file);
    const auto result = CallApi("Rss", "get", "{}");
    ASSERT_TRUE(result.Success());
    EXPECT_EQ(result.Data(), QRIX::WebAPIUtil::ParseJson(
                                 "{\"update_interval\": " + std::to_string(c.minutes) + "}"));
  }
  // Even an unreadable file answers, with the default.
  qrix::test::Remove(qrix::test::kSettingsConf);
  std::filesystem::create_directory(qrix::test::kSettingsConf);
  EXPECT_EQ(CallApi("Rss", "get", "{}").Data()["update_interval"], 1440);
  std::filesystem::remove(qrix::test::kSettingsConf);
}

TEST_F(RssHandlerTest, SetStoresSecondsWithoutAFloor) {
  struct Case {
    const char* params;
    const char* stored;  // nullptr: the key stays as it was
    int minutes_after;
  } const cases[] = {
      {R"({"update_interval": 5})", "300", 10},
      {R"({"update_interval": 1})", "60", 10},
      {R"({"update_interval": 11})", "660", 11},
      {R"({"update_interval": 1440})", "86400", 1440},
      {"{}", nullptr, 30},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.params);
    WriteSettings("download_rss_update_interval=\"1800\"\n");
    const auto result = CallApi("Rss", "set", c.params);
    EXPECT_EQ(qrix::test::ReadSettings()["download_rss_update_interval"],
              c.stored != nullptr ? c.stored : "1800");
    if (c.stored != nullptr) {
      EXPECT_TRUE(result.Success());
      EXPECT_EQ(qrix::test::CallbackNames(*result.response), "SchedulerSIGHUP");
    } else {
      // Nothing to do: neither a success nor an error of its own.
      EXPECT_EQ(result.response->GetState(), QRIX::APIResponse::State::kNone);
      EXPECT_TRUE(result.response->GetCallbacks().empty());
    }
    EXPECT_EQ(CallApi("Rss", "get", "{}").Data()["update_interval"], c.minutes_after);
  }
}

}  // namespace
