#include "module/common/json_text.h"

#include <memory>

namespace QRIXDL {

bool ParseJsonText(const std::string& text, Json::Value* out, std::string* errors) {
  Json::CharReaderBuilder builder;
  builder["allowComments"] = true;
  builder["failIfExtra"] = true;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  return reader->parse(text.data(), text.data() + text.size(), out, errors);
}

}  // namespace QRIXDL
