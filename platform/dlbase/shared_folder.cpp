#include "platform/dlbase/shared_folder.h"

#include <cstdio>

#include "platform/dlbase/handler_base.h"
#include "platform/shares/share_path.h"

namespace qrixdl::common {

void CheckSharedPathWithException(const std::string& path, const std::string& user) {
  using qrix::share::PathVerdict;
  const qrix::share::ResolvedPath resolved =
      qrix::share::ResolveSharePath(path, user, qrix::share::Access::kWrite);
  switch (resolved.verdict) {
    case PathVerdict::kUsable:
      return;
    case PathVerdict::kNotUsable:
      throw QrixError(kErrFolderNotUsable, "not an existing folder: " + path);
    case PathVerdict::kNoPermission:
      break;
  }
  throw QrixError(kErrNoSharePermission, "no permission on a shared folder for " + path);
}

}  // namespace qrixdl::common

extern "C" bool QRIXDownloadCheckShareFolder(const char* path, const char* user, char* real_path,
                                             int size) {
  if (path == nullptr || user == nullptr) {
    return false;
  }
  const qrix::share::ResolvedPath resolved =
      qrix::share::ResolveSharePath(path, user, qrix::share::Access::kWrite);
  if (resolved.verdict != qrix::share::PathVerdict::kUsable) {
    return false;
  }
  if (real_path != nullptr && size > 0) {
    std::snprintf(real_path, static_cast<size_t>(size), "%s", resolved.real_path.c_str());
  }
  return true;
}
