#include "host/dispatch/router.h"

#include "host/common/host_log.h"

namespace qrix::host {

HttpResponse Route(const Request& request, const HostCheck& host_check, const StaticFiles& files,
                   Dispatcher& dispatcher) {
  if (request.bad_forwarding) {
    return TextResponse(400, "unreadable X-Forwarded-Proto or X-Forwarded-For");
  }
  if (!request.host) {
    return TextResponse(400, "missing Host header");
  }
  if (!host_check.HostAllowed(*request.host, request.proxied)) {
    LogFailure("refused request from", request.peer, "Host " + Printable(*request.host));
    return TextResponse(421, "this server does not answer for that host name");
  }
  if (request.target.empty() || request.target.front() != '/') {
    return TextResponse(400, "bad request target");
  }
  if (!request.ForTheApi()) {
    return files.Serve(request.method, request.path);
  }
  if (request.method != "GET" && request.method != "POST") {
    HttpResponse out = TextResponse(405, "method not allowed");
    out.Add("Allow", "GET, POST");
    return out;
  }
  if (!HostCheck::OriginAllowed(request.origin ? &*request.origin : nullptr, request.scheme,
                                *request.host)) {
    LogFailure("refused request from", request.peer, "Origin " + Printable(*request.origin));
    return TextResponse(403, "cross-origin request refused");
  }
  return dispatcher.Handle(request);
}

}  // namespace qrix::host
