#include "host/http/language.h"

#include <gtest/gtest.h>

#include "host/http/cookie.h"

namespace qrix::host {
namespace {

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
