#include "platform/vlibc/process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "platform/vlibc/atomic_file.h"
#include "platform/vlibc/unique_fd.h"

extern char** environ;

namespace qrix {
namespace {

std::vector<char*> ArgvOf(const std::vector<std::string>& argv) {
  std::vector<char*> args;
  args.reserve(argv.size() + 1);
  for (const std::string& a : argv) {
    args.push_back(const_cast<char*>(a.c_str()));
  }
  args.push_back(nullptr);
  return args;
}

// In a forked child: standard input and output on /dev/null, then the program. A failed exec
// writes its errno to `error_fd` (close-on-exec, so the parent reads end-of-file when the exec
// succeeds).
[[noreturn]] void ExecChild(const std::string& path, std::vector<char*>& args, int error_fd) {
  const int devnull = ::open("/dev/null", O_RDWR);
  if (devnull >= 0) {
    ::dup2(devnull, STDIN_FILENO);
    ::dup2(devnull, STDOUT_FILENO);
  }
  ::execv(path.c_str(), args.data());
  const int error = errno;
  [[maybe_unused]] const ssize_t n = ::write(error_fd, &error, sizeof error);
  ::_exit(127);
}

// The errno a child reported through its exec pipe, or 0 when the exec succeeded.
int ExecError(int error_fd) {
  int error = 0;
  ssize_t n;
  while ((n = ::read(error_fd, &error, sizeof error)) < 0 && errno == EINTR) {
  }
  return n == sizeof error ? error : 0;
}

int WaitFor(pid_t pid) {
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) {
      return -1;
    }
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

struct SpawnActions {
  SpawnActions() : valid(posix_spawn_file_actions_init(&actions) == 0) {}
  ~SpawnActions() {
    if (valid) {
      posix_spawn_file_actions_destroy(&actions);
    }
  }
  SpawnActions(const SpawnActions&) = delete;
  SpawnActions& operator=(const SpawnActions&) = delete;
  bool Valid() const { return valid; }

  posix_spawn_file_actions_t actions;
  bool valid;
};

bool MakePipe(UniqueFd* read_end, UniqueFd* write_end) {
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC) != 0) {
    return false;
  }
  read_end->Reset(fds[0]);
  write_end->Reset(fds[1]);
  return true;
}

}  // namespace

int RunProgram(const std::string& path, const std::vector<std::string>& argv, std::string* out) {
  if (path.empty() || path[0] != '/' || argv.empty()) {
    errno = EINVAL;
    return -1;
  }
  // posix_spawn rather than fork: a worker's address space is large, and copying its page
  // tables only to exec costs more than the program it runs. It reports a failed exec itself,
  // except where the spawn is emulated as a fork (qemu-arm): checking first keeps a missing or
  // non-executable program -1 there too, not a child's 127.
  if (::access(path.c_str(), X_OK) != 0) {
    return -1;
  }
  std::vector<char*> args = ArgvOf(argv);
  UniqueFd out_read, out_write;
  if (out != nullptr && !MakePipe(&out_read, &out_write)) {
    return -1;
  }
  SpawnActions actions;
  if (!actions.Valid() ||
      posix_spawn_file_actions_addopen(&actions.actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0) !=
          0 ||
      (out_write.Valid() &&
       posix_spawn_file_actions_adddup2(&actions.actions, out_write.Get(), STDOUT_FILENO) != 0)) {
    errno = ENOMEM;
    return -1;
  }
  pid_t pid = -1;
  if (const int error =
          posix_spawn(&pid, path.c_str(), &actions.actions, nullptr, args.data(), environ)) {
    errno = error;
    return -1;
  }
  out_write.Reset();
  if (out != nullptr) {
    ReadFd(out_read.Get(), out);
  }
  return WaitFor(pid);
}

int RunProcess(const std::vector<std::string>& argv, std::string* out) {
  return argv.empty() ? -1 : RunProgram(argv[0], argv, out);
}

pid_t ForkDetached() {
  UniqueFd pid_read, pid_write;
  if (!MakePipe(&pid_read, &pid_write)) {
    return -1;
  }
  const pid_t child = ::fork();
  if (child < 0) {
    return -1;
  }
  if (child == 0) {
    pid_read.Reset();
    ::setsid();
    const pid_t grandchild = ::fork();
    if (grandchild != 0) {
      [[maybe_unused]] const ssize_t n = ::write(pid_write.Get(), &grandchild, sizeof grandchild);
      ::_exit(grandchild < 0 ? 1 : 0);
    }
    pid_write.Reset();
    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    return 0;
  }
  pid_write.Reset();
  pid_t grandchild = -1;
  ssize_t n;
  while ((n = ::read(pid_read.Get(), &grandchild, sizeof grandchild)) < 0 && errno == EINTR) {
  }
  const int status = WaitFor(child);
  return n == sizeof grandchild && status == 0 && grandchild > 0 ? grandchild : -1;
}

int StartDetached(const std::string& path, const std::vector<std::string>& argv) {
  if (path.empty() || path[0] != '/' || argv.empty()) {
    errno = EINVAL;
    return -1;
  }
  std::vector<char*> args = ArgvOf(argv);
  UniqueFd error_read, error_write;
  if (!MakePipe(&error_read, &error_write)) {
    return -1;
  }
  const pid_t pid = ForkDetached();
  if (pid == 0) {
    error_read.Reset();
    ExecChild(path, args, error_write.Get());
  }
  error_write.Reset();
  if (pid < 0) {
    return -1;
  }
  if (const int error = ExecError(error_read.Get())) {
    errno = error;
    return -1;
  }
  return 0;
}

}  // namespace qrix
