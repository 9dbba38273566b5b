#include "module/common/api_callback.h"

#include <signal.h>
#include <syslog.h>

#include "module/dlcommon/download_info.h"
#include "platform/dlbase/handler_base.h"
#include "platform/system/qrix_firewall.h"

namespace QRIXDL::Callback {
namespace {

constexpr const char* kSource = "common/api_callback";

// Plain bytes: the host runs a request's callbacks one after another on one thread.
unsigned char g_firewall_done = 0;
unsigned char g_sigcont_done = 0;
unsigned char g_sigusr2_done = 0;
unsigned char g_sighup_done = 0;

// Runs `work` unless it already ran in this process; the flag is set whatever the outcome.
template <typename Work>
void Once(unsigned char* done, Work work) {
  if (*done != 0) {
    return;
  }
  work();
  *done = 1;
}

}  // namespace

void ReloadFirewall(void*) {
  Once(&g_firewall_done, [] {
    syslog(LOG_ERR, "%s:%d reload firewall", kSource, __LINE__);
    if (QRIXFwRuleHup() < 0) {
      syslog(LOG_ERR, "%s:%d Failed to reload firewall rules.", kSource, __LINE__);
      QRIXDLErrSet(518);
    }
  });
}

void SchedulerSIGCONT(void*) {
  Once(&g_sigcont_done, [] {
    if (QRIXDLSchedulerHup(SIGCONT) != 0) {
      syslog(LOG_ERR, "%s:%d Failed to send SIGCONT to scheduled.", kSource, __LINE__);
      QRIXDLErrSet(514);
    }
  });
}

void SchedulerSIGUSR2(void*) {
  Once(&g_sigusr2_done, [] {
    syslog(LOG_ERR, "%s:%d SIGUSR2", kSource, __LINE__);
    if (QRIXDLSchedulerHup(SIGUSR2) != 0) {
      syslog(LOG_ERR, "%s:%d Failed to send SIGUSR2 to scheduled.", kSource, __LINE__);
      QRIXDLErrSet(515);
    }
  });
}

void SchedulerSIGHUP(void*) {
  Once(&g_sighup_done, [] {
    if (QRIXDLSchedulerHup(SIGHUP) != 0) {
      syslog(LOG_ERR, "%s:%d Failed to hup scheduled.", kSource, __LINE__);
      QRIXDLErrSet(514);
    }
  });
}

}  // namespace QRIXDL::Callback
