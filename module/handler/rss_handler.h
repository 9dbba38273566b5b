// QRIX.Haulport2.Setting.Rss: how often subscribed feeds are refreshed. The API speaks minutes,
// the settings file seconds.
#ifndef HAULPORT_MODULE_HANDLER_RSS_HANDLER_H_
#define HAULPORT_MODULE_HANDLER_RSS_HANDLER_H_

#include <json/json.h>

#include "platform/dlbase/handler_base.h"

class RssHandler : public QRIXDL::HandlerBase {
 public:
  RssHandler(QRIX::APIRequest* request, QRIX::APIResponse* response)
      : HandlerBase(request, response) {}

  void Get();
  void Set();

 private:
  bool LoadSettings(Json::Value& out);
};

#endif  // HAULPORT_MODULE_HANDLER_RSS_HANDLER_H_
