// QRIX.Haulport2.Setting.FtpHttp: the FTP connection limit and the FTP/HTTP download rate.
#ifndef HAULPORT_MODULE_HANDLER_FTP_HTTP_HANDLER_H_
#define HAULPORT_MODULE_HANDLER_FTP_HTTP_HANDLER_H_

#include <json/json.h>

#include "platform/dlbase/handler_base.h"

class FtpHttpHandler : public QRIXDL::HandlerBase {
 public:
  FtpHttpHandler(QRIX::APIRequest* request, QRIX::APIResponse* response)
      : HandlerBase(request, response) {}

  void Get();
  void Set();

 private:
  bool LoadSettings(Json::Value& out);
  bool ApplySettings();
};

#endif  // HAULPORT_MODULE_HANDLER_FTP_HTTP_HANDLER_H_
