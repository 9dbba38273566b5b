// QRIX.Haulport2.Setting.BT: ports, rates, DHT, peers, encryption and seeding of BitTorrent.
#ifndef HAULPORT_MODULE_HANDLER_BT_HANDLER_H_
#define HAULPORT_MODULE_HANDLER_BT_HANDLER_H_

#include <json/json.h>

#include "platform/dlbase/handler_base.h"

class BtHandler : public QRIXDL::HandlerBase {
 public:
  BtHandler(QRIX::APIRequest* request, QRIX::APIResponse* response)
      : HandlerBase(request, response) {}

  void Get();
  void Set();

 private:
  bool LoadSettings(Json::Value& out);
  bool ValidateParams();
  bool ApplySettings();
  // Register the listening ports with the system, so the firewall and forwarding know them.
  int SetTcpServicePort(int port);
  int SetDhtServicePort(int port);
};

#endif  // HAULPORT_MODULE_HANDLER_BT_HANDLER_H_
