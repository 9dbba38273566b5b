// The download library's checks of a folder a person asks downloads to use: it must be an
// existing folder inside a share the account may write to.
#ifndef QRIX_PLATFORM_DLBASE_SHARED_FOLDER_H_
#define QRIX_PLATFORM_DLBASE_SHARED_FOLDER_H_

#include <string>

#include "platform/qrix_export.h"

namespace qrixdl {

// Codes of the QrixError the checks throw.
inline constexpr int kErrNoSharePermission = 531;  // not a share the account may write to
inline constexpr int kErrFolderNotUsable = 1207;   // in such a share, but not an existing folder

namespace common {

// Throws QrixError (one of the codes above) unless `path` ("share/sub" or an absolute path
// inside a share) is a folder `user` may write to.
QRIX_EXPORT void CheckSharedPathWithException(const std::string& path, const std::string& user);

}  // namespace common
}  // namespace qrixdl

// True when `user` may write to the folder `path`. With `real_path`, the resolved folder is
// copied there (cut to size - 1).
extern "C" QRIX_EXPORT bool QRIXDownloadCheckShareFolder(const char* path, const char* user,
                                                         char* real_path, int size);

#endif  // QRIX_PLATFORM_DLBASE_SHARED_FOLDER_H_
