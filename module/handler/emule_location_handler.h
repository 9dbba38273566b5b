// QRIX.Haulport2.Setting.Emule.Location: each account's default destination for eMule
// downloads, kept in eMule's own file keyed by user id.
#ifndef HAULPORT_MODULE_HANDLER_EMULE_LOCATION_HANDLER_H_
#define HAULPORT_MODULE_HANDLER_EMULE_LOCATION_HANDLER_H_

#include <json/json.h>

#include "platform/dlbase/handler_base.h"

#define QRIXDL_AMULE_DESTINATION_CONF \
  "/var/packages/Haulport/etc/amule/qrixuser_default_destination.conf"

class EmuleLocationHandler : public QRIXDL::HandlerBase {
 public:
  EmuleLocationHandler(QRIX::APIRequest* request, QRIX::APIResponse* response)
      : HandlerBase(request, response) {}

  void Get();
  void Set();

 private:
  bool LoadSettings(Json::Value& out);
  bool ApplySettings();
};

#endif  // HAULPORT_MODULE_HANDLER_EMULE_LOCATION_HANDLER_H_
