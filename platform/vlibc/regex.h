// The one regular expression engine (PCRE2), behind a small owner of the compiled pattern.
#ifndef QRIX_PLATFORM_VLIBC_REGEX_H_
#define QRIX_PLATFORM_VLIBC_REGEX_H_

#include <memory>
#include <string>
#include <string_view>

#include "platform/qrix_export.h"

struct pcre2_real_code_8;

namespace qrix {

class QRIX_EXPORT Regex {
 public:
  // Compiles `pattern` (PCRE2 syntax); Ok() is false when it does not compile.
  explicit Regex(std::string_view pattern);
  bool Ok() const { return code_ != nullptr; }

  // True when the pattern matches somewhere in `subject`; `capture` then receives the first
  // group ("" when it took no part).
  bool PartialMatch(std::string_view subject, std::string* capture = nullptr) const;

 private:
  struct Free {
    void operator()(pcre2_real_code_8* code) const;
  };
  std::unique_ptr<pcre2_real_code_8, Free> code_;
};

}  // namespace qrix

#endif  // QRIX_PLATFORM_VLIBC_REGEX_H_
