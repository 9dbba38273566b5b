#include "platform/dlbase/pkg_version.h"

#include <charconv>
#include <cstring>

#include "platform/vlibc/vlibc_file.h"

namespace {

bool ReadNumber(const char* key, int* out) {
  char text[32];
  const int len = VLIBCFileGetKeyValue(QRIXDL_PKG_VERSION_FILE, key, text, sizeof text, 0);
  if (len <= 0) {
    return false;
  }
  int value = 0;
  const auto [end, ec] = std::from_chars(text, text + len, value);
  if (ec != std::errc() || end != text + len || value < 0) {
    return false;
  }
  *out = value;
  return true;
}

}  // namespace

bool GetDLPkgVersion(int* major, int* minor) {
  int ma = 0;
  int mi = 0;
  if (major == nullptr || minor == nullptr || !ReadNumber("majorversion", &ma) ||
      !ReadNumber("minorversion", &mi)) {
    return false;
  }
  *major = ma;
  *minor = mi;
  return true;
}

bool GetDLPkgBuildNum(int* build) {
  return build != nullptr && ReadNumber("buildnumber", build);
}
