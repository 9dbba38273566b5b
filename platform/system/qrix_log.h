/* The system's event log: lines a person reads about what the system did, in syslog under the
 * fixed tag "qrix-event", apart from the programs' own diagnostics. */
#ifndef QRIX_PLATFORM_SYSTEM_QRIX_LOG_H_
#define QRIX_PLATFORM_SYSTEM_QRIX_LOG_H_

#include "platform/qrix_export.h"

#ifdef __cplusplus
extern "C" {
#endif

#define QRIX_EVENT_LOG_TAG "qrix-event"

/* Event levels: the syslog severity of the line. */
enum { QRIX_EVENT_INFO = 1, QRIX_EVENT_WARN = 2, QRIX_EVENT_ERR = 3 };

/* Logs event `event_id` of `source` ("Download Service") with up to three arguments (NULL for
 * none) filled into the event's text; an event without a text of its own is logged with its
 * number and the arguments. `type` is recorded as given. Returns 0, or -1 when the line could
 * not be sent. */
QRIX_EXPORT int QRIXLogSet1(int type, int level, unsigned int event_id, const char* source,
                            const char* arg1, const char* arg2, const char* arg3);

#ifdef __cplusplus
}
#endif

#endif /* QRIX_PLATFORM_SYSTEM_QRIX_LOG_H_ */
