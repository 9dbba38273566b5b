// The texts a person reads, per language: one INI file per language, <texts>/<lang>/strings,
// with sections ("volume", "service") of key="text" lines. English ("enu") is complete; another
// language may lack texts, which then come from English. The web page reads the same files.
#ifndef QRIX_PLATFORM_SYSTEM_LOCALIZED_STRINGS_H_
#define QRIX_PLATFORM_SYSTEM_LOCALIZED_STRINGS_H_

#include <string>
#include <vector>

#include "platform/qrix_export.h"
#include "platform/vlibc/ini_text.h"

namespace QRIX::KRS {

class QRIX_EXPORT LocalizedStringParser {
 public:
  // Reads `lang_dir`/strings, `lang_dir` being a texts folder followed by a language code
  // ("/var/packages/Haulport/target/ui/texts/fre"), and the English set beside it. A code that
  // is not three lower-case letters reads as English. False when not even English could be read.
  bool ParseTexts(const std::string& lang_dir);
  // The text of `key` in `section`, in the language when it has it, else in English, else `def`.
  std::string GetText(const std::string& section, const std::string& key,
                      const std::string& def = "") const;

 private:
  std::vector<qrix::ini::Section> texts_;
  std::vector<qrix::ini::Section> english_;
};

}  // namespace QRIX::KRS

// The package's texts of one section, in one language.
class QRIX_EXPORT StringBundle {
 public:
  static constexpr const char* kTexts = "/var/packages/Haulport/target/ui/texts/";

  explicit StringBundle(std::string section, const std::string& language = "enu");
  std::string Text(const std::string& key, const std::string& def) const;

 private:
  std::string section_;
  QRIX::KRS::LocalizedStringParser parser_;
};

#endif  // QRIX_PLATFORM_SYSTEM_LOCALIZED_STRINGS_H_
