// Rewriting the eMule configuration for a new temporary volume. The file is read in pieces of
// at most 1023 bytes, each taken as a line, as the package's other tools read it.
#include "module/dlcommon/amule_conf_set.h"

#include <syslog.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "platform/vlibc/atomic_file.h"

namespace {

constexpr const char* kSource = "amule_conf_set";

struct FileCloser {
  void operator()(FILE* f) const { std::fclose(f); }
};
using UniqueFile = std::unique_ptr<FILE, FileCloser>;

bool StartsWith(const char* line, const char* prefix) {
  return std::strncmp(line, prefix, std::strlen(prefix)) == 0;
}

}  // namespace

extern "C" int QRIXDLAmuleVolumeSet(const char* volume) {
  if (volume == nullptr || volume[0] == '\0') {
    syslog(LOG_ERR, "%s(%d) Bad parameter.", kSource, 19);
    return -1;
  }
  const UniqueFile in(std::fopen(QRIXDL_AMULE_CONF, "re"));
  if (!in) {
    syslog(LOG_ERR, "%s(%d): fopen(SZF_QRIX_AMULE_CONF, \"r\") failed", __func__, 24);
    return -1;
  }
  std::string out;
  char line[1024];
  while (std::fgets(line, sizeof line, in.get()) != nullptr) {
    if (StartsWith(line, "TempDir=")) {
      // A 64-byte line: a longer volume path is cut, newline and all.
      char temp_dir[64];
      std::snprintf(temp_dir, sizeof temp_dir, "TempDir=%s/@download/aMuleTmp\n", volume);
      out += temp_dir;
    } else if (StartsWith(line, "Address=")) {
      out += "Address=\n";
    } else {
      out += line;
    }
  }
  if (std::ferror(in.get()) != 0) {
    return -1;
  }
  // Published whole or not at all: a reader or a crash never sees half a configuration.
  if (qrix::PublishFile(QRIXDL_AMULE_CONF, out) != 0) {
    syslog(LOG_ERR, "%s(%d): fopen(SZF_QRIX_AMULE_CONF.tmp, \"w\") failed", __func__, 29);
    return -1;
  }
  return 0;
}
