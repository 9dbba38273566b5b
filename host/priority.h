// CPU priority of the host's processes. Forking workers and ending them is the price of one
// process per request; at a low priority that work waits while a request is being served, so it
// stays off the request's path even when everything shares one CPU.
#ifndef QRIX_HOST_PRIORITY_H_
#define QRIX_HOST_PRIORITY_H_

namespace qrix::host {

// For the master, and for a worker once its client has the answer.
void LowerForHousekeeping();
// For a fresh worker: serving runs at the normal priority (needs CAP_SYS_NICE to undo the
// master's lower one; without it the worker simply stays low, like everything else).
void RaiseForServing();

}  // namespace qrix::host

#endif  // QRIX_HOST_PRIORITY_H_
