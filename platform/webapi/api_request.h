// The host's request as a module sees it: the API, version and method, the parameters (each a
// JSON value), and who is asking.
#ifndef QRIX_PLATFORM_WEBAPI_API_REQUEST_H_
#define QRIX_PLATFORM_WEBAPI_API_REQUEST_H_

#include <json/json.h>
#include <sys/types.h>

#include <string>

#include "platform/qrix_export.h"
#include "platform/webapi/api_parameter.h"

namespace QRIX {

// Who sent a request; filled by the host from the session.
struct APILogin {
  std::string user;
  uid_t uid = static_cast<uid_t>(-1);
  bool admin = false;
  std::string language = "enu";
};

class QRIX_EXPORT APIRequest {
 public:
  enum PARAM_NECESSITY { PARAM_REQUIRED = 0, PARAM_OPTIONAL = 1 };
  using Login = APILogin;

  template <typename T>
  using Validator = bool (*)(const T&);

  // `params` must be a JSON object (anything else is taken as no parameters). Integral numbers
  // written as reals (1e3, 6881.0) are kept as integers, so that a parameter's text is the same
  // however the client spelt the number.
  APIRequest(std::string api, int version, std::string method, const Json::Value& params,
             Login login = {});

  const std::string& GetAPIName() const { return api_; }
  int GetAPIVersion() const { return version_; }
  const std::string& GetAPIMethod() const { return method_; }
  const Json::Value& GetParams() const { return params_; }

  bool HasParam(const std::string& name) const;
  Json::Value GetParam(const std::string& name, const Json::Value& def = Json::Value()) const;

  // Typed getters. A string holding a NUL byte is of the wrong type: nothing downstream (C
  // strings, key/value files, command lines) could carry it whole.
  APIParameter<std::string> GetAndCheckString(const std::string& name,
                                              PARAM_NECESSITY necessity = PARAM_REQUIRED,
                                              Validator<std::string> validator = nullptr) const;
  APIParameter<int> GetAndCheckInt(const std::string& name,
                                   PARAM_NECESSITY necessity = PARAM_REQUIRED,
                                   Validator<int> validator = nullptr) const;
  APIParameter<bool> GetAndCheckBool(const std::string& name,
                                     PARAM_NECESSITY necessity = PARAM_REQUIRED,
                                     Validator<bool> validator = nullptr) const;
  // A JSON array; a single scalar is not taken as a one-element array.
  APIParameter<Json::Value> GetAndCheckUnitArray(
      const std::string& name, PARAM_NECESSITY necessity = PARAM_REQUIRED,
      Validator<Json::Value> validator = nullptr) const;

  const std::string& GetLoginUserName() const { return login_.user; }
  uid_t GetLoginUID() const { return login_.uid; }
  bool IsAdmin() const { return login_.admin; }
  const std::string& GetUILanguage() const { return login_.language; }

 private:
  std::string api_;
  int version_;
  std::string method_;
  Json::Value params_;
  Login login_;
};

}  // namespace QRIX

#endif  // QRIX_PLATFORM_WEBAPI_API_REQUEST_H_
