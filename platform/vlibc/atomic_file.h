// The one way files of the platform are (re)written: a temporary file beside the target, fsync,
// rename over the target, fsync of the directory. A reader or a crash sees the old file or the
// new one, never a mix.
#ifndef QRIX_PLATFORM_VLIBC_ATOMIC_FILE_H_
#define QRIX_PLATFORM_VLIBC_ATOMIC_FILE_H_

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>

#include "platform/qrix_export.h"

namespace qrix {

// Replaces `path` with `content`. An existing file keeps its owner and mode; a new one gets
// `new_mode` and the caller's ids. Files of the package's etc directory are the exception: they
// always get the owner, group and mode that keep its secrets (package_account.h), so an older,
// wider file is tightened by its next write. Returns 0, or an errno value.
QRIX_EXPORT int PublishFile(const std::string& path, std::string_view content,
                            mode_t new_mode = 0644);

// The last part of `path` (all of it when it has no slash).
QRIX_EXPORT std::string BaseName(std::string_view path);
// The directory part of `path` ("." for a bare name, "/" for a file in the root).
QRIX_EXPORT std::string DirName(std::string_view path);

// Reads a whole file. Returns 0, or an errno value (ENOENT for a missing file).
QRIX_EXPORT int ReadFile(const std::string& path, std::string* out);
// Reads what is left of an open file.
QRIX_EXPORT int ReadFd(int fd, std::string* out);

// Removes temporary files a killed writer left beside `path`. Call only while no writer of
// `path` can be running (under the directory lock).
QRIX_EXPORT void RemoveStaleTemporaries(const std::string& path);

}  // namespace qrix

#endif  // QRIX_PLATFORM_VLIBC_ATOMIC_FILE_H_
