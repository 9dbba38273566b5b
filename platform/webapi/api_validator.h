// Value checks the parameter checks of a module use after fetching a parameter.
#ifndef QRIX_PLATFORM_WEBAPI_API_VALIDATOR_H_
#define QRIX_PLATFORM_WEBAPI_API_VALIDATOR_H_

#include <json/json.h>

#include <string>

#include "platform/qrix_export.h"
#include "platform/webapi/api_parameter.h"

namespace QRIX {

class QRIX_EXPORT APIValidator {
 public:
  // True when the value lies in the closed range [min, max].
  static bool IsBetween(const APIParameter<int>& param, int min, int max);
  // True when the value equals one of the strings of `list` (exact, case-sensitive).
  static bool IsBelong(const APIParameter<std::string>& param, const Json::Value& list);
};

class QRIX_EXPORT WebAPIUtil {
 public:
  // Parses JSON text; a text that does not parse gives a null value.
  static Json::Value ParseJson(const std::string& text);
};

}  // namespace QRIX

#endif  // QRIX_PLATFORM_WEBAPI_API_VALIDATOR_H_
