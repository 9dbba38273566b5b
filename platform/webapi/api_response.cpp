#include "platform/webapi/api_response.h"

namespace QRIX {

void APIResponse::SetSuccess(const Json::Value& data) {
  state_ = State::kSuccess;
  data_ = data;
  error_code_ = 0;
}

void APIResponse::SetError(int code, const Json::Value& data) {
  state_ = State::kError;
  data_ = data;
  error_code_ = code;
}

void APIResponse::SetCallbackFunc(CallbackFunc func, void* user) {
  if (func != nullptr) {
    callbacks_.push_back({func, user});
  }
}

void APIResponse::RunCallbacks() const {
  for (const Callback& cb : callbacks_) {
    cb.func(cb.user);
  }
}

}  // namespace QRIX
