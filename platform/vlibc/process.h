// The one process runner of the platform: fork and exec without a shell, argv exactly as given,
// wait for the exit status, optionally capture standard output.
#ifndef QRIX_PLATFORM_VLIBC_PROCESS_H_
#define QRIX_PLATFORM_VLIBC_PROCESS_H_

#include <string>
#include <vector>

#include "platform/qrix_export.h"

namespace qrix {

// Runs the program `path` (absolute) with `argv` (argv[0] included); standard input is
// /dev/null. Returns the exit status (0 to 255), or -1 when the program could not be started or
// was killed by a signal. With `out`, standard output is captured into it; otherwise it is the
// caller's.
QRIX_EXPORT int RunProgram(const std::string& path, const std::vector<std::string>& argv,
                           std::string* out = nullptr);
// The same with `argv[0]` as the program's path.
QRIX_EXPORT int RunProcess(const std::vector<std::string>& argv, std::string* out = nullptr);

}  // namespace qrix

#endif  // QRIX_PLATFORM_VLIBC_PROCESS_H_
