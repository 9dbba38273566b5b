#include "host/priority.h"

#include <sys/resource.h>

namespace qrix::host {
namespace {
constexpr int kHousekeepingNice = 19;
constexpr int kServingNice = 0;
}  // namespace

void LowerForHousekeeping() {
  ::setpriority(PRIO_PROCESS, 0, kHousekeepingNice);
}

void RaiseForServing() {
  ::setpriority(PRIO_PROCESS, 0, kServingNice);
}

}  // namespace qrix::host
