// The UI language of a request, as the three-letter code modules expect ("enu", "fra", ...).
#ifndef QRIX_HOST_LANGUAGE_H_
#define QRIX_HOST_LANGUAGE_H_

#include <string>

namespace qrix::host {

inline constexpr const char* kDefaultLanguage = "enu";

// The "lang" cookie when it names a known language (as a code or a language tag), else the
// most preferred known language of Accept-Language, else kDefaultLanguage. Either header may
// be null.
std::string UiLanguage(const std::string* cookie_header, const std::string* accept_language);

}  // namespace qrix::host

#endif  // QRIX_HOST_LANGUAGE_H_
