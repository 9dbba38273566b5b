// CPU priority of a worker's post-response work: once its client has the answer, what is left
// (the module's callbacks, the exit) yields to the requests being served.
#ifndef QRIX_HOST_PROCESS_PRIORITY_H_
#define QRIX_HOST_PROCESS_PRIORITY_H_

namespace qrix::host {

void LowerForHousekeeping();

}  // namespace qrix::host

#endif  // QRIX_HOST_PROCESS_PRIORITY_H_
