// QRIX.Haulport2.Setting.Nzb: the news server of NZB downloads, its login, connections, rate
// and par2 repair. The password is taken on "set" only, stored enciphered, never returned.
#ifndef HAULPORT_MODULE_HANDLER_NZB_HANDLER_H_
#define HAULPORT_MODULE_HANDLER_NZB_HANDLER_H_

#include <json/json.h>

#include "platform/dlbase/handler_base.h"

class NzbHandler : public QRIXDL::HandlerBase {
 public:
  NzbHandler(QRIX::APIRequest* request, QRIX::APIResponse* response)
      : HandlerBase(request, response) {}

  void Get();
  void Set();

 private:
  bool LoadSettings(Json::Value& out);
};

#endif  // HAULPORT_MODULE_HANDLER_NZB_HANDLER_H_
