// INI text: the edge cases of the format, each with the sections it must read as, and
// replacing one section without disturbing the rest.
#include "platform/vlibc/ini_text.h"

#include <gtest/gtest.h>

#include <string>

namespace {

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
