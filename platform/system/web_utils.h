// Path helpers of the web utilities.
#ifndef QRIX_PLATFORM_SYSTEM_WEB_UTILS_H_
#define QRIX_PLATFORM_SYSTEM_WEB_UTILS_H_

#include <string>

#include "platform/qrix_export.h"

namespace WebUtils {

// The directory part of `path`: "/a/b" for "/a/b/c", "/" for "/c", "." for a bare name.
QRIX_EXPORT std::string GetDirName(const std::string& path);

}  // namespace WebUtils

#endif  // QRIX_PLATFORM_SYSTEM_WEB_UTILS_H_
