#include "platform/vlibc/vlibc_exec.h"

#include <cstdarg>
#include <string>
#include <vector>

#include "platform/vlibc/process.h"
#include "platform/vlibc/vlibc_error.h"

namespace {

int Run(const char* path, const std::vector<std::string>& argv, bool wait) {
  if (path == nullptr) {
    VLIBCErrSet(ERR_BAD_PARAMETERS);
    return -1;
  }
  const int result = wait ? qrix::RunProgram(path, argv) : qrix::StartDetached(path, argv);
  if (result < 0) {
    VLIBCErrSet(ERR_PROC);
  }
  return result;
}

}  // namespace

extern "C" int VLIBCExec(const char* path, const char* arg1, const char* arg2, const char* arg3,
                         const char* arg4) {
  std::vector<std::string> argv{path != nullptr ? path : ""};
  for (const char* arg : {arg1, arg2, arg3, arg4}) {
    if (arg == nullptr) {
      break;
    }
    argv.emplace_back(arg);
  }
  return Run(path, argv, true);
}

extern "C" int VLIBCExecl(const char* path, int flags, ...) {
  std::vector<std::string> argv{path != nullptr ? path : ""};
  va_list args;
  va_start(args, flags);
  while (const char* arg = va_arg(args, const char*)) {
    argv.emplace_back(arg);
  }
  va_end(args);
  return Run(path, argv, (flags & VLIBC_EXEC_NOWAIT) == 0);
}
