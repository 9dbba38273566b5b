// NZB's password, which is stored enciphered and never answered. The rest of the payload is the
// settings handlers' test.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <filesystem>
#include <string>

#include "platform/vlibc/vlibc_crypt.h"
#include "tests/support/api_call.h"
#include "tests/support/files.h"
#include "tests/support/syslog_capture.h"

namespace {

using qrix::test::CallApi;
using qrix::test::ReadText;
using qrix::test::WriteSettings;

std::string Params(const Json::Value& params) {
  return Json::writeString(Json::StreamWriterBuilder(), params);
}

class NzbHandlerTest : public ::testing::Test {
 protected:
  // Once a test of this process has bound /dev/log, its queue must be drained or logging blocks.
  void SetUp() override { qrix::test::SyslogCapture::Get().Clear(); }
};

// The stored password, deciphered.
std::string StoredPassword() {
  const std::string text = qrix::test::ReadSettings()["download_nzb_password_en"];
  std::string plain(text.size(), '\0');
  if (VLIBCCryptSzDecrypt(text.c_str(), plain.data(), static_cast<int>(plain.size()) + 1) == 0) {
    return "(not deciphered)";
  }
  plain.resize(std::strlen(plain.c_str()));
  return plain;
}

TEST_F(NzbHandlerTest, SetWritesInOrderAndEnciphersThePassword) {
  WriteSettings("");
  const auto result = CallApi("Nzb", "set", R"({
      "server": "news.example", "port": 563, "conn_per_download": 8, "enable_encryption": true,
      "max_download_rate": 900, "enable_auth": false, "username": "ann", "password": "s3cret",
      "enable_parchive": true, "enable_remove_parfiles": false})");
  ASSERT_TRUE(result.Success());
  EXPECT_EQ(qrix::test::CallbackNames(*result.response), "SchedulerSIGHUP");
  const std::string stored = qrix::test::ReadSettings()["download_nzb_password_en"];
  EXPECT_EQ(ReadText(qrix::test::kSettingsConf),
            "download_nzb_server=\"news.example\"\ndownload_nzb_port=\"563\"\n"
            "download_nzb_numconn=\"8\"\ndownload_nzb_encryption=\"yes\"\n"
            "download_nzb_dl_rate=\"900\"\ndownload_nzb_auth=\"no\"\n"
            "download_nzb_user=\"ann\"\ndownload_nzb_password_en=\"" +
                stored +
                "\"\ndownload_nzb_enable_parchive=\"yes\"\n"
                "download_nzb_enable_remove_parchive_files=\"no\"\n");
  EXPECT_EQ(ReadText(qrix::test::kSettingsConf).find("s3cret"), std::string::npos);
  EXPECT_EQ(StoredPassword(), "s3cret");
  const Json::Value got = CallApi("Nzb", "get", "{}").Data();
  EXPECT_FALSE(got.isMember("password"));
  EXPECT_EQ(Params(got).find(stored), std::string::npos);
}

// The buffer holds exactly a Base64 text of the password: the cipher must keep the length.
TEST_F(NzbHandlerTest, PasswordsOfEveryLengthFitAndComeBack) {
  const std::string passwords[] = {"",
                                   "a",
                                   "ab",
                                   "abc",
                                   "abcd",
                                   "abcde",
                                   "p\"w\nd\r=",
                                   std::string(44, 'x'),
                                   std::string(1000, 'y')};
  for (const std::string& password : passwords) {
    SCOPED_TRACE(password.size());
    WriteSettings("");
    Json::Value params;
    params["password"] = password;
    ASSERT_TRUE(CallApi("Nzb", "set", Params(params)).Success());
    const auto file = qrix::test::ParseKvStrict(ReadText(qrix::test::kSettingsConf));
    ASSERT_TRUE(file.ok) << file.bad_line;
    EXPECT_EQ(file.values.at("download_nzb_password_en").size(), (password.size() + 2) / 3 * 4);
    EXPECT_EQ(StoredPassword(), password);
  }
}

TEST_F(NzbHandlerTest, AFailedEncipherWritesNothing) {
  auto& log = qrix::test::SyslogCapture::Get();
  WriteSettings("download_nzb_server=\"old\"\n");
  // Any key will do; a key others may read is refused.
  ASSERT_EQ(CallApi("Nzb", "set", R"({"password": "x"})").Error(), 0);
  ASSERT_EQ(chmod(VLIBC_CRYPT_KEY_FILE, 0644), 0);
  const auto result = CallApi(
      "Nzb", "set", R"({"server": "new", "password": "pw", "enable_remove_parfiles": true})");
  EXPECT_EQ(result.response->GetState(), QRIX::APIResponse::State::kNone);
  EXPECT_TRUE(result.response->GetCallbacks().empty());
  EXPECT_EQ(qrix::test::ReadSettings()["download_nzb_server"], "old");
  EXPECT_EQ(qrix::test::ReadSettings().count("download_nzb_enable_remove_parchive_files"), 0u);
  EXPECT_EQ(log.Count("handler/nzb_handler:"), 1);
  EXPECT_EQ(log.Count("Failed to encrypt password"), 1);
  ASSERT_EQ(chmod(VLIBC_CRYPT_KEY_FILE, 0600), 0);
}

}  // namespace
