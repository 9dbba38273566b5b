#include "platform/webapi/api_request.h"

#include <cmath>
#include <limits>
#include <utility>

namespace QRIX {
namespace {

// Integral reals become integers so that "1e3" and "1000" are the same parameter.
Json::Value NormaliseNumbers(const Json::Value& value) {
  if (value.isDouble() && !value.isIntegral()) {
    return value;
  }
  if (value.isDouble()) {
    const double d = value.asDouble();
    if (d >= static_cast<double>(std::numeric_limits<Json::Int64>::min()) &&
        d < static_cast<double>(std::numeric_limits<Json::Int64>::max())) {
      return Json::Value(static_cast<Json::Int64>(d));
    }
    return value;
  }
  if (value.isArray() || value.isObject()) {
    Json::Value out = value;
    for (auto it = out.begin(); it != out.end(); ++it) {
      *it = NormaliseNumbers(*it);
    }
    return out;
  }
  return value;
}

bool HoldsInt(const Json::Value& v) { return v.isInt() && !(v.isDouble() && !v.isIntegral()); }

bool HoldsCleanString(const Json::Value& v) {
  return v.isString() && v.asString().find('\0') == std::string::npos;
}

// One rule for every typed getter: absent gives "not set" (invalid only when required); present
// with the wrong type, or refused by the validator, gives "set and invalid".
template <typename T, typename Holds, typename Convert>
APIParameter<T> Fetch(const Json::Value& params, const std::string& name,
                      APIRequest::PARAM_NECESSITY necessity, bool (*validator)(const T&),
                      Holds holds, Convert convert) {
  const Json::Value* value = params.find(name.data(), name.data() + name.size());
  if (value == nullptr) {
    return APIParameter<T>(false, necessity == APIRequest::PARAM_REQUIRED, T{});
  }
  if (!holds(*value)) {
    return APIParameter<T>(true, true, T{});
  }
  T typed = convert(*value);
  const bool refused = validator != nullptr && !validator(typed);
  return APIParameter<T>(true, refused, std::move(typed));
}

}  // namespace

APIRequest::APIRequest(std::string api, int version, std::string method,
                       const Json::Value& params, Login login)
    : api_(std::move(api)),
      version_(version),
      method_(std::move(method)),
      params_(params.isObject() ? NormaliseNumbers(params) : Json::Value(Json::objectValue)),
      login_(std::move(login)) {}

bool APIRequest::HasParam(const std::string& name) const {
  return params_.find(name.data(), name.data() + name.size()) != nullptr;
}

Json::Value APIRequest::GetParam(const std::string& name, const Json::Value& def) const {
  const Json::Value* value = params_.find(name.data(), name.data() + name.size());
  return value != nullptr ? *value : def;
}

APIParameter<std::string> APIRequest::GetAndCheckString(const std::string& name,
                                                        PARAM_NECESSITY necessity,
                                                        Validator<std::string> validator) const {
  return Fetch<std::string>(params_, name, necessity, validator, HoldsCleanString,
                            [](const Json::Value& v) { return v.asString(); });
}

APIParameter<int> APIRequest::GetAndCheckInt(const std::string& name, PARAM_NECESSITY necessity,
                                             Validator<int> validator) const {
  return Fetch<int>(params_, name, necessity, validator, HoldsInt,
                    [](const Json::Value& v) { return v.asInt(); });
}

APIParameter<bool> APIRequest::GetAndCheckBool(const std::string& name, PARAM_NECESSITY necessity,
                                               Validator<bool> validator) const {
  return Fetch<bool>(
      params_, name, necessity, validator, [](const Json::Value& v) { return v.isBool(); },
      [](const Json::Value& v) { return v.asBool(); });
}

APIParameter<Json::Value> APIRequest::GetAndCheckUnitArray(const std::string& name,
                                                           PARAM_NECESSITY necessity,
                                                           Validator<Json::Value> validator) const {
  return Fetch<Json::Value>(
      params_, name, necessity, validator, [](const Json::Value& v) { return v.isArray(); },
      [](const Json::Value& v) { return v; });
}

}  // namespace QRIX
