/* The system's notification mail settings. */
#ifndef QRIX_PLATFORM_SYSTEM_QRIX_MAIL_H_
#define QRIX_PLATFORM_SYSTEM_QRIX_MAIL_H_

#include "platform/qrix_export.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct _tag_QRIXMAIL_ {
  int enable; /* notifications by mail switched on */
  int smtp_port;
  int use_ssl;
  int reserved;
  char smtp_server[32];
} QRIXMAIL;

/* Fills `mail` from the mail settings file (key="value": enable, smtp_server, smtp_port, ssl).
 * Returns 1 when read, 0 when the system has no mail settings, -1 on error. */
QRIX_EXPORT int QRIXMailGet(QRIXMAIL* mail);

#ifdef __cplusplus
}
#endif

#endif /* QRIX_PLATFORM_SYSTEM_QRIX_MAIL_H_ */
