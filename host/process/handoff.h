// The master's line to one worker, a Unix seqpacket socket pair. The master hands over one
// complete request at a time as one message: the request as its reader decoded it, with the
// client's connection attached (SCM_RIGHTS). The worker reports with one status byte: that it
// is ready after start-up (and after a request, while the master listens: worker_board.h),
// or that it leaves.
#ifndef QRIX_HOST_PROCESS_HANDOFF_H_
#define QRIX_HOST_PROCESS_HANDOFF_H_

#include <cstddef>
#include <string>

#include "host/http/http_message.h"
#include "platform/vlibc/unique_fd.h"

namespace qrix::host {

enum class WorkerStatus : char {
  kReady = 'R',    // waiting for a request (after start-up, and after each request)
  kSpent = 'S',    // answered; now runs the request's callbacks and exits
  kLeaving = 'L',  // answered; exits (request limit, memory bound, ids changed)
};

// A socket pair for one worker; false with errno set when it cannot be made.
bool MakeChannel(UniqueFd* master_end, UniqueFd* worker_end);

// False when the worker's end is gone.
bool SendRequest(int channel, const HttpRequest& request, int connection);

enum class Received { kRequest, kClosed, kInterrupted, kBroken };
// Waits for the next request. kClosed: the master closed the line (stop, or the master is
// gone); kInterrupted: a signal came first; kBroken: a message this side cannot read (logged,
// its connection closed).
Received ReceiveRequest(int channel, HttpRequest* request, UniqueFd* connection);

bool SendStatus(int channel, WorkerStatus status);

}  // namespace qrix::host

#endif  // QRIX_HOST_PROCESS_HANDOFF_H_
