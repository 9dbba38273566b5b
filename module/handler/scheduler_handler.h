// QRIX.Haulport2.Setting.Scheduler: the weekly download schedule, the scheduled rates, the
// order of queued tasks and how many run at once.
#ifndef HAULPORT_MODULE_HANDLER_SCHEDULER_HANDLER_H_
#define HAULPORT_MODULE_HANDLER_SCHEDULER_HANDLER_H_

#include <json/json.h>

#include "platform/dlbase/handler_base.h"

class SchedulerHandler : public QRIXDL::HandlerBase {
 public:
  SchedulerHandler(QRIX::APIRequest* request, QRIX::APIResponse* response)
      : HandlerBase(request, response) {}

  void Get();
  void Set();

 private:
  bool LoadSettings(Json::Value& out);
};

#endif  // HAULPORT_MODULE_HANDLER_SCHEDULER_HANDLER_H_
