// Where a path that names a place inside a share really leads, and whether an account may use
// it. Paths are resolved the way the kernel resolves them, so neither ".." nor a symbolic link
// can lead out of the share.
#ifndef QRIX_PLATFORM_SHARES_SHARE_PATH_H_
#define QRIX_PLATFORM_SHARES_SHARE_PATH_H_

#include <string>

#include "platform/qrix_export.h"
#include "platform/shares/qrix_share.h"

namespace qrix::share {

enum class PathVerdict {
  kUsable,        // an existing folder inside the share, with the access asked for
  kNoPermission,  // no such share, no such access, or the path leads out of the share
  kNotUsable,     // inside a share the account may use, but not an existing folder
};

struct ResolvedPath {
  PathVerdict verdict = PathVerdict::kNoPermission;
  std::string share;      // the share's name, when one was named
  std::string real_path;  // the folder, with links and dots resolved, when usable
};

// `path` is a share name followed by a relative path ("video/new"), or an absolute path inside
// a share's folder ("/volume1/video/new").
QRIX_EXPORT ResolvedPath ResolveSharePath(const std::string& path, const std::string& user,
                                          Access need);

}  // namespace qrix::share

#endif  // QRIX_PLATFORM_SHARES_SHARE_PATH_H_
