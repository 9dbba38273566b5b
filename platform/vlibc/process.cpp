#include "platform/vlibc/process.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "platform/vlibc/atomic_file.h"
#include "platform/vlibc/unique_fd.h"

namespace qrix {

int RunProcess(const std::vector<std::string>& argv, std::string* out) {
  return argv.empty() ? -1 : RunProgram(argv[0], argv, out);
}

int RunProgram(const std::string& path, const std::vector<std::string>& argv, std::string* out) {
  if (path.empty() || path[0] != '/' || argv.empty()) {
    return -1;
  }
  std::vector<char*> args;
  args.reserve(argv.size() + 1);
  for (const std::string& a : argv) {
    args.push_back(const_cast<char*>(a.c_str()));
  }
  args.push_back(nullptr);

  int pipe_fds[2] = {-1, -1};
  if (out != nullptr && ::pipe2(pipe_fds, O_CLOEXEC) != 0) {
    return -1;
  }
  UniqueFd read_end(pipe_fds[0]);
  UniqueFd write_end(pipe_fds[1]);

  const pid_t pid = ::fork();
  if (pid < 0) {
    return -1;
  }
  if (pid == 0) {
    const int devnull = ::open("/dev/null", O_RDONLY);
    if (devnull >= 0) {
      ::dup2(devnull, STDIN_FILENO);
    }
    if (write_end.Valid()) {
      ::dup2(write_end.Get(), STDOUT_FILENO);
    }
    ::execv(path.c_str(), args.data());
    ::_exit(127);
  }
  write_end.Reset();
  if (out != nullptr) {
    ReadFd(read_end.Get(), out);
  }
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) {
      return -1;
    }
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace qrix
