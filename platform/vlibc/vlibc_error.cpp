#include "platform/vlibc/vlibc_error.h"

#include <cstring>

namespace {

struct ErrorState {
  int code = ERR_NONE;
  const char* file = "";
  int line = 0;
};

thread_local ErrorState g_error;

// Only the base name: log lines say where, not the build machine's tree.
const char* BaseName(const char* path) {
  if (path == nullptr) {
    return "";
  }
  const char* slash = std::strrchr(path, '/');
  return slash != nullptr ? slash + 1 : path;
}

}  // namespace

extern "C" {

int VLIBCErrGet(void) { return g_error.code; }
const char* VLIBCErrorGetFile(void) { return g_error.file; }
int VLIBCErrorGetLine(void) { return g_error.line; }

void VLIBCErrSetEx(int code, const char* file, int line) {
  g_error.code = code;
  g_error.file = BaseName(file);
  g_error.line = line;
}

}  // extern "C"
