// QRIX.Haulport2.Setting.Global: the package's switches (eMule, automatic unzip, Xunlei), the
// Xunlei account kept by the Xunlei plug-in manager, and the volume of the temporary download
// directory, moved by a detached child whose progress "read_progress" reports.
#ifndef HAULPORT_MODULE_HANDLER_GLOBAL_HANDLER_H_
#define HAULPORT_MODULE_HANDLER_GLOBAL_HANDLER_H_

#include <json/json.h>

#include "platform/dlbase/handler_base.h"

class GlobalHandler : public QRIXDL::HandlerBase {
 public:
  GlobalHandler(QRIX::APIRequest* request, QRIX::APIResponse* response)
      : HandlerBase(request, response) {}

  void Get();
  void Set();
  void ReadProgress();

  // The words for a volume status: 0 no volume, 3 crashed, 4 expanding; the UI text of the
  // request's language when `localized`, else a fixed key.
  Json::Value VolumeDisplayStatusToString(int status, bool localized);

 private:
  bool LoadSettings(Json::Value& payload);
  bool ApplySettings(Json::Value& payload);
  bool SetSettings(bool moveVolume);
};

#endif  // HAULPORT_MODULE_HANDLER_GLOBAL_HANDLER_H_
