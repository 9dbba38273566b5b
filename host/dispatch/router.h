// Where a request goes: the web API at /webapi/entry.cgi, the web page's files elsewhere, after
// the checks that the request is meant for this server at all.
#ifndef QRIX_HOST_DISPATCH_ROUTER_H_
#define QRIX_HOST_DISPATCH_ROUTER_H_

#include "host/access/host_check.h"
#include "host/dispatch/dispatcher.h"
#include "host/dispatch/request.h"
#include "host/dispatch/static_files.h"
#include "host/http/http_message.h"

namespace qrix::host {

HttpResponse Route(const Request& request, const HostCheck& host_check, const StaticFiles& files,
                   Dispatcher& dispatcher);

}  // namespace qrix::host

#endif  // QRIX_HOST_DISPATCH_ROUTER_H_
