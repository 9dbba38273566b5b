// One call of /webapi/entry.cgi, from the HTTP request to the envelope: the host's own login
// API, the session and CSRF token, the method lookup, the policy, then the module's check
// function and, when it accepts, the entry function.
#ifndef QRIX_HOST_DISPATCHER_H_
#define QRIX_HOST_DISPATCHER_H_

#include <optional>

#include "host/api_call.h"
#include "host/http_message.h"
#include "host/login_limiter.h"
#include "host/module_registry.h"
#include "host/session_store.h"
#include "platform/webapi/api_response.h"

namespace qrix::host {

inline constexpr const char* kAuthApi = "QRIX.API.Auth";
inline constexpr const char* kSessionCookie = "qrix_sid";
inline constexpr const char* kTokenHeader = "x-qrix-token";

class Dispatcher {
 public:
  Dispatcher(const ModuleRegistry& registry, SessionStore& sessions, LoginLimiter& limiter)
      : registry_(registry), sessions_(sessions), limiter_(limiter) {}
  Dispatcher(const Dispatcher&) = delete;
  Dispatcher& operator=(const Dispatcher&) = delete;

  HttpResponse Handle(const HttpRequest& request);

  // The callbacks the module registered, in order; for after the response has been sent.
  void RunCallbacks() const { module_response_.RunCallbacks(); }

 private:
  HttpResponse HandleAuth(const ApiCall& call, const HttpRequest& request);
  HttpResponse Login(const ApiCall& call, const HttpRequest& request);
  HttpResponse Logout(const HttpRequest& request);
  // The session the request proves with its cookie and token, or the error code why not.
  std::optional<Session> Authenticate(const HttpRequest& request, int* code);
  HttpResponse CallModule(const ApiMethod& method, const ApiCall& call, const Session& session,
                          const HttpRequest& request);

  const ModuleRegistry& registry_;
  SessionStore& sessions_;
  LoginLimiter& limiter_;
  QRIX::APIResponse module_response_;
};

}  // namespace qrix::host

#endif  // QRIX_HOST_DISPATCHER_H_
