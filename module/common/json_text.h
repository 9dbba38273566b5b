// JSON text that helper programs and remote servers answer with, parsed the one way the module
// reads it: comments allowed, nothing after the value.
#ifndef HAULPORT_MODULE_COMMON_JSON_TEXT_H_
#define HAULPORT_MODULE_COMMON_JSON_TEXT_H_

#include <json/json.h>

#include <string>

namespace QRIXDL {

// False with the parser's formatted messages in `errors` when `text` is not one JSON value.
bool ParseJsonText(const std::string& text, Json::Value* out, std::string* errors);

}  // namespace QRIXDL

#endif  // HAULPORT_MODULE_COMMON_JSON_TEXT_H_
