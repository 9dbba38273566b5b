// Service port files: what a registration writes, what it refuses, concurrent writers, and the
// conflict test across every service's file; and the INI text they are written in.
#include "platform/system/qrix_service_port.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "platform/vlibc/ini_text.h"
#include "platform/vlibc/vlibc_error.h"
#include "tests/support/files.h"

namespace {

namespace fs = std::filesystem;
using qrix::test::ReadText;

const std::string kDir = "/var/qrix/etc/services";

QRIXSERVICEPORT Record(int protocol, int port, int port_end = 0) {
  return {QRIX_SERVICE_PORT_V1, 0, protocol, port, port_end, 0};
}

class ServicePortTest : public ::testing::Test {
 protected:
  void SetUp() override { fs::remove_all(kDir); }
};

TEST_F(ServicePortTest, SetWritesOneSectionPerName) {
  struct Step {
    const char* section;
    QRIXSERVICEPORT record;
    const char* file;  // whole file afterwards
  } const steps[] = {
      {"bt", Record(QRIX_PORT_TCP, 16881), "[bt]\nprotocol=\"tcp\"\nport=\"16881\"\n"},
      {"bt_dht", Record(QRIX_PORT_UDP, 6881, 6881),  // a range of one port is one port
       "[bt]\nprotocol=\"tcp\"\nport=\"16881\"\n\n[bt_dht]\nprotocol=\"udp\"\nport=\"6881\"\n"},
      {"bt", Record(QRIX_PORT_TCP | QRIX_PORT_UDP, 7000, 7010),
       "[bt]\nprotocol=\"tcp,udp\"\nport=\"7000-7010\"\n\n"
       "[bt_dht]\nprotocol=\"udp\"\nport=\"6881\"\n"},
  };
  for (const Step& s : steps) {
    ASSERT_EQ(QRIXServiceConfSectionPortSet(QRIX_SERVICE_CONF_SET, "dl", s.section, &s.record), 0);
    EXPECT_EQ(ReadText(kDir + "/dl.conf"), s.file) << s.section;
  }
  struct stat st {};
  ASSERT_EQ(stat((kDir + "/dl.conf").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0644u);
  EXPECT_EQ(std::distance(fs::directory_iterator(kDir), fs::directory_iterator()), 1);
}

TEST_F(ServicePortTest, BadArgumentsAreRefusedAndWriteNothing) {
  const struct {
    int op;
    const char* service;
    const char* section;
    QRIXSERVICEPORT record;
  } cases[] = {
      {1, "dl", "bt", Record(1, 80)},       {2, "", "bt", Record(1, 80)},
      {2, "../dl", "bt", Record(1, 80)},    {2, ".dl", "bt", Record(1, 80)},
      {2, "dl", "", Record(1, 80)},         {2, "dl", "b]t", Record(1, 80)},
      {2, "dl", "b\nt", Record(1, 80)},     {2, "dl", "bt", Record(0, 80)},
      {2, "dl", "bt", Record(4, 80)},       {2, "dl", "bt", Record(1, 65536)},
      {2, "dl", "bt", Record(1, 80, 79)},   {2, "dl", "bt", {2, 0, 1, 80, 0, 0}},
      {2, "dl", "bt", {1, 1, 1, 80, 0, 0}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.service) + "/" + c.section + "/" + std::to_string(c.record.port));
    VLIBCErrSetEx(ERR_NONE, "", 0);
    EXPECT_EQ(QRIXServiceConfSectionPortSet(c.op, c.service, c.section, &c.record), -1);
    EXPECT_EQ(VLIBCErrGet(), ERR_BAD_PARAMETERS);
  }
  EXPECT_EQ(QRIXServiceConfSectionPortSet(2, "dl", "bt", nullptr), -1);
  EXPECT_FALSE(fs::exists(kDir + "/dl.conf"));

  // A file where the directory should be: nothing can be published.
  qrix::test::WriteText(kDir, "not a directory");
  const QRIXSERVICEPORT ok = Record(1, 80);
  EXPECT_EQ(QRIXServiceConfSectionPortSet(2, "dl", "bt", &ok), -1);
  EXPECT_EQ(VLIBCErrGet(), ERR_FILE_OPEN);
  fs::remove(kDir);
}

TEST_F(ServicePortTest, ConcurrentWritersLoseNothing) {
  EXPECT_TRUE(qrix::test::InChildren(6, [](int w) {
    bool ok = true;
    for (int port = 1000 * (w + 1); port < 1000 * (w + 1) + 15; ++port) {
      const QRIXSERVICEPORT r = Record(QRIX_PORT_TCP, port);
      const std::string section = "s" + std::to_string(port);
      ok = QRIXServiceConfSectionPortSet(2, "shared", section.c_str(), &r) == 0 && ok;
    }
    return ok;
  }));
  const auto sections = qrix::ini::ParseSections(ReadText(kDir + "/shared.conf"));
  EXPECT_EQ(sections.size(), 6u * 15);
  for (const auto& s : sections) {  // "s<port>" holds that port
    EXPECT_EQ("s" + *s.Find("port"), s.name);
  }
}

TEST_F(ServicePortTest, ConflictsAreFoundAcrossServicesButNotInTheAskersOwn) {
  fs::create_directories(kDir);
  qrix::test::WriteText(
      kDir + "/dl.conf",
      "[bt]\nport=\"16881\"\n[bt_dht]\nport=\"6881\"\n[btsearch]\nport=\"8000\"\n");
  qrix::test::WriteText(kDir + "/web.conf",
                        "[web]\nprotocol=\"tcp\"\nport=\"5000-5010\"\n[dns]\nprotocol=\"udp\"\n"
                        "port=\"53\"\n[odd]\nport=\"x\"\n[rev]\nport=\"90-80\"\n");
  qrix::test::WriteText(kDir + "/.web.conf.tmp.abcdef", "[tmp]\nport=\"7000\"\n");
  qrix::test::WriteText(kDir + "/notes.txt", "[txt]\nport=\"7001\"\n");
  const struct {
    const char* service;
    int first;
    int last;
    bool conflict;
  } cases[] = {
      {"bt", 16881, 16881, false},     {"bt", 6881, 6881, false},
      {"bt", 8000, 8000, true},        {"btsearch", 16881, 16881, true},
      {"btsearch", 8000, 8000, false}, {"web", 16881, 16881, true},
      {"other", 5000, 5000, true},     {"other", 5010, 5020, true},
      {"other", 4990, 5000, true},     {"other", 4990, 4999, false},
      {"other", 5011, 5020, false},    {"other", 5020, 4990, true},
      {"other", 53, 53, true},         {"dns", 53, 53, false},
      {"other", 85, 85, false},        {"other", 7000, 7001, false},
      {"", 16881, 16881, true},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(WebUtils::IsPortConflict(c.service, c.first, c.last) != 0, c.conflict)
        << c.service << " " << c.first << "-" << c.last;
  }
  fs::remove_all(kDir);
  EXPECT_EQ(WebUtils::IsPortConflict("bt", 1, 65535), 0);
}

// Sections rendered compactly: "name{k=v,k=v}" one after the other.
std::string Render(const std::vector<qrix::ini::Section>& sections) {
  std::string out;
  for (const auto& s : sections) {
    out += s.name + "{";
    for (size_t i = 0; i < s.entries.size(); ++i) {
      out += (i ? "," : "") + s.entries[i].key + "=" + s.entries[i].value;
    }
    out += "}";
  }
  return out;
}

TEST(IniTextTest, ParseSections) {
  struct Case {
    const char* text;
    const char* want;
  } const cases[] = {
      {"", ""},
      {"[a]\nk=\"v\"\n", "a{k=v}"},
      {"top=\"1\"\n[a]\nk=\"v\"", "{top=1}a{k=v}"},
      {"# c\n\n; c\n[ a ]\n  k = \"v w\" \n", "a{k=v w}"},
      {"[a]\r\nk=\"v\"\r\n[b]\r\n", "a{k=v}b{}"},
      {"[a]\nk=\"1\"\n[b]\nk=\"2\"\n[a]\nk=\"3\"\nj=\"4\"\n", "a{k=1,k=3,j=4}b{k=2}"},
      {"[a]\nk=\"say \"hi\"\"\nplain=x\nbroken\n[b\n", "a{k=say \"hi\",plain=x}"},
      {"top=\"1\"\n[a]\n[]\nk=\"\\$\"\n", "{top=1,k=$}a{}"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(Render(qrix::ini::ParseSections(c.text)), c.want) << c.text;
  }
  const auto sections = qrix::ini::ParseSections("[a]\nk=\"1\"\n[a]\nk=\"2\"\n");
  ASSERT_NE(qrix::ini::FindSection(sections, "a"), nullptr);
  EXPECT_EQ(*qrix::ini::FindSection(sections, "a")->Find("k"), "1");
  EXPECT_EQ(qrix::ini::FindSection(sections, "b"), nullptr);
}

TEST(IniTextTest, ReplaceSection) {
  const std::vector<qrix::ini::Entry> kv = {{"k", "new"}};
  struct Case {
    const char* text;
    const char* name;
    const char* want;
  } const cases[] = {
      {"[b]\nx=\"1\"", "a", "[b]\nx=\"1\"\n\n[a]\nk=\"new\"\n"},
      {"[b]\nx=\"1\"\n\n", "a", "[b]\nx=\"1\"\n\n[a]\nk=\"new\"\n"},
      {"# head\n[a]\nk=\"old\"\ngone=\"1\"\n# gone too\n[b]\nx=\"1\"\n", "a",
       "# head\n[a]\nk=\"new\"\n\n[b]\nx=\"1\"\n"},
      {"[a]\nk=\"1\"\n[b]\nx=\"1\"\n[a]\nk=\"2\"\n", "a", "[a]\nk=\"new\"\n\n[b]\nx=\"1\"\n"},
      {"[ab]\nk=\"1\"\n", "a", "[ab]\nk=\"1\"\n\n[a]\nk=\"new\"\n"},
  };
  for (const Case& c : cases) {
    std::string text = c.text;
    ASSERT_TRUE(qrix::ini::ReplaceSection(&text, c.name, kv)) << c.text;
    EXPECT_EQ(text, c.want) << c.text;
  }
  const struct {
    const char* name;
    qrix::ini::Entry entry;
  } refused[] = {
      {"", {"k", "v"}},       {"a]", {"k", "v"}},  {"a\nb", {"k", "v"}},
      {" a", {"k", "v"}},     {"a", {"k\n", "v"}}, {"a", {"", "v"}},
      {"a", {"k", "v\nx=1"}}, {"a", {"k", "v\r"}}, {"a", {"k", std::string("v\0", 2)}},
  };
  for (const auto& r : refused) {
    std::string text = "[a]\nk=\"old\"\n";
    EXPECT_FALSE(qrix::ini::ReplaceSection(&text, r.name, {r.entry})) << r.name;
    EXPECT_EQ(text, "[a]\nk=\"old\"\n");
  }
}

}  // namespace
