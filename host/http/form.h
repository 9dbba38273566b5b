// application/x-www-form-urlencoded text (request bodies and query strings) and the rule that
// turns a field's text into a parameter value.
#ifndef QRIX_HOST_FORM_H_
#define QRIX_HOST_FORM_H_

#include <json/json.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qrix::host {

// Decodes %XX escapes (and '+' as a space when `plus_is_space`). A '%' that does not start a
// valid escape stays as it is.
std::string PercentDecode(std::string_view text, bool plus_is_space);

// The fields of a form in their order; a field without '=' has an empty value, a field
// without a name is dropped.
std::vector<std::pair<std::string, std::string>> ParseForm(std::string_view text);

// A form field's value: its JSON meaning when the text is valid JSON, otherwise the text
// itself as a string ("6881" is a number, "auto" and "\"auto\"" are both the string auto).
Json::Value FieldValue(std::string_view text);

}  // namespace qrix::host

#endif  // QRIX_HOST_FORM_H_
