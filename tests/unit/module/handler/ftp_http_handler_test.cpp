// FTP/HTTP settings end to end through the module's tables: defaults, what "set" writes, the
// scheduler signal after the response, and every failure path.
#include <gtest/gtest.h>

#include <filesystem>

#include "module/dlcommon/download_info.h"
#include "tests/support/api_call.h"
#include "tests/support/fake_scheduler.h"
#include "tests/support/files.h"
#include "tests/support/lock_holder.h"

namespace {

using qrix::test::CallApi;
using qrix::test::ReadText;
using qrix::test::WriteSettings;

Json::Value Json(const char* text) {
  Json::Value v;
  Json::Reader().parse(text, v);
  return v;
}

TEST(FtpHttpHandlerTest, GetReadsTheRecord) {
  struct Case {
    const char* file;  // nullptr: no settings file
    const char* want;
  } const cases[] = {
      {nullptr,
       R"({"enable_ftp_max_conn": false, "ftp_max_conn": 3, "ftp_http_max_download_rate": 0})"},
      {"download_ftpmax_enable=\"yes\"\ndownload_ftpmax=\"12\"\ndownload_http_dl_rate=\"500\"\n",
       R"({"enable_ftp_max_conn": true, "ftp_max_conn": 12, "ftp_http_max_download_rate": 500})"},
      {"download_ftpmax_enable=\"YES\"\ndownload_ftpmax=\"0\"\ndownload_http_dl_rate=\"-1\"\n",
       R"({"enable_ftp_max_conn": false, "ftp_max_conn": 3, "ftp_http_max_download_rate": -1})"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.file != nullptr ? c.file : "no file");
    qrix::test::Remove(qrix::test::kSettingsConf);
    if (c.file != nullptr) {
      WriteSettings(c.file);
    }
    const auto result = CallApi("FtpHttp", "get", "{}");
    ASSERT_TRUE(result.Success());
    EXPECT_EQ(result.Data(), Json(c.want));
    EXPECT_TRUE(result.response->GetCallbacks().empty());
  }
  // The file keeps what it had: "get" writes nothing.
  EXPECT_EQ(qrix::test::ReadSettings().at("download_ftpmax"), "0");
}

TEST(FtpHttpHandlerTest, SetWritesOnlyWhatTheRequestNames) {
  const char* kBefore =
      "download_ftpmax_enable=\"yes\"\ndownload_ftpmax=\"5\"\ndownload_http_dl_rate=\"100\"\n"
      "download_other=\"kept\"\n";
  struct Case {
    const char* params;
    const char* after;
  } const cases[] = {
      {"{}", kBefore},
      {R"({"ftp_max_conn": 9})",
       "download_ftpmax_enable=\"yes\"\ndownload_ftpmax=\"9\"\ndownload_http_dl_rate=\"100\"\n"
       "download_other=\"kept\"\n"},
      {R"({"enable_ftp_max_conn": false})",
       "download_ftpmax_enable=\"no\"\ndownload_ftpmax=\"5\"\ndownload_http_dl_rate=\"100\"\n"
       "download_other=\"kept\"\n"},
      {R"({"ftp_http_max_download_rate": 0, "enable_ftp_max_conn": true, "ftp_max_conn": 65535})",
       "download_ftpmax_enable=\"yes\"\ndownload_ftpmax=\"65535\"\ndownload_http_dl_rate=\"0\"\n"
       "download_other=\"kept\"\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.params);
    WriteSettings(kBefore);
    const auto result = CallApi("FtpHttp", "set", c.params);
    ASSERT_TRUE(result.Success());
    EXPECT_TRUE(result.Data().isNull());
    EXPECT_EQ(ReadText(qrix::test::kSettingsConf), c.after);
    EXPECT_EQ(qrix::test::CallbackNames(*result.response), "SchedulerSIGHUP");
  }
}

TEST(FtpHttpHandlerTest, SetThenGetRoundTripsAndSignalsTheSchedulerAfterwards) {
  qrix::test::FakeScheduler scheduler;
  qrix::test::Remove(qrix::test::kSettingsConf);
  const auto set = CallApi("FtpHttp", "set", R"({"ftp_max_conn": 7, "enable_ftp_max_conn": true})");
  ASSERT_TRUE(set.Success());
  EXPECT_EQ(scheduler.Read(), (qrix::test::FakeScheduler::Counts{0, 0, 0}));
  EXPECT_EQ(qrix::test::RunCallbacksInChild(*set.response), 0);
  EXPECT_EQ(scheduler.WaitFor({1, 0, 0}), (qrix::test::FakeScheduler::Counts{1, 0, 0}));
  const auto get = CallApi("FtpHttp", "get", "{}");
  EXPECT_EQ(get.Data(),
            Json(R"({"enable_ftp_max_conn": true, "ftp_max_conn": 7,
                     "ftp_http_max_download_rate": 0})"));
}

TEST(FtpHttpHandlerTest, BadParametersNeverReachTheHandler) {
  WriteSettings("download_ftpmax=\"5\"\n");
  for (const char* params : {R"({"ftp_max_conn": 0})", R"({"ftp_max_conn": 65536})",
                             R"({"ftp_max_conn": "7"})", R"({"enable_ftp_max_conn": "no"})",
                             R"({"ftp_http_max_download_rate": 1.5})"}) {
    SCOPED_TRACE(params);
    const auto result = CallApi("FtpHttp", "set", params);
    EXPECT_FALSE(result.checked);
    EXPECT_EQ(result.Error(), 120);
  }
  EXPECT_EQ(ReadText(qrix::test::kSettingsConf), "download_ftpmax=\"5\"\n");
}

TEST(FtpHttpHandlerTest, AnUnreadableFileAnswers506) {
  qrix::test::Remove(qrix::test::kSettingsConf);
  std::filesystem::create_directory(qrix::test::kSettingsConf);
  const auto result = CallApi("FtpHttp", "get", "{}");
  EXPECT_EQ(result.Error(), 506);
  std::filesystem::remove(qrix::test::kSettingsConf);
}

TEST(FtpHttpHandlerTest, AWriteThatFailsAnswers505WithoutSignalling) {
  const std::string dir = "/var/packages/Haulport/etc";
  std::filesystem::rename(dir, dir + ".away");
  qrix::test::WriteText(dir, "not a directory");
  const auto result = CallApi("FtpHttp", "set", R"({"ftp_max_conn": 4})");
  EXPECT_EQ(result.Error(), 505);
  EXPECT_TRUE(result.response->GetCallbacks().empty());
  std::filesystem::remove(dir);
  std::filesystem::rename(dir + ".away", dir);
}

TEST(FtpHttpHandlerTest, AHeldLockWritesNothingButStillSucceeds) {
  WriteSettings("download_ftpmax=\"5\"\n");
  const qrix::test::LockHolder holder;
  ASSERT_TRUE(holder.Holding());
  const auto result = CallApi("FtpHttp", "set", R"({"ftp_max_conn": 4})");
  EXPECT_TRUE(result.Success());
  EXPECT_EQ(qrix::test::CallbackNames(*result.response), "SchedulerSIGHUP");
  EXPECT_EQ(ReadText(qrix::test::kSettingsConf), "download_ftpmax=\"5\"\n");
}

}  // namespace
