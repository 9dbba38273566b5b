// QRIX.Haulport2.Setting.Location: the calling account's own default destination and
// torrent/NZB watch folder, kept in its row of the per-user settings table.
#ifndef HAULPORT_MODULE_HANDLER_LOCATION_HANDLER_H_
#define HAULPORT_MODULE_HANDLER_LOCATION_HANDLER_H_

#include <json/json.h>

#include "platform/dlbase/handler_base.h"

class LocationHandler : public QRIXDL::HandlerBase {
 public:
  LocationHandler(QRIX::APIRequest* request, QRIX::APIResponse* response)
      : HandlerBase(request, response) {}

  void Get();
  void Set();

 private:
  bool LoadSettings(Json::Value& out);
  bool ApplySettings();
};

#endif  // HAULPORT_MODULE_HANDLER_LOCATION_HANDLER_H_
