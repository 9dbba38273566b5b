#include "host/process/priority.h"

#include <sys/resource.h>

namespace qrix::host {

void LowerForHousekeeping() {
  constexpr int kHousekeepingNice = 19;
  ::setpriority(PRIO_PROCESS, 0, kHousekeepingNice);
}

}  // namespace qrix::host
