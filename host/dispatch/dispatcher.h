// One call of /webapi/entry.cgi, from the HTTP request to the envelope: the host's own login
// API, the session and CSRF token, the method lookup, the policy, then the module's check
// function and, when it accepts, the entry function.
#ifndef QRIX_HOST_DISPATCHER_H_
#define QRIX_HOST_DISPATCHER_H_

#include <optional>

#include "host/access/auth.h"
#include "host/access/login_limiter.h"
#include "host/access/session_store.h"
#include "host/dispatch/module_registry.h"
#include "host/dispatch/request.h"
#include "host/http/http_message.h"
#include "platform/webapi/api_response.h"

namespace qrix::host {

inline constexpr const char* kAuthApi = "QRIX.API.Auth";

class Dispatcher {
 public:
  Dispatcher(const ModuleRegistry& registry, SessionStore& sessions, LoginLimiter& limiter,
             AccountCache& accounts)
      : registry_(registry), sessions_(sessions), limiter_(limiter), accounts_(accounts) {}
  Dispatcher(const Dispatcher&) = delete;
  Dispatcher& operator=(const Dispatcher&) = delete;

  HttpResponse Handle(const Request& request);

  // Whether the module registered post-response callbacks, and running them, in order, once
  // the response has been sent.
  bool HasCallbacks() const { return !module_response_.GetCallbacks().empty(); }
  const std::vector<QRIX::APIResponse::Callback>& Callbacks() const {
    return module_response_.GetCallbacks();
  }
  void RunCallbacks() const { module_response_.RunCallbacks(); }

 private:
  HttpResponse HandleAuth(const Request& request);
  HttpResponse Login(const Request& request);
  HttpResponse Logout(const Request& request);
  // The session the request proves with its cookie and token, held by an account that still
  // may log in, its administrator flag as it is now; or the error code why not. Only a
  // session proved so is extended.
  std::optional<Session> Authenticate(const Request& request, int* code);
  HttpResponse CallModule(const ApiMethod& method, const Session& session, const Request& request);

  const ModuleRegistry& registry_;
  SessionStore& sessions_;
  LoginLimiter& limiter_;
  AccountCache& accounts_;
  QRIX::APIResponse module_response_;
};

}  // namespace qrix::host

#endif  // QRIX_HOST_DISPATCHER_H_
