// JSON as the host reads and writes it: compact text out, strict text in.
#ifndef QRIX_HOST_COMMON_JSON_TEXT_H_
#define QRIX_HOST_COMMON_JSON_TEXT_H_

#include <json/json.h>

#include <string>
#include <string_view>

namespace qrix::host {

// Compact JSON text; UTF-8 is kept as it is.
std::string JsonText(const Json::Value& value);

// Strict JSON text: exactly one value, no comments, no trailing text, no duplicate keys, no
// nesting deeper than a request could need. False when `text` is not that.
bool ParseStrictJson(std::string_view text, Json::Value* out);

}  // namespace qrix::host

#endif  // QRIX_HOST_COMMON_JSON_TEXT_H_
