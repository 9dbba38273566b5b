// The one process runner of the platform: fork and exec without a shell, argv exactly as given,
// wait for the exit status, optionally capture standard output; and the one way to detach.
#ifndef QRIX_PLATFORM_VLIBC_PROCESS_H_
#define QRIX_PLATFORM_VLIBC_PROCESS_H_

#include <sys/types.h>

#include <string>
#include <vector>

#include "platform/qrix_export.h"

namespace qrix {

// Runs the program `path` (absolute) with `argv` (argv[0] included); standard input is
// /dev/null. Returns the exit status (0 to 255), or -1 when the program could not be started
// (errno says why) or was killed by a signal. With `out`, standard output is captured into it;
// otherwise it is the caller's.
QRIX_EXPORT int RunProgram(const std::string& path, const std::vector<std::string>& argv,
                           std::string* out = nullptr);
// The same with `argv[0]` as the program's path.
QRIX_EXPORT int RunProcess(const std::vector<std::string>& argv, std::string* out = nullptr);

// Forks a process that nobody waits for. Returns twice: 0 in a grandchild that runs in a session
// of its own, with the default signal mask, and whose parent has already been reaped, so that it
// leaves no zombie and outlives the caller; the grandchild's pid in the caller. -1 when it could
// not fork. The grandchild must end with _exit(): what it inherited belongs to the caller.
QRIX_EXPORT pid_t ForkDetached();

// Starts the program `path` with `argv` detached (see ForkDetached), standard input and output
// on /dev/null. Returns 0 once the program runs, or -1 when it could not be started.
QRIX_EXPORT int StartDetached(const std::string& path, const std::vector<std::string>& argv);

}  // namespace qrix

#endif  // QRIX_PLATFORM_VLIBC_PROCESS_H_
