#include "platform/vlibc/process_runner.h"

#include "platform/vlibc/process.h"

namespace QRIXUtils {

ProcessRunner::ProcessRunner(std::string path, std::string argv0)
    : path_(std::move(path)), argv_{std::move(argv0)} {}

int ProcessRunner::run(bool wait, bool capture) {
  output_.clear();
  if (!wait) {
    return -1;
  }
  return qrix::RunProgram(path_, argv_, capture ? &output_ : nullptr);
}

}  // namespace QRIXUtils
