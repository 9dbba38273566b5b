#include "host/http/language.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "host/http/cookie.h"

namespace qrix::host {
namespace {

struct LanguageRow {
  std::string_view tag;  // lower-case language tag (or its leading part)
  std::string_view code;
};

// A tag is looked up whole first, then with its last part dropped, and so on.
constexpr LanguageRow kLanguages[] = {
    {"en", "enu"},    {"fr", "fra"},      {"de", "ger"},    {"es", "spn"},    {"it", "ita"},
    {"ja", "jpn"},    {"ko", "krn"},      {"zh-tw", "cht"}, {"zh-hk", "cht"}, {"zh-hant", "cht"},
    {"zh-cn", "chs"}, {"zh-hans", "chs"}, {"zh", "chs"},    {"nl", "nld"},    {"sv", "sve"},
    {"da", "dan"},    {"nb", "nor"},      {"no", "nor"},    {"pl", "plk"},    {"pt-br", "ptb"},
    {"pt", "ptg"},    {"ru", "rus"},      {"cs", "csy"},    {"hu", "hun"},    {"tr", "trk"},
    {"th", "tha"},
};

std::string Lower(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return out;
}

std::string_view CodeOfTag(std::string tag) {
  for (;;) {
    for (const LanguageRow& row : kLanguages) {
      if (row.tag == tag) {
        return row.code;
      }
    }
    const size_t dash = tag.rfind('-');
    if (dash == std::string::npos) {
      return {};
    }
    tag.resize(dash);
  }
}

std::string_view CodeOfCookie(const std::string& value) {
  const std::string lower = Lower(value);
  for (const LanguageRow& row : kLanguages) {
    if (row.code == lower) {
      return row.code;
    }
  }
  return CodeOfTag(lower);
}

std::string_view Trim(std::string_view text) {
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) {
    text.remove_prefix(1);
  }
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) {
    text.remove_suffix(1);
  }
  return text;
}

// "fr-CH, fr;q=0.9, en;q=0.8": the first known language among the highest weights.
std::string_view CodeOfAcceptLanguage(std::string_view header) {
  struct Choice {
    double weight;
    std::string_view code;
  };
  std::vector<Choice> choices;
  while (!header.empty()) {
    const size_t comma = header.find(',');
    std::string_view item = Trim(header.substr(0, comma));
    header = comma == std::string_view::npos ? std::string_view() : header.substr(comma + 1);
    double weight = 1.0;
    if (const size_t semi = item.find(';'); semi != std::string_view::npos) {
      const std::string_view param = Trim(item.substr(semi + 1));
      if (param.substr(0, 2) == "q=") {
        weight = std::strtod(std::string(param.substr(2)).c_str(), nullptr);
      }
      item = Trim(item.substr(0, semi));
    }
    const std::string_view code = CodeOfTag(Lower(item));
    if (weight > 0 && !code.empty()) {
      choices.push_back({weight, code});
    }
  }
  std::stable_sort(choices.begin(), choices.end(),
                   [](const Choice& a, const Choice& b) { return a.weight > b.weight; });
  return choices.empty() ? std::string_view() : choices.front().code;
}

}  // namespace

std::string UiLanguage(const std::string* cookie_header, const std::string* accept_language) {
  if (cookie_header != nullptr) {
    if (const auto lang = CookieValue(*cookie_header, "lang")) {
      if (const std::string_view code = CodeOfCookie(*lang); !code.empty()) {
        return std::string(code);
      }
    }
  }
  if (accept_language != nullptr) {
    if (const std::string_view code = CodeOfAcceptLanguage(*accept_language); !code.empty()) {
      return std::string(code);
    }
  }
  return kDefaultLanguage;
}

}  // namespace qrix::host
