#include "platform/webapi/api_validator.h"

#include <memory>

namespace QRIX {

bool APIValidator::IsBetween(const APIParameter<int>& param, int min, int max) {
  return param.Get() >= min && param.Get() <= max;
}

bool APIValidator::IsBelong(const APIParameter<std::string>& param, const Json::Value& list) {
  if (!list.isArray()) {
    return false;
  }
  for (const Json::Value& item : list) {
    if (item.isString() && item.asString() == param.Get()) {
      return true;
    }
  }
  return false;
}

Json::Value WebAPIUtil::ParseJson(const std::string& text) {
  Json::CharReaderBuilder builder;
  builder["collectComments"] = false;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value out;
  std::string errors;
  if (!reader->parse(text.data(), text.data() + text.size(), &out, &errors)) {
    return Json::Value();
  }
  return out;
}

}  // namespace QRIX
