#include "host/dispatch/dispatcher.h"

#include <sodium.h>

#include <exception>
#include <string>

#include "host/access/auth.h"
#include "host/common/host_codes.h"
#include "host/common/host_log.h"
#include "host/dispatch/envelope.h"
#include "host/dispatch/uploads.h"
#include "platform/dlbase/handler_base.h"
#include "platform/webapi/api_request.h"

namespace qrix::host {
namespace {

HttpResponse Error(int code, const Json::Value& errors = Json::Value()) {
  return JsonResponse(ErrorBody(code, errors));
}

// The same parameter error a module's check answers: absent is "required", not text "type".
HttpResponse BadParameter(const ApiCall& call, const char* name) {
  Json::Value errors(Json::objectValue);
  errors["name"] = name;
  errors["reason"] = call.params.isMember(name) ? "type" : "required";
  return Error(kInvalidParameter, errors);
}

// A file where no upload is taken, or a plain value where only an upload is.
HttpResponse NotAnUpload(const std::string& name) {
  Json::Value errors(Json::objectValue);
  errors["name"] = name;
  errors["reason"] = "type";
  return Error(kInvalidParameter, errors);
}

// Over https (behind the TLS front) the cookie is never sent over plain http.
std::string SessionCookie(const Request& request, const std::string& id) {
  return std::string(kSessionCookie) + "=" + id + "; Path=/; HttpOnly; SameSite=Strict" +
         (request.scheme == "https" ? "; Secure" : "");
}

std::string ExpiredSessionCookie(const Request& request) {
  return SessionCookie(request, "") + "; Max-Age=0";
}

bool SameToken(const std::string& sent, const std::string& expected) {
  return sent.size() == expected.size() &&
         sodium_memcmp(sent.data(), expected.data(), expected.size()) == 0;
}

std::string MethodName(const ApiMethod& m) {
  return m.api + " v" + std::to_string(m.version) + " " + m.method;
}

}  // namespace

HttpResponse Dispatcher::Handle(const Request& request) {
  const ApiCall& call = request.call;
  switch (request.call_parse) {
    case CallParse::kOk:
      break;
    case CallParse::kUnreadable:
      return Error(kMissingField);
    case CallParse::kUnsupportedMediaType:
      return TextResponse(
          415, "send application/x-www-form-urlencoded, multipart/form-data or application/json");
  }
  if (call.api.empty() || call.method.empty()) {
    return Error(kMissingField);
  }
  if (call.api == kAuthApi) {
    return HandleAuth(request);
  }
  if (call.version.isNull()) {
    return Error(kMissingField);
  }
  int code = 0;
  const std::optional<Session> session = Authenticate(request, &code);
  if (!session) {
    return Error(code);
  }
  const std::optional<int> version = VersionNumber(call.version);
  if (!version) {
    return Error(kUnsupportedVersion);
  }
  const ApiMethod* method = nullptr;
  switch (registry_.Find(call.api, *version, call.method, &method)) {
    case Lookup::kFound:
      break;
    case Lookup::kUnknownApi:
      return Error(kUnknownApi);
    case Lookup::kUnsupportedVersion:
      return Error(kUnsupportedVersion);
    case Lookup::kUnknownMethod:
      return Error(kUnknownMethod);
  }
  if (!session->account.admin && !method->open_to_every_user) {
    return Error(kNotPermitted);
  }
  return CallModule(*method, *session, request);
}

std::optional<Session> Dispatcher::Authenticate(const Request& request, int* code) {
  std::optional<Session> session =
      request.session_id ? sessions_.Find(*request.session_id) : std::nullopt;
  if (!session) {
    *code = kNotLoggedIn;
    return std::nullopt;
  }
  if (!request.token || !SameToken(*request.token, session->token)) {
    *code = kBadToken;
    return std::nullopt;
  }
  const std::optional<Account> now = accounts_.Lookup(session->account.user);
  if (!now || now->uid != session->account.uid) {
    LogFailure("session ended for account", Printable(session->account.user),
               "the account is gone, locked or expired");
    sessions_.Remove(session->id);
    *code = kNotLoggedIn;
    return std::nullopt;
  }
  session->account = *now;
  sessions_.MarkUsed(session->id);
  return session;
}

HttpResponse Dispatcher::HandleAuth(const Request& request) {
  const ApiCall& call = request.call;
  if (!call.version.isNull() && VersionNumber(call.version) != 1) {
    return Error(kUnsupportedVersion);
  }
  if (call.method == "login") {
    return Login(request);
  }
  if (call.method == "logout") {
    return Logout(request);
  }
  return Error(kUnknownMethod);
}

HttpResponse Dispatcher::Login(const Request& request) {
  // A password in a URL ends up in histories and logs; and only a POST carries an Origin
  // that shows where the form came from.
  if (request.method != "POST") {
    HttpResponse out = TextResponse(405, "log in with POST");
    out.Add("Allow", "POST");
    return out;
  }
  const ApiCall& call = request.call;
  const std::optional<std::string> account = call.Text("account");
  if (!account) {
    return BadParameter(call, "account");
  }
  const std::optional<std::string> password = call.Text("passwd");
  if (!password) {
    return BadParameter(call, "passwd");
  }
  const std::string who = Printable(*account) + " from " + request.peer;
  switch (limiter_.Admit(*account, request.peer)) {
    case LoginLimiter::Admission::kAdmitted:
      break;
    case LoginLimiter::Admission::kLockedOut:
      LogFailure("login refused for account", who, "too many failed logins");
      return Error(kLockedOut);
    case LoginLimiter::Admission::kFailed:
      return Error(kInternalError);
  }
  switch (CheckPassword(*account, *password, request.peer)) {
    case PasswordCheck::kAccepted:
      break;
    case PasswordCheck::kWrong:
      LogFailure("login failed for account", who, "wrong account or password");
      return Error(kWrongCredentials);
    case PasswordCheck::kAccountRefused:
      return Error(kNotPermitted);
    case PasswordCheck::kFailed:
      limiter_.Withdraw(*account, request.peer);
      return Error(kInternalError);
  }
  limiter_.Accepted(*account, request.peer);
  const std::optional<Account> details = accounts_.Lookup(*account);
  if (!details) {
    return Error(kInternalError);
  }
  if (request.session_id) {
    sessions_.Remove(*request.session_id);
  }
  const std::optional<Session> session = sessions_.Create(*details);
  if (!session) {
    return Error(kInternalError);
  }
  sessions_.RemoveExpired();  // logins are rare: a fine moment to sweep
  Json::Value data(Json::objectValue);
  data["token"] = session->token;
  data["account"] = details->user;
  data["admin"] = details->admin;
  data["apis"] = Json::Value(Json::arrayValue);
  for (const std::string& api : registry_.ApisFor(details->admin)) {
    data["apis"].append(api);
  }
  HttpResponse out = JsonResponse(SuccessBody(data));
  out.Add("Set-Cookie", SessionCookie(request, session->id));
  return out;
}

HttpResponse Dispatcher::Logout(const Request& request) {
  int code = 0;
  const std::optional<Session> session = Authenticate(request, &code);
  if (!session) {
    return Error(code);
  }
  sessions_.Remove(session->id);
  HttpResponse out = JsonResponse(SuccessBody(Json::Value()));
  out.Add("Set-Cookie", ExpiredSessionCookie(request));
  return out;
}

HttpResponse Dispatcher::CallModule(const ApiMethod& method, const Session& session,
                                    const Request& request) {
  QRIX::APILogin login{session.account.user, session.account.uid, session.account.admin,
                       request.language};
  // A parameter the policy marks as an upload holds the path of the file sent for it, never a
  // value the client wrote: a path of its choosing could make the module read or delete any
  // file.
  Json::Value params = request.call.params;
  UploadedFiles uploads;
  for (const auto& [name, content] : request.call.files) {
    if (method.upload_params.count(name) == 0) {
      return NotAnUpload(name);
    }
  }
  for (const std::string& name : method.upload_params) {
    if (params.isMember(name)) {
      return NotAnUpload(name);
    }
    if (const auto file = request.call.files.find(name); file != request.call.files.end()) {
      const std::optional<std::string> path = uploads.Store(file->second);
      if (!path) {
        return Error(kInternalError);
      }
      params[name] = *path;
    }
  }
  QRIX::APIRequest api_request(method.api, method.version, method.method, std::move(params),
                               std::move(login));
  try {
    if (method.check(&api_request, &module_response_)) {
      method.entry(&api_request, &module_response_);
    }
  } catch (const qrixdl::QrixError& e) {
    const int code = e.GetErrorCode() != 0 ? e.GetErrorCode() : kInternalError;
    LogFailure("module error in", MethodName(method),
               "error " + std::to_string(e.GetErrorCode()) + ": " + e.what());
    return Error(code);
  } catch (const std::exception& e) {
    LogFailure("module exception in", MethodName(method), e.what());
    return Error(kInternalError);
  } catch (...) {
    LogFailure("module exception in", MethodName(method), "not a std::exception");
    return Error(kInternalError);
  }
  return JsonResponse(ModuleResponseBody(module_response_));
}

}  // namespace qrix::host
