// FTP/HTTP settings through the module's tables: defaults and what "set" writes. The failures
// every handler shares are the commit queue's test.
#include <gtest/gtest.h>

#include "module/dlcommon/download_info.h"
#include "tests/support/api_call.h"
#include "tests/support/files.h"

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

}  // namespace
