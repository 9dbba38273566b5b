#include "platform/system/web_utils.h"

#include "platform/vlibc/atomic_file.h"

namespace WebUtils {

std::string GetDirName(const std::string& path) {
  return qrix::DirName(path);
}

}  // namespace WebUtils
