// Form fields, cookies and the page's language.
#include "host/http/cookie.h"
#include "host/http/form.h"
#include "host/http/language.h"

#include <gtest/gtest.h>

#include "host/common/json_text.h"

namespace qrix::host {
namespace {

TEST(FormTest, PercentDecoding) {
  struct Row {
    const char* in;
    bool plus_is_space;
    std::string out;
  };
  const Row rows[] = {
      {"a%20b", true, "a b"},
      {"a+b", true, "a b"},
      {"a+b", false, "a+b"},
      {"%e2%82%AC", true, "\xe2\x82\xac"},
      {"%00", true, std::string(1, '\0')},
      {"100%", true, "100%"},
      {"%4", true, "%4"},
      {"%zz", true, "%zz"},
      {"%%41", true, "%A"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(PercentDecode(row.in, row.plus_is_space), row.out) << row.in;
  }
}

TEST(FormTest, Fields) {
  using Fields = std::vector<std::pair<std::string, std::string>>;
  struct Row {
    const char* in;
    Fields out;
  };
  const Row rows[] = {
      {"a=1&b=2", {{"a", "1"}, {"b", "2"}}},
      {"a=1&&b=", {{"a", "1"}, {"b", ""}}},
      {"flag&x=y", {{"flag", ""}, {"x", "y"}}},
      {"=orphan&k=v", {{"k", "v"}}},
      {"k=a=b", {{"k", "a=b"}}},
      {"na%6De=v%26w", {{"name", "v&w"}}},
      {"k=1&k=2", {{"k", "1"}, {"k", "2"}}},
      {"", {}},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(ParseForm(row.in), row.out) << row.in;
  }
}

TEST(FormTest, FieldValueIsJsonWhenItParsesAndTextOtherwise) {
  Json::Value list(Json::arrayValue);
  list.append("a");
  list.append(2);
  struct Row {
    std::string text;
    Json::Value value;
  };
  const Row rows[] = {
      {"6881", 6881},
      {"2.5", 2.5},
      {"true", true},
      {"null", Json::Value()},
      {"[\"a\",2]", list},
      {"\"auto\"", "auto"},
      {"auto", "auto"},
      {"", ""},
      {" 7 ", 7},
      {"123abc", "123abc"},
      {"/*c*/1", "/*c*/1"},
      {"{\"a\":1,\"a\":2}", "{\"a\":1,\"a\":2}"},
      {"NaN", "NaN"},
      {std::string(100, '[') + std::string(100, ']'),
       std::string(100, '[') + std::string(100, ']')},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(FieldValue(row.text), row.value) << row.text;
  }
}

TEST(LanguageTest, CookieFirstThenAcceptLanguageThenDefault) {
  struct Row {
    const char* cookie;  // null: no header
    const char* accept;  // null: no header
    const char* code;
  };
  const Row rows[] = {
      {nullptr, nullptr, "enu"},
      {nullptr, "fr-CH, fr;q=0.9, en;q=0.8", "fra"},
      {nullptr, "en;q=0.5, de", "ger"},
      {nullptr, "ZH-tw", "cht"},
      {nullptr, "da;q=0", "enu"},
      {nullptr, "xx;q=1, sv;q=0.1", "sve"},
      {nullptr, "  ko  ;  q=0.7 ,", "krn"},
      {"lang=krn", "fr", "krn"},
      {"a=1; lang=PTB; b=2", nullptr, "ptb"},
      {"lang=ru-RU", nullptr, "rus"},
      {"lang=\"tha\"", nullptr, "tha"},
      {"lang=zz", "it", "ita"},
  };
  for (const Row& row : rows) {
    const std::string cookie = row.cookie ? row.cookie : "";
    const std::string accept = row.accept ? row.accept : "";
    EXPECT_EQ(UiLanguage(row.cookie ? &cookie : nullptr, row.accept ? &accept : nullptr), row.code)
        << (row.cookie ? row.cookie : "-") << " | " << (row.accept ? row.accept : "-");
  }
}

TEST(CookieTest, FindsOneCookieByExactName) {
  EXPECT_EQ(CookieValue("a=1; qrix_sid=abc; b=2", "qrix_sid"), "abc");
  EXPECT_EQ(CookieValue("qrix_sid_old=x; qrix_sid=y", "qrix_sid"), "y");
  EXPECT_EQ(CookieValue("qrix_sid=first; qrix_sid=second", "qrix_sid"), "first");
  EXPECT_EQ(CookieValue("  qrix_sid = spaced ", "qrix_sid"), "spaced");
  EXPECT_EQ(CookieValue("qrix_sid=", "qrix_sid"), "");
  EXPECT_EQ(CookieValue("xqrix_sid=1; flag", "qrix_sid"), std::nullopt);
  EXPECT_EQ(CookieValue("", "qrix_sid"), std::nullopt);
}

}  // namespace
}  // namespace qrix::host
