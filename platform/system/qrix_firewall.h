/* Firewall rules of the system. */
#ifndef QRIX_PLATFORM_SYSTEM_QRIX_FIREWALL_H_
#define QRIX_PLATFORM_SYSTEM_QRIX_FIREWALL_H_

#include "platform/qrix_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Reloads the firewall rules by running the hook program named by key "reload_hook" of the
 * firewall settings file, without arguments. A system without a hook has no rules to reload.
 * Returns 0, or -1 when the hook could not run or exited non-zero. */
QRIX_EXPORT int QRIXFwRuleHup(void);

#ifdef __cplusplus
}
#endif

#endif /* QRIX_PLATFORM_SYSTEM_QRIX_FIREWALL_H_ */
