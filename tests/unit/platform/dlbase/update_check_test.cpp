// The update check's URL and transport: only a host and port come from the setting, and an
// answer is taken only whole, in time and within its size.
#include "platform/dlbase/update_check.h"

#include <gtest/gtest.h>

#include "tests/support/update_server.h"

namespace qrix::test {
namespace {

TEST(UpdateCheckRequestTest, TheServerSettingNamesAHostAndPortOnly) {
  const struct {
    const char* server;
    const char* url;  // "" when refused
  } rows[] = {
      {"update.example.org", "http://update.example.org/btsearchupdate/check?a=1&b=%20"},
      {"[::1]:80", "http://[::1]:80/btsearchupdate/check?a=1&b=%20"},
      {"host/other/path", ""},
      {"user@host", ""},
      {"host?x=1", ""},
      {"host#frag", ""},
      {"host\nHost: other", ""},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(qrixdl::UpdateCheckUrl(row.server, "&a=1&b=%20"), row.url) << row.server;
  }
}

TEST(UpdateCheckRequestTest, AnAnswerPastItsLimitsFails) {
  UpdateServer server;
  const qrixdl::UpdateCheckLimits limits{1000, 1000, 64};
  std::string answer = "stale";
  server.Answer(200, std::string(64, 'x'));
  EXPECT_TRUE(qrixdl::SendUpdateCheckRequest(server.Address().c_str(), answer, "&q=1", limits));
  EXPECT_EQ(answer, std::string(64, 'x'));
  server.Answer(200, std::string(65, 'x'));
  EXPECT_FALSE(qrixdl::SendUpdateCheckRequest(server.Address().c_str(), answer, "&q=1", limits));
  EXPECT_EQ(answer, "");
  server.Answer(0, "");
  EXPECT_FALSE(qrixdl::SendUpdateCheckRequest(server.Address().c_str(), answer, "&q=1", limits));
  EXPECT_EQ(server.Targets(), std::vector<std::string>(3, "/btsearchupdate/check?q=1"));
}

}  // namespace
}  // namespace qrix::test
