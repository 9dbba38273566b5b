#include "platform/system/qrix_firewall.h"

#include <syslog.h>

#include <climits>

#include "platform/system/qrix_paths.h"
#include "platform/vlibc/process.h"
#include "platform/vlibc/vlibc_error.h"
#include "platform/vlibc/vlibc_file.h"

extern "C" int QRIXFwRuleHup(void) {
  char hook[PATH_MAX];
  const int n = VLIBCFileGetKeyValue(QRIX_FIREWALL_CONF, "reload_hook", hook, sizeof hook, 0);
  if (n < 0) {
    return -1;
  }
  if (n == 0) {
    return 0;
  }
  const int status = qrix::RunProcess({hook});
  if (status != 0) {
    syslog(LOG_ERR, "firewall reload hook %s failed: status %d", hook, status);
    VLIBCErrSet(ERR_PROC);
    return -1;
  }
  return 0;
}
