#include "host/process/watchdog.h"

#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "host/common/host_codes.h"
#include "host/dispatch/envelope.h"
#include "host/http/response_writer.h"

namespace qrix::host {
namespace {

volatile sig_atomic_t g_connection = -1;
volatile sig_atomic_t g_started = 0;
volatile sig_atomic_t g_limited = 0;  // a time limit applies: SIGALRM ends the worker
// Prepared before anything can fail: a signal handler may only copy bytes out.
char g_answer[512];
size_t g_answer_size = 0;
// A stack overflow leaves no stack for the handler: it runs on this one.
alignas(16) char g_handler_stack[64 * 1024];

constexpr int kFatalSignals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};

void AnswerInternalError() {
  const int fd = g_connection;
  if (fd < 0 || g_started != 0) {
    return;
  }
  g_started = 1;
  size_t sent = 0;
  while (sent < g_answer_size) {
    const ssize_t n = ::send(fd, g_answer + sent, g_answer_size - sent, MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) {
      continue;
    }
    if (n <= 0) {
      return;
    }
    sent += static_cast<size_t>(n);
  }
}

void OnFatalSignal(int sig) {
  AnswerInternalError();
  // The disposition is back to default (SA_RESETHAND): end the way the signal would have, so
  // the master logs the real cause.
  ::raise(sig);
}

void OnTimeLimit(int) {
  if (g_limited == 0) {
    return;  // the master's alarm came late: the request it was meant for is over
  }
  AnswerInternalError();
  ::_exit(kExitTimeLimit);
}

}  // namespace

void InstallWatchdog() {
  const std::string answer = SerializeResponse(JsonResponse(ErrorBody(kInternalError)));
  g_answer_size = answer.size() < sizeof g_answer ? answer.size() : 0;
  std::memcpy(g_answer, answer.data(), g_answer_size);

  stack_t stack{};
  stack.ss_sp = g_handler_stack;
  stack.ss_size = sizeof g_handler_stack;
  ::sigaltstack(&stack, nullptr);

  struct sigaction action {};
  sigemptyset(&action.sa_mask);
  action.sa_handler = OnFatalSignal;
  action.sa_flags = SA_ONSTACK | SA_RESETHAND | SA_NODEFER;
  for (const int sig : kFatalSignals) {
    ::sigaction(sig, &action, nullptr);
  }
  action.sa_handler = OnTimeLimit;
  action.sa_flags = SA_ONSTACK;
  ::sigaction(SIGALRM, &action, nullptr);
}

void ArmWatchdog(int connection) {
  g_started = 0;
  g_connection = connection;
  g_limited = 1;
}

void LimitOwnTime(int seconds) {
  g_connection = -1;
  g_limited = 1;
  ::alarm(static_cast<unsigned>(seconds));
}

void MarkResponseStarted() {
  g_started = 1;
}

void DisarmWatchdog() {
  g_limited = 0;
  g_connection = -1;
}

}  // namespace qrix::host
