// Post-response callbacks in processes of their own, so that "once per process" stays "once
// per request" while the worker that answered goes on serving. The master makes one queue, a
// Unix seqpacket socket pair (MakeChannel of handoff.h). A worker posts each request's callbacks on
// one end, after the answer went out. A keeper process, forked from the master after the modules
// were loaded (so a callback's address means the same in it as in the worker), takes them from the
// other end and forks one runner per request, which runs them in order and exits. The keeper runs
// at the workers' priority: when it falls behind, the queue fills and every further request with
// callbacks spends its worker, which costs the master a fork per request instead.
#ifndef QRIX_HOST_PROCESS_CALLBACK_RUNNER_H_
#define QRIX_HOST_PROCESS_CALLBACK_RUNNER_H_

#include <vector>

#include "platform/vlibc/unique_fd.h"
#include "platform/webapi/api_response.h"

namespace qrix::host {

// Posts one request's callbacks without waiting. False when they cannot go this way: the queue
// is full or gone, or a callback carries data that only this process holds. The caller then
// runs them itself, in a process that runs no other request's.
bool PostCallbacks(int queue, const std::vector<QRIX::APIResponse::Callback>& callbacks);

// The keeper: runs each request's callbacks taken from `queue` in a fresh child, each child
// limited to `time_limit` seconds. Leaves once every poster has closed the queue and its
// children are done.
[[noreturn]] void RunCallbackKeeper(UniqueFd queue, int time_limit);

}  // namespace qrix::host

#endif  // QRIX_HOST_PROCESS_CALLBACK_RUNNER_H_
