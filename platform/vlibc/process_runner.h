// A program run as the package's scripts are: a path, an argv[0], arguments added in groups,
// then run, optionally capturing what it prints. A thin layer over platform/vlibc/process.
#ifndef QRIX_PLATFORM_VLIBC_PROCESS_RUNNER_H_
#define QRIX_PLATFORM_VLIBC_PROCESS_RUNNER_H_

#include <string>
#include <utility>
#include <vector>

#include "platform/qrix_export.h"

namespace QRIXUtils {

class QRIX_EXPORT ProcessRunner {
 public:
  // `path` is the absolute path of the program, `argv0` the name it sees as argv[0].
  ProcessRunner(std::string path, std::string argv0);

  // Appends one to nine arguments, each passed as it is: no shell ever sees them.
  template <typename... Args>
  void addArguments(Args&&... args) {
    static_assert(sizeof...(Args) >= 1 && sizeof...(Args) <= 9,
                  "addArguments takes one to nine strings");
    (argv_.emplace_back(std::forward<Args>(args)), ...);
  }

  // Runs the program to its end and returns its exit status (0 on success), or -1 when it could
  // not be started or was killed. With `capture`, its standard output is kept for
  // getCapturedOutput(). Every caller waits for its program, so `wait` false is refused (-1,
  // nothing run) rather than leaving a child nobody reaps.
  int run(bool wait, bool capture);

  // What the last captured run printed.
  const std::string& getCapturedOutput() const { return output_; }
  // argv[0] and the arguments added so far.
  const std::vector<std::string>& arguments() const { return argv_; }

 private:
  std::string path_;
  std::vector<std::string> argv_;
  std::string output_;
};

}  // namespace QRIXUtils

#endif  // QRIX_PLATFORM_VLIBC_PROCESS_RUNNER_H_
