// QRIX.Haulport2.Setting.Emule: ports, rates, connections, obfuscation, server options, the
// eMule schedule and the shared folders of the package's eMule daemon.
#ifndef HAULPORT_MODULE_HANDLER_EMULE_HANDLER_H_
#define HAULPORT_MODULE_HANDLER_EMULE_HANDLER_H_

#include <json/json.h>

#include "platform/amule/amule_client.h"
#include "platform/dlbase/handler_base.h"

class EmuleHandler : public QRIXDL::HandlerBase {
 public:
  EmuleHandler(QRIX::APIRequest* request, QRIX::APIResponse* response)
      : HandlerBase(request, response) {}

  void Get();
  void Set();

 private:
  bool LoadSettings(Json::Value& out);
  bool ValidateParams();
  bool ApplySettings();
  // Whether the eMule TCP port may move to `tcp` and the UDP port be `udp`.
  bool CheckEmulePorts(int tcp, int udp);
  // Registers both ports with the system, so the firewall and forwarding know them.
  int SetEmuleServicePorts(int tcp, int udp);

  AmuleClient m_amule;
};

#endif  // HAULPORT_MODULE_HANDLER_EMULE_HANDLER_H_
