/* Whether the system's services run, told by their pid files. */
#ifndef QRIX_PLATFORM_SYSTEM_QRIX_SERVICE_H_
#define QRIX_PLATFORM_SYSTEM_QRIX_SERVICE_H_

#include "platform/qrix_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* 1 when the service `name` ("pgsql") runs: its pid file names a live process of the file's
 * owner. 0 when it does not, or when the name is not a service of this system (ERR_NOT_FOUND). */
QRIX_EXPORT int VLIBServiceIsRunning(const char* name);

#ifdef __cplusplus
}
#endif

#endif /* QRIX_PLATFORM_SYSTEM_QRIX_SERVICE_H_ */
