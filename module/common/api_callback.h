// Work the host runs after a response has been sent: the firewall reload and the scheduler
// signals. Each does its work at most once per process, however often it was registered.
#ifndef HAULPORT_MODULE_COMMON_API_CALLBACK_H_
#define HAULPORT_MODULE_COMMON_API_CALLBACK_H_

#include "platform/qrix_export.h"

namespace QRIXDL::Callback {

QRIX_EXPORT void ReloadFirewall(void* unused);
QRIX_EXPORT void SchedulerSIGCONT(void* unused);
QRIX_EXPORT void SchedulerSIGUSR2(void* unused);
QRIX_EXPORT void SchedulerSIGHUP(void* unused);

}  // namespace QRIXDL::Callback

#endif  // HAULPORT_MODULE_COMMON_API_CALLBACK_H_
