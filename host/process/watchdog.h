// What keeps a worker's failure from costing more than its own request: a crash (SIGSEGV,
// SIGBUS, SIGFPE, SIGILL, SIGABRT) or the request's time limit answers error 110 on the
// request's connection when no response has started yet, and then ends the worker. The master
// keeps each request's time: it sends SIGALRM when the limit has passed, which spares the
// worker two system calls per request.
#ifndef QRIX_HOST_PROCESS_WATCHDOG_H_
#define QRIX_HOST_PROCESS_WATCHDOG_H_

namespace qrix::host {

// Exit status of a worker that ran out of time, for the master's log.
inline constexpr int kExitTimeLimit = 124;

// Once per worker: the handlers, and the answer they send, prepared before anything can fail.
void InstallWatchdog();
// Guards the request on `connection` until DisarmWatchdog; the master times it.
void ArmWatchdog(int connection);
// For what a worker runs after the master stopped timing it (a spent worker's callbacks): its
// own alarm, `seconds` from now.
void LimitOwnTime(int seconds);
// From here on the connection carries the real response: a crash only ends the worker.
void MarkResponseStarted();
// The request is over: no time limit, and nothing may be written to its descriptor any more.
// An alarm the master sent for it that arrives now is ignored.
void DisarmWatchdog();

}  // namespace qrix::host

#endif  // QRIX_HOST_PROCESS_WATCHDOG_H_
