// A request parameter fetched with a type: whether the request carried it, whether it is
// unusable (required but absent, or present with the wrong type), and its value.
#ifndef QRIX_PLATFORM_WEBAPI_API_PARAMETER_H_
#define QRIX_PLATFORM_WEBAPI_API_PARAMETER_H_

#include <json/json.h>

#include <string>
#include <utility>

namespace QRIX {

template <typename T>
class APIParameter {
 public:
  APIParameter() = default;
  APIParameter(bool set, bool invalid, T value)
      : set_(set), invalid_(invalid), value_(std::move(value)) {}

  bool IsSet() const { return set_; }
  bool IsInvalid() const { return invalid_; }
  // The value when set and well-typed; the type's empty value otherwise.
  const T& Get() const { return value_; }

 private:
  bool set_ = false;
  bool invalid_ = false;
  T value_{};
};

}  // namespace QRIX

#endif  // QRIX_PLATFORM_WEBAPI_API_PARAMETER_H_
