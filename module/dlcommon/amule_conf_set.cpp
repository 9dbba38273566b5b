// Rewriting the eMule configuration for a new temporary volume. The file is read in pieces of
// at most 1023 bytes, each taken as a line, as the package's other tools read it.
#include "module/dlcommon/amule_conf_set.h"

#include <syslog.h>

#include <algorithm>
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

}  // namespace

std::string qrixdl::AmuleConfForVolume(std::string_view text, const char* volume) {
  constexpr size_t kPiece = 1023;
  std::string out;
  out.reserve(text.size());
  while (!text.empty()) {
    const size_t newline = text.substr(0, kPiece).find('\n');
    const size_t length =
        newline == std::string_view::npos ? std::min(kPiece, text.size()) : newline + 1;
    std::string_view piece = text.substr(0, length);
    text.remove_prefix(length);
    piece = piece.substr(0, piece.find('\0'));  // what a C string of the piece holds
    if (piece.starts_with("TempDir=")) {
      // A 64-byte line: a longer volume path is cut, newline and all.
      char temp_dir[64];
      std::snprintf(temp_dir, sizeof temp_dir, "TempDir=%s/@download/aMuleTmp\n", volume);
      out += temp_dir;
    } else if (piece.starts_with("Address=")) {
      out += "Address=\n";
    } else {
      out += piece;
    }
  }
  return out;
}

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
  std::string text;
  char buffer[4096];
  size_t n = 0;
  while ((n = std::fread(buffer, 1, sizeof buffer, in.get())) > 0) {
    text.append(buffer, n);
  }
  if (std::ferror(in.get()) != 0) {
    return -1;
  }
  const std::string out = qrixdl::AmuleConfForVolume(text, volume);
  // Published whole or not at all: a reader or a crash never sees half a configuration.
  if (qrix::PublishFile(QRIXDL_AMULE_CONF, out) != 0) {
    syslog(LOG_ERR, "%s(%d): fopen(SZF_QRIX_AMULE_CONF.tmp, \"w\") failed", __func__, 29);
    return -1;
  }
  return 0;
}
