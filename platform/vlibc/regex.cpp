#define PCRE2_CODE_UNIT_WIDTH 8
#include "platform/vlibc/regex.h"

#include <pcre2.h>

namespace qrix {
namespace {

struct MatchDataFree {
  void operator()(pcre2_match_data* data) const { pcre2_match_data_free(data); }
};

}  // namespace

void Regex::Free::operator()(pcre2_code* code) const {
  pcre2_code_free(code);
}

Regex::Regex(std::string_view pattern) {
  int error = 0;
  PCRE2_SIZE offset = 0;
  code_.reset(pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern.data()), pattern.size(), 0, &error,
                            &offset, nullptr));
}

bool Regex::PartialMatch(std::string_view subject, std::string* capture) const {
  if (!code_) {
    return false;
  }
  const std::unique_ptr<pcre2_match_data, MatchDataFree> data(
      pcre2_match_data_create_from_pattern(code_.get(), nullptr));
  if (!data || pcre2_match(code_.get(), reinterpret_cast<PCRE2_SPTR>(subject.data()),
                           subject.size(), 0, 0, data.get(), nullptr) < 0) {
    return false;
  }
  if (capture != nullptr) {
    capture->clear();
    const PCRE2_SIZE* ovector = pcre2_get_ovector_pointer(data.get());
    if (pcre2_get_ovector_count(data.get()) > 1 && ovector[2] != PCRE2_UNSET) {
      capture->assign(subject.substr(ovector[2], ovector[3] - ovector[2]));
    }
  }
  return true;
}

}  // namespace qrix
