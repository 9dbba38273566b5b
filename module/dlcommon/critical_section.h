// The root critical section: effective ids raised to root around one privileged step and put
// back afterwards, every change logged at the authorisation facility.
#ifndef HAULPORT_MODULE_DLCOMMON_CRITICAL_SECTION_H_
#define HAULPORT_MODULE_DLCOMMON_CRITICAL_SECTION_H_

#include <sys/types.h>

#include "platform/qrix_export.h"

namespace QRIXDL {

class QRIX_EXPORT RootCriticalSection {
 public:
  // Enters at once; `source` names the caller in the log lines.
  RootCriticalSection(const char* source, int line);
  RootCriticalSection(const RootCriticalSection&) = delete;
  RootCriticalSection& operator=(const RootCriticalSection&) = delete;
  // Leaves, unless Leave() already did.
  ~RootCriticalSection();

  // True when the process runs as root now.
  bool Entered() const { return entered_; }
  // The extra step of a switch to another identity: the effective gid, then the effective uid,
  // set to these. True on success; leaving restores the remembered ids either way.
  bool Become(uid_t uid, gid_t gid, int line);
  // Restores the remembered ids; true on success.
  bool Leave(int line);

 private:
  const char* source_;
  int line_;
  uid_t saved_euid_;
  gid_t saved_egid_;
  bool entered_ = false;
  bool left_ = false;
};

}  // namespace QRIXDL

// The two brackets under the names the package's C sources use.
#define ENTERCriticalSection(source) \
  QRIXDL::RootCriticalSection qrixdl_root_section_(source, __LINE__)
#define LEAVECriticalSection() qrixdl_root_section_.Leave(__LINE__)

#endif  // HAULPORT_MODULE_DLCOMMON_CRITICAL_SECTION_H_
