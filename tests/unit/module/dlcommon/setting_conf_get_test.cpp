// The settings reader: every default of the 45 fields, each read rule once per branch, its key
// order and its failure, and the single-key reader.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "module/dlcommon/download_info.h"
#include "tests/support/files.h"
#include "tests/support/kv_interposer.h"
#include "tests/support/syslog_capture.h"

namespace {

using qrix::test::Kv;
using qrix::test::WriteSettings;

DownloadInfo Read() {
  DownloadInfo info;
  std::memset(&info, 0x5A, sizeof info);  // the reader must clear what it does not fill
  EXPECT_EQ(QRIXDLInfoGet(&info), 0);
  return info;
}

class SettingConfGetTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Kv().Reset();
    qrix::test::SyslogCapture::Get().Clear();
  }
};

TEST_F(SettingConfGetTest, EmptyFileGivesTheDefaults) {
  for (bool file_exists : {true, false}) {
    SCOPED_TRACE(file_exists ? "empty file" : "no file");
    qrix::test::Remove(qrix::test::kSettingsConf);
    if (file_exists) {
      WriteSettings("");
    }
    DownloadInfo want;
    std::memset(&want, 0, sizeof want);
    want.ul_rate = 20;
    want.http_max_conn = 4;
    want.enable_http_multi_conn = 1;
    want.start_port = 16881;
    want.enable_dht = 1;
    want.dhtport = 6881;
    want.btmaxpeers = 100;
    want.maxtasks = 10;
    want.enable_pyload = 1;
    want.amule_ul_rate = 20;
    want.amule_tcp_port = 4662;
    want.amule_udp_port = 4672;
    want.amule_max_conn = 500;
    want.amule_enable_obfuscation = 1;
    want.amule_outgoing_obfuscation = 1;
    want.ftpmax = 3;
    want.nzb_port = 119;
    want.nzb_numconn = 2;
    std::strcpy(want.nzb_encryption, "no");
    const DownloadInfo got = Read();
    EXPECT_EQ(std::memcmp(&got, &want, sizeof want), 0);
  }
}

struct RuleCase {
  const char* line;  // one line of settings.conf
  std::function<long(const DownloadInfo&)> field;
  long want;
};

#define FIELD(member) [](const DownloadInfo& i) -> long { return i.member; }

TEST_F(SettingConfGetTest, ReadRules) {
  const RuleCase cases[] = {
      // decimal with floor: missing or below 1 gives the default
      {"download_start_port=\"0\"", FIELD(start_port), 16881},
      {"download_start_port=\"51413\"", FIELD(start_port), 51413},
      // decimal with a default for missing only: no clamp
      {"download_ul_rate=\"-7\"", FIELD(ul_rate), -7},
      // strtol semantics, 32-bit
      {"download_dl_rate=\"12abc\"", FIELD(dl_rate), 12},
      {"download_dl_rate=\"abc\"", FIELD(dl_rate), 0},
      {"download_dl_rate=\"99999999999\"", FIELD(dl_rate), 2147483647},
      {"download_dl_rate=\"-99999999999\"", FIELD(dl_rate), -2147483647 - 1},
      // 16-bit NZB port
      {"download_nzb_port=\"65536\"", FIELD(nzb_port), 119},
      {"download_nzb_port=\"70000\"", FIELD(nzb_port), 4464},
      {"download_nzb_port=\"65535\"", FIELD(nzb_port), 65535},
      // flags on when missing, tested against "yes"
      {"download_enable_dht=\"YES\"", FIELD(enable_dht), 0},
      {"download_enable_dht=\"yes\"", FIELD(enable_dht), 1},
      // flag on when missing, tested against "no"
      {"download_enable_http_multi_conn=\"no\"", FIELD(enable_http_multi_conn), 0},
      {"download_enable_http_multi_conn=\"NO\"", FIELD(enable_http_multi_conn), 1},
      // flags off when missing, tested against "no"
      {"download_seeding_auto_remove=\"NO\"", FIELD(seeding_auto_remove), 1},
      {"download_seeding_auto_remove=\"no\"", FIELD(seeding_auto_remove), 0},
      // flags tested against "yes" only
      {"download_port_map_enabled=\"Yes\"", FIELD(port_map_enabled), 0},
      {"download_enable_bt_port_forwarding=\"yes\"", FIELD(enable_bt_port_forwarding), 1},
      // words
      {"download_order=\"user\"", FIELD(order), 1},
      {"download_order=\"User\"", FIELD(order), 0},
      {"download_btencrypt=\"always\"", FIELD(btencrypt), 2},
      {"download_btencrypt=\"auto\"", FIELD(btencrypt), 1},
      {"download_btencrypt=\"disable\"", FIELD(btencrypt), 0},
      {"download_btencrypt=\"Auto\"", FIELD(btencrypt), 0},
  };
  for (const RuleCase& c : cases) {
    SCOPED_TRACE(c.line);
    WriteSettings(std::string(c.line) + "\n");
    EXPECT_EQ(c.field(Read()), c.want);
  }
}

TEST_F(SettingConfGetTest, TextFieldsAreCutToTheirSize) {
  const std::string text(100, 'a');
  WriteSettings("download_nzb_server=\"" + text + "\"\ndownload_nzb_user=\"" + text +
                "\"\ndownload_nzb_password_en=\"" + text +
                "\"\ndownload_nzb_encryption=\"yes!\"\n");
  const DownloadInfo info = Read();
  EXPECT_EQ(
      std::string(info.nzb_server) + "/" + info.nzb_user + "/" + info.nzb_password_en + "/" +
          info.nzb_encryption,
      std::string(63, 'a') + "/" + std::string(63, 'a') + "/" + std::string(44, 'a') + "/yes");
}

// A failed read stops with the fields read so far; a file that cannot be read fails at once.
TEST_F(SettingConfGetTest, AFailedReadFails) {
  WriteSettings("download_order=\"user\"\ndownload_ul_rate=\"5\"\ndownload_dl_rate=\"6\"\n");
  Kv().fail_read_at = 2;  // download_dl_rate
  DownloadInfo info;
  EXPECT_EQ(QRIXDLInfoGet(&info), -1);
  EXPECT_EQ((std::vector<long>{info.order, info.ul_rate, info.dl_rate, info.start_port}),
            (std::vector<long>{1, 5, 0, 0}));
  EXPECT_TRUE(qrix::test::SyslogCapture::Get().Contains(") There is an error here."));
  qrix::test::Remove(qrix::test::kSettingsConf);
  std::filesystem::create_directory(qrix::test::kSettingsConf);
  Kv().Reset();
  EXPECT_EQ(QRIXDLInfoGet(&info), -1);
  std::filesystem::remove(qrix::test::kSettingsConf);
}

TEST_F(SettingConfGetTest, SettingsGetKeyValue) {
  WriteSettings("download_a=\"value\"\ndownload_empty=\"\"\n");
  struct Case {
    const char* key;
    const char* def;
    int size;
    int rc;
    const char* text;
  } const cases[] = {
      {"download_a", "dflt", 256, 5, "value"},
      {"download_a", "dflt", 3, 2, "va"},
      {"download_missing", "dflt", 256, 4, "dflt"},
      {"download_empty", "dflt", 256, 4, "dflt"},
      {"download_missing", "longdefault", 5, 11, "long"},
      {"download_missing", "", 8, 0, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.key) + "/" + std::to_string(c.size));
    std::string buf(static_cast<size_t>(c.size), 'X');
    EXPECT_EQ(SettingsGetKeyValue(c.key, c.def, buf.data(), c.size), c.rc);
    EXPECT_STREQ(buf.c_str(), c.text);
  }
}

}  // namespace
