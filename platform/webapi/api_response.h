// The host's response as a module fills it: success with a payload, or an error code with
// details, plus the callbacks the host runs once the response has been sent.
#ifndef QRIX_PLATFORM_WEBAPI_API_RESPONSE_H_
#define QRIX_PLATFORM_WEBAPI_API_RESPONSE_H_

#include <json/json.h>

#include <vector>

#include "platform/qrix_export.h"

namespace QRIX {

class QRIX_EXPORT APIResponse {
 public:
  using CallbackFunc = void (*)(void*);
  struct Callback {
    CallbackFunc func;
    void* user;
  };
  enum class State { kNone, kSuccess, kError };

  // The last outcome set wins: an error recorded after a success turns the answer into an error.
  void SetSuccess(const Json::Value& data = Json::Value());
  void SetError(int code, const Json::Value& data = Json::Value());
  // Callbacks run in registration order after the response is sent.
  void SetCallbackFunc(CallbackFunc func, void* user);

  State GetState() const { return state_; }
  const Json::Value& GetData() const { return data_; }
  int GetErrorCode() const { return error_code_; }
  const std::vector<Callback>& GetCallbacks() const { return callbacks_; }
  void RunCallbacks() const;

 private:
  State state_ = State::kNone;
  Json::Value data_;
  int error_code_ = 0;
  std::vector<Callback> callbacks_;
};

}  // namespace QRIX

#endif  // QRIX_PLATFORM_WEBAPI_API_RESPONSE_H_
