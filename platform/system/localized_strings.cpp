#include "platform/system/localized_strings.h"

#include <algorithm>

#include "platform/vlibc/atomic_file.h"

namespace QRIX::KRS {
namespace {

constexpr const char* kEnglish = "enu";

bool IsLanguageCode(const std::string& code) {
  return code.size() == 3 &&
         std::all_of(code.begin(), code.end(), [](char c) { return c >= 'a' && c <= 'z'; });
}

bool Load(const std::string& dir, std::vector<qrix::ini::Section>* out) {
  std::string text;
  if (qrix::ReadFile(dir + "/strings", &text) != 0) {
    return false;
  }
  *out = qrix::ini::ParseSections(text);
  return true;
}

const std::string* Find(const std::vector<qrix::ini::Section>& texts, const std::string& section,
                        const std::string& key) {
  const qrix::ini::Section* s = qrix::ini::FindSection(texts, section);
  return s != nullptr ? s->Find(key) : nullptr;
}

}  // namespace

bool LocalizedStringParser::ParseTexts(const std::string& lang_dir) {
  const size_t slash = lang_dir.find_last_of('/');
  const std::string root = slash == std::string::npos ? "." : lang_dir.substr(0, slash);
  const std::string code = lang_dir.substr(slash == std::string::npos ? 0 : slash + 1);
  texts_.clear();
  english_.clear();
  const bool english = Load(root + "/" + kEnglish, &english_);
  if (IsLanguageCode(code) && code != kEnglish) {
    Load(lang_dir, &texts_);
  }
  return english;
}

std::string LocalizedStringParser::GetText(const std::string& section, const std::string& key,
                                           const std::string& def) const {
  for (const auto* texts : {&texts_, &english_}) {
    if (const std::string* text = Find(*texts, section, key)) {
      return *text;
    }
  }
  return def;
}

}  // namespace QRIX::KRS

StringBundle::StringBundle(std::string section, const std::string& language)
    : section_(std::move(section)) {
  parser_.ParseTexts(kTexts + language);
}

std::string StringBundle::Text(const std::string& key, const std::string& def) const {
  return parser_.GetText(section_, key, def);
}
