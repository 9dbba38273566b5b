// Where a request goes: the web API at /webapi/entry.cgi, the web page's files elsewhere.
#ifndef QRIX_HOST_ROUTER_H_
#define QRIX_HOST_ROUTER_H_

#include "host/dispatcher.h"
#include "host/host_check.h"
#include "host/http_message.h"
#include "host/static_files.h"

namespace qrix::host {

inline constexpr const char* kEntryPath = "/webapi/entry.cgi";

HttpResponse Route(const HttpRequest& request, const HostCheck& host_check,
                   const StaticFiles& files, Dispatcher& dispatcher);

}  // namespace qrix::host

#endif  // QRIX_HOST_ROUTER_H_
